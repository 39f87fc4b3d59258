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
    // Plain pointers: this walks every byte of the film file, and in unoptimised (sanitizer and fuzz)
    // builds each span or view call per byte costs more than the comparison itself.
    const std::uint8_t* bytes = data.data();
    const std::size_t size = data.size();
    const char* letters = marker.data();
    const std::size_t length = marker.size();
    std::size_t at = scan.scanned;
    std::size_t matched = scan.matched;
    for (; at < size; ++at) {
        if (matched == 0) {
            // Outside a partial match only the marker's first letter matters: jump to the next one.
            const void* next = std::memchr(bytes + at, letters[0], size - at);
            if (next == nullptr) {
                at = size;
                break;
            }
            at = static_cast<std::size_t>(static_cast<const std::uint8_t*>(next) - bytes);
        }
        if (bytes[at] != static_cast<std::uint8_t>(letters[matched])) {
            matched = 0;
            continue;
        }
        if (++matched == length) {
            scan = {at + 1, matched};
            return static_cast<std::int32_t>(at + 1);
        }
    }
    scan = {at, matched};
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
        name = "_" + name;
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

FilmReceiver::FilmReceiver(platform::SoundDevice* sound, platform::TimerService& timers,
                           platform::FileSpace& files)
    : files_(&files), buffer_(platform::TryAllocateArray<std::uint8_t>(kInitialCapacity)),
      capacity_(buffer_ ? kInitialCapacity : 0)
{
    auto folder = files_->MakePrivateFolder("lumenar-");
    if (folder.ok()) {
        tempFolder_ = std::move(folder).value();
        narration_ = std::make_unique<audio::WaveStream>(sound, timers, tempFolder_);
    } else {
        folderError_ = folder.error().message;
        platform::DebugTrace(base::StrCat(folderError_, "\n"));
    }
}

FilmReceiver::~FilmReceiver()
{
    narration_.reset(); // Its watcher and buffer go before the folder its files were made in.
    if (!tempFolder_.empty())
        files_->RemoveFolderTree(tempFolder_);
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

FilmReceiver::Next FilmReceiver::Fail(std::string message)
{
    failure_ = std::move(message);
    return Next::Fail;
}

std::int64_t FilmReceiver::FeedChunk(Film& film, const ItemHandOver* handOver, const std::uint8_t* bytes,
                                     std::int32_t size, const std::atomic<std::int32_t>& stopRequested)
{
    // Bytes past the film's last piece are not kept: the sender is told to stop (StreamComplete), and
    // whatever it sends meanwhile is counted and dropped.
    std::int32_t kept = size;
    if (announcedEnd_ > 0 && size > 0)
        kept = static_cast<std::int32_t>(std::clamp<std::int64_t>(announcedEnd_ - received_, 0, size));
    if (size < 0 || (size > 0 && bytes == nullptr) || !Append(bytes, kept)) {
        ReportInternalError(handOver);
        failure_ = size < 0 || (size > 0 && bytes == nullptr)
                       ? base::StrCat("a chunk of ", size, " bytes cannot be taken")
                       : base::StrCat("no memory for ", std::int64_t{used_} + kept, " bytes of the stream");
        return -1;
    }
    received_ += kept;
    if (kept < size) {
        if (surplus_ == 0)
            platform::DebugTrace("the stream goes on past the film's last piece; the rest is dropped\n");
        surplus_ += size - kept;
    }
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
        if (start == 0) {
            // Only the partly matched marker can still matter: the bytes scanned before it go, so an
            // endless stream without a marker holds no memory. The scan goes on exactly as before.
            const auto dropped = static_cast<std::int32_t>(markerScan_.scanned - markerScan_.matched);
            Consume(dropped);
            preambleDropped_ += dropped;
            markerScan_.scanned -= static_cast<std::size_t>(dropped);
            if (received_ > maxPreamble_)
                return Fail(
                    base::StrCat("not a film stream (no film marker in its first ", received_, " bytes)"));
            return Next::Wait;
        }
        markerScan_ = {};
        filmStart_ = static_cast<std::int32_t>(preambleDropped_ + start);
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
    if (end == 0) {
        if (used_ > maxFilmFile_)
            return Fail(base::StrCat("the film file is longer than ", maxFilmFile_,
                                     " bytes (no media marker after it)"));
        return Next::Wait;
    }
    markerScan_ = {};
    const std::int32_t fileBytes = end - static_cast<std::int32_t>(kMediaMarker.size());
    // A film file that loads only in part plays the items it gave; one that gives none cannot play.
    if (tempFolder_.empty())
        return Fail(base::StrCat("cannot write the film file: ", folderError_));
    const std::string path = tempFolder_ + std::string(kFilmFileName);
    if (auto written = files_->WriteWholeFile(path, {buffer_.get(), static_cast<std::size_t>(fileBytes)});
        !written.ok())
        return Fail(base::StrCat("cannot write the film file: ", written.error().message));
    auto root = files_->OpenCompoundFile(path);
    if (!root.ok())
        return Fail(root.error().code == base::ErrorCode::BadData
                        ? std::string("the film file is not a compound file")
                        : base::StrCat("the film file cannot be read: ", root.error().message));
    Film loaded;
    FilmLoadOutcome outcome;
    if (LoadFilmStorage(loaded, std::move(root).value(), &outcome) != 1)
        platform::DebugTrace(base::StrCat("film file read in part: ", outcome.failure, "\n"));
    heldFilmFile_ = std::move(outcome.heldOpen);
    if (loaded.ItemCount() < 1)
        return Fail(outcome.failure.empty() ? std::string("the film holds no items") : outcome.failure);
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
    announcedEnd_ = AnnouncedEnd(film);
    DrawProgress(handOver);
    Consume(end);
    state_ = kReceivingItems;
    // What already arrived past the film's end is dropped like anything that arrives later.
    if (announcedEnd_ > 0 && received_ > announcedEnd_) {
        const std::int64_t extra = received_ - announcedEnd_;
        used_ -= static_cast<std::int32_t>(std::min<std::int64_t>(extra, used_));
        surplus_ += extra;
        received_ = announcedEnd_;
    }
    return Next::Step;
}

std::int64_t FilmReceiver::AnnouncedEnd(const Film& film) const
{
    // Items whose main piece has no size carry no bytes; the music travels in front of the first item
    // that does. A size that reads as negative is refused when its item's turn comes: nothing here.
    std::int64_t end = std::int64_t{filmStart_} + filmLength_;
    bool first = true;
    for (std::int32_t number = 1; number <= film.ItemCount(); ++number) {
        const FilmItem item = film.GetItem(number);
        const std::int32_t main = item.kind == kFilmItemClip    ? PieceSize(item.clipFile)
                                  : item.kind == kFilmItemPhoto ? PieceSize(item.photo)
                                                                : 0;
        if (main == 0)
            continue;
        for (std::int32_t size :
             {first ? musicSize_ : 0, main, PieceSize(item.clipPicture1), PieceSize(item.mask),
              PieceSize(item.clipPicture2), PieceSize(item.sound)}) {
            if (size < 0)
                return 0;
            end += size;
        }
        first = false;
    }
    return end;
}

std::string FilmReceiver::EndOfStream() const
{
    switch (state_) {
    case kSeekFilmMarker:
        return base::StrCat("not a film stream (no film marker in its ", received_, " bytes)");
    case kSeekMediaMarker:
        return base::StrCat("the stream ends inside the film file (no media marker in its ", received_,
                            " bytes)");
    case kReceivingItems:
        return base::StrCat("the film ends after ", processedCount_ - 1, " of ", filmCount_, " items");
    default:
        return {};
    }
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
    // Small chunks arrive many times per item: until its bytes are all there, nothing changes.
    if (used_ < waitingFor_)
        return Next::Wait;
    waitingFor_ = 0;
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
            return Fail(base::StrCat("item ", arrivingItem_, " announces a piece of 2 GiB or more"));
        }
        needed += size;
    }
    if (needed > kMaxBufferBytes) {
        ReportInternalError(handOver);
        return Fail(base::StrCat("item ", arrivingItem_, " announces ", needed, " bytes, more than ",
                                 kMaxBufferBytes, " bytes can be held"));
    }
    if (used_ < needed) {
        waitingFor_ = needed;
        return Next::Wait;
    }

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
        if (tempFolder_.empty() || !files_->WriteWholeFile(path, take(music)).ok()) {
            ReportInternalError(handOver);
            return Fail(base::StrCat("cannot write the music file ", path));
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
        if (tempFolder_.empty() || !files_->WriteWholeFile(item.clipFile.cstrName, take(main)).ok()) {
            ReportInternalError(handOver);
            return Fail(base::StrCat("cannot write the clip file ", item.clipFile.cstrName));
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
        return Fail(base::StrCat("item ", arrivingItem_, "'s narration ", item.sound.cstrName,
                                 " is neither a .ca nor a .wav file"));

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
                  OpeningFlags& flags, const LoaderEvents* events)
{
    auto tell = [events](const std::function<void()> LoaderEvents::*event) {
        if (events != nullptr && events->*event)
            (events->*event)();
    };
    auto fail = [events](const std::string& why) {
        if (events != nullptr && events->failed)
            events->failed(why);
    };
    bool toldComplete = false;
    while (flags.openerRunning.load() == 1) {
        const Chunk* chunk = queue.Peek();
        if (chunk == nullptr) {
            std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
            continue;
        }
        if (chunk->endOfStream) {
            // Nothing more will come. After Stop the bytes were never looked at: no verdict then.
            if (flags.stopRequested.load() == 0)
                if (std::string why = receiver.EndOfStream(); !why.empty())
                    fail(why);
            break;
        }
        const std::int64_t result =
            receiver.FeedChunk(film, handOver, chunk->bytes.data(), chunk->Size(), flags.stopRequested);
        if (result == -1) {
            fail(receiver.Failure());
            break;
        }
        if (!toldComplete && receiver.StreamComplete()) {
            toldComplete = true;
            tell(&LoaderEvents::complete);
        }
        if (result == chunk->Size()) {
            bool room = false;
            {
                std::lock_guard guard(queue.Lock());
                const bool full = queue.Bytes() >= kMaxQueuedBytes;
                queue.Pop();
                room = full && queue.Bytes() < kMaxQueuedBytes;
            }
            if (room)
                tell(&LoaderEvents::room);
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
    auto remove = [&folder, &receiver](const std::string& path) {
        if (path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 &&
            path.find('/', folder.size()) == std::string::npos)
            receiver.Files().DeleteFile(path);
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
