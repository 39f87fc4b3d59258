// Feeds arbitrary bytes to a fresh film receiver in chunks whose sizes come from the input's first
// bytes: whatever the stream says, the receiver must never crash, overflow or write outside its folder.
// Its files are kept in memory, so that an execution costs no folder, file or lock on the disk.
#include "film/FilmReceiver.h"

#include "platform/FileSystem.h"
#include "platform/MessageBox.h"

#include <cstdint>
#include <string_view>

namespace {

class SilentSink : public lumenar::platform::MessageSink
{
public:
    int Show(lumenar::platform::Window*, unsigned, std::string_view, std::string_view) override { return 1; }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace lumenar;
    constexpr std::size_t kChunkTable = 8;
    if (size < kChunkTable || size > (1u << 16))
        return 0;
    static SilentSink sink;
    platform::SetMessageSink(&sink);
    // The progress bar is drawn before every step while it shows: for one input in sixteen only.
    film::ProcessLoaderProgress().progressVisible = data[kChunkTable - 1] % 16 == 1 ? 1 : 0;
    platform::ManualClock clock;
    platform::ManualTimers timers(clock);
    film::Film film;
    std::atomic<std::int32_t> stop{0};
    {
        platform::MemoryFiles files;
        film::FilmReceiver receiver(nullptr, timers, files);
        std::size_t at = kChunkTable;
        for (std::size_t turn = 0; at < size; ++turn) {
            // Chunk sizes 1…2041 in steps of 8, cycling through the table; the byte 0x80 gives single
            // bytes. A zero byte (a film's commonest) gives 1025: feeding whole films byte by byte
            // spent nearly all the fuzzing time in the calls themselves.
            const std::size_t wanted = static_cast<std::uint8_t>(data[turn % kChunkTable] ^ 0x80u) * 8u + 1u;
            const std::size_t chunk = std::min(wanted, size - at);
            if (receiver.FeedChunk(film, nullptr, data + at, static_cast<std::int32_t>(chunk), stop) == -1)
                break;
            at += chunk;
        }
        film::DeleteTemporaryFiles(receiver, film);
        // Every file the receiver made is inside its own folder.
        for (const std::string& path : files.Paths())
            if (receiver.TempFolder().empty() || !path.starts_with(receiver.TempFolder()))
                __builtin_trap();
    }
    std::uint64_t sum = 0;
    for (std::int32_t i = 1; i <= film.ItemCount(); ++i) {
        const film::FilmItem item = film.GetItem(i);
        for (const film::FilmFile* file : {&item.photo, &item.mask, &item.sound, &item.clipPicture1})
            for (char c : file->cstrPath + file->cstrName)
                sum += static_cast<unsigned char>(c);
    }
    volatile std::uint64_t keep = sum;
    (void)keep;
    platform::SetMessageSink(nullptr);
    return 0;
}
