#pragma once

namespace lumenar::platform {

/// Ids of the player's string table.
enum StringId : int
{
    kStrWarning = 2,
    kStrError = 3,
    kStrFileOpenFailed = 4,
    kStrInvalidFileFormat = 5,
    kStrInternalError = 6,
    kStrSoundDeviceError = 7,
    kStrMediaRuntimeMissing = 8,
    kStrPowerPointViewerMissing = 9,
    kStrProductName = 100,
};

/// The string with `id`, or nullptr when the table has none. The texts are the player's own
/// messages and stay exactly as they are.
const char* LoadStringId(int id);

} // namespace lumenar::platform
