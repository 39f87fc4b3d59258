#include "app/InputFiles.h"

#include "base/StrCat.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

namespace lumenar::app {

using base::Error;
using base::ErrorCode;
using base::StrCat;

namespace {

struct FileClose
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};

std::string TooLarge(std::uintmax_t maxBytes)
{
    return StrCat("is larger than the ", maxBytes >> 20, " MiB a command reads");
}

} // namespace

base::Status CheckInputFile(const std::string& path, std::uintmax_t maxBytes)
{
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (error)
        return Error{ErrorCode::NotFound, error.message()};
    switch (status.type()) {
    case fs::file_type::regular:
        break;
    case fs::file_type::directory:
        return Error{ErrorCode::InvalidInput, "is a folder, not a file"};
    case fs::file_type::character:
    case fs::file_type::block:
        return Error{ErrorCode::InvalidInput, "is a device, not a file"};
    case fs::file_type::fifo:
        return Error{ErrorCode::InvalidInput, "is a pipe, not a file"};
    case fs::file_type::socket:
        return Error{ErrorCode::InvalidInput, "is a socket, not a file"};
    default:
        return Error{ErrorCode::InvalidInput, "is not a regular file"};
    }
    const std::uintmax_t size = fs::file_size(path, error);
    if (error)
        return Error{ErrorCode::Io, error.message()};
    if (size > maxBytes)
        return Error{ErrorCode::TooLarge, TooLarge(maxBytes)};
    return {};
}

base::Result<std::vector<std::uint8_t>> ReadInputFile(const std::string& path, std::uintmax_t maxBytes)
{
    LUM_TRY(CheckInputFile(path, maxBytes));
    std::unique_ptr<std::FILE, FileClose> file(std::fopen(path.c_str(), "rb"));
    if (!file)
        return Error{ErrorCode::Io, std::strerror(errno)};
    std::vector<std::uint8_t> bytes;
    std::uint8_t block[1 << 16];
    for (;;) {
        const std::size_t got = std::fread(block, 1, sizeof block, file.get());
        if (got != 0) {
            const std::size_t had = bytes.size();
            bytes.resize(had + got);
            std::memcpy(bytes.data() + had, block, got);
        }
        if (bytes.size() > maxBytes)
            return Error{ErrorCode::TooLarge, TooLarge(maxBytes)};
        if (got < sizeof block)
            break;
    }
    if (std::ferror(file.get()))
        return Error{ErrorCode::Io, StrCat("cannot be read: ", std::strerror(errno))};
    return bytes;
}

base::Status WriteOutputFile(const std::string& path, std::span<const std::uint8_t> bytes)
{
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr)
        return Error{ErrorCode::Io, StrCat("cannot be written: ", std::strerror(errno))};
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    const int writeErrno = errno;
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed)
        return Error{ErrorCode::Io,
                     StrCat("cannot be written: ", std::strerror(written ? errno : writeErrno))};
    return {};
}

std::string_view WithoutPath(std::string_view message, std::string_view path)
{
    if (!path.empty() && message.size() > path.size() + 2 && message.starts_with(path) &&
        message.substr(path.size(), 2) == ": ")
        message.remove_prefix(path.size() + 2);
    return message;
}

} // namespace lumenar::app
