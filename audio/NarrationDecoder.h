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
    /// writes 16 x 240 samples (signed 16-bit little-endian) into `out`. A frame whose size does not
    /// match its kind shows "Decode size unmatch" through the current message sink, and decoding goes
    /// on. Returns the bytes written (always kPacketPcmBytes).
    std::size_t DecodePacket(std::span<const std::uint8_t, kPacketWorkBytes> payload,
                             std::uint32_t frameTypes, std::span<std::uint8_t, kPacketPcmBytes> out);

    /// Decodes a whole compressed chunk (a series of packets) and calls `sink` with each packet's PCM.
    /// Resets first. A chunk that ends inside a packet stops there (the payload read so far decodes as
    /// if the rest were zero); a payload longer than the work area is cut to it. Both leave a debug line.
    template <typename Sink> void DecodeChunk(std::span<const std::uint8_t> chunk, Sink&& sink)
    {
        Reset();
        std::array<std::uint8_t, kPacketWorkBytes> work;
        std::array<std::uint8_t, kPacketPcmBytes> pcm;
        std::size_t position = 0;
        while (position < chunk.size()) {
            std::uint32_t frameTypes = 0;
            const std::size_t payloadBytes = LoadPacket(chunk, position, work, frameTypes);
            if (payloadBytes == kNoPacket)
                break;
            DecodePacket(work, frameTypes, pcm);
            sink(std::span<const std::uint8_t>(pcm));
            position += kPacketHeaderBytes + payloadBytes;
        }
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
                                  std::span<std::uint8_t, kPacketWorkBytes> work, std::uint32_t& frameTypes);
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

/// The process-wide decoder that `DecodeNarration` uses. Film loader thread only.
NarrationDecoder& SharedNarrationDecoder();

/// Decodes one compressed narration chunk into the wave file `fileName` (created or truncated): a
/// canonical 8 kHz 16-bit mono RIFF/WAVE whose two lengths are rewritten at the end. Uses the shared
/// decoder, reset first (except for its random generator). Returns 1, or 0 when the file cannot be
/// created or written. Film loader thread only.
int DecodeNarration(std::span<const std::uint8_t> data, const std::string& fileName);

/// The canonical 44-byte header of an 8 kHz 16-bit mono wave file with `dataBytes` of samples.
std::array<std::uint8_t, kWaveHeaderBytes> MakeWaveHeader(std::uint32_t dataBytes);

} // namespace lumenar::audio
