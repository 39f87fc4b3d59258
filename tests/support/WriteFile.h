#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <span>
#include <string>
#include <vector>

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

/// The bytes of the file at `path` (none when it cannot be read).
inline std::vector<std::uint8_t> ReadFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// Every input under tests/data/`folder` of the source tree (ctest sets LUMENAR_SOURCE_DIR) but its
/// README, by file name: inputs that once made a fuzz target fail.
inline std::map<std::string, std::vector<std::uint8_t>> RegressionInputs(const std::string& folder)
{
    std::map<std::string, std::vector<std::uint8_t>> inputs;
    const char* source = std::getenv("LUMENAR_SOURCE_DIR");
    const std::filesystem::path dir =
        std::filesystem::path(source != nullptr ? source : ".") / "tests/data" / folder;
    if (std::filesystem::is_directory(dir))
        for (const auto& entry : std::filesystem::directory_iterator(dir))
            if (entry.path().filename() != "README")
                inputs[entry.path().filename().string()] = ReadFile(entry.path());
    return inputs;
}

} // namespace lumenar::testing
