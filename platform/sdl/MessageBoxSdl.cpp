#include "platform/MessageBox.h"

#include <SDL.h>

#include <cstdlib>
#include <string>

namespace lumenar::platform {

namespace {

bool DisplayPresent()
{
    const char* driver = std::getenv("SDL_VIDEODRIVER");
    if (driver != nullptr && std::string(driver) == "dummy")
        return false;
    const char* x11 = std::getenv("DISPLAY");
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    return (x11 != nullptr && *x11 != '\0') || (wayland != nullptr && *wayland != '\0');
}

class SdlMessageSink final : public MessageSink
{
public:
    int Show(Window*, unsigned style, std::string_view title, std::string_view text) override
    {
        Uint32 flags = SDL_MESSAGEBOX_INFORMATION;
        if ((style & 0xF0) == kBoxIconError)
            flags = SDL_MESSAGEBOX_ERROR;
        else if ((style & 0xF0) == kBoxIconWarning)
            flags = SDL_MESSAGEBOX_WARNING;
        // An empty title shows the product's name, as a box without its own title shows the system's.
        const std::string titleText = title.empty() ? std::string("Lumenar") : std::string(title);
        const std::string bodyText(text);
        if (SDL_ShowSimpleMessageBox(flags, titleText.c_str(), bodyText.c_str(), nullptr) != 0)
            return StderrMessageSink().Show(nullptr, style, title, text);
        return kAnswerOk;
    }
};

} // namespace

MessageSink* DisplayMessageSinkOrNull()
{
    static const bool present = DisplayPresent();
    if (!present)
        return nullptr;
    static SdlMessageSink sink;
    return &sink;
}

} // namespace lumenar::platform
