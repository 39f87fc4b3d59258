#pragma once

#include <cstdint>

namespace lumenar::effects {

/// The process-wide pseudo-random generator of the effects, reproducing the classic C runtime's
/// rand(): state = state × 214013 + 2531011, result = bits 16 to 30 of the state. Shared by the
/// registry's random rows and the tile dissolve's thresholds, so its sequence is part of what a film
/// shows. Thread-safe (the state is atomic).
void SeedRandom(std::uint32_t seed);
/// The next value, 0 to 32767.
int Rand();

} // namespace lumenar::effects
