#include "platform/StringTable.h"

namespace lumenar::platform {

const char* LoadStringId(int id)
{
    switch (id) {
    case kStrWarning:
        return "Warning";
    case kStrError:
        return "Error";
    case kStrFileOpenFailed:
        return "%s\nFile open failed!";
    case kStrInvalidFileFormat:
        return "%s\nInvalid file format!";
    case kStrInternalError:
        return "Internal Error";
    case kStrSoundDeviceError:
        return "DirectSound error";
    case kStrMediaRuntimeMissing:
        return "DirectXMedia Run-time missed";
    case kStrPowerPointViewerMissing:
        return "PowerPoint Viewer missed";
    case kStrProductName:
        return "Lumenar";
    default:
        return nullptr;
    }
}

} // namespace lumenar::platform
