#include "app/FilmManifest.h"

#include <gtest/gtest.h>

#include <map>

namespace lumenar::app {
namespace {

using Bytes = std::vector<std::uint8_t>;

// A baseline JPEG start: SOI, an APP0 segment to skip, then SOF0 with height 480 and width 640.
const Bytes kJpeg = {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x04, 0x00, 0x00, 0xFF, 0xC0, 0x00,
                     0x0B, 0x08, 0x01, 0xE0, 0x02, 0x80, 0x01, 0x01, 0x11, 0x00};

base::Result<ManifestFilm> Read(std::string_view text)
{
    const std::map<std::string, Bytes> files = {
        {"photos/a.jpg", kJpeg}, {"b.jpg", Bytes(10, 1)},   {"m.jpg", Bytes(4, 2)},
        {"v.ca", Bytes(7, 3)},   {"song.wav", Bytes(5, 4)}, {"empty.jpg", {}},
    };
    return ReadFilmManifest(text, [&files](const std::string& name) -> base::Result<Bytes> {
        const auto found = files.find(name);
        if (found == files.end())
            return base::Error{base::ErrorCode::NotFound, "cannot open " + name};
        return found->second;
    });
}

TEST(FilmManifest, DescribesFilmItemsAndCaptions)
{
    auto read = Read(R"(# A small film.
music song.wav
advance manual
loop 0
photo photos/a.jpg
  mask m.jpg
  sound v.ca
  effect 12
  effect-ms 1500
  seconds 4
  caption text="Hello \"you\"" effect=3 x=40 y=400 height=-36 colour=0x00FF00 face=Serif align=1 shadow=0
photo b.jpg    # no JPEG header: size given by hand
  size 320 240
  rect 1 2 3 4
)");
    ASSERT_TRUE(read.ok()) << read.error().message;
    const film::Film& film = read->film;
    EXPECT_EQ(film.GetMusicPath(), "5_song.wav");
    EXPECT_EQ(read->music, Bytes(5, 4));
    EXPECT_EQ(film.GetAdvanceMode(), film::kAdvanceManual);
    EXPECT_EQ(film.GetLoop(), 0);
    ASSERT_EQ(film.ItemCount(), 2);
    const film::FilmItem first = film.GetItem(1);
    EXPECT_EQ(first.photo.cstrName, "21_a.jpg");
    EXPECT_EQ(first.mask.cstrName, "4_m.jpg");
    EXPECT_EQ(first.sound.cstrName, "7_v.ca");
    EXPECT_EQ(std::tie(first.width, first.height, first.effect, first.effectMs, first.displaySeconds),
              std::make_tuple(640, 480, 12, 1500, 4));
    ASSERT_EQ(first.texts.size(), 1u);
    const film::FilmText& caption = first.texts[0];
    EXPECT_EQ(caption.text, "Hello \"you\"");
    EXPECT_EQ(caption.effect, 3);
    EXPECT_EQ(std::tie(caption.style.x, caption.style.y, caption.style.font.height, caption.style.colour),
              std::make_tuple(40, 400, -36, 0x00FF00u));
    EXPECT_STREQ(caption.style.font.faceName, "Serif");
    EXPECT_EQ(caption.style.alignment, 1);
    EXPECT_EQ(caption.style.shadow, 0);
    const film::FilmItem second = film.GetItem(2);
    EXPECT_EQ(std::tie(second.width, second.height, second.displaySeconds), std::make_tuple(320, 240, 5));
    EXPECT_EQ(second.rect[3], 4);
    ASSERT_EQ(read->media.size(), 2u);
    EXPECT_EQ(read->media[0].photo, kJpeg);
    EXPECT_EQ(read->media[0].sound, Bytes(7, 3));
    EXPECT_TRUE(film::WriteFilmStream(film, read->media, read->music).ok());
}

TEST(FilmManifest, DiscMusicCarriesNoBytes)
{
    auto read = Read("music D:\\Track01.CDA\nphoto b.jpg\n");
    ASSERT_TRUE(read.ok()) << read.error().message;
    EXPECT_EQ(read->film.GetMusicPath(), "D:\\Track01.CDA");
    EXPECT_TRUE(read->music.empty());
}

// A photo with halved chroma shows sheared unless its width rounds up to a multiple of 16.
TEST(FilmManifest, WarnsOfPhotosThePlayerShowsSheared)
{
    struct Case
    {
        int width;
        std::uint8_t lumaSampling; // Horizontal factor in the high nibble.
        bool warned;
    };
    const Case cases[] = {
        {600, 0x22, true}, {601, 0x22, false}, {592, 0x22, false}, {24, 0x21, true}, {600, 0x11, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.width);
        const Bytes photo = {0xFF,
                             0xD8,
                             0xFF,
                             0xC0,
                             0x00,
                             0x11,
                             0x08,
                             0x01,
                             0xE0,
                             static_cast<std::uint8_t>(c.width >> 8),
                             static_cast<std::uint8_t>(c.width & 0xFF),
                             0x03,
                             0x01,
                             c.lumaSampling,
                             0x00};
        auto read = ReadFilmManifest("photo p.jpg\n",
                                     [&photo](const std::string&) -> base::Result<Bytes> { return photo; });
        ASSERT_TRUE(read.ok()) << read.error().message;
        EXPECT_EQ(read->warnings.size(), c.warned ? 1u : 0u);
        EXPECT_EQ(read->film.GetItem(1).width, c.width);
    }
}

TEST(FilmManifest, MistakesNameTheirLine)
{
    struct Row
    {
        const char* text;
        const char* message;
    } rows[] = {
        {"photo b.jpg\nwobble 3\n", "line 2: unknown setting \"wobble\""},
        {"mask m.jpg\n", "line 1: \"mask\" belongs to an item"},
        {"photo b.jpg\nloop 1\n", "line 2: \"loop\" is a film setting"},
        {"photo b.jpg\nseconds five\n", "line 2: seconds \"five\" is not a 32-bit number"},
        {"photo b.jpg\neffect 99999999999\n", "line 2: effect"},
        {"photo b.jpg\ncaption text=\"open\n", "line 2: a quote is not closed"},
        {"photo b.jpg\ncaption effect=3\n", "line 2: a caption needs text"},
        {"photo b.jpg\ncaption text=x size=3\n", "line 2: unknown caption setting \"size\""},
        {"photo missing.jpg\n", "line 1: cannot open missing.jpg"},
        {"photo empty.jpg\n", "line 1: photo empty.jpg is empty"},
        {"photo b.jpg c.jpg\n", "line 1: \"photo\" takes 1 value"},
        {"advance sometimes\nphoto b.jpg\n", "line 1: advance \"sometimes\""},
        {"# nothing\n", "the manifest has no photo"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        auto read = Read(row.text);
        ASSERT_FALSE(read.ok());
        EXPECT_EQ(read.error().message.rfind(row.message, 0), 0u) << read.error().message;
    }
}

} // namespace
} // namespace lumenar::app
