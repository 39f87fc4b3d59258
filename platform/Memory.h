#pragma once

#include <cstddef>
#include <memory>
#include <new>

namespace lumenar::platform {

/// Allocates `count` value-initialised (zeroed) elements; null when the memory cannot be had.
/// Never throws. For buffers whose size comes from input after it passed a cap, where running out
/// of memory is a reported failure rather than a crash.
template <typename T> std::unique_ptr<T[]> TryAllocateArray(std::size_t count)
{
    return std::unique_ptr<T[]>(new (std::nothrow) T[count]());
}

/// Allocates `count` elements left uninitialised, for buffers the caller overwrites completely (zeroing
/// a picture only to paint every pixel of it costs as much as the colour conversion's memory traffic).
template <typename T> std::unique_ptr<T[]> TryAllocateUninitialisedArray(std::size_t count)
{
    return std::unique_ptr<T[]>(new (std::nothrow) T[count]);
}

/// Allocates one value-initialised T; null when the memory cannot be had. Never throws.
template <typename T> std::unique_ptr<T> TryAllocate()
{
    return std::unique_ptr<T>(new (std::nothrow) T());
}

} // namespace lumenar::platform
