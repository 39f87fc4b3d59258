#include "platform/ProgramFiles.h"

#include <unistd.h>

#include <climits>

namespace lumenar::platform {

std::string ProgramDirectory()
{
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0)
        return ".";
    std::string full(path, static_cast<std::size_t>(length));
    const auto slash = full.find_last_of('/');
    return slash == std::string::npos ? "." : full.substr(0, slash);
}

} // namespace lumenar::platform
