#include "tests/support/FilmStream.h"

#include "film/FilmStreamWriter.h"
#include "records/CaptionFont.h"
#include "tests/support/JpegWriter.h"
#include "tests/support/NarrationWriter.h"

#include <cstdlib>
#include <string>

namespace lumenar::testing {

std::vector<std::uint8_t> MakeFilmStream(int count, std::int32_t mode, std::size_t paddingPerItem)
{
    film::Film film;
    film.SetAdvanceMode(mode);
    std::vector<film::ItemMedia> media;
    for (int i = 0; i < count; ++i) {
        film::ItemMedia pieces;
        pieces.photo = MakeUniformPhoto(64, 48, DcBlock(-400 + 200 * (i % 5)));
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

std::vector<std::uint8_t> MakeRichFilmStream(int count)
{
    film::Film film;
    film.SetAdvanceMode(film::kAdvanceAutomatic);
    std::vector<film::ItemMedia> media;
    for (int i = 0; i < count; ++i) {
        film::ItemMedia pieces;
        pieces.photo = MakeUniformPhoto(160, 120, DcBlock(-400 + 200 * (i % 5)));
        film::FilmItem item;
        item.kind = film::kFilmItemPhoto;
        item.photo.cstrName = film::SizedName(pieces.photo.size(), "photo.jpg");
        item.displaySeconds = 1;
        item.effect = 36;
        item.effectMs = 200;
        if (i % 2 == 0) {
            // Kinds 3 and 2 carry a 24-byte speech frame and a 4-byte silence description.
            std::vector<std::uint8_t> payload = SpeechFrame63(static_cast<std::uint32_t>(i));
            Append(payload, SilenceFrame(40, 7));
            Append(payload, SpeechFrame63(static_cast<std::uint32_t>(i + 1)));
            pieces.sound = Packet({3, 2, 3}, payload);
            item.sound.cstrName = film::SizedName(pieces.sound.size(), "speech.ca");
        }
        const std::int32_t number = film.AddItem(item);
        film::FilmText caption;
        caption.effect = 3;
        caption.text = "Caption " + std::to_string(i + 1);
        caption.style = records::DefaultCaptionStyle();
        caption.style.x = 40;
        caption.style.y = 40;
        film.AddText(number, caption);
        media.push_back(std::move(pieces));
    }
    auto stream = film::WriteFilmStream(film, media, {}, {});
    if (!stream)
        std::abort(); // The film above is well formed; a failure here is a fault of the writer.
    return std::move(stream).value();
}

} // namespace lumenar::testing
