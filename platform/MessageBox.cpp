#include "platform/MessageBox.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace lumenar::platform {

MessageSink* DisplayMessageSinkOrNull(); // The display back-end's sink, or null without a display.

namespace {

class StderrSink final : public MessageSink
{
public:
    int Show(Window*, unsigned, std::string_view title, std::string_view text) override
    {
        std::string line = "lumenar: ";
        if (!title.empty()) {
            line.append(title);
            line += ": ";
        }
        for (char c : text) {
            if (c == '\r')
                continue;
            if (c == '\n')
                line += ": ";
            else
                line += c;
        }
        line += '\n';
        std::fputs(line.c_str(), stderr);
        return kAnswerOk;
    }
};

std::atomic<MessageSink*> currentSink{nullptr};
thread_local MessageSink* threadSink = nullptr;

std::string Counted(const std::string& text, int repeats)
{
    return text + " (" + std::to_string(repeats) + " more times)";
}

MessageSink& DefaultSink()
{
    if (MessageSink* display = DisplayMessageSinkOrNull())
        return *display;
    return StderrMessageSink();
}

} // namespace

MessageSink& StderrMessageSink()
{
    static StderrSink sink;
    return sink;
}

MessageSink& CurrentMessageSink()
{
    if (MessageSink* sink = currentSink.load())
        return *sink;
    if (threadSink != nullptr)
        return *threadSink;
    return DefaultSink();
}

void SetMessageSink(MessageSink* sink)
{
    currentSink.store(sink);
}

MessageSink& MessageSinkFor(bool headless)
{
    if (MessageSink* sink = currentSink.load())
        return *sink;
    return headless ? StderrMessageSink() : DefaultSink();
}

ThreadMessageSink::ThreadMessageSink(MessageSink* sink) : previous_(threadSink)
{
    threadSink = sink;
}

ThreadMessageSink::~ThreadMessageSink()
{
    threadSink = previous_;
}

int DeferredMessageSink::Show(Window*, unsigned style, std::string_view title, std::string_view text)
{
    Message message{style, std::string(title), std::string(text)};
    {
        std::lock_guard guard(lock_);
        if (last_ && message == *last_) {
            ++repeats_;
            return kAnswerOk;
        }
        if (repeats_ > 0) {
            queue_.push_back({last_->style, last_->title, Counted(last_->text, repeats_)});
            repeats_ = 0;
        }
        last_ = message;
        queue_.push_back(std::move(message));
    }
    if (wake_)
        wake_();
    return kAnswerOk;
}

void DeferredMessageSink::Deliver(MessageSink& to, bool final)
{
    std::vector<Message> taken;
    {
        std::lock_guard guard(lock_);
        taken.swap(queue_);
        if (final && repeats_ > 0) {
            taken.push_back({last_->style, last_->title, Counted(last_->text, repeats_)});
            repeats_ = 0;
        }
    }
    for (const Message& message : taken)
        to.Show(nullptr, message.style, message.title, message.text);
}

} // namespace lumenar::platform
