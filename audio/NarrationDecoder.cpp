#include "audio/NarrationDecoder.h"

#include "audio/G7231Tables.h"
#include "base/ByteReader.h"
#include "base/StrCat.h"
#include "platform/DebugTrace.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>

namespace lumenar::audio {

namespace {

constexpr int kSubframeSamples = 60;
constexpr int kLspPrediction = 12288; // 0.375 in Q15.
constexpr int kLspMinDistance = 256;
constexpr int kLspStabilityPasses = 10;
constexpr int kMinLag = 18;
constexpr int kCngMaxGain = 5000;

// The random generator's table as it stands when the process starts.
constexpr std::array<std::uint16_t, 250> kRandomStart = {
    15301, 57764, 10921, 56345, 19316, 43154, 54727, 49252, 32360, 49582, 26124, 25833, 34404, 11030, 26232,
    13965, 16051, 63635, 55860, 5184,  15931, 39782, 16845, 11371, 38624, 10328, 9139,  1684,  48668, 59388,
    13297, 1364,  56028, 15687, 63279, 27771, 5277,  44628, 31973, 46977, 16327, 23408, 36065, 52272, 33610,
    61549, 58364, 3472,  21367, 56357, 56345, 54035, 7712,  55884, 39774, 10241, 50164, 47995, 1718,  46887,
    47892, 6010,  29575, 54972, 30458, 21966, 54449, 10387, 4492,  644,   57031, 41607, 61820, 54588, 40849,
    54052, 59875, 43128, 50370, 44691, 286,   12071, 3574,  61384, 15592, 45677, 9711,  23022, 35256, 45493,
    48913, 146,   9053,  5881,  36635, 43280, 53464, 8529,  34344, 64955, 38266, 12730, 101,   16208, 12607,
    58921, 22036, 8221,  31337, 11984, 20290, 26734, 19552, 48,    31940, 43448, 34762, 53344, 60664, 12809,
    57318, 17436, 44730, 19375, 30,    17425, 14117, 5416,  23853, 55783, 57995, 32074, 26526, 2192,  11447,
    11,    53446, 35152, 64610, 64883, 26899, 25357, 7667,  3577,  39414, 51161, 4,     58427, 57342, 58557,
    53233, 1066,  29237, 36808, 19370, 17493, 37568, 3,     61468, 38876, 17586, 64937, 21716, 56472, 58160,
    44955, 55221, 63880, 1,     32200, 62066, 22911, 24090, 10438, 40783, 36364, 14999, 2489,  43284, 9898,
    39612, 9245,  593,   34857, 41054, 30162, 65497, 53340, 27209, 45417, 37497, 4612,  58397, 52910, 56313,
    62716, 22377, 40310, 15190, 34471, 64005, 18090, 11326, 50839, 62901, 59284, 5580,  15231, 9467,  13161,
    58500, 7259,  317,   50968, 2962,  23006, 32280, 6994,  18751, 5148,  52739, 49370, 51892, 18552, 52264,
    54031, 2804,  17360, 1919,  19639, 2323,  9448,  43821, 11022, 45500, 31509, 49180, 35598, 38883, 19754,
    987,   11521, 55494, 38056, 20664, 2629,  50986, 31009, 54043, 59743};

// Wraps a wide intermediate to 32 bits, as 32-bit registers would.
std::int32_t Wrap32(std::int64_t value)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(value)));
}

// Divides by 16384 rounding half away from zero: (v + 8192) / 16384 for v >= 0, else (v - 8192) / 16384.
std::int32_t RoundQ14(std::int32_t value)
{
    const std::int64_t v = value;
    return static_cast<std::int32_t>(v >= 0 ? (v + 8192) / 16384 : (v - 8192) / 16384);
}

// Reads a frame's bits, bit 0 of byte 0 first; bits past the frame read as zero.
class FrameBits
{
public:
    explicit FrameBits(std::span<const std::uint8_t> bytes)
    {
        std::memcpy(bytes_.data(), bytes.data(), std::min<std::size_t>(bytes.size(), 24));
    }

    std::uint32_t Get(int count)
    {
        std::uint64_t window = 0;
        for (int k = 0; k < 8; ++k)
            window |= static_cast<std::uint64_t>(bytes_[(position_ >> 3) + k]) << (8 * k);
        position_ += count;
        return static_cast<std::uint32_t>((window >> ((position_ - count) & 7)) & ((1u << count) - 1));
    }

private:
    std::array<std::uint8_t, 32> bytes_{};
    int position_ = 0;
};

// Integer square root of a non-negative 128-bit value, truncated.
__int128 SquareRoot(__int128 value)
{
    auto root = static_cast<__int128>(std::sqrt(static_cast<long double>(value)));
    while (root > 0 && root * root > value)
        --root;
    while ((root + 1) * (root + 1) <= value)
        ++root;
    return root;
}

__int128 Magnitude(__int128 value)
{
    return value < 0 ? -value : value;
}

// Bytes each frame kind takes in a packet's payload.
constexpr std::size_t kKindBytes[4] = {0, 1, 4, 24};

} // namespace

// One frame as its bits give it.
struct NarrationDecoder::Frame
{
    int type = 0;
    std::array<int, 3> lspIndex{};    // By band: pairs 0-2, 3-5, 6-9.
    std::array<int, 2> openLoopLag{}; // Per half frame.
    std::array<int, 4> lag{};         // Per subframe: the open-loop lag plus the subframe's delta.
    std::array<int, 4> gainIndex{};   // Row of the adaptive gain table.
    std::array<int, 4> ampIndex{};    // Entry of the fixed gain table.
    std::array<bool, 4> smallTable{}; // The 85-row adaptive gain table applies.
    std::array<bool, 4> pulseTrain{};
    std::array<int, 4> grid{};
    std::array<std::uint32_t, 4> pulsePosition{};
    std::array<int, 4> pulseSign{};
    int sidGain = 0;
};

NarrationDecoder::NarrationDecoder() : randomWords_(kRandomStart)
{
    Reset();
}

void NarrationDecoder::Reset()
{
    std::copy(std::begin(g7231::kLspDc), std::end(g7231::kLspDc), previousLsp_.begin());
    synthesisMemory_.fill(0);
    excitation_.fill(0);
    frameBuffer_.fill(0);
    previousFrameType_ = 0;
    lastSidGain_ = 0;
    smoothedSidGain_ = 0;
}

int NarrationDecoder::Random(int n)
{
    std::uint16_t& word = randomWords_[static_cast<std::size_t>(randomIndex_)];
    word = static_cast<std::uint16_t>(
        word ^
        randomWords_[static_cast<std::size_t>(randomIndex_ < 147 ? randomIndex_ + 103 : randomIndex_ - 147)]);
    const int result =
        static_cast<int>((static_cast<std::uint32_t>(word) * static_cast<std::uint32_t>(n)) >> 16);
    randomIndex_ = randomIndex_ == 249 ? 0 : randomIndex_ + 1;
    return result;
}

void NarrationDecoder::Unpack(std::span<const std::uint8_t> bytes, int type, Frame& frame)
{
    FrameBits bits(bytes);
    frame.type = static_cast<int>(bits.Get(2));
    // The first byte of the 24 index bits belongs to the highest band.
    frame.lspIndex[2] = static_cast<int>(bits.Get(8));
    frame.lspIndex[1] = static_cast<int>(bits.Get(8));
    frame.lspIndex[0] = static_cast<int>(bits.Get(8));
    if (type == 2) {
        // The 6-bit gain index. Its decoded level would go to the first subframe's gain slot, which the
        // noise generator overwrites before use, so only the index matters.
        frame.sidGain = static_cast<int>(bits.Get(6));
        return;
    }
    frame.openLoopLag[0] = static_cast<int>(bits.Get(7)) + kMinLag;
    const int delta1 = static_cast<int>(bits.Get(2));
    frame.openLoopLag[1] = static_cast<int>(bits.Get(7)) + kMinLag;
    const int delta3 = static_cast<int>(bits.Get(2));
    frame.lag = {frame.openLoopLag[0], frame.openLoopLag[0] + delta1 - 1, frame.openLoopLag[1],
                 frame.openLoopLag[1] + delta3 - 1};

    for (int s = 0; s < 4; ++s) {
        std::uint32_t word = bits.Get(12);
        int rows = 170;
        if (type == 0 && frame.openLoopLag[static_cast<std::size_t>(s >> 1)] < kSubframeSamples - 2) {
            frame.pulseTrain[static_cast<std::size_t>(s)] = (word >> 11) != 0;
            word &= 0x7ff;
            frame.smallTable[static_cast<std::size_t>(s)] = true;
            rows = 85;
        }
        // A gain word past the table's last row (possible only in damaged frames) uses the last row
        // rather than reading beyond the table.
        frame.gainIndex[static_cast<std::size_t>(s)] = std::min(static_cast<int>(word / 24), rows - 1);
        frame.ampIndex[static_cast<std::size_t>(s)] = static_cast<int>(word % 24);
    }
    for (int s = 0; s < 4; ++s)
        frame.grid[static_cast<std::size_t>(s)] = static_cast<int>(bits.Get(1));

    if (type == 0) {
        bits.Get(1); // Reserved.
        std::uint32_t high = bits.Get(13);
        const std::uint32_t high0 = high / 810;
        high -= high0 * 810;
        const std::uint32_t high1 = high / 90;
        high -= high1 * 90;
        const std::uint32_t high2 = high / 9;
        const std::uint32_t high3 = high - high2 * 9;
        frame.pulsePosition[0] = (high0 << 16) + bits.Get(16);
        frame.pulsePosition[1] = (high1 << 14) + bits.Get(14);
        frame.pulsePosition[2] = (high2 << 16) + bits.Get(16);
        frame.pulsePosition[3] = (high3 << 14) + bits.Get(14);
        frame.pulseSign[0] = static_cast<int>(bits.Get(6));
        frame.pulseSign[1] = static_cast<int>(bits.Get(5));
        frame.pulseSign[2] = static_cast<int>(bits.Get(6));
        frame.pulseSign[3] = static_cast<int>(bits.Get(5));
    } else {
        for (int s = 0; s < 4; ++s)
            frame.pulsePosition[static_cast<std::size_t>(s)] = bits.Get(12);
        for (int s = 0; s < 4; ++s)
            frame.pulseSign[static_cast<std::size_t>(s)] = static_cast<int>(bits.Get(4));
    }
}

void NarrationDecoder::DequantiseLsp(const Frame& frame, std::array<std::int32_t, 10>& lsp) const
{
    for (int k = 0; k < 3; ++k)
        lsp[static_cast<std::size_t>(k)] = g7231::kLspBand0[frame.lspIndex[0]][k];
    for (int k = 0; k < 3; ++k)
        lsp[static_cast<std::size_t>(3 + k)] = g7231::kLspBand1[frame.lspIndex[1]][k];
    for (int k = 0; k < 4; ++k)
        lsp[static_cast<std::size_t>(6 + k)] = g7231::kLspBand2[frame.lspIndex[2]][k];
    for (std::size_t k = 0; k < 10; ++k) {
        const std::int32_t dc = g7231::kLspDc[k];
        lsp[k] += dc + (((previousLsp_[k] - dc) * kLspPrediction) >> 15);
    }
    for (int pass = 0; pass < kLspStabilityPasses; ++pass) {
        bool changed = false;
        for (std::size_t k = 0; k + 1 < 10; ++k) {
            if (lsp[k + 1] - lsp[k] < kLspMinDistance) {
                const std::int32_t mean = (lsp[k] + lsp[k + 1]) >> 1;
                lsp[k] = mean - kLspMinDistance / 2;
                lsp[k + 1] = mean + kLspMinDistance / 2;
                changed = true;
            }
        }
        if (!changed)
            return;
    }
    lsp = previousLsp_; // Still crowded after every pass: keep the last stable filter.
}

void NarrationDecoder::AdaptivePart(int subframe, int lag, const std::int16_t* gainRow,
                                    std::int32_t* out) const
{
    // A forbidden lag code can name a lag longer than the history before the first subframe.
    lag = std::min(lag, kHistory + kSubframeSamples * subframe - 2);
    const int base = kHistory + kSubframeSamples * subframe - lag;
    std::array<std::int32_t, kSubframeSamples + 4> buffer;
    buffer[0] = excitation_[static_cast<std::size_t>(base - 2)];
    buffer[1] = excitation_[static_cast<std::size_t>(base - 1)];
    for (int j = 0; j < kSubframeSamples + 2; ++j)
        buffer[static_cast<std::size_t>(j + 2)] = excitation_[static_cast<std::size_t>(base + j % lag)];
    for (int n = 0; n < kSubframeSamples; ++n) {
        std::int64_t sum = 0;
        for (int j = 0; j < 5; ++j)
            sum += static_cast<std::int64_t>(gainRow[j]) * buffer[static_cast<std::size_t>(n + j)];
        out[n] = RoundQ14(Wrap32(sum));
    }
}

void NarrationDecoder::SpeechExcitation(const Frame& frame)
{
    for (int s = 0; s < 4; ++s) {
        const auto si = static_cast<std::size_t>(s);
        std::int32_t* out = &excitation_[static_cast<std::size_t>(kHistory + kSubframeSamples * s)];
        const std::int16_t* gainRow = frame.smallTable[si] ? g7231::kAdaptiveGain85[frame.gainIndex[si]]
                                                           : g7231::kAdaptiveGain170[frame.gainIndex[si]];
        std::array<std::int32_t, kSubframeSamples> adaptive;
        AdaptivePart(s, frame.lag[si], gainRow, adaptive.data());

        // Room past the subframe: a 5.3 kbit/s pulse can be coded beyond sample 59 and is dropped.
        std::array<std::int32_t, kSubframeSamples + 4> fixed{};
        const std::int32_t amplitude = g7231::kFixedGain[frame.ampIndex[si]];
        if (frame.type == 0) {
            int row = 6 - g7231::kPulseCount[s];
            std::int64_t rest = frame.pulsePosition[si];
            for (int i = 0; i < 30; ++i) {
                if (rest >= g7231::kCombinatorial[row][i]) {
                    rest -= g7231::kCombinatorial[row][i];
                    continue;
                }
                ++row;
                const bool negative = (frame.pulseSign[si] & (1 << (6 - row))) != 0;
                fixed[static_cast<std::size_t>(frame.grid[si] + 2 * i)] = negative ? -amplitude : amplitude;
                if (row == 6)
                    break;
            }
            if (frame.pulseTrain[si]) {
                const int period = frame.openLoopLag[si >> 1];
                const auto pattern = fixed;
                for (int start = period; start < kSubframeSamples; start += period)
                    for (int j = 0; j < kSubframeSamples - start; ++j)
                        fixed[static_cast<std::size_t>(start + j)] += pattern[static_cast<std::size_t>(j)];
            }
        } else {
            std::uint32_t positions = frame.pulsePosition[si];
            int signs = frame.pulseSign[si];
            for (int k = 0; k < 4; ++k) {
                const int at = frame.grid[si] + 2 * k + 8 * static_cast<int>(positions & 7);
                fixed[static_cast<std::size_t>(at)] = (signs & 1) ? amplitude : -amplitude;
                positions >>= 3;
                signs >>= 1;
            }
            const int gi = frame.gainIndex[si];
            const int lag = frame.lag[si];
            const int period = lag + g7231::kSharpLagOffset[gi];
            if (lag < kSubframeSamples && period < kSubframeSamples) {
                for (int n = period; n < kSubframeSamples; ++n)
                    fixed[static_cast<std::size_t>(n)] =
                        Wrap32(fixed[static_cast<std::size_t>(n)] +
                               ((static_cast<std::int64_t>(fixed[static_cast<std::size_t>(n - period)]) *
                                 g7231::kSharpGain[gi]) >>
                                15));
            }
        }
        for (int n = 0; n < kSubframeSamples; ++n)
            out[n] = Wrap32(static_cast<std::int64_t>(adaptive[static_cast<std::size_t>(n)]) +
                            2 * static_cast<std::int64_t>(fixed[static_cast<std::size_t>(n)]));
    }
}

void NarrationDecoder::ComfortNoise(const Frame& frame)
{
    int gain = frame.type == 2 ? frame.sidGain : lastSidGain_;
    if (previousFrameType_ >= 2)
        gain = (7 * smoothedSidGain_ + gain) >> 3;
    smoothedSidGain_ = gain;

    for (int half = 0; half < 2; ++half) {
        std::int32_t* e = &excitation_[static_cast<std::size_t>(kHistory + 2 * kSubframeSamples * half)];
        const int lag = 123 + Random(21);
        const int gain0 = Random(50);
        const int gain1 = Random(50);
        AdaptivePart(2 * half, lag, g7231::kAdaptiveGain170[gain0], e);
        AdaptivePart(2 * half + 1, half == 0 ? lag : lag + 3, g7231::kAdaptiveGain170[gain1],
                     e + kSubframeSamples);

        const int r = Random(4096);
        const int grid = r & 1;
        int signs = r >> 1;
        std::array<int, 11> positions;
        std::size_t count = 0;
        for (int sub = 0; sub < 2; ++sub) {
            std::array<int, 30> candidates;
            for (int k = 0; k < 30; ++k)
                candidates[static_cast<std::size_t>(k)] = k;
            int remaining = 30;
            for (int p = 0; p < (sub == 0 ? 6 : 5); ++p) {
                const auto k = static_cast<std::size_t>(Random(remaining));
                positions[count++] = kSubframeSamples * sub + grid + 2 * candidates[k];
                candidates[k] = candidates[static_cast<std::size_t>(remaining - 1)];
                --remaining;
            }
        }
        std::array<std::int32_t, 11> amplitudes;
        std::array<std::int32_t, 2 * kSubframeSamples> pulses{};
        for (std::size_t p = 0; p < 11; ++p) {
            amplitudes[p] = (signs & 0x400) ? -16384 : 16384;
            signs = (signs << 1) & 0xffff;
            pulses[static_cast<std::size_t>(positions[p])] = amplitudes[p];
        }

        // The gain x that brings the half's energy to the target. Computed exactly in wide integers:
        // with 32-bit sums the squares overflow on ordinary speech levels.
        std::int64_t b = 0;
        std::int64_t energy = 0;
        std::int64_t c = 0;
        for (std::size_t n = 0; n < pulses.size(); ++n) {
            b += static_cast<std::int64_t>(pulses[n]) * e[n] / 16384;
            energy += static_cast<std::int64_t>(pulses[n]) * pulses[n] / 16384;
            c += static_cast<std::int64_t>(e[n]) * e[n] / 16384;
        }
        c -= 120 * static_cast<std::int64_t>(gain) * gain;
        __int128 x = 0;
        const __int128 discriminant = static_cast<__int128>(b) * b - static_cast<__int128>(c) * energy;
        if (discriminant >= 1) {
            const __int128 root = SquareRoot(discriminant);
            const __int128 x1 = (root - b) / energy;
            const __int128 x2 = -((root + b) / energy);
            x = Magnitude(x1) < Magnitude(x2) ? x1 : x2;
        } else {
            x = -(b / energy);
        }
        x = std::min<__int128>(x, kCngMaxGain);
        for (std::size_t p = 0; p < 11; ++p) {
            std::int32_t& sample = e[positions[p]];
            sample = static_cast<std::int32_t>(static_cast<std::uint32_t>(
                static_cast<std::uint64_t>(static_cast<__int128>(sample) + amplitudes[p] * x)));
        }
    }
}

std::array<std::int32_t, 10> LspToFilter(const std::array<std::int32_t, 10>& lsp)
{
    std::array<float, 10> c;
    for (std::size_t k = 0; k < 10; ++k) {
        // Damaged frames can push a pair outside 0..pi; keep the index inside the cosine table.
        const std::int32_t w = std::clamp<std::int32_t>(lsp[k], 0, 510 * 128 + 127);
        const std::int32_t i = w >> 7;
        const std::int32_t value =
            g7231::kCosine[i] + (((g7231::kCosine[i + 1] - g7231::kCosine[i]) * (w & 127)) >> 7);
        c[k] = static_cast<float>(static_cast<double>(value) * (-1.0 / 16384.0));
    }
    // The sum (first = 0) and difference (first = 1) polynomials, half of each (they are symmetric).
    auto polynomial = [&c](std::size_t first) {
        std::array<float, 6> p{};
        const double c0 = c[first];
        const double c1 = c[first + 2];
        p[0] = 1.0f;
        p[1] = static_cast<float>(c1 + c0);
        p[2] = static_cast<float>(c1 * c0 + 2.0);
        for (std::size_t k = 2; k <= 4; ++k) {
            const double cc = c[first + 2 * k];
            p[k + 1] =
                static_cast<float>(2.0 * static_cast<double>(p[k - 1]) + cc * static_cast<double>(p[k]));
            for (std::size_t j = k; j >= 2; --j)
                p[j] = static_cast<float>((cc * static_cast<double>(p[j - 1]) + static_cast<double>(p[j])) +
                                          static_cast<double>(p[j - 2]));
            p[1] = static_cast<float>(cc * static_cast<double>(p[0]) + static_cast<double>(p[1]));
        }
        return p;
    };
    const auto p = polynomial(0);
    const auto q = polynomial(1);
    std::array<std::int32_t, 10> a;
    for (std::size_t i = 0; i < 5; ++i) {
        const float sum = static_cast<float>(static_cast<double>(p[i + 1]) + static_cast<double>(p[i]));
        const float difference =
            static_cast<float>(static_cast<double>(q[i]) - static_cast<double>(q[i + 1]));
        const float low =
            static_cast<float>((static_cast<double>(sum) - static_cast<double>(difference)) * -0.5);
        const float high =
            static_cast<float>((static_cast<double>(sum) + static_cast<double>(difference)) * -0.5);
        a[i] = static_cast<std::int32_t>(static_cast<double>(low) * 8192.0);
        a[9 - i] = static_cast<std::int32_t>(static_cast<double>(high) * 8192.0);
    }
    return a;
}

void NarrationDecoder::Synthesise(const std::array<std::int32_t, 10>& lsp, int subframe,
                                  std::int16_t* samples)
{
    const auto a = LspToFilter(lsp);
    const std::int32_t* input =
        &excitation_[static_cast<std::size_t>(kHistory + kSubframeSamples * subframe)];
    for (int n = 0; n < kSubframeSamples; ++n) {
        const auto x =
            static_cast<std::int16_t>(static_cast<std::uint16_t>(static_cast<std::uint32_t>(input[n])));
        std::int64_t sum = 0;
        for (std::size_t k = 0; k < 10; ++k)
            sum += static_cast<std::int64_t>(a[k]) * synthesisMemory_[k];
        const std::int32_t acc = Wrap32(static_cast<std::int64_t>(x) * 8192 + 2 * sum);
        const std::int32_t y = std::clamp(RoundQ14(acc), -16384, 16383);
        std::copy_backward(synthesisMemory_.begin(), synthesisMemory_.end() - 1, synthesisMemory_.end());
        synthesisMemory_[0] = y;
        samples[n] = static_cast<std::int16_t>(2 * y);
    }
}

int NarrationDecoder::DecodeFrame(unsigned /*flags*/, std::span<const std::uint8_t> bytes,
                                  std::span<std::int16_t, kFrameSamples> samples)
{
    if (bytes.empty())
        return -1;
    const int type = bytes[0] & 3;
    const int needed = g7231::kFrameBytes[type];
    if (bytes.size() < static_cast<std::size_t>(needed))
        return -1;

    std::array<std::array<std::int32_t, 10>, 4> lsp;
    Frame frame;
    if (type == 3) {
        lsp.fill(previousLsp_);
    } else {
        Unpack(bytes.first(static_cast<std::size_t>(needed)), type, frame);
        std::array<std::int32_t, 10> current;
        DequantiseLsp(frame, current);
        for (std::size_t k = 0; k < 10; ++k) {
            lsp[0][k] = (3 * previousLsp_[k] + current[k]) >> 2;
            lsp[1][k] = (previousLsp_[k] + current[k]) >> 1;
            lsp[2][k] = (previousLsp_[k] + 3 * current[k]) >> 2;
            lsp[3][k] = current[k];
        }
        previousLsp_ = current;
    }
    frame.type = type;

    if (type <= 1) {
        SpeechExcitation(frame);
    } else {
        if (type == 2)
            lastSidGain_ = frame.sidGain;
        ComfortNoise(frame);
    }
    for (int s = 0; s < 4; ++s)
        Synthesise(lsp[static_cast<std::size_t>(s)], s, samples.data() + kSubframeSamples * s);

    // The lag and voicing estimate a speech frame leaves for concealment is not made: concealment is
    // not built, and nothing else reads it.
    std::copy(excitation_.end() - kHistory, excitation_.end(), excitation_.begin());
    previousFrameType_ = type;
    return needed;
}

std::size_t NarrationDecoder::DecodePacket(std::span<const std::uint8_t, kPacketWorkBytes> payload,
                                           std::uint32_t frameTypes,
                                           std::span<std::uint8_t, kPacketPcmBytes> out)
{
    // Compatibility: only the first half is cleared up front; every byte is written below anyway.
    std::memset(out.data(), 0, kPacketPcmBytes / 2);
    // An empty first frame has no previous frame to repeat within the packet: it is silence.
    frameBuffer_.fill(0);
    std::size_t position = 0;
    std::size_t mismatches = 0;
    for (int i = 0; i < kPacketFrames; ++i) {
        const std::size_t size = kKindBytes[(frameTypes >> (2 * i)) & 3];
        if (size != 0) {
            // Sixteen frames of at most 24 bytes never reach past the work area.
            const int used = DecodeFrame(0, payload.subspan(position, size), frameBuffer_);
            if (used != static_cast<int>(size))
                ++mismatches;
            position += size;
        }
        std::uint8_t* to = out.data() + static_cast<std::size_t>(i) * kFrameSamples * 2;
        for (int n = 0; n < kFrameSamples; ++n) {
            const auto v = static_cast<std::uint16_t>(frameBuffer_[static_cast<std::size_t>(n)]);
            to[2 * n] = static_cast<std::uint8_t>(v);
            to[2 * n + 1] = static_cast<std::uint8_t>(v >> 8);
        }
    }
    return mismatches;
}

std::size_t NarrationDecoder::LoadPacket(std::span<const std::uint8_t> chunk, std::size_t position,
                                         std::span<std::uint8_t, kPacketWorkBytes> work,
                                         std::uint32_t& frameTypes, NarrationReport& report)
{
    base::ByteReader reader(chunk.subspan(position));
    if (reader.Remaining() < kPacketHeaderBytes) {
        report.truncated = true;
        platform::DebugTrace(
            base::StrCat("narration chunk ends inside the packet header at offset ", position, "\n"));
        return kNoPacket;
    }
    (void)reader.Skip(2);
    const std::size_t payloadBytes = reader.ReadU16LE().value();
    frameTypes = reader.ReadU32LE().value();
    std::size_t copy = payloadBytes;
    if (copy > kPacketWorkBytes) {
        ++report.longPayloads;
        platform::DebugTrace(base::StrCat("narration packet at offset ", position, " has ", payloadBytes,
                                          " payload bytes; only the first ", kPacketWorkBytes,
                                          " are decoded\n"));
        copy = kPacketWorkBytes;
    }
    if (copy > reader.Remaining()) {
        report.truncated = true;
        platform::DebugTrace(base::StrCat("narration chunk ends inside the packet at offset ", position, " (",
                                          reader.Remaining(), " of ", payloadBytes, " payload bytes)\n"));
        copy = reader.Remaining();
    }
    std::fill(work.begin(), work.end(), std::uint8_t{0});
    const auto bytes = reader.ReadBytes(copy).value();
    std::copy(bytes.begin(), bytes.end(), work.begin());
    return payloadBytes;
}

NarrationDecoder& SharedNarrationDecoder()
{
    static NarrationDecoder decoder;
    return decoder;
}

namespace {

// Guards SharedNarrationDecoder(): the comfort noise's generator runs on from one narration to the next
// for the whole process, and every player's film loader decodes with it.
std::mutex sharedDecoderLock;

} // namespace

std::array<std::uint8_t, kWaveHeaderBytes> MakeWaveHeader(std::uint32_t dataBytes)
{
    std::array<std::uint8_t, kWaveHeaderBytes> h{};
    auto put = [&h](std::size_t at, std::uint32_t value, int bytes) {
        for (int i = 0; i < bytes; ++i)
            h[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(value >> (8 * i));
    };
    std::memcpy(h.data(), "RIFF", 4);
    put(4, dataBytes + 36, 4);
    std::memcpy(h.data() + 8, "WAVEfmt ", 8);
    put(16, 16, 4);    // Format block size.
    put(20, 1, 2);     // PCM.
    put(22, 1, 2);     // Mono.
    put(24, 8000, 4);  // Samples per second.
    put(28, 16000, 4); // Average bytes per second.
    put(32, 2, 2);     // Block alignment.
    put(34, 16, 2);    // Bits per sample.
    std::memcpy(h.data() + 36, "data", 4);
    put(40, dataBytes, 4);
    return h;
}

std::string NarrationReport::Describe() const
{
    std::string text;
    auto add = [&text](std::size_t count, const char* one, const char* many) {
        if (count == 0)
            return;
        text += text.empty() ? "" : ", ";
        text += base::StrCat(count, " ", count == 1 ? one : many);
    };
    add(sizeMismatches, "frame of the wrong size", "frames of the wrong size");
    add(emptyPackets, "packet without frames skipped", "packets without frames skipped");
    add(longPayloads, "payload over 384 bytes cut", "payloads over 384 bytes cut");
    if (packetsPastLimit != 0)
        text += base::StrCat(text.empty() ? "" : ", ", "cut after ", kMaxNarrationPackets * 480 / 1000, ".",
                             kMaxNarrationPackets * 480 % 1000 / 10, " s (", packetsPastLimit,
                             packetsPastLimit == 1 ? " packet" : " packets", " not decoded)");
    if (truncated)
        text += base::StrCat(text.empty() ? "" : ", ", "ends inside a packet");
    return text;
}

bool SniffNarration(std::span<const std::uint8_t> data)
{
    base::ByteReader reader(data);
    if (!reader.Skip(2).ok())
        return false;
    const auto payloadBytes = reader.ReadU16LE();
    const auto frameTypes = reader.ReadU32LE();
    if (!payloadBytes.ok() || !frameTypes.ok() || *frameTypes == 0 || *payloadBytes > kPacketWorkBytes ||
        *payloadBytes > reader.Remaining())
        return false;
    std::size_t needed = 0;
    for (int i = 0; i < kPacketFrames; ++i)
        needed += kKindBytes[(*frameTypes >> (2 * i)) & 3];
    return needed == *payloadBytes;
}

int DecodeNarration(std::span<const std::uint8_t> data, const std::string& fileName, NarrationReport* report)
{
    struct Closer
    {
        void operator()(std::FILE* f) const { std::fclose(f); }
    };
    std::unique_ptr<std::FILE, Closer> file(std::fopen(fileName.c_str(), "w+b"));
    if (!file) {
        platform::DebugTrace(base::StrCat("narration: cannot create ", fileName, "\n"));
        return 0;
    }
    const auto header = MakeWaveHeader(0);
    bool ok = std::fwrite(header.data(), 1, header.size(), file.get()) == header.size();
    // Decoded into memory under the shared decoder's lock (a narration is capped at a few megabytes)
    // and written after it, so that no file is written while the lock is held.
    std::vector<std::uint8_t> samples;
    NarrationReport met;
    {
        std::lock_guard hold(sharedDecoderLock);
        met = SharedNarrationDecoder().DecodeChunk(data, [&](std::span<const std::uint8_t> pcm) {
            const std::size_t at = samples.size();
            samples.resize(at + pcm.size());
            std::memcpy(samples.data() + at, pcm.data(), pcm.size());
        });
    }
    ok = ok && std::fwrite(samples.data(), 1, samples.size(), file.get()) == samples.size();
    const std::uint64_t dataBytes = samples.size();
    if (report != nullptr)
        *report = met;
    if (!ok) {
        platform::DebugTrace(base::StrCat("narration: writing ", fileName, " failed\n"));
        return 0;
    }
    auto putU32 = [&file](long at, std::uint32_t value) {
        const std::uint8_t b[4] = {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
                                   static_cast<std::uint8_t>(value >> 16),
                                   static_cast<std::uint8_t>(value >> 24)};
        return std::fseek(file.get(), at, SEEK_SET) == 0 && std::fwrite(b, 1, 4, file.get()) == 4;
    };
    ok = putU32(4, static_cast<std::uint32_t>(dataBytes + 36));
    // Walk the chunks from the first one to the data chunk and set its length.
    long at = 12;
    for (;;) {
        std::uint8_t chunkHeader[8];
        if (std::fseek(file.get(), at, SEEK_SET) != 0 || std::fread(chunkHeader, 1, 8, file.get()) != 8)
            break;
        if (std::memcmp(chunkHeader, "data", 4) == 0) {
            ok = ok && putU32(at + 4, static_cast<std::uint32_t>(dataBytes));
            break;
        }
        at += 8 + static_cast<long>(base::LoadI32LE(chunkHeader, 4) & 0x7fffffff);
    }
    return ok ? 1 : 0;
}

} // namespace lumenar::audio
