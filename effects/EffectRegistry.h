#pragma once

namespace lumenar::effects {

/// Rows of the picture-effect table; a film's picture-effect number selects one.
inline constexpr int kPictureEffectCount = 99;
/// Rows of the text-effect table; a caption's effect number selects one.
inline constexpr int kTextEffectCount = 54;

/// The process-wide effect tables. So far it answers only the two table sizes, which the film reader
/// clamps effect numbers against; the rows themselves are not built yet.
class EffectRegistry
{
public:
    int PictureCount() const { return kPictureEffectCount; }
    int TextCount() const { return kTextEffectCount; }
};

} // namespace lumenar::effects
