#include "app/PictureFiles.h"

#include "codec/Photo.h"
#include "platform/CorruptPhotoPolicy.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <string>

namespace lumenar::app {

namespace {

// Row y counted from the top, as RGB triples.
void AppendRgbRow(std::vector<std::uint8_t>& out, const BottomUpBgrx& picture, int y)
{
    const std::uint8_t* row =
        picture.pixels.data() + static_cast<std::size_t>(picture.height - 1 - y) * picture.width * 4;
    for (int x = 0; x < picture.width; ++x) {
        out.push_back(row[4 * x + 2]);
        out.push_back(row[4 * x + 1]);
        out.push_back(row[4 * x + 0]);
    }
}

void PutU32BE(std::vector<std::uint8_t>& out, std::uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<std::uint8_t>(value >> shift));
}

std::uint32_t Crc32(const std::uint8_t* data, std::size_t size)
{
    static const auto table = [] {
        std::array<std::uint32_t, 256> t{};
        for (std::uint32_t n = 0; n < 256; ++n) {
            std::uint32_t c = n;
            for (int k = 0; k < 8; ++k)
                c = (c & 1u) != 0 ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            t[n] = c;
        }
        return t;
    }();
    std::uint32_t crc = 0xFFFFFFFFu;
    for (std::size_t i = 0; i < size; ++i)
        crc = table[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
    return crc ^ 0xFFFFFFFFu;
}

void PutChunk(std::vector<std::uint8_t>& out, const char* type, const std::vector<std::uint8_t>& data)
{
    PutU32BE(out, static_cast<std::uint32_t>(data.size()));
    const std::size_t start = out.size();
    out.insert(out.end(), type, type + 4);
    out.insert(out.end(), data.begin(), data.end());
    PutU32BE(out, Crc32(out.data() + start, out.size() - start));
}

} // namespace

std::vector<std::uint8_t> EncodePpm(const BottomUpBgrx& picture)
{
    const std::string head = "P6\n" + std::to_string(picture.width) + " " + std::to_string(picture.height) + "\n255\n";
    std::vector<std::uint8_t> out(head.begin(), head.end());
    out.reserve(out.size() + static_cast<std::size_t>(picture.width) * picture.height * 3);
    for (int y = 0; y < picture.height; ++y)
        AppendRgbRow(out, picture, y);
    return out;
}

std::vector<std::uint8_t> EncodePng(const BottomUpBgrx& picture)
{
    std::vector<std::uint8_t> raw;
    for (int y = 0; y < picture.height; ++y) {
        raw.push_back(0); // Filter: none.
        AppendRgbRow(raw, picture, y);
    }
    // zlib stream of stored blocks of at most 65535 bytes.
    std::vector<std::uint8_t> z{0x78, 0x01};
    std::size_t pos = 0;
    do {
        const std::size_t count = std::min<std::size_t>(65535, raw.size() - pos);
        const bool last = pos + count == raw.size();
        z.push_back(last ? 1 : 0);
        z.push_back(static_cast<std::uint8_t>(count));
        z.push_back(static_cast<std::uint8_t>(count >> 8));
        z.push_back(static_cast<std::uint8_t>(~count));
        z.push_back(static_cast<std::uint8_t>(~count >> 8));
        z.insert(z.end(), raw.begin() + static_cast<std::ptrdiff_t>(pos),
                 raw.begin() + static_cast<std::ptrdiff_t>(pos + count));
        pos += count;
    } while (pos < raw.size());
    std::uint32_t a = 1, b = 0;
    for (std::uint8_t byte : raw) {
        a = (a + byte) % 65521;
        b = (b + a) % 65521;
    }
    PutU32BE(z, b << 16 | a);

    std::vector<std::uint8_t> out{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<std::uint8_t> header;
    PutU32BE(header, static_cast<std::uint32_t>(picture.width));
    PutU32BE(header, static_cast<std::uint32_t>(picture.height));
    header.insert(header.end(), {8, 2, 0, 0, 0}); // 8-bit RGB, deflate, no filter method, no interlace.
    PutChunk(out, "IHDR", header);
    PutChunk(out, "IDAT", z);
    PutChunk(out, "IEND", {});
    return out;
}

base::Result<platform::BgrxPicture> ReadPictureFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return platform::ReadImageFile(path); // Says why the file cannot be read.
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (bytes.size() < 2 || bytes[0] != 0xFF || bytes[1] != 0xD8)
        return platform::ReadImageFile(path);
    // A damaged photo fails this command instead of ending the process.
    platform::SetCorruptPhotoAction(platform::CorruptPhotoAction::FailPhoto);
    codec::Photo photo;
    if (codec::DecodePhoto(photo, bytes) != 1 || photo.Bitmap() == nullptr || photo.Bitmap()->BitCount() == 0)
        return base::Error{base::ErrorCode::BadData, path + ": not a photo the player can decode"};
    const auto pixels = photo.Bitmap()->Pixels();
    return platform::BgrxPicture{photo.Width(), photo.Height(), std::vector<std::uint8_t>(pixels.begin(), pixels.end())};
}

} // namespace lumenar::app
