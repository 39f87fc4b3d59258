#pragma once

#include "base/Result.h"
#include "control/ControlProperties.h"
#include "film/ChunkQueue.h"
#include "film/Film.h"
#include "film/FilmReceiver.h"
#include "platform/Window.h"
#include "playback/FrameCompositor.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace lumenar::platform {
class AutoResetEvent;
class Clock;
class CompoundStorage;
class Download;
class SoundDevice;
class TimerService;
} // namespace lumenar::platform
namespace lumenar::playback {
class PlayerWindow;
}

namespace lumenar::control {

/// The control's private start message: begin downloading File and release the film loader.
inline constexpr std::uint32_t kMsgFilmStart = 0x048C;
/// Private: the download has blocks waiting (posted by the download's thread), or the chunk queue has
/// room for them again (posted by the film loader).
inline constexpr std::uint32_t kMsgFilmData = 0x048D;
/// Private: the film loader found that the film cannot be completed.
inline constexpr std::uint32_t kMsgFilmFailed = 0x048E;
/// Private: every byte the film announced has arrived; the transfer may end.
inline constexpr std::uint32_t kMsgFilmComplete = 0x048F;

/// Where the control's window goes and the services its sessions use.
struct ControlSite
{
    platform::WindowHost* host = nullptr;   ///< Required; must outlive the control's window.
    platform::WindowId parent = 0;          ///< The window the control is a child of.
    platform::WindowRect rect;              ///< In the parent's coordinates; empty: the parent's whole area.
    std::string documentUrl;                ///< What File is relative to; empty: the current directory.
    bool userMode = true;                   ///< The ambient user mode; false is design mode (no download).
    platform::SoundDevice* sound = nullptr; ///< Narration output; null: silent.
    platform::TimerService* timers = nullptr; ///< Null: the system's timers.
    /// The clock playback runs on; null: the system's. Set with `timers` (a ManualClock and the
    /// ManualTimers on it) for a run that a driver moves through time itself.
    platform::Clock* clock = nullptr;
    std::uint32_t framePeriodMs = 0; ///< Transition and caption frame period; 0: the player's own.
    std::function<bool()> hasMmx;    ///< The processor check; null asks the processor.
    /// How the player's frame takes a window larger than 800 × 600: the control keeps the design size
    /// unless its host asks for the whole window.
    playback::FrameFit frameFit = playback::FrameFit::Design;
};

/// Where the control is in its life.
enum class ControlState
{
    NoWindow,
    Created,
    Playing,
    Stopped
};

/// The embeddable film player: three properties, their persistence, and a window that downloads the
/// film named by File and plays it in a player window over its whole area. One session (film,
/// receiver, chunk queue, player window, film loader thread) lives while the window exists; Stop ends
/// it, Play builds a new one that downloads File again.
///
/// Everything here runs on the control's thread, the one that runs the host's Pump (apartment model);
/// the download, the film loader and the playback threads only post messages to the control's window.
class SequenceCtl
{
public:
    SequenceCtl();
    /// Destroys the window (and its session) when it still exists.
    ~SequenceCtl();
    SequenceCtl(const SequenceCtl&) = delete;
    SequenceCtl& operator=(const SequenceCtl&) = delete;

    const std::string& File() const { return properties_.file; }
    /// Stores a copy: no download, no notification; the next session uses it.
    void SetFile(std::string_view file) { properties_.file = std::string(file); }
    std::uint32_t BackColor() const { return properties_.backColor; }
    /// Stores the colour and notifies the change sinks (kDispidBackColor).
    void SetBackColor(std::uint32_t colour);
    std::uint32_t FillColor() const { return properties_.fillColor; }
    void SetFillColor(std::uint32_t colour);

    using ChangeSink = std::function<void(std::int32_t dispid)>;
    /// Registers a sink for property changes, the ready state and kDispidFilmFailed; returns its cookie
    /// (never 0).
    std::uint32_t Advise(ChangeSink sink);
    /// False when the cookie is unknown.
    bool Unadvise(std::uint32_t cookie);

    /// The persisted properties (extent in 0.01 mm, colours, File).
    const ControlProperties& Properties() const { return properties_; }
    /// Takes loaded properties: the extent and File are stored, colours go through their setters.
    void SetProperties(const ControlProperties& properties);
    base::Status LoadBag(PropertyBag& bag);
    base::Status SaveBag(PropertyBag& bag) const;
    base::Status LoadStream(std::span<const std::uint8_t> bytes);
    std::vector<std::uint8_t> SaveStream() const;
    /// The properties in stream "Contents" of a compound file.
    base::Status LoadStorage(const std::string& path);
    base::Status SaveStorage(const std::string& path) const;

    /// Makes the control's window and runs OnCreate. Returns 0, or −1 when creation failed (no MMX,
    /// no window); the control then has no window. Control's thread.
    int Create(const ControlSite& site);
    /// Runs OnDestroy and removes the window. Nothing when there is none.
    void Destroy();
    platform::WindowId Window() const { return window_; }

    ControlState State() const;
    bool StopRequested() const { return flags_ && flags_->stopRequested.load() != 0; }
    /// The session stopped because the film played to its end, not by the viewer's or the host's Stop.
    bool Ended() const;
    /// Session observers (null without a session).
    film::Film* SessionFilm() { return film_.get(); }
    film::FilmReceiver* Receiver() { return receiver_.get(); }
    playback::PlayerWindow* Player() { return player_.get(); }
    /// Downloads started and stream bytes queued for the loader, over the control's life.
    int DownloadsStarted() const { return downloadsStarted_; }
    std::uint64_t BytesQueued() const { return bytesQueued_; }
    /// Whether a download exists and has not finished.
    bool Downloading() const;
    /// Why the current (or last) session's film cannot be completed, as a user reads it after the film's
    /// address ("404 Not Found", "the film ends after 3 of 6 items"); empty while nothing went wrong.
    /// Set once per session, when kDispidFilmFailed is sent. Items already delivered keep playing.
    const std::string& Failure() const { return failure_; }
    /// The handlers run so far, by name, in order ("OnCreate", "OnStartFilm", "OnStop", ...).
    const std::vector<std::string>& HandlerLog() const { return handlerLog_; }

private:
    void OnMessage(const platform::Message& message);
    int OnCreate();
    void OnStartFilm();
    void OnFilmData(std::span<const std::uint8_t> bytes, bool last);
    void OnContextMenu(std::int64_t position);
    void OnPlay();
    void OnStop();
    void OnDestroy();
    void NewSession();
    void StartSession();
    void StopLoader();
    void FreeSession();
    void DrainDownload();
    void FilmFailed(std::string why);
    void Notify(std::int32_t dispid);

    ControlProperties properties_;
    std::map<std::uint32_t, ChangeSink> sinks_;
    std::uint32_t nextCookie_ = 1;

    ControlSite site_;
    platform::WindowHost* host_ = nullptr;
    platform::WindowId window_ = 0;
    std::unique_ptr<film::Film> film_;
    std::unique_ptr<film::FilmReceiver> receiver_;
    std::unique_ptr<film::ChunkQueue> queue_;
    std::unique_ptr<film::OpeningFlags> flags_;
    std::unique_ptr<playback::PlayerWindow> player_;
    film::ItemHandOver handOver_;
    std::unique_ptr<platform::AutoResetEvent> loaderStart_;
    std::thread loaderThread_;
    bool loaderReleased_ = false;
    std::unique_ptr<platform::Download> download_;
    bool downloadEnded_ = false; // The transfer was ended on purpose (Stop, a complete film, a failure).
    bool readySent_ = false;     // The session's ready state has been notified.
    film::LoaderEvents loaderEvents_;
    std::mutex loaderFailureLock_; // Guards loaderFailure_ (written by the film loader).
    std::string loaderFailure_;
    std::string failure_;
    // Compatibility: film files of another version stay open, and locked, while the control lives.
    std::vector<std::unique_ptr<platform::CompoundStorage>> heldFilmFiles_;
    int downloadsStarted_ = 0;
    std::uint64_t bytesQueued_ = 0;
    std::vector<std::string> handlerLog_;
};

} // namespace lumenar::control
