#pragma once

// Builds baseline JPEG streams byte by byte for the decoder's tests: segments with
// explicit contents, an entropy coder with byte stuffing, and simple Huffman tables.
#include <cstdint>
#include <utility>
#include <vector>

namespace lumenar::testing {

/// A Huffman table as the DHT segment carries it, plus the codes it assigns.
struct JpegHuffman
{
    std::uint8_t counts[16] = {}; ///< BITS[1..16].
    std::vector<std::uint8_t> symbols;
    std::uint16_t code[256] = {};
    std::uint8_t length[256] = {}; ///< 0: the symbol has no code.

    /// Canonical codes from counts and symbols.
    static JpegHuffman Make(std::vector<std::pair<int, std::uint8_t>> lengthAndSymbol);
};

/// DC table: the twelve categories, all 4-bit codes.
JpegHuffman FlatDcTable();
/// AC table: EOB, ZRL and every run/size pair with size 1..10, all 8-bit codes.
JpegHuffman FlatAcTable();

/// One coefficient block in zigzag order, as quantised values.
using ZigzagBlock = std::vector<int>; // 64 entries.

/// A flat block: only its first (DC) coefficient set.
inline ZigzagBlock DcBlock(int dc)
{
    ZigzagBlock block(64, 0);
    block[0] = dc;
    return block;
}

/// Writes entropy-coded data: bits MSB first, 0xFF followed by a stuffed 0x00.
class EntropyWriter
{
public:
    void PutBits(std::uint32_t value, int count);
    /// Pads with 1 bits to a byte boundary.
    void Flush();
    /// Flushes, then writes FF D0+n (no stuffing).
    void Restart(int n);
    /// Writes one block with the given tables; `predictor` is updated. AC symbols use ZRL for runs of 16.
    void Block(const ZigzagBlock& block, int& predictor, const JpegHuffman& dc, const JpegHuffman& ac);
    /// A raw AC symbol with `size` value bits.
    void Symbol(const JpegHuffman& table, std::uint8_t symbol);

    std::vector<std::uint8_t> bytes;

private:
    std::uint32_t accumulator_ = 0;
    int bitCount_ = 0;
};

struct JpegComponent
{
    int id;
    int h, v;
    int tq;
};

/// Appends segments to one stream.
class JpegWriter
{
public:
    JpegWriter& Soi();
    JpegWriter& Eoi();
    JpegWriter& Marker(std::uint8_t code);
    /// FF code, then the 16-bit length (payload + 2), then the payload.
    JpegWriter& Segment(std::uint8_t code, const std::vector<std::uint8_t>& payload);
    JpegWriter& Dqt(int tq, const std::vector<int>& values, bool sixteenBit = false);
    JpegWriter& Sof0(int width, int height, const std::vector<JpegComponent>& components);
    JpegWriter& Dht(int tc, int th, const JpegHuffman& table);
    /// Scan header; each entry is (component id, dc table << 4 | ac table).
    JpegWriter& Sos(const std::vector<std::pair<int, int>>& components);
    JpegWriter& Dri(int interval);
    JpegWriter& Raw(const std::vector<std::uint8_t>& raw);

    std::vector<std::uint8_t> bytes;
};

/// A complete three-component 1x1-sampled photo whose blocks are all `block` (predictors apply),
/// with quantisation table of all ones, flat tables and optional restart interval.
std::vector<std::uint8_t> MakeUniformPhoto(int width, int height, const ZigzagBlock& block,
                                           int restartInterval = 0, int lumaH = 1, int lumaV = 1);

/// An 8x8 photo whose first block runs past coefficient 63 (four runs of sixteen zeros, then a value):
/// one of the two corruptions on which the player historically ended its process.
std::vector<std::uint8_t> MakeRunPastEndPhoto();

} // namespace lumenar::testing
