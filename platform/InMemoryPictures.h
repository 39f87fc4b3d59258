#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace lumenar::platform {

/// The name of an in-memory picture as the film model writes it: its byte length (the folder part)
/// and its address (the file-name part), both in decimal.
struct InMemoryPictureName
{
    std::uint64_t length = 0;
    std::uint64_t address = 0;
};

/// Process-wide registry of the photo and mask bytes that the stream loader keeps in memory. A name
/// found in a film text is only ever resolved through this registry: a number that is not the address
/// of a live registered block resolves to nothing, and nothing is read from it. Any thread.
///
/// The bytes are shared: the loader releases its registration when it is done with an item, while a
/// decoder that found the block first keeps it alive until it has copied it.
InMemoryPictureName RegisterInMemoryPicture(std::vector<std::uint8_t> bytes);

/// Removes the registration of the block at `address`; false when none is registered there.
bool ReleaseInMemoryPicture(std::uint64_t address);

/// The block registered at `address` when it holds at least `length` bytes; null otherwise.
std::shared_ptr<const std::vector<std::uint8_t>> FindInMemoryPicture(std::uint64_t length,
                                                                     std::uint64_t address);

} // namespace lumenar::platform
