#pragma once

#include "platform/DebugTrace.h"
#include "platform/MessageBox.h"

#include <mutex>
#include <string>
#include <vector>

namespace lumenar::testing {

/// The process's message sink while it lives: keeps every message shown instead of showing it.
class MessageCapture : public platform::MessageSink
{
public:
    struct Shown
    {
        unsigned style;
        std::string title;
        std::string text;
    };

    MessageCapture() { platform::SetMessageSink(this); }
    ~MessageCapture() override { platform::SetMessageSink(nullptr); }
    MessageCapture(const MessageCapture&) = delete;
    MessageCapture& operator=(const MessageCapture&) = delete;

    int Show(platform::Window*, unsigned style, std::string_view title, std::string_view text) override
    {
        std::lock_guard guard(lock_);
        shown_.push_back({style, std::string(title), std::string(text)});
        return platform::kAnswerOk;
    }
    std::vector<Shown> All() const
    {
        std::lock_guard guard(lock_);
        return shown_;
    }
    std::vector<std::string> Texts() const
    {
        std::vector<std::string> texts;
        for (const Shown& shown : All())
            texts.push_back(shown.text);
        return texts;
    }
    /// "title|text" of each message.
    std::vector<std::string> Lines() const
    {
        std::vector<std::string> lines;
        for (const Shown& shown : All())
            lines.push_back(shown.title + "|" + shown.text);
        return lines;
    }

private:
    mutable std::mutex lock_; // Messages may come from any thread.
    std::vector<Shown> shown_;
};

/// The process's debug trace while it lives: keeps every line instead of writing it.
class TraceCapture
{
public:
    TraceCapture()
    {
        platform::SetDebugTraceCapture([this](std::string_view line) {
            std::lock_guard guard(lock_);
            lines_.emplace_back(line);
        });
    }
    ~TraceCapture() { platform::SetDebugTraceCapture({}); }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    std::vector<std::string> Lines() const
    {
        std::lock_guard guard(lock_);
        return lines_;
    }

private:
    mutable std::mutex lock_; // Lines may come from any thread.
    std::vector<std::string> lines_;
};

} // namespace lumenar::testing
