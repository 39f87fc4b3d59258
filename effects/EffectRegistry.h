#pragma once

#include "base/Result.h"
#include "effects/EffectProtocol.h"
#include "effects/EffectTables.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace lumenar::effects {

/// Rows of the picture-effect table; a film's picture-effect number selects one.
inline constexpr int kPictureEffectCount = kPictureTableRows;
/// Rows of the text-effect table; a caption's effect number selects one.
inline constexpr int kTextEffectCount = kTextTableRows;

/// Table numbers of the registry's operations.
inline constexpr int kPictureTable = 1;
inline constexpr int kTextTable = 2;

/// What GetInfo fills in (648 bytes, the stride of arrays of them).
struct EffectInfo
{
    std::uint32_t mask;     ///< Bit 0: wants the name; bit 1: wants the description.
    std::uint32_t reserved; ///< Left alone.
    char name[128];
    char description[512];
};
static_assert(sizeof(EffectInfo) == 648);

/// Everything a listing shows about one row.
struct EffectRowDescription
{
    int table = kPictureTable;
    int row = 0;
    const char* procName = "";
    std::uint32_t direction = 0;
    std::int32_t variant = 0;
    std::int32_t number = 0;
    std::string name;
    Built built = Built::NotYet;
};

/// The way to the two effect tables by number. One per playback context, and a temporary one in the
/// film reader. Constructing any registry clears every row's active flag, reseeds the process-wide
/// generator (the time in seconds, or the fixed seed) and draws both random rows anew. Picture calls
/// come from the one playback thread; the shared tables are guarded so that a film read on another
/// thread cannot tear them.
class EffectRegistry
{
public:
    EffectRegistry();
    ~EffectRegistry();
    EffectRegistry(const EffectRegistry&) = delete;
    EffectRegistry& operator=(const EffectRegistry&) = delete;

    int PictureCount() const { return pictureCount_; }
    int TextCount() const { return textCount_; }

    /// With `load` false returns the table's row count and touches nothing. With `load` true fills every
    /// row's name and description from the effect-names file and returns the count; when the file is
    /// missing reports "Internal Error: vorbel.dll Missed" and returns 0. Table 1 or 2; others give 0.
    int LoadNames(int table, bool load);

    /// Copies a row's name and/or description (by info->mask) and returns 1; 0 for an unknown table.
    /// Compatibility: the index is clamped to 0 .. count, so the count itself reads the row just past
    /// the table (the first text row for the picture table, an empty row for the text table).
    int GetInfo(int index, int table, EffectInfo* info) const;

    /// Starts a walk over a table's rows: returns 0, or -1 for an unknown table.
    int First(int table);
    /// The next row of the walk, or -1 after the last row (and for an unknown table).
    int Next(int table);

    /// Calls picture row `index` (clamped to 0 .. count − 1) with `message` and a copy of `params`
    /// (which may be null) carrying the row's direction and variant. An init for a row that is already
    /// active, or a release for one that is not, is refused (0) without calling. A release of the random
    /// row draws its next effect. Returns the procedure's result. Playback thread only.
    std::int32_t RunPicture(int index, std::uint32_t message, const EffectParams* params);

    /// Calls text row `index` (clamped) with a copy of the caller's ten fields plus the row's direction
    /// and variant. No active-flag guard: several captions may run one row at once. Playback thread only.
    std::int32_t RunText(int index, std::uint32_t message, const TextEffectParams& params);

    /// A row's description for listings; `index` must be within the table.
    EffectRowDescription Describe(int table, int index) const;

    /// Makes every later construction seed the generator with `seed` instead of the time (tests, and
    /// `lumenar effect --seed`); nullopt restores the time.
    static void FixSeed(std::optional<std::uint32_t> seed);

    /// Where LoadNames reads the names from; empty restores the default (LUMENAR_EFFECT_NAMES, then
    /// effect-names.txt next to the program).
    static void SetNamesFile(std::string path);

private:
    int pictureCursor_ = 0;
    int textCursor_ = 0;
    int pictureCount_ = kPictureEffectCount;
    int textCount_ = kTextEffectCount;
};

/// The row of `table` that a person means by `text`: a row number, or a row's name as `lumenar effects`
/// lists it, in any case, with '-' or '_' for spaces, or the start of exactly one name. An exact name
/// wins over longer names it starts. Fails with a message to follow the text ("names more than one
/// picture effect: …"), which lists the candidates of an ambiguous start or the names closest to an
/// unknown one. Reads the names file; touches no registry state.
base::Result<int> ResolveEffectRow(int table, std::string_view text);

} // namespace lumenar::effects
