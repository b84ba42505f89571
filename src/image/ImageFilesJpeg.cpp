// JPEG files through libjpeg-turbo.
//
// Same bytes on every processor: the accurate integer transform, whose vector code the library keeps equal to its
// scalar code bit for bit, as it does for the interpolation of the colour channels; no smoothing between blocks.
#ifdef FLEIFEISA_HAVE_JPEG

#include <csetjmp>
#include <cstdio>

// Behind cstdio, which it needs.
#include <jpeglib.h>

// Behind jpeglib.h.
#include <jerror.h>

#include "image/imageformats.h"

namespace {

// A file in steps of more than this is not a picture but an attack on the decoder's time.
constexpr int kMaxScans = 64;
// Files in several steps are kept as coefficients: two bytes for each of up to three channels, and some rows.
constexpr long kMaxDecoderMemory = 2 * kMaxImageBytes + (64L << 20);

// Everything that must survive the library's way out of an error, a longjmp: nothing here has a destructor.
struct Decoder {
    jpeg_decompress_struct info;
    jpeg_error_mgr errors;
    jpeg_progress_mgr progress;
    std::jmp_buf out;
    char message[JMSG_LENGTH_MAX];
    const char* refusal;  // ours, null where it is the library's message
    unsigned char* pixels;
};

Decoder& Of(j_common_ptr info) {
    return *static_cast<Decoder*>(info->client_data);
}

[[noreturn]] void OnError(j_common_ptr info) {
    Decoder& decoder = Of(info);
    info->err->format_message(info, decoder.message);
    std::longjmp(decoder.out, 1);
}

[[noreturn]] void Give(Decoder& decoder, const char* refusal) {
    decoder.refusal = refusal;
    std::longjmp(decoder.out, 1);
}

// Warnings (level below 0) tell of data that are missing or wrong and that the library would fill in. The two
// exceptions concern remarks in the header, not the picture.
void OnMessage(j_common_ptr info, int level) {
    const int code = info->err->msg_code;
    if (level < 0 && code != JWRN_ADOBE_XFORM && code != JWRN_JFIF_MAJOR) OnError(info);
}

void OnProgress(j_common_ptr info) {
    Decoder& decoder = Of(info);
    if (decoder.info.input_scan_number > kMaxScans) Give(decoder, "it is coded in too many steps");
}

// The coding spends at least one bit on each block of 8x8 samples, so a file that is too short for its blocks is
// refused before room is made for them.
bool CoversItsBlocks(const jpeg_decompress_struct& info, std::size_t bytes) {
    std::uint64_t blocks = 0;
    for (int i = 0; i < info.num_components; i++)
        blocks += std::uint64_t{info.comp_info[i].width_in_blocks} * info.comp_info[i].height_in_blocks;
    return blocks / 8 <= bytes;
}

const char* CheckHeader(const jpeg_decompress_struct& info, std::size_t bytes) {
    if (info.jpeg_color_space == JCS_CMYK || info.jpeg_color_space == JCS_YCCK)
        return "it is a CMYK JPEG; only grey and colour (YCbCr, RGB) are read";
    if (info.jpeg_color_space == JCS_UNKNOWN) return "its colour space is unknown";
    if (info.arith_code) return "it is an arithmetically coded JPEG, which is not read";
    return CoversItsBlocks(info, bytes) ? nullptr : "it is too short for its pixels";
}

void Open(Decoder& decoder, FileBytes bytes) {
    decoder.info.err = jpeg_std_error(&decoder.errors);
    decoder.errors.error_exit = OnError;
    decoder.errors.emit_message = OnMessage;
    decoder.info.client_data = &decoder;
    jpeg_create_decompress(&decoder.info);  // keeps err and client_data
    decoder.progress.progress_monitor = OnProgress;
    decoder.info.progress = &decoder.progress;
    decoder.info.mem->max_memory_to_use = kMaxDecoderMemory;
    jpeg_mem_src(&decoder.info, bytes.data(), static_cast<unsigned long>(bytes.size()));
}

// Whether the file has coded data for each of its channels; the library would show a missing one as flat.
bool EveryChannelCame(const jpeg_decompress_struct& info) {
    for (int i = 0; i < info.num_components; i++)
        if (info.comp_info[i].quant_table == nullptr) return false;  // set by a channel's first data
    return true;
}

void ReadRows(Decoder& decoder) {
    jpeg_decompress_struct& info = decoder.info;
    info.out_color_space = JCS_RGB;  // grey fills all three
    info.dct_method = JDCT_ISLOW;
    info.do_fancy_upsampling = TRUE;
    info.do_block_smoothing = FALSE;
    jpeg_start_decompress(&info);
    if (!EveryChannelCame(info)) Give(decoder, "it is damaged: one of its channels is missing");
    const std::size_t stride = std::size_t{info.output_width} * 3;
    while (info.output_scanline < info.output_height) {
        JSAMPROW row = decoder.pixels + info.output_scanline * stride;
        jpeg_read_scanlines(&info, &row, 1);
    }
    jpeg_finish_decompress(&info);  // also reads the end mark
}

// Whether decoder.pixels hold the whole image.
bool Run(Decoder& decoder, FileBytes bytes, std::string& error) {
    if (setjmp(decoder.out) != 0) return false;
    Open(decoder, bytes);
    jpeg_read_header(&decoder.info, TRUE);
    if (!SizeAllowed(decoder.info.image_width, decoder.info.image_height, error)) return false;
    decoder.refusal = CheckHeader(decoder.info, bytes.size());
    if (decoder.refusal != nullptr) return false;
    decoder.pixels =
        AllocatePixels(static_cast<int>(decoder.info.image_width), static_cast<int>(decoder.info.image_height))
            .release();
    if (decoder.pixels == nullptr) Give(decoder, "there is not enough memory for it");
    ReadRows(decoder);
    return true;
}

}  // namespace

LoadedImage LoadJpeg(FileBytes bytes) {
    Decoder decoder{};
    std::string error;
    const bool whole = Run(decoder, bytes, error);
    Pixels pixels(decoder.pixels);
    const LoadedImage size{nullptr, static_cast<int>(decoder.info.image_width),
                           static_cast<int>(decoder.info.image_height), ""};
    jpeg_destroy_decompress(&decoder.info);
    if (!error.empty()) return Refuse(error);
    if (decoder.refusal != nullptr) return Refuse(decoder.refusal);
    if (!whole) return Refuse(std::string("it is damaged or ends early: ") + decoder.message);
    LoadedImage image = size;
    image.pixels = pixels.release();
    return image;
}

#define FLEIFEISA_TEXT_OF(version) #version
#define FLEIFEISA_TEXT(version) FLEIFEISA_TEXT_OF(version)

std::string JpegLibrary() {
    return "libjpeg-turbo " FLEIFEISA_TEXT(LIBJPEG_TURBO_VERSION);
}

#else

#include "image/imageformats.h"

LoadedImage LoadJpeg(FileBytes) {
    return Refuse("it is a JPEG file, and this build reads " + ImageFormatsBuiltIn() + " only");
}
std::string JpegLibrary() {
    return "";
}

#endif
