#include "sources/rgb_frame.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace fleifeisa::host {

std::pair<int, int> fittedSize(int width, int height, int longest) {
    const int longer = std::max(width, height);
    if (longer <= longest) return {width, height};
    const auto scaled = [&](int side) { return std::max(2, (side * longest / longer + 1) / 2 * 2); };
    return {scaled(width), scaled(height)};
}

RgbFrame toRgbFrame(RawFrame& frame, const SourceOptions& options, std::vector<std::uint8_t>& spare) {
    RgbFrame result{frame.layout.width, frame.layout.height, {}};
    if (frame.layout.format.name == "rgb24") {
        result.rgb = std::exchange(frame.bytes, {});
    } else {
        result.rgb = std::exchange(spare, {});
        result.rgb.resize(static_cast<std::size_t>(result.width) * static_cast<std::size_t>(result.height) * 3);
        toRgb(frame.layout, frame.bytes, result.rgb);
    }
    ShownPart part;
    if (options.region) {
        const Region& cut = *options.region;
        const auto share = [](int pixels, int all) { return static_cast<double>(pixels) / all; };
        part = {share(cut.left, result.width), share(cut.top, result.height), share(cut.width, result.width),
                share(cut.height, result.height)};
        result = {cut.width, cut.height, crop(result.rgb, result.width, cut)};
    }
    int width = options.width, height = options.height;
    if (width == 0 && options.longest_side > 0)
        std::tie(width, height) = fittedSize(result.width, result.height, options.longest_side);
    if (width > 0 && (width != result.width || height != result.height))
        result = {width, height, resize(result.rgb, result.width, result.height, width, height)};
    paintMasks(options.masks, part, result.width, result.height, result.rgb);
    return result;
}

}  // namespace fleifeisa::host
