#pragma once

#include <cstdint>
#include <optional>

namespace lumenar::base {

/// Multiplies without silent wrap-around: empty when the product does not fit in T.
template <typename T> std::optional<T> CheckedMul(T a, T b)
{
    T out;
    if (__builtin_mul_overflow(a, b, &out))
        return std::nullopt;
    return out;
}

/// Adds without silent wrap-around: empty when the sum does not fit in T.
template <typename T> std::optional<T> CheckedAdd(T a, T b)
{
    T out;
    if (__builtin_add_overflow(a, b, &out))
        return std::nullopt;
    return out;
}

} // namespace lumenar::base
