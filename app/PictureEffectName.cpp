#include "app/PictureEffectName.h"

#include "base/StrCat.h"
#include "effects/EffectTables.h"

#include <charconv>

namespace lumenar::app {

base::Result<std::int32_t> ResolvePictureEffect(std::string_view text)
{
    if (text == "random" || text == "Random") {
        const effects::EffectEntry* table = effects::PictureEffectTable();
        for (int row = 0; row < effects::kPictureTableRows; ++row)
            if (table[row].built == effects::Built::Random)
                return row;
    }
    std::int32_t row = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), row);
    if (error != std::errc{} || end != text.data() + text.size() || row < 0 ||
        row >= effects::kPictureTableRows)
        return base::Error{base::ErrorCode::InvalidInput,
                           base::StrCat("not a picture-effect row (0-", effects::kPictureTableRows - 1,
                                        " or random; see 'lumenar effects')")};
    return row;
}

} // namespace lumenar::app
