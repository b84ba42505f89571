#include "report/picture.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
// needs <cstdio> before it
#include <jpeglib.h>

#include <algorithm>

#include "outputs/output.h"

namespace fleifeisa::host {
namespace {

struct JpegErrors {
    jpeg_error_mgr manager;
    std::jmp_buf back;
};

/// libjpeg's own handler would end the process.
[[noreturn]] void leaveLibrary(j_common_ptr common) {
    std::longjmp(reinterpret_cast<JpegErrors*>(common->err)->back, 1);
}

/// No object with a destructor may live in here: errors leave it by longjmp. `bytes` is malloc'ed by the library.
bool compress(const std::uint8_t* rgb, int width, int height, int quality, unsigned char*& bytes, unsigned long& size) {
    jpeg_compress_struct state;
    JpegErrors errors;
    state.err = jpeg_std_error(&errors.manager);
    errors.manager.error_exit = leaveLibrary;
    if (setjmp(errors.back)) {
        jpeg_destroy_compress(&state);
        return false;
    }
    jpeg_create_compress(&state);
    jpeg_mem_dest(&state, &bytes, &size);
    state.image_width = static_cast<JDIMENSION>(width);
    state.image_height = static_cast<JDIMENSION>(height);
    state.input_components = 3;
    state.in_color_space = JCS_RGB;
    jpeg_set_defaults(&state);
    jpeg_set_quality(&state, quality, TRUE);
    state.dct_method = JDCT_ISLOW;  // the one whose vector code gives the same bits
    state.optimize_coding = TRUE;
    jpeg_start_compress(&state, TRUE);
    while (state.next_scanline < state.image_height) {
        const auto* row = rgb + static_cast<std::size_t>(state.next_scanline) * static_cast<std::size_t>(width) * 3;
        JSAMPROW rows[] = {const_cast<JSAMPROW>(row)};  // the library only reads it
        jpeg_write_scanlines(&state, rows, 1);
    }
    jpeg_finish_compress(&state);
    jpeg_destroy_compress(&state);
    return true;
}

}  // namespace

Picture reduced(const PictureView& from, Cut cut, int max_width, int max_height) {
    const int left = std::clamp(cut.left, 0, from.width - 1), top = std::clamp(cut.top, 0, from.height - 1);
    const int width = std::clamp(cut.left + cut.width, left + 1, from.width) - left;
    const int height = std::clamp(cut.top + cut.height, top + 1, from.height) - top;
    Picture to;
    to.width = width;
    to.height = height;
    if (to.width > max_width) {
        to.height = static_cast<int>(std::int64_t{height} * max_width / width);
        to.width = max_width;
    }
    if (to.height > max_height) {
        to.width = static_cast<int>(std::int64_t{width} * max_height / height);
        to.height = max_height;
    }
    to.width = std::max(1, to.width);
    to.height = std::max(1, to.height);
    to.rgb.reserve(static_cast<std::size_t>(to.width) * static_cast<std::size_t>(to.height) * 3);
    for (int y = 0; y < to.height; ++y) {
        const int y0 = top + static_cast<int>(std::int64_t{y} * height / to.height);
        const int y1 = std::max(y0 + 1, top + static_cast<int>(std::int64_t{y + 1} * height / to.height));
        for (int x = 0; x < to.width; ++x) {
            const int x0 = left + static_cast<int>(std::int64_t{x} * width / to.width);
            const int x1 = std::max(x0 + 1, left + static_cast<int>(std::int64_t{x + 1} * width / to.width));
            std::uint64_t sum[3] = {0, 0, 0};
            for (int row = y0; row < y1; ++row) {
                const std::uint8_t* pixel =
                    &from.rgb[(static_cast<std::size_t>(row) * static_cast<std::size_t>(from.width) +
                               static_cast<std::size_t>(x0)) *
                              3];
                for (int i = 0; i < (x1 - x0) * 3; ++i) sum[i % 3] += pixel[i];
            }
            const auto count = static_cast<std::uint64_t>(x1 - x0) * static_cast<std::uint64_t>(y1 - y0);
            for (const std::uint64_t value : sum)
                to.rgb.push_back(static_cast<std::uint8_t>((value + count / 2) / count));
        }
    }
    return to;
}

std::string jpegOf(const Picture& picture, int quality) {
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    const bool good = compress(picture.rgb.data(), picture.width, picture.height, quality, bytes, size);
    std::string result;
    if (good) result.assign(reinterpret_cast<const char*>(bytes), size);
    std::free(bytes);
    if (!good) throw OutputError("a picture could not be encoded as JPEG");
    return result;
}

}  // namespace fleifeisa::host
