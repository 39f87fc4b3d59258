// Writes the film streams for the tests that drive the control from outside (the C host test):
//   make_control_film OUT [ITEMS]     a small film of ITEMS (default 2) photo items
//   make_control_film OUT --damaged   two items, the first one's photo corrupt in a way the player
//                                     once ended its process on
#include "film/Film.h"
#include "film/FilmStreamWriter.h"
#include "tests/support/FilmStream.h"
#include "tests/support/JpegWriter.h"
#include "tests/support/WriteFile.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

std::vector<std::uint8_t> DamagedFilm()
{
    lumenar::film::Film film;
    film.SetAdvanceMode(lumenar::film::kAdvanceAutomatic);
    std::vector<lumenar::film::ItemMedia> media(2);
    media[0].photo = lumenar::testing::MakeRunPastEndPhoto();
    media[1].photo = lumenar::testing::MakeUniformPhoto(64, 48, lumenar::testing::ZigzagBlock(64, 0));
    for (const lumenar::film::ItemMedia& pieces : media) {
        lumenar::film::FilmItem item;
        item.kind = lumenar::film::kFilmItemPhoto;
        item.photo.cstrName = lumenar::film::SizedName(pieces.photo.size(), "photo.jpg");
        item.displaySeconds = 1;
        item.effectMs = 50;
        film.AddItem(item);
    }
    auto stream = lumenar::film::WriteFilmStream(film, media, {});
    if (!stream)
        std::abort(); // The film above is well formed; a failure here is a fault of the writer.
    return std::move(stream).value();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: make_control_film OUT [ITEMS | --damaged]\n");
        return 2;
    }
    const std::string option = argc > 2 ? argv[2] : "2";
    const auto bytes =
        option == "--damaged"
            ? DamagedFilm()
            : lumenar::testing::MakeFilmStream(std::atoi(option.c_str()), lumenar::film::kAdvanceAutomatic);
    return lumenar::testing::WriteFile(argv[1], bytes) ? 0 : 1;
}
