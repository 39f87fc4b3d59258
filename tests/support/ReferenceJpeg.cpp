#include "tests/support/ReferenceJpeg.h"

#include <csetjmp>
#include <cstdio>
#include <jpeglib.h>

namespace lumenar::testing {

namespace {

struct ErrorManager
{
    jpeg_error_mgr base;
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

void OnError(j_common_ptr info)
{
    auto* manager = reinterpret_cast<ErrorManager*>(info->err);
    (*info->err->format_message)(info, manager->message);
    std::longjmp(manager->jump, 1);
}

void Silent(j_common_ptr, int)
{
}

bool Decode(std::span<const std::uint8_t> jpeg, ReferencePicture& out, std::string* error,
            ReferenceColours colours)
{
    jpeg_decompress_struct info{};
    ErrorManager manager{};
    info.err = jpeg_std_error(&manager.base);
    manager.base.error_exit = OnError;
    manager.base.emit_message = Silent;
    if (setjmp(manager.jump) != 0) {
        if (error != nullptr)
            *error = manager.message;
        jpeg_destroy_decompress(&info);
        return false;
    }
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, jpeg.data(), static_cast<unsigned long>(jpeg.size()));
    jpeg_read_header(&info, TRUE);
    info.dct_method = JDCT_IFAST;
    info.do_fancy_upsampling = FALSE;
    info.out_color_space = colours == ReferenceColours::Bgrx ? JCS_EXT_BGRX : JCS_YCbCr;
    jpeg_start_decompress(&info);
    out.width = static_cast<int>(info.output_width);
    out.height = static_cast<int>(info.output_height);
    const std::size_t rowBytes =
        static_cast<std::size_t>(out.width) * (colours == ReferenceColours::Bgrx ? 4 : 3);
    out.bgrx.resize(rowBytes * static_cast<std::size_t>(out.height));
    while (info.output_scanline < info.output_height) {
        JSAMPROW row = out.bgrx.data() + rowBytes * info.output_scanline;
        jpeg_read_scanlines(&info, &row, 1);
    }
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
    return true;
}

} // namespace

std::optional<ReferencePicture> DecodeWithLibjpeg(std::span<const std::uint8_t> jpeg, std::string* error,
                                                  ReferenceColours colours)
{
    ReferencePicture picture;
    if (!Decode(jpeg, picture, error, colours))
        return std::nullopt;
    return picture;
}

bool DecodeWithLibjpegInto(std::span<const std::uint8_t> jpeg, std::vector<std::uint8_t>& bgrx)
{
    ReferencePicture picture;
    picture.bgrx = std::move(bgrx);
    const bool ok = Decode(jpeg, picture, nullptr, ReferenceColours::Bgrx);
    bgrx = std::move(picture.bgrx);
    return ok;
}

} // namespace lumenar::testing
