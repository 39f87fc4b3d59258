#include "codec/PhotoDecoder.h"

#include "codec/Idct.h"
#include "codec/Photo.h"
#include "tests/support/JpegWriter.h"
#include "tests/support/WriteFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <string>

namespace lumenar::codec {
namespace {

using testing::DcBlock;
using testing::EntropyWriter;
using testing::FlatAcTable;
using testing::FlatDcTable;
using testing::JpegHuffman;
using testing::JpegWriter;
using testing::MakeUniformPhoto;
using testing::ZigzagBlock;

std::unique_ptr<PhotoDecoder> Decode(const std::vector<std::uint8_t>& bytes, base::Status* status = nullptr,
                                     DecodeOptions options = {})
{
    auto decoder = PhotoDecoder::Create(bytes, options);
    EXPECT_TRUE(decoder.ok());
    const base::Status parsed = (*decoder)->ParseMarkers();
    if (status != nullptr)
        *status = parsed;
    else
        EXPECT_TRUE(parsed.ok()) << parsed.error().message;
    return std::move(decoder).value();
}

constexpr std::array<std::uint8_t, 2> kSos{0xFF, 0xDA};
constexpr std::array<std::uint8_t, 2> kRst0{0xFF, 0xD0};

// Every sample of the visible part of every plane.
void ExpectFlatPlanes(const PhotoDecoder& decoder, int expected, const char* what)
{
    for (int i = 0; i < decoder.ComponentCount(); ++i) {
        const auto plane = decoder.Component(i).Plane();
        for (std::size_t k = 0; k < plane.size(); ++k)
            ASSERT_EQ(plane[k], expected) << what << ": component " << i << " sample " << k;
    }
}

TEST(PhotoDecoder, DecodesPlanesPaddedToWholeBlocks)
{
    // DC 80 with a quantiser of 1 is +10 on mid-grey in every sample, on both paths.
    for (IdctPath path : {IdctPath::Fast, IdctPath::Portable}) {
        const auto decoder = Decode(MakeUniformPhoto(20, 12, DcBlock(80)), nullptr, {.idct = path});
        ASSERT_EQ(decoder->ComponentCount(), 3);
        EXPECT_EQ(decoder->Width(), 20);
        EXPECT_EQ(decoder->Height(), 12);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(decoder->Component(i).planeStride, 24u);
            EXPECT_EQ(decoder->Component(i).planeRows, 16u);
        }
        ExpectFlatPlanes(*decoder, 138, path == IdctPath::Fast ? "fast" : "portable");
    }
}

TEST(PhotoDecoder, QuantisationTablesUnstuffOnlyAfterTheFirstScan)
{
    // The same table segment before and after a scan: 0xFF 0x00 is two entries before the first SOS and
    // one 0xFF after it, which shifts the rest of the table by one byte. A table of 16-bit entries too.
    std::vector<int> values(64, 7);
    values[1] = 0xFF;
    values[2] = 0x00;
    values[3] = 9;
    JpegWriter w;
    w.Raw(MakeUniformPhoto(8, 8, DcBlock(0)));
    w.bytes.resize(w.bytes.size() - 2); // Drop the EOI.
    w.bytes.insert(w.bytes.begin() + 2, {0xFF, 0xDB, 0x00, 67, 0x01});
    w.bytes.insert(w.bytes.begin() + 7, values.begin(), values.end());
    std::vector<int> wide(64, 300);
    wide[0] = 2;
    w.Dqt(3, wide, true).Dqt(2, values).Eoi();
    const auto decoder = Decode(w.bytes);
    // Table, entry, value.
    const int entries[][3] = {{1, 1, 0xFF}, {1, 2, 0x00}, {1, 3, 9}, {2, 1, 0xFF},
                              {2, 2, 9},    {2, 3, 7},    {3, 0, 2}, {3, 63, 300}};
    for (const auto& [table, entry, value] : entries)
        EXPECT_EQ(decoder->QuantTable(table)[entry], value) << "table " << table << " entry " << entry;
}

// A photo whose entropy-coded data holds a stuffed pair early on, and the pair's offset.
std::pair<std::vector<std::uint8_t>, std::size_t> PhotoWithStuffedPair()
{
    ZigzagBlock block(64, 0);
    for (int dc = 1; dc < 2000; ++dc) {
        block[0] = dc;
        block[1] = dc % 7 - 3;
        auto bytes = MakeUniformPhoto(64, 8, block);
        const auto sos = std::search(bytes.begin(), bytes.end(), kSos.begin(), kSos.end());
        const auto start =
            static_cast<std::size_t>(sos - bytes.begin()) + 14; // Marker and 3-component header.
        for (std::size_t i = start; i + 1 < start + 12 && i + 1 < bytes.size(); ++i) {
            if (bytes[i] == 0xFF && bytes[i + 1] == 0x00)
                return {bytes, i};
        }
    }
    return {};
}

TEST(PhotoDecoder, StuffedPairAcrossAChunkBoundaryIsNotRecognised)
{
    const auto [bytes, pairAt] = PhotoWithStuffedPair();
    ASSERT_FALSE(bytes.empty());
    const auto whole = Decode(bytes);
    // Chunks that end right after the 0xFF: the 0x00 starts the next chunk and is read as data.
    std::uint32_t splitting = 0;
    for (std::uint32_t capacity = 5; capacity < pairAt + 1 && splitting == 0; ++capacity)
        if ((pairAt + 1) % capacity == 0)
            splitting = capacity;
    ASSERT_NE(splitting, 0u);
    std::uint32_t other = static_cast<std::uint32_t>(bytes.size()); // One chunk: the pair is inside it.
    const auto inside = Decode(bytes, nullptr, {.chunkCapacity = other});
    const auto split = Decode(bytes, nullptr, {.chunkCapacity = splitting});
    bool splitDiffers = false;
    for (int i = 0; i < 3; ++i) {
        const auto a = whole->Component(i).Plane(), b = inside->Component(i).Plane(),
                   c = split->Component(i).Plane();
        EXPECT_TRUE(std::equal(a.begin(), a.end(), b.begin(), b.end()));
        splitDiffers = splitDiffers || !std::equal(a.begin(), a.end(), c.begin(), c.end());
    }
    EXPECT_TRUE(splitDiffers);
}

TEST(PhotoDecoder, LongCodesGoThroughSecondLevelTables)
{
    // A 2-bit code, an 8-bit code, then codes of 9..16 bits: the entry after the 8-bit code refers to
    // the first second-level table.
    std::vector<std::pair<int, std::uint8_t>> lengths{{2, 0}, {8, 1}};
    const int longLengths[] = {9, 10, 11, 12, 13, 14, 15, 16, 16, 16};
    for (int s = 2; s <= 11; ++s)
        lengths.emplace_back(longLengths[s - 2], static_cast<std::uint8_t>(s));
    const JpegHuffman dc = JpegHuffman::Make(lengths);
    const JpegHuffman ac = FlatAcTable();
    JpegWriter w;
    w.Soi().Dqt(0, std::vector<int>(64, 1)).Sof0(8, 8, {{1, 1, 1, 0}, {2, 1, 1, 0}, {3, 1, 1, 0}});
    w.Dht(0, 0, dc).Dht(1, 0, ac).Sos({{1, 0}, {2, 0}, {3, 0}});
    EntropyWriter e;
    int predictors[3] = {};
    e.Block(DcBlock(1000), predictors[0], dc, ac); // Category 10: a 15-bit code.
    e.Block(DcBlock(-1), predictors[1], dc, ac);   // Category 1: the 8-bit code.
    e.Block(DcBlock(0), predictors[2], dc, ac);    // Category 0: the 2-bit code.
    e.Flush();
    w.Raw(e.bytes).Eoi();
    // The long codes fill 257 second-level entries: they spill into a second table, which the decoded
    // values below go through.
    const auto decoder = Decode(w.bytes);
    EXPECT_EQ(decoder->DcTable(0).subTables.size(), 2u);
    EXPECT_EQ(decoder->Component(0).Plane()[0], 128 + 125);
    EXPECT_EQ(decoder->Component(1).Plane()[0], 128);
    EXPECT_EQ(decoder->Component(2).Plane()[0], 128);
}

JpegHuffman FlatAcTableWith(std::uint8_t extra)
{
    std::vector<std::pair<int, std::uint8_t>> list{{8, 0x00}, {8, 0xF0}, {8, extra}};
    for (int run = 0; run < 16; ++run)
        for (int size = 1; size <= 10; ++size)
            list.emplace_back(8, static_cast<std::uint8_t>(run << 4 | size));
    return JpegHuffman::Make(list);
}

// A one-MCU photo whose luma block is written symbol by symbol (values of 1), and the entropy bytes.
struct SymbolPhoto
{
    std::vector<std::uint8_t> photo;
    std::vector<std::uint8_t> entropy;
};

SymbolPhoto PhotoWithLumaSymbols(const std::vector<std::uint8_t>& acSymbols, const JpegHuffman& ac)
{
    const JpegHuffman dc = FlatDcTable();
    JpegWriter w;
    w.Soi().Dqt(0, std::vector<int>(64, 1)).Sof0(8, 8, {{1, 1, 1, 0}, {2, 1, 1, 0}, {3, 1, 1, 0}});
    w.Dht(0, 0, dc).Dht(1, 0, ac).Sos({{1, 0}, {2, 0}, {3, 0}});
    EntropyWriter e;
    e.Symbol(dc, 0);
    for (std::uint8_t s : acSymbols) {
        e.Symbol(ac, s);
        if ((s & 0x0F) != 0)
            e.PutBits(1, s & 0x0F);
    }
    int predictor = 0;
    e.Block(DcBlock(-5), predictor, dc, ac);
    predictor = 0;
    e.Block(DcBlock(400), predictor, dc, ac);
    e.Flush();
    w.Raw(e.bytes).Eoi();
    return {w.bytes, e.bytes};
}

// The luma plane of a one-MCU photo must be this coefficient block through the fast path.
void ExpectLumaBlock(const PhotoDecoder& decoder, std::int16_t (&coefficients)[64])
{
    FastIdct(coefficients);
    std::uint8_t samples[64];
    FastStoreBlock(coefficients, samples, 8);
    const auto plane = decoder.Component(0).Plane();
    ASSERT_EQ(plane.size(), 64u);
    EXPECT_EQ(0, std::memcmp(plane.data(), samples, 64));
}

TEST(PhotoDecoder, CoefficientRunsEndAtSixtyThree)
{
    struct Row
    {
        const char* name;
        std::vector<std::uint8_t> symbols;
        int naturalIndex; // Where the coefficient 1 lands; -1 for none.
    };
    const Row rows[] = {
        {"three zero runs and a run of 14 land on 63 without an end-of-block", {0xF0, 0xF0, 0xF0, 0xE1}, 63},
        {"zero runs past the end, then end-of-block", {0xF0, 0xF0, 0xF0, 0xF0, 0x00}, -1},
        {"a run of 2 lands on zigzag 3", {0x21, 0x00}, 16},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const auto decoder =
            Decode(PhotoWithLumaSymbols(row.symbols, FlatAcTable()).photo, nullptr, {.idct = IdctPath::Fast});
        std::int16_t expected[64] = {1024};
        if (row.naturalIndex >= 0)
            expected[row.naturalIndex] = 1;
        ExpectLumaBlock(*decoder, expected);
        // The chroma blocks after it decode in step.
        EXPECT_EQ(decoder->Component(1).Plane()[0], 127);
        EXPECT_EQ(decoder->Component(2).Plane()[0], 128 + 50);
    }
}

TEST(PhotoDecoder, SizeZeroSymbolTakesTheWholeRegisterUnconsumed)
{
    // Run 2, size 0 (not ZRL): the value is the register after the symbol, unconsumed. Twelve bits into
    // the scan it holds 28 valid bits (a byte enters whenever 24 or fewer are left) over 4 zero bits;
    // its first bit is 0 (the end-of-block code follows), so the value becomes -(~bits) = bits + 1,
    // cut to 16 bits.
    const auto made = PhotoWithLumaSymbols({0x20, 0x00}, FlatAcTableWith(0x20));
    const auto& e = made.entropy;
    std::uint64_t window = 0;
    for (int i = 0; i < 6; ++i)
        window = window << 8 | e[static_cast<std::size_t>(i)];
    const auto bits = static_cast<std::uint32_t>(window >> (48 - 12 - 28)) << 4;
    ASSERT_EQ(bits >> 31, 0u);
    const auto decoder = Decode(made.photo, nullptr, {.idct = IdctPath::Fast});
    std::int16_t expected[64] = {1024};
    expected[16] = static_cast<std::int16_t>(static_cast<std::uint16_t>(bits + 1));
    ExpectLumaBlock(*decoder, expected);
}

// Blocks that land on the same samples must be stored in decode order, whatever the reader hands over
// as a flat block and whether the transform pairs blocks: the later block wins.
TEST(PhotoDecoder, LaterBlockWinsWhereAScanWritesSamplesTwice)
{
    // Coefficients 1 and 8 (zigzag 1 and 2) give a texture no flat block can match.
    const auto textured = [](int dc) {
        ZigzagBlock block = DcBlock(dc);
        block[1] = 60;
        block[2] = -40;
        return block;
    };
    struct Placed
    {
        ZigzagBlock block;
        int row; // Where its samples must end up in the 8-wide plane.
    };
    struct Row
    {
        const char* name;
        int height, v;
        int scanEntries;                 // How often the scan lists the one component.
        std::vector<ZigzagBlock> blocks; // In decode order.
        std::vector<Placed> expected;
    };
    const Row rows[] = {
        {"listed twice: textured, then flat", 8, 1, 2, {textured(40), DcBlock(-16)}, {{DcBlock(-16), 0}}},
        {"listed twice: flat, then textured", 8, 1, 2, {DcBlock(-16), textured(40)}, {{textured(40), 0}}},
        {"sampled 3 down: the third block is overwritten by the next MCU's first",
         48,
         3,
         1,
         {DcBlock(24), DcBlock(24), textured(0), DcBlock(-24), DcBlock(-24), DcBlock(-24)},
         {{DcBlock(24), 0}, {DcBlock(24), 8}, {DcBlock(-24), 16}, {DcBlock(-24), 24}}},
    };
    const JpegHuffman dc = FlatDcTable();
    const JpegHuffman ac = FlatAcTable();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        JpegWriter w;
        w.Soi().Dqt(0, std::vector<int>(64, 1)).Sof0(8, row.height, {{1, 1, row.v, 0}});
        w.Dht(0, 0, dc).Dht(1, 0, ac).Sos(
            std::vector<std::pair<int, int>>(static_cast<std::size_t>(row.scanEntries), {1, 0x00}));
        EntropyWriter e;
        int predictor = 0; // One component: one predictor, however often the scan lists it.
        for (const ZigzagBlock& block : row.blocks)
            e.Block(block, predictor, dc, ac);
        e.Flush();
        w.Raw(e.bytes).Eoi();

        std::vector<std::uint8_t> expected(8u * 8u * row.expected.size());
        for (const Placed& placed : row.expected) {
            std::int16_t coefficients[64] = {static_cast<std::int16_t>(placed.block[0] + 1024)};
            coefficients[1] = static_cast<std::int16_t>(placed.block[1]);
            coefficients[8] = static_cast<std::int16_t>(placed.block[2]);
            FastIdct(coefficients);
            FastStoreBlock(coefficients, expected.data() + 8 * placed.row, 8);
        }
        for (BitReader reader : {BitReader::Fast, BitReader::Register}) {
            SCOPED_TRACE(reader == BitReader::Fast ? "fast reader" : "register");
            const auto decoder = Decode(w.bytes, nullptr, {.idct = IdctPath::Fast, .bitReader = reader});
            const auto plane = decoder->Component(0).Plane();
            EXPECT_TRUE(std::equal(plane.begin(), plane.end(), expected.begin(), expected.end()));
        }
    }
}

TEST(PhotoDecoder, RestartMarkersAreReadBetweenIntervalsOnly)
{
    // Four MCUs in a row, interval 2: one marker, after MCU 2 (none after the last).
    const auto good = MakeUniformPhoto(32, 8, DcBlock(80), 2);
    {
        const auto decoder = Decode(good);
        EXPECT_TRUE(decoder->Notices().empty());
        EXPECT_EQ(decoder->RestartInterval(), 2);
        ExpectFlatPlanes(*decoder, 138, "with restarts");
    }
    // A wrong marker: the message, and the scan ends; the planes keep zeros from MCU 3 on.
    auto bad = good;
    const auto marker = std::search(bad.begin() + 20, bad.end(), kRst0.begin(), kRst0.end());
    ASSERT_NE(marker, bad.end());
    marker[0] = 0x12;
    marker[1] = 0xAB;
    const auto decoder = Decode(bad);
    EXPECT_EQ(decoder->Notices(), std::vector<std::string>{"Going Out value=12AB rs_int=2"});
    const auto plane = decoder->Component(0).Plane();
    EXPECT_EQ(plane[0], 138);
    EXPECT_EQ(plane[15], 138);
    EXPECT_EQ(plane[16], 0);
}

TEST(PhotoDecoder, StrayRestartMarkerSwallowsTheNextSegment)
{
    auto photo = MakeUniformPhoto(8, 8, DcBlock(80));
    // FF D3, a 4-byte head (length 4, one word), then the quantisation table is skipped as a segment.
    photo.insert(photo.begin() + 2, {0xFF, 0xD3, 0x00, 0x04, 0xAB, 0xCD});
    const auto decoder = Decode(photo);
    EXPECT_EQ(decoder->QuantTable(0)[0], 0);
    ExpectFlatPlanes(*decoder, 128, "no quantisation table");
}

// Streams the player would have crashed on or misread: each fails or decodes, never reads out of bounds.
TEST(PhotoDecoder, HostileHeadersFailCleanly)
{
    const auto dc = FlatDcTable();
    const auto ac = FlatAcTable();
    auto frame = [&](int w, int h, std::vector<testing::JpegComponent> components) {
        JpegWriter j;
        j.Soi().Dqt(0, std::vector<int>(64, 1)).Sof0(w, h, components).Dht(0, 0, dc).Dht(1, 0, ac);
        return j;
    };
    const std::vector<testing::JpegComponent> three{{1, 1, 1, 0}, {2, 1, 1, 0}, {3, 1, 1, 0}};
    struct Row
    {
        const char* name;
        std::vector<std::uint8_t> bytes;
        bool parses;
    };
    std::vector<Row> rows;
    rows.push_back({"zero sampling factors", frame(8, 8, {{1, 0, 0, 0}}).Eoi().bytes, false});
    rows.push_back({"no components", frame(8, 8, {}).Eoi().bytes, false});
    rows.push_back({"planes past the cap", frame(65535, 65535, three).Eoi().bytes, false});
    rows.push_back({"scan of no components", frame(8, 8, three).Sos({}).Eoi().bytes, false});
    rows.push_back({"scan of five components",
                    frame(8, 8, three).Sos({{1, 0}, {2, 0}, {3, 0}, {1, 0}, {2, 0}}).Eoi().bytes, false});
    rows.push_back({"unknown component", frame(8, 8, three).Sos({{9, 0}}).Eoi().bytes, false});
    rows.push_back({"huffman table 2 in a scan", frame(8, 8, three).Sos({{1, 0x22}}).Eoi().bytes, false});
    rows.push_back({"quantisation table 7", frame(8, 8, {{1, 1, 1, 7}}).Sos({{1, 0}}).Eoi().bytes, false});
    rows.push_back({"scan before any frame", JpegWriter().Soi().Sos({{1, 0}}).Eoi().bytes, false});
    rows.push_back(
        {"quantisation table 5 defined", JpegWriter().Soi().Dqt(5, std::vector<int>(64, 1)).bytes, false});
    rows.push_back({"huffman table 3 defined", JpegWriter().Soi().Dht(1, 3, ac).bytes, false});
    rows.push_back({"segment length 1", JpegWriter().Soi().Raw({0xFF, 0xFE, 0x00, 0x01}).bytes, false});
    JpegHuffman tooMany = FlatAcTable();
    tooMany.counts[0] = 3; // Three 1-bit codes do not fit.
    rows.push_back({"overfull code lengths", JpegWriter().Soi().Dht(1, 0, tooMany).bytes, false});
    rows.push_back(
        {"progressive frame is skipped", JpegWriter().Soi().Segment(0xC2, {8, 0, 8}).Eoi().bytes, true});
    rows.push_back(
        {"fill bytes start a segment", JpegWriter().Soi().Raw({0xFF, 0xFF, 0x00, 0x02}).Eoi().bytes, true});
    rows.push_back({"huge frame, small cap", frame(4000, 4000, three).Sos({{1, 0}}).Eoi().bytes, false});
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        base::Status status;
        Decode(row.bytes, &status, {.maxPlaneBytes = 4u << 20});
        EXPECT_EQ(status.ok(), row.parses);
    }
    Photo photo;
    EXPECT_EQ(DecodePhoto(photo, frame(8, 8, {{1, 1, 1, 0}, {2, 1, 1, 0}}).Sos({{1, 0}, {2, 0}}).Eoi().bytes),
              0)
        << "two components cannot make a picture";
}

std::vector<std::vector<std::uint8_t>> DamageCorpus()
{
    std::vector<std::vector<std::uint8_t>> corpus;
    ZigzagBlock busy(64, 0);
    for (int k = 0; k < 64; k += 3)
        busy[static_cast<std::size_t>(k)] = (k * 37) % 200 - 100;
    const auto photos = {MakeUniformPhoto(40, 24, busy, 2, 2, 2), MakeUniformPhoto(17, 9, busy, 0, 2, 1),
                         MakeUniformPhoto(16, 16, busy)};
    for (const auto& photo : photos) {
        // Every prefix: truncated inside every segment and the scan.
        for (std::size_t n = 0; n < photo.size(); ++n)
            corpus.emplace_back(photo.begin(), photo.begin() + static_cast<std::ptrdiff_t>(n));
        // Every byte flipped in turn.
        for (std::size_t n = 0; n < photo.size(); ++n) {
            auto flipped = photo;
            flipped[n] ^= 0xA5;
            corpus.push_back(std::move(flipped));
        }
    }
    return corpus;
}

// Decodes `bytes` with the fast reader and paired transforms, and with the 32-bit register storing one
// block at a time: both must give the same outcome, messages and samples. True when the photo decoded.
bool ReadersAgree(const std::vector<std::uint8_t>& bytes, DecodeOptions options)
{
    base::Status statuses[2];
    std::vector<std::string> messages[2];
    std::unique_ptr<PhotoDecoder> decoders[2];
    for (int r = 0; r < 2; ++r) {
        options.bitReader = r == 0 ? BitReader::Fast : BitReader::Register;
        options.pairBlocks = r == 0;
        auto created = PhotoDecoder::Create(bytes, options);
        EXPECT_TRUE(created.ok());
        if (!created.ok())
            return false;
        decoders[r] = std::move(created).value();
        statuses[r] = decoders[r]->ParseMarkers();
        messages[r] = decoders[r]->Notices();
    }
    EXPECT_EQ(statuses[0].ok(), statuses[1].ok());
    EXPECT_EQ(messages[0], messages[1]);
    if (!statuses[0].ok() || !statuses[1].ok())
        return false;
    EXPECT_EQ(decoders[0]->ComponentCount(), decoders[1]->ComponentCount());
    for (int c = 0; c < std::min(decoders[0]->ComponentCount(), decoders[1]->ComponentCount()); ++c) {
        const auto fast = decoders[0]->Component(c).Plane();
        const auto reference = decoders[1]->Component(c).Plane();
        EXPECT_TRUE(std::equal(fast.begin(), fast.end(), reference.begin(), reference.end()))
            << "component " << c;
    }
    return true;
}

// Damaged streams decode without faults, to a whole picture where they decode at all. The fast reader
// must leave exactly the samples, outcome and messages of the 32-bit register: on damaged streams (where it
// hands over to the register mid-block and back) and at chunk sizes that put stuffed pairs, restart markers
// and the data's end on chunk boundaries.
TEST(PhotoDecoder, FastReaderMatchesTheRegister)
{
    auto corpus = DamageCorpus();
    // Coefficients that make the entropy coder emit many 0xFF bytes, with a restart after every MCU.
    ZigzagBlock ones(64, 0);
    for (int k = 0; k < 64; ++k)
        ones[static_cast<std::size_t>(k)] = k % 2 == 0 ? -255 : 255;
    corpus.push_back(MakeUniformPhoto(48, 32, ones, 1, 2, 1));
    corpus.push_back(MakeUniformPhoto(24, 40, ones, 3));
    // Photos whose restart intervals begin with a stuffed pair: the fast reader has read past it when it
    // hands over at the marker, and must give the pair back as one byte.
    std::mt19937 random(11);
    int pairsAfterMarkers = 0;
    for (int attempt = 0; attempt < 2000 && pairsAfterMarkers < 4; ++attempt) {
        ZigzagBlock block(64, 0);
        for (int& value : block)
            value = random() % 3 == 0 ? static_cast<int>(random() % 2047) - 1023 : 0;
        auto photo = MakeUniformPhoto(32, 16, block, 1);
        bool found = false;
        for (std::size_t i = 0; i + 8 < photo.size() && !found; ++i) {
            if (photo[i] != 0xFF || (photo[i + 1] & 0xF8) != 0xD0)
                continue;
            for (std::size_t j = i + 2; j < i + 7; ++j)
                found = found || (photo[j] == 0xFF && photo[j + 1] == 0x00);
        }
        if (found) {
            corpus.push_back(std::move(photo));
            ++pairsAfterMarkers;
        }
    }
    ASSERT_EQ(pairsAfterMarkers, 4);
    int fastTaken = 0, decoded = 0;
    for (std::size_t n = 0; n < corpus.size(); ++n) {
        Photo photo;
        if (DecodePhoto(photo, corpus[n], {.maxPlaneBytes = 1u << 20}) == 1) {
            ++decoded;
            if (photo.Bitmap()->BitCount() == 32) {
                EXPECT_EQ(photo.Bitmap()->Pixels().size(),
                          static_cast<std::size_t>(photo.Width()) * photo.Height() * 4);
            }
        }
        for (std::uint32_t chunk : {kPhotoChunkCapacity, 4u, 5u, 7u, 64u}) {
            SCOPED_TRACE(::testing::Message() << "photo " << n << ", chunk " << chunk);
            if (ReadersAgree(corpus[n], {.chunkCapacity = chunk, .maxPlaneBytes = 1u << 20}))
                ++fastTaken;
        }
    }
    EXPECT_GT(fastTaken, 1000);
    EXPECT_GT(decoded, 0);
}

// Short codes put two coefficients in one fast look-up; where the block ends at index 63, the pair
// must stop there (or not be taken) exactly as the register does.
TEST(PhotoDecoder, ShortCodesEndBlocksAtSixtyThreeLikeTheRegister)
{
    std::vector<std::pair<int, std::uint8_t>> codes{{2, 0x01}, {3, 0x11}, {3, 0x00}, {9, 0xF0}};
    for (int run = 0; run < 16; ++run) {
        for (int size = 1; size <= 10; ++size) {
            const auto symbol = static_cast<std::uint8_t>(run << 4 | size);
            if (symbol != 0x01 && symbol != 0x11)
                codes.emplace_back(9, symbol);
        }
    }
    const JpegHuffman ac = JpegHuffman::Make(codes);
    const JpegHuffman dc = FlatDcTable();
    auto ending = [](int last, bool gapBeforeLast) {
        ZigzagBlock block(64, 0);
        block[0] = 40;
        for (int k = 1; k <= last; ++k)
            block[static_cast<std::size_t>(k)] = k % 2 == 0 ? 1 : -1;
        if (gapBeforeLast)
            block[static_cast<std::size_t>(last - 1)] = 0;
        return block;
    };
    const struct
    {
        const char* name;
        ZigzagBlock block;
    } rows[] = {
        {"63 coefficients", ending(63, false)},
        {"62 coefficients, then the end", ending(62, false)},
        {"61, then a run of one to 63", ending(63, true)},
        {"a run of one to 62, then the end", ending(62, true)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        JpegWriter w;
        w.Soi().Dqt(0, std::vector<int>(64, 1)).Sof0(16, 8, {{1, 1, 1, 0}, {2, 1, 1, 0}, {3, 1, 1, 0}});
        w.Dht(0, 0, dc).Dht(1, 0, ac).Sos({{1, 0x00}, {2, 0x00}, {3, 0x00}});
        EntropyWriter e;
        int predictors[3] = {};
        for (int block = 0; block < 6; ++block)
            e.Block(row.block, predictors[block % 3], dc, ac);
        e.Flush();
        w.Raw(e.bytes).Eoi();
        EXPECT_TRUE(ReadersAgree(w.bytes, {}));
    }
}

TEST(PhotoDecoder, FuzzRegressionsDecodeWithoutFaults)
{
    const auto inputs = testing::RegressionInputs("codec/regress");
    EXPECT_FALSE(inputs.empty());
    for (const auto& [name, bytes] : inputs) {
        SCOPED_TRACE(name);
        Photo photo;
        (void)DecodePhoto(photo, bytes, {.maxPlaneBytes = 16u << 20});
        (void)ReadersAgree(bytes, {.idct = IdctPath::Fast, .maxPlaneBytes = 16u << 20});
    }
}

} // namespace
} // namespace lumenar::codec
