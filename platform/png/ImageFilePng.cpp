#include "platform/ImageFile.h"

#include "base/StrCat.h"
#include "platform/Path.h"

#include <png.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>

namespace lumenar::platform {

using base::Error;
using base::ErrorCode;
using base::StrCat;

namespace {

struct FileClose
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileClose>;

void Put16(std::vector<std::uint8_t>& out, std::uint32_t v)
{
    out.push_back(static_cast<std::uint8_t>(v));
    out.push_back(static_cast<std::uint8_t>(v >> 8));
}
void Put32(std::vector<std::uint8_t>& out, std::uint32_t v)
{
    Put16(out, v & 0xFFFF);
    Put16(out, v >> 16);
}
std::uint32_t Get32(const std::vector<std::uint8_t>& in, std::size_t at)
{
    return static_cast<std::uint32_t>(in[at]) | static_cast<std::uint32_t>(in[at + 1]) << 8 |
           static_cast<std::uint32_t>(in[at + 2]) << 16 | static_cast<std::uint32_t>(in[at + 3]) << 24;
}

base::Result<BgrxPicture> ReadPng(const std::string& path)
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str()))
        return Error{ErrorCode::BadData, StrCat(path, ": not a readable PNG (", image.message, ")")};
    if (static_cast<std::int64_t>(image.width) * image.height > kMaxImageFilePixels) {
        png_image_free(&image);
        return Error{ErrorCode::TooLarge,
                     StrCat(path, ": ", image.width, "x", image.height, " is too large")};
    }
    image.format = PNG_FORMAT_BGRA;
    BgrxPicture picture;
    picture.width = static_cast<int>(image.width);
    picture.height = static_cast<int>(image.height);
    picture.pixels.resize(PNG_IMAGE_SIZE(image));
    // A negative row stride stores the rows bottom-up.
    const png_int_32 stride = -static_cast<png_int_32>(PNG_IMAGE_ROW_STRIDE(image));
    if (!png_image_finish_read(&image, nullptr, picture.pixels.data(), stride, nullptr))
        return Error{ErrorCode::BadData, StrCat(path, ": damaged PNG (", image.message, ")")};
    return picture;
}

base::Result<BgrxPicture> ReadBmp(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (bytes.size() < 54 || bytes[0] != 'B' || bytes[1] != 'M')
        return Error{ErrorCode::BadData, StrCat(path, ": not a BMP file")};
    const std::uint32_t offset = Get32(bytes, 10);
    const auto width = static_cast<std::int32_t>(Get32(bytes, 18));
    const auto rawHeight = static_cast<std::int32_t>(Get32(bytes, 22));
    const int bits = bytes[28] | bytes[29] << 8;
    const std::uint32_t compression = Get32(bytes, 30);
    if ((bits != 24 && bits != 32) || (compression != 0 && compression != 3))
        return Error{ErrorCode::Unsupported,
                     StrCat(path, ": only uncompressed 24- and 32-bit BMP files are read")};
    if (width <= 0 || rawHeight == 0 || rawHeight == INT32_MIN)
        return Error{ErrorCode::BadData, StrCat(path, ": empty BMP")};
    const std::int32_t height = rawHeight < 0 ? -rawHeight : rawHeight;
    if (static_cast<std::int64_t>(width) * height > kMaxImageFilePixels)
        return Error{ErrorCode::TooLarge, StrCat(path, ": ", width, "x", height, " is too large")};
    const std::size_t rowBytes =
        (static_cast<std::size_t>(width) * static_cast<std::size_t>(bits / 8) + 3) / 4 * 4;
    if (offset > bytes.size() || rowBytes * static_cast<std::size_t>(height) > bytes.size() - offset)
        return Error{ErrorCode::Truncated, StrCat(path, ": BMP pixel data is cut short")};
    BgrxPicture picture{
        width, height,
        std::vector<std::uint8_t>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4)};
    for (std::int32_t r = 0; r < height; ++r) {
        // Rows are stored bottom-up unless the height is negative.
        const std::int32_t fileRow = rawHeight > 0 ? r : height - 1 - r;
        const std::uint8_t* row = bytes.data() + offset + rowBytes * static_cast<std::size_t>(fileRow);
        std::uint8_t* out =
            picture.pixels.data() + static_cast<std::size_t>(r) * static_cast<std::size_t>(width) * 4;
        for (std::int32_t x = 0; x < width; ++x) {
            std::memcpy(out + x * 4, row + x * (bits / 8), 3);
            out[x * 4 + 3] = 0;
        }
    }
    return picture;
}

base::Status WriteBytes(const std::string& path, const std::vector<std::uint8_t>& bytes)
{
    FilePtr file(std::fopen(path.c_str(), "wb"));
    if (!file || std::fwrite(bytes.data(), 1, bytes.size(), file.get()) != bytes.size())
        return Error{ErrorCode::Io, StrCat(path, ": cannot write (", std::strerror(errno), ")")};
    // A full disk often shows only when the last block goes out at the close.
    if (std::fclose(file.release()) != 0)
        return Error{ErrorCode::Io, StrCat(path, ": cannot write (", std::strerror(errno), ")")};
    return {};
}

base::Status WritePng(const std::string& path, const BgrxPicture& picture)
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(picture.width);
    image.height = static_cast<png_uint_32>(picture.height);
    image.format = PNG_FORMAT_BGR;
    // Drop the fourth byte: PNG gets plain RGB.
    std::vector<std::uint8_t> bgr(picture.pixels.size() / 4 * 3);
    for (std::size_t i = 0, j = 0; i < picture.pixels.size(); i += 4, j += 3)
        std::memcpy(&bgr[j], &picture.pixels[i], 3);
    const png_int_32 stride = -static_cast<png_int_32>(picture.width * 3);
    if (!png_image_write_to_file(&image, path.c_str(), 0, bgr.data(), stride, nullptr))
        return Error{ErrorCode::Io, StrCat(path, ": cannot write PNG (", image.message, ")")};
    return {};
}

base::Status WriteBmp(const std::string& path, const BgrxPicture& picture)
{
    const auto imageBytes = static_cast<std::uint32_t>(picture.pixels.size());
    std::vector<std::uint8_t> out;
    out.reserve(54 + imageBytes);
    out.push_back('B');
    out.push_back('M');
    for (std::uint32_t word : {54 + imageBytes, 0u, 54u, 40u, static_cast<std::uint32_t>(picture.width),
                               static_cast<std::uint32_t>(picture.height)})
        Put32(out, word);
    Put16(out, 1);
    Put16(out, 32);
    for (std::uint32_t word : {0u, imageBytes, 0u, 0u, 0u, 0u})
        Put32(out, word);
    out.insert(out.end(), picture.pixels.begin(), picture.pixels.end());
    return WriteBytes(path, out);
}

base::Status WritePpm(const std::string& path, const BgrxPicture& picture)
{
    const std::string header = StrCat("P6\n", picture.width, " ", picture.height, "\n255\n");
    std::vector<std::uint8_t> out(header.begin(), header.end());
    for (int r = picture.height - 1; r >= 0; --r) {
        const std::uint8_t* row =
            picture.pixels.data() + static_cast<std::size_t>(r) * static_cast<std::size_t>(picture.width) * 4;
        for (int x = 0; x < picture.width; ++x) {
            out.push_back(row[x * 4 + 2]);
            out.push_back(row[x * 4 + 1]);
            out.push_back(row[x * 4]);
        }
    }
    return WriteBytes(path, out);
}

} // namespace

base::Result<BgrxPicture> ReadImageFile(const std::string& path)
{
    std::ifstream probe(path, std::ios::binary);
    if (!probe)
        return Error{ErrorCode::NotFound, StrCat(path, ": ", std::strerror(errno))};
    char head[8] = {};
    probe.read(head, sizeof head);
    if (std::memcmp(head, "\x89PNG", 4) == 0)
        return ReadPng(path);
    if (head[0] == 'B' && head[1] == 'M')
        return ReadBmp(path);
    return Error{ErrorCode::Unsupported, StrCat(path, ": not a PNG or BMP picture")};
}

namespace detail {

base::Result<DecodedImage> DecodePng(std::span<const std::uint8_t> bytes)
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()))
        return Error{ErrorCode::BadData, StrCat("not a readable PNG (", image.message, ")")};
    if (static_cast<std::int64_t>(image.width) * image.height > kMaxImageFilePixels) {
        png_image_free(&image);
        return Error{ErrorCode::TooLarge,
                     StrCat("PNG picture of ", image.width, "x", image.height, " is too large")};
    }
    image.format = PNG_FORMAT_BGRA;
    DecodedImage decoded;
    BgrxPicture& picture = decoded.picture;
    picture.width = static_cast<int>(image.width);
    picture.height = static_cast<int>(image.height);
    picture.pixels.resize(PNG_IMAGE_SIZE(image));
    // A negative row stride stores the rows bottom-up.
    const png_int_32 stride = -static_cast<png_int_32>(PNG_IMAGE_ROW_STRIDE(image));
    if (!png_image_finish_read(&image, nullptr, picture.pixels.data(), stride, nullptr))
        return Error{ErrorCode::BadData, StrCat("damaged PNG (", image.message, ")")};
    decoded.hadAlpha = ComposeOverBlack(picture);
    return decoded;
}

} // namespace detail

base::Status WriteImageFile(const std::string& path, const BgrxPicture& picture)
{
    if (picture.width <= 0 || picture.height <= 0 ||
        picture.pixels.size() !=
            static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height) * 4)
        return Error{ErrorCode::InvalidInput, StrCat(path, ": nothing to write")};
    const std::string ext = LowerExtension(path);
    if (ext == "png")
        return WritePng(path, picture);
    if (ext == "bmp")
        return WriteBmp(path, picture);
    if (ext == "ppm")
        return WritePpm(path, picture);
    return Error{ErrorCode::Unsupported,
                 StrCat(path, ": unknown picture type '.", ext, "' (use .png, .bmp or .ppm)")};
}

} // namespace lumenar::platform
