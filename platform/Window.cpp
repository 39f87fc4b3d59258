#include "platform/Window.h"

#include "platform/Clock.h"
#include "platform/Font.h"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace lumenar::platform {

class WindowHost::WindowPresenter final : public FramePresenter
{
public:
    WindowPresenter(WindowHost& host, WindowId window) : host_(host), window_(window) {}
    void Present(const std::uint8_t* bits, int width, int height, int x, int y) override
    {
        host_.PresentAt(window_, bits, width, height, x, y);
    }

private:
    WindowHost& host_;
    WindowId window_;
};

WindowHost::WindowHost(int width, int height, bool headless)
    : width_(std::max(width, 1)), height_(std::max(height, 1)), headless_(headless),
      backBuffer_(std::size_t(width_) * height_ * 4, 0), startMs_(SystemClock().NowMs())
{
    Node top;
    top.rect = {0, 0, width_, height_};
    top.presenter = std::make_unique<WindowPresenter>(*this, 0);
    windows_.emplace(0, std::move(top));
}

WindowHost::~WindowHost() = default;

WindowHost::Node* WindowHost::Find(WindowId window)
{
    auto it = windows_.find(window);
    return it == windows_.end() ? nullptr : &it->second;
}

WindowId WindowHost::CreateChild(WindowId parent, WindowRect rect, WindowProc proc)
{
    std::lock_guard guard(treeLock_);
    if (Find(parent) == nullptr)
        return 0;
    WindowId id = nextId_++;
    Node node;
    node.parent = parent;
    node.rect = rect;
    node.proc = std::move(proc);
    node.presenter = std::make_unique<WindowPresenter>(*this, id);
    windows_.emplace(id, std::move(node));
    return id;
}

void WindowHost::Destroy(WindowId window)
{
    if (window == 0)
        return;
    std::lock_guard guard(treeLock_);
    // Children go with their parent.
    std::vector<WindowId> doomed{window};
    for (std::size_t i = 0; i < doomed.size(); ++i)
        for (auto& [id, node] : windows_)
            if (node.parent == doomed[i] && id != 0)
                doomed.push_back(id);
    for (WindowId id : doomed)
        windows_.erase(id);
    std::lock_guard bufferGuard(bufferLock_);
    if (menu_ && std::find(doomed.begin(), doomed.end(), menu_->owner) != doomed.end()) {
        menu_.reset(); // Its owner cannot take a choice any more.
        dirty_ = true;
    }
}

void WindowHost::Show(WindowId window, bool shown)
{
    std::lock_guard guard(treeLock_);
    if (Node* node = Find(window))
        node->shown = shown;
}

bool WindowHost::IsShown(WindowId window)
{
    std::lock_guard guard(treeLock_);
    Node* node = Find(window);
    return node != nullptr && node->shown;
}

WindowRect WindowHost::ScreenRect(WindowId window)
{
    std::lock_guard guard(treeLock_);
    Node* node = Find(window);
    if (node == nullptr)
        return {};
    WindowRect rect = node->rect;
    for (WindowId parentId = window == 0 ? 0 : node->parent; parentId != 0;) {
        Node* parent = Find(parentId);
        if (parent == nullptr)
            break;
        rect.left += parent->rect.left;
        rect.right += parent->rect.left;
        rect.top += parent->rect.top;
        rect.bottom += parent->rect.top;
        parentId = parent->parent;
    }
    return rect;
}

void WindowHost::Invalidate(WindowId window)
{
    std::lock_guard guard(queueLock_);
    for (const Message& m : queue_)
        if (m.window == window && m.code == kMsgPaint)
            return;
    queue_.push_back({window, kMsgPaint, 0, 0, 0, 0});
    queueChanged_.notify_one();
}

void WindowHost::Enqueue(Message message)
{
    {
        std::lock_guard guard(queueLock_);
        queue_.push_back(message);
    }
    queueChanged_.notify_one();
    Wake();
}

void WindowHost::Post(WindowId window, std::uint32_t code, std::uint64_t wParam, std::int64_t lParam)
{
    Enqueue({window, code, wParam, lParam, pointerX_.load(), pointerY_.load()});
}

void WindowHost::SetHook(WindowProc hook)
{
    std::lock_guard guard(hookLock_);
    hook_ = std::move(hook);
}

bool WindowHost::AsyncKeyPressed(int key)
{
    std::lock_guard guard(keyLock_);
    bool pressed = pressed_[key];
    pressed_[key] = false;
    return pressed;
}

FramePresenter& WindowHost::Presenter(WindowId window)
{
    std::lock_guard guard(treeLock_);
    Node* node = Find(window);
    return node != nullptr ? *node->presenter : *windows_.at(0).presenter;
}

void WindowHost::PointerPosition(int& x, int& y)
{
    x = pointerX_.load();
    y = pointerY_.load();
}

void WindowHost::PresentAt(WindowId window, const std::uint8_t* bits, int width, int height, int x, int y)
{
    if (bits == nullptr || width <= 0 || height <= 0)
        return;
    WindowRect area = ScreenRect(window);
    if (area.right <= area.left)
        return;
    // Shown children keep their pixels: a parent's picture never covers them.
    std::vector<WindowRect> children;
    {
        std::vector<WindowId> ids;
        {
            std::lock_guard guard(treeLock_);
            for (auto& [id, node] : windows_)
                if (id != window && node.parent == window && node.shown)
                    ids.push_back(id);
        }
        for (WindowId id : ids)
            children.push_back(ScreenRect(id));
    }
    std::vector<std::uint8_t> copy;
    FrameSink sink;
    {
        std::lock_guard guard(bufferLock_);
        for (int row = 0; row < height; ++row) {
            int sy = area.top + y + row; // Screen row of picture row `row` from the top.
            if (sy < area.top || sy >= area.bottom || sy < 0 || sy >= height_)
                continue;
            const std::uint8_t* in = bits + std::size_t(height - 1 - row) * width * 4;
            int x0 = std::max({area.left + x, area.left, 0});
            int x1 = std::min({area.left + x + width, area.right, width_});
            if (x1 <= x0)
                continue;
            std::uint8_t* out = backBuffer_.data() + std::size_t(sy) * width_ * 4;
            const std::uint8_t* from = in - std::ptrdiff_t(area.left + x) * 4;
            bool covered = false;
            for (const WindowRect& child : children)
                covered = covered || (sy >= child.top && sy < child.bottom);
            if (!covered) {
                std::memcpy(out + x0 * 4, from + x0 * 4, std::size_t(x1 - x0) * 4);
                continue;
            }
            for (int sx = x0; sx < x1; ++sx) {
                bool hidden = false;
                for (const WindowRect& child : children)
                    hidden = hidden || child.Contains(sx, sy);
                if (!hidden)
                    std::memcpy(out + sx * 4, from + sx * 4, 4);
            }
        }
        dirty_ = true;
        ++presents_;
        sink = sink_;
        if (sink) {
            copy = backBuffer_;
            DrawMenuOver(copy);
        }
    }
    if (sink)
        sink(SystemClock().NowMs() - startMs_, copy, width_, height_);
    Wake();
}

std::vector<std::uint8_t> WindowHost::BackBuffer()
{
    std::lock_guard guard(bufferLock_);
    std::vector<std::uint8_t> copy = backBuffer_;
    DrawMenuOver(copy);
    return copy;
}

void WindowHost::SetFrameSink(FrameSink sink)
{
    std::lock_guard guard(bufferLock_);
    sink_ = std::move(sink);
}

void WindowHost::SetKeyFilter(KeyFilter filter)
{
    std::lock_guard guard(filterLock_);
    keyFilter_ = std::move(filter);
}

void WindowHost::InjectKey(int key, unsigned modifiers)
{
    KeyFilter filter;
    {
        std::lock_guard guard(filterLock_);
        filter = keyFilter_;
    }
    if (filter && filter(key, modifiers))
        return;
    {
        std::lock_guard guard(keyLock_);
        pressed_[key] = true;
    }
    Enqueue({focus_.load(), kMsgKeyDown, static_cast<std::uint64_t>(key), 0, pointerX_.load(),
             pointerY_.load(), true});
}

void WindowHost::InjectMouseMove(int x, int y)
{
    pointerX_ = x;
    pointerY_ = y;
    Enqueue({0, kMsgMouseMove, 0, 0, x, y});
}

void WindowHost::InjectDoubleClick(int x, int y)
{
    pointerX_ = x;
    pointerY_ = y;
    Enqueue({0, kMsgLButtonDblClk, 0, 0, x, y, true});
}

void WindowHost::InjectButtonUp(int x, int y)
{
    pointerX_ = x;
    pointerY_ = y;
    Enqueue({0, kMsgLButtonUp, 0, 0, x, y, true});
}

void WindowHost::InjectRightButtonUp(int x, int y)
{
    pointerX_ = x;
    pointerY_ = y;
    Enqueue({0, kMsgRButtonUp, 0, 0, x, y, true});
}

bool WindowHost::Pump(std::uint32_t timeoutMs)
{
    if (quit_)
        return false;
    if (!PollInput(timeoutMs))
        quit_ = true;
    std::deque<Message> batch;
    {
        std::unique_lock guard(queueLock_);
        if (queue_.empty() && headless_)
            queueChanged_.wait_for(guard, std::chrono::milliseconds(timeoutMs),
                                   [this] { return !queue_.empty(); });
        batch.swap(queue_);
    }
    for (Message& message : batch) {
        if (MenuTakes(message))
            continue;
        if (message.code == kMsgRButtonUp && message.window == 0 && message.input) {
            message.window = RightClickTarget(message.screenX, message.screenY, message.lParam);
            if (message.window == 0)
                continue;
        }
        WindowProc hook;
        {
            std::lock_guard guard(hookLock_);
            hook = hook_;
        }
        if (hook)
            hook(message);
        if (message.code == kMsgClose && message.window == 0)
            quit_ = true;
        if (message.window == 0 && (message.code == kMsgLButtonDblClk || message.code == kMsgLButtonUp)) {
            std::map<WindowId, WindowRect> rects;
            {
                std::lock_guard guard(treeLock_);
                for (auto& [id, node] : windows_)
                    (void)node, rects[id] = {};
            }
            for (auto& [id, rect] : rects)
                rect = ScreenRect(id);
            WindowId target = 0;
            {
                std::lock_guard guard(treeLock_);
                for (auto& [id, rect] : rects) {
                    Node* node = Find(id);
                    if (id != 0 && node != nullptr && node->shown &&
                        rect.Contains(message.screenX, message.screenY))
                        target = id;
                }
            }
            message.window = target;
        }
        WindowProc proc;
        {
            std::lock_guard guard(treeLock_);
            if (Node* node = Find(message.window))
                proc = node->proc;
        }
        if (proc)
            proc(message);
    }
    bool show = false;
    std::vector<std::uint8_t> frame;
    {
        std::lock_guard guard(bufferLock_);
        if (dirty_ && !headless_) {
            frame = backBuffer_;
            DrawMenuOver(frame);
            show = true;
        }
        dirty_ = false;
    }
    if (show)
        ShowBackBuffer(frame);
    return !quit_;
}

void WindowHost::AcceptRightClicks(WindowId window)
{
    std::lock_guard guard(treeLock_);
    if (Node* node = Find(window))
        node->rightClicks = true;
}

WindowId WindowHost::RightClickTarget(int x, int y, std::int64_t& lParam)
{
    std::vector<WindowId> ids;
    {
        std::lock_guard guard(treeLock_);
        for (auto& [id, node] : windows_)
            if (id != 0)
                ids.push_back(id);
    }
    // The deepest accepting window wins: count each candidate's ancestors.
    WindowId best = 0;
    int bestDepth = -1;
    WindowRect bestRect;
    for (WindowId id : ids) {
        WindowRect rect = ScreenRect(id);
        std::lock_guard guard(treeLock_);
        Node* node = Find(id);
        if (node == nullptr || !node->shown || !node->rightClicks || !rect.Contains(x, y))
            continue;
        int depth = 0;
        for (Node* up = node; up != nullptr && up->parent != 0; up = Find(up->parent))
            ++depth;
        if (depth > bestDepth) {
            best = id;
            bestDepth = depth;
            bestRect = rect;
        }
    }
    if (best != 0)
        lParam = (std::int64_t((y - bestRect.top) & 0xFFFF) << 16) | ((x - bestRect.left) & 0xFFFF);
    return best;
}

namespace {

constexpr int kMenuEntryHeight = 20;
constexpr int kMenuPadding = 12;
constexpr std::uint32_t kMenuFace = 0xF0F0F0;
constexpr std::uint32_t kMenuBorder = 0x808080;
constexpr std::uint32_t kMenuText = 0x000000;
constexpr std::uint32_t kMenuGrayText = 0xA0A0A0;
constexpr std::uint32_t kMenuSelected = 0x3070C0;
constexpr std::uint32_t kMenuSelectedText = 0xFFFFFF;

/// Draws the menu once into its own BGRX picture; with no font the entries stay blank but usable.
std::vector<std::uint8_t> DrawMenu(const std::vector<MenuEntry>& entries, int width, int height, int selected)
{
    std::vector<std::uint8_t> pixels(std::size_t(width) * height * 4);
    auto put = [&](int x, int y, std::uint32_t rgb) {
        std::uint8_t* p = pixels.data() + (std::size_t(y) * width + x) * 4;
        p[0] = rgb & 0xFF;
        p[1] = (rgb >> 8) & 0xFF;
        p[2] = (rgb >> 16) & 0xFF;
        p[3] = 0;
    };
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            bool edge = x == 0 || y == 0 || x == width - 1 || y == height - 1;
            int entry = (y - 1) / kMenuEntryHeight;
            put(x, y, edge ? kMenuBorder : entry == selected ? kMenuSelected : kMenuFace);
        }
    auto font = Font::Create({.faceUtf8 = "Sans", .height = -12});
    if (!font.ok())
        return pixels;
    std::vector<std::uint8_t> sheet(std::size_t(width) * kMenuEntryHeight);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        std::fill(sheet.begin(), sheet.end(), 0xFF);
        int pen = kMenuPadding;
        const int baseline = (kMenuEntryHeight + (*font)->Metrics().ascent - (*font)->Metrics().descent) / 2;
        for (unsigned char c : entries[i].textUtf8) {
            (*font)->Draw({sheet.data(), width, kMenuEntryHeight, width, false}, pen, baseline, c);
            pen += (*font)->Advance(c);
        }
        const std::uint32_t ink = int(i) == selected  ? kMenuSelectedText
                                  : entries[i].grayed ? kMenuGrayText
                                                      : kMenuText;
        for (int y = 0; y < kMenuEntryHeight; ++y)
            for (int x = 1; x < width - 1; ++x)
                if (sheet[std::size_t(y) * width + x] < 0x80)
                    put(x, 1 + int(i) * kMenuEntryHeight + y, ink);
    }
    return pixels;
}

} // namespace

void WindowHost::TrackPopupMenu(WindowId owner, std::vector<MenuEntry> entries, int x, int y)
{
    auto menu = std::make_unique<Menu>();
    int width = 80;
    if (auto font = Font::Create({.faceUtf8 = "Sans", .height = -12}); font.ok())
        for (const MenuEntry& entry : entries) {
            int text = 0;
            for (unsigned char c : entry.textUtf8)
                text += (*font)->Advance(c);
            width = std::max(width, text + 2 * kMenuPadding);
        }
    const int height = int(entries.size()) * kMenuEntryHeight + 2;
    // Centred on the point, kept inside the window where it fits.
    int left = std::clamp(x - width / 2, 0, std::max(0, width_ - width));
    int top = std::clamp(y - height / 2, 0, std::max(0, height_ - height));
    menu->owner = owner;
    menu->rect = {left, top, left + width, top + height};
    menu->pixels = DrawMenu(entries, width, height, -1);
    menu->entries = std::move(entries);
    {
        std::lock_guard guard(bufferLock_);
        menu_ = std::move(menu);
        dirty_ = true;
    }
    Wake();
}

bool WindowHost::PopupMenuOpen()
{
    std::lock_guard guard(bufferLock_);
    return menu_ != nullptr;
}

std::vector<MenuEntry> WindowHost::PopupMenuEntries()
{
    std::lock_guard guard(bufferLock_);
    return menu_ ? menu_->entries : std::vector<MenuEntry>{};
}

WindowRect WindowHost::PopupMenuRect()
{
    std::lock_guard guard(bufferLock_);
    return menu_ ? menu_->rect : WindowRect{};
}

WindowRect WindowHost::PopupMenuEntryRect(int index)
{
    std::lock_guard guard(bufferLock_);
    if (!menu_ || index < 0 || index >= int(menu_->entries.size()))
        return {};
    const WindowRect& r = menu_->rect;
    return {r.left + 1, r.top + 1 + index * kMenuEntryHeight, r.right - 1,
            r.top + 1 + (index + 1) * kMenuEntryHeight};
}

void WindowHost::CloseMenu()
{
    std::lock_guard guard(bufferLock_);
    menu_.reset();
    dirty_ = true;
}

void WindowHost::DrawMenuOver(std::vector<std::uint8_t>& topDown)
{
    if (!menu_)
        return;
    const WindowRect& r = menu_->rect;
    const int width = r.right - r.left;
    for (int y = std::max(r.top, 0); y < std::min(r.bottom, height_); ++y) {
        const int x0 = std::max(r.left, 0);
        const int x1 = std::min(r.right, width_);
        if (x1 <= x0)
            continue;
        std::memcpy(topDown.data() + (std::size_t(y) * width_ + x0) * 4,
                    menu_->pixels.data() + (std::size_t(y - r.top) * width + (x0 - r.left)) * 4,
                    std::size_t(x1 - x0) * 4);
    }
}

bool WindowHost::MenuTakes(const Message& message)
{
    if (!message.input || !PopupMenuOpen())
        return false;
    WindowId owner = 0;
    std::uint32_t chosen = 0;
    bool close = false;
    {
        std::lock_guard guard(bufferLock_);
        Menu& menu = *menu_;
        const int count = int(menu.entries.size());
        auto choose = [&](int index) {
            if (index >= 0 && index < count && !menu.entries[index].grayed) {
                chosen = menu.entries[index].command;
                owner = menu.owner;
            }
        };
        switch (message.code) {
        case kMsgLButtonUp:
        case kMsgRButtonUp:
        case kMsgLButtonDblClk:
            close = true;
            if (menu.rect.Contains(message.screenX, message.screenY))
                choose((message.screenY - menu.rect.top - 1) / kMenuEntryHeight);
            break;
        case kMsgKeyDown: {
            const int key = int(message.wParam);
            if (key == kKeyEscape) {
                close = true;
            } else if (key == kKeyReturn) {
                close = menu.selected >= 0;
                choose(menu.selected);
                close = close && owner != 0;
            } else if (key == kKeyDown || key == kKeyUp) {
                const int step = key == kKeyDown ? 1 : -1;
                for (int n = 1; n <= count; ++n) {
                    int index = ((menu.selected < 0 ? (step > 0 ? -1 : count) : menu.selected) + step * n +
                                 2 * count) %
                                count;
                    if (!menu.entries[index].grayed) {
                        menu.selected = index;
                        break;
                    }
                }
                menu.pixels = DrawMenu(menu.entries, menu.rect.right - menu.rect.left,
                                       menu.rect.bottom - menu.rect.top, menu.selected);
                dirty_ = true;
            }
            break;
        }
        case kMsgMouseMove:
            return false; // Still tracks the pointer.
        default:
            break;
        }
    }
    if (close)
        CloseMenu();
    if (owner != 0)
        Post(owner, kMsgCommand, chosen, 0);
    return true;
}

void WindowHost::PixelsPerInch(int& x, int& y) const
{
    x = 96;
    y = 96;
}

void WindowHost::Quit()
{
    quit_ = true;
    Wake();
}

namespace {

class HeadlessHost final : public WindowHost
{
public:
    HeadlessHost(int width, int height) : WindowHost(width, height, true) {}

protected:
    bool PollInput(std::uint32_t) override { return true; }
    void ShowBackBuffer(const std::vector<std::uint8_t>&) override {}
    void Wake() override { queueChanged_.notify_all(); }
};

} // namespace

std::unique_ptr<WindowHost> MakeSdlWindowHost(int width, int height, const char* title);

std::unique_ptr<WindowHost> WindowHost::Create(int width, int height, const char* title, bool headless)
{
    if (!headless)
        if (auto host = MakeSdlWindowHost(width, height, title))
            return host;
    return std::make_unique<HeadlessHost>(width, height);
}

} // namespace lumenar::platform
