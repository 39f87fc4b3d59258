#pragma once

#include <span>
#include <string>
#include <string_view>

namespace lumenar::app {

/// Arguments after the subcommand's name.
using Args = std::span<const std::string>;

/// Prints "lumenar: <input>: <message>" to stderr and returns the failure status.
int Fail(std::string_view input, std::string_view message);

/// `lumenar info FILM`: the film's model as one JSON object.
int InfoCommand(Args args);

/// `lumenar narration IN.ca -o OUT.wav` and `lumenar narration --pack FRAMES -o OUT.ca`.
int NarrationCommand(Args args);

} // namespace lumenar::app
