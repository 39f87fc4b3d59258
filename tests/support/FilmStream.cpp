#include "tests/support/FilmStream.h"

#include "film/FilmReceiver.h"
#include "tests/support/FilmWriter.h"
#include "tests/support/JpegWriter.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace lumenar::testing {

std::vector<std::uint8_t> MakeFilmStream(int count, std::int32_t mode, std::size_t paddingPerItem)
{
    FilmDescription description;
    description.autoplay = mode;
    std::vector<std::vector<std::uint8_t>> photos;
    for (int i = 0; i < count; ++i) {
        ZigzagBlock block(64, 0);
        block[0] = -400 + 200 * (i % 5);
        auto photo = MakeUniformPhoto(64, 48, block);
        photo.resize(photo.size() + paddingPerItem, 0);
        film::FilmItem item = PhotoItem(std::to_string(photo.size()) + ".jpg", 0, 1);
        item.effectMs = 50;
        description.items.push_back({item, std::nullopt});
        photos.push_back(std::move(photo));
    }
    const auto filmFile = testing::WriteCompoundFile(FilmNodes(description));
    const std::string_view preamble = "any preamble ";
    std::size_t total =
        preamble.size() + film::kFilmMarker.size() + filmFile.size() + film::kMediaMarker.size();
    for (const auto& photo : photos)
        total += photo.size();
    // Built in place at its final size (appending to a short vector trips a false bounds warning in g++ 12
    // -O2).
    std::vector<std::uint8_t> out(total);
    std::size_t at = 0;
    auto put = [&](const auto& part) {
        std::copy(part.begin(), part.end(), out.begin() + std::ptrdiff_t(at));
        at += part.size();
    };
    put(preamble);
    put(film::kFilmMarker);
    put(filmFile);
    put(film::kMediaMarker);
    for (const auto& photo : photos)
        put(photo);
    return out;
}

} // namespace lumenar::testing
