#include "tests/support/JpegWriter.h"

#include <algorithm>
#include <cstdlib>

namespace lumenar::testing {

JpegHuffman JpegHuffman::Make(std::vector<std::pair<int, std::uint8_t>> lengthAndSymbol)
{
    std::stable_sort(lengthAndSymbol.begin(), lengthAndSymbol.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    JpegHuffman table;
    std::uint32_t code = 0;
    int currentLength = 1;
    for (const auto& [length, symbol] : lengthAndSymbol) {
        while (currentLength < length) {
            code <<= 1;
            ++currentLength;
        }
        table.counts[length - 1]++;
        table.symbols.push_back(symbol);
        table.code[symbol] = static_cast<std::uint16_t>(code);
        table.length[symbol] = static_cast<std::uint8_t>(length);
        ++code;
    }
    return table;
}

JpegHuffman FlatDcTable()
{
    std::vector<std::pair<int, std::uint8_t>> list;
    for (int s = 0; s <= 11; ++s)
        list.emplace_back(4, static_cast<std::uint8_t>(s));
    return JpegHuffman::Make(list);
}

JpegHuffman FlatAcTable()
{
    std::vector<std::pair<int, std::uint8_t>> list{{8, 0x00}, {8, 0xF0}};
    for (int run = 0; run < 16; ++run)
        for (int size = 1; size <= 10; ++size)
            list.emplace_back(8, static_cast<std::uint8_t>(run << 4 | size));
    return JpegHuffman::Make(list);
}

void EntropyWriter::PutBits(std::uint32_t value, int count)
{
    for (int i = count - 1; i >= 0; --i) {
        accumulator_ = (accumulator_ << 1) | ((value >> i) & 1u);
        if (++bitCount_ == 8) {
            const auto b = static_cast<std::uint8_t>(accumulator_);
            bytes.push_back(b);
            if (b == 0xFF)
                bytes.push_back(0x00);
            accumulator_ = 0;
            bitCount_ = 0;
        }
    }
}

void EntropyWriter::Flush()
{
    while (bitCount_ != 0)
        PutBits(1, 1);
}

void EntropyWriter::Restart(int n)
{
    Flush();
    bytes.push_back(0xFF);
    bytes.push_back(static_cast<std::uint8_t>(0xD0 + (n & 7)));
}

void EntropyWriter::Symbol(const JpegHuffman& table, std::uint8_t symbol)
{
    PutBits(table.code[symbol], table.length[symbol]);
}

namespace {
int Category(int value)
{
    int magnitude = std::abs(value);
    int size = 0;
    while (magnitude != 0) {
        magnitude >>= 1;
        ++size;
    }
    return size;
}
std::uint32_t ValueBits(int value, int size)
{
    return static_cast<std::uint32_t>(value < 0 ? value - 1 : value) & ((1u << size) - 1u);
}
} // namespace

void EntropyWriter::Block(const ZigzagBlock& block, int& predictor, const JpegHuffman& dc,
                          const JpegHuffman& ac)
{
    const int diff = block[0] - predictor;
    predictor = block[0];
    const int size = Category(diff);
    Symbol(dc, static_cast<std::uint8_t>(size));
    PutBits(ValueBits(diff, size), size);
    int run = 0;
    for (int k = 1; k < 64; ++k) {
        if (block[static_cast<std::size_t>(k)] == 0) {
            ++run;
            continue;
        }
        while (run >= 16) {
            Symbol(ac, 0xF0);
            run -= 16;
        }
        const int s = Category(block[static_cast<std::size_t>(k)]);
        Symbol(ac, static_cast<std::uint8_t>(run << 4 | s));
        PutBits(ValueBits(block[static_cast<std::size_t>(k)], s), s);
        run = 0;
    }
    if (run > 0)
        Symbol(ac, 0x00);
}

JpegWriter& JpegWriter::Marker(std::uint8_t code)
{
    bytes.push_back(0xFF);
    bytes.push_back(code);
    return *this;
}

JpegWriter& JpegWriter::Soi()
{
    return Marker(0xD8);
}

JpegWriter& JpegWriter::Eoi()
{
    return Marker(0xD9);
}

JpegWriter& JpegWriter::Segment(std::uint8_t code, const std::vector<std::uint8_t>& payload)
{
    Marker(code);
    const std::size_t length = payload.size() + 2;
    bytes.push_back(static_cast<std::uint8_t>(length >> 8));
    bytes.push_back(static_cast<std::uint8_t>(length));
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return *this;
}

JpegWriter& JpegWriter::Dqt(int tq, const std::vector<int>& values, bool sixteenBit)
{
    std::vector<std::uint8_t> p{static_cast<std::uint8_t>((sixteenBit ? 0x10 : 0x00) | tq)};
    for (int v : values) {
        if (sixteenBit)
            p.push_back(static_cast<std::uint8_t>(v >> 8));
        p.push_back(static_cast<std::uint8_t>(v));
    }
    return Segment(0xDB, p);
}

JpegWriter& JpegWriter::Sof0(int width, int height, const std::vector<JpegComponent>& components)
{
    std::vector<std::uint8_t> p{8,
                                static_cast<std::uint8_t>(height >> 8),
                                static_cast<std::uint8_t>(height),
                                static_cast<std::uint8_t>(width >> 8),
                                static_cast<std::uint8_t>(width),
                                static_cast<std::uint8_t>(components.size())};
    for (const JpegComponent& c : components) {
        p.push_back(static_cast<std::uint8_t>(c.id));
        p.push_back(static_cast<std::uint8_t>(c.h << 4 | c.v));
        p.push_back(static_cast<std::uint8_t>(c.tq));
    }
    return Segment(0xC0, p);
}

JpegWriter& JpegWriter::Dht(int tc, int th, const JpegHuffman& table)
{
    std::vector<std::uint8_t> p{static_cast<std::uint8_t>(tc << 4 | th)};
    p.insert(p.end(), table.counts, table.counts + 16);
    p.insert(p.end(), table.symbols.begin(), table.symbols.end());
    return Segment(0xC4, p);
}

JpegWriter& JpegWriter::Sos(const std::vector<std::pair<int, int>>& components)
{
    std::vector<std::uint8_t> p{static_cast<std::uint8_t>(components.size())};
    for (const auto& [id, tables] : components) {
        p.push_back(static_cast<std::uint8_t>(id));
        p.push_back(static_cast<std::uint8_t>(tables));
    }
    p.insert(p.end(), {0, 63, 0});
    return Segment(0xDA, p);
}

JpegWriter& JpegWriter::Dri(int interval)
{
    return Segment(0xDD, {static_cast<std::uint8_t>(interval >> 8), static_cast<std::uint8_t>(interval)});
}

JpegWriter& JpegWriter::Raw(const std::vector<std::uint8_t>& raw)
{
    bytes.insert(bytes.end(), raw.begin(), raw.end());
    return *this;
}

std::vector<std::uint8_t> MakeUniformPhoto(int width, int height, const ZigzagBlock& block,
                                           int restartInterval, int lumaH, int lumaV)
{
    const JpegHuffman dc = FlatDcTable();
    const JpegHuffman ac = FlatAcTable();
    JpegWriter w;
    w.Soi()
        .Dqt(0, std::vector<int>(64, 1))
        .Sof0(width, height, {{1, lumaH, lumaV, 0}, {2, 1, 1, 0}, {3, 1, 1, 0}});
    w.Dht(0, 0, dc).Dht(1, 0, ac);
    if (restartInterval != 0)
        w.Dri(restartInterval);
    w.Sos({{1, 0x00}, {2, 0x00}, {3, 0x00}});
    const int mcusAcross = (width + 8 * lumaH - 1) / (8 * lumaH);
    const int mcusDown = (height + 8 * lumaV - 1) / (8 * lumaV);
    EntropyWriter e;
    int predictors[3] = {};
    int restarts = 0;
    for (int m = 0; m < mcusAcross * mcusDown; ++m) {
        if (restartInterval != 0 && m != 0 && m % restartInterval == 0) {
            e.Restart(restarts++);
            predictors[0] = predictors[1] = predictors[2] = 0;
        }
        for (int i = 0; i < lumaH * lumaV; ++i)
            e.Block(block, predictors[0], dc, ac);
        e.Block(block, predictors[1], dc, ac);
        e.Block(block, predictors[2], dc, ac);
    }
    e.Flush();
    w.Raw(e.bytes).Eoi();
    return w.bytes;
}

std::vector<std::uint8_t> MakeRunPastEndPhoto()
{
    const JpegHuffman dc = FlatDcTable();
    const JpegHuffman ac = FlatAcTable();
    JpegWriter w;
    w.Soi().Dqt(0, std::vector<int>(64, 1)).Sof0(8, 8, {{1, 1, 1, 0}, {2, 1, 1, 0}, {3, 1, 1, 0}});
    w.Dht(0, 0, dc).Dht(1, 0, ac).Sos({{1, 0}, {2, 0}, {3, 0}});
    EntropyWriter e;
    e.Symbol(dc, 0);
    for (int run = 0; run < 4; ++run)
        e.Symbol(ac, 0xF0);
    e.Symbol(ac, 0x01);
    e.PutBits(1, 1);
    e.Flush();
    w.Raw(e.bytes).Eoi();
    return w.bytes;
}

} // namespace lumenar::testing
