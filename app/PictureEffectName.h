#pragma once

#include "base/Result.h"

#include <cstdint>
#include <string_view>

namespace lumenar::app {

/// The picture-effect row that `text` names: a row number (0-98) or "random" (the random row, which
/// plays a row drawn anew for every transition). Fails with a message that says what is accepted
/// (without `text`: the caller names it).
base::Result<std::int32_t> ResolvePictureEffect(std::string_view text);

} // namespace lumenar::app
