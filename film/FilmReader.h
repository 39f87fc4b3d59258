#pragma once

#include "film/Film.h"
#include "platform/CompoundFile.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace lumenar::film {

/// Format version of the films we read.
inline constexpr std::uint32_t kFilmVersion = 200;

/// Sizes of the records a film file stores.
inline constexpr std::size_t kFileReferenceBytes = 516;
inline constexpr std::size_t kItemRecordBytes = 3144;
inline constexpr std::size_t kCaptionRecordBytes = 360;

/// The longest path a film file may be opened by, in UTF-16 units without the terminator.
inline constexpr std::size_t kMaxFilmPathUnits = 259;

/// The message shown when a film is newer than this player.
inline constexpr const char* kNewerVersionMessage = "This film requires a newer version of Vistrel";

/// Why a film file was not read whole, and the storage a failed version check keeps open.
struct FilmLoadOutcome
{
    std::string failure; ///< Empty when the whole file was read; else lower case, naming the value.
    /// Compatibility: after a failed version check the film file stays open, and locked, so that no
    /// other program takes it while its reader lives. The caller keeps this as long as it should hold.
    std::unique_ptr<platform::CompoundStorage> heldOpen;
};

/// Reads an opened film file (its root storage) into `film`, appending to what it holds. Returns 1
/// when the whole file was read and 0 otherwise; what was read before a failure stays in the film.
/// With `outcome`, it receives the reason and the storage held after a failed version check; without,
/// that storage is kept until the process ends.
int LoadFilmStorage(Film& film, std::unique_ptr<platform::CompoundStorage> root,
                    FilmLoadOutcome* outcome = nullptr);

/// Decodes a 516-byte file reference record; text fields end at their first NUL or at their size.
FilmFile ParseFileReference(std::span<const std::uint8_t, kFileReferenceBytes> record);

/// Clamps an effect number read from a film: a number greater than `count` becomes count − 1 (or 0 for
/// an empty table). Compatibility: a number equal to the count and negative numbers pass unchanged;
/// the effect tables clamp again when they run.
std::int32_t ClampEffectNumber(std::int32_t effect, int count);

} // namespace lumenar::film
