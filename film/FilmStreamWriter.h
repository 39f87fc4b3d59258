#pragma once

#include "base/Result.h"
#include "film/Film.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace lumenar::film {

/// The bytes of one item's files, in the film's item order. A piece that the item does not name stays
/// empty.
struct ItemMedia
{
    std::vector<std::uint8_t> photo = {};
    std::vector<std::uint8_t> mask = {};
    std::vector<std::uint8_t> clipPicture1 = {};
    std::vector<std::uint8_t> clipFile = {};
    std::vector<std::uint8_t> clipPicture2 = {};
    std::vector<std::uint8_t> sound = {};
};

/// `name` as a film stream names a file: its byte count in decimal, '_', then the name (the loader reads
/// the sizes from the names). An empty name stays empty.
std::string SizedName(std::size_t size, std::string_view name);

/// Lays out a film stream: `preamble`, the film marker, the film file of `film`, the media marker, then
/// each item's pieces in the order the loader takes them (the music in front of the first item that
/// carries data; nothing for an item the loader removes on arrival: one whose main file has size 0, a
/// PowerPoint show or an unknown kind). `media` has one entry per item. Fails when a piece's size does not
/// match the number its name starts with, or when `media` and the film disagree in length.
base::Result<std::vector<std::uint8_t>> WriteFilmStream(const Film& film, std::span<const ItemMedia> media,
                                                        std::span<const std::uint8_t> music,
                                                        std::span<const std::uint8_t> preamble = {});

} // namespace lumenar::film
