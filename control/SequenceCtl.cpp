#include "control/SequenceCtl.h"

#include "base/StrCat.h"
#include "control/ControlMenu.h"
#include "platform/CompoundFile.h"
#include "platform/CompoundFileWriter.h"
#include "platform/Cpu.h"
#include "platform/DebugTrace.h"
#include "platform/FileSystem.h"
#include "platform/Download.h"
#include "platform/MessageBox.h"
#include "platform/Sync.h"
#include "platform/Timer.h"
#include "playback/ItemHandOverOf.h"
#include "playback/PlayerWindow.h"

#include <algorithm>

namespace lumenar::control {

using base::Error;
using base::ErrorCode;
using base::StrCat;

namespace {

/// Logical pixels to 0.01 mm, truncated.
std::uint32_t ToHimetric(int pixels, int perInch)
{
    if (pixels <= 0 || perInch <= 0)
        return 0;
    return static_cast<std::uint32_t>(std::int64_t(pixels) * 2540 / perInch);
}

/// The notifications that controls reflect back to their children (0x2000 + the message), which the
/// control passes on to default processing.
bool IsReflected(std::uint32_t code)
{
    if (code < 0x2000)
        return false;
    switch (code - 0x2000) {
    case 0x002B: // draw item
    case 0x002C: // measure item
    case 0x002D: // delete item
    case 0x002E: // key to item
    case 0x002F: // char to item
    case 0x0039: // compare item
    case 0x004E: // notify
    case 0x0111: // command
    case 0x0114: // horizontal scroll
    case 0x0115: // vertical scroll
    case 0x0132: // colour: message box
    case 0x0133: // colour: edit
    case 0x0134: // colour: list box
    case 0x0135: // colour: button
    case 0x0136: // colour: dialog
    case 0x0137: // colour: scroll bar
    case 0x0138: // colour: static
    case 0x0210: // parent notify
        return true;
    default:
        return false;
    }
}

} // namespace

SequenceCtl::SequenceCtl() = default;

SequenceCtl::~SequenceCtl()
{
    Destroy();
    heldFilmFiles_.clear(); // After the threads that could still add one have ended.
}

void SequenceCtl::SetBackColor(std::uint32_t colour)
{
    properties_.backColor = colour;
    Notify(kDispidBackColor);
}

void SequenceCtl::SetFillColor(std::uint32_t colour)
{
    properties_.fillColor = colour;
    Notify(kDispidFillColor);
}

std::uint32_t SequenceCtl::Advise(ChangeSink sink)
{
    const std::uint32_t cookie = nextCookie_++;
    sinks_.emplace(cookie, std::move(sink));
    return cookie;
}

bool SequenceCtl::Unadvise(std::uint32_t cookie)
{
    return sinks_.erase(cookie) != 0;
}

void SequenceCtl::Notify(std::int32_t dispid)
{
    // A sink may unadvise itself (or others) while being told: walk a copy.
    auto sinks = sinks_;
    for (auto& [cookie, sink] : sinks)
        if (sink && sinks_.count(cookie) != 0)
            sink(dispid);
}

void SequenceCtl::SetProperties(const ControlProperties& properties)
{
    properties_.cx = properties.cx;
    properties_.cy = properties.cy;
    properties_.file = properties.file;
    SetBackColor(properties.backColor);
    SetFillColor(properties.fillColor);
}

base::Status SequenceCtl::LoadBag(PropertyBag& bag)
{
    SetProperties(LUM_TRY(LoadFromBag(bag, properties_)));
    return {};
}

base::Status SequenceCtl::SaveBag(PropertyBag& bag) const
{
    return SaveToBag(properties_, bag);
}

base::Status SequenceCtl::LoadStream(std::span<const std::uint8_t> bytes)
{
    SetProperties(LUM_TRY(LoadFromStream(bytes)));
    return {};
}

std::vector<std::uint8_t> SequenceCtl::SaveStream() const
{
    return SaveToStream(properties_);
}

base::Status SequenceCtl::LoadStorage(const std::string& path)
{
    auto storage = LUM_TRY(platform::CompoundStorage::OpenFile(path));
    const auto bytes = LUM_TRY(storage->ReadStream(kStorageStreamName, kMaxFileBytes + 1024));
    return LoadStream(bytes);
}

base::Status SequenceCtl::SaveStorage(const std::string& path) const
{
    const auto bytes = LUM_TRY(platform::WriteCompoundFile(
        {platform::CompoundNode::Stream(std::string(kStorageStreamName), SaveStream())}));
    return platform::WriteWholeFile(path, bytes);
}

ControlState SequenceCtl::State() const
{
    if (window_ == 0)
        return ControlState::NoWindow;
    if (StopRequested())
        return ControlState::Stopped;
    return loaderReleased_ ? ControlState::Playing : ControlState::Created;
}

bool SequenceCtl::Ended() const
{
    return State() == ControlState::Stopped && player_ != nullptr && player_->ReachedEnd();
}

bool SequenceCtl::Downloading() const
{
    return download_ != nullptr && !download_->Finished();
}

int SequenceCtl::Create(const ControlSite& site)
{
    if (window_ != 0 || site.host == nullptr)
        return -1;
    site_ = site;
    host_ = site.host;
    platform::WindowRect rect = site.rect;
    if (rect.right <= rect.left || rect.bottom <= rect.top) {
        platform::WindowRect parent = host_->ScreenRect(site.parent);
        rect = {0, 0, parent.right - parent.left, parent.bottom - parent.top};
    }
    window_ = host_->CreateChild(site.parent, rect, [this](const platform::Message& m) { OnMessage(m); });
    if (window_ == 0)
        return -1;
    host_->AcceptRightClicks(window_);
    if (OnCreate() != 0) {
        host_->Destroy(window_);
        window_ = 0;
        host_ = nullptr;
        return -1;
    }
    return 0;
}

void SequenceCtl::Destroy()
{
    if (window_ == 0)
        return;
    OnDestroy();
    host_->Destroy(window_);
    window_ = 0;
    host_ = nullptr;
}

void SequenceCtl::OnMessage(const platform::Message& message)
{
    if (IsReflected(message.code))
        return; // Default processing.
    switch (message.code) {
    case platform::kMsgLButtonUp:
        return; // Default processing only.
    case platform::kMsgRButtonUp:
        OnContextMenu(message.lParam);
        return;
    case kMsgFilmStart:
        OnStartFilm();
        return;
    case platform::kMsgCommand:
        if ((message.wParam >> 16) == 0 && (message.wParam & 0xFFFF) == kCommandPlay)
            OnPlay();
        else if ((message.wParam >> 16) == 0 && (message.wParam & 0xFFFF) == kCommandStop)
            OnStop();
        return;
    case kMsgFilmData:
        DrainDownload();
        return;
    case kMsgFilmFailed: {
        std::string why;
        {
            std::lock_guard guard(loaderFailureLock_);
            why = std::move(loaderFailure_);
        }
        FilmFailed(std::move(why));
        return;
    }
    case kMsgFilmComplete:
        // Whatever the sender still has is past the film's end: end the transfer. Its last block will
        // then never come, but the film's last byte has arrived: that is the ready state.
        if (download_ && !downloadEnded_ && !download_->Finished()) {
            downloadEnded_ = true;
            download_->Abort();
            if (!readySent_) {
                readySent_ = true;
                Notify(kDispidReadyState);
            }
        }
        return;
    default:
        return; // Escape from the player among them: no effect of the control's own.
    }
}

int SequenceCtl::OnCreate()
{
    handlerLog_.push_back("OnCreate");
    const bool mmx = site_.hasMmx ? site_.hasMmx() : platform::HasMmx();
    if (!mmx) {
        platform::CurrentMessageSink().Show(nullptr, platform::kBoxOk, "", "MMX required");
        return -1;
    }
    platform::WindowRect rect = host_->ScreenRect(window_);
    int perInchX = 96, perInchY = 96;
    host_->PixelsPerInch(perInchX, perInchY);
    properties_.cx = ToHimetric(rect.right - rect.left, perInchX);
    properties_.cy = ToHimetric(rect.bottom - rect.top, perInchY);
    NewSession();
    StartSession();
    host_->Post(window_, kMsgFilmStart, 0, 0);
    return 0;
}

void SequenceCtl::NewSession()
{
    film_ = std::make_unique<film::Film>();
    receiver_ = std::make_unique<film::FilmReceiver>(site_.sound,
                                                     site_.timers ? *site_.timers : platform::SystemTimers());
    queue_ = std::make_unique<film::ChunkQueue>();
    flags_ = std::make_unique<film::OpeningFlags>();
    flags_->stopRequested = 0;
    loaderReleased_ = false;
    failure_.clear();
    readySent_ = false;
    {
        // A verdict the previous session's loader posted belongs to that session.
        std::lock_guard guard(loaderFailureLock_);
        loaderFailure_.clear();
    }
    // The loader's thread only posts; the handlers run here, on the control's thread.
    platform::WindowHost* host = host_;
    platform::WindowId window = window_;
    loaderEvents_.room = [host, window] { host->Post(window, kMsgFilmData); };
    loaderEvents_.complete = [host, window] { host->Post(window, kMsgFilmComplete); };
    loaderEvents_.failed = [this, host, window](const std::string& why) {
        {
            std::lock_guard guard(loaderFailureLock_);
            loaderFailure_ = why;
        }
        host->Post(window, kMsgFilmFailed);
    };
}

void SequenceCtl::StartSession()
{
    player_ = std::make_unique<playback::PlayerWindow>();
    player_->SetFrameFit(site_.frameFit);
    if (site_.clock != nullptr && site_.timers != nullptr)
        player_->SetTiming(*site_.clock, *site_.timers);
    player_->SetFramePeriod(site_.framePeriodMs);
    if (player_->Create(*host_, window_, film_.get(), 0, true) == 0)
        return; // No film loader without a player.
    handOver_ = playback::ItemHandOverOf(*player_, *host_);
    // Created "suspended": the thread waits for OnStartFilm (or the session's end) to release it.
    loaderStart_ = std::make_unique<platform::AutoResetEvent>();
    loaderThread_ = std::thread([this, reports = player_->Reports()] {
        loaderStart_->Wait(platform::kWaitForever);
        platform::SetCurrentThreadName("FilmLoader");
        // What the loader reports (a film of another version, narration damage) is shown on the
        // control's thread with the player's own reports, never in a box that holds the loader.
        platform::ThreadMessageSink reportsGo(reports);
        // Nothing may escape a thread: an exception ends the loading as a fatal error would.
        try {
            film::RunFilmLoader(*receiver_, *queue_, *film_, &handOver_, *flags_, &loaderEvents_);
        } catch (const std::exception& error) {
            loaderEvents_.failed(StrCat("internal error: ", error.what()));
        } catch (...) {
            loaderEvents_.failed("internal error");
        }
    });
}

void SequenceCtl::OnStartFilm()
{
    handlerLog_.push_back("OnStartFilm");
    std::string notStarted;
    if (site_.userMode) {
        download_.reset();
        downloadEnded_ = false;
        auto address = platform::ResolveAddress(site_.documentUrl, properties_.file);
        if (address.ok()) {
            platform::WindowHost* host = host_;
            platform::WindowId window = window_;
            auto download =
                platform::Download::Start(*address, [host, window] { host->Post(window, kMsgFilmData); });
            if (download.ok()) {
                download_ = std::move(*download);
                ++downloadsStarted_;
            } else {
                notStarted = download.error().message;
            }
        } else {
            notStarted = address.error().message;
        }
    }
    flags_->openerRunning = 1;
    loaderReleased_ = true;
    if (loaderStart_)
        loaderStart_->Set();
    if (!notStarted.empty())
        FilmFailed(std::move(notStarted)); // Last: a sink may act on it at once.
}

void SequenceCtl::FilmFailed(std::string why)
{
    if (!failure_.empty() || why.empty() || !flags_ || flags_->stopRequested != 0)
        return; // One verdict per session; none for a session stopped on purpose.
    platform::DebugTrace(StrCat("film cannot be completed: ", why, "\n"));
    failure_ = std::move(why);
    if (download_ && !downloadEnded_) {
        downloadEnded_ = true;
        download_->Abort();
    }
    Notify(kDispidFilmFailed);
}

void SequenceCtl::DrainDownload()
{
    if (!download_ || !queue_)
        return;
    // A failed transfer is told at once, even while its last blocks wait for room in the queue.
    if (!downloadEnded_ && download_->Finished())
        if (const base::Status outcome = download_->Outcome(); !outcome.ok())
            FilmFailed(outcome.error().message);
    {
        // Back-pressure: while the loader has enough to do, the blocks stay with the download, which
        // stops reading once it holds its own bound; the loader posts again when it has room.
        std::lock_guard guard(queue_->Lock());
        if (queue_->Bytes() >= film::kMaxQueuedBytes && flags_->stopRequested == 0)
            return;
    }
    // The transfer marks itself finished only after queueing its last block: once finished, one more
    // take gets everything, and the ended binding is released.
    const bool finished = download_->Finished();
    for (platform::DownloadBlock& block : download_->TakeBlocks())
        OnFilmData(block.bytes, block.last);
    if (finished) {
        const base::Status outcome = download_->Outcome();
        const bool ended = downloadEnded_;
        download_.reset();
        if (!outcome.ok() && !ended)
            FilmFailed(outcome.error().message);
    }
}

void SequenceCtl::OnFilmData(std::span<const std::uint8_t> bytes, bool last)
{
    if (!bytes.empty()) {
        if (flags_->stopRequested != 0) {
            download_->Abort();
        } else {
            std::lock_guard guard(queue_->Lock());
            queue_->Push(bytes);
            bytesQueued_ += bytes.size();
        }
    }
    if (last) {
        if (flags_->stopRequested == 0) {
            std::lock_guard guard(queue_->Lock());
            queue_->PushEndOfStream();
        }
        if (!readySent_) {
            readySent_ = true;
            Notify(kDispidReadyState);
        }
    }
}

void SequenceCtl::OnContextMenu(std::int64_t position)
{
    handlerLog_.push_back("OnContextMenu");
    const auto submenus = LoadMenuResource(kMenuContext);
    if (submenus.empty())
        return;
    const bool stopped = flags_->stopRequested != 0;
    std::vector<platform::MenuEntry> entries;
    for (const MenuItemResource& item : submenus[0].items) {
        const bool grayed =
            (item.command == kCommandPlay && !stopped) || (item.command == kCommandStop && stopped);
        entries.push_back({std::string(item.text), item.command, grayed});
    }
    // The position comes as client coordinates: x in the low word, y in the high word, both signed.
    const int x = static_cast<std::int16_t>(position & 0xFFFF);
    const int y = static_cast<std::int16_t>((position >> 16) & 0xFFFF);
    const platform::WindowRect rect = host_->ScreenRect(window_);
    host_->TrackPopupMenu(window_, std::move(entries), rect.left + x, rect.top + y);
}

void SequenceCtl::StopLoader()
{
    flags_->openerRunning = 0;
    if (loaderStart_)
        loaderStart_->Set(); // A thread never released must still see the end.
    if (loaderThread_.joinable())
        loaderThread_.join();
    loaderStart_.reset();
}

void SequenceCtl::OnStop()
{
    handlerLog_.push_back("OnStop");
    if (flags_->stopRequested == 1)
        return;
    flags_->stopRequested = 1;
    if (player_)
        player_->Stop();
    StopLoader();
    // The transfer may be waiting for room that the ended loader will never make.
    if (download_ && !downloadEnded_) {
        downloadEnded_ = true;
        download_->Abort();
    }
}

void SequenceCtl::FreeSession()
{
    if (player_) {
        player_->Destroy();
        player_.reset();
    }
    if (receiver_ && film_)
        film::DeleteTemporaryFiles(*receiver_, *film_);
    if (receiver_)
        if (auto held = receiver_->TakeHeldFilmFile())
            heldFilmFiles_.push_back(std::move(held));
    if (queue_) {
        std::lock_guard guard(queue_->Lock());
        queue_->Clear();
    }
    queue_.reset();
    receiver_.reset();
    film_.reset();
}

void SequenceCtl::OnPlay()
{
    handlerLog_.push_back("OnPlay");
    if (flags_->stopRequested != 1)
        return;
    // The previous transfer was aborted at its next block after Stop; release it for good.
    download_.reset();
    FreeSession();
    NewSession();
    StartSession();
    host_->Post(window_, kMsgFilmStart, 0, 0);
}

void SequenceCtl::OnDestroy()
{
    handlerLog_.push_back("OnDestroy");
    download_.reset();
    if (flags_->stopRequested == 0) {
        flags_->stopRequested = 1;
        if (player_)
            player_->Stop();
    }
    StopLoader();
    FreeSession();
    flags_.reset();
    loaderReleased_ = false;
}

} // namespace lumenar::control
