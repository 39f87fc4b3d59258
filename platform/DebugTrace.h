#pragma once

#include <functional>
#include <string_view>

namespace lumenar::platform {

/// Writes one diagnostic line to the debugger output channel: stderr when LUMENAR_DEBUG is set,
/// otherwise nowhere, plus the capture installed by a test. Any thread.
void DebugTrace(std::string_view text);

/// Installs (or, with an empty function, removes) a capture that sees every trace. Tests only.
void SetDebugTraceCapture(std::function<void(std::string_view)> capture);

} // namespace lumenar::platform
