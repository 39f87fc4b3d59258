#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

namespace lumenar::testing {

/// Writes `bytes` to `path`; says why on stderr and returns false when it cannot.
inline bool WriteFile(const std::string& path, std::span<const std::uint8_t> bytes)
{
    std::FILE* f = std::fopen(path.c_str(), "wb");
    bool ok = f != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    ok = f != nullptr && std::fclose(f) == 0 && ok;
    if (!ok)
        std::perror(path.c_str());
    return ok;
}

} // namespace lumenar::testing
