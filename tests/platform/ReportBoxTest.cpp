#include "platform/ReportBox.h"

#include "platform/StringTable.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace lumenar::platform {
namespace {

struct Shown
{
    unsigned style;
    std::string title;
    std::string text;
};

class CaptureSink : public MessageSink
{
public:
    int Show(Window*, unsigned style, std::string_view title, std::string_view text) override
    {
        shown.push_back({style, std::string(title), std::string(text)});
        return kAnswerOk;
    }
    std::vector<Shown> shown;
};

TEST(ReportBox, TakesTextsFromTheTableAndFallsBack)
{
    CaptureSink sink;
    SetMessageSink(&sink);
    struct Row
    {
        const char* name;
        int titleId;
        const char* titleText;
        int textId;
        const char* textFormat;
        Shown expected;
    } rows[] = {
        {"table title and text", kStrError, nullptr, kStrFileOpenFailed, nullptr,
         {kBoxIconError, "Error", "film.flm\nFile open failed!"}},
        {"absent ids fall back to the given texts", 0, "Own title", 0, "%s of %d", {kBoxIconError, "Own title", "film.flm of 7"}},
        {"no title at all", 0, nullptr, 0, "plain", {kBoxIconError, "", "plain"}},
    };
    for (const Row& row : rows)
        ReportBox(nullptr, kBoxIconError, row.titleId, row.titleText, row.textId, row.textFormat, "film.flm", 7);
    SetMessageSink(nullptr);
    ASSERT_EQ(sink.shown.size(), std::size(rows));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE(rows[i].name);
        EXPECT_EQ(sink.shown[i].title, rows[i].expected.title);
        EXPECT_EQ(sink.shown[i].text, rows[i].expected.text);
        EXPECT_EQ(sink.shown[i].style, rows[i].expected.style);
    }
}

TEST(StringTable, HoldsThePlayersMessages)
{
    EXPECT_STREQ(LoadStringId(kStrWarning), "Warning");
    EXPECT_STREQ(LoadStringId(kStrInvalidFileFormat), "%s\nInvalid file format!");
    EXPECT_STREQ(LoadStringId(kStrProductName), "Lumenar");
    EXPECT_EQ(LoadStringId(1), nullptr);
}

} // namespace
} // namespace lumenar::platform
