#include "app/FrameTimeline.h"

#include <algorithm>

namespace lumenar::app {

FrameTimeline::FrameTimeline(int fps, std::uint64_t fromMs, std::uint64_t toMs)
    : fps_(fps), fromMs_(fromMs), toMs_(toMs == 0 ? UINT64_MAX : toMs)
{
}

std::vector<Shot> FrameTimeline::Present(std::uint64_t ms)
{
    std::vector<Shot> shots;
    if (holding_ && ms > heldMs_)
        shots = Close(ms);
    holding_ = true;
    heldMs_ = std::max(ms, heldMs_);
    return shots;
}

std::vector<Shot> FrameTimeline::End(std::uint64_t ms)
{
    const std::uint64_t end = std::clamp(ms, fromMs_, toMs_);
    endMs_ = end - fromMs_;
    std::vector<Shot> shots;
    if (holding_)
        shots = Close(std::max(ms, heldMs_));
    holding_ = false;
    return shots;
}

std::vector<Shot> FrameTimeline::Close(std::uint64_t until)
{
    // The held picture is on screen over [heldMs_, until), of which the range keeps [begin, end).
    const std::uint64_t begin = std::max(heldMs_, fromMs_);
    const std::uint64_t end = std::min(until, toMs_);
    std::vector<Shot> shots;
    if (begin >= end)
        return shots;
    if (fps_ == 0) {
        shots.push_back({begin - fromMs_, end - begin, false});
        return shots;
    }
    // Frame k samples the screen at k/fps seconds; the times are kept exact by counting frames.
    auto sampleAt = [this](std::uint64_t k) { return k * 1000 / static_cast<std::uint64_t>(fps_); };
    while (fromMs_ + sampleAt(nextSample_) < end) {
        const std::uint64_t at = sampleAt(nextSample_);
        if (fromMs_ + at >= begin)
            shots.push_back({at, sampleAt(nextSample_ + 1) - at, !shots.empty()});
        ++nextSample_;
    }
    return shots;
}

} // namespace lumenar::app
