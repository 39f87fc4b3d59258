#pragma once

#include "base/Result.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace lumenar::codec {

/// Which inverse transform a decoder uses.
enum class IdctPath
{
    Auto,     ///< The fast path when the processor has MMX, unless LUMENAR_PORTABLE_IDCT=1 forces portable.
    Fast,     ///< The fast (MMX lane) path.
    Portable, ///< The portable path.
};

/// How a scan's bits are read. Both give the same samples; the register alone is kept as the
/// reference the fast reader is checked against.
enum class BitReader
{
    Fast,     ///< A 64-bit reader that hands the rare cases to the 32-bit register.
    Register, ///< The 32-bit register throughout.
};

/// A plane larger than this is refused (the frame fails to decode).
inline constexpr std::size_t kMaxPlaneBytes = 256u << 20;
/// A photo of more pixels than this (64 megapixels, 8192 x 8192) is refused at its frame header, before
/// anything is allocated for it: its picture alone would take 256 MiB, and a few bytes of header can
/// declare 65535 x 65535.
inline constexpr std::int64_t kMaxPhotoPixels = std::int64_t{64} << 20;

/// What decoding one photo met that its caller may want to tell the viewer of. The decoder never shows
/// anything itself: the caller owns the report and decides (the player shows the notices in boxes and
/// reports a refusal in one line naming the item).
struct DecodeReport
{
    /// Damage the photo was decoded through, as the player's messages word it ("Going Out
    /// value=12AB rs_int=2", "Unable to allocate DIB memory"), in the order met.
    std::vector<std::string> notices;
    /// Why no picture was made; empty when one was.
    std::string refusal;
    /// The refusal is one of the two corruptions (a coefficient index past 63, no memory for a
    /// Huffman table) on which the player historically ended its process.
    bool fatalCorruption = false;
};
/// The chunk size the player feeds the bit register with.
inline constexpr std::uint32_t kPhotoChunkCapacity = 0x10000;

/// How a photo is decoded.
struct DecodeOptions
{
    IdctPath idct = IdctPath::Auto;
    BitReader bitReader = BitReader::Fast;
    /// Lets the AVX2 transform take blocks two at a time where the scan allows it. Off, every block is
    /// stored as soon as it is decoded: the same samples, which the tests and the fuzz target check.
    bool pairBlocks = true;
    std::uint32_t chunkCapacity = kPhotoChunkCapacity;
    std::size_t maxPlaneBytes = kMaxPlaneBytes;         ///< Hosts with less memory (fuzzers) set it lower.
    std::size_t maxPictureBytes = std::size_t{1} << 30; ///< A larger picture counts as memory not had.
};

/// One component of the frame.
struct ComponentInfo
{
    int id = 0;
    int h = 0, v = 0;
    int blocksPerMcu = 0;
    int log2h = 0, log2v = 0;
    int quantTable = 0;
    int dcTable = 0, acTable = 0;
    int ss = 0, se = 0, ah = 0, al = 0; ///< Stored, not used.
    std::int32_t dcPredictor = 0;
    std::unique_ptr<std::uint8_t[]> plane; ///< Zeroed at the frame header; (planeRows × planeStride) bytes.
    std::size_t planeStride = 0;
    std::size_t planeRows = 0;

    std::span<const std::uint8_t> Plane() const { return {plane.get(), planeStride * planeRows}; }
};

/// A two-level Huffman look-up. A first-level entry, indexed by the next 8 bits, is a code entry
/// (length << 16 | symbol; all zero for an unused code) or a reference to a second-level table of the
/// same form indexed by the 8 bits after them. References are exactly the entries with a bit outside
/// 0x1F00FF; here they carry the table's index.
struct HuffmanLookup
{
    static constexpr std::uint32_t kReferenceMask = 0xFFE0FF00u;
    static constexpr std::uint32_t kReferenceFlag = 0x80000000u;

    std::array<std::uint32_t, 256> entries{};
    std::vector<std::unique_ptr<std::array<std::uint32_t, 256>>> subTables;

    /// The entry for a register whose next unread bit is bit 31.
    std::uint32_t Find(std::uint32_t bits) const
    {
        const std::uint32_t e = entries[bits >> 24];
        if ((e & kReferenceMask) == 0)
            return e;
        return (*subTables[e & 0xFF])[(bits >> 16) & 0xFF];
    }
};

/// The baseline photo decoder of the player: one object per photo, kept (with its sample planes) as
/// long as the decoded photo. It reads the bytes through a 32-bit register fed from fixed-size chunks,
/// parses the markers and decodes each scan into the components' planes.
///
/// Bad input never leads to undefined behaviour: the damage the player lives with (data that end
/// early, a missing restart marker, undefined tables) decodes to whatever the planes hold; input the
/// player would have crashed on fails the photo (ParseMarkers returns the error), and so do the two
/// fatal corruptions, which FatalCorruption() then names. Nothing is shown from inside the decoder:
/// damage decoded through is kept in Notices() for the caller. Any one thread at a time.
class PhotoDecoder
{
public:
    /// Copies `bytes` and prepares the bit source. Fails only when memory for the copy or the chunk
    /// buffer cannot be had.
    static base::Result<std::unique_ptr<PhotoDecoder>> Create(std::span<const std::uint8_t> bytes,
                                                              const DecodeOptions& options = {});

    /// Runs the marker parser over the whole stream, decoding each scan. A stream that ends or stops
    /// early is not an error; an error means the photo cannot be decoded safely (or a fatal
    /// condition met the FailPhoto policy), and the planes must not be used.
    base::Status ParseMarkers();
    /// After a failed ParseMarkers: the fatal corruption that failed it, or empty.
    const std::string& FatalCorruption() const { return fatalReason_; }
    /// What the scans decoded through, in the words the player shows ("Going Out value=...").
    const std::vector<std::string>& Notices() const { return notices_; }

    int Width() const { return width_; }
    int Height() const { return height_; }
    int ComponentCount() const { return static_cast<int>(components_.size()); }
    const ComponentInfo& Component(int index) const { return components_[static_cast<std::size_t>(index)]; }
    bool UsesFastIdct() const { return useMmx_; }
    int RestartInterval() const { return restartInterval_; }
    const std::array<std::uint16_t, 64>& QuantTable(int index) const
    {
        return quantTables_[static_cast<std::size_t>(index)];
    }
    const HuffmanLookup& DcTable(int index) const { return dcTables_[static_cast<std::size_t>(index)]; }
    const HuffmanLookup& AcTable(int index) const { return acTables_[static_cast<std::size_t>(index)]; }

    /// Bit-source operations: `GetBits(n)` returns the next n bits and consumes them; shift counts are
    /// taken modulo 32 as the x86 shifts do (so n = 0 returns the whole register, unconsumed).
    std::uint32_t GetBits(int n);
    void DropBits(int n);
    /// Skips n bytes, counting the four bytes already in the register as skipped; byte-aligned only.
    void SkipBytes(int n);
    void AlignToByte();
    void ReloadRegister();

private:
    PhotoDecoder() = default;

    std::uint8_t TakeByte();
    void Refill();
    void LoadChunk();
    std::uint32_t Get16() { return GetBits(16); }

    base::Status ReadFrameHeader();
    base::Status ReadQuantTables();
    base::Status ReadHuffmanTables();
    base::Status ReadScanHeader();
    base::Status SkipSegment();
    base::Status DecodeScan();
    /// True when no two blocks of the current scan write the same samples, so stores may leave decode order.
    bool ScanBlocksAreDisjoint() const;
    /// Decodes one block through the register, starting at coefficient `k` (-1: the DC difference first).
    base::Status DecodeBlock(ComponentInfo& component, std::int16_t* block, int k);
    std::int32_t ReadValue(int size);

    // The scan's fast bit reader: a 64-bit register fed straight from the photo's bytes, several at a
    // time, taking exactly the byte sequence the 32-bit register takes (same stuffing rule, same chunk
    // boundaries, zeros past the end). It only ever runs ahead of the 32-bit register, so the exact
    // register state can be rebuilt from it at any symbol boundary (LeaveFastReader).
    struct FastReader
    {
        std::uint64_t bits = 0;    // The next unread bit is bit 63; zeros below the valid ones.
        int count = 0;             // Valid bits.
        std::uint64_t pos = 0;     // The next byte's offset in the photo; past the end: zero bytes.
        std::uint64_t start = 0;   // pos when the reader took over; never stepped back past.
        std::uint64_t bulkEnd = 0; // Whole words may be read below this (the chunk's or the data's end).
    };
    static constexpr int kFastBits = 11; // The bits the fast tables are indexed by.
    using FastTable = std::array<std::uint32_t, std::size_t{1} << kFastBits>;
    static void BuildFastTable(const HuffmanLookup& lookup, FastTable& table);
    using CoefficientTable = std::array<std::uint64_t, std::size_t{1} << kFastBits>;
    /// For AC codes whose value bits also fit in the first bits: the whole coefficient at once, and
    /// the one after it too where both fit.
    static void BuildCoefficientTable(const FastTable& ac, CoefficientTable& table);
    /// For DC codes whose value bits also fit in the first bits: the whole difference at once.
    static void BuildDifferenceTable(const FastTable& dc, FastTable& table);
    bool EnterFastReader(FastReader& reader) const;
    void LeaveFastReader(FastReader& reader);
    void FastRefill(FastReader& reader) const;
    std::uint32_t FastTakeByte(FastReader& reader) const;
    /// Decodes a block through the fast reader. Returns the coefficient index (-1: DC) at which the
    /// block must go on through the 32-bit register because of a rare case, or, when it is done, -2
    /// (-3 when no coefficient after the first was decoded).
    int DecodeBlockFast(FastReader& reader, ComponentInfo& component, std::int16_t* block);

    // The bit register; the next unread bit is bit 31.
    std::uint32_t bits_ = 0;
    int bitCount_ = 0;
    int entropyMode_ = 0;

    std::unique_ptr<std::uint8_t[]> data_; // The private copy of the photo.
    std::uint32_t dataPos_ = 0;
    std::uint32_t dataSize_ = 0;
    std::unique_ptr<std::uint8_t[]> chunk_;
    std::uint32_t chunkPos_ = 0;
    std::uint32_t chunkFill_ = 0;
    std::uint32_t chunkCapacity_ = 0;
    int chunkCount_ = 0;
    bool sourceExhausted_ = false; // Only zero bytes are left.

    std::vector<ComponentInfo> components_;
    int mcusAcross_ = 0, mcusDown_ = 0;
    int width_ = 0, height_ = 0;
    int precision_ = 0;
    int tableBits_ = 8;
    std::array<std::array<std::uint16_t, 64>, 4> quantTables_{};
    std::array<HuffmanLookup, 2> dcTables_;
    std::array<HuffmanLookup, 2> acTables_;
    HuffmanLookup* selectedTable_ = nullptr;
    std::array<FastTable, 2> dcFast_{};
    std::array<FastTable, 2> acFast_{};
    std::array<CoefficientTable, 2> acCoefficients_{};
    std::array<FastTable, 2> dcDifferences_{};
    int restartEnabled_ = 0;
    int restartInterval_ = 0;
    int rstField_ = 0;
    int scanCount_ = 0;
    std::array<ComponentInfo*, 4> scanComponents_{};
    int inImage_ = 0;
    bool useMmx_ = false;
    bool useFastReader_ = true;
    bool pairBlocks_ = true;
    std::size_t maxPlaneBytes_ = kMaxPlaneBytes;
    bool failed_ = false;     // A fatal corruption was met: the photo fails.
    std::string fatalReason_; // What it was.
    std::vector<std::string> notices_;
};

// The bit source runs once per symbol: defined here so that the block decoder inlines it.

inline std::uint8_t PhotoDecoder::TakeByte()
{
    // A skip may land past the fill of the last, partial chunk: nothing is there but the end.
    if (chunkPos_ >= chunkFill_)
        LoadChunk();
    const std::uint8_t b = chunk_[chunkPos_];
    // Compatibility: a stuffed 0xFF 0x00 pair delivers one 0xFF only when both bytes are in the same
    // chunk; a pair split by a chunk boundary delivers both bytes, so photos decode as they always did.
    if (entropyMode_ != 0 && b == 0xFF && chunkPos_ + 1 < chunkFill_ && chunk_[chunkPos_ + 1] == 0x00)
        ++chunkPos_;
    ++chunkPos_;
    return b;
}

inline void PhotoDecoder::Refill()
{
    // Shift counts are taken modulo 32, as the x86 shifts do; bitCount may have gone far below zero
    // after an oversized read.
    while (bitCount_ <= 24) {
        const std::uint32_t b = TakeByte();
        bits_ |= b << (static_cast<unsigned>(24 - bitCount_) & 31u);
        bitCount_ += 8;
    }
}

inline std::uint32_t PhotoDecoder::GetBits(int n)
{
    const std::uint32_t result = bits_ >> (static_cast<unsigned>(32 - n) & 31u);
    bits_ <<= static_cast<unsigned>(n) & 31u;
    bitCount_ -= n;
    Refill();
    return result;
}

inline void PhotoDecoder::DropBits(int n)
{
    bits_ <<= static_cast<unsigned>(n) & 31u;
    bitCount_ -= n;
    Refill();
}

} // namespace lumenar::codec
