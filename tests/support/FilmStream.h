#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace lumenar::testing {

/// A film stream: a short preamble, the film marker, a film file of `count` photo items (uniform 64x48
/// photos of different greys, one-second dwell, 50 ms transitions) in advance `mode`, the media marker
/// and the photos. `paddingPerItem` zero bytes after each photo's end make the stream longer without
/// changing what it shows.
std::vector<std::uint8_t> MakeFilmStream(int count, std::int32_t mode, std::size_t paddingPerItem = 0);

} // namespace lumenar::testing
