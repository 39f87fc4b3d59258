#include "tests/support/FilmStream.h"

#include "film/FilmReceiver.h"
#include "tests/support/FilmWriter.h"
#include "tests/support/JpegWriter.h"

#include <string>

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
    const std::string preamble = "any preamble ";
    std::vector<std::uint8_t> out(preamble.begin(), preamble.end());
    out.insert(out.end(), film::kFilmMarker.begin(), film::kFilmMarker.end());
    out.insert(out.end(), filmFile.begin(), filmFile.end());
    out.insert(out.end(), film::kMediaMarker.begin(), film::kMediaMarker.end());
    for (const auto& photo : photos)
        out.insert(out.end(), photo.begin(), photo.end());
    return out;
}

} // namespace lumenar::testing
