#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace lumenar::codec {

/// What stands between a photo file and the player showing it as a viewer expects: upright, in its own
/// colours, unsheared.
struct PlayerPhotoCheck
{
    /// Why the player's decoder would not show the photo as it is, one short phrase each
    /// ("progressive", "greyscale", "4:2:0 at width 600", "EXIF orientation 6"); empty when it would.
    /// A photo with a reason here must be decoded and encoded anew.
    std::vector<std::string> reasons;
    /// A stuffed 0xFF 0x00 pair of the scan straddles one of the 64 KiB chunks the player reads in, so
    /// the player would read a stray 0x00. Moving the scan (MoveScanOffChunkEdges) mends it losslessly.
    bool pairOnChunkEdge = false;
    /// The frame header's size; zeros when no frame header was found.
    int width = 0;
    int height = 0;
    /// The EXIF orientation (1-8); 1 when the photo has none.
    int exifOrientation = 1;

    bool ShowsAsIs() const { return reasons.empty() && !pairOnChunkEdge; }
};

/// Checks a photo file against what the player's decoder shows correctly: a JPEG with one baseline
/// (SOF0) frame of three 8-bit components (YCbCr, not Adobe RGB), 8-bit quantisation tables, Huffman
/// tables 0 and 1, chroma at full resolution or halved (luma sampling 1x1, 2x1, 1x2 or 2x2 over 1x1
/// chroma; halved across only at widths whose rows round up to a whole 16 pixels, as the player steps
/// through the rows by the width rounded up to 8), one interleaved scan of all three components,
/// optional restart markers, no fill bytes or stray restart markers between segments, and no EXIF
/// orientation other than 1. Anything else (another format, damaged data) gets a reason. Never fails.
PlayerPhotoCheck CheckPlayerPhoto(std::span<const std::uint8_t> bytes);

/// True when the player shows `bytes` correctly as they are.
inline bool PlayerShowsAsIs(std::span<const std::uint8_t> bytes)
{
    return CheckPlayerPhoto(bytes).ShowsAsIs();
}

/// The same JPEG with a comment segment just before its scan, sized so that no stuffed pair of the
/// scan straddles a 64 KiB chunk edge any more. The pixels are untouched. Returns the bytes unchanged
/// when nothing straddles; empty for bytes that do not start as a JPEG.
std::vector<std::uint8_t> MoveScanOffChunkEdges(std::span<const std::uint8_t> bytes);

} // namespace lumenar::codec
