// Image files of every format: a whole image or a refusal, and memory in proportion to the file.
#include <cstdint>
#include <cstdlib>

#include "fuzz/bytes.h"
#include "image/ImageFiles.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const LoadedImage image = LoadImageBytes({data, size});
    FUZZ_CHECK((image.pixels != nullptr) == image.error.empty(), "an image or an error");
    FUZZ_CHECK(image.error.find('\n') == std::string::npos, "one line");
    if (image.pixels != nullptr) {
        const std::uint64_t bytes = std::uint64_t(image.width) * std::uint64_t(image.height) * 3;
        FUZZ_CHECK(image.width > 0 && image.height > 0 && bytes <= std::uint64_t(kMaxImageBytes), "an allowed size");
        FUZZ_CHECK(bytes <= (size + 1) * 1032 * 24, "a file long enough for its pixels");  // one PNG bit a pixel
        volatile unsigned char last = 0;
        for (std::uint64_t i = 0; i < bytes; i++) last = image.pixels[i];  // the sanitizers see whether it is there
        (void)last;
    }
    std::free(image.pixels);
    return 0;
}
