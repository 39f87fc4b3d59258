#pragma once

#include "effects/EffectProtocol.h"

#include <cstdint>
#include <string>
#include <vector>

namespace lumenar::testing {

/// Source, target and output pictures for a picture effect whose pixels say where they came from:
/// blue = column, green = memory row, red = which picture (its tag), the fourth byte = tag + 1.
struct TaggedPictures
{
    static constexpr std::uint8_t kSource = 'S';
    static constexpr std::uint8_t kTarget = 'T';
    static constexpr std::uint8_t kUntouched = 'U';

    int w, h; // Declared first: the pictures below are made from them.
    std::vector<std::uint8_t> source = Make(kSource), target = Make(kTarget), output = Make(kUntouched);

    TaggedPictures(int width, int height) : w(width), h(height) {}
    std::vector<std::uint8_t> Make(std::uint8_t tag) const
    {
        std::vector<std::uint8_t> pixels(static_cast<std::size_t>(w) * h * 4);
        for (std::size_t i = 0; i < pixels.size(); i += 4) {
            const std::size_t pixel = i / 4;
            pixels[i] = static_cast<std::uint8_t>(pixel % static_cast<std::size_t>(w));
            pixels[i + 1] = static_cast<std::uint8_t>(pixel / static_cast<std::size_t>(w));
            pixels[i + 2] = tag;
            pixels[i + 3] = static_cast<std::uint8_t>(tag + 1);
        }
        return pixels;
    }
    effects::EffectParams Block(int n, int d, std::uint16_t direction = 0, int variant = 0)
    {
        effects::EffectParams block{};
        block.size = 64;
        block.source = source.data();
        block.target = target.data();
        block.output = output.data();
        block.width = w;
        block.height = h;
        block.progressNum = n;
        block.progressDen = d;
        block.direction = direction;
        block.variant = variant;
        return block;
    }
    void Run(effects::EffectProc proc, int n, int d, std::uint16_t direction = 0, int variant = 0)
    {
        effects::EffectParams block = Block(n, d, direction, variant);
        proc(effects::EffectRender, &block);
    }
    /// Where output pixel (x, memory row r) came from, as "S 3 7" (picture, column, row), or "black".
    std::string From(int x, int r) const
    {
        const std::uint8_t* p = &output[(static_cast<std::size_t>(r) * w + x) * 4];
        if (p[0] == 0 && p[1] == 0 && p[2] == 0 && p[3] == 0)
            return "black";
        return std::string(1, static_cast<char>(p[2])) + " " + std::to_string(p[0]) + " " +
               std::to_string(p[1]);
    }
};

} // namespace lumenar::testing
