#include "platform/FileSystem.h"

#include "base/StrCat.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace lumenar::platform {
namespace {

struct FileCloser
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

} // namespace

base::Result<std::string> MakePrivateFolder(const char* prefix)
{
    const char* root = std::getenv("TMPDIR");
    std::string pattern = (root != nullptr && root[0] != '\0') ? root : "/tmp";
    if (pattern.back() != '/')
        pattern += '/';
    pattern += prefix;
    pattern += "XXXXXX";
    // mkdtemp makes the folder with mode 0700 under a name nobody else can have taken.
    if (::mkdtemp(pattern.data()) == nullptr)
        return base::Error{base::ErrorCode::Io, base::StrCat("cannot make a private folder ", pattern, ": ",
                                                             std::strerror(errno))};
    return pattern + '/';
}

void RemoveFolderTree(const std::string& folder)
{
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

base::Status WriteWholeFile(const std::string& path, std::span<const std::uint8_t> bytes)
{
    struct stat info;
    if (::lstat(path.c_str(), &info) == 0 && ::chmod(path.c_str(), S_IRUSR | S_IWUSR) != 0)
        return base::Error{base::ErrorCode::Io,
                           base::StrCat("cannot make ", path, " writable: ", std::strerror(errno))};
    FilePtr file(std::fopen(path.c_str(), "wb"));
    if (!file)
        return base::Error{base::ErrorCode::Io,
                           base::StrCat("cannot create ", path, ": ", std::strerror(errno))};
    std::size_t done = 0;
    while (done < bytes.size()) {
        const std::size_t block = std::min(kWriteBlockBytes, bytes.size() - done);
        if (std::fwrite(bytes.data() + done, 1, block, file.get()) != block)
            return base::Error{base::ErrorCode::Io, base::StrCat("short write to ", path, " at byte ", done)};
        done += block;
    }
    if (std::fclose(file.release()) != 0)
        return base::Error{base::ErrorCode::Io,
                           base::StrCat("cannot finish ", path, ": ", std::strerror(errno))};
    return {};
}

bool DeleteFile(const std::string& path)
{
    return ::unlink(path.c_str()) == 0;
}

bool PathExists(const std::string& path)
{
    struct stat info;
    return ::lstat(path.c_str(), &info) == 0;
}

} // namespace lumenar::platform
