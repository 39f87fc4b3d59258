#pragma once

#include <optional>
#include <string>

namespace lumenar::platform {

/// The name of the first optical (CD-ROM) drive, as films name drives ("D:" … "Z:"), or empty when the
/// machine has none. Films address compact-disc tracks through a drive letter; systems without drive
/// letters have no such drive, so there the answer is always empty. Any thread.
std::optional<std::string> FindOpticalDrive();

} // namespace lumenar::platform
