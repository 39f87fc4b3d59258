#include "film/FilmStreamWriter.h"

#include "film/FilmReader.h"
#include "film/FilmReceiver.h"
#include "film/FilmWriter.h"
#include "tests/support/FilmWriter.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace lumenar::film {
namespace {

using Bytes = std::vector<std::uint8_t>;

Film SampleFilm()
{
    Film film;
    film.SetMusic("C:\\Music\\" + SizedName(4, "song.wav"));
    film.SetLoop(0);
    film.SetAdvanceMode(kAdvanceManual);
    FilmItem photo = testing::PhotoItem(SizedName(3, "a.jpg"), 17, 6);
    photo.mask.cstrName = SizedName(2, "m.jpg");
    photo.sound = {"C:\\Voice", SizedName(1, "v.ca")};
    photo.rect[0] = 5;
    film.AddItem(photo);
    film.AddText(1, testing::Caption("First", 3, 1));
    film.AddText(1, testing::Caption("Second", 4, 2));
    FilmItem clip;
    clip.kind = kFilmItemClip;
    clip.clipFile.cstrName = SizedName(2, "c.avi");
    clip.clipPicture1.cstrName = SizedName(1, "p.jpg");
    film.AddItem(clip);
    FilmItem show;
    show.kind = kFilmItemPowerPoint;
    show.showFile.cstrName = "9s.pps";
    film.AddItem(show);
    return film;
}

TEST(FilmWriter, FilmFilesReadBackAsWritten)
{
    const Film film = SampleFilm();
    auto bytes = WriteFilmFile(film);
    ASSERT_TRUE(bytes.ok()) << bytes.error().message;
    auto root = platform::CompoundStorage::OpenMemory(*bytes);
    ASSERT_TRUE(root.ok());
    Film loaded;
    EXPECT_EQ(LoadFilmStorage(loaded, std::move(root).value()), 1);
    EXPECT_EQ(loaded.GetMusicPath(), film.GetMusicPath());
    EXPECT_EQ(loaded.GetLoop(), 0);
    EXPECT_EQ(loaded.GetAdvanceMode(), kAdvanceManual);
    ASSERT_EQ(loaded.ItemCount(), 3);
    for (std::int32_t i = 1; i <= 3; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(loaded.GetItem(i), film.GetItem(i));
    }
}

TEST(FilmStreamWriter, LaysOutPiecesInTheLoadersOrder)
{
    const Film film = SampleFilm();
    const std::vector<ItemMedia> media = {
        {.photo = {1, 1, 1}, .mask = {2, 2}, .sound = {3}},
        {.clipPicture1 = {4}, .clipFile = {5, 5}},
        {},
    };
    auto stream = WriteFilmStream(film, media, Bytes{9, 9, 9, 9}, Bytes{7, 7});
    ASSERT_TRUE(stream.ok()) << stream.error().message;
    EXPECT_EQ(Bytes(stream->begin(), stream->begin() + 2), (Bytes{7, 7}));
    const Bytes tail(stream->end() - 13, stream->end());
    // Music, photo, mask, sound; then the clip's first picture and clip; nothing for the show.
    EXPECT_EQ(tail, (Bytes{9, 9, 9, 9, 1, 1, 1, 2, 2, 3, 4, 5, 5}));
    const std::string text(stream->begin(), stream->end());
    EXPECT_EQ(text.find(kFilmMarker), 2u);
    EXPECT_EQ(text.find(kMediaMarker), stream->size() - 13 - kMediaMarker.size());
    const std::span<const std::uint8_t> file = FilmFileInStream(*stream);
    EXPECT_EQ(Bytes(file.begin(), file.end()), WriteFilmFile(film).value());
    EXPECT_TRUE(FilmFileInStream(std::span(*stream).first(stream->size() - 40)).empty()) << "no media marker";
}

TEST(FilmStreamWriter, RefusesPiecesTheirNamesDoNotDescribe)
{
    struct Row
    {
        const char* name;
        std::vector<ItemMedia> media;
        Bytes music;
        const char* message;
    } rows[] = {
        {"photo too short",
         {{.photo = {1, 1}, .mask = {2, 2}, .sound = {3}}, {.clipPicture1 = {4}, .clipFile = {5, 5}}, {}},
         {9, 9, 9, 9},
         "the photo of item 1"},
        {"clip without its picture",
         {{.photo = {1, 1, 1}, .mask = {2, 2}, .sound = {3}}, {.clipFile = {5, 5}}, {}},
         {9, 9, 9, 9},
         "the first clip picture of item 2"},
        {"music missing",
         {{.photo = {1, 1, 1}, .mask = {2, 2}, .sound = {3}}, {.clipPicture1 = {4}, .clipFile = {5, 5}}, {}},
         {},
         "the music"},
        {"media for too few items", {{}}, {9, 9, 9, 9}, "3 items but 1"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto stream = WriteFilmStream(SampleFilm(), row.media, row.music);
        ASSERT_FALSE(stream.ok());
        EXPECT_NE(stream.error().message.find(row.message), std::string::npos) << stream.error().message;
    }
}

} // namespace
} // namespace lumenar::film
