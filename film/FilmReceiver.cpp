#include "film/FilmReceiver.h"

#include "audio/WaveStream.h"
#include "platform/DebugTrace.h"

namespace lumenar::film {

FilmReceiver::FilmReceiver(platform::SoundDevice*, platform::TimerService&)
{
}

FilmReceiver::~FilmReceiver() = default;

std::int64_t FilmReceiver::FeedChunk(Film&, const ItemHandOver*, const std::uint8_t*, std::int32_t,
                                     const std::atomic<std::int32_t>&)
{
    platform::DebugTrace("FeedChunk: not built yet\n");
    return -1;
}

void FilmReceiver::SetOpticalDriveQuery(std::function<std::optional<std::string>()> query)
{
    opticalDriveQuery_ = std::move(query);
}

int RunFilmLoader(FilmReceiver&, ChunkQueue&, Film&, const ItemHandOver*, OpeningFlags&)
{
    platform::DebugTrace("RunFilmLoader: not built yet\n");
    return 0;
}

void DeleteTemporaryFiles(FilmReceiver&, const Film&)
{
}

} // namespace lumenar::film
