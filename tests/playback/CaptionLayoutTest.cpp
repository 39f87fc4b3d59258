#include "playback/CaptionLayout.h"

#include "platform/CodePage.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <limits>
#include <vector>

namespace lumenar::playback {
namespace {

records::TextRecord Record(int height, int alignment, int lineSpacing = 100)
{
    records::TextRecord record{};
    record.font.height = height;
    record.font.weight = 400;
    std::strcpy(record.font.faceName, "Arial");
    record.lineSpacing = lineSpacing;
    record.alignment = alignment;
    return record;
}

struct Laid
{
    int count = 0;
    std::array<records::Glyph, 256> glyphs{};
    std::int32_t extent[2] = {0, 0};
    CaptionLayoutInfo info;
};

Laid Layout(const records::TextRecord& record, const char* text)
{
    Laid laid;
    laid.count = LayoutCaption(record, text, laid.glyphs, laid.extent, &laid.info);
    return laid;
}

TEST(CaptionLayout, LinesBaselinesAndAdvances)
{
    const Laid ab = Layout(Record(-48, 0), "AB");
    ASSERT_EQ(ab.count, 2);
    const int ascent = ab.info.metrics.ascent;
    EXPECT_GT(ascent, 30);
    EXPECT_EQ(ab.glyphs[0].gx, 0);
    EXPECT_EQ(ab.glyphs[0].gy, ascent);
    EXPECT_EQ(ab.glyphs[1].gx, ab.glyphs[0].cw - ab.info.metrics.overhang);
    EXPECT_EQ(ab.glyphs[0].code, 'A');
    EXPECT_EQ(ab.extent[0], ab.glyphs[1].gx + ab.glyphs[1].cw);
    EXPECT_EQ(ab.extent[1], ascent + ab.info.metrics.descent);

    // An empty line gets no width entry but still moves the baseline.
    const Laid gap = Layout(Record(-48, 0, 150), "A\r\n\r\nB");
    ASSERT_EQ(gap.count, 2);
    EXPECT_EQ(gap.glyphs[0].line, 0);
    EXPECT_EQ(gap.glyphs[1].line, 1);
    const int advance = 150 * gap.info.metrics.height / 100;
    EXPECT_EQ(gap.glyphs[1].gy, gap.info.metrics.ascent + 2 * advance);
    EXPECT_EQ(gap.glyphs[1].gx, 0);

    const Laid empty = Layout(Record(-48, 0), "");
    EXPECT_EQ(empty.count, 0);
    EXPECT_EQ(empty.extent[0], std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(empty.extent[1], empty.info.metrics.ascent + empty.info.metrics.descent);

    // A height scaled down to 0 takes the default size and still lays out.
    EXPECT_EQ(Layout(Record(0, 0), "Hi").count, 2);
}

TEST(CaptionLayout, AlignsEachLineWithinTheWidest)
{
    const char* text = "WWWW\r\nii";
    const Laid left = Layout(Record(-40, 0), text);
    ASSERT_EQ(left.count, 6);
    const int wide = left.extent[0];
    const int narrow = left.glyphs[5].gx + left.glyphs[5].cw;
    ASSERT_GT(wide, narrow);
    struct Row
    {
        int alignment;
        int shift;
    } rows[] = {{0, 0},
                {2, wide - narrow},
                {1, (wide - narrow) / 2},
                {7, (wide - narrow) / 2},
                {-1, (wide - narrow) / 2}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.alignment);
        const Laid laid = Layout(Record(-40, row.alignment), text);
        EXPECT_EQ(laid.glyphs[4].gx - left.glyphs[4].gx, row.shift);
        EXPECT_EQ(laid.glyphs[0].gx, left.glyphs[0].gx); // The widest line never moves.
    }
}

TEST(CaptionLayout, DoubleByteCharactersAndTheBufferLimit)
{
    platform::SetActiveCodePage(932);
    const Laid kana = Layout(Record(-32, 0), "\x83\x65\x83\x58X");
    platform::SetActiveCodePage(platform::kDefaultCodePage);
    ASSERT_EQ(kana.count, 3);
    EXPECT_EQ(kana.glyphs[0].code, 0x8365);
    EXPECT_EQ(kana.glyphs[2].code, 'X');

    const std::string longText(400, 'x');
    std::vector<records::Glyph> few(10);
    EXPECT_EQ(LayoutCaption(Record(-20, 0), longText.c_str(), few, nullptr), 10);
}

TEST(Font, ClassicMetricsAndMonochromeInk)
{
    auto font = platform::Font::Create({"Arial", -48, 0, 400, false});
    ASSERT_TRUE(font.ok()) << font.error().message;
    const platform::TextMetrics& m = (*font)->Metrics();
    EXPECT_EQ((*font)->Family(), "Liberation Sans");
    EXPECT_EQ(m.height, m.ascent + m.descent);
    EXPECT_EQ(m.height - m.internalLeading, 48); // A negative height is the character (em) height.
    EXPECT_GT(m.maxCharWidth, m.aveCharWidth);
    auto cell = platform::Font::Create({"Arial", 48, 0, 400, false});
    ASSERT_TRUE(cell.ok());
    EXPECT_NEAR((*cell)->Metrics().height, 48, 1); // A positive height is the whole cell.

    const auto abc = (*font)->Abc(U'W');
    ASSERT_TRUE(abc.has_value());
    EXPECT_EQ(abc->a + abc->b + abc->c, (*font)->Advance(U'W'));

    std::vector<std::uint8_t> sheet(64 * 64, 255);
    (*font)->Draw({sheet.data(), 64, 64, 64, true}, 4, 50, U'H');
    int ink = 0;
    for (std::uint8_t sample : sheet) {
        EXPECT_TRUE(sample == 0 || sample == 255);
        ink += sample == 0;
    }
    EXPECT_GT(ink, 100);

    // Characters the stand-in for Arial lacks come from a face that has them, at the same size: each
    // is its own drawing, not one missing-glyph box for all, and takes about a square em.
    auto drawn = [&](char32_t character) {
        std::vector<std::uint8_t> cell(64 * 64, 255);
        (*font)->Draw({cell.data(), 64, 64, 64, true}, 4, 50, character);
        return cell;
    };
    const char32_t cjk[] = {U'\u65E5', U'\u30C6', U'\uD55C', U'\u96FB'}; // 日 テ 한 電
    for (std::size_t i = 0; i < std::size(cjk); ++i) {
        SCOPED_TRACE(static_cast<unsigned>(cjk[i]));
        EXPECT_NEAR((*font)->Advance(cjk[i]), 48, 6);
        for (std::size_t j = 0; j < i; ++j)
            EXPECT_NE(drawn(cjk[i]), drawn(cjk[j]));
    }
}

} // namespace
} // namespace lumenar::playback
