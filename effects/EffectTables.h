#pragma once

#include "effects/EffectProtocol.h"

#include <cstdint>

namespace lumenar::effects {

/// Whether a row's procedure exists yet.
enum class Built : std::uint8_t
{
    Yes,    ///< The row runs its own procedure.
    NotYet, ///< The family is not built: the row renders as a cut (pictures) or draws nothing (text).
    Random, ///< The random row: it runs whatever row was last drawn for it.
};

/// One row of an effect table. The row number is the film's effect number, so the order of the rows
/// is part of the film format.
struct EffectEntry
{
    char* name;           ///< Display name buffer (129 bytes) while a registry exists; empty until loaded.
    char* description;    ///< Description buffer (513 bytes), same lifetime.
    std::uint32_t nameId; ///< Id of the name in the effect-names file; 0: no name.
    std::uint32_t descriptionId; ///< Id of the description; 0 in every row.
    EffectProc proc;             ///< Null only in the random row until a registry fills it.
    std::uint32_t direction;     ///< EffectDirection code (low 16 bits) passed in the block.
    std::int32_t variant;        ///< The family's parameter, passed in the block.
    std::int32_t active;         ///< Picture table: 1 between an accepted init and release.
    std::int32_t number;         ///< Stored with the row and never read by playback.
    const char* procName;        ///< The family's name, for listings.
    Built built;
};

inline constexpr int kPictureTableRows = 99;
inline constexpr int kTextTableRows = 54;

/// The picture table's first row. The text table follows it directly in memory, and one empty row
/// follows the text table, so that a read of the row just past either table lands on a row.
/// Process-wide and writable; the registry is the only writer.
EffectEntry* PictureEffectTable();
/// The text table's first row (directly after the picture table's last).
EffectEntry* TextEffectTable();

} // namespace lumenar::effects
