// PNG files through libpng.
//
// Samples are taken as they stand: no gamma or colour profile is applied, transparency is dropped (the colour behind
// it counts), 16 bits are reduced to the nearest of 8, fewer bits are spread over 0 .. 255.
#ifdef FLEIFEISA_HAVE_PNG

#include <png.h>

#include <cstdio>
#include <cstring>

#include "image/imageformats.h"

namespace {

// Deflate cannot pack more than 1032 bytes into one.
constexpr std::uint64_t kMaxPacking = 1032;

// Nothing here has a destructor: libpng leaves an error by a longjmp.
struct Decoder {
    png_structp png;
    png_infop info;
    const unsigned char* next;
    std::size_t left;
    char message[128];
    unsigned char* pixels;
    png_uint_32 width, height;
};

[[noreturn]] void OnError(png_structp png, png_const_charp text) {
    auto& decoder = *static_cast<Decoder*>(png_get_error_ptr(png));
    std::snprintf(decoder.message, sizeof decoder.message, "%s", text);
    png_longjmp(png, 1);
}

// Warnings concern what is not used here: remarks, profiles, dates.
void OnWarning(png_structp, png_const_charp) {}

void OnRead(png_structp png, png_bytep to, png_size_t count) {
    auto& decoder = *static_cast<Decoder*>(png_get_io_ptr(png));
    if (count > decoder.left) png_error(png, "the file ends early");
    std::memcpy(to, decoder.next, count);
    decoder.next += count;
    decoder.left -= count;
}

// Colours by number. The image's last third holds the numbers; the colours overtake them only at the last pixel.
void ResolvePalette(Decoder& decoder) {
    png_colorp palette = nullptr;
    int colours = 0;
    if (png_get_PLTE(decoder.png, decoder.info, &palette, &colours) == 0) png_error(decoder.png, "no palette");
    const std::size_t count = std::size_t{decoder.width} * decoder.height;
    unsigned char* to = decoder.pixels;
    for (const unsigned char* from = to + 2 * count; from < decoder.pixels + 3 * count; from++, to += 3) {
        const int number = *from;
        if (number >= colours) png_error(decoder.png, "a colour outside the palette");
        to[0] = palette[number].red;
        to[1] = palette[number].green;
        to[2] = palette[number].blue;
    }
}

// Has libpng deliver three bytes a pixel; one, the colour's number, where there is a palette.
void ChooseLayout(Decoder& decoder, int bits, int type) {
    if (bits == 16) png_set_scale_16(decoder.png);
    if (type == PNG_COLOR_TYPE_PALETTE) {
        png_set_packing(decoder.png);
        return;
    }
    if (type == PNG_COLOR_TYPE_GRAY && bits < 8) png_set_expand_gray_1_2_4_to_8(decoder.png);
    if ((type & PNG_COLOR_MASK_COLOR) == 0) png_set_gray_to_rgb(decoder.png);
    if ((type & PNG_COLOR_MASK_ALPHA) != 0) png_set_strip_alpha(decoder.png);
}

void ReadRows(Decoder& decoder) {
    const int type = png_get_color_type(decoder.png, decoder.info);
    ChooseLayout(decoder, png_get_bit_depth(decoder.png, decoder.info), type);
    const int passes = png_set_interlace_handling(decoder.png);
    png_read_update_info(decoder.png, decoder.info);
    const bool numbers = type == PNG_COLOR_TYPE_PALETTE;
    const std::size_t stride = std::size_t{decoder.width} * (numbers ? 1 : 3);
    if (png_get_rowbytes(decoder.png, decoder.info) != stride) png_error(decoder.png, "unexpected layout");
    unsigned char* first = decoder.pixels + (numbers ? 2 * stride * decoder.height : 0);
    for (int pass = 0; pass < passes; pass++)
        for (png_uint_32 r = 0; r < decoder.height; r++) png_read_row(decoder.png, first + r * stride, nullptr);
    png_read_end(decoder.png, nullptr);  // checks up to the end mark
    if (numbers) ResolvePalette(decoder);
}

// Whether decoder.pixels hold the whole image.
bool Run(Decoder& decoder, FileBytes bytes, std::string& error) {
    if (setjmp(png_jmpbuf(decoder.png)) != 0) return false;
    decoder.next = bytes.data();
    decoder.left = bytes.size();
    png_set_read_fn(decoder.png, &decoder, OnRead);
    png_read_info(decoder.png, decoder.info);
    decoder.width = png_get_image_width(decoder.png, decoder.info);
    decoder.height = png_get_image_height(decoder.png, decoder.info);
    if (!SizeAllowed(decoder.width, decoder.height, error)) return false;
    if (std::uint64_t{decoder.height} * png_get_rowbytes(decoder.png, decoder.info) / kMaxPacking > bytes.size())
        png_error(decoder.png, "the file is too short for its pixels");
    decoder.pixels = AllocatePixels(static_cast<int>(decoder.width), static_cast<int>(decoder.height)).release();
    if (decoder.pixels == nullptr) png_error(decoder.png, "there is not enough memory");
    ReadRows(decoder);
    return true;
}

}  // namespace

LoadedImage LoadPng(FileBytes bytes) {
    Decoder decoder{};
    decoder.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &decoder, OnError, OnWarning);
    if (decoder.png != nullptr) decoder.info = png_create_info_struct(decoder.png);
    std::string error;
    const bool whole = decoder.info != nullptr && Run(decoder, bytes, error);
    Pixels pixels(decoder.pixels);
    png_destroy_read_struct(&decoder.png, &decoder.info, nullptr);
    if (!error.empty()) return Refuse(error);
    if (!whole) return Refuse(std::string("it is damaged or ends early: ") + decoder.message);
    return LoadedImage{pixels.release(), static_cast<int>(decoder.width), static_cast<int>(decoder.height), ""};
}

std::string PngLibrary() {
    return std::string("libpng ") + png_get_libpng_ver(nullptr);
}

#else

#include "image/imageformats.h"

LoadedImage LoadPng(FileBytes) {
    return Refuse("it is a PNG file, and this build reads " + ImageFormatsBuiltIn() + " only");
}
std::string PngLibrary() {
    return "";
}

#endif
