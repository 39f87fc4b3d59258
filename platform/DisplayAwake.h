#pragma once

#include <cstdint>

namespace lumenar::platform {

/// Execution-state flags, as the player passes them.
enum ExecutionState : std::uint32_t
{
    kSystemRequired = 0x00000001,
    kDisplayRequired = 0x00000002,
    kContinuous = 0x80000000,
};

/// Keeps the system and the display awake (kContinuous | kSystemRequired | kDisplayRequired) or lets
/// them sleep again (kContinuous alone). The platform's service is looked up on the first call; where
/// there is none (no video subsystem running) the call does nothing. Any thread.
void KeepDisplayAwake(std::uint32_t flags);

/// The flags of the last call that reached the platform's service, or 0 when none did. Tests only.
std::uint32_t LastDisplayAwakeFlags();

} // namespace lumenar::platform
