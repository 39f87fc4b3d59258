#pragma once

#include "codec/PhotoBitmap.h"
#include "codec/PhotoDecoder.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

namespace lumenar::codec {

/// A packed device-independent bitmap: the 40-byte information header, then the rows (a 32-bit
/// picture has no colour table). Empty when memory ran out.
struct PackedDib
{
    std::unique_ptr<std::uint8_t[]> bytes;
    std::size_t size = 0;

    explicit operator bool() const { return bytes != nullptr; }
};

/// One decoded photograph: the decoder with its planes, the picture and the size. Filled by
/// DecodePhoto and owned by the photo cache. Releasing it destroys the decoder first, then the picture.
class Photo
{
public:
    int Width() const { return width_; }
    int Height() const { return height_; }
    /// The picture; null before a successful DecodePhoto.
    const PhotoBitmap* Bitmap() const { return bitmap_.get(); }
    const PhotoDecoder* Decoder() const { return decoder_.get(); }

    /// A new zero-initialised block holding the picture as a packed bitmap (header, colour table when
    /// the bit depth has one, rows). Empty when there is no picture or memory runs out.
    PackedDib CopyPackedDib() const;

private:
    friend int DecodePhoto(Photo&, std::span<const std::uint8_t>, const DecodeOptions&, DecodeReport*);

    // Declared before the decoder so that the decoder is destroyed first.
    std::unique_ptr<PhotoBitmap> bitmap_;
    std::unique_ptr<PhotoDecoder> decoder_;
    int width_ = 0;
    int height_ = 0;
};

/// Decodes one compressed photo into `photo`. Returns 1 when a picture was made (also when its
/// memory could not be had: the picture is then empty and the report says so), 0 when the photo cannot
/// be decoded: no decoder, a stream that would have crashed the player, a photo larger than
/// kMaxPhotoPixels, not three components, or one of the two fatal corruptions. What was met goes into
/// `report` when given (the decoder itself shows nothing). Photo loader thread (any one thread per photo).
int DecodePhoto(Photo& photo, std::span<const std::uint8_t> bytes, const DecodeOptions& options = {},
                DecodeReport* report = nullptr);

/// Decodes the in-memory photo that a film text names as "length\address" (both decimal; the text is
/// split like a path, so an extension after the address is ignored). The name is resolved only through
/// platform's in-memory picture registry: an address that is not a registered block of at least that
/// length fails (0) without reading anything.
int DecodePhoto(Photo& photo, std::string_view source, const DecodeOptions& options = {},
                DecodeReport* report = nullptr);

/// The two numbers of an in-memory photo's name; zeros for what is not a number.
struct InMemoryName
{
    std::uint64_t length = 0;
    std::uint64_t address = 0;
};

/// Splits a film text into the length (directory part) and address (file-name part without its
/// extension), each read like atoi: leading digits only.
InMemoryName ParseInMemoryName(std::string_view source);

} // namespace lumenar::codec
