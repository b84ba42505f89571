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

namespace {

/// What a frame of this size shows of it.
ShownPart shownPart(const SourceOptions& options, int width, int height) {
    if (!options.region) return {};
    const Region& cut = *options.region;
    const auto share = [](int pixels, int all) { return static_cast<double>(pixels) / all; };
    return {share(cut.left, width), share(cut.top, height), share(cut.width, width), share(cut.height, height)};
}

}  // namespace

RgbFrame toRgbFrame(RawFrame& frame, const SourceOptions& options, std::vector<std::uint8_t>& spare) {
    RgbFrame result = toUnmaskedFrame(frame, options, spare);
    maskFrame(result, options, frame.layout.width, frame.layout.height);
    return result;
}

RgbFrame toUnmaskedFrame(RawFrame& frame, const SourceOptions& options, std::vector<std::uint8_t>& spare) {
    RgbFrame result{frame.layout.width, frame.layout.height, {}};
    if (frame.layout.format.name == "rgb24") {
        result.rgb = std::exchange(frame.bytes, {});
    } else {
        result.rgb = std::exchange(spare, {});
        result.rgb.resize(static_cast<std::size_t>(result.width) * static_cast<std::size_t>(result.height) * 3);
        toRgb(frame.layout, frame.bytes, result.rgb);
    }
    if (options.region) {
        const Region& cut = *options.region;
        result = {cut.width, cut.height, crop(result.rgb, result.width, cut)};
    }
    const ShownPart part = shownPart(options, frame.layout.width, frame.layout.height);
    paintPrivate(options.private_areas, part, result.width, result.height, result.rgb);
    int width = options.width, height = options.height;
    if (width == 0 && options.longest_side > 0)
        std::tie(width, height) = fittedSize(result.width, result.height, options.longest_side);
    if (width > 0 && (width != result.width || height != result.height))
        result = {width, height, resize(result.rgb, result.width, result.height, width, height)};
    return result;
}

void maskFrame(RgbFrame& picture, const SourceOptions& options, int width, int height) {
    paintMasks(options.masks, shownPart(options, width, height), picture.width, picture.height, picture.rgb);
}

}  // namespace fleifeisa::host
