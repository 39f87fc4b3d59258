#include "platform/DebugTrace.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

namespace lumenar::platform {

namespace {
std::mutex captureLock; // Guards `Capture()`.
std::function<void(std::string_view)>& Capture()
{
    static std::function<void(std::string_view)> capture;
    return capture;
}
} // namespace

void DebugTrace(std::string_view text)
{
    static const bool toStderr = std::getenv("LUMENAR_DEBUG") != nullptr;
    if (toStderr)
        std::fprintf(stderr, "%.*s", static_cast<int>(text.size()), text.data());
    std::function<void(std::string_view)> capture;
    {
        std::lock_guard<std::mutex> hold(captureLock);
        capture = Capture();
    }
    if (capture)
        capture(text);
}

void SetDebugTraceCapture(std::function<void(std::string_view)> capture)
{
    std::lock_guard<std::mutex> hold(captureLock);
    Capture() = std::move(capture);
}

} // namespace lumenar::platform
