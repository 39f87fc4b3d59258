#pragma once

#include "base/Result.h"

#include <memory>
#include <string>
#include <utility>

namespace lumenar::app {

/// A folder of photos packed into a film file of the temporary folder for `lumenar play DIR`, with the
/// folder's defaults (five seconds a photo, a one-second cross-fade). The file is removed when this
/// object goes. One thread.
class FolderFilmFile
{
public:
    FolderFilmFile() = default;
    // A moved-from object must not remove the file it handed on.
    FolderFilmFile(FolderFilmFile&& other) noexcept : path_(std::exchange(other.path_, {})) {}
    FolderFilmFile& operator=(FolderFilmFile&& other) noexcept
    {
        std::swap(path_, other.path_);
        return *this;
    }
    ~FolderFilmFile();

    /// Packs `folder`. Fails with a one-line message (no folder name) when the folder holds no photo,
    /// a photo cannot be read, or the temporary file cannot be written.
    static base::Result<FolderFilmFile> Pack(const std::string& folder);

    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

/// True when `path` names a folder (links followed).
bool IsFolder(const std::string& path);

} // namespace lumenar::app
