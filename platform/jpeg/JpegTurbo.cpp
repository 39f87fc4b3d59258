// JPEG decoding and encoding through libjpeg-turbo. The library reports errors by calling error_exit,
// which must not return: it long-jumps back to the function that started the work. Only C frames lie
// between, and everything the work allocates hangs off a heap object made before the jump point, so
// the jump skips no destructor and leaves no local in doubt.
#include "platform/ImageFile.h"

#include "base/StrCat.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include <jpeglib.h>

namespace lumenar::platform {

namespace {

struct ErrorTrap
{
    jpeg_error_mgr manager;
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

extern "C" void TrapError(j_common_ptr info)
{
    ErrorTrap* trap = reinterpret_cast<ErrorTrap*>(info->err);
    (*info->err->format_message)(info, trap->message);
    std::longjmp(trap->jump, 1);
}

// Warnings (a corrupt-data note on a photo that still decodes) are not failures.
extern "C" void IgnoreMessage(j_common_ptr, int)
{
}

struct DecodeWork
{
    ErrorTrap trap;
    jpeg_decompress_struct info;
    bool created = false;
    DecodedImage image;
    std::vector<std::uint8_t> row;
    ~DecodeWork()
    {
        if (created)
            jpeg_destroy_decompress(&info);
    }
};

struct EncodeWork
{
    ErrorTrap trap;
    jpeg_compress_struct info;
    bool created = false;
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    ~EncodeWork()
    {
        if (created)
            jpeg_destroy_compress(&info);
        std::free(buffer); // Allocated by jpeg_mem_dest with malloc.
    }
};

void SetTrap(ErrorTrap& trap)
{
    jpeg_std_error(&trap.manager);
    trap.manager.error_exit = &TrapError;
    trap.manager.emit_message = &IgnoreMessage;
    trap.message[0] = '\0';
}

// CMYK as Adobe's programs store it is inverted (0 is full ink); the others store it plainly.
void CmykToBgrx(const std::uint8_t* cmyk, std::uint8_t* bgrx, int width, bool inverted)
{
    for (int x = 0; x < width; ++x, cmyk += 4, bgrx += 4) {
        const unsigned k = inverted ? cmyk[3] : 255u - cmyk[3];
        for (int c = 0; c < 3; ++c) {
            const unsigned ink = inverted ? cmyk[c] : 255u - cmyk[c];
            bgrx[2 - c] = static_cast<std::uint8_t>((ink * k + 127) / 255);
        }
        bgrx[3] = 0;
    }
}

} // namespace

namespace detail {

base::Result<DecodedImage> DecodeJpeg(std::span<const std::uint8_t> bytes)
{
    auto work = std::make_unique<DecodeWork>();
    SetTrap(work->trap);
    work->info.err = &work->trap.manager;
    if (setjmp(work->trap.jump) != 0)
        return base::Error{base::ErrorCode::BadData, base::StrCat("damaged JPEG (", work->trap.message, ")")};
    jpeg_create_decompress(&work->info);
    work->created = true;
    jpeg_mem_src(&work->info, bytes.data(), static_cast<unsigned long>(bytes.size()));
    jpeg_read_header(&work->info, TRUE);
    const std::int64_t pixels = std::int64_t{work->info.image_width} * work->info.image_height;
    if (pixels == 0 || pixels > kMaxImageFilePixels)
        return base::Error{base::ErrorCode::TooLarge,
                           base::StrCat("JPEG picture of ", work->info.image_width, "x",
                                        work->info.image_height, " is too large")};
    const bool cmyk = work->info.jpeg_color_space == JCS_CMYK || work->info.jpeg_color_space == JCS_YCCK;
    work->info.out_color_space = cmyk ? JCS_CMYK : JCS_EXT_BGRX;
    jpeg_start_decompress(&work->info);
    BgrxPicture& picture = work->image.picture;
    picture.width = static_cast<int>(work->info.output_width);
    picture.height = static_cast<int>(work->info.output_height);
    const std::size_t stride = static_cast<std::size_t>(picture.width) * 4;
    picture.pixels.resize(stride * static_cast<std::size_t>(picture.height));
    work->row.resize(stride);
    while (work->info.output_scanline < work->info.output_height) {
        // Rows come top first; the picture keeps them bottom first.
        std::uint8_t* out =
            picture.pixels.data() + stride * (picture.height - 1 - work->info.output_scanline);
        JSAMPROW target = cmyk ? work->row.data() : out;
        jpeg_read_scanlines(&work->info, &target, 1);
        if (cmyk)
            CmykToBgrx(work->row.data(), out, picture.width, work->info.saw_Adobe_marker != 0);
    }
    jpeg_finish_decompress(&work->info);
    if (!cmyk)
        for (std::size_t i = 3; i < picture.pixels.size(); i += 4)
            picture.pixels[i] = 0;
    return std::move(work->image);
}

} // namespace detail

base::Result<std::vector<std::uint8_t>> EncodeBaselineJpeg(const BgrxPicture& picture, int quality,
                                                           JpegChroma chroma)
{
    if (picture.width <= 0 || picture.height <= 0 || picture.width > JPEG_MAX_DIMENSION ||
        picture.height > JPEG_MAX_DIMENSION ||
        picture.pixels.size() !=
            static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height) * 4)
        return base::Error{base::ErrorCode::InvalidInput, base::StrCat("a picture of ", picture.width, "x",
                                                                       picture.height, " cannot be a JPEG")};
    auto work = std::make_unique<EncodeWork>();
    SetTrap(work->trap);
    work->info.err = &work->trap.manager;
    if (setjmp(work->trap.jump) != 0)
        return base::Error{base::ErrorCode::Io,
                           base::StrCat("the JPEG encoder failed (", work->trap.message, ")")};
    jpeg_create_compress(&work->info);
    work->created = true;
    jpeg_mem_dest(&work->info, &work->buffer, &work->size);
    work->info.image_width = static_cast<JDIMENSION>(picture.width);
    work->info.image_height = static_cast<JDIMENSION>(picture.height);
    work->info.input_components = 4;
    work->info.in_color_space = JCS_EXT_BGRX;
    jpeg_set_defaults(&work->info);
    jpeg_set_colorspace(&work->info, JCS_YCbCr);
    jpeg_set_quality(&work->info, quality, TRUE);
    const int luma = chroma == JpegChroma::Halved ? 2 : 1;
    work->info.comp_info[0].h_samp_factor = luma;
    work->info.comp_info[0].v_samp_factor = luma;
    for (int c = 1; c < 3; ++c) {
        work->info.comp_info[c].h_samp_factor = 1;
        work->info.comp_info[c].v_samp_factor = 1;
    }
    work->info.optimize_coding = FALSE;
    work->info.restart_interval = 0;
    jpeg_start_compress(&work->info, TRUE);
    const std::size_t stride = static_cast<std::size_t>(picture.width) * 4;
    while (work->info.next_scanline < work->info.image_height) {
        // The library only reads the row; its prototype predates const.
        auto* row = const_cast<std::uint8_t*>(picture.pixels.data() +
                                              stride * (picture.height - 1 - work->info.next_scanline));
        JSAMPROW rows[1] = {row};
        jpeg_write_scanlines(&work->info, rows, 1);
    }
    jpeg_finish_compress(&work->info);
    return std::vector<std::uint8_t>(work->buffer, work->buffer + work->size);
}

} // namespace lumenar::platform
