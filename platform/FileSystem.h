#pragma once

#include "base/Result.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace lumenar::platform {

/// The block size files are written in.
inline constexpr std::size_t kWriteBlockBytes = 2048;

/// Makes a new folder that only this user may enter (mode 0700) under $TMPDIR, or /tmp when that is
/// unset or empty, and returns its path ending with '/'. Any thread.
base::Result<std::string> MakePrivateFolder(const char* prefix);

/// Removes `folder` and everything in it; a folder that does not exist is not an error. Any thread.
void RemoveFolderTree(const std::string& folder);

/// Writes `bytes` to `path`, replacing the file: an existing file first gets normal permissions (failing
/// the write when it cannot), then the file is created anew and written in blocks of kWriteBlockBytes
/// and the remainder. Any short write fails. Any thread.
base::Status WriteWholeFile(const std::string& path, std::span<const std::uint8_t> bytes);

/// Deletes one file; false when there was none or it could not be deleted. Any thread.
bool DeleteFile(const std::string& path);

/// Whether `path` names an existing file or folder. Any thread.
bool PathExists(const std::string& path);

class CompoundStorage;

/// The files a film session makes: its private folder, the pieces written into it and the film file
/// read back from it. The disk is the real one; MemoryFiles keeps everything in memory, so that tests
/// and the stream fuzzer run without touching the disk. Paths always end in a name under a folder
/// that MakePrivateFolder returned.
class FileSpace
{
public:
    virtual ~FileSpace() = default;
    /// As the free function MakePrivateFolder: a new folder only this user may enter, ending with '/'.
    virtual base::Result<std::string> MakePrivateFolder(const char* prefix) = 0;
    /// Removes the folder and everything in it.
    virtual void RemoveFolderTree(const std::string& folder) = 0;
    /// As the free function WriteWholeFile.
    virtual base::Status WriteWholeFile(const std::string& path, std::span<const std::uint8_t> bytes) = 0;
    /// False when there was no such file.
    virtual bool DeleteFile(const std::string& path) = 0;
    /// Opens a film file written here for reading; one on disk is locked while the storage lives.
    virtual base::Result<std::unique_ptr<CompoundStorage>> OpenCompoundFile(const std::string& path) = 0;
};

/// The real file system. Process-wide; any thread.
FileSpace& DiskFiles();

/// Files held in memory under folders named "/memory/<prefix>N/". Nothing reaches the disk, so a file
/// written here cannot be opened by anything but this object. Any thread.
class MemoryFiles final : public FileSpace
{
public:
    base::Result<std::string> MakePrivateFolder(const char* prefix) override;
    void RemoveFolderTree(const std::string& folder) override;
    base::Status WriteWholeFile(const std::string& path, std::span<const std::uint8_t> bytes) override;
    bool DeleteFile(const std::string& path) override;
    base::Result<std::unique_ptr<CompoundStorage>> OpenCompoundFile(const std::string& path) override;

    /// Makes every later MakePrivateFolder fail, as a full or missing temporary folder does.
    void RefuseFolders() { refuseFolders_ = true; }
    /// The paths of the files held now, in order.
    std::vector<std::string> Paths() const;

private:
    mutable std::mutex lock_; // Guards everything below.
    std::set<std::string> folders_;
    std::map<std::string, std::vector<std::uint8_t>> files_;
    int nextFolder_ = 1;
    bool refuseFolders_ = false;
};

} // namespace lumenar::platform
