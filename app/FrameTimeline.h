#pragma once

#include <cstdint>
#include <vector>

namespace lumenar::app {

/// One output frame: the picture held when it was made, shown from `ms` (output time, from the start
/// of the rendered range) for `durationMs`.
struct Shot
{
    std::uint64_t ms = 0;
    std::uint64_t durationMs = 0;
    /// The same picture as the shot before (a constant frame rate repeats a picture that stays): a
    /// writer reuses what it made of it instead of converting it again.
    bool repeat = false;
};

/// Turns the pictures a player presents, at their clock times, into the frames of an output: at a
/// variable rate every picture is one frame that lasts until the next one; at a constant rate a frame
/// samples the picture on screen at every 1/fps second. Only what falls within [fromMs, toMs) is kept,
/// shifted to start at 0. One thread.
class FrameTimeline
{
public:
    /// `fps` 0: variable rate. `toMs` 0: no end.
    FrameTimeline(int fps, std::uint64_t fromMs, std::uint64_t toMs);
    /// A picture presented at `ms` (never earlier than the one before). Returns the shots of the picture
    /// held until now, which this one replaces; one presented at the same instant as the one before
    /// replaces it without a shot.
    std::vector<Shot> Present(std::uint64_t ms);
    /// The film ended at `ms`: the shots of the picture still held.
    std::vector<Shot> End(std::uint64_t ms);
    /// Where output time ends, once End was called: `ms` clipped to the range, shifted.
    std::uint64_t EndMs() const { return endMs_; }

private:
    std::vector<Shot> Close(std::uint64_t until);

    int fps_;
    std::uint64_t fromMs_;
    std::uint64_t toMs_;
    bool holding_ = false;
    std::uint64_t heldMs_ = 0;
    std::uint64_t nextSample_ = 0; // The index of the next constant-rate frame.
    std::uint64_t endMs_ = 0;
};

} // namespace lumenar::app
