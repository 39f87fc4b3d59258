#include "app/CaptionJson.h"

#include <gtest/gtest.h>

namespace lumenar::app {
namespace {

TEST(CaptionJson, KeysInTheirOrder)
{
    platform::TextMetrics metrics;
    metrics.ascent = 43;
    metrics.descent = 10;
    metrics.height = 53;
    const records::Glyph glyphs[] = {{65, 0, 0, 43, 32, 53}, {0x82A0, 1, -3, 149, 48, 53}};
    EXPECT_EQ(CaptionLayoutJson(64, 159, metrics, glyphs),
              R"({"extent":[64,159],"ascent":43,"descent":10,"height":53,"glyphs":[)"
              R"({"code":65,"line":0,"gx":0,"gy":43,"cw":32,"ch":53},)"
              R"({"code":33440,"line":1,"gx":-3,"gy":149,"cw":48,"ch":53}]})");
    EXPECT_EQ(CaptionLayoutJson(INT32_MIN, 53, metrics, {}),
              R"({"extent":[-2147483648,53],"ascent":43,"descent":10,"height":53,"glyphs":[]})");
}

} // namespace
} // namespace lumenar::app
