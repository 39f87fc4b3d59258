#pragma once

#include <span>
#include <string>
#include <string_view>

namespace lumenar::app {

/// Arguments after the subcommand's name.
using Args = std::span<const std::string>;

/// Prints "lumenar: <input>: <message>" to stderr and returns the failure status.
int Fail(std::string_view input, std::string_view message);

/// `lumenar decode PHOTO -o OUT`: one photo through the player's decoder to a picture file.
int DecodeCommand(Args args);

/// `lumenar info FILM`: the film's model as one JSON object.
int InfoCommand(Args args);

} // namespace lumenar::app
