#pragma once

#include "base/Result.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace lumenar::platform {

/// One stream at the root of a compound file being written.
struct StorageStream
{
    std::string name; ///< UTF-8; at most 31 characters.
    std::vector<std::uint8_t> bytes;
};

/// Writes a compound file at `path` (replacing it) whose root holds exactly `streams`, in order.
/// Fails with Io, naming the path and the library's reason. Any thread.
base::Status WriteCompoundFile(const std::string& path, std::span<const StorageStream> streams);

} // namespace lumenar::platform
