#pragma once

#include "base/Result.h"
#include "film/Film.h"
#include "film/FilmStreamWriter.h"
#include "platform/CodePage.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lumenar::app {

/// A film and the bytes its stream carries, as a manifest describes them.
struct ManifestFilm
{
    film::Film film;
    std::vector<film::ItemMedia> media;
    std::vector<std::uint8_t> music;
    /// What packs but will not look as its author expects, one line each ("photo x.jpg: …").
    std::vector<std::string> warnings;
    /// The code page the captions were converted to (`codepage N`; 1252 unless the manifest says).
    int codePage = platform::kDefaultCodePage;
};

/// Reads a colour written as "#RRGGBB" (as web pages write them) into the film's 0xBBGGRR order.
std::optional<std::uint32_t> ParseHashColour(std::string_view text);

/// How long a transition lasts when the manifest names it without `effect-ms`.
inline constexpr std::int32_t kDefaultEffectMs = 1000;

/// Loads the bytes of a file that a manifest names (as written in the manifest).
using ManifestFileReader = std::function<base::Result<std::vector<std::uint8_t>>(const std::string& name)>;

/// A photo or mask file as the film carries it: its bytes and the name it goes under.
struct FilmPicture
{
    std::vector<std::uint8_t> bytes;
    std::string name;
};

/// Whether a picture is an item's photo or its mask.
enum class PictureRole
{
    Photo,
    Mask,
};

/// Turns a photo or mask, as read, into what the film carries (for instance a PNG into a JPEG named
/// ".jpg"), given its role and its item's number (1 for the first). Fails with a message for a file
/// that cannot be used.
using ManifestPictureFilter =
    std::function<base::Result<FilmPicture>(FilmPicture picture, PictureRole role, int item)>;

/// Reads a film manifest: one setting per line, '#' starts a comment, values with spaces in double
/// quotes (\" and \\ inside them). Film settings come first, then each `photo` line starts an item:
///
///     music FILE | advance automatic|manual | loop N | codepage N
///     photo FILE
///       mask FILE | sound FILE.ca|FILE.wav | effect N|NAME | effect-ms N | seconds N | size W H
///       rect L T R B
///       caption text="…" [effect=N|NAME x=N y=N height=N colour=0xBBGGRR|#RRGGBB face=NAME
///                         align=0|1|2 shadow=0|1 spacing=N weight=N italic=0|1]
///
/// The manifest is UTF-8: caption text and face names are converted to the film's code page, and the
/// captions' fonts record that page as their character set. Effects are named by row number or by name
/// (ResolveEffectRow); an item with an effect and no `effect-ms` gets kDefaultEffectMs.
/// Files are loaded through `readFile`; the names written into the film are their base names prefixed
/// with their byte counts, as the stream loader needs. A ".cda" music name is kept as it is and carries
/// no bytes. An item's `size` defaults to the photo's own size when the photo is a JPEG picture.
/// Every photo and mask goes through `filter` when one is given. Fails with the line number and what
/// was wrong there.
base::Result<ManifestFilm> ReadFilmManifest(std::string_view text, const ManifestFileReader& readFile,
                                            const ManifestPictureFilter& filter = {});

} // namespace lumenar::app
