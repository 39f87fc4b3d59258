#pragma once

#include "base/Result.h"
#include "film/Film.h"
#include "platform/CompoundFileWriter.h"

#include <cstdint>
#include <vector>

namespace lumenar::film {

/// The 516-byte file reference record of `file`; texts longer than their field are cut to it (the last
/// byte of each field stays zero).
std::vector<std::uint8_t> FileReferenceRecord(const FilmFile& file);
/// The 3144-byte item record of `item`, with the slots of its kind filled and the sound slot.
std::vector<std::uint8_t> ItemRecord(const FilmItem& item);
/// The 360-byte caption record of `text`, its first word holding `storedOrdinal`.
std::vector<std::uint8_t> CaptionRecord(const FilmText& text, std::int32_t storedOrdinal);

/// The root elements of a film file holding `film`: version 200, the music (when the film has one), loop,
/// advance mode and one FILMLINKn storage per item with its captions.
std::vector<platform::CompoundNode> FilmFileNodes(const Film& film);

/// A film file (a compound file) holding `film`, as Film::Load reads it back. Any thread.
base::Result<std::vector<std::uint8_t>> WriteFilmFile(const Film& film);

} // namespace lumenar::film
