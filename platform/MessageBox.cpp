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
    if (MessageSink* display = DisplayMessageSinkOrNull())
        return *display;
    return StderrMessageSink();
}

void SetMessageSink(MessageSink* sink)
{
    currentSink.store(sink);
}

} // namespace lumenar::platform
