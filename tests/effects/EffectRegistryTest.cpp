#include "effects/EffectRegistry.h"

#include "effects/BasicTransitions.h"
#include "effects/Random.h"
#include "tests/support/MessageCapture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>
#include <vector>

namespace lumenar::effects {
namespace {

// The published catalogue, typed once: table, row, name id, procedure, direction, variant, number.
const char* const kCatalogue[] = {
    "picture 0 10 Flip3D 0x04 1 19",
    "picture 1 121 Flip3D 0x40 1 19",
    "picture 2 32 Flip3D 0x01 2 19",
    "picture 3 122 Flip3D 0x10 2 19",
    "picture 4 34 Flip3D 0 3 19",
    "picture 5 80 Flip3D 0 4 19",
    "picture 6 81 Flip3D 0 5 19",
    "picture 7 15 PictureEffect07 0x04 1 19",
    "picture 8 123 PictureEffect07 0x40 1 19",
    "picture 9 94 PictureEffect07 0x04 2 19",
    "picture 10 124 PictureEffect07 0x40 2 19",
    "picture 11 85 PictureEffect07 0 3 19",
    "picture 12 95 PictureEffect07 0 4 19",
    "picture 13 96 PictureEffect07 0 5 19",
    "picture 14 24 PictureEffect14 0 0 19",
    "picture 15 109 PictureEffect15 0 0 19",
    "picture 16 110 PictureEffect15 0 1 19",
    "picture 17 113 PictureEffect17 0 0 19",
    "picture 18 114 PictureEffect18 0x01 0 19",
    "picture 19 118 PictureEffect18 0x10 0 19",
    "picture 20 119 PictureEffect18 0x40 0 19",
    "picture 21 120 PictureEffect18 0x04 0 19",
    "picture 22 57 PictureEffect22 0 0 19",
    "picture 23 5 PictureEffect23 0 0 19",
    "picture 24 52 PictureEffect24 0 1 19",
    "picture 25 54 PictureEffect25 0 0 19",
    "picture 26 53 PictureEffect26 0 1 19",
    "picture 27 55 PictureEffect27 0 0 19",
    "picture 28 56 PictureEffect28 0 0 19",
    "picture 29 60 PictureEffect29 0 0 19",
    "picture 30 61 PictureEffect30 0 4 19",
    "picture 31 62 PictureEffect30 0 8 19",
    "picture 32 63 PictureEffect30 0 20 19",
    "picture 33 64 PictureEffect33 0 0 19",
    "picture 34 9 PictureEffect34 0 0 19",
    "picture 35 4 PictureEffect35 0 0 19",
    "picture 36 47 TileDissolve 0 4 19",
    "picture 37 48 TileDissolve 0 8 19",
    "picture 38 49 TileDissolve 0 20 19",
    "picture 39 1 CutAtHalf 0 0 0",
    "picture 40 65 PictureEffect40 0 0 19",
    "picture 41 38 CrossFade 0 1 19",
    "picture 42 115 PictureEffect42 0 0 19",
    "picture 43 26 PictureEffect43 0 8 19",
    "picture 44 18 PictureEffect43 0 264 19",
    "picture 45 36 PictureEffect43 0 780 19",
    "picture 46 76 PictureEffect46 0x04 0 19",
    "picture 47 77 PictureEffect46 0x40 0 19",
    "picture 48 88 PictureEffect48 0 0 19",
    "picture 49 11 Push 0x01 1 3",
    "picture 50 12 Push 0x10 1 4",
    "picture 51 13 Push 0x40 1 2",
    "picture 52 14 Push 0x04 1 1",
    "picture 53 19 SlideIn 0x01 1 11",
    "picture 54 20 SlideIn 0x10 1 12",
    "picture 55 21 SlideIn 0x40 1 10",
    "picture 56 22 SlideIn 0x04 1 9",
    "picture 57 27 Wipe 0x01 1 7",
    "picture 58 28 Wipe 0x10 1 8",
    "picture 59 29 Wipe 0x40 1 5",
    "picture 60 30 Wipe 0x04 1 6",
    "picture 61 125 OutAndBack 0x40 0 15",
    "picture 62 126 OutAndBack 0x04 0 16",
    "picture 63 127 OutAndBack 0x01 0 17",
    "picture 64 128 OutAndBack 0x10 0 18",
    "picture 65 116 BoxWipe 0x40 0 14",
    "picture 66 117 BoxWipe 0x40 1 13",
    "picture 67 106 PictureEffect43 0x10 512 19",
    "picture 68 99 PictureEffect43 0x01 512 19",
    "picture 69 108 PictureEffect43 0x40 512 19",
    "picture 70 107 PictureEffect43 0x04 512 19",
    "picture 71 16 Push 0x01 50 19",
    "picture 72 17 Push 0x40 50 19",
    "picture 73 23 SlideIn 0x01 50 19",
    "picture 74 25 SlideIn 0x40 50 19",
    "picture 75 31 Wipe 0x01 50 19",
    "picture 76 33 Wipe 0x40 50 19",
    "picture 77 39 Blinds 0x01 16 19",
    "picture 78 40 Blinds 0x10 16 19",
    "picture 79 41 Blinds 0x40 16 19",
    "picture 80 42 Blinds 0x04 16 19",
    "picture 81 43 SmearWipe 0x10 1 19",
    "picture 82 44 SmearWipe 0x01 1 19",
    "picture 83 45 SmearWipe 0x04 1 19",
    "picture 84 46 SmearWipe 0x40 1 19",
    "picture 85 6 PictureEffect85 0 0 19",
    "picture 86 58 PictureEffect86 0 0 19",
    "picture 87 7 PictureEffect87 0 0 19",
    "picture 88 97 PictureEffect88 0 0 19",
    "picture 89 35 PictureEffect89 0 1 19",
    "picture 90 59 PictureEffect90 0 0 19",
    "picture 91 66 PictureEffect91 0x01 1 19",
    "picture 92 67 PictureEffect91 0x10 1 19",
    "picture 93 68 PictureEffect91 0x40 1 19",
    "picture 94 69 PictureEffect91 0x04 1 19",
    "picture 95 74 PictureEffect95 0 0 19",
    "picture 96 73 PictureEffect96 0 0 19",
    "picture 97 111 PictureEffect97 0 0 19",
    "picture 98 3 - 0 0 19",
    "text 0 27 TextFadeSweep 0x10 0 5",
    "text 1 28 TextFadeSweep 0x01 0 6",
    "text 2 29 TextFadeSweep 0x04 0 7",
    "text 3 30 TextFadeSweep 0x40 0 8",
    "text 4 1 TextShowAtHalf 0 0 0",
    "text 5 445 TextEffect05 0 1 12",
    "text 6 446 TextEffect05 0 0 12",
    "text 7 447 TextEffect05 0 2 12",
    "text 8 448 TextEffect05 0 3 12",
    "text 9 406 TextGlyphStream 0x10 0 12",
    "text 10 407 TextGlyphStream 0x01 0 12",
    "text 11 408 TextGlyphStream 0x04 0 12",
    "text 12 409 TextGlyphStream 0x40 0 12",
    "text 13 404 TextEffect13 0 0 12",
    "text 14 444 TextEffect14 0 0 12",
    "text 15 410 TextGlyphScatter 0x10 1 12",
    "text 16 411 TextGlyphScatter 0x01 1 12",
    "text 17 412 TextGlyphScatter 0x04 1 12",
    "text 18 413 TextGlyphScatter 0x40 1 12",
    "text 19 19 TextFlyIn 0x10 0 2",
    "text 20 20 TextFlyIn 0x01 0 1",
    "text 21 21 TextFlyIn 0x04 0 4",
    "text 22 22 TextFlyIn 0x40 0 3",
    "text 23 401 TextEffect23 0x44 0 9",
    "text 24 402 TextEffect23 0x11 0 10",
    "text 25 405 TextEffect25 0 0 12",
    "text 26 436 TextEffect26 0 0 12",
    "text 27 437 TextEffect26 0 1 12",
    "text 28 449 TextEffect28 0 0 11",
    "text 29 418 TextGlyphGrow 0 0 12",
    "text 30 421 TextGlyphGrow 0 1 12",
    "text 31 427 TextGlyphGrow 0 2 12",
    "text 32 438 TextEffect32 0 0 12",
    "text 33 439 TextGlyphGrow 0 3 12",
    "text 34 440 TextGlyphGrow 0 4 12",
    "text 35 426 TextEffect35 0 0 12",
    "text 36 428 TextEffect36 0 0 12",
    "text 37 434 TextEffect36 0 1 12",
    "text 38 430 TextEffect38 0x01 0 12",
    "text 39 431 TextEffect38 0x10 0 12",
    "text 40 432 TextEffect38 0x40 0 12",
    "text 41 433 TextEffect38 0x04 0 12",
    "text 42 435 TextEffect42 0 0 12",
    "text 43 442 TextEffect43 0 0 12",
    "text 44 443 TextEffect43 0 1 12",
    "text 45 419 TextEffect45 0 0 12",
    "text 46 420 TextEffect46 0 0 12",
    "text 47 429 TextEffect47 0 0 12",
    "text 48 441 TextEffect48 0 0 12",
    "text 49 422 TextEffect49 0x04 0 12",
    "text 50 423 TextEffect49 0x40 0 12",
    "text 51 424 TextEffect51 0x04 0 12",
    "text 52 425 TextEffect51 0x40 0 12",
    "text 53 3 - 0 0 12",
};

// The classic runtime generator, written out independently of the product's.
struct ReferenceRand
{
    std::uint32_t state;
    int operator()()
    {
        state = state * 214013u + 2531011u;
        return static_cast<int>((state >> 16) & 0x7FFF);
    }
};

class EffectRegistryTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        EffectRegistry::FixSeed(12345);
        const char* source = std::getenv("LUMENAR_SOURCE_DIR");
        EffectRegistry::SetNamesFile(std::string(source != nullptr ? source : ".") +
                                     "/effects/effect-names.txt");
    }
    void TearDown() override
    {
        EffectRegistry::FixSeed(std::nullopt);
        EffectRegistry::SetNamesFile("");
    }
};

TEST_F(EffectRegistryTest, RowsMatchThePublishedCatalogue)
{
    EffectRegistry registry;
    ASSERT_EQ(std::size(kCatalogue), 99u + 54u);
    for (const char* line : kCatalogue) {
        SCOPED_TRACE(line);
        std::istringstream in(line);
        std::string kind, proc, direction;
        int row, nameId, variant, number;
        in >> kind >> row >> nameId >> proc >> direction >> variant >> number;
        const int table = kind == "picture" ? kPictureTable : kTextTable;
        const EffectEntry& entry = (table == kPictureTable ? PictureEffectTable() : TextEffectTable())[row];
        EXPECT_EQ(entry.nameId, static_cast<std::uint32_t>(nameId));
        EXPECT_EQ(entry.descriptionId, 0u);
        EXPECT_EQ(entry.number, number);
        const EffectRowDescription d = registry.Describe(table, row);
        if (proc == "-") {
            EXPECT_EQ(d.built, Built::Random);
            continue; // Direction and variant are whatever was drawn.
        }
        EXPECT_EQ(proc, d.procName);
        EXPECT_EQ(d.direction, std::stoul(direction, nullptr, 16));
        EXPECT_EQ(d.variant, variant);
        EXPECT_NE(entry.proc, nullptr);
    }
}

TEST_F(EffectRegistryTest, OnlyTheBuiltFamiliesSayBuilt)
{
    EffectRegistry registry;
    const std::set<std::string> built = {"CutAtHalf", "SmearWipe", "BoxWipe", "TileDissolve", "Wipe",
                                         "SlideIn",   "Push",      "Blinds",  "OutAndBack",   "CrossFade"};
    int builtRows = 0;
    for (int row = 0; row < kPictureEffectCount - 1; ++row) {
        const EffectRowDescription d = registry.Describe(kPictureTable, row);
        EXPECT_EQ(d.built == Built::Yes, built.count(d.procName) == 1) << row;
        builtRows += d.built == Built::Yes;
        // A row that is not built yet says so and renders as the cut.
        if (d.built == Built::NotYet) {
            EXPECT_EQ(PictureEffectTable()[row].proc, &CutAtHalf) << row;
        }
    }
    EXPECT_EQ(builtRows, 37);
    const std::set<std::string> builtText = {"TextShowAtHalf",  "TextFadeSweep",    "TextFlyIn",
                                             "TextGlyphStream", "TextGlyphScatter", "TextGlyphGrow"};
    int builtTextRows = 0;
    for (int row = 0; row < kTextEffectCount - 1; ++row) {
        const EffectRowDescription d = registry.Describe(kTextTable, row);
        EXPECT_EQ(d.built == Built::Yes, builtText.count(d.procName) == 1) << row;
        builtTextRows += d.built == Built::Yes;
        if (d.built == Built::NotYet) {
            EXPECT_EQ(TextEffectTable()[row].proc, &NotBuiltText) << row;
        }
    }
    EXPECT_EQ(builtTextRows, 22);
}

TEST_F(EffectRegistryTest, RandomRowsAreDrawnAtConstructionAndAfterRelease)
{
    ReferenceRand reference{12345};
    EffectRegistry registry;
    const int picture = reference() % 98;
    const int text = reference() % 53;
    const EffectEntry& pictureRandom = PictureEffectTable()[98];
    EXPECT_EQ(pictureRandom.proc, PictureEffectTable()[picture].proc);
    EXPECT_EQ(pictureRandom.direction, PictureEffectTable()[picture].direction);
    EXPECT_EQ(pictureRandom.variant, PictureEffectTable()[picture].variant);
    EXPECT_EQ(pictureRandom.nameId, 3u);
    EXPECT_EQ(TextEffectTable()[53].variant, TextEffectTable()[text].variant);

    // An accepted release of the random row draws again; numbers past the table run the random row.
    for (int round = 0; round < 5; ++round) {
        EXPECT_EQ(registry.RunPicture(1000, EffectInit, nullptr), 0);
        EXPECT_EQ(registry.Describe(kPictureTable, 98).variant, PictureEffectTable()[98].variant);
        registry.RunPicture(98, EffectRelease, nullptr);
        const int next = reference() % 98;
        EXPECT_EQ(PictureEffectTable()[98].proc, PictureEffectTable()[next].proc) << round;
        EXPECT_EQ(PictureEffectTable()[98].direction, PictureEffectTable()[next].direction) << round;
    }
    // A refused release (the row is not active) draws nothing.
    const std::uint32_t direction = PictureEffectTable()[98].direction;
    registry.RunPicture(98, EffectRelease, nullptr);
    EXPECT_EQ(Rand(), reference());
    EXPECT_EQ(PictureEffectTable()[98].direction, direction);
}

std::vector<std::uint8_t> Picture(int w, int h, std::uint8_t tag)
{
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(w) * h * 4);
    for (std::size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<std::uint8_t>(i % 4 == 3 ? tag : (i * 7 + tag) & 0xFF);
    return pixels;
}

TEST_F(EffectRegistryTest, ActiveFlagRefusesUnbalancedCalls)
{
    ReferenceRand reference{12345};
    EffectRegistry registry;
    reference();
    reference();
    auto source = Picture(40, 40, 1), target = Picture(40, 40, 2), output = Picture(40, 40, 3);
    EffectParams block{};
    block.source = source.data();
    block.target = target.data();
    block.output = output.data();
    block.width = 40;
    block.height = 40;
    block.progressNum = 0;
    block.progressDen = 100;
    // Row 38 dissolves in 20-pixel tiles: its init draws one threshold per tile (4 here).
    registry.RunPicture(38, EffectInit, &block);
    registry.RunPicture(38, EffectInit, &block); // Refused: no draws.
    for (int i = 0; i < 4; ++i)
        reference();
    EXPECT_EQ(Rand(), reference());

    // A release for another row of the same family never reaches it, so the thresholds survive.
    registry.RunPicture(37, EffectRelease, nullptr);
    block.progressNum = 50;
    registry.RunPicture(38, EffectRender, &block);
    int fromTarget = 0;
    for (std::size_t i = 0; i < output.size(); i += 4)
        fromTarget += output[i] == target[i];
    EXPECT_GT(fromTarget, 0);
    EXPECT_EQ(registry.RunPicture(38, EffectRelease, nullptr), 0);
    // Constructing another registry clears every flag: a new init is accepted.
    EffectRegistry other;
    registry.RunPicture(38, EffectInit, &block);
    EXPECT_EQ(PictureEffectTable()[38].active, 1);
    registry.RunPicture(38, EffectRelease, nullptr);
    EXPECT_EQ(PictureEffectTable()[38].active, 0);
}

TEST_F(EffectRegistryTest, ClampsRowNumbers)
{
    EffectRegistry registry;
    auto source = Picture(8, 8, 1), target = Picture(8, 8, 2), output = Picture(8, 8, 3);
    EffectParams block{};
    block.source = source.data();
    block.target = target.data();
    block.output = output.data();
    block.width = block.height = 8;
    block.progressNum = 60;
    block.progressDen = 100;
    // Row 0 (not built) renders as the cut: past half time the target.
    registry.RunPicture(-5, EffectRender, &block);
    EXPECT_EQ(output, target);
    registry.RunPicture(-5, EffectInit, &block);
    EXPECT_EQ(PictureEffectTable()[0].active, 1);
    registry.RunPicture(0, EffectRelease, nullptr);
    EXPECT_EQ(PictureEffectTable()[0].active, 0);
    registry.RunPicture(99, EffectInit, &block);
    EXPECT_EQ(PictureEffectTable()[98].active, 1);
    registry.RunPicture(1000, EffectRelease, nullptr);
    EXPECT_EQ(PictureEffectTable()[98].active, 0);
    // Text rows clamp too; a release block with only the record set is enough.
    TextEffectParams text{};
    EXPECT_EQ(registry.RunText(-1, EffectRelease, text), 0);
    EXPECT_EQ(registry.RunText(54, EffectRender, text), 0);
}

TEST_F(EffectRegistryTest, NamesAndTheReadPastATable)
{
    EffectRegistry registry;
    EXPECT_EQ(registry.LoadNames(kPictureTable, false), 99);
    EXPECT_EQ(registry.LoadNames(kTextTable, false), 54);
    EffectInfo info{};
    info.mask = 3;
    registry.GetInfo(52, kPictureTable, &info);
    EXPECT_STREQ(info.name, ""); // Nothing loaded yet.

    ASSERT_EQ(registry.LoadNames(kPictureTable, true), 99);
    ASSERT_EQ(registry.LoadNames(kTextTable, true), 54);
    struct Row
    {
        int table, index;
        const char* name;
    } rows[] = {
        {kPictureTable, 52, "Push right"},
        {kPictureTable, -3, "Flip right"},
        {kPictureTable, 98, "Random"},
        {kPictureTable, 99, "Wipe up"}, // The row after the picture table is the first text row.
        {kPictureTable, 500, "Wipe up"},
        {kTextTable, 4, "Cut"},
        {kTextTable, 53, "Random"},
        {kTextTable, 54, ""}, // Past the text table: the empty row.
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.table << ":" << row.index);
        EffectInfo got{};
        std::memset(&got, 'x', sizeof got);
        got.mask = 3;
        EXPECT_EQ(registry.GetInfo(row.index, row.table, &got), 1);
        EXPECT_STREQ(got.name, row.name);
        EXPECT_EQ(got.name[127], '\0'); // Padded with zeros.
        if (row.name[0] != '\0') {
            EXPECT_STREQ(got.description, "Missed description!");
        }
    }
    EffectInfo untouched{};
    untouched.mask = 3;
    std::strcpy(untouched.name, "keep");
    EXPECT_EQ(registry.GetInfo(0, 3, &untouched), 0);
    EXPECT_STREQ(untouched.name, "keep");
    untouched.mask = 2;
    registry.GetInfo(0, kPictureTable, &untouched);
    EXPECT_STREQ(untouched.name, "keep");

    testing::MessageCapture messages;
    EffectRegistry::SetNamesFile("/nonexistent/effect-names.txt");
    EXPECT_EQ(registry.LoadNames(kPictureTable, true), 0);
    EXPECT_EQ(messages.Texts(), std::vector<std::string>{"Internal Error: vorbel.dll Missed"});
    EXPECT_EQ(registry.PictureCount(), 99);
}

TEST_F(EffectRegistryTest, WalksBothTables)
{
    EffectRegistry registry;
    for (int table : {kPictureTable, kTextTable}) {
        int rows = 1;
        ASSERT_EQ(registry.First(table), 0);
        for (int row = registry.Next(table); row != -1; row = registry.Next(table))
            EXPECT_EQ(row, rows++);
        EXPECT_EQ(rows, table == kPictureTable ? 99 : 54);
        EXPECT_EQ(registry.Next(table), -1);
    }
    EXPECT_EQ(registry.First(3), -1);
    EXPECT_EQ(registry.Next(0), -1);
}

} // namespace
} // namespace lumenar::effects
