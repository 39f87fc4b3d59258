#include "records/CaptionFont.h"
#include "records/DibImage.h"

#include <gtest/gtest.h>

#include <cstring>

namespace lumenar::records {
namespace {

TEST(DibImage, HeaderAndPixelAddressing)
{
    auto image = DibImage::Create(800, 600, 100);
    ASSERT_TRUE(image.ok());
    const BitmapInfoHeader& h = image->Info().header;
    EXPECT_EQ(h.biSize, 40u);
    EXPECT_EQ(h.biHeight, 600); // Positive: bottom-up rows.
    EXPECT_EQ(h.biBitCount, 32);
    EXPECT_EQ(h.biSizeImage, 1920000u);
    EXPECT_EQ(h.biXPelsPerMeter, 100);
    // Top-left pixel on screen lives in the last row in memory.
    EXPECT_EQ(image->View().Offset(0, 0), 1916800u);
    EXPECT_EQ(image->View().Offset(799, 599), 799u * 4);
    EXPECT_EQ(image->Bytes().size(), 1920000u);
}

TEST(DibImage, RefusesEmptyAndHugeSizes)
{
    struct Row
    {
        int width, height;
        base::ErrorCode code;
    } rows[] = {
        {0, 10, base::ErrorCode::InvalidInput},
        {10, -1, base::ErrorCode::InvalidInput},
        {70000, 70000, base::ErrorCode::TooLarge},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << row.width << "x" << row.height);
        auto image = DibImage::Create(row.width, row.height, 0);
        ASSERT_FALSE(image.ok());
        EXPECT_EQ(image.error().code, row.code);
    }
}

TEST(CaptionFont, FindsTheArialStandIn)
{
    LogFont font{};
    std::memset(&font, 0xAB, sizeof font);
    ASSERT_EQ(FindCaptionFont(&font), 1);
    // fonts-liberation is installed by the scripts: Liberation Sans answers for Arial.
    EXPECT_STREQ(font.faceName, "Liberation Sans");
    EXPECT_EQ(font.weight, 400);
    EXPECT_EQ(font.italic, 0);
    EXPECT_EQ(font.pitchAndFamily, 0x22); // Variable pitch, sans serif.
    EXPECT_EQ(FindCaptionFont(nullptr), 0);
}

} // namespace
} // namespace lumenar::records
