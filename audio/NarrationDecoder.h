#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace lumenar::audio {

/// Samples of one 30 ms speech frame at 8 kHz.
inline constexpr int kFrameSamples = 240;
/// Frames in one packet of a compressed narration chunk.
inline constexpr int kPacketFrames = 16;
/// Bytes of a packet header: 2 unused, 2 payload length, 4 frame kinds.
inline constexpr std::size_t kPacketHeaderBytes = 8;
/// The zeroed work area a packet's payload is copied into; a longer payload is cut to this.
inline constexpr std::size_t kPacketWorkBytes = 384;
/// PCM bytes one packet yields: 16 frames of 240 16-bit samples (480 ms).
inline constexpr std::size_t kPacketPcmBytes = kPacketFrames * kFrameSamples * 2;
/// Bytes of the canonical wave header the decoder writes.
inline constexpr std::size_t kWaveHeaderBytes = 44;

/// The most packets one narration decodes to: 312 packets are 149.76 s of sound (2,396,160 bytes of
/// PCM), which fits the 150-second ring the sound output plays narration from. A narration can ask for
/// 7680 bytes of PCM with every 9 bytes of input; packets past this limit are not decoded.
inline constexpr std::size_t kMaxNarrationPackets = 312;

/// What decoding one narration met, for one report per narration (not one per frame).
struct NarrationReport
{
    std::size_t packets = 0;          ///< Packets decoded (each kPacketPcmBytes of PCM).
    std::size_t sizeMismatches = 0;   ///< Frames whose own type disagrees with their kind's size.
    std::size_t emptyPackets = 0;     ///< Packets whose sixteen kinds are all empty: refused, no PCM.
    std::size_t packetsPastLimit = 0; ///< Packets after kMaxNarrationPackets: not decoded.
    std::size_t longPayloads = 0;     ///< Payloads over the 384-byte work area, cut to it.
    bool truncated = false;           ///< The chunk ended inside a packet.

    bool Damaged() const
    {
        return sizeMismatches != 0 || emptyPackets != 0 || packetsPastLimit != 0 || longPayloads != 0 ||
               truncated;
    }
    /// The damage as one line of text, counts first ("12 frames of the wrong size, ..."); empty when
    /// there was none.
    std::string Describe() const;
};

/// Frame kinds of a packet's frameTypes word (two bits per frame).
enum class FrameKind : unsigned
{
    Empty = 0,         ///< No bytes; repeats the previous frame's samples.
    Untransmitted = 1, ///< 1 byte.
    Silence = 2,       ///< A 4-byte silence description.
    Speech = 3,        ///< A 24-byte speech frame.
};

/// `DecodeFrame` flags. Neither is built: the narration never asks for them, and a frame decoded with
/// either set is decoded exactly as with 0.
enum DecodeFlags : unsigned
{
    kDecodeConceal = 1,    ///< Frame-erasure concealment: not built, ignored.
    kDecodePostfilter = 2, ///< Postfilter: not built, ignored.
};

/// One speech decoder for frames in the G.723.1 layout (6.3 and 5.3 kbit/s speech, silence
/// descriptions and untransmitted frames) with its own arithmetic: no postfilter, single-precision
/// filter conversion, its own comfort-noise generator. Holds the state carried from frame to frame.
/// Not thread-safe: one thread at a time.
class NarrationDecoder
{
public:
    NarrationDecoder();

    /// Clears everything carried between frames except the comfort-noise random generator, so that
    /// the next chunk decodes on its own.
    void Reset();

    /// Decodes one frame from `frame` (its size is the bytes available) into 240 samples. Returns the
    /// bytes the frame occupies by its own type (24, 20, 4 or 1), or -1, leaving `samples` untouched,
    /// when fewer bytes are available. `flags`: see DecodeFlags (both are ignored).
    int DecodeFrame(unsigned flags, std::span<const std::uint8_t> frame,
                    std::span<std::int16_t, kFrameSamples> samples);

    /// Decodes the 16 frames of one packet whose payload was copied into the zeroed work area, and
    /// writes 16 x 240 samples (signed 16-bit little-endian, kPacketPcmBytes) into `out`. A frame whose
    /// size does not match its kind is decoded as it is and decoding goes on; returns how many did not.
    std::size_t DecodePacket(std::span<const std::uint8_t, kPacketWorkBytes> payload,
                             std::uint32_t frameTypes, std::span<std::uint8_t, kPacketPcmBytes> out);

    /// Decodes a whole compressed chunk (a series of packets) and calls `sink` with each packet's PCM.
    /// Resets first. A packet with no frames at all is skipped, and packets past kMaxNarrationPackets
    /// are not decoded; a chunk that ends inside a packet stops there (the payload read so far decodes
    /// as if the rest were zero); a payload longer than the work area is cut to it. Shows nothing:
    /// returns what it met, for the caller to report once.
    template <typename Sink> NarrationReport DecodeChunk(std::span<const std::uint8_t> chunk, Sink&& sink)
    {
        Reset();
        NarrationReport report;
        std::array<std::uint8_t, kPacketWorkBytes> work;
        std::array<std::uint8_t, kPacketPcmBytes> pcm;
        std::size_t position = 0;
        while (position < chunk.size()) {
            std::uint32_t frameTypes = 0;
            const std::size_t payloadBytes = LoadPacket(chunk, position, work, frameTypes, report);
            if (payloadBytes == kNoPacket)
                break;
            position += kPacketHeaderBytes + payloadBytes;
            if (frameTypes == 0) {
                // Sixteen empty kinds would repeat silence for 480 ms from 8 bytes of input.
                ++report.emptyPackets;
            } else if (report.packets == kMaxNarrationPackets) {
                ++report.packetsPastLimit;
            } else {
                report.sizeMismatches += DecodePacket(work, frameTypes, pcm);
                ++report.packets;
                sink(std::span<const std::uint8_t>(pcm));
            }
        }
        return report;
    }

    /// The random generator's next value in 0..n-1 (n <= 65536). Comfort noise only; public for tests.
    int Random(int n);

private:
    static constexpr std::size_t kNoPacket = static_cast<std::size_t>(-1);
    static constexpr int kHistory = 145; // Excitation samples kept from frame to frame.

    struct Frame;

    /// Reads the packet header at `position` and copies its payload into `work`. Returns the declared
    /// payload length, or kNoPacket when fewer than 8 header bytes are left.
    static std::size_t LoadPacket(std::span<const std::uint8_t> chunk, std::size_t position,
                                  std::span<std::uint8_t, kPacketWorkBytes> work, std::uint32_t& frameTypes,
                                  NarrationReport& report);
    static void Unpack(std::span<const std::uint8_t> bytes, int type, Frame& frame);
    void DequantiseLsp(const Frame& frame, std::array<std::int32_t, 10>& lsp) const;
    void AdaptivePart(int subframe, int lag, const std::int16_t* gainRow, std::int32_t* out) const;
    void SpeechExcitation(const Frame& frame);
    void ComfortNoise(const Frame& frame);
    void Synthesise(const std::array<std::int32_t, 10>& lsp, int subframe, std::int16_t* samples);

    std::array<std::int32_t, 10> previousLsp_;
    std::array<std::int32_t, 10> synthesisMemory_; // Previous filter outputs, newest first.
    // The 145 excitation samples before the frame followed by the frame's own 240.
    std::array<std::int32_t, kHistory + kFrameSamples> excitation_;
    int previousFrameType_ = 0;
    int lastSidGain_ = 0;     // The gain index of the last silence description received.
    int smoothedSidGain_ = 0; // The gain carried from one noise frame to the next.
    std::array<std::int16_t, kFrameSamples> frameBuffer_;

    // The comfort-noise generator: never reset, so noise differs from chunk to chunk.
    std::array<std::uint16_t, 250> randomWords_;
    int randomIndex_ = 0;
};

/// Converts ten line spectral pairs (Q15 of pi, as 32-bit integers) into ten Q13 synthesis filter
/// coefficients, in single precision exactly as the decoder does. Pairs outside 0..pi are clamped to
/// the cosine table. Exposed for tests.
std::array<std::int32_t, 10> LspToFilter(const std::array<std::int32_t, 10>& lsp);

/// The process-wide decoder that `DecodeNarration` uses, under a lock of its own: the film loaders of
/// every player in the process share it (its comfort noise runs on from one narration to the next).
NarrationDecoder& SharedNarrationDecoder();

/// Decodes one compressed narration chunk into the wave file `fileName` (created or truncated): a
/// canonical 8 kHz 16-bit mono RIFF/WAVE whose two lengths are rewritten at the end. Uses the shared
/// decoder, reset first (except for its random generator). Returns 1, or 0 when the file cannot be
/// created or written. Shows nothing: what decoding met goes to `report` when given, for the caller
/// to report once per narration. Film loader thread only.
int DecodeNarration(std::span<const std::uint8_t> data, const std::string& fileName,
                    NarrationReport* report = nullptr);

/// Whether `data` starts with a whole, well-formed narration packet: a header, at least one frame, a
/// payload within the work area that holds exactly the bytes its frame kinds take. Cheap; never fails.
/// A wave file, a photo or a few stray bytes are not narration.
bool SniffNarration(std::span<const std::uint8_t> data);

/// The canonical 44-byte header of an 8 kHz 16-bit mono wave file with `dataBytes` of samples.
std::array<std::uint8_t, kWaveHeaderBytes> MakeWaveHeader(std::uint32_t dataBytes);

} // namespace lumenar::audio
