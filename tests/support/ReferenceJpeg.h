#pragma once

// libjpeg-turbo as the peer our photo decoder is compared with (tests and benchmarks only).
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace lumenar::testing {

/// What libjpeg-turbo delivers per pixel.
enum class ReferenceColours
{
    Bgrx,  ///< Four bytes: blue, green, red, 0xFF.
    YCbCr, ///< Three bytes: the samples before colour conversion (chroma replicated, not interpolated).
};

/// A picture as libjpeg-turbo decodes it, top row first, rows of width × pixel-size bytes.
struct ReferencePicture
{
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> bgrx; ///< Or Y, Cb, Cr triples.
};

/// Decodes with libjpeg-turbo's fast integer transform (JDCT_IFAST), without fancy upsampling. Empty
/// (and `error` set) when libjpeg-turbo refuses the stream.
std::optional<ReferencePicture> DecodeWithLibjpeg(std::span<const std::uint8_t> jpeg,
                                                  std::string* error = nullptr,
                                                  ReferenceColours colours = ReferenceColours::Bgrx);

/// Decodes into a caller-owned buffer of 4 × width × height bytes (benchmarks). False on failure.
bool DecodeWithLibjpegInto(std::span<const std::uint8_t> jpeg, std::vector<std::uint8_t>& bgrx);

} // namespace lumenar::testing
