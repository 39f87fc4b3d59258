#pragma once

#include "base/Result.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace lumenar::app {

/// The largest file a command reads. Films, photos, narration and manifests are far smaller; the cap
/// keeps a file that grows while it is read from being read for ever.
inline constexpr std::uintmax_t kMaxInputBytes = std::uintmax_t{512} << 20;

/// Ok when `path` names a regular file (links followed) of at most `maxBytes`. A missing file, a
/// folder, a device, a pipe or a socket fails with a message that says which, without the path (the
/// command puts it first). Never opens the file, so a pipe with no writer cannot block it.
base::Status CheckInputFile(const std::string& path, std::uintmax_t maxBytes = kMaxInputBytes);

/// Reads a whole input file after CheckInputFile; a file that grows past `maxBytes` while it is read
/// fails too. Messages leave out the path.
base::Result<std::vector<std::uint8_t>> ReadInputFile(const std::string& path,
                                                      std::uintmax_t maxBytes = kMaxInputBytes);

/// Writes `bytes` to `path`, replacing it. Fails, with a message without the path, when the file
/// cannot be created, written or closed: a full disk often shows only at the close.
base::Status WriteOutputFile(const std::string& path, std::span<const std::uint8_t> bytes);

/// `message` without the "<path>: " that services which name their file put in front, so that the
/// command's one line names the file once.
std::string_view WithoutPath(std::string_view message, std::string_view path);

} // namespace lumenar::app
