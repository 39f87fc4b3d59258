#include "platform/ReportBox.h"

#include "platform/StringTable.h"
#include "tests/support/MessageCapture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace lumenar::platform {
namespace {

using Shown = testing::MessageCapture::Shown;

TEST(ReportBox, TakesTextsFromTheTableAndFallsBack)
{
    testing::MessageCapture messages;
    struct Row
    {
        const char* name;
        int titleId;
        const char* titleText;
        int textId;
        const char* textFormat;
        Shown expected;
    } rows[] = {
        {"table title and text",
         kStrError,
         nullptr,
         kStrFileOpenFailed,
         nullptr,
         {kBoxIconError, "Error", "film.flm\nFile open failed!"}},
        {"absent ids fall back to the given texts",
         0,
         "Own title",
         0,
         "%s of %d",
         {kBoxIconError, "Own title", "film.flm of 7"}},
        {"no title at all", 0, nullptr, 0, "plain", {kBoxIconError, "", "plain"}},
    };
    for (const Row& row : rows)
        ReportBox(nullptr, kBoxIconError, row.titleId, row.titleText, row.textId, row.textFormat, "film.flm",
                  7);
    const std::vector<Shown> shown = messages.All();
    ASSERT_EQ(shown.size(), std::size(rows));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE(rows[i].name);
        EXPECT_EQ(std::tie(shown[i].style, shown[i].title, shown[i].text),
                  std::tie(rows[i].expected.style, rows[i].expected.title, rows[i].expected.text));
    }
}

} // namespace
} // namespace lumenar::platform
