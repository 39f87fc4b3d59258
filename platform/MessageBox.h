#pragma once

#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lumenar::platform {

struct Window; // A window of the windowing layer; message boxes only use it as their owner.

/// Message-box styles, as the player's messages ask for them (values as the classic box flags).
enum MessageBoxStyle : unsigned
{
    kBoxOk = 0x00,
    kBoxIconError = 0x10,
    kBoxIconWarning = 0x30,
    kBoxIconInformation = 0x40,
};

/// The answer of a message box: the button the viewer chose.
enum MessageBoxAnswer : int
{
    kAnswerOk = 1
};

/// Where user-facing messages go: a box on a display, a line on stderr without one, or a test's capture.
class MessageSink
{
public:
    virtual ~MessageSink() = default;
    /// Shows one message and returns the chosen button. `title` may be empty (the platform's default
    /// title then shows). Text and title are UTF-8. Any thread.
    virtual int Show(Window* owner, unsigned style, std::string_view title, std::string_view text) = 0;
};

/// The sink used by ReportBox: the one SetMessageSink set for the whole process, else the one this
/// thread's ThreadMessageSink names, else a message box when a display is present and stderr without
/// one. Any thread.
MessageSink& CurrentMessageSink();

/// Replaces the sink for the whole process (tests, hosts that show messages their own way); nullptr
/// restores the default. The caller keeps ownership and must restore the default before the sink dies.
void SetMessageSink(MessageSink* sink);

/// Where a control's messages end up when no sink was set for the process: stderr for a control
/// without a window on screen (headless), else the default (a box on a display). Any thread.
MessageSink& MessageSinkFor(bool headless);

/// While it lives, the reports of the thread that made it go to `sink` (unless a sink was set for the
/// whole process). A player's worker threads name their player's DeferredMessageSink, so that nothing
/// they report can block them in a box. Nests; made and destroyed on one thread.
class ThreadMessageSink
{
public:
    explicit ThreadMessageSink(MessageSink* sink);
    ~ThreadMessageSink();
    ThreadMessageSink(const ThreadMessageSink&) = delete;
    ThreadMessageSink& operator=(const ThreadMessageSink&) = delete;

private:
    MessageSink* previous_;
};

/// Holds the messages of worker threads for the thread that owns a window: Show queues the message,
/// calls `wake` (which posts to that thread) and answers OK at once; Deliver, on the owning thread,
/// shows what is queued. A message that repeats the one before it (the same style, title and text) is
/// counted instead of shown again, and the count follows as "<text> (N more times)" when another message
/// comes or at the final delivery: a damaged film cannot raise a box, or a line, per frame. Show: any
/// thread.
class DeferredMessageSink final : public MessageSink
{
public:
    explicit DeferredMessageSink(std::function<void()> wake) : wake_(std::move(wake)) {}
    int Show(Window* owner, unsigned style, std::string_view title, std::string_view text) override;
    /// Shows the queued messages through `to`, in order; `final` also shows a count still held back.
    /// The owning thread.
    void Deliver(MessageSink& to, bool final = false);

private:
    struct Message
    {
        unsigned style = 0;
        std::string title;
        std::string text;
        bool operator==(const Message&) const = default;
    };
    std::function<void()> wake_;
    std::mutex lock_; // Guards the members below.
    std::vector<Message> queue_;
    std::optional<Message> last_; // The message queued most recently.
    int repeats_ = 0;             // How often it came again since.
};

/// A sink that writes "lumenar: <title>: <text>" (line breaks of the text become ": ") to stderr.
MessageSink& StderrMessageSink();

} // namespace lumenar::platform
