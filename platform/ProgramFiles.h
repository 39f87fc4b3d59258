#pragma once

#include <string>

namespace lumenar::platform {

/// The folder holding the running program (where the files that ship with it are installed);
/// "." when the system cannot tell.
std::string ProgramDirectory();

} // namespace lumenar::platform
