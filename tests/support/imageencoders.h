// JPEG and PNG files in memory, as a camera or an editor would write them.
#pragma once

#ifdef FLEIFEISA_HAVE_JPEG
#include <cstdio>
// Behind cstdio, which it needs.
#include <jpeglib.h>
#endif
#ifdef FLEIFEISA_HAVE_PNG
#include <png.h>
#endif

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#ifdef FLEIFEISA_HAVE_JPEG
// `sample` gives channel k of the pixel at row r, column c.
inline std::string encodeJpeg(int width, int height, int channels, J_COLOR_SPACE space, bool progressive,
                              const std::function<int(int r, int c, int k)>& sample) {
    jpeg_compress_struct info;
    jpeg_error_mgr errors;
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&info, &bytes, &size);
    info.image_width = static_cast<JDIMENSION>(width);
    info.image_height = static_cast<JDIMENSION>(height);
    info.input_components = channels;
    info.in_color_space = space;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, 90, TRUE);
    if (progressive) jpeg_simple_progression(&info);
    jpeg_start_compress(&info, TRUE);
    std::vector<unsigned char> row(static_cast<std::size_t>(width * channels));
    for (int r = 0; r < height; r++) {
        for (int i = 0; i < width * channels; i++)
            row[static_cast<std::size_t>(i)] = static_cast<unsigned char>(sample(r, i / channels, i % channels));
        JSAMPROW rows = row.data();
        jpeg_write_scanlines(&info, &rows, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    const std::string result(reinterpret_cast<char*>(bytes), size);
    std::free(bytes);
    return result;
}
#endif

#ifdef FLEIFEISA_HAVE_PNG
// `rows` are the packed rows of the file, as many as the height.
inline std::string encodePng(int width, int bits, int type, bool interlaced, const std::vector<std::string>& rows,
                             const std::vector<png_color>& palette = {}) {
    std::string file;
    png_structp png =
        png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, [](png_structp, png_const_charp) {});
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(
        png, &file,
        [](png_structp p, png_bytep bytes, png_size_t n) {
            static_cast<std::string*>(png_get_io_ptr(p))->append(reinterpret_cast<char*>(bytes), n);
        },
        [](png_structp) {});
    png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(rows.size()), bits, type,
                 interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (!palette.empty()) png_set_PLTE(png, info, palette.data(), static_cast<int>(palette.size()));
    png_set_benign_errors(png, 1);  // lets a colour number outside the palette through
    png_write_info(png, info);
    std::vector<png_bytep> pointers;
    for (const std::string& row : rows)
        pointers.push_back(const_cast<png_bytep>(reinterpret_cast<const unsigned char*>(row.data())));
    png_write_image(png, pointers.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return file;
}
#endif
