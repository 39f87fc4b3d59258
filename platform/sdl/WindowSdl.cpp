#include "platform/Window.h"

#include <SDL.h>

#include <cstdint>
#include <cstdlib>
#include <deque>
#include <map>
#include <memory>
#include <mutex>

namespace lumenar::platform {

namespace {

int KeyFromSdl(SDL_Keycode key)
{
    switch (key) {
    case SDLK_ESCAPE:
        return kKeyEscape;
    case SDLK_PAGEUP:
        return kKeyPageUp;
    case SDLK_PAGEDOWN:
        return kKeyPageDown;
    case SDLK_LEFT:
        return kKeyLeft;
    case SDLK_UP:
        return kKeyUp;
    case SDLK_RIGHT:
        return kKeyRight;
    case SDLK_DOWN:
        return kKeyDown;
    case SDLK_KP_PLUS:
        return kKeyAdd;
    case SDLK_KP_MINUS:
        return kKeySubtract;
    default:
        // Letters and function keys as the key codes the player's windows know them by.
        if (key >= SDLK_a && key <= SDLK_z)
            return 'A' + (key - SDLK_a);
        if (key >= SDLK_F1 && key <= SDLK_F12)
            return 0x70 + (key - SDLK_F1);
        return static_cast<int>(key & 0xFFFF);
    }
}

unsigned ModifiersFromSdl(Uint16 mod)
{
    return ((mod & KMOD_CTRL) != 0 ? kModControl : 0u) | ((mod & KMOD_SHIFT) != 0 ? kModShift : 0u) |
           ((mod & KMOD_ALT) != 0 ? kModAlt : 0u);
}

/// The window an event is for; 0 for events of no window (quit, wake-ups).
Uint32 WindowOf(const SDL_Event& event)
{
    switch (event.type) {
    case SDL_KEYDOWN:
    case SDL_KEYUP:
        return event.key.windowID;
    case SDL_MOUSEMOTION:
        return event.motion.windowID;
    case SDL_MOUSEBUTTONDOWN:
    case SDL_MOUSEBUTTONUP:
        return event.button.windowID;
    case SDL_MOUSEWHEEL:
        return event.wheel.windowID;
    case SDL_WINDOWEVENT:
        return event.window.windowID;
    default:
        return 0;
    }
}

class SdlHost;

// SDL has one event queue for every window of the process: the host that pumps hands the events of
// the others' windows to them, so that several controls can play in one process. Their hosts are then
// pumped on one thread, as SDL wants its video events taken.
std::mutex routeLock; // Guards Hosts() and every host's routed_ queue.
std::map<Uint32, SdlHost*>& Hosts()
{
    static std::map<Uint32, SdlHost*> hosts;
    return hosts;
}

/// A real window. SDL's video calls stay on the thread that made it; other threads only copy into the
/// back buffer and push a wake-up event.
class SdlHost final : public WindowHost
{
public:
    SdlHost(int width, int height, SDL_Window* window, SDL_Renderer* renderer, SDL_Texture* texture,
            bool ownsWindow = true)
        : WindowHost(width, height, false), window_(window), renderer_(renderer), texture_(texture),
          wakeEvent_(SDL_RegisterEvents(1)), ownsWindow_(ownsWindow), id_(SDL_GetWindowID(window))
    {
        std::lock_guard guard(routeLock);
        Hosts()[id_] = this;
    }
    ~SdlHost() override
    {
        {
            std::lock_guard guard(routeLock);
            Hosts().erase(id_);
        }
        SDL_DestroyTexture(texture_);
        SDL_DestroyRenderer(renderer_);
        if (ownsWindow_)
            SDL_DestroyWindow(window_);
        SDL_QuitSubSystem(SDL_INIT_VIDEO);
    }

    void PixelsPerInch(int& x, int& y) const override
    {
        float horizontal = 0, vertical = 0;
        const int display = SDL_GetWindowDisplayIndex(window_);
        if (display < 0 || SDL_GetDisplayDPI(display, nullptr, &horizontal, &vertical) != 0 ||
            horizontal < 1 || vertical < 1) {
            WindowHost::PixelsPerInch(x, y);
            return;
        }
        x = static_cast<int>(horizontal + 0.5f);
        y = static_cast<int>(vertical + 0.5f);
    }

protected:
    bool PollInput(std::uint32_t timeoutMs) override
    {
        {
            std::lock_guard guard(queueLock_);
            if (!queue_.empty())
                timeoutMs = 0;
        }
        std::deque<SDL_Event> routed;
        {
            std::lock_guard guard(routeLock);
            routed.swap(routed_);
        }
        bool open = true;
        for (const SDL_Event& event : routed)
            open = Handle(event) && open;
        SDL_Event event;
        int got = SDL_WaitEventTimeout(&event, routed.empty() ? static_cast<int>(timeoutMs) : 0);
        while (got) {
            if (Route(event))
                open = Handle(event) && open;
            got = SDL_PollEvent(&event);
        }
        return open;
    }

    // Keeps an event of this window (or of none); hands one of another host's window to that host.
    bool Route(const SDL_Event& event)
    {
        const Uint32 window = WindowOf(event);
        if (window == 0 || window == id_)
            return true;
        std::lock_guard guard(routeLock);
        const auto owner = Hosts().find(window);
        if (owner != Hosts().end())
            owner->second->routed_.push_back(event);
        return false;
    }

    // Feeds one event in; false when it closes the window.
    bool Handle(const SDL_Event& event)
    {
        bool open = true;
        switch (event.type) {
        case SDL_QUIT:
            open = false;
            break;
        case SDL_KEYDOWN:
            InjectKey(KeyFromSdl(event.key.keysym.sym), ModifiersFromSdl(event.key.keysym.mod));
            break;
        case SDL_MOUSEMOTION:
            InjectMouseMove(event.motion.x, event.motion.y);
            break;
        case SDL_MOUSEBUTTONUP:
            if (event.button.button == SDL_BUTTON_LEFT)
                InjectButtonUp(event.button.x, event.button.y);
            else if (event.button.button == SDL_BUTTON_RIGHT)
                InjectRightButtonUp(event.button.x, event.button.y);
            break;
        case SDL_MOUSEBUTTONDOWN:
            if (event.button.button == SDL_BUTTON_LEFT && event.button.clicks == 2)
                InjectDoubleClick(event.button.x, event.button.y);
            break;
        case SDL_WINDOWEVENT:
            // A resized or uncovered window shows the picture again at its new scale.
            if (event.window.event == SDL_WINDOWEVENT_SIZE_CHANGED ||
                event.window.event == SDL_WINDOWEVENT_EXPOSED)
                ShowBackBuffer(BackBuffer());
            // With several windows SDL sends no quit until the last closes: each closes its own.
            if (event.window.event == SDL_WINDOWEVENT_CLOSE)
                open = false;
            break;
        default:
            break;
        }
        return open;
    }

    void ShowBackBuffer(const std::vector<std::uint8_t>& topDown) override
    {
        SDL_UpdateTexture(texture_, nullptr, topDown.data(), Width() * 4);
        SDL_RenderClear(renderer_);
        SDL_RenderCopy(renderer_, texture_, nullptr, nullptr);
        SDL_RenderPresent(renderer_);
    }

    void SetFullscreen(bool on) override
    {
        if (ownsWindow_ && SDL_SetWindowFullscreen(window_, on ? SDL_WINDOW_FULLSCREEN_DESKTOP : 0) == 0)
            fullscreen_ = on;
        ShowBackBuffer(BackBuffer());
    }

    void Wake() override
    {
        queueChanged_.notify_all();
        SDL_Event event{};
        event.type = wakeEvent_;
        SDL_PushEvent(&event);
    }

private:
    SDL_Window* window_;
    SDL_Renderer* renderer_;
    SDL_Texture* texture_;
    std::uint32_t wakeEvent_;
    bool ownsWindow_;
    Uint32 id_;
    std::deque<SDL_Event> routed_; // Events of this window another host took; under routeLock.
};

// The host over `window` (null: it could not be made), drawing a picture of width × height through a
// software renderer; on failure everything made here goes again, `window` too when `owns`.
std::unique_ptr<WindowHost> HostOver(SDL_Window* window, bool owns, int width, int height)
{
    SDL_Renderer* renderer =
        window && width > 0 && height > 0 ? SDL_CreateRenderer(window, -1, SDL_RENDERER_SOFTWARE) : nullptr;
    if (renderer != nullptr)
        SDL_RenderSetLogicalSize(renderer, width, height);
    SDL_Texture* texture = renderer ? SDL_CreateTexture(renderer, SDL_PIXELFORMAT_ARGB8888,
                                                        SDL_TEXTUREACCESS_STREAMING, width, height)
                                    : nullptr;
    if (texture == nullptr) {
        if (renderer)
            SDL_DestroyRenderer(renderer);
        if (window && owns)
            SDL_DestroyWindow(window);
        SDL_QuitSubSystem(SDL_INIT_VIDEO);
        return nullptr;
    }
    return std::make_unique<SdlHost>(width, height, window, renderer, texture, owns);
}

} // namespace

std::unique_ptr<WindowHost> MakeSdlWindowHost(int width, int height, const char* title)
{
    const char* driver = std::getenv("SDL_VIDEODRIVER");
    if ((driver == nullptr || *driver == '\0') && std::getenv("DISPLAY") == nullptr &&
        std::getenv("WAYLAND_DISPLAY") == nullptr)
        return nullptr;
    if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0)
        return nullptr;
    // The viewer may resize the window: the picture keeps its size and is scaled to the window,
    // letterboxed, and SDL maps the pointer back to picture coordinates (the renderer's logical size).
    SDL_Window* window = SDL_CreateWindow(title, SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED, width,
                                          height, SDL_WINDOW_RESIZABLE);
    return HostOver(window, /*owns=*/true, width, height);
}

std::optional<std::pair<int, int>> WindowHost::DisplaySize()
{
    const char* driver = std::getenv("SDL_VIDEODRIVER");
    if ((driver == nullptr || *driver == '\0') && std::getenv("DISPLAY") == nullptr &&
        std::getenv("WAYLAND_DISPLAY") == nullptr)
        return std::nullopt;
    if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0)
        return std::nullopt;
    SDL_DisplayMode mode{};
    const bool known = SDL_GetDesktopDisplayMode(0, &mode) == 0 && mode.w > 0 && mode.h > 0;
    SDL_QuitSubSystem(SDL_INIT_VIDEO);
    if (!known)
        return std::nullopt;
    return std::make_pair(mode.w, mode.h);
}

std::unique_ptr<WindowHost> WindowHost::Attach(const NativeWindow& native)
{
    if ((native.sdlWindow == nullptr) == (native.x11Window == 0))
        return nullptr;
    if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0)
        return nullptr;
    SDL_Window* window = static_cast<SDL_Window*>(native.sdlWindow);
    // A foreign X11 window becomes an SDL window that SDL must not destroy with the host's window.
    const bool owns = window == nullptr;
    if (window == nullptr)
        window = SDL_CreateWindowFrom(
            reinterpret_cast<const void*>(static_cast<std::uintptr_t>(native.x11Window)));
    int width = 0, height = 0;
    if (window != nullptr)
        SDL_GetWindowSize(window, &width, &height);
    return HostOver(window, owns, width, height);
}

} // namespace lumenar::platform
