// The in-process server: the four exports of liblumenar.so and the C function tables behind them.
#include "lumenar/lumenar.h"

#include "base/StrCat.h"
#include "control/Registration.h"
#include "control/SequenceCtl.h"
#include "platform/AudioOut.h"
#include "platform/CorruptPhotoPolicy.h"
#include "platform/Process.h"
#include "platform/Window.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <tuple>

#define LUM_EXPORT extern "C" __attribute__((visibility("default")))

namespace lumenar::control {
namespace {

// Live objects and factories, and server locks: the library may be unloaded when both are 0.
std::atomic<int> liveObjects{0};
std::atomic<int> serverLocks{0};

bool SameGuid(const LumGuid* a, const LumGuid& b)
{
    return a != nullptr && std::memcmp(a, &b, sizeof b) == 0;
}

const LumGuid kClsid = LUM_CLSID_SEQUENCECTL;
const LumGuid kIidControl = LUM_IID_ISEQUENCECTL;
const LumGuid kIidFactory = LUM_IID_ICLASSFACTORY;

LumResult CopyText(const std::string& text, char* buffer, std::size_t capacity, std::size_t* needed)
{
    if (needed != nullptr)
        *needed = text.size() + 1;
    if (buffer == nullptr || capacity < text.size() + 1)
        return LUM_E_BUFFERTOOSMALL;
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return LUM_S_OK;
}

/// The host's C property bag seen as ours.
class CBag final : public PropertyBag
{
public:
    explicit CBag(const LumPropertyBag& bag) : bag_(bag) {}
    std::optional<std::string> Read(std::string_view name) override
    {
        if (bag_.Read == nullptr)
            return std::nullopt;
        const std::string key(name);
        std::string value(256, '\0');
        std::size_t needed = 0;
        LumResult result = bag_.Read(bag_.context, key.c_str(), value.data(), value.size(), &needed);
        if (result == LUM_E_BUFFERTOOSMALL && needed > value.size()) {
            // A value past the cap is refused by the loader anyway: hand it one byte too many.
            if (needed > kMaxFileBytes + 1)
                return std::string(kMaxFileBytes + 1, ' ');
            value.assign(needed, '\0');
            result = bag_.Read(bag_.context, key.c_str(), value.data(), value.size(), &needed);
        }
        if (result != LUM_S_OK)
            return std::nullopt;
        value.resize(std::strlen(value.c_str()));
        return value;
    }
    base::Status Write(std::string_view name, std::string_view value) override
    {
        if (bag_.Write == nullptr)
            return base::Error{base::ErrorCode::InvalidInput, "the property bag cannot be written"};
        const std::string key(name), text(value);
        if (bag_.Write(bag_.context, key.c_str(), text.c_str()) != LUM_S_OK)
            return base::Error{base::ErrorCode::Io, base::StrCat("the property bag refused ", key)};
        return {};
    }

private:
    const LumPropertyBag& bag_;
};

struct ControlObject
{
    std::atomic<std::uint32_t> refs{1};
    // Declared before the control, so that the control (and its threads) goes first.
    std::unique_ptr<platform::SoundDevice> sound;
    std::unique_ptr<platform::WindowHost> host;
    SequenceCtl control;
    std::mutex sinkLock; // Guards frameSink and frameContext (read by presenting threads).
    LumFrameSink frameSink = nullptr;
    void* frameContext = nullptr;
    std::uint32_t hostOptions = 0;
    bool fullscreenWish = false;
    bool ownWindow = false; // The window is the library's own (LUM_WINDOW_OWN), so it may go full screen.
    LumKeyFilter keyFilter = nullptr; // Control's thread only, as the filter runs there.
    void* keyContext = nullptr;

    void DestroyWindow()
    {
        control.Destroy();
        host.reset();
        sound.reset();
    }
};

/// The C view of a control: a function table and our object.
struct ControlHandle
{
    LumSequenceCtl iface;
    ControlObject* object;
};
static_assert(std::is_standard_layout_v<ControlHandle>);

ControlObject& Object(LumSequenceCtl* self)
{
    return *reinterpret_cast<ControlHandle*>(self)->object;
}

void ReportEscaped(const char* where, const char* what)
{
    std::fprintf(stderr, "lumenar: %s: internal error: %s\n", where, what);
}

/// `Fn` as the host may call it: an exception that escapes it is reported on stderr and becomes the
/// function's failure result `Failed`, so that none crosses into a host written in C.
template <auto Fn, auto Failed> struct Guarded;
template <typename R, typename... A, R (*Fn)(A...), auto Failed> struct Guarded<Fn, Failed>
{
    static R Call(A... args) noexcept
    {
        try {
            return Fn(args...);
        } catch (const std::exception& error) {
            ReportEscaped("the player control", error.what());
        } catch (...) {
            ReportEscaped("the player control", "an unknown exception");
        }
        return static_cast<R>(Failed);
    }
};
template <auto Fn> constexpr auto kSafe = &Guarded<Fn, LUM_E_FAIL>::Call;
template <auto Fn> constexpr auto kSafeZero = &Guarded<Fn, 0>::Call;

LumResult Report(const base::Status& status)
{
    if (status.ok())
        return LUM_S_OK;
    std::fprintf(stderr, "lumenar: %s\n", status.error().message.c_str());
    return LUM_E_FAIL;
}

uint32_t ControlAddRef(LumSequenceCtl* self)
{
    return ++Object(self).refs;
}

uint32_t ControlRelease(LumSequenceCtl* self)
{
    auto* handle = reinterpret_cast<ControlHandle*>(self);
    const std::uint32_t left = --handle->object->refs;
    if (left == 0) {
        handle->object->DestroyWindow();
        std::unique_ptr<ControlObject> object(handle->object);
        std::unique_ptr<ControlHandle> owned(handle);
        --liveObjects;
    }
    return left;
}

LumResult ControlCreateWindow(LumSequenceCtl* self, const LumSite* site)
{
    if (site == nullptr || site->size < sizeof(LumSite))
        return LUM_E_INVALIDARG;
    ControlObject& object = Object(self);
    if (object.host)
        return LUM_E_WRONGSTATE;
    int width = site->width > 0 ? site->width : 800;
    int height = site->height > 0 ? site->height : 600;
    object.ownWindow = site->kind == LUM_WINDOW_OWN;
    switch (site->kind) {
    case LUM_WINDOW_OWN:
    case LUM_WINDOW_HEADLESS:
        // A window wished full screen is made at the display's size, so the picture is drawn at the
        // screen's own resolution rather than scaled up.
        if (object.ownWindow && object.fullscreenWish)
            if (const auto display = platform::WindowHost::DisplaySize())
                std::tie(width, height) = *display;
        object.host = platform::WindowHost::Create(width, height, site->title ? site->title : "Lumenar",
                                                   site->kind == LUM_WINDOW_HEADLESS);
        if (object.host && object.ownWindow && object.fullscreenWish)
            object.host->SetFullscreen(true);
        break;
    case LUM_WINDOW_SDL:
        object.host = platform::WindowHost::Attach({site->sdlWindow, 0});
        break;
    case LUM_WINDOW_X11:
        object.host = platform::WindowHost::Attach({nullptr, site->x11Window});
        break;
    default:
        return LUM_E_INVALIDARG;
    }
    if (!object.host)
        return LUM_E_FAIL;
    object.host->SetFrameSink(
        [&object](std::uint64_t ms, const std::vector<std::uint8_t>& topDown, int w, int h) {
            LumFrameSink sink;
            void* context;
            {
                std::lock_guard guard(object.sinkLock);
                sink = object.frameSink;
                context = object.frameContext;
            }
            if (sink != nullptr)
                sink(context, ms, topDown.data(), w, h);
        });
    object.sound = platform::OpenSdlSoundDevice();
    ControlSite controlSite;
    controlSite.host = object.host.get();
    if (site->kind == LUM_WINDOW_SDL || site->kind == LUM_WINDOW_X11) {
        if (site->width > 0 && site->height > 0)
            controlSite.rect = {0, 0, site->width, site->height};
    }
    object.host->SetKeyFilter([&object](int key, unsigned modifiers) {
        return object.keyFilter != nullptr && object.keyFilter(object.keyContext, key, modifiers) != 0;
    });
    controlSite.frameFit = (object.hostOptions & LUM_HOST_FRAME_FILLS_WINDOW) != 0
                               ? playback::FrameFit::Fill
                               : playback::FrameFit::Design;
    controlSite.documentUrl = site->documentUrl ? site->documentUrl : "";
    controlSite.userMode = site->userMode != 0;
    controlSite.sound = object.sound.get();
    if (object.control.Create(controlSite) != 0) {
        object.host.reset();
        object.sound.reset();
        return LUM_E_FAIL;
    }
    return LUM_S_OK;
}

LumResult ControlDestroyWindow(LumSequenceCtl* self)
{
    ControlObject& object = Object(self);
    if (!object.host)
        return LUM_S_FALSE;
    object.DestroyWindow();
    return LUM_S_OK;
}

LumResult ControlPump(LumSequenceCtl* self, uint32_t timeoutMs)
{
    ControlObject& object = Object(self);
    if (!object.host)
        return LUM_S_FALSE;
    return object.host->Pump(timeoutMs) ? LUM_S_OK : LUM_S_FALSE;
}

LumResult ControlSendCommand(LumSequenceCtl* self, uint32_t command)
{
    ControlObject& object = Object(self);
    if (command != LUM_COMMAND_PLAY && command != LUM_COMMAND_STOP)
        return LUM_E_INVALIDARG;
    if (!object.host || object.control.Window() == 0)
        return LUM_E_WRONGSTATE;
    object.host->Post(object.control.Window(), platform::kMsgCommand, command, 0);
    return LUM_S_OK;
}

int32_t ControlIsPlaying(LumSequenceCtl* self)
{
    const ControlState state = Object(self).control.State();
    return state == ControlState::Playing || state == ControlState::Created ? 1 : 0;
}

LumResult ControlSetFile(LumSequenceCtl* self, const char* file)
{
    if (file == nullptr)
        return LUM_E_INVALIDARG;
    if (std::strlen(file) > kMaxFileBytes)
        return LUM_E_INVALIDARG;
    Object(self).control.SetFile(file);
    return LUM_S_OK;
}

LumResult ControlGetFile(LumSequenceCtl* self, char* buffer, size_t capacity, size_t* needed)
{
    return CopyText(Object(self).control.File(), buffer, capacity, needed);
}

LumResult ControlSetBackColor(LumSequenceCtl* self, uint32_t colour)
{
    Object(self).control.SetBackColor(colour);
    return LUM_S_OK;
}

LumResult ControlGetBackColor(LumSequenceCtl* self, uint32_t* colour)
{
    if (colour == nullptr)
        return LUM_E_INVALIDARG;
    *colour = Object(self).control.BackColor();
    return LUM_S_OK;
}

LumResult ControlSetFillColor(LumSequenceCtl* self, uint32_t colour)
{
    Object(self).control.SetFillColor(colour);
    return LUM_S_OK;
}

LumResult ControlGetFillColor(LumSequenceCtl* self, uint32_t* colour)
{
    if (colour == nullptr)
        return LUM_E_INVALIDARG;
    *colour = Object(self).control.FillColor();
    return LUM_S_OK;
}

LumResult ControlLoadPropertyBag(LumSequenceCtl* self, const LumPropertyBag* bag)
{
    if (bag == nullptr)
        return LUM_E_INVALIDARG;
    CBag adapter(*bag);
    return Report(Object(self).control.LoadBag(adapter));
}

LumResult ControlSavePropertyBag(LumSequenceCtl* self, const LumPropertyBag* bag)
{
    if (bag == nullptr)
        return LUM_E_INVALIDARG;
    CBag adapter(*bag);
    return Report(Object(self).control.SaveBag(adapter));
}

LumResult ControlLoadStream(LumSequenceCtl* self, const uint8_t* bytes, size_t size)
{
    if (bytes == nullptr && size != 0)
        return LUM_E_INVALIDARG;
    return Report(Object(self).control.LoadStream(std::span<const std::uint8_t>(bytes, size)));
}

LumResult ControlSaveStream(LumSequenceCtl* self, uint8_t* buffer, size_t capacity, size_t* needed)
{
    const std::vector<std::uint8_t> bytes = Object(self).control.SaveStream();
    if (needed != nullptr)
        *needed = bytes.size();
    if (buffer == nullptr || capacity < bytes.size())
        return LUM_E_BUFFERTOOSMALL;
    std::memcpy(buffer, bytes.data(), bytes.size());
    return LUM_S_OK;
}

LumResult ControlLoadStorage(LumSequenceCtl* self, const char* path)
{
    if (path == nullptr)
        return LUM_E_INVALIDARG;
    return Report(Object(self).control.LoadStorage(path));
}

LumResult ControlSaveStorage(LumSequenceCtl* self, const char* path)
{
    if (path == nullptr)
        return LUM_E_INVALIDARG;
    return Report(Object(self).control.SaveStorage(path));
}

LumResult ControlAdvise(LumSequenceCtl* self, LumPropertyChanged sink, void* context, uint32_t* cookie)
{
    if (sink == nullptr || cookie == nullptr)
        return LUM_E_INVALIDARG;
    *cookie = Object(self).control.Advise([sink, context](std::int32_t dispid) { sink(context, dispid); });
    return LUM_S_OK;
}

LumResult ControlUnadvise(LumSequenceCtl* self, uint32_t cookie)
{
    return Object(self).control.Unadvise(cookie) ? LUM_S_OK : LUM_E_INVALIDARG;
}

LumResult ControlSetFrameSink(LumSequenceCtl* self, LumFrameSink sink, void* context)
{
    ControlObject& object = Object(self);
    std::lock_guard guard(object.sinkLock);
    object.frameSink = sink;
    object.frameContext = context;
    return LUM_S_OK;
}

LumResult ControlGetFailure(LumSequenceCtl* self, char* buffer, size_t capacity, size_t* needed)
{
    const std::string& failure = Object(self).control.Failure();
    const LumResult copied = CopyText(failure, buffer, capacity, needed);
    return copied == LUM_S_OK && failure.empty() ? LUM_S_FALSE : copied;
}

LumResult ControlSetCompatibility(LumSequenceCtl*, uint32_t flags)
{
    if ((flags & ~LUM_COMPAT_EXIT_ON_CORRUPT_PHOTO) != 0)
        return LUM_E_INVALIDARG;
    platform::SetCorruptPhotoAction((flags & LUM_COMPAT_EXIT_ON_CORRUPT_PHOTO) != 0
                                        ? platform::CorruptPhotoAction::EndProcess
                                        : platform::CorruptPhotoAction::FailPhoto);
    return LUM_S_OK;
}

LumResult ControlSetHostOptions(LumSequenceCtl* self, uint32_t flags)
{
    ControlObject& object = Object(self);
    if ((flags & ~LUM_HOST_FRAME_FILLS_WINDOW) != 0)
        return LUM_E_INVALIDARG;
    if (object.host)
        return LUM_E_WRONGSTATE;
    object.hostOptions = flags;
    return LUM_S_OK;
}

LumResult ControlSetKeyFilter(LumSequenceCtl* self, LumKeyFilter filter, void* context)
{
    ControlObject& object = Object(self);
    object.keyFilter = filter;
    object.keyContext = context;
    return LUM_S_OK;
}

LumResult ControlSendKey(LumSequenceCtl* self, int32_t key, uint32_t modifiers)
{
    ControlObject& object = Object(self);
    if (!object.host)
        return LUM_E_WRONGSTATE;
    if (key <= 0 || key > 0xFFFF || (modifiers & ~(LUM_MOD_CTRL | LUM_MOD_SHIFT | LUM_MOD_ALT)) != 0)
        return LUM_E_INVALIDARG;
    object.host->InjectKey(key, modifiers);
    return LUM_S_OK;
}

LumResult ControlSetFullscreen(LumSequenceCtl* self, int32_t on)
{
    ControlObject& object = Object(self);
    if (!object.host) {
        object.fullscreenWish = on != 0;
        return LUM_S_OK;
    }
    if (!object.ownWindow && !object.host->IsHeadless())
        return LUM_E_WRONGSTATE;
    object.host->SetFullscreen(on != 0);
    return LUM_S_OK;
}

int32_t ControlIsFullscreen(LumSequenceCtl* self)
{
    const ControlObject& object = Object(self);
    return (object.host ? object.host->Fullscreen() : object.fullscreenWish) ? 1 : 0;
}

int32_t ControlHasEnded(LumSequenceCtl* self)
{
    return Object(self).control.Ended() ? 1 : 0;
}

const LumSequenceCtlVtbl kControlTable = {
    kSafeZero<ControlAddRef>,
    kSafeZero<ControlRelease>,
    kSafe<ControlCreateWindow>,
    kSafe<ControlDestroyWindow>,
    kSafe<ControlPump>,
    kSafe<ControlSendCommand>,
    kSafeZero<ControlIsPlaying>,
    kSafe<ControlSetFile>,
    kSafe<ControlGetFile>,
    kSafe<ControlSetBackColor>,
    kSafe<ControlGetBackColor>,
    kSafe<ControlSetFillColor>,
    kSafe<ControlGetFillColor>,
    kSafe<ControlLoadPropertyBag>,
    kSafe<ControlSavePropertyBag>,
    kSafe<ControlLoadStream>,
    kSafe<ControlSaveStream>,
    kSafe<ControlLoadStorage>,
    kSafe<ControlSaveStorage>,
    kSafe<ControlAdvise>,
    kSafe<ControlUnadvise>,
    kSafe<ControlSetFrameSink>,
    kSafe<ControlGetFailure>,
    kSafe<ControlSetCompatibility>,
    kSafe<ControlSetHostOptions>,
    kSafe<ControlSetKeyFilter>,
    kSafe<ControlSendKey>,
    kSafe<ControlSetFullscreen>,
    kSafeZero<ControlIsFullscreen>,
    kSafeZero<ControlHasEnded>,
};

struct FactoryHandle
{
    LumClassFactory iface;
    std::atomic<std::uint32_t> refs{1};
};

uint32_t FactoryAddRef(LumClassFactory* self)
{
    return ++reinterpret_cast<FactoryHandle*>(self)->refs;
}

uint32_t FactoryRelease(LumClassFactory* self)
{
    auto* handle = reinterpret_cast<FactoryHandle*>(self);
    const std::uint32_t left = --handle->refs;
    if (left == 0) {
        std::unique_ptr<FactoryHandle> owned(handle);
        --liveObjects;
    }
    return left;
}

LumResult FactoryCreateInstance(LumClassFactory*, const LumGuid* iid, void** object)
{
    if (object == nullptr)
        return LUM_E_INVALIDARG;
    *object = nullptr;
    if (!SameGuid(iid, kIidControl))
        return LUM_E_NOINTERFACE;
    auto handle = std::make_unique<ControlHandle>();
    handle->iface.vtbl = &kControlTable;
    handle->object = std::make_unique<ControlObject>().release();
    ++liveObjects;
    *object = &handle.release()->iface;
    return LUM_S_OK;
}

LumResult FactoryLockServer(LumClassFactory*, int32_t lock)
{
    if (lock != 0)
        ++serverLocks;
    else if (serverLocks > 0)
        --serverLocks;
    return LUM_S_OK;
}

const LumClassFactoryVtbl kFactoryTable = {kSafeZero<FactoryAddRef>, kSafeZero<FactoryRelease>,
                                           kSafe<FactoryCreateInstance>, kSafe<FactoryLockServer>};

/// The player program registration names: next to the library when it is there, else on PATH.
std::string PlayerNextTo(const std::string& server)
{
    const std::filesystem::path player = std::filesystem::path(server).parent_path() / "lumenar";
    std::error_code error;
    return std::filesystem::exists(player, error) ? player.string() : std::string("lumenar");
}

} // namespace
} // namespace lumenar::control

using namespace lumenar::control;

namespace {

LumResult CanUnloadNow()
{
    return liveObjects == 0 && serverLocks == 0 ? LUM_S_OK : LUM_S_FALSE;
}

LumResult GetClassObject(const LumGuid* clsid, const LumGuid* iid, void** object)
{
    if (object == nullptr)
        return LUM_E_INVALIDARG;
    *object = nullptr;
    if (!SameGuid(clsid, kClsid))
        return LUM_E_CLASSNOTAVAILABLE;
    if (!SameGuid(iid, kIidFactory))
        return LUM_E_NOINTERFACE;
    auto* factory = new FactoryHandle;
    factory->iface.vtbl = &kFactoryTable;
    ++liveObjects;
    *object = &factory->iface;
    return LUM_S_OK;
}

LumResult RegisterThisServer()
{
    auto folder = UserDataFolder();
    if (!folder.ok())
        return Report(folder.error());
    const std::string server =
        lumenar::platform::ModulePath(reinterpret_cast<const void*>(&DllRegisterServer));
    return Report(RegisterServer(*folder, server, PlayerNextTo(server)));
}

LumResult UnregisterThisServer()
{
    auto folder = UserDataFolder();
    if (!folder.ok())
        return Report(folder.error());
    return Report(UnregisterServer(*folder));
}

} // namespace

LUM_EXPORT LumResult DllCanUnloadNow(void)
{
    return Guarded<CanUnloadNow, LUM_E_FAIL>::Call();
}

LUM_EXPORT LumResult DllGetClassObject(const LumGuid* clsid, const LumGuid* iid, void** object)
{
    return Guarded<GetClassObject, LUM_E_FAIL>::Call(clsid, iid, object);
}

LUM_EXPORT LumResult DllRegisterServer(void)
{
    return Guarded<RegisterThisServer, LUM_E_FAIL>::Call();
}

LUM_EXPORT LumResult DllUnregisterServer(void)
{
    return Guarded<UnregisterThisServer, LUM_E_FAIL>::Call();
}
