#include "film/FilmStreamWriter.h"

#include "base/StrCat.h"
#include "film/FilmReceiver.h"
#include "film/FilmWriter.h"

namespace lumenar::film {
namespace {

base::Status CheckPiece(const char* what, std::int32_t number, const FilmFile& file,
                        const std::vector<std::uint8_t>& bytes)
{
    const std::int32_t named = LeadingNumber(file.cstrName);
    if (named < 0 || static_cast<std::size_t>(named) != bytes.size())
        return base::Error{base::ErrorCode::InvalidInput,
                           base::StrCat(what, " of item ", number, " is named \"", file.cstrName, "\" (",
                                        named, " bytes) but has ", bytes.size(), " bytes")};
    return {};
}

void Append(std::vector<std::uint8_t>& out, std::span<const std::uint8_t> bytes)
{
    out.insert(out.end(), bytes.begin(), bytes.end());
}

} // namespace

std::string SizedName(std::size_t size, std::string_view name)
{
    return name.empty() ? std::string() : base::StrCat(size, "_", name);
}

base::Result<std::vector<std::uint8_t>> WriteFilmStream(const Film& film, std::span<const ItemMedia> media,
                                                        std::span<const std::uint8_t> music,
                                                        std::span<const std::uint8_t> preamble)
{
    const std::int32_t count = std::max(film.ItemCount(), 0);
    if (media.size() != static_cast<std::size_t>(count))
        return base::Error{base::ErrorCode::InvalidInput, base::StrCat("the film has ", count, " items but ",
                                                                       media.size(), " were given media")};
    const std::string musicPath = film.GetMusicPath();
    const std::int32_t musicNamed = MusicPieceSize(musicPath);
    if (musicNamed < 0 || static_cast<std::size_t>(musicNamed) != music.size())
        return base::Error{base::ErrorCode::InvalidInput,
                           base::StrCat("the music is named \"", musicPath, "\" (", musicNamed,
                                        " bytes) but has ", music.size(), " bytes")};

    std::vector<std::uint8_t> out(preamble.begin(), preamble.end());
    Append(out, {reinterpret_cast<const std::uint8_t*>(kFilmMarker.data()), kFilmMarker.size()});
    Append(out, LUM_TRY(WriteFilmFile(film)));
    Append(out, {reinterpret_cast<const std::uint8_t*>(kMediaMarker.data()), kMediaMarker.size()});

    bool musicWritten = false;
    for (std::int32_t number = 1; number <= count; ++number) {
        const FilmItem item = film.GetItem(number);
        const ItemMedia& bytes = media[static_cast<std::size_t>(number - 1)];
        const bool clip = item.kind == kFilmItemClip;
        const bool photo = item.kind == kFilmItemPhoto;
        LUM_TRY(CheckPiece("the sound", number, item.sound, bytes.sound));
        if (photo) {
            LUM_TRY(CheckPiece("the photo", number, item.photo, bytes.photo));
            LUM_TRY(CheckPiece("the mask", number, item.mask, bytes.mask));
        }
        if (clip) {
            LUM_TRY(CheckPiece("the clip", number, item.clipFile, bytes.clipFile));
            LUM_TRY(CheckPiece("the first clip picture", number, item.clipPicture1, bytes.clipPicture1));
            LUM_TRY(CheckPiece("the second clip picture", number, item.clipPicture2, bytes.clipPicture2));
        }
        // The loader takes nothing for an item whose main file is empty, so neither do we.
        if ((photo && bytes.photo.empty()) || (clip && bytes.clipFile.empty()) || (!photo && !clip))
            continue;
        if (!musicWritten) {
            Append(out, music);
            musicWritten = true;
        }
        if (clip) {
            Append(out, bytes.clipPicture1);
            Append(out, bytes.clipFile);
            Append(out, bytes.clipPicture2);
        } else {
            Append(out, bytes.photo);
            Append(out, bytes.mask);
        }
        Append(out, bytes.sound);
    }
    return out;
}

} // namespace lumenar::film
