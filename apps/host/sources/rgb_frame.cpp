#include "sources/rgb_frame.h"

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
    if (const auto& cut = options.region) result = {cut->width, cut->height, crop(result.rgb, result.width, *cut)};
    if (options.width > 0 && (options.width != result.width || options.height != result.height))
        result = {options.width, options.height,
                  resize(result.rgb, result.width, result.height, options.width, options.height)};
    return result;
}

}  // namespace fleifeisa::host
