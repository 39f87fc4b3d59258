#include "film/FilmReader.h"

#include "tests/support/FilmWriter.h"
#include "tests/support/MessageCapture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>

namespace lumenar::film {
namespace {

using testing::Bytes;
using testing::FilmDescription;
using testing::Node;

// Loads root elements written by the test writer, capturing messages.
struct Loaded
{
    int result = -1;
    std::unique_ptr<Film> film = std::make_unique<Film>();
    std::vector<std::string> messages;
};

Loaded LoadBytes(const Bytes& bytes)
{
    Loaded loaded;
    testing::MessageCapture messages;
    auto root = platform::CompoundStorage::OpenMemory(bytes);
    loaded.result = root.ok() ? LoadFilmStorage(*loaded.film, std::move(root).value()) : 0;
    loaded.messages = messages.Texts();
    return loaded;
}

Loaded LoadNodes(const std::vector<Node>& nodes)
{
    return LoadBytes(testing::WriteCompoundFile(nodes));
}

Loaded LoadFilm(const FilmDescription& description)
{
    return LoadNodes(testing::FilmNodes(description));
}

FilmDescription ThreeItems()
{
    FilmDescription film;
    for (int i = 1; i <= 3; ++i)
        film.items.push_back({testing::PhotoItem(std::to_string(i) + ".jpg"), std::nullopt});
    return film;
}

TEST(FilmLoad, VersionRule)
{
    struct Row
    {
        const char* name;
        std::optional<Bytes> version;
        int result;
        std::size_t messages;
    } rows[] = {
        {"200 passes", testing::Word(200), 1, 0},
        {"a longer stream still reads its first word", Bytes{200, 0, 0, 0, 9, 9}, 1, 0},
        {"201 is too new and says so", testing::Word(201), 0, 1},
        {"compared unsigned", testing::Word(0x80000000u), 0, 1},
        {"199 is refused silently", testing::Word(199), 0, 0},
        {"short stream", Bytes{200, 0, 0}, 0, 0},
        {"no VERSION", std::nullopt, 0, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        FilmDescription description = ThreeItems();
        description.version.reset();
        auto nodes = testing::FilmNodes(description);
        if (row.version)
            nodes.push_back(Node::Stream("VERSION", *row.version));
        Loaded loaded = LoadNodes(nodes);
        EXPECT_EQ(loaded.result, row.result);
        EXPECT_EQ(loaded.film->ItemCount(), row.result == 1 ? 3 : -1);
        ASSERT_EQ(loaded.messages.size(), row.messages);
        if (row.messages == 1) {
            EXPECT_EQ(loaded.messages[0], "This film requires a newer version of Vistrel");
        }
    }
}

TEST(FilmLoad, OptionalStreamsApplyOnlyWhenWhole)
{
    FilmDescription description;
    description.music = FilmFile{"C:\\My Music", "theme.mp3"};
    description.loop = 0;
    description.autoplay = kAdvanceManual;
    Loaded whole = LoadFilm(description);
    EXPECT_EQ(whole.result, 1);
    EXPECT_EQ(whole.film->GetMusicPath(), "C:\\My Music\\theme.mp3");
    EXPECT_EQ(whole.film->GetLoop(), 0);
    EXPECT_EQ(whole.film->GetAdvanceMode(), kAdvanceManual);

    auto shortNodes = testing::FilmNodes(FilmDescription{});
    shortNodes.push_back(Node::Stream("BGMUSIC", Bytes(515, 'a')));
    shortNodes.push_back(Node::Stream("LOOP", Bytes{0, 0}));
    shortNodes.push_back(Node::Stream("AutoPlay", Bytes{0xD9, 0x02, 0, 0})); // 729, any case.
    Loaded partial = LoadNodes(shortNodes);
    EXPECT_EQ(partial.result, 1);
    EXPECT_EQ(partial.film->ItemCount(), -1) << "a film without items loads, empty";
    EXPECT_EQ(partial.film->GetMusicPath(), "");
    EXPECT_EQ(partial.film->GetLoop(), 1);
    EXPECT_EQ(partial.film->GetAdvanceMode(), kAdvanceManual);
}

TEST(FilmLoad, ClampsEffectNumbersAgainstTheTables)
{
    struct Row
    {
        std::int32_t stored, picture, text;
    } rows[] = {{150, 98, 53}, {99, 99, 53}, {100, 98, 53}, {54, 54, 54},
                {55, 55, 53},  {-5, -5, -5}, {0, 0, 0}};
    FilmDescription description;
    for (const Row& row : rows) {
        description.items.push_back({testing::PhotoItem("p.jpg", row.stored),
                                     std::vector<FilmText>{testing::Caption("c", row.stored)}});
    }
    Loaded loaded = LoadFilm(description);
    ASSERT_EQ(loaded.result, 1);
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE(rows[i].stored);
        const FilmItem item = loaded.film->GetItem(static_cast<std::int32_t>(i + 1));
        EXPECT_EQ(item.effect, rows[i].picture);
        ASSERT_EQ(item.texts.size(), 1u);
        EXPECT_EQ(item.texts[0].effect, rows[i].text);
    }
    EXPECT_EQ(ClampEffectNumber(5, 0), 0);
    EXPECT_EQ(ClampEffectNumber(5, -3), 0);
}

TEST(FilmLoad, ItemKindsChooseTheirSlots)
{
    FilmItem clip;
    clip.kind = kFilmItemClip;
    clip.clipFile = {"", "10clip.avi"};
    clip.clipPicture1 = {"", "20first.jpg"};
    clip.clipPicture2 = {"", "30last.jpg"};
    clip.sound = {"", "40voice.ca"};
    FilmItem show;
    show.kind = kFilmItemPowerPoint;
    show.showFile = {"D:\\", "50deck.pps"};
    FilmItem odd;
    odd.kind = 5;
    odd.sound = {"", "60voice.wav"};
    odd.soundMode = kSoundModeCdTrack;

    FilmDescription description;
    description.items = {{clip, std::nullopt}, {show, std::nullopt}, {odd, std::nullopt}};
    auto nodes = testing::FilmNodes(description);
    // Slots C and E and a kind's unused slots carry junk that must never show up.
    const FilmFile junk{"junk", "junk"};
    for (int i = 0; i < 3; ++i) {
        FilmItem item = description.items[static_cast<std::size_t>(i)].item;
        item.photo = item.mask = junk;
        Bytes record = testing::ItemRecord(item, junk, junk);
        if (item.kind != kFilmItemClip)
            std::memcpy(record.data() + 1548, testing::FileReference(junk).data(), 516);
        if (item.kind != kFilmItemClip && item.kind != kFilmItemPhoto)
            std::memcpy(record.data() + 516, testing::FileReference(junk).data(), 516);
        if (item.kind == 5)
            std::memcpy(record.data(), testing::FileReference(junk).data(), 516);
        nodes[static_cast<std::size_t>(1 + i)].children[0].bytes = record;
    }
    Loaded loaded = LoadNodes(nodes);
    ASSERT_EQ(loaded.result, 1);
    EXPECT_EQ(loaded.film->GetItem(1), [&] {
        FilmItem expected = clip;
        expected.index = 1;
        return expected;
    }());
    const FilmItem gotShow = loaded.film->GetItem(2);
    EXPECT_EQ(gotShow.showFile, show.showFile);
    EXPECT_EQ(gotShow.photo, FilmFile{});
    EXPECT_EQ(gotShow.mask, FilmFile{});
    const FilmItem gotOdd = loaded.film->GetItem(3);
    EXPECT_EQ(gotOdd.sound, odd.sound);
    EXPECT_EQ(gotOdd.soundMode, kSoundModeCdTrack);
    EXPECT_EQ(gotOdd.photo, FilmFile{});
    EXPECT_EQ(gotOdd.clipFile, FilmFile{});
    EXPECT_EQ(gotOdd.kind, 5);
}

TEST(FilmLoad, PartialLoadsKeepWhatWasRead)
{
    struct Row
    {
        const char* name;
        std::function<void(std::vector<Node>&)> damage;
        int result;
        std::int32_t items;
    } rows[] = {
        {"an extra storage leads to a missing FILMLINK4",
         [](std::vector<Node>& nodes) { nodes.push_back(Node::Storage("Other", {})); }, 0, 3},
        {"extra streams are skipped",
         [](std::vector<Node>& nodes) { nodes.push_back(Node::Stream("Note", Bytes{1})); }, 1, 3},
        {"FILMITEM one byte short", [](std::vector<Node>& nodes) { nodes[2].children[0].bytes.resize(3143); },
         0, 1},
        {"FILMITEM longer than a record reads one record",
         [](std::vector<Node>& nodes) { nodes[2].children[0].bytes.resize(4000); }, 1, 3},
        {"FILMITEM missing", [](std::vector<Node>& nodes) { nodes[3].children[0].name = "ITEM"; }, 0, 2},
        {"a storage under another name is found by counting only",
         [](std::vector<Node>& nodes) { nodes[1].name = "Renamed"; }, 0, 0},
        {"names compare without case",
         [](std::vector<Node>& nodes) {
             nodes[1].name = "filmlink1";
             nodes[1].children[0].name = "FilmItem";
         },
         1, 3},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto nodes = testing::FilmNodes(ThreeItems()); // VERSION, FILMLINK1..3.
        row.damage(nodes);
        Loaded loaded = LoadNodes(nodes);
        EXPECT_EQ(loaded.result, row.result);
        EXPECT_EQ(loaded.film->ItemCount(), row.items == 0 ? -1 : row.items);
    }
}

TEST(FilmLoad, CaptionListsEndAtTheFirstGap)
{
    const auto caption = [](const char* text) { return testing::CaptionRecord(testing::Caption(text)); };
    struct Row
    {
        const char* name;
        std::vector<Node> textList;
        std::vector<std::string> texts;
    } rows[] = {
        {"TEXT1 and TEXT3",
         {Node::Stream("TEXT1", caption("one")), Node::Stream("TEXT3", caption("three"))},
         {"one"}},
        {"a short record ends the list",
         {Node::Stream("TEXT1", caption("one")), Node::Stream("TEXT2", Bytes(359, 0)),
          Node::Stream("TEXT3", caption("three"))},
         {"one"}},
        {"storages count as elements",
         {Node::Storage("Sub", {}), Node::Stream("TEXT1", caption("one")),
          Node::Stream("TEXT2", caption("two"))},
         {"one", "two"}},
        {"only as many captions as elements",
         {Node::Stream("TEXT1", caption("one")), Node::Stream("TEXT2", caption("two")),
          Node::Storage("x", {})},
         {"one", "two"}},
        {"empty list", {}, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto nodes = testing::FilmNodes(ThreeItems());
        nodes[2].children.push_back(Node::Storage("TEXTLIST", row.textList));
        Loaded loaded = LoadNodes(nodes);
        EXPECT_EQ(loaded.result, 1);
        const FilmItem item = loaded.film->GetItem(2);
        ASSERT_EQ(item.texts.size(), row.texts.size());
        for (std::size_t k = 0; k < row.texts.size(); ++k) {
            EXPECT_EQ(item.texts[k].text, row.texts[k]);
            EXPECT_EQ(item.texts[k].ordinal, static_cast<std::int32_t>(k + 1));
        }
    }
}

// Names and a caption text that fill their fields, and captions whose every byte must come back.
TEST(FilmLoad, CaptionRecordsAndFullTextFieldsReadBackWhole)
{
    FilmItem item = testing::PhotoItem("");
    item.photo = {std::string(260, 'p'), std::string(256, 'n')};
    std::vector<FilmText> captions{testing::Caption(std::string(256, 't'))};
    for (std::uint32_t seed = 1; seed <= 4; ++seed)
        captions.push_back(testing::Caption("caption " + std::to_string(seed), 2, seed));
    FilmDescription description;
    description.items.push_back({item, captions});
    Loaded loaded = LoadFilm(description);
    ASSERT_EQ(loaded.result, 1);
    const FilmItem got = loaded.film->GetItem(1);
    EXPECT_EQ(got.photo, item.photo);
    ASSERT_EQ(got.texts.size(), captions.size());
    EXPECT_EQ(got.texts[0].text, std::string(256, 't'));
    for (std::size_t k = 0; k < captions.size(); ++k) {
        const auto ordinal = static_cast<std::int32_t>(k + 7);
        EXPECT_EQ(testing::CaptionRecord(got.texts[k], ordinal), testing::CaptionRecord(captions[k], ordinal))
            << "caption " << k;
    }
}

TEST(FilmLoad, DamagedFilesNeverCrash)
{
    FilmDescription description = ThreeItems();
    description.items[1].captions = std::vector<FilmText>{testing::Caption("a"), testing::Caption("b")};
    const Bytes good = testing::WriteCompoundFile(testing::FilmNodes(description));
    // Every prefix: fails cleanly or loads (never more items than the whole film).
    for (std::size_t size = 0; size < good.size(); size += 61) {
        Loaded loaded = LoadBytes(Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)));
        EXPECT_LE(loaded.film->ItemCount(), 3) << size;
    }
    // Every byte of the header, the allocation tables and the directory set to 0xFF in turn.
    for (std::size_t at = 0; at < good.size() && at < 4096; ++at) {
        Bytes bad = good;
        bad[at] = 0xFF;
        Loaded loaded = LoadBytes(bad);
        EXPECT_LE(loaded.film->ItemCount(), 3) << at;
    }
}

TEST(FilmLoad, ReadsFromAPathAndRefusesOthers)
{
    const std::string path = testing::TempPath("film.flm");
    testing::WriteCompoundFileTo(path, testing::FilmNodes(ThreeItems()));
    Film film;
    EXPECT_EQ(film.Load(path), 1);
    EXPECT_EQ(film.ItemCount(), 3);
    std::remove(path.c_str());

    Film missing;
    EXPECT_EQ(missing.Load(path), 0);
    Film tooLong;
    EXPECT_EQ(tooLong.Load("/tmp/" + std::string(300, 'x') + ".flm"), 0);
}

} // namespace
} // namespace lumenar::film
