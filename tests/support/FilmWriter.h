#pragma once

#include "film/Film.h"
#include "platform/CompoundFileWriter.h"
#include "platform/InMemoryPictures.h"
#include "tests/support/TestBytes.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lumenar::testing {

using Bytes = std::vector<std::uint8_t>;

/// One element of a compound file to write: a stream with bytes or a storage with children.
using Node = platform::CompoundNode;

/// Writes a compound file whose root holds `root`, in memory; aborts the test program on failure.
Bytes WriteCompoundFile(const std::vector<Node>& root);
/// The same, to a file; aborts the test program when the file cannot be written.
void WriteCompoundFileTo(const std::string& path, const std::vector<Node>& root);

Bytes Word(std::uint32_t value);
/// The 516-byte file reference record.
Bytes FileReference(const film::FilmFile& file);
/// The 3144-byte item record of `item`, with its kind's slots filled; `slotC` and `slotE` fill the two
/// slots no reader looks at.
Bytes ItemRecord(const film::FilmItem& item, const film::FilmFile& slotC = {},
                 const film::FilmFile& slotE = {});
/// The 360-byte caption record; the first word is `storedOrdinal`.
Bytes CaptionRecord(const film::FilmText& text, std::int32_t storedOrdinal = 0);

/// One item of a film description: FILMLINKn with FILMITEM and, when `captions` is set, TEXTLIST.
struct ItemDescription
{
    film::FilmItem item;
    std::optional<std::vector<film::FilmText>> captions;
};

/// A compact film description; the defaults make a valid empty film.
struct FilmDescription
{
    std::optional<std::uint32_t> version = 200;
    std::optional<film::FilmFile> music;
    std::optional<std::int32_t> loop;
    std::optional<std::int32_t> autoplay;
    std::vector<ItemDescription> items;
    std::vector<Node> extraRootElements;
};

/// The root elements of the described film.
std::vector<Node> FilmNodes(const FilmDescription& film);

/// A film stream of the film marker, `file` as its film file, and the media marker.
Bytes StreamOfFilmFile(const Bytes& file);
/// A film file of one photo item ("10_p.jpg") whose VERSION says `version`.
Bytes FilmFileOfVersion(std::uint32_t version);

/// A photo item with the given names and numbers, for tables of cases.
film::FilmItem PhotoItem(std::string photoName, std::int32_t effect = 0, std::int32_t displaySeconds = 3);
/// A caption with distinct style bytes (including the three words layout and effects fill in).
film::FilmText Caption(std::string text, std::int32_t effect = 0, std::uint32_t seed = 1);

/// Registers `bytes` as an in-memory picture; returns the film reference that names it.
inline film::FilmFile InMemoryFile(std::vector<std::uint8_t> bytes)
{
    const platform::InMemoryPictureName name = platform::RegisterInMemoryPicture(std::move(bytes));
    return {std::to_string(name.length), std::to_string(name.address)};
}

/// A fresh path for a temporary file of this test process.
std::string TempPath(const std::string& stem);
/// Writes `bytes` to a fresh temporary file; returns its path.
std::string WriteTempFile(const Bytes& bytes, const std::string& stem);

} // namespace lumenar::testing
