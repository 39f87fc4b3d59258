#include "codec/PhotoDecoder.h"

#include "codec/Idct.h"
#include "platform/Cpu.h"
#include "platform/Memory.h"

#include "base/StrCat.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace lumenar::codec {

using base::Error;
using base::ErrorCode;
using base::Status;
using base::StrCat;

namespace {

// Zigzag index k -> natural (row-major) position in the 8x8 block.
constexpr std::uint8_t kZigzag[64] = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  //
    12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28, //
    35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51, //
    58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63, //
};

// The number of halvings until the value is no longer positive, minus one: 1 -> 0, 2 -> 1, 3 -> 1, 4 -> 2.
int HalvingLog2(int value)
{
    int count = 0;
    while (value > 0) {
        value >>= 1;
        ++count;
    }
    return count - 1;
}

Error Damaged(std::string message)
{
    return Error{ErrorCode::BadData, std::move(message)};
}

} // namespace

base::Result<std::unique_ptr<PhotoDecoder>> PhotoDecoder::Create(std::span<const std::uint8_t> bytes,
                                                                 const DecodeOptions& options)
{
    if (bytes.size() > 0xFFFFFFF0u)
        return Error{ErrorCode::TooLarge, StrCat("photo of ", bytes.size(), " bytes is beyond 4 GiB")};
    if (options.chunkCapacity < 4)
        return Error{ErrorCode::InvalidInput,
                     StrCat("chunk capacity ", options.chunkCapacity, " is below 4 bytes")};
    std::unique_ptr<PhotoDecoder> decoder(new (std::nothrow) PhotoDecoder());
    if (!decoder)
        return Error{ErrorCode::TooLarge, "no memory for a photo decoder"};
    decoder->data_ = platform::TryAllocateArray<std::uint8_t>(bytes.size());
    decoder->chunk_ = platform::TryAllocateArray<std::uint8_t>(options.chunkCapacity);
    if (!decoder->data_ || !decoder->chunk_)
        return Error{ErrorCode::TooLarge, StrCat("no memory to hold a photo of ", bytes.size(), " bytes")};
    if (!bytes.empty())
        std::memcpy(decoder->data_.get(), bytes.data(), bytes.size());
    decoder->dataSize_ = static_cast<std::uint32_t>(bytes.size());
    decoder->chunkCapacity_ = options.chunkCapacity;
    decoder->maxPlaneBytes_ = options.maxPlaneBytes;
    decoder->useFastReader_ = options.bitReader == BitReader::Fast;
    decoder->pairBlocks_ = options.pairBlocks;
    switch (options.idct) {
    case IdctPath::Fast:
        decoder->useMmx_ = true;
        break;
    case IdctPath::Portable:
        decoder->useMmx_ = false;
        break;
    case IdctPath::Auto:
        decoder->useMmx_ = platform::Simd().mmx && !platform::Simd().portableIdct;
        break;
    }
    decoder->Refill();
    return decoder;
}

// ---------------------------------------------------------------------------------------------------------
// Bit source.

void PhotoDecoder::LoadChunk()
{
    if (dataSize_ > dataPos_) {
        const std::uint32_t count = std::min(chunkCapacity_, dataSize_ - dataPos_);
        std::memcpy(chunk_.get(), data_.get() + dataPos_, count);
        chunkFill_ = count;
        dataPos_ += count;
    } else {
        // Past the end the source delivers zero bytes for ever.
        std::memset(chunk_.get(), 0, 4);
        chunkFill_ = 4;
        sourceExhausted_ = true;
    }
    ++chunkCount_;
    chunkPos_ = 0;
}

void PhotoDecoder::AlignToByte()
{
    if ((bitCount_ & 7) != 0)
        DropBits(bitCount_ & 7);
}

void PhotoDecoder::ReloadRegister()
{
    bits_ = 0;
    bitCount_ = 0;
    Refill();
}

void PhotoDecoder::SkipBytes(int n)
{
    if (n < 4) {
        DropBits(8 * n);
        return;
    }
    std::uint32_t newPos = chunkPos_ + static_cast<std::uint32_t>(n) - 4;
    while (newPos > chunkCapacity_) {
        LoadChunk();
        newPos -= chunkCapacity_;
    }
    chunkPos_ = newPos;
    ReloadRegister();
}

// ---------------------------------------------------------------------------------------------------------
// Marker parser.

Status PhotoDecoder::ParseMarkers()
{
    restartEnabled_ = 0;
    for (;;) {
        if (GetBits(8) != 0xFF)
            return {};
        const std::uint32_t code = GetBits(8);
        switch (code) {
        case 0xD8:
            inImage_ = 1;
            break;
        case 0xD9:
            inImage_ = 0;
            return {};
        case 0xC0:
            LUM_TRY(ReadFrameHeader());
            break;
        case 0xC4:
            LUM_TRY(ReadHuffmanTables());
            break;
        case 0xDB:
            LUM_TRY(ReadQuantTables());
            break;
        case 0xDA:
            entropyMode_ = 1;
            LUM_TRY(ReadScanHeader());
            LUM_TRY(DecodeScan());
            AlignToByte();
            break;
        case 0xDD: {
            const int lr = static_cast<int>(Get16());
            restartInterval_ = static_cast<int>(Get16());
            restartEnabled_ = 1;
            if (lr > 4)
                SkipBytes(lr - 4);
            break;
        }
        case 0xD0:
        case 0xD1:
        case 0xD2:
        case 0xD3:
        case 0xD4:
        case 0xD5:
        case 0xD6:
        case 0xD7: {
            // Compatibility: a stray restart marker takes a four-byte head and then a whole further
            // segment with it; photos with one decode as they always did.
            const int length = static_cast<int>(Get16());
            rstField_ = static_cast<int>(Get16());
            if (length > 4)
                SkipBytes(length - 4);
            LUM_TRY(SkipSegment());
            break;
        }
        default:
            // Compatibility: a fill byte 0xFF is taken as a segment start whose length follows, and
            // frames other than baseline are skipped, so such photos decode to nothing.
            LUM_TRY(SkipSegment());
            break;
        }
    }
}

Status PhotoDecoder::SkipSegment()
{
    const int length = static_cast<int>(Get16());
    if (length < 2)
        return Damaged(StrCat("segment length ", length, " is shorter than its own length field"));
    SkipBytes(length - 2);
    return {};
}

Status PhotoDecoder::ReadFrameHeader()
{
    Get16(); // The length is implied by Nf.
    precision_ = static_cast<int>(GetBits(8));
    height_ = static_cast<int>(Get16());
    width_ = static_cast<int>(Get16());
    if (std::int64_t{width_} * height_ > kMaxPhotoPixels)
        return Error{ErrorCode::TooLarge, StrCat("photo of ", width_, "x", height_, " pixels is larger than ",
                                                 kMaxPhotoPixels >> 20, " megapixels")};
    const int count = static_cast<int>(GetBits(8));
    // A second frame header replaces the first one's components.
    components_.clear();
    components_.resize(static_cast<std::size_t>(count));
    int hMax = 0, vMax = 0;
    for (ComponentInfo& c : components_) {
        c.id = static_cast<int>(GetBits(8));
        c.h = static_cast<int>(GetBits(4));
        c.v = static_cast<int>(GetBits(4));
        c.quantTable = static_cast<int>(GetBits(8));
        hMax = std::max(hMax, c.h);
        vMax = std::max(vMax, c.v);
    }
    if (hMax == 0 || vMax == 0) {
        components_.clear();
        return Damaged(StrCat("frame of ", count, " components has a zero sampling factor"));
    }
    mcusAcross_ = (((width_ + hMax - 1) / hMax) + 7) >> 3;
    mcusDown_ = (((height_ + vMax - 1) / vMax) + 7) >> 3;
    for (std::size_t i = 0; i < components_.size(); ++i) {
        ComponentInfo& c = components_[i];
        c.blocksPerMcu = c.h * c.v;
        c.log2h = HalvingLog2(c.h);
        c.log2v = HalvingLog2(c.v);
        c.planeStride = static_cast<std::size_t>(mcusAcross_) << (c.log2h + 3);
        c.planeRows = static_cast<std::size_t>(mcusDown_) << (c.log2v + 3);
        const std::size_t size = c.planeStride * c.planeRows;
        if (size > maxPlaneBytes_) {
            components_.clear();
            return Error{ErrorCode::TooLarge,
                         StrCat("plane of component ", i, " (", width_, "x", height_, " frame) needs ", size,
                                " bytes, more than ", maxPlaneBytes_)};
        }
        c.plane = platform::TryAllocateArray<std::uint8_t>(size);
        if (!c.plane) {
            components_.clear();
            return Error{ErrorCode::TooLarge, StrCat("no memory for a plane of ", size, " bytes")};
        }
    }
    return {};
}

Status PhotoDecoder::ReadQuantTables()
{
    int remaining = static_cast<int>(Get16()) - 2;
    while (remaining > 0) {
        const int pq = static_cast<int>(GetBits(4));
        const int tq = static_cast<int>(GetBits(4));
        // Compatibility: another precision keeps the last one (8 bits before any valid one) and does
        // not count down the segment.
        if (pq == 0) {
            tableBits_ = 8;
            remaining -= 65;
        } else if (pq == 1) {
            tableBits_ = 16;
            remaining -= 129;
        }
        if (tq > 3)
            return Damaged(StrCat("quantisation table ", tq, " is defined (only 0-3 exist)"));
        for (std::uint16_t& entry : quantTables_[static_cast<std::size_t>(tq)])
            entry = static_cast<std::uint16_t>(GetBits(tableBits_));
    }
    return {};
}

Status PhotoDecoder::ReadHuffmanTables()
{
    if (selectedTable_ == nullptr)
        selectedTable_ = &dcTables_[0];
    int remaining = static_cast<int>(Get16()) - 2;
    while (remaining > 0) {
        const int tc = static_cast<int>(GetBits(4));
        const int th = static_cast<int>(GetBits(4));
        if (tc == 0 || tc == 1) {
            if (th > 1)
                return Damaged(StrCat("huffman table ", th, " is defined (only 0-1 exist)"));
            selectedTable_ =
                tc == 0 ? &dcTables_[static_cast<std::size_t>(th)] : &acTables_[static_cast<std::size_t>(th)];
        }
        int counts[17] = {};
        int total = 0;
        for (int length = 1; length <= 16; ++length) {
            counts[length] = static_cast<int>(GetBits(8));
            total += counts[length];
        }
        remaining -= 17 + total;

        HuffmanLookup& table = *selectedTable_;
        // The rebuilt first level no longer refers to the old second-level tables.
        table.subTables.clear();
        std::size_t pos = 0;
        for (int length = 1; length <= 8; ++length) {
            const std::size_t span = std::size_t{1} << (8 - length);
            for (int i = 0; i < counts[length]; ++i) {
                const std::uint32_t symbol = GetBits(8);
                if (pos + span > 256)
                    return Damaged(StrCat("huffman codes of ", length, " bits overflow the code space"));
                std::fill_n(table.entries.begin() + static_cast<std::ptrdiff_t>(pos), span,
                            (static_cast<std::uint32_t>(length) << 16) | symbol);
                pos += span;
            }
        }
        bool hasLong = false;
        for (int length = 9; length <= 16; ++length)
            hasLong = hasLong || counts[length] != 0;
        if (hasLong) {
            std::array<std::uint32_t, 256>* sub = nullptr;
            std::size_t subPos = 0;
            auto startSubTable = [&]() -> Status {
                if (pos >= 256)
                    return Damaged("huffman codes longer than 8 bits overflow the code space");
                auto fresh = platform::TryAllocate<std::array<std::uint32_t, 256>>();
                if (!fresh) {
                    failed_ = true;
                    fatalReason_ = "no memory for a second-level huffman table";
                    return Error{ErrorCode::TooLarge, fatalReason_};
                }
                sub = fresh.get();
                table.entries[pos++] =
                    HuffmanLookup::kReferenceFlag | static_cast<std::uint32_t>(table.subTables.size());
                table.subTables.push_back(std::move(fresh));
                subPos = 0;
                return {};
            };
            LUM_TRY(startSubTable());
            for (int length = 9; length <= 16; ++length) {
                const int repeats = 1 << (16 - length);
                for (int i = 0; i < counts[length]; ++i) {
                    const std::uint32_t entry = (static_cast<std::uint32_t>(length) << 16) | GetBits(8);
                    for (int r = 0; r < repeats; ++r) {
                        (*sub)[subPos++] = entry;
                        if (subPos == 256)
                            LUM_TRY(startSubTable());
                    }
                }
            }
            std::fill(sub->begin() + static_cast<std::ptrdiff_t>(subPos), sub->end(), 0u);
        }
        std::fill(table.entries.begin() + static_cast<std::ptrdiff_t>(pos), table.entries.end(), 0u);
    }
    return {};
}

Status PhotoDecoder::ReadScanHeader()
{
    Get16(); // The length is implied by Ns.
    scanCount_ = static_cast<int>(GetBits(8));
    if (components_.empty())
        return Damaged("scan before any baseline frame header (progressive, lossless or no frame)");
    if (scanCount_ == 0 || scanCount_ > 4)
        return Damaged(StrCat("scan of ", scanCount_, " components (1-4 are possible)"));
    for (int i = 0; i < scanCount_; ++i) {
        const int selector = static_cast<int>(GetBits(8));
        const auto found = std::find_if(components_.begin(), components_.end(),
                                        [&](const ComponentInfo& c) { return c.id == selector; });
        if (found == components_.end())
            return Damaged(StrCat("scan names component ", selector, ", which the frame does not have"));
        scanComponents_[static_cast<std::size_t>(i)] = &*found;
        found->dcTable = static_cast<int>(GetBits(4));
        found->acTable = static_cast<int>(GetBits(4));
    }
    ComponentInfo& last = *scanComponents_[static_cast<std::size_t>(scanCount_ - 1)];
    last.ss = static_cast<int>(GetBits(8));
    last.se = static_cast<int>(GetBits(8));
    last.ah = static_cast<int>(GetBits(4));
    last.al = static_cast<int>(GetBits(4));
    for (int i = 0; i < scanCount_; ++i) {
        const ComponentInfo& c = *scanComponents_[static_cast<std::size_t>(i)];
        if (c.quantTable > 3)
            return Damaged(
                StrCat("component ", c.id, " uses quantisation table ", c.quantTable, " (only 0-3 exist)"));
        if (c.dcTable > 1 || c.acTable > 1)
            return Damaged(StrCat("component ", c.id, " uses huffman tables ", c.dcTable, "/", c.acTable,
                                  " (only 0-1 exist)"));
    }
    return {};
}

// ---------------------------------------------------------------------------------------------------------
// Scan and block decoding.

std::int32_t PhotoDecoder::ReadValue(int size)
{
    // EXTEND: a value whose first bit is 0 is negative. Shift counts modulo 32 make a size of 0 read
    // the whole register without consuming it, with an all-ones mask.
    const std::uint32_t sign = bits_ >> 31;
    std::uint32_t v = GetBits(size);
    if (sign == 0)
        v = 0u - ((~v) & (0xFFFFFFFFu >> (static_cast<unsigned>(32 - size) & 31u)));
    return static_cast<std::int32_t>(v);
}

Status PhotoDecoder::DecodeBlock(ComponentInfo& component, std::int16_t* block, int k)
{
    const auto& quant = quantTables_[static_cast<std::size_t>(component.quantTable)];
    const HuffmanLookup& dc = dcTables_[static_cast<std::size_t>(component.dcTable)];
    const HuffmanLookup& ac = acTables_[static_cast<std::size_t>(component.acTable)];

    std::uint32_t e = 0;
    if (k < 0) {
        e = dc.Find(bits_);
        DropBits(static_cast<int>(e >> 16));
        const int s = static_cast<int>(e & 0xFFFF);
        if (s != 0) {
            const std::int32_t diff = ReadValue(s);
            const auto p = static_cast<std::int16_t>(static_cast<std::uint16_t>(
                static_cast<std::uint32_t>(component.dcPredictor) + static_cast<std::uint32_t>(diff)));
            component.dcPredictor = p;
        }
        // All products are 16-bit: the high half is discarded.
        block[0] = static_cast<std::int16_t>(
            static_cast<std::uint16_t>(quant[0] * static_cast<std::uint32_t>(component.dcPredictor)));
        k = 0;
    }

    for (;;) {
        e = ac.Find(bits_);
        DropBits(static_cast<int>(e >> 16));
        const std::uint32_t rs = e & 0xFF;
        if (rs == 0)
            return {};
        if (rs == 0xF0) {
            if (k > 63) {
                // Past the end of the block only the end-of-block code is harmless; a run of zero
                // runs fed by the endless zero bytes past the data would never end.
                if (sourceExhausted_ && bits_ == 0)
                    return Damaged("a run of zero runs past the end of a block never ends");
                continue;
            }
            k += 16;
            continue;
        }
        k += static_cast<int>(rs >> 4) + 1;
        const std::int32_t v = ReadValue(static_cast<int>(e & 0x0F));
        if (k > 63) {
            failed_ = true;
            fatalReason_ = StrCat("coefficient index ", k, " is past 63");
            return Damaged(fatalReason_);
        }
        block[kZigzag[k]] = static_cast<std::int16_t>(
            static_cast<std::uint16_t>(quant[static_cast<std::size_t>(k)] * static_cast<std::uint32_t>(v)));
        if (k == 63)
            return {};
    }
}

// ---------------------------------------------------------------------------------------------------------
// The fast bit reader.

namespace {

constexpr std::uint32_t kFastValid = 0x80000000u;
// Coefficient and difference entries keep the bits they take in bits 0-5, so that the register
// shifts by the entry itself (x86 masks a 64-bit shift count to six bits): the table load and
// the shift are then the whole dependency chain from one code to the next.
constexpr std::uint32_t kTakenMask = 0x3F;
// A coefficient entry's zigzag step: to its last coefficient in bits 8-14, to its first in bits 16-20.
constexpr int kStepShift = 8;
constexpr int kFirstStepShift = 16;
// A step of 64 can never pass the index check: the entry is not a usable coefficient (the end of the
// block, or a code the two-level tables must read).
constexpr std::uint64_t kNoStep = 64u << kStepShift;
constexpr std::uint64_t kFastEndOfBlock = 0x8000u;
constexpr std::uint32_t kDifferenceValid = 0x100u;
// DecodeBlockFast's results besides a coefficient index to go on from.
constexpr int kBlockDone = -2;
constexpr int kBlockFlat = -3; // Done, and only the first coefficient can be non-zero.

inline bool HasByteFF(std::uint64_t word)
{
    const std::uint64_t x = ~word;
    return ((x - 0x0101010101010101u) & ~x & 0x8080808080808080u) != 0;
}

inline std::uint64_t LoadBigEndian64(const std::uint8_t* p)
{
    std::uint64_t word = 0;
    std::memcpy(&word, p, 8);
    if constexpr (std::endian::native == std::endian::little)
        word = __builtin_bswap64(word);
    return word;
}

// EXTEND for sizes 1-16 on the top bits of the fast register.
inline std::int32_t FastValue(std::uint64_t& bits, int& count, int size)
{
    const auto sign = static_cast<std::uint32_t>(bits >> 63);
    auto v = static_cast<std::uint32_t>(bits >> (64 - size));
    bits <<= size;
    count -= size;
    if (sign == 0)
        v = 0u - ((~v) & (0xFFFFFFFFu >> (32 - size)));
    return static_cast<std::int32_t>(v);
}

} // namespace

void PhotoDecoder::BuildFastTable(const HuffmanLookup& lookup, FastTable& table)
{
    // An entry is usable when the first kFastBits bits decide the code; otherwise the reader asks
    // the two-level table.
    for (std::size_t i = 0; i < table.size(); ++i) {
        const std::uint32_t first = lookup.entries[i >> (kFastBits - 8)];
        if ((first & HuffmanLookup::kReferenceMask) == 0) {
            table[i] = first | kFastValid;
            continue;
        }
        table[i] = 0;
        const std::size_t index = first & 0xFF;
        if (index >= lookup.subTables.size())
            continue;
        const auto& sub = *lookup.subTables[index];
        const std::size_t span = std::size_t{1} << (16 - kFastBits);
        const std::size_t base = (i & ((std::size_t{1} << (kFastBits - 8)) - 1)) * span;
        if (std::all_of(sub.begin() + static_cast<std::ptrdiff_t>(base),
                        sub.begin() + static_cast<std::ptrdiff_t>(base + span),
                        [&](std::uint32_t e) { return e == sub[base]; }))
            table[i] = sub[base] | kFastValid;
    }
}

// A coefficient entry: the bits its codes and values take in bits 0-5, the zigzag steps (run + 1) to
// its last and first coefficient, and the two values (EXTEND applied) in bits 32-47 and 48-63. An entry
// holds two coefficients where the second code and its value are also decided by the first bits, else
// one, given twice. The end-of-block code has an entry of its own (kFastEndOfBlock with its length), so
// that most blocks end without a second look-up.
void PhotoDecoder::BuildCoefficientTable(const FastTable& ac, CoefficientTable& table)
{
    struct Coefficient
    {
        int taken = 0; // 0: not a coefficient decided by the bits at hand.
        std::uint32_t step = 0;
        std::uint32_t value = 0;
    };
    // The coefficient whose code starts the `known` top bits of a fast-table index.
    const auto decode = [&](std::size_t index, int known) {
        Coefficient c;
        const std::uint32_t e = ac[index];
        const int length = static_cast<int>((e >> 16) & 0xFF);
        const std::uint32_t rs = e & 0xFF;
        const int size = static_cast<int>(rs & 0x0F);
        if ((e & kFastValid) == 0 || size == 0 || length + size > known)
            return c;
        const std::uint32_t mask = (1u << size) - 1;
        const std::uint32_t raw = (static_cast<std::uint32_t>(index) >> (kFastBits - length - size)) & mask;
        c.taken = length + size;
        c.step = (rs >> 4) + 1;
        c.value = ((raw >> (size - 1)) != 0 ? raw : raw - mask) & 0xFFFF;
        return c;
    };
    for (std::size_t i = 0; i < table.size(); ++i) {
        table[i] = kNoStep;
        const std::uint32_t e = ac[i];
        if ((e & kFastValid) != 0 && (e & 0xFF) == 0) {
            table[i] = kNoStep | kFastEndOfBlock | ((e >> 16) & 0xFF);
            continue;
        }
        const Coefficient first = decode(i, kFastBits);
        if (first.taken == 0)
            continue;
        Coefficient second = decode((i << first.taken) & (table.size() - 1), kFastBits - first.taken);
        if (second.taken == 0)
            second = {0, 0, first.value};
        table[i] = std::uint64_t{second.value} << 48 | std::uint64_t{first.value} << 32 |
                   std::uint64_t{first.step} << kFirstStepShift |
                   std::uint64_t{first.step + second.step} << kStepShift |
                   static_cast<std::uint64_t>(first.taken + second.taken);
    }
}

// A DC entry: the bits the code and its value take in bits 0-5, kDifferenceValid, the difference
// (EXTEND applied; 0 for size 0) in the high 16 bits.
void PhotoDecoder::BuildDifferenceTable(const FastTable& dc, FastTable& table)
{
    for (std::size_t i = 0; i < table.size(); ++i) {
        table[i] = 0;
        const std::uint32_t e = dc[i];
        const int length = static_cast<int>((e >> 16) & 0xFF);
        const int size = static_cast<int>(e & 0xFFFF);
        if ((e & kFastValid) == 0 || size > 16 || length + size > kFastBits)
            continue;
        std::uint32_t value = 0;
        if (size != 0) {
            const std::uint32_t mask = (1u << size) - 1;
            const std::uint32_t raw = (static_cast<std::uint32_t>(i) >> (kFastBits - length - size)) & mask;
            value = (raw >> (size - 1)) != 0 ? raw : raw - mask;
        }
        table[i] = value << 16 | kDifferenceValid | static_cast<std::uint32_t>(length + size);
    }
}

bool PhotoDecoder::EnterFastReader(FastReader& reader) const
{
    // After an oversized read the register may hold stray bits below the valid ones: only the
    // 32-bit register knows what to do with them.
    if (bitCount_ < 25 || bitCount_ > 32)
        return false;
    if (bitCount_ < 32 && (bits_ << bitCount_) != 0)
        return false;
    reader.bits = static_cast<std::uint64_t>(bits_) << 32;
    reader.count = bitCount_;
    if (sourceExhausted_)
        reader.pos = std::uint64_t{dataSize_} + 1;
    else if (chunkPos_ >= chunkFill_)
        reader.pos = dataPos_; // The next byte starts the next chunk.
    else
        reader.pos = std::uint64_t{dataPos_} - chunkFill_ + chunkPos_;
    reader.start = reader.pos;
    reader.bulkEnd = 0;
    return true;
}

std::uint32_t PhotoDecoder::FastTakeByte(FastReader& reader) const
{
    const std::uint64_t pos = reader.pos;
    if (pos >= dataSize_) {
        ++reader.pos;
        return 0;
    }
    const std::uint8_t b = data_[pos];
    // The same stuffing rule as TakeByte: the pair counts only inside one chunk.
    if (b == 0xFF && pos + 1 < dataSize_ && (pos + 1) % chunkCapacity_ != 0 && data_[pos + 1] == 0x00)
        reader.pos += 2;
    else
        reader.pos += 1;
    return b;
}

void PhotoDecoder::FastRefill(FastReader& reader) const
{
    while (reader.count <= 56) {
        if (reader.pos + 8 <= reader.bulkEnd) {
            const std::uint64_t word = LoadBigEndian64(data_.get() + reader.pos);
            if (!HasByteFF(word)) {
                const int n = (64 - reader.count) >> 3;
                reader.bits |= (word >> (64 - 8 * n)) << (64 - 8 * n - reader.count);
                reader.pos += static_cast<std::uint64_t>(n);
                reader.count += 8 * n;
                return;
            }
        } else if (reader.pos >= reader.bulkEnd && reader.pos < dataSize_) {
            reader.bulkEnd = std::min<std::uint64_t>(dataSize_, (reader.pos / chunkCapacity_ + 1) *
                                                                    std::uint64_t{chunkCapacity_});
            continue;
        }
        reader.bits |= static_cast<std::uint64_t>(FastTakeByte(reader)) << (56 - reader.count);
        reader.count += 8;
    }
}

void PhotoDecoder::LeaveFastReader(FastReader& reader)
{
    if (reader.count < 25)
        FastRefill(reader);
    // The 32-bit register holds 25-32 bits; the bytes the fast reader took beyond them are given back.
    const int extra = (reader.count - 25) >> 3;
    const int count = reader.count - 8 * extra;
    const auto high = static_cast<std::uint32_t>(reader.bits >> 32);
    bits_ = count == 32 ? high : high & ~(0xFFFFFFFFu >> count);
    bitCount_ = count;
    std::uint64_t pos = reader.pos;
    for (int i = 0; i < extra; ++i) {
        // A byte taken after `start` began either one byte back or, for a stuffed pair, two (a 0xFF can
        // only be a byte's start, and one inside a chunk always took its 0x00 along).
        if (pos <= dataSize_ && pos >= reader.start + 2 && data_[pos - 2] == 0xFF && data_[pos - 1] == 0x00 &&
            (pos - 1) % chunkCapacity_ != 0)
            pos -= 2;
        else
            pos -= 1;
    }
    if (pos == reader.start)
        return; // The chunk state is still the one the reader started from.
    if (pos > dataSize_) {
        if (!sourceExhausted_) {
            dataPos_ = dataSize_;
            LoadChunk();
        }
        chunkPos_ = chunkFill_;
        return;
    }
    const std::uint64_t last = pos - 1;
    const auto chunkStart = static_cast<std::uint32_t>(last - last % chunkCapacity_);
    if (sourceExhausted_ || dataPos_ - chunkFill_ != chunkStart) {
        dataPos_ = chunkStart;
        LoadChunk();
    }
    chunkPos_ = static_cast<std::uint32_t>(pos - chunkStart);
}

int PhotoDecoder::DecodeBlockFast(FastReader& reader, ComponentInfo& component, std::int16_t* block)
{
    const auto& quant = quantTables_[static_cast<std::size_t>(component.quantTable)];
    const FastTable& dcFast = dcFast_[static_cast<std::size_t>(component.dcTable)];
    const FastTable& acFast = acFast_[static_cast<std::size_t>(component.acTable)];
    std::uint64_t bits = reader.bits;
    int count = reader.count;
    const std::uint8_t* data = data_.get();
    // Tops the register up to at least 57 bits: whole words where no 0xFF can be among them.
    auto refill = [&] {
        if (reader.pos + 8 <= reader.bulkEnd) {
            const std::uint64_t word = LoadBigEndian64(data + reader.pos);
            if (!HasByteFF(word)) {
                const int n = (64 - count) >> 3;
                bits |= (word >> (64 - 8 * n)) << (64 - 8 * n - count);
                reader.pos += static_cast<std::uint64_t>(n);
                count += 8 * n;
                return;
            }
        }
        reader.bits = bits;
        reader.count = count;
        FastRefill(reader);
        bits = reader.bits;
        count = reader.count;
    };
    auto lookup = [&](const FastTable& fast, const HuffmanLookup& slow) {
        if (count < 32)
            refill();
        const std::uint32_t e = fast[bits >> (64 - kFastBits)];
        return (e & kFastValid) != 0 ? e : slow.Find(static_cast<std::uint32_t>(bits >> 32));
    };
    auto save = [&] {
        reader.bits = bits;
        reader.count = count;
    };

    std::int32_t diff = 0;
    if (count < 32)
        refill();
    const std::uint32_t d =
        dcDifferences_[static_cast<std::size_t>(component.dcTable)][bits >> (64 - kFastBits)];
    std::uint32_t e = 0;
    if ((d & kDifferenceValid) != 0) {
        bits <<= (d & kTakenMask);
        count -= static_cast<int>(d & kTakenMask);
        diff = static_cast<std::int32_t>(d) >> 16;
    } else {
        e = lookup(dcFast, dcTables_[static_cast<std::size_t>(component.dcTable)]);
        const int s = static_cast<int>(e & 0xFFFF);
        if (s > 16) {
            save();
            return -1;
        }
        const int length = static_cast<int>((e >> 16) & 0xFF);
        bits <<= length;
        count -= length;
        if (s != 0)
            diff = FastValue(bits, count, s);
    }
    // A difference of 0 leaves the (already 16-bit) predictor as it is.
    component.dcPredictor = static_cast<std::int16_t>(static_cast<std::uint16_t>(
        static_cast<std::uint32_t>(component.dcPredictor) + static_cast<std::uint32_t>(diff)));
    block[0] = static_cast<std::int16_t>(
        static_cast<std::uint16_t>(quant[0] * static_cast<std::uint32_t>(component.dcPredictor)));

    const HuffmanLookup& ac = acTables_[static_cast<std::size_t>(component.acTable)];
    const CoefficientTable& coefficients = acCoefficients_[static_cast<std::size_t>(component.acTable)];
    int k = 0;
    for (;;) {
        if (count < 32)
            refill();
        const std::uint64_t f = coefficients[bits >> (64 - kFastBits)];
        if (k + static_cast<int>(f >> kStepShift & 0x7F) <= 63) {
            // Two stores, one or two coefficients: a single one is given twice, to the same place.
            const int first = k + static_cast<int>(f >> kFirstStepShift & 0x1F);
            k += static_cast<int>(f >> kStepShift & 0x7F);
            bits <<= (f & kTakenMask);
            count -= static_cast<int>(f & kTakenMask);
            block[kZigzag[first]] = static_cast<std::int16_t>(static_cast<std::uint16_t>(
                quant[static_cast<std::size_t>(first)] * static_cast<std::uint32_t>(f >> 32)));
            block[kZigzag[k]] = static_cast<std::int16_t>(static_cast<std::uint16_t>(
                quant[static_cast<std::size_t>(k)] * static_cast<std::uint32_t>(f >> 48)));
            if (k == 63) {
                save();
                return kBlockDone;
            }
            continue;
        }
        if ((f & kFastEndOfBlock) != 0) {
            bits <<= (f & kTakenMask);
            count -= static_cast<int>(f & kTakenMask);
            save();
            return k == 0 ? kBlockFlat : kBlockDone;
        }
        e = lookup(acFast, ac);
        const int length = static_cast<int>((e >> 16) & 0xFF);
        const std::uint32_t rs = e & 0xFF;
        if (rs == 0) {
            bits <<= length;
            count -= length;
            break;
        }
        if (rs == 0xF0) {
            if (k > 63)
                break; // Rare: the 32-bit register takes it from here.
            bits <<= length;
            count -= length;
            k += 16;
            continue;
        }
        const int size = static_cast<int>(rs & 0x0F);
        const int next = k + static_cast<int>(rs >> 4) + 1;
        if (size == 0 || next > 63)
            break; // Rare: the size-0 read and the fatal index need the 32-bit register.
        bits <<= length;
        count -= length;
        const std::int32_t v = FastValue(bits, count, size);
        k = next;
        block[kZigzag[k]] = static_cast<std::int16_t>(
            static_cast<std::uint16_t>(quant[static_cast<std::size_t>(k)] * static_cast<std::uint32_t>(v)));
        if (k == 63) {
            save();
            return kBlockDone;
        }
    }
    save();
    if ((e & 0xFF) != 0)
        return k;
    return k == 0 ? kBlockFlat : kBlockDone;
}

bool PhotoDecoder::ScanBlocksAreDisjoint() const
{
    for (int i = 0; i < scanCount_; ++i) {
        const ComponentInfo* c = scanComponents_[static_cast<std::size_t>(i)];
        // A factor that is not a power of two spreads its blocks wider than the MCU step (a zero
        // factor places none).
        const auto spreads = [](int factor) {
            return factor > 0 && !std::has_single_bit(static_cast<unsigned>(factor));
        };
        if (spreads(c->h) || spreads(c->v))
            return false;
        for (int j = 0; j < i; ++j) {
            if (scanComponents_[static_cast<std::size_t>(j)] == c)
                return false;
        }
    }
    return true;
}

Status PhotoDecoder::DecodeScan()
{
    auto* idct = useMmx_ ? &FastIdct : &PortableIdct;
    auto* store = useMmx_ ? &FastStoreBlock : &PortableStoreBlock;
    const bool fusedIdct = useMmx_ && Sse2Built() && platform::Simd().sse2;
    // With AVX2 the fused transform runs on two blocks at once. Two blocks wait while the next is
    // decoded, so the pair is read back only after the decoder's narrow stores to it have retired (a
    // fresh block read whole stalls on store forwarding). Stores thus leave decode order, which is
    // harmless only where no two blocks of the scan land on the same samples; a scan that lists a
    // component twice, or a sampling factor of 3 (whose third block reaches into the next MCU), must
    // store in order, one at a time. Whatever waits is stored when the scan ends, however it ends.
    const bool pairedIdct =
        fusedIdct && Avx2Built() && platform::Simd().avx2 && pairBlocks_ && ScanBlocksAreDisjoint();
    // A block buffer is cleared before a block is decoded into it, unless the previous user left it
    // clear: the paired transform clears what it read, and a flat block only ever set its first value.
    alignas(32) std::int16_t blocks[3][64] = {};
    bool cleared[3] = {true, true, true};
    int current = 0;
    struct Waiting
    {
        int buffer = 0;
        std::uint8_t* destination = nullptr;
        std::ptrdiff_t stride = 0;
    };
    struct Queue
    {
        explicit Queue(std::int16_t (&b)[3][64]) : blocks(b) {}
        Queue(const Queue&) = delete;
        Queue& operator=(const Queue&) = delete;
        ~Queue()
        {
            for (int i = 0; i < count; ++i)
                FastIdctStoreSse2(blocks[waiting[i].buffer], waiting[i].destination, waiting[i].stride);
        }
        std::int16_t (&blocks)[3][64];
        Waiting waiting[2];
        int count = 0;
    } queue(blocks);

    for (std::size_t t = 0; t < 2; ++t) {
        BuildFastTable(dcTables_[t], dcFast_[t]);
        BuildFastTable(acTables_[t], acFast_[t]);
        BuildCoefficientTable(acFast_[t], acCoefficients_[t]);
        BuildDifferenceTable(dcFast_[t], dcDifferences_[t]);
    }
    FastReader reader;
    bool fast = false;
    int mcuCounter = 0;
    for (ComponentInfo& c : components_)
        c.dcPredictor = 0;
    for (int mcuRow = 0; mcuRow < mcusDown_; ++mcuRow) {
        for (int mcuCol = 0; mcuCol < mcusAcross_; ++mcuCol) {
            for (int i = 0; i < scanCount_; ++i) {
                ComponentInfo& c = *scanComponents_[static_cast<std::size_t>(i)];
                const std::size_t stride = c.planeStride;
                const std::size_t planeSize = stride * c.planeRows;
                for (int by = 0; by < c.v; ++by) {
                    for (int bx = 0; bx < c.h; ++bx) {
                        std::int16_t* block = blocks[current];
                        if (!cleared[current])
                            std::memset(block, 0, sizeof blocks[current]);
                        cleared[current] = false;
                        if (!fast && useFastReader_)
                            fast = EnterFastReader(reader);
                        int resume = -1;
                        if (fast) {
                            resume = DecodeBlockFast(reader, c, block);
                            if (resume >= -1) {
                                LeaveFastReader(reader);
                                fast = false;
                            }
                        }
                        if (resume >= -1)
                            LUM_TRY(DecodeBlock(c, block, resume));
                        block[0] = static_cast<std::int16_t>(static_cast<std::uint16_t>(block[0] + 1024));
                        const std::size_t row = (static_cast<std::size_t>(mcuRow) << (c.log2v + 3)) + 8u * by;
                        const std::size_t column =
                            (static_cast<std::size_t>(mcuCol) << (c.log2h + 3)) + 8u * bx;
                        const std::size_t offset = row * stride + column;
                        const bool inside = offset + 7 * stride + 8 <= planeSize;
                        if (resume == kBlockFlat && useMmx_) {
                            const std::int16_t sample = FastIdctDcOnly(block[0]);
                            if (inside) {
                                // The store's unsigned saturation of one sample, on every row.
                                const auto value = static_cast<std::uint8_t>(std::clamp<int>(sample, 0, 255));
                                for (std::size_t r = 0; r < 8; ++r)
                                    std::memset(c.plane.get() + offset + r * stride, value, 8);
                                block[0] = 0;
                                cleared[current] = true;
                                continue;
                            }
                            std::fill_n(block, 64, sample);
                        } else if (pairedIdct && inside) {
                            if (queue.count == 2) {
                                const Waiting& a = queue.waiting[0];
                                const Waiting& b = queue.waiting[1];
                                FastIdctStoreAndClearPairAvx2(blocks[a.buffer], a.destination, a.stride,
                                                              blocks[b.buffer], b.destination, b.stride);
                                cleared[a.buffer] = cleared[b.buffer] = true;
                                queue.count = 0;
                            }
                            queue.waiting[queue.count++] = {current, c.plane.get() + offset,
                                                            static_cast<std::ptrdiff_t>(stride)};
                            // The next block goes to a buffer nothing waits in.
                            do
                                current = current == 2 ? 0 : current + 1;
                            while (queue.count == 2 && current == queue.waiting[0].buffer);
                            continue;
                        } else if (fusedIdct && inside) {
                            FastIdctStoreSse2(block, c.plane.get() + offset,
                                              static_cast<std::ptrdiff_t>(stride));
                            continue;
                        } else {
                            idct(block);
                        }
                        if (inside) {
                            store(block, c.plane.get() + offset, static_cast<std::ptrdiff_t>(stride));
                        } else {
                            // Sampling factors of 3 place blocks past their MCU: rows that would land
                            // beyond the plane are dropped.
                            std::uint8_t samples[64];
                            store(block, samples, 8);
                            for (std::size_t r = 0; r < 8; ++r) {
                                if (offset + r * stride + 8 <= planeSize)
                                    std::memcpy(c.plane.get() + offset + r * stride, samples + 8 * r, 8);
                            }
                        }
                    }
                }
            }
            ++mcuCounter;
            if (mcuCounter == restartInterval_) {
                if (fast) {
                    LeaveFastReader(reader);
                    fast = false;
                }
                AlignToByte();
                const bool last = mcuRow == mcusDown_ - 1 && mcuCol == mcusAcross_ - 1;
                if (!last) {
                    const std::uint32_t value = Get16();
                    if (value < 0xFFD0 || value > 0xFFD7) {
                        char notice[64];
                        std::snprintf(notice, sizeof notice, "Going Out value=%04X rs_int=%d", value,
                                      restartInterval_);
                        notices_.emplace_back(notice);
                        return {};
                    }
                    for (ComponentInfo& c : components_)
                        c.dcPredictor = 0;
                    mcuCounter = 0;
                }
            }
        }
    }
    if (fast)
        LeaveFastReader(reader);
    return {};
}

} // namespace lumenar::codec
