#include "app/PhotoNormaliser.h"

#include "base/Assert.h"
#include "base/StrCat.h"
#include "codec/PlayerPhotoCheck.h"

#include <algorithm>
#include <cmath>

namespace lumenar::app {

namespace {

using base::StrCat;
using platform::BgrxPicture;

std::string Join(const std::vector<std::string>& parts, const char* separator)
{
    std::string out;
    for (const std::string& part : parts)
        out += (out.empty() ? "" : separator) + part;
    return out;
}

// Which source samples cover each of `to` samples made from `from`, and by how much (the weights of
// one sample add up to 1).
struct Taps
{
    std::vector<int> first;
    std::vector<std::vector<float>> weights;
};

Taps AreaTaps(int from, int to)
{
    Taps taps;
    const double scale = double(from) / to;
    for (int i = 0; i < to; ++i) {
        const double begin = i * scale, end = (i + 1) * scale;
        const int first = static_cast<int>(begin);
        const int last = std::min(from - 1, static_cast<int>(std::ceil(end)) - 1);
        taps.first.push_back(first);
        std::vector<float>& weights = taps.weights.emplace_back();
        for (int s = first; s <= last; ++s)
            weights.push_back(
                static_cast<float>((std::min<double>(end, s + 1) - std::max<double>(begin, s)) / scale));
    }
    return taps;
}

} // namespace

BgrxPicture TurnUpright(const BgrxPicture& picture, int orientation)
{
    const int w = picture.width, h = picture.height;
    const bool across = orientation >= 5 && orientation <= 8;
    BgrxPicture out{across ? h : w, across ? w : h, std::vector<std::uint8_t>(picture.pixels.size())};
    for (int oy = 0; oy < out.height; ++oy) {
        for (int ox = 0; ox < out.width; ++ox) {
            // Coordinates count from the top left; the rows are stored bottom first.
            int sx = ox, sy = oy;
            switch (orientation) {
            case 2:
                sx = w - 1 - ox;
                break;
            case 3:
                sx = w - 1 - ox;
                sy = h - 1 - oy;
                break;
            case 4:
                sy = h - 1 - oy;
                break;
            case 5:
                sx = oy;
                sy = ox;
                break;
            case 6:
                sx = oy;
                sy = h - 1 - ox;
                break;
            case 7:
                sx = w - 1 - oy;
                sy = h - 1 - ox;
                break;
            case 8:
                sx = w - 1 - oy;
                sy = ox;
                break;
            default:
                break;
            }
            const std::size_t from = (std::size_t(h - 1 - sy) * std::size_t(w) + std::size_t(sx)) * 4;
            const std::size_t to =
                (std::size_t(out.height - 1 - oy) * std::size_t(out.width) + std::size_t(ox)) * 4;
            std::copy_n(picture.pixels.begin() + static_cast<std::ptrdiff_t>(from), 4,
                        out.pixels.begin() + static_cast<std::ptrdiff_t>(to));
        }
    }
    return out;
}

BgrxPicture ShrinkPicture(const BgrxPicture& picture, int width, int height)
{
    LUM_ASSERT(width > 0 && height > 0 && width <= picture.width && height <= picture.height,
               "a picture is only shrunk");
    // Row by row, so that a large photo needs no second copy of itself: each source row is shrunk
    // across, then added into the rows it covers.
    const Taps across = AreaTaps(picture.width, width);
    const Taps down = AreaTaps(picture.height, height);
    const std::size_t stride = std::size_t(picture.width) * 4;
    std::vector<float> row(std::size_t(width) * 3), sum(std::size_t(width) * 3);
    BgrxPicture out{width, height, std::vector<std::uint8_t>(std::size_t(width) * std::size_t(height) * 4)};
    for (int y = 0; y < height; ++y) {
        std::fill(sum.begin(), sum.end(), 0.0f);
        const std::vector<float>& rowWeights = down.weights[std::size_t(y)];
        for (std::size_t k = 0; k < rowWeights.size(); ++k) {
            const std::uint8_t* source =
                picture.pixels.data() + stride * std::size_t(down.first[std::size_t(y)] + int(k));
            for (int x = 0; x < width; ++x) {
                const std::vector<float>& weights = across.weights[std::size_t(x)];
                const std::uint8_t* p = source + std::size_t(across.first[std::size_t(x)]) * 4;
                float b = 0, g = 0, r = 0;
                for (std::size_t t = 0; t < weights.size(); ++t, p += 4) {
                    b += weights[t] * p[0];
                    g += weights[t] * p[1];
                    r += weights[t] * p[2];
                }
                float* q = row.data() + std::size_t(x) * 3;
                q[0] = b;
                q[1] = g;
                q[2] = r;
            }
            for (std::size_t i = 0; i < sum.size(); ++i)
                sum[i] += rowWeights[k] * row[i];
        }
        std::uint8_t* target = out.pixels.data() + std::size_t(y) * std::size_t(width) * 4;
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < 3; ++c)
                target[x * 4 + c] = static_cast<std::uint8_t>(
                    std::clamp(std::lround(sum[std::size_t(x) * 3 + std::size_t(c)]), 0L, 255L));
    }
    return out;
}

base::Result<NormalisedPhoto> NormalisePhoto(std::span<const std::uint8_t> bytes)
{
    const platform::ImageFormat format = platform::SniffImageFormat(bytes);
    if (format == platform::ImageFormat::Unknown)
        return base::Error{base::ErrorCode::Unsupported, "not a JPEG, PNG or WebP photo"};
    NormalisedPhoto out;
    codec::PlayerPhotoCheck check;
    std::vector<std::string> why; // What made the old encoding unfit, for the message.
    if (format == platform::ImageFormat::Jpeg) {
        check = codec::CheckPlayerPhoto(bytes);
        const bool small = std::max(check.width, check.height) <= kMaxPackedPhotoSide;
        if (check.reasons.empty() && small) {
            if (!check.pairOnChunkEdge) {
                out.bytes.assign(bytes.begin(), bytes.end());
                return out;
            }
            out.bytes = codec::MoveScanOffChunkEdges(bytes);
            out.change = StrCat("moved its scan by ", out.bytes.size() - bytes.size(),
                                " bytes (a stuffed byte fell on the player's 64 KiB read edge)");
            return out;
        }
        for (const std::string& reason : check.reasons)
            if (reason.rfind("EXIF orientation", 0) != 0)
                why.push_back(reason);
    }
    auto decoded = platform::DecodeImage(bytes);
    if (!decoded.ok())
        return decoded.error();
    BgrxPicture picture = std::move(decoded->picture);
    std::vector<std::string> done;
    if (format != platform::ImageFormat::Jpeg) {
        out.becameJpeg = true;
        why.push_back(
            StrCat(platform::ImageFormatName(format), decoded->hadAlpha ? " with alpha over black" : ""));
    } else if (check.exifOrientation != 1) {
        picture = TurnUpright(picture, check.exifOrientation);
        done.push_back(StrCat("turned upright (EXIF orientation ", check.exifOrientation, ")"));
    }
    if (std::max(picture.width, picture.height) > kMaxPackedPhotoSide) {
        const double scale = double(kMaxPackedPhotoSide) / std::max(picture.width, picture.height);
        const int width = std::max(1, static_cast<int>(std::lround(picture.width * scale)));
        const int height = std::max(1, static_cast<int>(std::lround(picture.height * scale)));
        done.push_back(StrCat("scaled ", picture.width, "x", picture.height, " -> ", width, "x", height,
                              " (at most ", kMaxPackedPhotoSide, " pixels a side)"));
        picture = ShrinkPicture(picture, width, height);
    }
    auto encoded = platform::EncodeBaselineJpeg(picture, kPackedPhotoQuality, platform::JpegChroma::Full);
    if (!encoded.ok())
        return encoded.error();
    out.bytes = codec::MoveScanOffChunkEdges(*encoded);
    done.push_back(why.empty() ? std::string("re-encoded as baseline 4:4:4")
                               : StrCat("re-encoded ", Join(why, ", "), " -> baseline 4:4:4"));
    out.change = Join(done, ", ");
    if (!codec::PlayerShowsAsIs(out.bytes))
        return base::Error{base::ErrorCode::BadData,
                           StrCat("the photo encoded anew is still not one the player shows (",
                                  Join(codec::CheckPlayerPhoto(out.bytes).reasons, ", "), ")")};
    return out;
}

} // namespace lumenar::app
