#include "platform/TempFile.h"

#include "base/StrCat.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace lumenar::platform {

base::Result<std::string> CreateTempFile(const std::string& folder, std::string_view prefix)
{
    static std::atomic<unsigned> counter{
        static_cast<unsigned>(std::chrono::steady_clock::now().time_since_epoch().count())};
    for (int attempt = 0; attempt < 65536; ++attempt) {
        char name[8];
        std::snprintf(name, sizeof name, "%04X", counter.fetch_add(1) & 0xffffu);
        const std::string path =
            (std::filesystem::path(folder) / (std::string(prefix) + name + ".tmp")).string();
        // "x": create only if absent, so two writers never share a name.
        if (std::FILE* f = std::fopen(path.c_str(), "wbx")) {
            std::fclose(f);
            return path;
        }
        if (errno != EEXIST)
            return base::Error{base::ErrorCode::Io, base::StrCat("cannot create a temporary file in ", folder,
                                                                 ": ", std::strerror(errno))};
    }
    return base::Error{base::ErrorCode::Io, base::StrCat("no free temporary file name in ", folder)};
}

} // namespace lumenar::platform
