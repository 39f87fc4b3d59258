#pragma once

#include "base/Result.h"

#include <string>
#include <string_view>

namespace lumenar::platform {

/// Creates a new empty file in `folder` named `prefix` + four hex digits + ".tmp" (the classic
/// temporary-file naming) and returns its path. Fails when the folder cannot take a new file. Any thread.
base::Result<std::string> CreateTempFile(const std::string& folder, std::string_view prefix);

} // namespace lumenar::platform
