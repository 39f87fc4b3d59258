#include "film/FilmReceiver.h"

#include "audio/WaveStream.h"
#include "base/StrCat.h"
#include "platform/DebugTrace.h"
#include "platform/FileSystem.h"
#include "platform/InMemoryPictures.h"
#include "platform/Memory.h"
#include "platform/OpticalDrive.h"
#include "platform/Path.h"
#include "platform/Presenter.h"
#include "platform/ReportBox.h"
#include "platform/StringTable.h"
#include "platform/Sync.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <thread>
#include <vector>

namespace lumenar::film {
namespace {

constexpr std::int32_t kInitialCapacity = 200;
constexpr std::uint32_t kPollMs = 100;
constexpr std::int32_t kMaxBufferBytes = std::numeric_limits<std::int32_t>::max();
constexpr int kBarMaxWidth = 60;
constexpr int kBarMaxHeight = 8;
constexpr std::uint32_t kBarFrameColour = 0x00FFFFFF; // As a colour reference: 0x00BBGGRR.
constexpr std::uint32_t kBarFillColour = 0x00FF0000;

// Offset just past the first occurrence of `marker`, or 0. Compatibility: after a mismatch the scan
// goes on behind the mismatching byte without trying it as a new start, so a marker right behind
// its own first letter ("VVistrelan…") is never found and the stream waits for ever.
// The scan is a left-to-right walk with one counter, so it resumes where the previous call on the same
// buffer stopped (`scan`) and gives what a scan from the start would give, without rescanning.
std::int32_t FindMarker(std::span<const std::uint8_t> data, std::string_view marker, MarkerScan& scan)
{
    for (; scan.scanned < data.size(); ++scan.scanned) {
        if (data[scan.scanned] != static_cast<std::uint8_t>(marker[scan.matched])) {
            scan.matched = 0;
            continue;
        }
        if (++scan.matched == marker.size())
            return static_cast<std::int32_t>(++scan.scanned);
    }
    return 0;
}

bool EndsWithNoCase(std::string_view text, std::string_view tail)
{
    if (text.size() < tail.size())
        return false;
    const std::string_view end = text.substr(text.size() - tail.size());
    return std::equal(end.begin(), end.end(), tail.begin(),
                      [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a - 'A' + 'a' : a) == b; });
}

// The extension of a name: from its last '.' on, or empty.
std::string_view Extension(std::string_view name)
{
    const std::size_t dot = name.rfind('.');
    return dot == std::string_view::npos ? std::string_view{} : name.substr(dot);
}

bool IsExtension(std::string_view name, std::string_view extension)
{
    const std::string_view own = Extension(name);
    return own.size() == extension.size() && EndsWithNoCase(own, extension);
}

// A film-provided name reduced to one harmless file name: folders (either separator) and a drive are
// dropped, and names that mean a folder themselves are prefixed, so nothing lands outside the
// private folder whatever the film says.
std::string FileNameInFolder(std::string_view filmName)
{
    std::string name = platform::SplitPath(filmName).name;
    std::replace(name.begin(), name.end(), '\0', '_');
    if (name.empty() || name == "." || name == "..")
        name.insert(0, "_");
    return name;
}

std::int32_t PieceSize(const FilmFile& file)
{
    return LeadingNumber(file.cstrName);
}

// The film's changes are made under the player's film lock when it has one.
template <typename Fn> auto WithFilm(const ItemHandOver* handOver, Fn&& fn)
{
    if (handOver != nullptr && handOver->filmLock != nullptr) {
        std::lock_guard guard(*handOver->filmLock);
        return fn();
    }
    return fn();
}

void ReportFatal(const ItemHandOver* handOver, int textId, const char* text)
{
    platform::ReportBox(handOver ? handOver->owner : nullptr, platform::kBoxOk, platform::kStrError, "Error",
                        textId, text);
}

void ReportInternalError(const ItemHandOver* handOver)
{
    ReportFatal(handOver, platform::kStrInternalError, "Internal Error");
}

// The pictures an item keeps in memory until playback has taken it; released however the item ends.
class PictureBlocks
{
public:
    ~PictureBlocks()
    {
        for (std::uint64_t address : addresses_)
            platform::ReleaseInMemoryPicture(address);
    }
    // Copies `bytes` into a registered block and names `file` after it.
    void Keep(FilmFile& file, std::span<const std::uint8_t> bytes)
    {
        const platform::InMemoryPictureName name =
            platform::RegisterInMemoryPicture(std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
        addresses_.push_back(name.address);
        file.cstrPath = std::to_string(name.length);
        file.cstrName = std::to_string(name.address);
    }

private:
    std::vector<std::uint64_t> addresses_;
};

} // namespace

std::span<const std::uint8_t> FilmFileInStream(std::span<const std::uint8_t> stream)
{
    MarkerScan filmScan;
    const std::int32_t start = FindMarker(stream, kFilmMarker, filmScan);
    if (start == 0)
        return {};
    const std::span<const std::uint8_t> rest = stream.subspan(static_cast<std::size_t>(start));
    MarkerScan mediaScan;
    const std::int32_t end = FindMarker(rest, kMediaMarker, mediaScan);
    if (end == 0)
        return {};
    return rest.first(static_cast<std::size_t>(end) - kMediaMarker.size());
}

std::int32_t MusicPieceSize(std::string_view musicPath)
{
    return IsExtension(musicPath, ".cda") ? 0 : LeadingNumber(musicPath);
}

ProgressBar ComputeProgressBar(int clientWidth, int clientHeight, std::int64_t expectedFirst,
                               std::int64_t received, int phase)
{
    const int width = std::clamp(clientWidth, 0, kBarMaxWidth);
    const int height = std::clamp(clientHeight, 0, kBarMaxHeight);
    ProgressBar bar;
    bar.left = 2;
    bar.top = clientHeight - height - 2;
    bar.right = width + 2;
    bar.bottom = bar.top + height;
    if (expectedFirst > 0 && received > expectedFirst) {
        bar.fillRight = bar.right;
        bar.report = 0;
    } else if (expectedFirst > 0) {
        const double share = static_cast<double>(received) * width / static_cast<double>(expectedFirst);
        bar.fillRight = static_cast<int>(share) + 2;
    } else {
        bar.fillRight = (width / 10) * (phase + 1) + 1;
    }
    return bar;
}

LoaderProgress& ProcessLoaderProgress()
{
    static LoaderProgress progress;
    return progress;
}

FilmReceiver::FilmReceiver(platform::SoundDevice* sound, platform::TimerService& timers)
    : buffer_(platform::TryAllocateArray<std::uint8_t>(kInitialCapacity)),
      capacity_(buffer_ ? kInitialCapacity : 0)
{
    auto folder = platform::MakePrivateFolder("lumenar-");
    if (folder.ok()) {
        tempFolder_ = std::move(folder).value();
        narration_ = std::make_unique<audio::WaveStream>(sound, timers, tempFolder_);
    } else {
        platform::DebugTrace(base::StrCat(folder.error().message, "\n"));
    }
}

FilmReceiver::~FilmReceiver()
{
    narration_.reset(); // Its watcher and buffer go before the folder its files were made in.
    if (!tempFolder_.empty())
        platform::RemoveFolderTree(tempFolder_);
}

void FilmReceiver::SetOpticalDriveQuery(std::function<std::optional<std::string>()> query)
{
    opticalDriveQuery_ = std::move(query);
}

bool FilmReceiver::Append(const std::uint8_t* bytes, std::int32_t size)
{
    const std::int64_t needed = static_cast<std::int64_t>(used_) + size;
    if (needed > kMaxBufferBytes)
        return false;
    if (needed > capacity_) {
        // At least doubled, so that waiting for a large item in small chunks copies each byte a bounded
        // number of times (growing to exactly what is needed made that quadratic).
        std::int64_t wanted = std::min<std::int64_t>(
            std::max<std::int64_t>(needed, 2 * std::int64_t{capacity_}), kMaxBufferBytes);
        auto grown = platform::TryAllocateArray<std::uint8_t>(static_cast<std::size_t>(wanted));
        if (!grown && wanted > needed) {
            wanted = needed; // The doubling did not fit; what is needed may still.
            grown = platform::TryAllocateArray<std::uint8_t>(static_cast<std::size_t>(wanted));
        }
        if (!grown)
            return false;
        if (used_ > 0)
            std::memcpy(grown.get(), buffer_.get(), static_cast<std::size_t>(used_));
        buffer_ = std::move(grown);
        capacity_ = static_cast<std::int32_t>(wanted);
    }
    if (size > 0)
        std::memcpy(buffer_.get() + used_, bytes, static_cast<std::size_t>(size));
    used_ = static_cast<std::int32_t>(needed);
    return true;
}

void FilmReceiver::Consume(std::int32_t count)
{
    std::memmove(buffer_.get(), buffer_.get() + count, static_cast<std::size_t>(used_ - count));
    used_ -= count;
}

std::int64_t FilmReceiver::FeedChunk(Film& film, const ItemHandOver* handOver, const std::uint8_t* bytes,
                                     std::int32_t size, const std::atomic<std::int32_t>& stopRequested)
{
    if (size < 0 || (size > 0 && bytes == nullptr) || !Append(bytes, size)) {
        ReportInternalError(handOver);
        return -1;
    }
    received_ += size;
    if (stopRequested.load() != 0)
        return size; // The bytes stay in the buffer, unprocessed.
    for (;;) {
        DrawProgress(handOver);
        const Next next = StepOnce(film, handOver, stopRequested);
        if (next == Next::Fail)
            return -1;
        if (next == Next::Wait || stopRequested.load() != 0)
            return size;
    }
}

FilmReceiver::Next FilmReceiver::StepOnce(Film& film, const ItemHandOver* handOver,
                                          const std::atomic<std::int32_t>& stopRequested)
{
    switch (state_) {
    case kSeekFilmMarker: {
        const std::int32_t start =
            FindMarker({buffer_.get(), static_cast<std::size_t>(used_)}, kFilmMarker, markerScan_);
        if (start == 0)
            return Next::Wait;
        markerScan_ = {};
        filmStart_ = start;
        Consume(start);
        state_ = kSeekMediaMarker;
        return Next::Step;
    }
    case kSeekMediaMarker:
        return SeekMediaMarker(film, handOver);
    case kReceivingItems:
        return CompleteItem(film, handOver, stopRequested);
    default:
        return Next::Wait; // Finished: every further byte is swallowed.
    }
}

FilmReceiver::Next FilmReceiver::SeekMediaMarker(Film& film, const ItemHandOver* handOver)
{
    const std::int32_t end =
        FindMarker({buffer_.get(), static_cast<std::size_t>(used_)}, kMediaMarker, markerScan_);
    if (end == 0)
        return Next::Wait;
    markerScan_ = {};
    const std::int32_t fileBytes = end - static_cast<std::int32_t>(kMediaMarker.size());
    // A film that cannot be written or loaded is not reported: loading goes on with what the film holds.
    Film loaded;
    if (!tempFolder_.empty()) {
        const std::string path = tempFolder_ + std::string(kFilmFileName);
        if (platform::WriteWholeFile(path, {buffer_.get(), static_cast<std::size_t>(fileBytes)}).ok())
            loaded.Load(path);
    }
    filmCount_ = WithFilm(handOver, [&] {
        film = std::move(loaded);
        return film.ItemCount();
    });
    processedCount_ = 1;
    arrivingItem_ = 1;
    const std::string musicPath = film.GetMusicPath();
    musicSize_ = MusicPieceSize(musicPath);
    const FilmItem first = film.GetItem(1);
    expectedFirst_ = static_cast<std::int64_t>(filmStart_) + end + std::max(musicSize_, 0);
    for (const FilmFile* file :
         {&first.clipPicture1, &first.photo, &first.clipFile, &first.mask, &first.clipPicture2, &first.sound})
        expectedFirst_ += std::max(PieceSize(*file), 0);
    filmLength_ = end;
    DrawProgress(handOver);
    Consume(end);
    // A film without items has nothing to wait for.
    state_ = filmCount_ < 1 ? kFinished : kReceivingItems;
    return Next::Step;
}

std::string FilmReceiver::UniqueName(const std::string& path) const
{
    const platform::SplitPathResult split = platform::SplitPath(path);
    const std::string_view extension = Extension(split.name);
    const std::string_view base =
        std::string_view(split.name).substr(0, split.name.size() - extension.size());
    return base::StrCat(split.folder, base, "_", arrivingItem_, extension);
}

bool FilmReceiver::QueueNarration(FilmItem& item, std::span<const std::uint8_t> bytes,
                                  const ItemHandOver* handOver)
{
    if (item.soundMode == kSoundModeCdTrack) {
        const std::optional<std::string> drive =
            opticalDriveQuery_ ? opticalDriveQuery_() : platform::FindOpticalDrive();
        if (drive)
            item.sound.cstrName = *drive + platform::SplitPath(item.sound.cstrName).name;
        else
            item.soundMode = 0;
        return true;
    }
    if (bytes.empty())
        return true;
    const bool compressed = IsExtension(item.sound.cstrName, ".ca");
    const bool wave = IsExtension(item.sound.cstrName, ".wav");
    item.sound.cstrName = UniqueName(tempFolder_ + FileNameInFolder(item.sound.cstrName));
    if (!compressed && !wave) {
        ReportFatal(handOver, platform::kStrSoundDeviceError, "DirectSound error");
        return false;
    }
    if (!narration_) {
        platform::DebugTrace("narration dropped: no temporary folder for its wave files\n");
        return true;
    }
    // Reports about this narration name the item and its file.
    const std::string name =
        base::StrCat("item ", item.index, " ", platform::SplitPath(item.sound.cstrName).name);
    if (compressed)
        narration_->AppendCompressed(bytes, name);
    else
        narration_->AppendWaveData(bytes, name);
    if (!narration_->IsPlaying())
        narration_->StartPlayback();
    return true;
}

FilmReceiver::Next FilmReceiver::CompleteItem(Film& film, const ItemHandOver* handOver,
                                              const std::atomic<std::int32_t>& stopRequested)
{
    FilmItem item = WithFilm(handOver, [&] { return film.GetItem(arrivingItem_); });
    if (item.index == -1) {
        // The film has fewer items than it said; there is nothing left to complete.
        state_ = kFinished;
        return Next::Step;
    }
    const bool clip = item.kind == kFilmItemClip;
    const std::int32_t music = arrivingItem_ == 1 ? musicSize_ : 0;
    const std::int32_t picture1 = PieceSize(item.clipPicture1);
    const std::int32_t main = clip                          ? PieceSize(item.clipFile)
                              : item.kind == kFilmItemPhoto ? PieceSize(item.photo)
                                                            : 0;
    const std::int32_t mask = PieceSize(item.mask);
    const std::int32_t picture2 = PieceSize(item.clipPicture2);
    const std::int32_t sound = PieceSize(item.sound);

    if (main == 0) {
        WithFilm(handOver, [&] { film.RemoveItem(arrivingItem_); });
        if (++processedCount_ > filmCount_)
            state_ = kFinished;
        return Next::Step;
    }
    // A size past 2 GiB reads as negative; no buffer can hold such an item.
    std::int64_t needed = 0;
    for (std::int32_t size : {music, picture1, main, mask, picture2, sound}) {
        if (size < 0) {
            ReportInternalError(handOver);
            return Next::Fail;
        }
        needed += size;
    }
    if (needed > kMaxBufferBytes) {
        ReportInternalError(handOver);
        return Next::Fail;
    }
    if (used_ < needed)
        return Next::Wait;

    const std::uint8_t* at = buffer_.get();
    auto take = [&at](std::int32_t size) {
        std::span<const std::uint8_t> piece(at, static_cast<std::size_t>(size));
        at += size;
        return piece;
    };
    PictureBlocks pictures;
    if (music > 0) {
        // Compatibility: the music file stays after DeleteTemporaryFiles; it goes with the folder.
        const std::string path = tempFolder_ + FileNameInFolder(film.GetMusicPath());
        WithFilm(handOver, [&] { film.SetMusic(path); });
        if (tempFolder_.empty() || !platform::WriteWholeFile(path, take(music)).ok()) {
            ReportInternalError(handOver);
            return Next::Fail;
        }
    }
    if (picture1 > 0)
        pictures.Keep(item.clipPicture1, take(picture1));
    else
        item.clipPicture1.cstrName = "-1";

    bool keep = true;
    if (!clip) {
        pictures.Keep(item.photo, take(main));
    } else if (clipSwitch_ != 0) {
        item.clipFile.cstrName = UniqueName(tempFolder_ + FileNameInFolder(item.clipFile.cstrName));
        if (tempFolder_.empty() || !platform::WriteWholeFile(item.clipFile.cstrName, take(main)).ok()) {
            ReportInternalError(handOver);
            return Next::Fail;
        }
    } else {
        // Clips are not played by this control: the item goes, but its pictures and narration are
        // still taken from the stream.
        WithFilm(handOver, [&] { film.RemoveItem(arrivingItem_); });
        --arrivingItem_;
        take(main);
        keep = false;
    }
    if (mask > 0)
        pictures.Keep(item.mask, take(mask));
    if (picture2 > 0)
        pictures.Keep(item.clipPicture2, take(picture2));
    else
        item.clipPicture2.cstrName = "-1";
    if (!QueueNarration(item, take(sound), handOver))
        return Next::Fail;

    if (keep) {
        WithFilm(handOver, [&] { film.SetItem(arrivingItem_, item); });
        if (handOver != nullptr && handOver->itemAvailable != nullptr)
            handOver->itemAvailable->Set();
        // The pictures stay registered until playback has stepped past this item.
        if (handOver != nullptr && handOver->stepDone != nullptr)
            while (stopRequested.load() == 0 && !handOver->stepDone->Wait(kPollMs)) {
            }
    }
    ++processedCount_;
    ++arrivingItem_;
    if (processedCount_ > filmCount_)
        state_ = kFinished;
    Consume(static_cast<std::int32_t>(needed));
    return Next::Step;
}

void FilmReceiver::DrawProgress(const ItemHandOver* handOver)
{
    LoaderProgress& progress = ProcessLoaderProgress();
    if (progress.progressVisible.load() != 1)
        return;
    const int phase = progress.phase.load();
    const int width = handOver ? handOver->clientWidth : 0;
    const int height = handOver ? handOver->clientHeight : 0;
    const ProgressBar bar = ComputeProgressBar(width, height, expectedFirst_, received_, phase);
    if (expectedFirst_ == 0)
        progress.phase.store((phase + 1) % 10);
    progress.progressVisible.store(bar.report);

    const int barWidth = bar.right - bar.left;
    const int barHeight = bar.bottom - bar.top;
    if (handOver == nullptr || handOver->presenter == nullptr || barWidth <= 0 || barHeight <= 0)
        return;
    // Bottom row first, as every picture we present.
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(barWidth) * barHeight * 4);
    for (int row = 0; row < barHeight; ++row) {
        const int y = bar.top + row;
        for (int column = 0; column < barWidth; ++column) {
            const int x = bar.left + column;
            const bool filled = x > bar.left && x < bar.fillRight - 1 && y > bar.top && y < bar.bottom - 1;
            const std::uint32_t colour = filled ? kBarFillColour : kBarFrameColour;
            std::uint8_t* pixel =
                &pixels[(static_cast<std::size_t>(barHeight - 1 - row) * barWidth + column) * 4];
            pixel[0] = static_cast<std::uint8_t>(colour >> 16); // Blue.
            pixel[1] = static_cast<std::uint8_t>(colour >> 8);  // Green.
            pixel[2] = static_cast<std::uint8_t>(colour);       // Red.
            pixel[3] = 0;
        }
    }
    handOver->presenter->Present(pixels.data(), barWidth, barHeight, bar.left, bar.top);
}

int RunFilmLoader(FilmReceiver& receiver, ChunkQueue& queue, Film& film, const ItemHandOver* handOver,
                  OpeningFlags& flags)
{
    while (flags.openerRunning.load() == 1) {
        const Chunk* chunk = queue.Peek();
        if (chunk == nullptr) {
            std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
            continue;
        }
        const std::int64_t result =
            receiver.FeedChunk(film, handOver, chunk->bytes.data(), chunk->Size(), flags.stopRequested);
        if (result == -1)
            break;
        if (result == chunk->Size()) {
            std::lock_guard guard(queue.Lock());
            queue.Pop();
        }
    }
    return 0;
}

void DeleteTemporaryFiles(FilmReceiver& receiver, const Film& film)
{
    const std::string& folder = receiver.TempFolder();
    if (film.ItemCount() < 1 || folder.empty())
        return;
    // Names of items the stream has not reached yet are still the film's own: only files that the
    // receiver itself made (directly inside its folder) are deleted.
    auto remove = [&folder](const std::string& path) {
        if (path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 &&
            path.find('/', folder.size()) == std::string::npos)
            platform::DeleteFile(path);
    };
    for (std::int32_t number = 1; number <= film.ItemCount(); ++number) {
        const FilmItem item = film.GetItem(number);
        if (item.kind == kFilmItemClip)
            remove(item.clipFile.cstrName);
        else if (item.kind == kFilmItemPowerPoint)
            remove(item.showFile.cstrName);
        remove(item.sound.cstrName);
    }
    remove(folder + std::string(kFilmFileName));
}

} // namespace lumenar::film
