// Reads arbitrary bytes as a film file: the reader must never crash, hang or read out of bounds.
#include "film/FilmReader.h"

#include <cstdint>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // A handful of items reaches every path of the reader; larger films only repeat them, slower, and
    // fill the committed corpus with copies of themselves.
    if (size > (24u << 10))
        return 0;
    auto root = lumenar::platform::CompoundStorage::OpenMemory({data, size});
    if (!root.ok())
        return 0;
    lumenar::film::Film film;
    lumenar::film::LoadFilmStorage(film, std::move(root).value());
    // Touch every byte of what was read so the sanitizers see uninitialised or freed memory.
    std::uint64_t sum = 0;
    for (std::int32_t i = 1; i <= film.ItemCount(); ++i) {
        const auto item = film.GetItem(i);
        sum +=
            item.photo.cstrName.size() + item.sound.cstrPath.size() + static_cast<std::uint32_t>(item.effect);
        for (const auto& text : item.texts) {
            unsigned char style[sizeof text.style];
            std::memcpy(style, &text.style, sizeof style);
            for (unsigned char b : style)
                sum += b;
            sum += text.text.size();
        }
    }
    volatile std::uint64_t sink = sum;
    (void)sink;
    return 0;
}
