#include "app/ViewerKeys.h"

#include "lumenar/lumenar.h"

#include <gtest/gtest.h>

namespace lumenar::app {
namespace {

using Kind = ViewerAction::Kind;

// One viewer pressing keys in turn: what each press does, zoom state carried from row to row.
TEST(ViewerKeys, EachPressInTurn)
{
    struct Row
    {
        const char* press; // As --press names it.
        Kind kind;
        int sent;
    } rows[] = {
        {"space", Kind::Send, LUM_KEY_PAGEDOWN},
        {"right", Kind::Send, LUM_KEY_PAGEDOWN},
        {"down", Kind::Send, LUM_KEY_PAGEDOWN},
        {"left", Kind::Send, LUM_KEY_PAGEUP},
        {"backspace", Kind::Send, LUM_KEY_PAGEUP},
        {"pagedown", Kind::Pass, 0},
        {"escape", Kind::Pass, 0},
        {"f11", Kind::ToggleFullscreen, 0},
        {"F", Kind::ToggleFullscreen, 0},
        {"ctrl+space", Kind::Pass, 0},
        {"plus", Kind::Pass, 0}, // Zoomed in: the arrows pan the photo,
        {"left", Kind::Pass, 0},
        {"space", Kind::Send, LUM_KEY_PAGEDOWN}, // but Space still steps,
        {"minus", Kind::Pass, 0},
        {"minus", Kind::Pass, 0}, // and a second − cannot go below none.
        {"right", Kind::Send, LUM_KEY_PAGEDOWN},
        {"q", Kind::Quit, 0},
        {"ctrl+Q", Kind::Quit, 0},
        {"alt+q", Kind::Pass, 0},
    };
    ViewerKeys keys;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.press);
        const auto named = ParseKeyName(row.press);
        ASSERT_TRUE(named.has_value());
        const ViewerAction action = keys.Take(named->key, named->modifiers);
        EXPECT_EQ(action.kind, row.kind);
        EXPECT_EQ(action.key, row.sent);
    }
    for (const char* bad : {"", "ctrl+", "f13", "f0", "spacebar", "@"})
        EXPECT_FALSE(ParseKeyName(bad).has_value()) << bad;
    EXPECT_EQ(ParseKeyName("F12")->key, 0x7B);
}

} // namespace
} // namespace lumenar::app
