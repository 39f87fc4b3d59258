#include "platform/OpticalDrive.h"

namespace lumenar::platform {

std::optional<std::string> FindOpticalDrive()
{
    // No drive letters exist here, so no film's compact-disc track can be addressed.
    return std::nullopt;
}

} // namespace lumenar::platform
