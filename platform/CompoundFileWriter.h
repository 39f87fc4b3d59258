#pragma once

#include "base/Result.h"

#include <cstdint>
#include <string>
#include <vector>

namespace lumenar::platform {

/// One element of a compound file to write: a stream with its bytes, or a storage with its elements.
struct CompoundNode
{
    std::string name; ///< ASCII; stored as the UTF-16 element name.
    bool storage = false;
    std::vector<std::uint8_t> bytes;
    std::vector<CompoundNode> children;

    static CompoundNode Stream(std::string name, std::vector<std::uint8_t> bytes)
    {
        return {std::move(name), false, std::move(bytes), {}};
    }
    static CompoundNode Storage(std::string name, std::vector<CompoundNode> children)
    {
        return {std::move(name), true, {}, std::move(children)};
    }
};

/// Writes a compound file whose root storage holds `root`, in the given order, and returns its bytes.
/// Fails (with the library's reason) when an element cannot be made or written. Any thread.
base::Result<std::vector<std::uint8_t>> WriteCompoundFile(const std::vector<CompoundNode>& root);

} // namespace lumenar::platform
