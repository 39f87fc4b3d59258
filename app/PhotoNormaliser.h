#pragma once

#include "base/Result.h"
#include "platform/ImageFile.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace lumenar::app {

/// The longest side a packed photo keeps: larger photos are scaled down to it. The player's frame is
/// 800 pixels wide, and a host's full screen rarely has more than 4096 pixels across, while a photo's
/// decoded picture takes 4 bytes a pixel in the player's memory.
inline constexpr int kMaxPackedPhotoSide = 4096;

/// The JPEG quality of a photo that is encoded anew.
inline constexpr int kPackedPhotoQuality = 92;

/// A photo as the film carries it.
struct NormalisedPhoto
{
    std::vector<std::uint8_t> bytes;
    /// What was done to it and why ("turned upright (EXIF orientation 6), re-encoded 4:2:0 at width 600
    /// -> baseline 4:4:4"); empty when the photo is carried byte for byte.
    std::string change;
    /// The photo was another format than JPEG (its name should end in .jpg now).
    bool becameJpeg = false;
};

/// Makes a photo file into one the player shows upright, in its own colours and unsheared: a baseline
/// JPEG that the player shows correctly and that is no larger than kMaxPackedPhotoSide is carried byte
/// for byte (or, when a stuffed byte falls on the player's read edge, with its scan moved by a comment
/// segment); anything else that libjpeg-turbo, libpng or libwebp reads is decoded, turned upright by its
/// EXIF orientation, scaled down with an area filter when too large, and encoded anew as a baseline
/// 4:4:4 JPEG. Fails with a one-line message (no file name) for a file none of them can read.
base::Result<NormalisedPhoto> NormalisePhoto(std::span<const std::uint8_t> bytes);

/// Turns a picture by an EXIF orientation (1-8) so that it stands upright.
platform::BgrxPicture TurnUpright(const platform::BgrxPicture& picture, int orientation);

/// Shrinks a picture to width × height (each no larger than the picture's) by averaging the area of
/// the picture that each new pixel covers.
platform::BgrxPicture ShrinkPicture(const platform::BgrxPicture& picture, int width, int height);

} // namespace lumenar::app
