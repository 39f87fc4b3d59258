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

/// A film stream of `count` automatic items that uses what players of one process could share: tile
/// dissolves (picture row 36) of 200 ms, a fade-sweep caption (text row 3) on every item, and
/// compressed narration of a few speech and silence frames on every odd item.
std::vector<std::uint8_t> MakeRichFilmStream(int count);

} // namespace lumenar::testing
