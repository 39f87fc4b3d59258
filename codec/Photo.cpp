#include "codec/Photo.h"

#include "base/StrCat.h"
#include "platform/InMemoryPictures.h"
#include "platform/Memory.h"
#include "platform/Path.h"

#include <cstring>

namespace lumenar::codec {

using base::StrCat;

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

int DecodePhoto(Photo& photo, std::span<const std::uint8_t> bytes, const DecodeOptions& options,
                DecodeReport* report)
{
    DecodeReport unused;
    DecodeReport& out = report != nullptr ? *report : unused;
    auto refuse = [&out](std::string why) {
        out.refusal = std::move(why);
        return 0;
    };
    auto created = PhotoDecoder::Create(bytes, options);
    if (!created.ok())
        return refuse(created.error().message);
    std::unique_ptr<PhotoDecoder> decoder = std::move(created).value();
    const base::Status parsed = decoder->ParseMarkers();
    out.notices = decoder->Notices();
    if (!parsed.ok()) {
        out.fatalCorruption = !decoder->FatalCorruption().empty();
        return refuse(parsed.error().message);
    }
    // Three components are needed: the conversion takes luma from the first and chroma from the next
    // two. A fourth (a CMYK photo) would be shown as if its first three were YCbCr: wrong colours.
    if (decoder->ComponentCount() < 3)
        return refuse(StrCat("photo has ", decoder->ComponentCount(),
                             " colour components (only YCbCr photos of three are shown)"));
    if (decoder->ComponentCount() > 3)
        return refuse(StrCat("photo has ", decoder->ComponentCount(),
                             " colour components, as CMYK photos do (only YCbCr photos of three are shown)"));
    photo.width_ = decoder->Width();
    photo.height_ = decoder->Height();
    auto bitmap = std::make_unique<PhotoBitmap>(photo.width_, photo.height_, options.maxPictureBytes);
    const ComponentInfo& luma = decoder->Component(0);
    if (ConvertToDib(*bitmap, luma.Plane(), decoder->Component(1).Plane(), decoder->Component(2).Plane(),
                     luma.h, luma.v) == 0)
        out.notices.emplace_back("Unable to allocate DIB memory");
    photo.bitmap_ = std::move(bitmap);
    photo.decoder_ = std::move(decoder);
    return 1;
}

int DecodePhoto(Photo& photo, std::string_view source, const DecodeOptions& options, DecodeReport* report)
{
    const InMemoryName name = ParseInMemoryName(source);
    const auto block = platform::FindInMemoryPicture(name.length, name.address);
    if (!block) {
        if (report != nullptr)
            report->refusal = "the photo's bytes are not in memory";
        return 0;
    }
    return DecodePhoto(photo, std::span<const std::uint8_t>(block->data(), name.length), options, report);
}

} // namespace lumenar::codec
