#include "codec/Photo.h"

#include "platform/InMemoryPictures.h"
#include "platform/Memory.h"
#include "platform/Path.h"

#include <cstring>

namespace lumenar::codec {

namespace {

// The ordinary decimal conversion: leading blanks, an optional sign, then digits up to the first non-digit.
std::uint64_t LeadingNumber(std::string_view text)
{
    std::size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t'))
        ++i;
    if (i < text.size() && text[i] == '+')
        ++i;
    std::uint64_t value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i)
        value = value * 10 + static_cast<std::uint64_t>(text[i] - '0');
    return value;
}

} // namespace

InMemoryName ParseInMemoryName(std::string_view source)
{
    const platform::SplitPathResult split = platform::SplitPath(source);
    std::string_view directory = split.folder;
    if (directory.size() >= 2 && directory[1] == ':')
        directory.remove_prefix(2); // The drive.
    std::string_view name = split.name;
    if (const std::size_t dot = name.rfind('.'); dot != std::string_view::npos)
        name = name.substr(0, dot);
    return {LeadingNumber(directory), LeadingNumber(name)};
}

PackedDib Photo::CopyPackedDib() const
{
    PackedDib dib;
    if (!bitmap_ || bitmap_->BitCount() == 0)
        return dib;
    const auto info = bitmap_->InfoHeader();
    const auto pixels = bitmap_->Pixels();
    // A 32-bit picture has no colour table.
    dib.bytes = platform::TryAllocateArray<std::uint8_t>(info.size() + pixels.size());
    if (!dib.bytes)
        return dib;
    std::memcpy(dib.bytes.get(), info.data(), info.size());
    std::memcpy(dib.bytes.get() + info.size(), pixels.data(), pixels.size());
    dib.size = info.size() + pixels.size();
    return dib;
}

int DecodePhoto(Photo& photo, std::span<const std::uint8_t> bytes, const DecodeOptions& options)
{
    auto created = PhotoDecoder::Create(bytes, options);
    if (!created.ok())
        return 0;
    std::unique_ptr<PhotoDecoder> decoder = std::move(created).value();
    if (!decoder->ParseMarkers().ok())
        return 0;
    // Three components are needed: the conversion takes luma from the first and chroma from the next two.
    if (decoder->ComponentCount() < 3)
        return 0;
    photo.width_ = decoder->Width();
    photo.height_ = decoder->Height();
    auto bitmap = std::make_unique<PhotoBitmap>(photo.width_, photo.height_, options.maxPictureBytes);
    const ComponentInfo& luma = decoder->Component(0);
    ConvertToDib(*bitmap, luma.Plane(), decoder->Component(1).Plane(), decoder->Component(2).Plane(), luma.h,
                 luma.v);
    photo.bitmap_ = std::move(bitmap);
    photo.decoder_ = std::move(decoder);
    return 1;
}

int DecodePhoto(Photo& photo, std::string_view source, const DecodeOptions& options)
{
    const InMemoryName name = ParseInMemoryName(source);
    const auto block = platform::FindInMemoryPicture(name.length, name.address);
    if (!block)
        return 0;
    return DecodePhoto(photo, std::span<const std::uint8_t>(block->data(), name.length), options);
}

} // namespace lumenar::codec
