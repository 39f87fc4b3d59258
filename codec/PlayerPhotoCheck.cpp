#include "codec/PlayerPhotoCheck.h"

#include "base/ByteReader.h"
#include "base/StrCat.h"
#include "codec/PhotoDecoder.h"
#include "platform/ImageFile.h"

#include <algorithm>
#include <array>
#include <optional>

namespace lumenar::codec {

namespace {

using base::StrCat;

constexpr std::size_t kChunk = kPhotoChunkCapacity;

struct FrameComponent
{
    int id = 0;
    int h = 0;
    int v = 0;
    int quantTable = 0;
};

// The reason for a frame type other than SOF0; empty for SOF0 and for codes that are no frame.
const char* FrameKind(unsigned code)
{
    switch (code) {
    case 0xC1:
        return "extended sequential";
    case 0xC2:
        return "progressive";
    case 0xC3:
        return "lossless";
    case 0xC5:
    case 0xC6:
    case 0xC7:
        return "hierarchical";
    case 0xC9:
    case 0xCA:
    case 0xCB:
    case 0xCD:
    case 0xCE:
    case 0xCF:
        return "arithmetic-coded";
    default:
        return "";
    }
}

std::string SamplingName(int h, int v)
{
    if (h == 2 && v == 2)
        return "4:2:0";
    if (h == 2 && v == 1)
        return "4:2:2";
    if (h == 1 && v == 2)
        return "4:4:0";
    return "4:4:4";
}

// Walks the segments of a JPEG. Fills `check` with what the player would not show as a viewer expects,
// `pairs` (when given) with the offset of every stuffed 0xFF 0x00 pair in the scan data, and `scanStart`
// (when given) with the offset of the scan's marker.
void Walk(std::span<const std::uint8_t> bytes, PlayerPhotoCheck& check, std::vector<std::size_t>* pairs,
          std::size_t* scanStart)
{
    auto& reasons = check.reasons;
    if (bytes.size() < 4 || bytes[0] != 0xFF || bytes[1] != 0xD8) {
        const platform::ImageFormat format = platform::SniffImageFormat(bytes);
        reasons.push_back(format == platform::ImageFormat::Unknown ? "not a JPEG"
                                                                   : platform::ImageFormatName(format));
        return;
    }
    std::vector<FrameComponent> frame;
    bool haveFrame = false, adobeRgb = false;
    int scans = 0;
    std::array<bool, 4> quantDefined{};
    std::array<bool, 4> huffmanDefined{}; // DC 0, DC 1, AC 0, AC 1.
    std::size_t pos = 2;
    for (;;) {
        if (pos + 2 > bytes.size()) {
            reasons.push_back("cut short (no end marker)");
            return;
        }
        if (bytes[pos] != 0xFF) {
            reasons.push_back(StrCat("damaged (no marker at offset ", pos, ")"));
            return;
        }
        const unsigned code = bytes[pos + 1];
        if (code == 0xD9)
            break;
        if (code == 0xD8) {
            pos += 2;
            continue;
        }
        if (code == 0xFF) {
            // The player takes a fill byte for the start of a segment and loses its way.
            reasons.push_back("fill bytes between segments");
            return;
        }
        if (code >= 0xD0 && code <= 0xD7) {
            reasons.push_back("stray restart marker");
            return;
        }
        if (scans > 0 && code != 0xDA) {
            // The player removes stuffed bytes from every segment after the first scan.
            reasons.push_back("segments after the scan");
            return;
        }
        if (pos + 4 > bytes.size()) {
            reasons.push_back("cut short (no end marker)");
            return;
        }
        const std::size_t length = std::size_t{bytes[pos + 2]} << 8 | bytes[pos + 3];
        if (length < 2 || pos + 2 + length > bytes.size()) {
            reasons.push_back(StrCat("damaged (segment 0x", code, " at offset ", pos, " overruns the file)"));
            return;
        }
        base::ByteReader in(bytes.subspan(pos + 4, length - 2));
        if (const char* kind = FrameKind(code); *kind != '\0') {
            reasons.push_back(kind);
            return;
        }
        if (code == 0xC0) {
            if (haveFrame) {
                reasons.push_back("two frame headers");
                return;
            }
            haveFrame = true;
            const auto precision = in.ReadU8();
            const auto height = in.ReadU16BE();
            const auto width = in.ReadU16BE();
            const auto count = in.ReadU8();
            if (!precision.ok() || !height.ok() || !width.ok() || !count.ok()) {
                reasons.push_back("damaged frame header");
                return;
            }
            check.width = *width;
            check.height = *height;
            for (int i = 0; i < *count; ++i) {
                const auto id = in.ReadU8();
                const auto sampling = in.ReadU8();
                const auto table = in.ReadU8();
                if (!id.ok() || !sampling.ok() || !table.ok()) {
                    reasons.push_back("damaged frame header");
                    return;
                }
                frame.push_back({*id, *sampling >> 4, *sampling & 15, *table});
            }
            if (*precision != 8)
                reasons.push_back(StrCat(int{*precision}, "-bit samples"));
            if (check.width == 0 || check.height == 0 ||
                std::int64_t{check.width} * check.height > kMaxPhotoPixels) {
                reasons.push_back(StrCat("frame of ", check.width, "x", check.height));
                return;
            }
        } else if (code == 0xC4) {
            while (in.Remaining() > 0) {
                const auto classAndTable = in.ReadU8();
                const auto counts = in.ReadBytes(16);
                if (!classAndTable.ok() || !counts.ok()) {
                    reasons.push_back("damaged Huffman table");
                    return;
                }
                std::size_t symbols = 0;
                for (std::uint8_t n : *counts)
                    symbols += n;
                const int tableClass = *classAndTable >> 4, table = *classAndTable & 15;
                if (tableClass > 1 || table > 1 || symbols > 256 || !in.Skip(symbols).ok()) {
                    reasons.push_back("damaged or non-baseline Huffman table");
                    return;
                }
                huffmanDefined[static_cast<std::size_t>(tableClass * 2 + table)] = true;
            }
        } else if (code == 0xDB) {
            while (in.Remaining() > 0) {
                const auto precisionAndTable = in.ReadU8();
                if (!precisionAndTable.ok() || (*precisionAndTable & 15) > 3) {
                    reasons.push_back("damaged quantisation table");
                    return;
                }
                if (*precisionAndTable >> 4 != 0) {
                    reasons.push_back("16-bit quantisation table");
                    return;
                }
                if (!in.Skip(64).ok()) {
                    reasons.push_back("damaged quantisation table");
                    return;
                }
                quantDefined[*precisionAndTable & 15] = true;
            }
        } else if (code == 0xEE) {
            // Adobe's segment: a colour transform of 0 says the three components are RGB, not YCbCr.
            const auto head = in.ReadBytes(12);
            if (head.ok() && std::equal(head->begin(), head->begin() + 5, "Adobe") && (*head)[11] == 0)
                adobeRgb = true;
        } else if (code == 0xDA) {
            if (!haveFrame) {
                reasons.push_back("scan before a baseline frame header");
                return;
            }
            if (++scans > 1) {
                reasons.push_back("more than one scan");
                return;
            }
            // A photo of another component count gets its reason below; its scan is not read.
            const auto count = in.ReadU8();
            if (frame.size() == 3 && (!count.ok() || *count != 3)) {
                reasons.push_back("scan of some components only");
                return;
            }
            std::array<bool, 3> named{};
            for (int i = 0; frame.size() == 3 && i < 3; ++i) {
                const auto selector = in.ReadU8();
                const auto tables = in.ReadU8();
                if (!selector.ok() || !tables.ok()) {
                    reasons.push_back("damaged scan header");
                    return;
                }
                std::optional<std::size_t> found;
                for (std::size_t c = 0; c < frame.size() && !found; ++c)
                    if (frame[c].id == *selector)
                        found = c;
                const int dc = *tables >> 4, ac = *tables & 15;
                if (!found || named[*found] || dc > 1 || ac > 1 ||
                    !huffmanDefined[static_cast<std::size_t>(dc)] ||
                    !huffmanDefined[static_cast<std::size_t>(2 + ac)] || frame[*found].quantTable > 3 ||
                    !quantDefined[static_cast<std::size_t>(frame[*found].quantTable)]) {
                    reasons.push_back("scan names a component or table that is not defined");
                    return;
                }
                named[*found] = true;
            }
            if (scanStart != nullptr)
                *scanStart = pos;
            // The scan data run to the next marker that is neither a stuffed byte nor a restart marker.
            std::size_t q = pos + 2 + length;
            for (; q + 1 < bytes.size(); ++q) {
                if (bytes[q] != 0xFF)
                    continue;
                const unsigned next = bytes[q + 1];
                if (next == 0x00) {
                    if ((q + 1) % kChunk == 0)
                        check.pairOnChunkEdge = true;
                    if (pairs != nullptr)
                        pairs->push_back(q);
                    ++q;
                } else if (next < 0xD0 || next > 0xD7) {
                    break;
                }
            }
            pos = q;
            continue;
        }
        pos += 2 + length;
    }
    if (!haveFrame) {
        reasons.push_back("no baseline frame header");
        return;
    }
    if (scans == 0)
        reasons.push_back("no scan");
    if (frame.size() == 1) {
        reasons.push_back("greyscale");
    } else if (frame.size() == 4) {
        reasons.push_back("CMYK");
    } else if (frame.size() != 3) {
        reasons.push_back(StrCat(frame.size(), " components"));
    } else if (adobeRgb || (frame[0].id == 'R' && frame[1].id == 'G' && frame[2].id == 'B')) {
        reasons.push_back("RGB");
    } else {
        const FrameComponent& luma = frame[0];
        const bool chromaFull = frame[1].h == 1 && frame[1].v == 1 && frame[2].h == 1 && frame[2].v == 1;
        if (!chromaFull || luma.h < 1 || luma.h > 2 || luma.v < 1 || luma.v > 2)
            reasons.push_back(StrCat("sampling ", luma.h, "x", luma.v, ",", frame[1].h, "x", frame[1].v, ",",
                                     frame[2].h, "x", frame[2].v));
        else if (luma.h == 2 && ((check.width + 7) / 8) % 2 == 1)
            reasons.push_back(StrCat(SamplingName(luma.h, luma.v), " at width ", check.width));
    }
    check.exifOrientation = platform::ExifOrientation(bytes);
    if (check.exifOrientation != 1)
        reasons.push_back(StrCat("EXIF orientation ", check.exifOrientation));
}

} // namespace

PlayerPhotoCheck CheckPlayerPhoto(std::span<const std::uint8_t> bytes)
{
    PlayerPhotoCheck check;
    Walk(bytes, check, nullptr, nullptr);
    return check;
}

std::vector<std::uint8_t> MoveScanOffChunkEdges(std::span<const std::uint8_t> bytes)
{
    if (bytes.size() < 2 || bytes[0] != 0xFF || bytes[1] != 0xD8)
        return {};
    PlayerPhotoCheck check;
    std::vector<std::size_t> pairs;
    std::size_t scanStart = 0;
    Walk(bytes, check, &pairs, &scanStart);
    if (!check.pairOnChunkEdge)
        return {bytes.begin(), bytes.end()};
    // A comment segment just before the scan moves it; it is 4 to 65537 bytes long. Each pair rules
    // out one size modulo the chunk, so one of the sizes is free unless a scan has 65534 pairs.
    for (std::size_t shift = 4; shift <= 65537; ++shift) {
        bool clear = true;
        for (std::size_t q = 0; q < pairs.size() && clear; ++q)
            clear = (pairs[q] + shift + 1) % kChunk != 0;
        if (!clear)
            continue;
        std::vector<std::uint8_t> out(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(scanStart));
        out.reserve(bytes.size() + shift);
        out.push_back(0xFF);
        out.push_back(0xFE);
        out.push_back(static_cast<std::uint8_t>((shift - 2) >> 8));
        out.push_back(static_cast<std::uint8_t>(shift - 2));
        out.resize(scanStart + shift, 0);
        out.insert(out.end(), bytes.begin() + static_cast<std::ptrdiff_t>(scanStart), bytes.end());
        return out;
    }
    return {bytes.begin(), bytes.end()};
}

} // namespace lumenar::codec
