#pragma once

#include "records/TextRecord.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace lumenar::film {

/// Item kinds.
inline constexpr std::int32_t kFilmItemPhoto = 1000;
inline constexpr std::int32_t kFilmItemClip = 1001;
inline constexpr std::int32_t kFilmItemPowerPoint = 1003;
/// The kind of the empty item GetItem returns for a number it does not know.
inline constexpr std::int32_t kFilmItemNone = 1;

/// Advance modes (the film's AUTOPLAY value); any other value behaves like manual.
inline constexpr std::int32_t kAdvanceAutomatic = 728;
inline constexpr std::int32_t kAdvanceManual = 729;

/// The sound mode in which `sound` names a track of an audio compact disc.
inline constexpr std::int32_t kSoundModeCdTrack = 2;

/// A reference to one file of the film: a folder and a file name, both bytes in the film's code page.
/// An in-memory picture is named by its byte count (`cstrPath`) and its block's handle (`cstrName`).
struct FilmFile
{
    std::string cstrPath;
    std::string cstrName;
    bool operator==(const FilmFile&) const = default;
};

/// The full path of a reference: the name alone when the folder is empty, otherwise folder, one
/// backslash unless the folder already ends with one, and name.
std::string JoinFilmFile(const FilmFile& file);

/// The decimal number at the start of the base name of `name` (the part before the extension):
/// digits are taken until the first non-digit; none gives 0. Compatibility: no sign and no overflow
/// check, the value wraps as a 32-bit integer does on the authoring system.
std::int32_t LeadingNumber(std::string_view name);

/// One caption of an item.
struct FilmText
{
    std::int32_t ordinal = 0;    ///< 1-based position in the item's caption list, set when appended.
    std::int32_t effect = 0;     ///< Row of the text-effect table.
    std::string text;            ///< At most 255 bytes in the film's code page.
    records::TextRecord style{}; ///< Held verbatim.
    bool operator==(const FilmText& other) const;
};

/// One entry of the film; `kind` decides which file references are used.
struct FilmItem
{
    FilmFile photo;        ///< Photo: the photograph.
    FilmFile mask;         ///< Photo: its mask picture (optional).
    FilmFile clipFile;     ///< Clip: the media clip.
    FilmFile clipPicture1; ///< Clip: first picture.
    FilmFile clipSpare1;   ///< Never filled by the reader.
    FilmFile clipPicture2; ///< Clip: second picture.
    FilmFile clipSpare2;   ///< Never filled by the reader.
    FilmFile showFile;     ///< PowerPoint: the show.
    FilmFile sound;        ///< Narration of any kind of item.
    std::int32_t userWord = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t displaySeconds = 0;
    std::int32_t effect = 0;   ///< Row of the picture-effect table.
    std::int32_t effectMs = 0; ///< Transition length in milliseconds.
    std::int32_t index = -1;   ///< 1-based position in the film, kept by the film.
    std::int32_t kind = kFilmItemNone;
    std::int32_t soundMode = 0;
    std::int32_t rect[4] = {0, 0, 0, 0}; ///< Left, top, right, bottom.
    std::vector<FilmText> texts;         ///< The captions, in order.
    bool operator==(const FilmItem& other) const;
};

/// The in-memory form of one film: its settings and its ordered items. Items are numbered from 1;
/// copies handed out are deep copies owned by the caller. Not thread-safe: the loader and playback
/// threads coordinate through their own events and locks.
class Film
{
public:
    /// An empty film: no items, ItemCount −1, automatic advance, loop 1, no music, and the default
    /// caption style (the first TrueType face of "Arial" at height −48, white, 100 % spacing, left,
    /// shadow on).
    Film();

    /// Reads a film file into this film, appending to what it holds. Returns 1 when the whole file was
    /// read, 0 otherwise; items and captions read before a failure stay. A film too new for us is
    /// reported through ReportBox.
    int Load(const std::string& path);

    /// Appends a copy of `item` (its captions are not copied; use AddText) and returns its number.
    std::int32_t AddItem(const FilmItem& item);
    /// A copy of item `index`, or an empty item with index −1 and kind 1 when there is none.
    FilmItem GetItem(std::int32_t index) const;
    /// Copies every field of `item`, captions included, onto the stored item with the same index;
    /// nothing happens when there is none.
    void SetItem(std::int32_t index, const FilmItem& item);
    /// Removes item `index` and numbers the rest 1, 2, 3, … again.
    void RemoveItem(std::int32_t index);
    std::int32_t ItemCount() const { return itemCount_; }
    /// Appends a caption to item `itemIndex` with the next ordinal; the caption's own ordinal is ignored.
    void AddText(std::int32_t itemIndex, const FilmText& text);

    /// Splits a full path into the music folder (drive and directory) and name.
    void SetMusic(std::string_view fullPath);
    /// The music folder followed directly by the name.
    std::string GetMusicPath() const { return musicFolder_ + musicName_; }
    void SetAdvanceMode(std::int32_t mode) { advanceMode_ = mode; }
    std::int32_t GetAdvanceMode() const { return advanceMode_; }
    void SetLoop(std::int32_t loop) { loop_ = loop; }
    std::int32_t GetLoop() const { return loop_; }
    std::int32_t GetScaleClips() const { return scaleClips_; }
    const records::TextRecord& CaptionStyle() const { return *captionStyle_; }

private:
    FilmItem* Find(std::int32_t index);

    std::vector<FilmItem> items_;
    std::string musicFolder_;
    std::string musicName_;
    std::int32_t scaleClips_ = 0;
    std::int32_t itemCount_ = -1;
    std::int32_t advanceMode_ = kAdvanceAutomatic;
    std::int32_t loop_ = 1;
    std::unique_ptr<records::TextRecord> captionStyle_;
};

} // namespace lumenar::film
