#include "platform/AudioOut.h"

#include <gtest/gtest.h>

#include <cstring>

namespace lumenar::platform {
namespace {

// Both devices behave alike for what the wave stream uses: regions, position, status. The SDL device
// runs on SDL's "dummy" audio driver here (set by CTest), so no sound card is needed.
void ExerciseBuffer(SoundDevice& device)
{
    auto buffer = device.CreateBuffer(WaveFormat{}, 1000);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->Size(), 1000u);
    LockedRegions regions;
    ASSERT_EQ(buffer->Lock(900, 300, regions), LockResult::Ok);
    EXPECT_EQ(regions.firstBytes, 100u);
    EXPECT_EQ(regions.secondBytes, 200u);
    ASSERT_NE(regions.second, nullptr);
    std::memset(regions.first, 1, regions.firstBytes);
    std::memset(regions.second, 2, regions.secondBytes);
    buffer->Unlock(regions);
    EXPECT_EQ(buffer->Lock(0, 1001, regions), LockResult::Failed);
    EXPECT_EQ(buffer->Status().value_or(99), 0u);
    buffer->SetPosition(500);
    EXPECT_EQ(buffer->PlayCursor().value_or(0), 500u);
    EXPECT_TRUE(buffer->PlayLooping());
    EXPECT_TRUE(buffer->Status().value_or(0) & kStatusPlaying);
    buffer->Stop();
    EXPECT_FALSE(buffer->Status().value_or(0) & kStatusPlaying);
}

TEST(AudioOut, NullDeviceBufferRegionsPositionAndStatus)
{
    ManualClock clock;
    NullSoundDevice device(clock);
    ExerciseBuffer(device);
}

TEST(AudioOut, SdlDeviceBufferRegionsPositionAndStatus)
{
    auto device = OpenSdlSoundDevice();
    ASSERT_NE(device, nullptr) << "SDL's dummy audio driver should always open";
    ExerciseBuffer(*device);
}

} // namespace
} // namespace lumenar::platform
