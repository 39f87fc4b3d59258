#pragma once

// What the picture transitions share: one render's checked geometry and pictures, and the copies of
// rows and runs of pixels they are drawn from. Internal to effects/.
#include "effects/EffectProtocol.h"
#include "effects/Random.h"
#include "records/DibImage.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

namespace lumenar::effects {

// One render's geometry and pictures, checked once at the start of every render.
struct Frame
{
    const std::uint8_t* source;
    const std::uint8_t* target;
    std::uint8_t* output;
    std::int32_t w;
    std::int32_t h;
    std::int32_t n;
    std::int32_t d;
    std::uint16_t direction;
    std::int32_t variant;

    std::size_t RowBytes() const { return static_cast<std::size_t>(w) * 4; }
    std::size_t Bytes() const { return RowBytes() * static_cast<std::size_t>(h); }
    const std::uint8_t* SourceRow(std::int32_t r) const
    {
        return source + RowBytes() * static_cast<std::size_t>(r);
    }
    const std::uint8_t* TargetRow(std::int32_t r) const
    {
        return target + RowBytes() * static_cast<std::size_t>(r);
    }
    std::uint8_t* OutputRow(std::int32_t r) const
    {
        return output + RowBytes() * static_cast<std::size_t>(r);
    }
    /// p = n × 100 / d.
    std::int32_t Percent() const { return static_cast<std::int32_t>(static_cast<std::int64_t>(n) * 100 / d); }
    /// t = n / d in double, rounded once to single precision.
    double SingleT() const { return static_cast<double>(static_cast<float>(static_cast<double>(n) / d)); }
    void CopySource() const { std::memcpy(output, source, Bytes()); }
    void CopyTarget() const { std::memcpy(output, target, Bytes()); }
};

// Reads a render's block. Empty when nothing can be drawn: no block, missing pictures, empty or huge
// sizes, or a progress length that is not positive. Progress beyond either end is taken as that end.
inline std::optional<Frame> ReadFrame(void* params)
{
    const auto* block = static_cast<const EffectParams*>(params);
    if (block == nullptr || block->source == nullptr || block->target == nullptr || block->output == nullptr)
        return std::nullopt;
    if (block->width <= 0 || block->height <= 0 || block->progressDen <= 0 ||
        static_cast<std::int64_t>(block->width) * block->height > records::kMaxFramePixels)
        return std::nullopt;
    return Frame{block->source,      block->target,    block->output,
                 block->width,       block->height,    std::clamp(block->progressNum, 0, block->progressDen),
                 block->progressDen, block->direction, block->variant};
}

// The families that show a whole picture at their ends: the source at 0 %, the target at 100 %.
// True when the frame was one of the ends.
inline bool DrawEnd(const Frame& f, std::int32_t p)
{
    if (p == 0)
        f.CopySource();
    else if (p == 100)
        f.CopyTarget();
    return p == 0 || p == 100;
}

// The stateless families render for 3 and every code above 4 and ignore everything else.
template <void (*Render)(const Frame&)> std::int32_t Stateless(std::uint32_t message, void* params)
{
    if (!IsRenderMessage(message))
        return 0;
    if (const auto frame = ReadFrame(params))
        Render(*frame);
    return 0;
}

// Copies `count` pixels of a row; counts outside the row are cut to it.
inline void CopyPixels(std::uint8_t* out, const std::uint8_t* in, std::int32_t count)
{
    if (count > 0)
        std::memcpy(out, in, static_cast<std::size_t>(count) * 4);
}

inline void CopyRows(const Frame& f, std::int32_t outFirst, const std::uint8_t* picture,
                     std::int32_t pictureFirst, std::int32_t count)
{
    if (count > 0)
        std::memcpy(f.OutputRow(outFirst), picture + f.RowBytes() * static_cast<std::size_t>(pictureFirst),
                    f.RowBytes() * static_cast<std::size_t>(count));
}

// Square tiles of the largest side up to the row's variant that divides both sides of the picture,
// each with a threshold 0..99 drawn from the effects' generator, one per tile in row order: a tile
// turns when the progress in percent reaches its threshold.
struct TileGrid
{
    std::int32_t w = 0;
    std::int32_t h = 0;
    std::int32_t s = 1;
    std::int32_t kc = 0; // Tiles across.
    std::int32_t kr = 0; // Tiles down.
    std::vector<std::int32_t> thresholds;

    void Make(const Frame& f)
    {
        s = std::max(f.variant, 1);
        while (f.w % s != 0 || f.h % s != 0)
            --s;
        w = f.w;
        h = f.h;
        kc = f.w / s;
        kr = f.h / s;
        thresholds.resize(static_cast<std::size_t>(kc) * static_cast<std::size_t>(kr));
        for (std::int32_t& threshold : thresholds)
            threshold = Rand() % 100;
    }
    /// Whether the grid was made for these pictures (a render without a matching init draws nothing).
    bool Fits(const Frame& f) const { return !thresholds.empty() && w == f.w && h == f.h; }
};

} // namespace lumenar::effects
