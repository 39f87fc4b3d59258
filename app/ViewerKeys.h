#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace lumenar::app {

/// What `lumenar play` does with a key before the control sees it.
struct ViewerAction
{
    enum class Kind
    {
        Pass,             ///< The control gets the key as it is.
        Quit,             ///< The player closes.
        ToggleFullscreen, ///< Full screen on or off.
        Send,             ///< The control gets `key` instead.
    };
    Kind kind = Kind::Pass;
    int key = 0;
};

/// Keys of a viewer on top of the control's own: q or Ctrl+Q quits, F11 or f switches full screen,
/// Space, Right and Down step on (as Page Down), Backspace, Left and Up step back (as Page Up). While
/// the viewer has zoomed into a photo (+ more often than −), the arrows go to the control, which pans.
class ViewerKeys
{
public:
    ViewerAction Take(int key, unsigned modifiers);

private:
    int zoom_ = 0;
};

/// The keys `lumenar play --help` lists, one per line.
extern const char* const kViewerKeysHelp;

/// A key as `--press` names it: a letter, a digit, or space, backspace, return, escape, left, right,
/// up, down, pageup, pagedown, plus, minus, f1..f12, optionally after "ctrl+", "shift+" or "alt+".
struct NamedKey
{
    int key = 0;
    unsigned modifiers = 0;
};
std::optional<NamedKey> ParseKeyName(std::string_view name);

} // namespace lumenar::app
