// `lumenar render`: plays a film on a clock that the renderer moves itself, as fast as the machine
// allows, and writes what the player shows (and the narration it plays) to a video, a GIF or frames.
#include "app/Commands.h"

#include "app/RenderOutput.h"
#include "base/StrCat.h"
#include "control/SequenceCtl.h"
#include "effects/EffectRegistry.h"
#include "platform/AnimationFile.h"
#include "platform/AudioOut.h"
#include "platform/Clock.h"
#include "platform/Path.h"
#include "platform/Process.h"
#include "platform/Timer.h"
#include "platform/VideoFile.h"
#include "platform/Window.h"
#include "playback/PlayerWindow.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace lumenar::app {

namespace {

namespace fs = std::filesystem;
using base::StrCat;
using namespace std::chrono_literals;

constexpr const char* kRenderHelp =
    "usage: lumenar render FILM|URL -o OUT [--fps N] [--size WxH] [--from S] [--to S] [--quality Q]\n"
    "                      [--seed S] [--no-media]\n"
    "\n"
    "Plays a film in the player on a clock of its own, as fast as the machine allows, and writes what\n"
    "the player shows, with the narration it plays, by the name of OUT:\n"
    "  OUT.mp4     H.264 video and AAC sound\n"
    "  OUT.webm    VP9 video and Opus sound\n"
    "  OUT.gif     an animated GIF, a palette for each frame, no sound\n"
    "  OUT/        (a name ending in '/', or an existing folder) PNG frames named NNNNNN-<ms>.png,\n"
    "              as 'lumenar play --dump' names them, ms counting from the start of the film\n"
    "A film at an http, https or file address is rendered while it downloads.\n"
    "\n"
    "  -o OUT          where to write (required); written under a temporary name and renamed at the\n"
    "                  end, so that an interrupted render leaves nothing under this name\n"
    "  --fps N         frames a second, 1 to 120. Default: the player's own pace, one frame for each\n"
    "                  picture it shows (a still picture is one frame however long it stays; a video\n"
    "                  then has a variable frame rate). A rate also makes transitions and text effects\n"
    "                  move at that rate\n"
    "  --size WxH      the player's size in pixels, 16 to 8192 each (default 800x600; even sizes for\n"
    "                  a video)\n"
    "  --from S        start at S seconds into the film (default 0)\n"
    "  --to S          end at S seconds into the film (default: where the film ends)\n"
    "  --quality Q     1 (smallest file) to 100 (best picture) for a video (default 75)\n"
    "  --seed S        the seed of the effects' random choices (default 1): the same film and options\n"
    "                  give the same frames on every run\n"
    "  --times         print where the time went: the player's (composing, effects, photos), the\n"
    "                  colour conversion's and the encoders' busy seconds, which overlap\n"
    "  --no-media      leave out music and clips; the player does not play those yet, so this\n"
    "                  changes nothing for now\n"
    "\n"
    "A film that advances by Page Down is rendered as if each page was turned after its item's time.\n"
    "Exit status: 0 when the whole film was written, 1 when the film cannot be completed or the output\n"
    "cannot be written (one line on stderr says why), 2 on bad arguments, 130 when interrupted.\n";

std::atomic<int> gInterrupted{0};
extern "C" void OnRenderInterrupt(int)
{
    gInterrupted.store(1);
}

bool HasScheme(const std::string& address)
{
    const std::size_t colon = address.find("://");
    return colon != std::string::npos && colon > 0 &&
           address.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-.") >=
               colon;
}

bool ParseSeconds(const std::string& text, std::uint64_t& ms)
{
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(seconds >= 0) || seconds > 24 * 3600)
        return false;
    ms = static_cast<std::uint64_t>(seconds * 1000 + 0.5);
    return true;
}

/// Where the output goes while it is written, and its final name.
struct OutputPlan
{
    enum class Kind
    {
        Frames,
        Gif,
        Video
    } kind = Kind::Frames;
    platform::VideoKind video = platform::VideoKind::Mp4;
    std::string finalPath;
    std::string workPath; // A hidden name beside the final one.
};

base::Result<OutputPlan> PlanOutput(const std::string& out)
{
    OutputPlan plan;
    std::error_code error;
    const bool folder = out.back() == '/' || fs::is_directory(out, error);
    std::string path = out;
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    const fs::path final(path);
    const fs::path parent = final.parent_path().empty() ? fs::path(".") : final.parent_path();
    if (!fs::is_directory(parent, error))
        return base::Error{base::ErrorCode::NotFound, "the folder to write into does not exist"};
    plan.finalPath = path;
    const std::string stem = StrCat(".", final.filename().string(), ".render-", platform::ProcessId());
    if (folder) {
        plan.kind = OutputPlan::Kind::Frames;
        plan.workPath = (parent / stem).string();
        return plan;
    }
    const std::string ext = platform::LowerExtension(path);
    if (auto video = platform::VideoKindOf(path)) {
        plan.kind = OutputPlan::Kind::Video;
        plan.video = *video;
    } else if (ext == "gif") {
        plan.kind = OutputPlan::Kind::Gif;
    } else {
        return base::Error{base::ErrorCode::Unsupported,
                           "not an output this writes (.mp4, .webm, .gif, or a folder ending in '/')"};
    }
    // The temporary name keeps the extension: the writers choose by it.
    plan.workPath = (parent / StrCat(stem, ".", ext)).string();
    return plan;
}

/// Moves the finished output to its final name: a file by renaming it, frames by moving each into the
/// final folder (which may exist and hold other files).
base::Status Publish(const OutputPlan& plan)
{
    std::error_code error;
    if (plan.kind != OutputPlan::Kind::Frames) {
        fs::rename(plan.workPath, plan.finalPath, error);
    } else {
        fs::create_directories(plan.finalPath, error);
        for (const auto& entry : fs::directory_iterator(plan.workPath, error)) {
            if (error)
                break;
            fs::rename(entry.path(), fs::path(plan.finalPath) / entry.path().filename(), error);
            if (error)
                break;
        }
        if (!error)
            fs::remove(plan.workPath, error);
    }
    if (error)
        return base::Error{base::ErrorCode::Io, StrCat("cannot be written: ", error.message())};
    return {};
}

/// A writer's message as the user reads it: about the output's own name, not the temporary one.
std::string ForUser(const OutputPlan& plan, std::string message)
{
    for (const std::string& prefix : {plan.workPath + ": ", plan.workPath}) {
        if (message.rfind(prefix, 0) == 0) {
            message.erase(0, prefix.size());
            break;
        }
    }
    return message;
}

void Discard(const OutputPlan& plan)
{
    std::error_code error;
    fs::remove_all(plan.workPath, error);
}

struct RenderOptions
{
    std::string film;
    std::string out;
    int fps = 0;
    int width = 800;
    int height = 600;
    std::uint64_t fromMs = 0;
    std::uint64_t toMs = 0;
    int quality = 75;
    std::uint32_t seed = 1;
    bool times = false;
};

/// The time an item holds the screen when the player paces it: transition, caption pass and dwell.
std::uint64_t ItemMs(const film::FilmItem& item)
{
    return std::uint64_t(std::max(item.displaySeconds, 0)) * 1000 +
           std::uint64_t(std::max(item.effectMs, 0)) + (item.texts.empty() ? 0 : 3000);
}

/// The progress line: items done of all, film seconds rendered, speed, time left.
class Progress
{
public:
    explicit Progress(bool shown) : shown_(shown), start_(std::chrono::steady_clock::now()) {}
    void Show(std::int32_t item, std::int32_t items, std::uint64_t filmMs, std::uint64_t totalMs)
    {
        if (!shown_)
            return;
        const auto now = std::chrono::steady_clock::now();
        if (now - last_ < 200ms)
            return;
        last_ = now;
        const double real = std::chrono::duration<double>(now - start_).count();
        const double speed = real > 0 ? filmMs / 1000.0 / real : 0;
        const double fraction = totalMs > 0 ? std::min(1.0, double(filmMs) / double(totalMs)) : 0;
        const int filled = static_cast<int>(fraction * 24);
        std::string bar(std::size_t(filled), '#');
        bar.resize(24, '-');
        const double left = speed > 0 && totalMs > filmMs ? (totalMs - filmMs) / 1000.0 / speed : 0;
        std::fprintf(stderr, "\r[%s] item %d/%d  %.1f s  %.1fx  %.0f s left ", bar.c_str(), std::max(item, 0),
                     std::max(items, 0), filmMs / 1000.0, speed, left);
        std::fflush(stderr);
        drawn_ = true;
    }
    void Clear()
    {
        if (drawn_)
            std::fprintf(stderr, "\r%*s\r", 72, "");
    }

private:
    bool shown_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point last_{};
};

int Render(const RenderOptions& options)
{
    // From before the output exists: Ctrl-C at any moment removes what was written.
    std::signal(SIGINT, OnRenderInterrupt);
    std::signal(SIGTERM, OnRenderInterrupt);
    auto plan = PlanOutput(options.out);
    if (!plan)
        return Fail(options.out, plan.error().message);

    // The output is opened first: an unwritable one fails before the film is fetched.
    std::unique_ptr<RenderOutput> output;
    if (plan->kind == OutputPlan::Kind::Frames) {
        std::error_code error;
        fs::create_directories(plan->workPath, error);
        if (error)
            return Fail(options.out, "cannot make the folder for the frames: " + error.message());
        output = MakePngFolderOutput(plan->workPath, options.width, options.height);
    } else if (plan->kind == OutputPlan::Kind::Gif) {
        auto gif = platform::OpenAnimationFile(plan->workPath, options.width, options.height, 100);
        if (!gif) {
            Discard(*plan);
            return Fail(options.out, ForUser(*plan, gif.error().message));
        }
        output = MakeAnimationOutput(std::move(*gif), options.width, options.height);
    } else {
        platform::VideoSettings settings;
        settings.width = options.width;
        settings.height = options.height;
        settings.framesPerSecond = options.fps;
        settings.quality = options.quality;
        auto video = platform::OpenVideoFile(plan->workPath, plan->video, settings);
        if (!video) {
            Discard(*plan);
            return Fail(options.out, ForUser(*plan, video.error().message));
        }
        output = MakeVideoOutput(std::move(*video));
    }

    platform::ManualClock clock;
    platform::ManualTimers timers(clock);
    platform::NullSoundDevice sound(clock);
    auto host = platform::WindowHost::Create(options.width, options.height, "lumenar render", true);
    RenderPipeline pipeline(std::move(output), options.fps, options.fromMs, options.toMs);
    // The player presents on its playback thread while the clock stands still, so the clock's time is
    // the frame's time.
    host->SetFrameSink([&](std::uint64_t, const std::vector<std::uint8_t>& topDown, int, int) {
        pipeline.Picture(clock.NowMs(), topDown);
    });

    // Effects that draw random choices draw the same ones on every run.
    effects::EffectRegistry::FixSeed(options.seed);
    control::SequenceCtl control;
    control.SetFile(options.film);
    bool failed = false;
    (void)control.Advise([&failed](std::int32_t dispid) {
        if (dispid == control::kDispidFilmFailed)
            failed = true;
    });
    std::error_code ignored;
    control::ControlSite site;
    site.host = host.get();
    site.documentUrl = "file://" + fs::current_path(ignored).string() + "/";
    site.sound = &sound;
    site.timers = &timers;
    site.clock = &clock;
    site.framePeriodMs = options.fps > 0 ? static_cast<std::uint32_t>(1000 / options.fps) : 0;
    if (control.Create(site) != 0) {
        (void)pipeline.Finish(0);
        Discard(*plan);
        return Fail(options.film, "the player could not start");
    }

    Progress progress(platform::StandardErrorIsTerminal());
    std::uint64_t totalMs = 0;
    std::int32_t itemsCounted = -1;
    std::int32_t pagedAt = 0; // The item a Page Down was last pressed for.
    // When the item on screen of a Page Down film has had its time; none: kNever.
    constexpr std::uint64_t kNever = UINT64_MAX;
    std::uint64_t page = kNever;
    std::int32_t stepsSeen = 0;
    std::uint64_t soundFrom = 0; // Where the sound not yet taken starts.
    int parked = 0;
    const auto started = std::chrono::steady_clock::now();
    double playerSeconds = 0; // Wall time while the player worked and the clock stood.
    bool busy = false;
    auto busySince = started;
    std::string failure;
    for (;;) {
        host->Pump(0);
        if (gInterrupted.load() != 0)
            break;
        if (failed) {
            failure = control.Failure().empty() ? "the film cannot be completed" : control.Failure();
            break;
        }
        if (pipeline.Failure())
            break; // The output cannot be written: Finish returns why.
        const control::ControlState state = control.State();
        playback::PlayerWindow* player = control.Player();
        if (state != control::ControlState::Playing && state != control::ControlState::Created)
            break; // The film has ended.
        // The clock moves only while every thread has done what it does at this instant: the player
        // waits on the clock or for a step, seen so three times with the messages pumped in between.
        const std::uint64_t now = clock.NowMs();
        const auto wait = clock.EarliestWait();
        const bool still = player == nullptr || player->Idle() || (wait && *wait > now);
        if (!still && !busy) {
            busy = true;
            busySince = std::chrono::steady_clock::now();
        } else if (still && busy) {
            busy = false;
            playerSeconds +=
                std::chrono::duration<double>(std::chrono::steady_clock::now() - busySince).count();
        }
        if (!still || ++parked < 3) {
            if (!still) {
                parked = 0;
                std::this_thread::sleep_for(50us);
            }
            continue;
        }
        parked = 0;
        if (player != nullptr) {
            playback::PlaybackState& playing = player->State();
            const std::int32_t count = playing.ItemCount();
            const std::int32_t next = player->CurrentNumber() + 1;
            if (count != itemsCounted && count > 0) {
                itemsCounted = count;
                totalMs = 0;
                for (std::int32_t i = 1; i <= count; ++i)
                    totalMs += ItemMs(playing.Item(i));
            }
            progress.Show(player->CurrentNumber(), count, now, totalMs);
            // The film arrives at the network's pace and the clock does not run ahead of it: nothing
            // moves before the film has named its items (a film that names none ends once its download
            // has), and between steps the next step may not fall due before the loader has tried the
            // next photo.
            const bool unnamed = count < 0 || (count == 0 && control.Downloading());
            if (unnamed || (player->Idle() && next <= count && playing.attemptedIndex.load() < next)) {
                std::this_thread::sleep_for(200us);
                continue;
            }
            // A film that advances by Page Down gets its pages turned after each item's time.
            const std::int32_t steps = player->StepsDone();
            if (steps != stepsSeen) {
                stepsSeen = steps;
                std::lock_guard guard(playing.filmLock);
                if (playing.film != nullptr && playing.film->GetAdvanceMode() == film::kAdvanceManual)
                    page = now +
                           std::max<std::uint64_t>(ItemMs(playing.film->GetItem(player->CurrentNumber())), 1);
            }
            if (page != kNever && now >= page && player->Idle() && pagedAt != player->CurrentNumber()) {
                pagedAt = player->CurrentNumber();
                page = kNever;
                host->Post(player->Window(), platform::kMsgKeyDown, platform::kKeyPageDown);
                continue;
            }
        }
        if (options.toMs != 0 && now >= options.toMs)
            break;
        std::uint64_t target = options.toMs != 0 ? options.toMs : kNever;
        if (wait)
            target = std::min(target, *wait);
        if (const auto due = timers.NextDue())
            target = std::min(target, *due);
        target = std::min(target, page);
        if (target == kNever) {
            // Nothing will ever happen on the clock: the player waits for data that will not come.
            std::this_thread::sleep_for(1ms);
            continue;
        }
        timers.Advance(std::max<std::uint64_t>(target, now + 1) - now);
        platform::WaveFormat format;
        std::vector<std::uint8_t> pcm = sound.TakeTimeline(clock.NowMs(), format);
        if (!pcm.empty()) {
            pipeline.Sound(soundFrom, std::move(pcm), format);
            soundFrom = clock.NowMs();
        }
    }
    progress.Clear();
    const std::uint64_t endMs = clock.NowMs();
    const bool interrupted = gInterrupted.load() != 0;
    control.Destroy();
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    if (!interrupted && failure.empty()) {
        platform::WaveFormat format;
        std::vector<std::uint8_t> pcm = sound.TakeTimeline(endMs, format);
        if (!pcm.empty())
            pipeline.Sound(soundFrom, std::move(pcm), format);
    }
    base::Status written = pipeline.Finish(endMs);
    if (interrupted) {
        Discard(*plan);
        std::fprintf(stderr, "lumenar: %s: interrupted; nothing written\n", options.out.c_str());
        return 130;
    }
    if (!failure.empty()) {
        Discard(*plan);
        std::fprintf(stderr, "lumenar: %s: %s\n", options.film.c_str(), failure.c_str());
        return 1;
    }
    if (options.times) {
        const double total =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        const platform::VideoTimings spent = pipeline.Timings();
        std::fprintf(stderr, "times film=%.3f total=%.3f speed=%.2f player=%.3f convert=%.3f encode=%.3f\n",
                     endMs / 1000.0, total, total > 0 ? endMs / 1000.0 / total : 0.0, playerSeconds,
                     spent.convert, spent.encode);
    }
    if (written.ok())
        written = Publish(*plan);
    if (!written.ok()) {
        Discard(*plan);
        std::fprintf(stderr, "lumenar: %s: %s\n", options.out.c_str(),
                     ForUser(*plan, written.error().message).c_str());
        return 1;
    }
    return 0;
}

} // namespace

int RenderCommand(Args args)
{
    RenderOptions options;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        const bool hasValue = i + 1 < args.size();
        long long value = 0;
        if (arg == "--help" || arg == "-h") {
            std::fputs(kRenderHelp, stdout);
            return 0;
        }
        if (arg == "-o") {
            if (!hasValue || args[i + 1].empty())
                return Fail(arg, "needs an output (OUT.mp4, OUT.webm, OUT.gif or a folder OUT/)");
            options.out = args[++i];
        } else if (arg == "--fps") {
            if (!hasValue || !ParseInt(args[++i], 1, 120, value))
                return Fail(hasValue ? args[i] : arg, "not a frame rate (1 to 120 frames a second)");
            options.fps = static_cast<int>(value);
        } else if (arg == "--size") {
            if (!hasValue || !ParseSize(args[++i], 16, 8192, options.width, options.height))
                return Fail(hasValue ? args[i] : arg, "not a size (WxH, 16 to 8192 each)");
        } else if (arg == "--from" || arg == "--to") {
            std::uint64_t& ms = arg == "--from" ? options.fromMs : options.toMs;
            if (!hasValue || !ParseSeconds(args[++i], ms))
                return Fail(hasValue ? args[i] : arg, "not a time (seconds, 0 to 86400)");
        } else if (arg == "--quality") {
            if (!hasValue || !ParseInt(args[++i], 1, 100, value))
                return Fail(hasValue ? args[i] : arg, "not a quality (1 to 100)");
            options.quality = static_cast<int>(value);
        } else if (arg == "--seed") {
            if (!hasValue || !ParseInt(args[++i], 0, UINT32_MAX, value))
                return Fail(hasValue ? args[i] : arg, "not a seed (0 to 4294967295)");
            options.seed = static_cast<std::uint32_t>(value);
        } else if (arg == "--times") {
            options.times = true;
        } else if (arg == "--no-media") {
            // Music and clips are not played by the player yet: there is nothing to leave out.
        } else if (!arg.empty() && arg[0] == '-') {
            return Fail(arg, "unknown option (try 'lumenar render --help')");
        } else if (options.film.empty()) {
            options.film = arg;
        } else {
            return Fail(arg, "only one film can be rendered");
        }
    }
    if (options.film.empty())
        return Fail("render", "no film given (try 'lumenar render --help')");
    if (options.out.empty())
        return Fail("render", "no output given (-o OUT.mp4, OUT.webm, OUT.gif or OUT/)");
    if (options.toMs != 0 && options.toMs <= options.fromMs)
        return Fail("--to", "must be later than --from");
    if (!HasScheme(options.film) && !fs::is_regular_file(options.film))
        return Fail(options.film, "cannot open the film");
    return Render(options);
}

} // namespace lumenar::app
