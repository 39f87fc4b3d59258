#pragma once

#include <string>
#include <vector>

namespace lumenar::platform {

/// The running program's own file, or empty when the system cannot say. Any thread.
std::string ExecutablePath();

/// The file of the loaded module (program or shared library) that holds `address`, or empty. Any thread.
std::string ModulePath(const void* address);

/// Runs `argv[0]` (found on PATH) with the arguments, output and errors discarded, and waits for it.
/// Returns its exit status, or −1 when it could not be started (not installed). Any thread.
int RunQuietly(const std::vector<std::string>& argv);

/// Whether the process's standard error is a terminal (a progress line is for a person, not a log).
bool StandardErrorIsTerminal();

/// The process's id, for names that two runs at once must not share.
long ProcessId();

} // namespace lumenar::platform
