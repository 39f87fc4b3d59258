#include "app/ViewerKeys.h"

#include "lumenar/lumenar.h"

#include <cctype>
#include <string>

namespace lumenar::app {

const char* const kViewerKeysHelp =
    "keys:\n"
    "  Space, Right, Down, Page Down       next picture of a film that advances by hand\n"
    "  Backspace, Left, Up, Page Up       previous picture\n"
    "  + and -                            zoom into the picture and out again (the arrows then pan)\n"
    "  Escape                             skip the caption\n"
    "  F11 or f                           full screen on or off\n"
    "  q or Ctrl+Q                        quit\n";

ViewerAction ViewerKeys::Take(int key, unsigned modifiers)
{
    using Kind = ViewerAction::Kind;
    if (key == 'Q' && (modifiers & ~LUM_MOD_CTRL) == 0)
        return {Kind::Quit};
    if (modifiers != 0)
        return {};
    switch (key) {
    case LUM_KEY_F11:
    case 'F':
        return {Kind::ToggleFullscreen};
    case LUM_KEY_ADD:
        ++zoom_;
        return {};
    case LUM_KEY_SUBTRACT:
        zoom_ = zoom_ > 0 ? zoom_ - 1 : 0;
        return {};
    case LUM_KEY_SPACE:
        return {Kind::Send, LUM_KEY_PAGEDOWN};
    case LUM_KEY_BACK:
        return {Kind::Send, LUM_KEY_PAGEUP};
    case LUM_KEY_RIGHT:
    case LUM_KEY_DOWN:
        return zoom_ > 0 ? ViewerAction{} : ViewerAction{Kind::Send, LUM_KEY_PAGEDOWN};
    case LUM_KEY_LEFT:
    case LUM_KEY_UP:
        return zoom_ > 0 ? ViewerAction{} : ViewerAction{Kind::Send, LUM_KEY_PAGEUP};
    default:
        return {};
    }
}

std::optional<NamedKey> ParseKeyName(std::string_view name)
{
    NamedKey out;
    std::string lower;
    for (char c : name)
        lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (;;) {
        if (lower.starts_with("ctrl+"))
            out.modifiers |= LUM_MOD_CTRL;
        else if (lower.starts_with("shift+"))
            out.modifiers |= LUM_MOD_SHIFT;
        else if (lower.starts_with("alt+"))
            out.modifiers |= LUM_MOD_ALT;
        else
            break;
        lower.erase(0, lower.find('+') + 1);
    }
    static constexpr struct
    {
        const char* name;
        int key;
    } kNames[] = {
        {"space", LUM_KEY_SPACE},   {"backspace", LUM_KEY_BACK},
        {"return", LUM_KEY_RETURN}, {"escape", LUM_KEY_ESCAPE},
        {"left", LUM_KEY_LEFT},     {"right", LUM_KEY_RIGHT},
        {"up", LUM_KEY_UP},         {"down", LUM_KEY_DOWN},
        {"pageup", LUM_KEY_PAGEUP}, {"pagedown", LUM_KEY_PAGEDOWN},
        {"plus", LUM_KEY_ADD},      {"minus", LUM_KEY_SUBTRACT},
    };
    for (const auto& named : kNames)
        if (lower == named.name) {
            out.key = named.key;
            return out;
        }
    if (lower.size() == 1 && std::isalnum(static_cast<unsigned char>(lower[0]))) {
        out.key = std::toupper(static_cast<unsigned char>(lower[0]));
        return out;
    }
    if (lower.size() >= 2 && lower[0] == 'f') {
        const std::string digits = lower.substr(1);
        if (digits.find_first_not_of("0123456789") == std::string::npos && digits.size() <= 2) {
            const int number = std::stoi(digits);
            if (number >= 1 && number <= 12) {
                out.key = 0x70 + number - 1;
                return out;
            }
        }
    }
    return std::nullopt;
}

} // namespace lumenar::app
