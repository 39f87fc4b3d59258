#include "effects/EffectRegistry.h"

#include "effects/BasicTransitions.h"
#include "effects/Random.h"
#include "tests/support/MessageCapture.h"
#include "tests/support/TaggedPictures.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <vector>

namespace lumenar::effects {
namespace {

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

// Every row of both tables is built; the last row of each is the random one.
TEST_F(EffectRegistryTest, EveryRowIsBuilt)
{
    EffectRegistry registry;
    for (const auto& [table, rows] :
         {std::pair{kPictureTable, kPictureEffectCount - 1}, {kTextTable, kTextEffectCount - 1}}) {
        for (int row = 0; row < rows; ++row)
            EXPECT_EQ(registry.Describe(table, row).built, Built::Yes) << table << " " << row;
        EXPECT_EQ(registry.Describe(table, rows).built, Built::Random);
    }
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

TEST_F(EffectRegistryTest, ActiveFlagRefusesUnbalancedCalls)
{
    ReferenceRand reference{12345};
    EffectRegistry registry;
    reference();
    reference();
    testing::TaggedPictures p(40, 40);
    EffectParams block = p.Block(0, 100);
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
    for (std::size_t i = 2; i < p.output.size(); i += 4)
        fromTarget += p.output[i] == p.kTarget;
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
    testing::TaggedPictures p(8, 8);
    EffectParams block = p.Block(60, 100);
    // Below the table is row 0.
    registry.RunPicture(0, EffectRender, &block);
    const std::vector<std::uint8_t> rowZero = p.output;
    p.output.assign(p.output.size(), 0);
    registry.RunPicture(-5, EffectRender, &block);
    EXPECT_EQ(p.output, rowZero);
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

// What a person types resolves to the row `lumenar effects` shows under that name, or to one line
// that says what was meant.
TEST_F(EffectRegistryTest, RowsByNumberOrName)
{
    struct Row
    {
        int table;
        const char* text;
        int row;             // -1: refused,
        const char* message; // with a message that starts so.
    } rows[] = {
        {kPictureTable, "12", 12, ""},
        {kPictureTable, "Flip right", 0, ""},
        {kPictureTable, "FLIP-RIGHT", 0, ""},
        {kPictureTable, "flip_r", 0, ""},
        {kPictureTable, "random", 98, ""},
        {kTextTable, "letters fade in", 5, ""}, // Exact, though longer names start with it.
        {kTextTable, "Letters fade in s", 6, ""},
        {kPictureTable, "99", -1, "not a picture-effect row (0-98)"},
        {kTextTable, "54", -1, "not a text-effect row (0-53)"},
        {kTextTable, "-1", -1, "not a text-effect row (0-53)"},
        {kPictureTable, "00000000000000000001", -1, "not a picture-effect row"},
        {kPictureTable, "flip", -1, "names more than one picture effect: \"Flip right\", \"Flip left\""},
        {kTextTable, "letters", -1, "names more than one text effect"},
        {kPictureTable, "flp rihgt", -1, "names no picture effect; the closest are \"Flip right\""},
        {kPictureTable, "", -1, "names no picture effect"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        const auto resolved = ResolveEffectRow(row.table, row.text);
        if (row.row >= 0) {
            ASSERT_TRUE(resolved.ok()) << resolved.error().message;
            EXPECT_EQ(*resolved, row.row);
        } else {
            ASSERT_FALSE(resolved.ok());
            EXPECT_EQ(resolved.error().message.rfind(row.message, 0), 0u) << resolved.error().message;
        }
    }
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
