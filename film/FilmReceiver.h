#pragma once

#include "film/ChunkQueue.h"
#include "film/Film.h"
#include "film/FilmReader.h"
#include "platform/AudioOut.h"
#include "platform/FileSystem.h"
#include "platform/Timer.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>

namespace lumenar::audio {
class WaveStream;
}
namespace lumenar::platform {
class AutoResetEvent;
class FramePresenter;
struct Window;
} // namespace lumenar::platform

namespace lumenar::film {

/// Receiver states.
inline constexpr int kSeekFilmMarker = 0;
inline constexpr int kSeekMediaMarker = 1;
inline constexpr int kReceivingItems = 2;
inline constexpr int kFinished = 3;

/// The markers in front of the film file and in front of the items' data.
inline constexpr std::string_view kFilmMarker = "VistrelanFilmDescription";
inline constexpr std::string_view kMediaMarker = "VistrelanMediaDescription";
/// The name the film file is cut out to in the temporary folder.
inline constexpr std::string_view kFilmFileName = "Film.flm";

/// What the receiver holds at most, whatever the sender sends. Before the film marker only a partly
/// matched marker is kept, and a stream whose first kMaxPreambleBytes hold no marker is refused. The
/// film file is held whole until the media marker: one longer than kMaxFilmFileBytes is refused (a film
/// of 8,000 items with captions takes about a quarter of it). Then the buffer holds one item's pieces
/// (their sizes are announced by the film file, each below 2 GiB) and at most one chunk more; bytes
/// past the film's last piece are dropped.
inline constexpr std::int64_t kMaxPreambleBytes = 64ll << 20;
inline constexpr std::int64_t kMaxFilmFileBytes = 64ll << 20;

/// The film file inside a film stream: the bytes between the film marker and the media marker, found
/// as the receiver finds them. Empty when either marker is missing.
std::span<const std::uint8_t> FilmFileInStream(std::span<const std::uint8_t> stream);

/// The bytes the stream carries for the film's music: the number its name starts with, or 0 for a
/// compact-disc track (extension ".cda" in any case), which is played from the disc.
std::int32_t MusicPieceSize(std::string_view musicPath);

/// What the receiver needs from the player to hand an item over. Every member may be null; the player
/// window provides its own, a test or a headless run provides its own events. Not owned.
struct ItemHandOver
{
    platform::AutoResetEvent* itemAvailable = nullptr; ///< Set when an item has been completed.
    platform::AutoResetEvent* stepDone =
        nullptr; ///< Polled until playback has taken the item; null: taken at once.
    /// Guards the film against the playback threads reading it while the receiver changes it.
    std::mutex* filmLock = nullptr;
    platform::FramePresenter* presenter = nullptr; ///< The player's client area, for the progress bar.
    int clientWidth = 0;
    int clientHeight = 0;
    platform::Window* owner = nullptr; ///< Owner of the receiver's message boxes.
};

/// One drawing of the progress bar, in client coordinates. The frame (white) spans
/// (left, top)–(right, bottom); the fill (blue) spans (left + 1, top + 1)–(fillRight − 1, bottom − 1).
struct ProgressBar
{
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;
    int fillRight = 0;
    std::int32_t report = 1; ///< 1: draw again before the next step; 0: the bar has shown completion.
};

/// The bar for a client area of the given size: 60 × 8 pixels at most, 2 pixels from the bottom-left
/// corner. With `expectedFirst` known it shows `received` against it (full, and done, once `received`
/// passes it); without, it shows the moving `phase` (0…9).
ProgressBar ComputeProgressBar(int clientWidth, int clientHeight, std::int64_t expectedFirst,
                               std::int64_t received, int phase);

/// The progress bar's process-wide state. Compatibility: it starts visible at phase 0 when the program
/// starts and is never reset, so once one film has shown a full bar no later film of the same process
/// shows one. Film loader thread (one at a time); tests may set it between runs.
struct LoaderProgress
{
    std::atomic<std::int32_t> progressVisible{1};
    std::atomic<std::int32_t> phase{0};
};
LoaderProgress& ProcessLoaderProgress();

/// How far a marker search has got in the receiver's buffer.
struct MarkerScan
{
    std::size_t scanned = 0; ///< Bytes of the buffer looked at.
    std::size_t matched = 0; ///< Marker bytes matched just before that point.
};

/// The run flags the control writes and the film loader polls.
struct OpeningFlags
{
    std::atomic<std::int32_t> stopRequested{0};
    std::atomic<std::int32_t> openerRunning{0};
};

/// Unpacks a film stream while it arrives: finds the film file, loads it into the film, then completes
/// the film's items one after another (pictures into memory, narration into the sound device, other
/// pieces into files of the session's private temporary folder) and hands each to playback.
/// FeedChunk runs on the film loader thread only; the observers may be read by the same thread or after
/// it has ended.
class FilmReceiver
{
public:
    /// Makes the session's private temporary folder in `files` (on disk: mode 0700 under $TMPDIR or
    /// /tmp); TempFolder() ends with '/' or is empty when no folder could be made. `sound` may be null
    /// (no sound device). The device, the timer service and the file space must outlive the receiver.
    FilmReceiver(platform::SoundDevice* sound, platform::TimerService& timers,
                 platform::FileSpace& files = platform::DiskFiles());
    /// Removes the temporary folder and everything in it, the kept music file included.
    ~FilmReceiver();
    FilmReceiver(const FilmReceiver&) = delete;
    FilmReceiver& operator=(const FilmReceiver&) = delete;

    /// Consumes one chunk of the stream. Returns `size` when the chunk has been taken (whatever was done
    /// with it) or −1 on a fatal error, which Failure() then describes (errors the player has always
    /// shown went through ReportBox as well). When the film file has arrived, `film` is replaced by what
    /// it holds; completed items are written back into it. `handOver` may be null: items are then stored
    /// and taken at once. Fatal: a piece size past 2 GiB, an item larger than any buffer, a stream with
    /// no film marker in its first kMaxPreambleBytes, a film file longer than kMaxFilmFileBytes, one that
    /// cannot be written or read back, or that holds no item (a film of another version among them).
    /// Film loader thread only.
    std::int64_t FeedChunk(Film& film, const ItemHandOver* handOver, const std::uint8_t* bytes,
                           std::int32_t size, const std::atomic<std::int32_t>& stopRequested);

    /// Why the stream cannot give a whole film, once it has ended (no more chunks will come): empty when
    /// every item has been completed, else, for instance, "the film ends after 3 of 6 items". Film
    /// loader thread, after its last FeedChunk.
    std::string EndOfStream() const;
    /// The fatal error of the last FeedChunk that returned −1; empty before. Lower case, no period.
    const std::string& Failure() const { return failure_; }
    /// True once every byte the film announced has arrived: the transfer may be ended.
    bool StreamComplete() const { return announcedEnd_ > 0 && received_ >= announcedEnd_; }
    /// Bytes the sender sent past the film's last piece, dropped.
    std::int64_t Surplus() const { return surplus_; }
    /// The film file the reader keeps open after a failed version check (see FilmLoadOutcome), handed
    /// to the caller, which decides how long it stays held. Null when there is none.
    std::unique_ptr<platform::CompoundStorage> TakeHeldFilmFile() { return std::move(heldFilmFile_); }

    /// The private folder, ending with '/', or empty.
    const std::string& TempFolder() const { return tempFolder_; }
    /// Where the session's files go.
    platform::FileSpace& Files() { return *files_; }

    /// Lowers the preamble and film file bounds (tests of endless streams); never raises them.
    void SetLimits(std::int64_t preambleBytes, std::int64_t filmFileBytes)
    {
        maxPreamble_ = std::min(preambleBytes, kMaxPreambleBytes);
        maxFilmFile_ = std::min(filmFileBytes, kMaxFilmFileBytes);
    }

    /// Replaces the query for the first optical drive (tests); the default asks the platform.
    void SetOpticalDriveQuery(std::function<std::optional<std::string>()> query);

    // Observers (tests, traces).
    int State() const { return state_; }
    std::int32_t Used() const { return used_; }
    std::int32_t Capacity() const { return capacity_; }
    std::int64_t Received() const { return received_; }
    std::int64_t ExpectedFirst() const { return expectedFirst_; }
    std::int32_t FilmStart() const { return filmStart_; }
    std::int32_t FilmLength() const { return filmLength_; }
    std::int32_t FilmCount() const { return filmCount_; }
    std::int32_t ProcessedCount() const { return processedCount_; }
    std::int32_t ArrivingItem() const { return arrivingItem_; }
    std::int32_t MusicSize() const { return musicSize_; }
    /// The narration stream, or null when none could be made (no temporary folder).
    audio::WaveStream* Narration() { return narration_.get(); }

private:
    enum class Next
    {
        Step,
        Wait,
        Fail
    };
    bool Append(const std::uint8_t* bytes, std::int32_t size);
    Next Fail(std::string message);
    std::int64_t AnnouncedEnd(const Film& film) const;
    void Consume(std::int32_t count);
    Next StepOnce(Film& film, const ItemHandOver* handOver, const std::atomic<std::int32_t>& stopRequested);
    Next SeekMediaMarker(Film& film, const ItemHandOver* handOver);
    Next CompleteItem(Film& film, const ItemHandOver* handOver,
                      const std::atomic<std::int32_t>& stopRequested);
    bool QueueNarration(FilmItem& item, std::span<const std::uint8_t> bytes, const ItemHandOver* handOver);
    void DrawProgress(const ItemHandOver* handOver);
    std::string UniqueName(const std::string& filmName) const;

    platform::FileSpace* files_;
    std::string tempFolder_;
    std::string folderError_; // Why there is no temporary folder.
    std::string failure_;
    std::int64_t announcedEnd_ = 0; // Stream bytes up to the film's last piece; 0 until known.
    std::int64_t surplus_ = 0;
    std::int64_t preambleDropped_ = 0; // Stream bytes before the film marker no longer held.
    std::int64_t waitingFor_ = 0;      // Bytes the arriving item needs, once known to be missing.
    std::int64_t maxPreamble_ = kMaxPreambleBytes;
    std::int64_t maxFilmFile_ = kMaxFilmFileBytes;
    std::unique_ptr<platform::CompoundStorage> heldFilmFile_;
    std::unique_ptr<std::uint8_t[]> buffer_;
    std::int32_t capacity_ = 0;
    std::int32_t used_ = 0;
    int state_ = kSeekFilmMarker;
    std::int32_t filmStart_ = 0;
    std::int32_t filmLength_ = 0;
    std::int64_t received_ = 0;
    std::int64_t expectedFirst_ = 0;
    std::int32_t clipSwitch_ = 0;
    std::int32_t filmCount_ = 0;
    std::int32_t processedCount_ = 0;
    std::int32_t arrivingItem_ = 0;
    std::int32_t musicSize_ = 0;
    MarkerScan markerScan_; // Nothing is consumed while a marker is sought, so the scan resumes.
    std::function<std::optional<std::string>()> opticalDriveQuery_;
    std::unique_ptr<audio::WaveStream> narration_;
};

/// What the film loader tells the control, from the loader's thread (so: post, do not act).
struct LoaderEvents
{
    std::function<void()> room;                     ///< The queue fell below kMaxQueuedBytes.
    std::function<void()> complete;                 ///< Every byte the film announced has arrived.
    std::function<void(const std::string&)> failed; ///< The film cannot be completed, and why.
};

/// The film loader thread's body. Returns at once unless `flags.openerRunning` is 1; otherwise, while it
/// stays 1, feeds the oldest queued chunk to the receiver (polling every 100 ms while the queue is empty)
/// and pops it under the queue lock once taken. A fatal error, or the end of the stream, ends it. Each
/// member of `events` (which may be null) is called as described there. Returns 0.
int RunFilmLoader(FilmReceiver& receiver, ChunkQueue& queue, Film& film, const ItemHandOver* handOver,
                  OpeningFlags& flags, const LoaderEvents* events = nullptr);

/// Removes the session's temporary files that the film names (clip, show and narration files, then
/// "Film.flm"); nothing when the film has no item. Only files inside the receiver's folder are touched.
/// Control thread, once the film loader thread has ended.
/// Compatibility: the music file stays (it goes with the folder when the receiver is destroyed).
void DeleteTemporaryFiles(FilmReceiver& receiver, const Film& film);

} // namespace lumenar::film
