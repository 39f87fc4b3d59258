#pragma once

#include "platform/Presenter.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace lumenar::platform {

using WindowId = std::uint32_t;

/// Message codes, as the player's windows see them.
enum MessageCode : std::uint32_t
{
    kMsgPaint = 0x000F,
    kMsgClose = 0x0010,
    kMsgKeyDown = 0x0100,
    kMsgCommand = 0x0111,
    kMsgTimer = 0x0113,
    kMsgMouseMove = 0x0200,
    kMsgLButtonUp = 0x0202,
    kMsgLButtonDblClk = 0x0203,
    kMsgRButtonUp = 0x0205,
    kMsgUser = 0x0400,
};

/// Key codes of the keys the player reacts to.
enum KeyCode : int
{
    kKeyReturn = 0x0D,
    kKeyEscape = 0x1B,
    kKeyPageUp = 0x21,
    kKeyPageDown = 0x22,
    kKeyLeft = 0x25,
    kKeyUp = 0x26,
    kKeyRight = 0x27,
    kKeyDown = 0x28,
    kKeyAdd = 0x6B,
    kKeySubtract = 0x6D,
    kKeyBack = 0x08,
    kKeySpace = 0x20,
    kKeyF11 = 0x7A,
    // Letters are their upper-case character ('Q'); function keys F1..F12 are 0x70..0x7B.
};

/// Modifier keys held with a key, as key filters see them.
enum KeyModifier : unsigned
{
    kModControl = 0x1,
    kModShift = 0x2,
    kModAlt = 0x4,
};

struct WindowRect
{
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;
    bool Contains(int x, int y) const { return x >= left && x < right && y >= top && y < bottom; }
};

struct Message
{
    WindowId window = 0;
    std::uint32_t code = 0;
    std::uint64_t wParam = 0;
    std::int64_t lParam = 0;
    int screenX = 0; ///< Pointer position for mouse messages, in the top-level window's coordinates.
    int screenY = 0;
    bool input = false; ///< Came from the user (Inject*), not from Post.
};

/// One entry of a popup menu.
struct MenuEntry
{
    std::string textUtf8;
    std::uint32_t command = 0; ///< Sent to the menu's owner as kMsgCommand (wParam) when chosen.
    bool grayed = false;       ///< Shown in grey and cannot be chosen.
};

using WindowProc = std::function<void(const Message&)>;

/// A window that another part of the process made: an SDL_Window* of the same SDL library, or a
/// native X11 window id. Exactly one is set.
struct NativeWindow
{
    void* sdlWindow = nullptr;
    std::uint64_t x11Window = 0;
};

/// One top-level window with a small tree of child windows, a message queue and a back buffer. The
/// thread that created it owns it and runs Pump; Post, Present, AsyncKeyPressed and Invalidate may
/// be called from any thread. Two back-ends: SDL (a real window) and headless (the back buffer only).
class WindowHost
{
public:
    /// An SDL window when a display is available and `headless` is false; the headless host otherwise.
    static std::unique_ptr<WindowHost> Create(int width, int height, const char* title, bool headless);
    /// A host that draws into someone else's window (its size at this moment) with a renderer of its
    /// own; the window's owner must not draw into it too and keeps it alive longer than the host. Its
    /// Pump takes the process's SDL events. Null when SDL's video cannot take the window.
    static std::unique_ptr<WindowHost> Attach(const NativeWindow& window);
    virtual ~WindowHost();

    bool IsHeadless() const { return headless_; }
    int Width() const { return width_; }
    int Height() const { return height_; }

    /// A child of `parent` (0 for the top level) over `rect`, in the parent's coordinates. Window thread.
    WindowId CreateChild(WindowId parent, WindowRect rect, WindowProc proc);
    void Destroy(WindowId window);
    void Show(WindowId window, bool shown);
    bool IsShown(WindowId window);
    /// The window's rectangle in the top-level window's coordinates.
    WindowRect ScreenRect(WindowId window);
    /// Queues a paint message for the window (at most one pending).
    void Invalidate(WindowId window);
    /// The window that key messages go to.
    void SetFocus(WindowId window) { focus_ = window; }

    void Post(WindowId window, std::uint32_t code, std::uint64_t wParam = 0, std::int64_t lParam = 0);
    /// Sees every message taken from the queue before its window does.
    void SetHook(WindowProc hook);
    /// Whether `key` was pressed since the last query of that key; the query clears it. Any thread.
    bool AsyncKeyPressed(int key);

    /// Presents into `window`'s client area. Any thread.
    FramePresenter& Presenter(WindowId window);
    /// Where the pointer is, in top-level coordinates.
    void PointerPosition(int& x, int& y);

    /// Right-button-up messages go to the deepest shown window under the pointer that accepts them
    /// (lParam: the pointer in that window's client coordinates, x in the low 16 bits, y in the next
    /// 16); windows that do not, such as a player covering its control, let them through. Window thread.
    void AcceptRightClicks(WindowId window);

    /// Opens a popup menu centred on (x, y) in top-level coordinates, drawn over everything in the back
    /// buffer until it closes. While it is open it takes the user's clicks and keys: a left click on an
    /// entry that is not grayed, or Return on the selected one (Up and Down select), closes it and posts
    /// kMsgCommand with the entry's command to `owner`; Escape or a click elsewhere closes it with no
    /// command. Returns at once (the choice arrives as a message). Window thread.
    void TrackPopupMenu(WindowId owner, std::vector<MenuEntry> entries, int x, int y);
    /// Whether a popup menu is open, its entries and its rectangle (top-level coordinates). Any thread.
    bool PopupMenuOpen();
    std::vector<MenuEntry> PopupMenuEntries();
    WindowRect PopupMenuRect();
    /// The rectangle of entry `index` of the open menu, in top-level coordinates.
    WindowRect PopupMenuEntryRect(int index);

    /// The display's logical pixels per inch, horizontally and vertically (96 without a display).
    virtual void PixelsPerInch(int& x, int& y) const;

    /// Takes and dispatches every queued message, waiting up to `timeoutMs` for the first; shows the
    /// back buffer when it changed. False once the window has been closed or Quit called. Window thread.
    bool Pump(std::uint32_t timeoutMs);
    void Quit();

    /// Sees every key the user presses (InjectKey) before any window: returning true takes the key, so
    /// no window gets it. Called on the thread that injects (the window thread). Null removes it.
    using KeyFilter = std::function<bool(int key, unsigned modifiers)>;
    void SetKeyFilter(KeyFilter filter);

    /// The display's size in pixels, when there is a display.
    static std::optional<std::pair<int, int>> DisplaySize();
    /// Shows the window over the whole screen, or in its own frame again; the picture keeps its size and
    /// is scaled to the screen. The headless host only records it. Window thread.
    virtual void SetFullscreen(bool on) { fullscreen_ = on; }
    bool Fullscreen() const { return fullscreen_.load(); }

    /// Input as a user would give it (headless tests; also how the SDL back-end feeds its events in).
    void InjectKey(int key, unsigned modifiers = 0);
    void InjectMouseMove(int x, int y);
    void InjectDoubleClick(int x, int y);
    void InjectButtonUp(int x, int y);
    void InjectRightButtonUp(int x, int y);

    /// A copy of the back buffer: the whole client area, 32-bit BGRX, top row first.
    std::vector<std::uint8_t> BackBuffer();
    /// Called with every presented picture (after it reached the back buffer) and the milliseconds
    /// since the host was made. Any thread calls it: the one that presented.
    using FrameSink = std::function<void(std::uint64_t ms, const std::vector<std::uint8_t>& topDown,
                                         int width, int height)>;
    void SetFrameSink(FrameSink sink);
    /// Number of Present calls so far.
    std::uint64_t PresentCount() const { return presents_.load(); }

protected:
    WindowHost(int width, int height, bool headless);
    /// Back-end: wait for input up to `timeoutMs` and feed it in through the Inject calls; return false
    /// when the user closed the window.
    virtual bool PollInput(std::uint32_t timeoutMs) = 0;
    /// Back-end: show the back buffer (window thread).
    virtual void ShowBackBuffer(const std::vector<std::uint8_t>& topDown) = 0;
    /// Back-end: make Pump's wait return early (any thread).
    virtual void Wake() = 0;
    /// The condition Pump's headless wait uses.
    std::mutex queueLock_;
    std::condition_variable queueChanged_;
    std::deque<Message> queue_;

private:
    class WindowPresenter;
    struct Node
    {
        WindowId parent = 0;
        WindowRect rect; // In the parent's coordinates.
        WindowProc proc;
        bool shown = true;
        bool rightClicks = false;
        std::unique_ptr<WindowPresenter> presenter;
    };
    void PresentAt(WindowId window, const std::uint8_t* bits, int width, int height, int x, int y);
    void Enqueue(Message message);
    Node* Find(WindowId window);
    bool MenuTakes(const Message& message);
    void CloseMenu();
    void DrawMenuOver(std::vector<std::uint8_t>& topDown);
    WindowId RightClickTarget(int x, int y, std::int64_t& lParam);

    struct Menu
    {
        WindowId owner = 0;
        std::vector<MenuEntry> entries;
        WindowRect rect;
        int selected = -1;
        std::vector<std::uint8_t> pixels; // BGRX, top row first, rect-sized.
    };

    const int width_;
    const int height_;
    const bool headless_;
    std::mutex treeLock_; // Guards windows_ (read by presenting threads for the rectangles).
    std::map<WindowId, Node> windows_;
    WindowId nextId_ = 1;
    std::atomic<WindowId> focus_{0};
    std::mutex hookLock_;
    WindowProc hook_;
    std::mutex keyLock_;
    std::map<int, bool> pressed_;
    std::mutex bufferLock_; // Guards backBuffer_, dirty_, sink_ and menu_.
    std::unique_ptr<Menu> menu_;
    std::vector<std::uint8_t> backBuffer_;
    bool dirty_ = true;
    FrameSink sink_;
    std::atomic<std::uint64_t> presents_{0};
    std::atomic<int> pointerX_{-1};
    std::atomic<int> pointerY_{-1};
    std::atomic<bool> quit_{false};
    std::uint64_t startMs_;
    std::mutex filterLock_;
    KeyFilter keyFilter_;

protected:
    std::atomic<bool> fullscreen_{false};
};

} // namespace lumenar::platform
