#include "tests/support/FilmStream.h"

#include "film/FilmStreamWriter.h"
#include "tests/support/JpegWriter.h"

#include <cstdlib>
#include <string>

namespace lumenar::testing {

std::vector<std::uint8_t> MakeFilmStream(int count, std::int32_t mode, std::size_t paddingPerItem)
{
    film::Film film;
    film.SetAdvanceMode(mode);
    std::vector<film::ItemMedia> media;
    for (int i = 0; i < count; ++i) {
        ZigzagBlock block(64, 0);
        block[0] = -400 + 200 * (i % 5);
        film::ItemMedia pieces;
        pieces.photo = MakeUniformPhoto(64, 48, block);
        pieces.photo.resize(pieces.photo.size() + paddingPerItem, 0);
        film::FilmItem item;
        item.kind = film::kFilmItemPhoto;
        item.photo.cstrName = film::SizedName(pieces.photo.size(), "photo.jpg");
        item.displaySeconds = 1;
        item.effectMs = 50;
        film.AddItem(item);
        media.push_back(std::move(pieces));
    }
    const std::string preamble = "any preamble ";
    auto stream = film::WriteFilmStream(
        film, media, {}, {reinterpret_cast<const std::uint8_t*>(preamble.data()), preamble.size()});
    if (!stream)
        std::abort(); // The film above is well formed; a failure here is a fault of the writer.
    return std::move(stream).value();
}

} // namespace lumenar::testing
