#include "sources/rgb_frame.h"

#include <algorithm>
#include <utility>

namespace fleifeisa::host {

RgbFrame toRgbFrame(RawFrame& frame, const SourceOptions& options, std::vector<std::uint8_t>& spare) {
    RgbFrame result{frame.layout.width, frame.layout.height, {}};
    if (frame.layout.format.name == "rgb24") {
        result.rgb = std::exchange(frame.bytes, {});
    } else {
        result.rgb = std::exchange(spare, {});
        result.rgb.resize(static_cast<std::size_t>(result.width) * static_cast<std::size_t>(result.height) * 3);
        toRgb(frame.layout, frame.bytes, result.rgb);
    }
    if (options.region) {
        Region cut = *options.region;
        cut.left = std::min(cut.left, result.width - 1);
        cut.top = std::min(cut.top, result.height - 1);
        cut.width = std::min(cut.width, result.width - cut.left);
        cut.height = std::min(cut.height, result.height - cut.top);
        result = {cut.width, cut.height, crop(result.rgb, result.width, cut)};
    }
    if (options.width > 0 && (options.width != result.width || options.height != result.height))
        result = {options.width, options.height,
                  resize(result.rgb, result.width, result.height, options.width, options.height)};
    return result;
}

}  // namespace fleifeisa::host
