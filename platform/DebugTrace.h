#pragma once

#include <exception>
#include <functional>
#include <string>
#include <string_view>

namespace lumenar::platform {

/// Writes one diagnostic line to the debugger output channel: stderr when LUMENAR_DEBUG is set,
/// otherwise nowhere, plus the capture installed by a test. Any thread.
void DebugTrace(std::string_view text);

/// Runs `work`, and turns an exception that escapes it (our code throws none, but the standard library
/// may, out of memory) into a trace naming `where`: the place that calls this must not let one end its
/// thread or cross into a host. Returns false when something was caught. Any thread.
template <typename Work> bool CatchAll(std::string_view where, Work&& work) noexcept
{
    try {
        work();
        return true;
    } catch (const std::exception& error) {
        DebugTrace(std::string(where) + ": " + error.what() + "\n");
    } catch (...) {
        DebugTrace(std::string(where) + ": an unknown exception\n");
    }
    return false;
}

/// Installs (or, with an empty function, removes) a capture that sees every trace. Tests only.
void SetDebugTraceCapture(std::function<void(std::string_view)> capture);

} // namespace lumenar::platform
