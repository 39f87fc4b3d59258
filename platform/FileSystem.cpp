#include "platform/FileSystem.h"

#include "base/StrCat.h"
#include "platform/CompoundFile.h"

namespace lumenar::platform {

using base::Error;
using base::ErrorCode;
using base::StrCat;

namespace {

class Disk final : public FileSpace
{
public:
    base::Result<std::string> MakePrivateFolder(const char* prefix) override
    {
        return platform::MakePrivateFolder(prefix);
    }
    void RemoveFolderTree(const std::string& folder) override { platform::RemoveFolderTree(folder); }
    base::Status WriteWholeFile(const std::string& path, std::span<const std::uint8_t> bytes) override
    {
        return platform::WriteWholeFile(path, bytes);
    }
    bool DeleteFile(const std::string& path) override { return platform::DeleteFile(path); }
    base::Result<std::unique_ptr<CompoundStorage>> OpenCompoundFile(const std::string& path) override
    {
        return CompoundStorage::OpenFile(path);
    }
};

// The folder part of a path, ending with '/'.
std::string FolderOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

} // namespace

FileSpace& DiskFiles()
{
    static Disk disk;
    return disk;
}

base::Result<std::string> MemoryFiles::MakePrivateFolder(const char* prefix)
{
    std::lock_guard guard(lock_);
    if (refuseFolders_)
        return Error{ErrorCode::Io, StrCat("cannot make a private folder /memory/", prefix, ": refused")};
    std::string folder = StrCat("/memory/", prefix, nextFolder_++, "/");
    folders_.insert(folder);
    return folder;
}

void MemoryFiles::RemoveFolderTree(const std::string& folder)
{
    std::lock_guard guard(lock_);
    folders_.erase(folder);
    for (auto at = files_.lower_bound(folder); at != files_.end() && at->first.starts_with(folder);)
        at = files_.erase(at);
}

base::Status MemoryFiles::WriteWholeFile(const std::string& path, std::span<const std::uint8_t> bytes)
{
    std::lock_guard guard(lock_);
    if (folders_.count(FolderOf(path)) == 0)
        return Error{ErrorCode::Io, StrCat("cannot create ", path, ": no such folder")};
    files_[path].assign(bytes.begin(), bytes.end());
    return {};
}

bool MemoryFiles::DeleteFile(const std::string& path)
{
    std::lock_guard guard(lock_);
    return files_.erase(path) != 0;
}

base::Result<std::unique_ptr<CompoundStorage>> MemoryFiles::OpenCompoundFile(const std::string& path)
{
    std::lock_guard guard(lock_);
    const auto found = files_.find(path);
    if (found == files_.end())
        return Error{ErrorCode::NotFound, StrCat("cannot open ", path, ": no such file")};
    return CompoundStorage::OpenMemory(found->second);
}

std::vector<std::string> MemoryFiles::Paths() const
{
    std::lock_guard guard(lock_);
    std::vector<std::string> paths;
    for (const auto& [path, bytes] : files_)
        paths.push_back(path);
    return paths;
}

} // namespace lumenar::platform
