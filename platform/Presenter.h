#pragma once

#include <cstdint>

namespace lumenar::platform {

/// Where finished frames go: a window's client area (or a headless back buffer). Present copies the
/// picture before it returns, so the caller may reuse its memory at once. Any thread.
class FramePresenter
{
public:
    virtual ~FramePresenter() = default;
    /// Draws a 32-bit BGRX picture, rows of exactly width × 4 bytes, bottom row first, with its top-left
    /// corner at (x, y) of the client area, clipped to it.
    virtual void Present(const std::uint8_t* bits, int width, int height, int x, int y) = 0;
};

} // namespace lumenar::platform
