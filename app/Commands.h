#pragma once

#include <span>
#include <string>
#include <string_view>

namespace lumenar::app {

/// Arguments after the subcommand's name.
using Args = std::span<const std::string>;

/// Prints "lumenar: <input>: <message>" to stderr and returns the failure status.
int Fail(std::string_view input, std::string_view message);

/// Parses a whole decimal integer within low..high.
bool ParseInt(const std::string& text, long long low, long long high, long long& out);

/// Parses a progress n/d with 0 <= n <= d and d > 0.
bool ParseProgress(const std::string& text, long long& n, long long& d);
inline constexpr const char* kProgressMessage = "progress must be n/d with 0 <= n <= d and d > 0";

/// Parses WxH, each side a whole number within low..high.
bool ParseSize(const std::string& text, long long low, long long high, int& width, int& height);

/// `lumenar decode PHOTO -o OUT`: one photo through the player's decoder to a picture file.
int DecodeCommand(Args args);

/// `lumenar info FILM`: the film's model as one JSON object.
int InfoCommand(Args args);

/// `lumenar effects`: every row of both effect tables, one tab-separated line each.
int EffectsCommand(Args args);

/// `lumenar effect --picture N --from A --to B --progress n/d [--seed S] -o OUT`: one frame of a transition.
int EffectCommand(Args args);

/// `lumenar gallery -o DIR [options]`: an offline page with an animated preview of every effect row.
int GalleryCommand(Args args);

/// `lumenar caption --on PICTURE --text T [options] -o OUT`: one frame of a caption's text effect, or
/// its layout as JSON with `--glyphs`.
int CaptionCommand(Args args);

/// `lumenar narration IN.ca -o OUT.wav` and `lumenar narration --pack FRAMES -o OUT.ca`.
int NarrationCommand(Args args);

/// `lumenar play FILM|URL [options]`: the player control in a window, loaded from liblumenar.so.
int PlayCommand(Args args);

/// `lumenar render FILM|URL -o OUT [options]`: the film as the player shows it, to a video, a GIF or
/// PNG frames, on a clock that runs as fast as the machine allows.
int RenderCommand(Args args);

/// `lumenar pack MANIFEST -o OUT.film`: a film stream from the files a manifest names.
int PackCommand(Args args);

/// `lumenar register` / `lumenar unregister`: the player control's per-user registration.
int RegisterCommand(Args args);
int UnregisterCommand(Args args);

} // namespace lumenar::app
