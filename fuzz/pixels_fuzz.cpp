// Pixel conversion, cutting and scaling: every format, size and sample value within the bounds of its memory.
#include "sources/pixels.h"

#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/bytes.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace fleifeisa::host;
    Bytes in(data, size);
    std::vector<std::string> names(1);
    for (const char c : supportedFormats())
        if (c == '|')
            names.emplace_back();
        else
            names.back() += c;
    PixelLayout layout{*findFormat(names[static_cast<std::size_t>(in.byte()) % names.size()]), in.within(1, 70),
                       in.within(1, 40)};
    layout.matrix = static_cast<Matrix>(in.within(0, 2));
    layout.full_range = in.within(0, 1) == 1;
    const int left = in.within(0, layout.width - 1), top = in.within(0, layout.height - 1);
    const Region region{left, top, in.within(1, layout.width - left), in.within(1, layout.height - top)};
    const int width = in.within(1, 90), height = in.within(1, 90);

    std::vector<std::uint8_t> frame(frameBytes(layout));
    const std::string samples = in.text(frame.size());
    for (std::size_t i = 0; i < frame.size() && !samples.empty(); ++i)
        frame[i] = static_cast<std::uint8_t>(samples[i % samples.size()]);
    std::vector<std::uint8_t> rgb(static_cast<std::size_t>(layout.width) * static_cast<std::size_t>(layout.height) * 3);
    toRgb(layout, frame, rgb);
    const auto cut = crop(rgb, layout.width, region);
    FUZZ_CHECK(cut.size() == static_cast<std::size_t>(region.width) * static_cast<std::size_t>(region.height) * 3,
               "its size");
    const auto scaled = resize(cut, region.width, region.height, width, height);
    FUZZ_CHECK(scaled.size() == static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3, "its size");
    int low = 255, high = 0;
    for (const std::uint8_t value : cut) low = value < low ? value : low, high = value > high ? value : high;
    for (const std::uint8_t value : scaled) FUZZ_CHECK(value >= low && value <= high, "a mean lies between");
    return 0;
}
