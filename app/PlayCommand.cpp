// `lumenar play`: a host application for the player control. It loads the control the way any host
// does, through the shared library's class factory, places it in a window and pumps its messages.
#include "app/Commands.h"

#include "app/PlayFolder.h"
#include "app/ViewerKeys.h"

#include "lumenar/lumenar.h"
#include "platform/ImageFile.h"
#include "platform/SharedLibrary.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace lumenar::app {

namespace {

constexpr const char* kPlayHelp =
    "usage: lumenar play FILM|URL|DIR [--back-color C] [--fill-color C] [--size WxH] [--fullscreen]\n"
    "                        [--loop] [--headless] [--dump DIR] [--seconds N] [--press KEY@MS,...]\n"
    "\n"
    "Plays a film stream from a file or an http, https or file address in the player control, loaded\n"
    "from liblumenar.so as any host loads it. The film starts while it is still arriving, and the\n"
    "picture fills the window at the window's own resolution. Right-click the picture for Play and Stop.\n"
    "A folder plays its photos as 'lumenar pack --photos DIR' packs them (five seconds each).\n"
    "\n"
    "  --back-color C, --fill-color C   the control's colours (0xBBGGRR or decimal)\n"
    "  --size WxH                       the window's size in pixels (default 800x600)\n"
    "  --fullscreen                     play full screen, drawn at the screen's resolution\n"
    "  --loop                           play the film again from the start each time it ends\n"
    "  --press KEY@MS,...               press keys as a viewer would, each MS milliseconds after the\n"
    "                                   window opens (KEY: space, right, pageup, f11, q, ctrl+q...)\n"
    "  --headless                       play without a window (also the case when there is no display)\n"
    "  --dump DIR                       write every presented frame as DIR/NNNNNN-<ms>.png, where ms\n"
    "                                   counts from the window's creation\n"
    "  --seconds N                      close after N seconds (otherwise: when the window is closed,\n"
    "                                   the film has ended, or on Ctrl-C)\n"
    "\n"
    "\n"
    "%s"
    "\n"
    "The control is loaded from $LUMENAR_LIBRARY, or else from liblumenar.so next to this program.\n"
    "Exit status: 0 when the film played, 1 when the film cannot be completed (the address cannot be\n"
    "downloaded, the stream is not a film or ends early, the film is of another version...: one line\n"
    "on stderr says why, and the program ends at once), 2 on bad arguments, a missing film or a\n"
    "control that cannot be loaded.\n";

// Writes presented frames to PNG files on a thread of its own, so that the playback thread that
// presents them is not held up by the encoder.
class FrameDumper
{
public:
    explicit FrameDumper(std::string folder) : folder_(std::move(folder)), writer_([this] { Run(); }) {}
    ~FrameDumper() { Finish(); }

    static void Sink(void* context, std::uint64_t ms, const std::uint8_t* bgrx, std::int32_t width,
                     std::int32_t height)
    {
        static_cast<FrameDumper*>(context)->Take(ms, bgrx, width, height);
    }

    /// Writes what is queued and ends the writer. Returns the number of frames written, or -1 after a
    /// failed write.
    long Finish()
    {
        {
            std::lock_guard guard(lock_);
            done_ = true;
        }
        changed_.notify_all();
        if (writer_.joinable())
            writer_.join();
        return failed_ ? -1 : written_;
    }
    const std::string& Failure() const { return failure_; }

private:
    struct Frame
    {
        std::uint64_t ms;
        long number;
        platform::BgrxPicture picture;
    };

    void Take(std::uint64_t ms, const std::uint8_t* bgrx, int width, int height)
    {
        if (width <= 0 || height <= 0)
            return;
        Frame frame{ms, 0, {width, height, {}}};
        const std::size_t row = std::size_t(width) * 4;
        frame.picture.pixels.resize(row * std::size_t(height));
        // The sink hands rows top first; the picture holds them bottom first.
        for (int y = 0; y < height; ++y)
            std::memcpy(frame.picture.pixels.data() + std::size_t(height - 1 - y) * row,
                        bgrx + std::size_t(y) * row, row);
        {
            std::lock_guard guard(lock_);
            frame.number = taken_++;
            queue_.push_back(std::move(frame));
        }
        changed_.notify_all();
    }

    void Run()
    {
        for (;;) {
            Frame frame;
            {
                std::unique_lock guard(lock_);
                changed_.wait(guard, [this] { return done_ || !queue_.empty(); });
                if (queue_.empty())
                    return;
                frame = std::move(queue_.front());
                queue_.pop_front();
            }
            if (failed_)
                continue;
            char name[64];
            std::snprintf(name, sizeof name, "/%06ld-%llu.png", frame.number,
                          static_cast<unsigned long long>(frame.ms));
            const std::string path = folder_ + name;
            if (base::Status written = platform::WriteImageFile(path, frame.picture); !written) {
                failed_ = true;
                failure_ = written.error().message;
                continue;
            }
            ++written_;
        }
    }

    std::string folder_;
    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<Frame> queue_;
    long taken_ = 0;
    bool done_ = false;
    long written_ = 0; // Writer thread; read after the join.
    bool failed_ = false;
    std::string failure_;
    std::thread writer_;
};

// Ctrl-C and a polite kill end the film the way closing the window does, so that the control
// stops its threads and removes its temporary folder.
std::atomic<int> gInterrupted{0};
extern "C" void OnInterrupt(int)
{
    gInterrupted.store(1);
}

bool ParseColour(const std::string& text, std::uint32_t& out)
{
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(text.c_str(), &end, 0);
    if (text.empty() || text[0] == '-' || *end != '\0' || errno != 0 || value > 0xFFFFFFFFull)
        return false;
    out = static_cast<std::uint32_t>(value);
    return true;
}

bool HasScheme(const std::string& address)
{
    const std::size_t colon = address.find("://");
    return colon != std::string::npos && colon > 0 &&
           address.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-.") >=
               colon;
}

// A local film is checked before the control gets it: a file that holds no film marker would
// otherwise play nothing, silently, for ever.
std::string CheckLocalFilm(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return "cannot open the film";
    static constexpr char kMarker[] = "VistrelanFilmDescription";
    constexpr std::size_t kLength = sizeof kMarker - 1;
    std::vector<char> buffer(1 << 16);
    std::string carry;
    while (in) {
        in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        const std::string chunk = carry + std::string(buffer.data(), static_cast<std::size_t>(in.gcount()));
        if (chunk.find(kMarker, 0, kLength) != std::string::npos)
            return {};
        carry = chunk.size() >= kLength ? chunk.substr(chunk.size() - (kLength - 1)) : chunk;
    }
    return "not a film stream (no film marker in it)";
}

std::string FindControlLibrary()
{
    if (const char* chosen = std::getenv("LUMENAR_LIBRARY"); chosen != nullptr && *chosen != '\0')
        return chosen;
    // The build puts the library next to the program, and so does an installation.
    return platform::ProgramFolder() + "liblumenar.so";
}

const char* ResultText(LumResult result)
{
    switch (result) {
    case LUM_E_INVALIDARG:
        return "invalid argument";
    case LUM_E_NOINTERFACE:
        return "no such interface";
    case LUM_E_CLASSNOTAVAILABLE:
        return "no such class";
    case LUM_E_WRONGSTATE:
        return "wrong state";
    case LUM_E_NOTBUILT:
        return "not built yet";
    default:
        return "failed";
    }
}

// Set by the control's change sink (on the pumping thread) when the film cannot be completed.
extern "C" void OnControlChange(void* context, std::int32_t dispid)
{
    if (dispid == LUM_DISPID_FILMFAILED)
        *static_cast<bool*>(context) = true;
}

// The viewer's keys, seen before the control sees them (on the pumping thread).
struct Viewer
{
    LumSequenceCtl* control = nullptr;
    ViewerKeys keys;
    bool quit = false;
};

extern "C" int32_t OnViewerKey(void* context, int32_t key, uint32_t modifiers)
{
    auto& viewer = *static_cast<Viewer*>(context);
    const ViewerAction action = viewer.keys.Take(key, modifiers);
    switch (action.kind) {
    case ViewerAction::Kind::Quit:
        viewer.quit = true;
        return 1;
    case ViewerAction::Kind::ToggleFullscreen:
        viewer.control->vtbl->SetFullscreen(viewer.control,
                                            viewer.control->vtbl->IsFullscreen(viewer.control) ? 0 : 1);
        return 1;
    case ViewerAction::Kind::Send:
        viewer.control->vtbl->SendKey(viewer.control, action.key, 0);
        return 1;
    case ViewerAction::Kind::Pass:
        break;
    }
    return 0;
}

struct Press
{
    long long ms;
    NamedKey key;
};

// "space@1500,q@3000" in time order.
bool ParsePresses(const std::string& text, std::vector<Press>& out)
{
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t end = std::min(text.find(',', start), text.size());
        const std::string one = text.substr(start, end - start);
        const std::size_t at = one.rfind('@');
        long long ms = 0;
        const auto key = at == std::string::npos ? std::nullopt : ParseKeyName(one.substr(0, at));
        if (!key || !ParseInt(one.substr(at + 1), 0, 24LL * 3600 * 1000, ms))
            return false;
        out.push_back({ms, *key});
        start = end + 1;
    }
    std::stable_sort(out.begin(), out.end(), [](const Press& a, const Press& b) { return a.ms < b.ms; });
    return !out.empty();
}

// Releases a control (and with it its window) on every way out.
struct ControlReference
{
    LumSequenceCtl* control = nullptr;
    ~ControlReference()
    {
        if (control != nullptr)
            control->vtbl->Release(control);
    }
};

} // namespace

int PlayCommand(Args args)
{
    std::string film;
    std::string dumpFolder;
    std::uint32_t backColour = 0, fillColour = 0;
    bool hasBack = false, hasFill = false, headless = false, fullscreen = false, loop = false;
    std::vector<Press> presses;
    int width = 800, height = 600;
    long long seconds = 0;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        const bool hasValue = i + 1 < args.size();
        if (arg == "--help" || arg == "-h") {
            std::printf(kPlayHelp, kViewerKeysHelp);
            return 0;
        }
        if (arg == "--headless") {
            headless = true;
        } else if (arg == "--fullscreen") {
            fullscreen = true;
        } else if (arg == "--loop") {
            loop = true;
        } else if (arg == "--press") {
            if (!hasValue || !ParsePresses(args[++i], presses))
                return Fail(hasValue ? args[i] : arg,
                            "not key presses (KEY@MS,... such as space@1500,q@3000)");
        } else if (arg == "--back-color" || arg == "--fill-color") {
            if (!hasValue)
                return Fail(arg, "needs a colour (0xBBGGRR)");
            std::uint32_t& target = arg == "--back-color" ? backColour : fillColour;
            if (!ParseColour(args[++i], target))
                return Fail(args[i], "not a colour (0xBBGGRR or a decimal number)");
            (arg == "--back-color" ? hasBack : hasFill) = true;
        } else if (arg == "--size") {
            if (!hasValue || !ParseSize(args[++i], 16, 8192, width, height))
                return Fail(hasValue ? args[i] : arg, "not a size (WxH, 16 to 8192 each)");
        } else if (arg == "--dump") {
            if (!hasValue)
                return Fail(arg, "needs a folder");
            dumpFolder = args[++i];
        } else if (arg == "--seconds") {
            if (!hasValue || !ParseInt(args[++i], 1, 24 * 3600, seconds))
                return Fail(hasValue ? args[i] : arg, "not a number of seconds (1 to 86400)");
        } else if (!arg.empty() && arg[0] == '-') {
            return Fail(arg, "unknown option (try 'lumenar play --help')");
        } else if (film.empty()) {
            film = arg;
        } else {
            return Fail(arg, "only one film can be played");
        }
    }
    if (film.empty())
        return Fail("play", "no film given (try 'lumenar play --help')");
    FolderFilmFile folderFilm; // Removed on every way out.
    if (IsFolder(film)) {
        auto packed = FolderFilmFile::Pack(film);
        if (!packed.ok())
            return Fail(film, packed.error().message);
        folderFilm = std::move(*packed);
        film = folderFilm.Path();
    }
    if (!HasScheme(film)) {
        if (std::string problem = CheckLocalFilm(film); !problem.empty())
            return Fail(film, problem);
    }
    if (!dumpFolder.empty()) {
        std::error_code error;
        std::filesystem::create_directories(dumpFolder, error);
        if (error || !std::filesystem::is_directory(dumpFolder))
            return Fail(dumpFolder, "cannot make the folder for the frames");
    }

    const std::string libraryPath = FindControlLibrary();
    auto library = platform::SharedLibrary::Open(libraryPath);
    if (!library)
        return Fail(libraryPath, library.error().message);
    auto getClassObject = reinterpret_cast<LumDllGetClassObjectFn>((*library)->Find("DllGetClassObject"));
    auto canUnloadNow = reinterpret_cast<LumDllFn>((*library)->Find("DllCanUnloadNow"));
    if (getClassObject == nullptr || canUnloadNow == nullptr)
        return Fail(libraryPath, "not the player control's library (DllGetClassObject is missing)");

    const LumGuid classId = LUM_CLSID_SEQUENCECTL;
    const LumGuid factoryId = LUM_IID_ICLASSFACTORY;
    const LumGuid controlId = LUM_IID_ISEQUENCECTL;
    LumClassFactory* factory = nullptr;
    if (LumResult r = getClassObject(&classId, &factoryId, reinterpret_cast<void**>(&factory)); r != LUM_S_OK)
        return Fail(libraryPath, std::string("the control's class factory: ") + ResultText(r));
    ControlReference control;
    const LumResult created =
        factory->vtbl->CreateInstance(factory, &controlId, reinterpret_cast<void**>(&control.control));
    factory->vtbl->Release(factory);
    if (created != LUM_S_OK)
        return Fail(libraryPath, std::string("the control: ") + ResultText(created));
    LumSequenceCtl* ctl = control.control;

    if (hasBack)
        ctl->vtbl->SetBackColor(ctl, backColour);
    if (hasFill)
        ctl->vtbl->SetFillColor(ctl, fillColour);
    ctl->vtbl->SetFile(ctl, film.c_str());
    // A viewer wants the picture as large as the window, and the keys of a picture viewer.
    ctl->vtbl->SetHostOptions(ctl, LUM_HOST_FRAME_FILLS_WINDOW);
    ctl->vtbl->SetFullscreen(ctl, fullscreen ? 1 : 0);
    Viewer viewer;
    viewer.control = ctl;
    ctl->vtbl->SetKeyFilter(ctl, &OnViewerKey, &viewer);

    bool filmFailed = false;
    std::uint32_t cookie = 0;
    ctl->vtbl->Advise(ctl, &OnControlChange, &filmFailed, &cookie);

    std::unique_ptr<FrameDumper> dumper;
    if (!dumpFolder.empty()) {
        dumper = std::make_unique<FrameDumper>(dumpFolder);
        ctl->vtbl->SetFrameSink(ctl, &FrameDumper::Sink, dumper.get());
    }

    // Relative film names are relative to where the user stands, as the host document's address.
    std::error_code ignored;
    const std::string document = "file://" + std::filesystem::current_path(ignored).string() + "/";
    const std::string title = "Lumenar - " + film;
    LumSite site{};
    site.size = sizeof site;
    site.kind = headless ? LUM_WINDOW_HEADLESS : LUM_WINDOW_OWN;
    site.width = width;
    site.height = height;
    site.title = title.c_str();
    site.documentUrl = document.c_str();
    site.userMode = 1;
    if (LumResult r = ctl->vtbl->CreateWindow(ctl, &site); r != LUM_S_OK)
        return Fail(film, std::string("the player could not open its window: ") + ResultText(r));

    const auto start = std::chrono::steady_clock::now();
    const auto limit = std::chrono::seconds(seconds);
    std::signal(SIGINT, OnInterrupt);
    std::signal(SIGTERM, OnInterrupt);
    std::string failure;
    std::size_t nextPress = 0;
    while (ctl->vtbl->Pump(ctl, 20) == LUM_S_OK && gInterrupted.load() == 0 && !viewer.quit) {
        const auto elapsedMs =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
                .count();
        for (; nextPress < presses.size() && presses[nextPress].ms <= elapsedMs; ++nextPress)
            ctl->vtbl->SendKey(ctl, presses[nextPress].key.key, presses[nextPress].key.modifiers);
        if (filmFailed) {
            std::size_t needed = 0;
            ctl->vtbl->GetFailure(ctl, nullptr, 0, &needed);
            std::string text(needed, '\0');
            if (ctl->vtbl->GetFailure(ctl, text.data(), text.size(), &needed) == LUM_S_OK)
                failure = text.c_str();
            if (failure.empty())
                failure = "the film cannot be completed";
            break;
        }
        if (seconds > 0 && std::chrono::steady_clock::now() - start >= limit)
            break;
        if (ctl->vtbl->IsPlaying(ctl) == 0) {
            if (loop && ctl->vtbl->HasEnded(ctl) == 1) {
                ctl->vtbl->SendCommand(ctl, LUM_COMMAND_PLAY);
                continue;
            }
            break; // The film ended, or the viewer chose Stop.
        }
    }
    ctl->vtbl->SetFrameSink(ctl, nullptr, nullptr);
    ctl->vtbl->SetKeyFilter(ctl, nullptr, nullptr);
    ctl->vtbl->DestroyWindow(ctl);
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    ctl->vtbl->Release(ctl);
    control.control = nullptr;
    int status = 0;
    if (!failure.empty()) {
        std::fprintf(stderr, "lumenar: %s: %s\n", film.c_str(), failure.c_str());
        status = 1;
    }
    if (dumper) {
        const long written = dumper->Finish();
        if (written < 0)
            status = Fail(dumpFolder, "a frame could not be written: " + dumper->Failure());
        else if (failure.empty())
            std::fprintf(stderr, "lumenar: %ld frames written to %s\n", written, dumpFolder.c_str());
    }
    if (canUnloadNow() != LUM_S_OK)
        std::fprintf(stderr, "lumenar: the control's library still has live objects at exit\n");
    return status;
}

} // namespace lumenar::app
