#pragma once

#include <string_view>

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

/// The sink used by ReportBox. Defaults to a message box when a display is present and to stderr
/// otherwise. Any thread.
MessageSink& CurrentMessageSink();

/// Replaces the sink (tests, headless hosts); nullptr restores the default. The caller keeps ownership
/// and must restore the default before the sink dies.
void SetMessageSink(MessageSink* sink);

/// A sink that writes "lumenar: <title>: <text>" (line breaks of the text become ": ") to stderr.
MessageSink& StderrMessageSink();

} // namespace lumenar::platform
