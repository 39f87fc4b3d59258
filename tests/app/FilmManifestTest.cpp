#include "app/FilmManifest.h"

#include "app/FilmJson.h"
#include "effects/EffectRegistry.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>

namespace lumenar::app {
namespace {

using Bytes = std::vector<std::uint8_t>;

// A baseline JPEG start: SOI, an APP0 segment to skip, then SOF0 with height 480 and width 640.
const Bytes kJpeg = {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x04, 0x00, 0x00, 0xFF, 0xC0, 0x00,
                     0x0B, 0x08, 0x01, 0xE0, 0x02, 0x80, 0x01, 0x01, 0x11, 0x00};

base::Result<ManifestFilm> Read(std::string_view text)
{
    // Effects named in a manifest resolve through the names file of the source tree.
    const char* source = std::getenv("LUMENAR_SOURCE_DIR");
    effects::EffectRegistry::SetNamesFile(std::string(source != nullptr ? source : ".") +
                                          "/effects/effect-names.txt");
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

// The manifest is UTF-8; the film holds each caption in its code page and says which page that is, so
// that the film reads back as the author wrote it.
TEST(FilmManifest, CaptionsInAnyCodePageReadBackAsWritten)
{
    struct Row
    {
        int codePage;
        const char* text;
        const char* bytes; // As the film holds them; null: not checked.
        int charSet;
    } rows[] = {
        {0, "Café – 5 €", "Caf\xE9 \x96 5 \x80", 0},
        {1253, "Καλημέρα", nullptr, 161},
        {1251, "Привет", nullptr, 204},
        {932, "日本語", "\x93\xFA\x96\x7B\x8C\xEA", 128},
        {936, "你好", nullptr, 134},
        {949, "안녕", nullptr, 129},
        {950, "電影", nullptr, 136},
        {1250, "Łódź", nullptr, 238},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        const std::string manifest =
            (row.codePage != 0 ? "codepage " + std::to_string(row.codePage) + "\n" : "") +
            "photo b.jpg\ncaption text=\"" + row.text + "\" face=Serif\n";
        auto read = Read(manifest);
        ASSERT_TRUE(read.ok()) << read.error().message;
        const film::FilmText caption = read->film.GetItem(1).texts.at(0);
        if (row.bytes != nullptr) {
            EXPECT_EQ(caption.text, row.bytes);
        }
        EXPECT_EQ(caption.style.font.charSet, row.charSet);
        // Read back with the system's page left at its default: the font's set is what tells.
        const std::string json = FilmToJson(read->film, 1, 1252);
        EXPECT_NE(json.find(std::string("\"text\":\"") + row.text + "\""), std::string::npos) << json;
    }
}

// An effect given by name resolves to its row, and one given without a length lasts a second rather
// than playing as a cut.
TEST(FilmManifest, NamedEffectsAndTheirDefaultLength)
{
    auto read = Read("photo b.jpg\neffect \"flip right\"\ncaption text=x effect=letters-drop colour=#FF8000\n"
                     "photo b.jpg\neffect push-u\neffect-ms 0\nphoto b.jpg\n");
    ASSERT_TRUE(read.ok()) << read.error().message;
    const film::FilmItem first = read->film.GetItem(1);
    EXPECT_EQ(std::tie(first.effect, first.effectMs), std::make_tuple(0, 1000));
    EXPECT_EQ(first.texts.at(0).effect, 14);
    EXPECT_EQ(first.texts.at(0).style.colour, 0x0080FFu);
    const film::FilmItem second = read->film.GetItem(2);
    EXPECT_EQ(std::tie(second.effect, second.effectMs), std::make_tuple(49, 0)); // Asked for a cut.
    EXPECT_EQ(read->film.GetItem(3).effectMs, 0);
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
        {"photo b.jpg\neffect 99999999999\n", "line 2: effect \"99999999999\": not a picture-effect row"},
        {"photo b.jpg\ncaption text=\"open\n", "line 2: a quote is not closed"},
        {"photo b.jpg\ncaption effect=3\n", "line 2: a caption needs text"},
        {"photo b.jpg\ncaption text=x size=3\n", "line 2: unknown caption setting \"size\""},
        {"photo missing.jpg\n", "line 1: cannot open missing.jpg"},
        {"photo empty.jpg\n", "line 1: photo empty.jpg is empty"},
        {"photo b.jpg c.jpg\n", "line 1: \"photo\" takes 1 value"},
        {"advance sometimes\nphoto b.jpg\n", "line 1: advance \"sometimes\""},
        {"photo b.jpg\neffect wobble\n",
         "line 2: effect \"wobble\": names no picture effect; the closest are"},
        {"photo b.jpg\neffect flip\n", "line 2: effect \"flip\": names more than one picture effect"},
        {"photo b.jpg\ncaption text=x effect=99\n", "line 2: effect \"99\": not a text-effect row"},
        {"codepage 437\nphoto b.jpg\n", "line 1: code page 437 is not one a film can record"},
        {"photo b.jpg\ncaption text=\"日本\"\n", "line 2: \"日\" (U+65E5) has no place in code page 1252"},
        {"codepage 1251\nphoto b.jpg\ncaption text=\"Café\"\n",
         "line 3: \"é\" (U+00E9) has no place in code page 1251"},
        {"photo b.jpg\ncaption text=\"\xC3\"\n", "line 2: the text is not UTF-8 at byte 1"},
        {"photo b.jpg\ncaption text=x colour=#12345\n", "line 2: colour \"#12345\" is not #RRGGBB"},
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
