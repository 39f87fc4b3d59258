// Lays out and animates one caption from arbitrary bytes: a 96-byte caption record as a film stores it,
// one byte of text-effect row, 16-bit progress numerator and denominator, then the text. Layout, glyph
// sheets and every text effect must never crash or read outside the picture, and no state may outlive
// its release.
#include "effects/EffectRegistry.h"
#include "effects/TextEffectFramework.h"
#include "playback/CaptionLayout.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace lumenar;
    constexpr std::size_t kHead = sizeof(records::TextRecord) + 5;
    // Short texts at small sizes keep the execution rate useful; the code paths are the same. Left
    // free, long runs drift to 64 shadowed glyphs at the largest size and manage under 100 a second.
    if (size < kHead || size > kHead + 16)
        return 0;
    records::TextRecord record;
    std::memcpy(&record, data, sizeof record);
    // Huge fonts only cost time here; the sheet cap that refuses them has its own test.
    record.font.height = std::clamp(record.font.height, -16, 16);
    record.font.width = std::clamp(record.font.width, 0, 16);
    const int row = data[96];
    const int num = data[97] | data[98] << 8;
    const int den = std::max(1, data[99] | data[100] << 8);
    const std::string text(reinterpret_cast<const char*>(data + kHead), size - kHead);

    constexpr int kWidth = 96, kHeight = 64;
    static std::vector<std::uint8_t> picture(kWidth * kHeight * 4);
    std::fill(picture.begin(), picture.end(), std::uint8_t{128});
    std::array<records::Glyph, records::kGlyphBufferGlyphs> glyphs{};
    std::int32_t extent[2] = {0, 0};
    const int count = playback::LayoutCaption(record, text.c_str(), glyphs, extent);
    record.extentWidth = extent[0];
    record.extentHeight = extent[1];

    static effects::EffectRegistry registry;
    effects::TextEffectParams block{};
    block.dcBits = picture.data();
    block.text = &record;
    block.glyphs = glyphs.data();
    block.glyphCount = count;
    block.width = kWidth;
    block.height = kHeight;
    block.progressDen = 100;
    registry.RunText(row, effects::EffectInit, block);
    block.progressNum = std::min(num, den);
    block.progressDen = den;
    registry.RunText(row, effects::EffectRender, block);
    registry.RunText(row, effects::EffectRelease, block);
    if (effects::LiveTextStates() != 0)
        __builtin_trap();
    std::uint32_t sum = 0;
    for (std::uint8_t b : picture)
        sum += b;
    volatile std::uint32_t keep = sum;
    (void)keep;
    return 0;
}
