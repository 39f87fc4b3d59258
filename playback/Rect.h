#pragma once

#include <cstdint>

namespace lumenar::playback {

/// A rectangle in window pixels: left, top, right and bottom (right and bottom exclusive).
struct Rect
{
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::int32_t right = 0;
    std::int32_t bottom = 0;

    std::int32_t Width() const { return right - left; }
    std::int32_t Height() const { return bottom - top; }
    bool operator==(const Rect&) const = default;
};

} // namespace lumenar::playback
