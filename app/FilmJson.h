#pragma once

#include "film/Film.h"

#include <string>

namespace lumenar::app {

/// The JSON form of a loaded film that `lumenar info` prints: `result` is Load's answer, strings are
/// converted from `codePage` to UTF-8. Other tools read this format: keep it stable.
std::string FilmToJson(const film::Film& film, int result, int codePage);

} // namespace lumenar::app
