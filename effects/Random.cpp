#include "effects/Random.h"

#include <atomic>

namespace lumenar::effects {

namespace {
std::atomic<std::uint32_t> state{1};
}

void SeedRandom(std::uint32_t seed)
{
    state.store(seed);
}

int Rand()
{
    std::uint32_t current = state.load();
    std::uint32_t next;
    do {
        next = current * 214013u + 2531011u;
    } while (!state.compare_exchange_weak(current, next));
    return static_cast<int>((next >> 16) & 0x7FFF);
}

} // namespace lumenar::effects
