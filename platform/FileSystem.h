#pragma once

#include "base/Result.h"

#include <cstdint>
#include <span>
#include <string>

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

} // namespace lumenar::platform
