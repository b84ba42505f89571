// What an analyzer is given of a source's frame.
#pragma once

#include <utility>

#include "sources/source.h"

namespace fleifeisa::host {

/// A picture as the analyzer takes it.
struct RgbFrame {
    int width = 0, height = 0;      ///< pixels
    std::vector<std::uint8_t> rgb;  ///< width * height * 3 bytes, rows from the top, R G B interleaved
};

/// Size to which a picture of this size is scaled: its proportions, no side above `longest`, both even. Smaller ones
/// stay as they are.
std::pair<int, int> fittedSize(int width, int height, int longest);

/// Converts a frame to RGB, cuts the region out, scales and paints the masks, as the options say. A region lies inside
/// the frame: openSource() lets no other pass.
/// The frame's bytes are moved on where they are RGB already, and left for another frame where not; then `spare`
/// gives its memory to the picture.
RgbFrame toRgbFrame(RawFrame& frame, const SourceOptions& options, std::vector<std::uint8_t>& spare);
/// The same in its two steps. Width and height are those of the frame, before region and size.
RgbFrame toUnmaskedFrame(RawFrame& frame, const SourceOptions& options, std::vector<std::uint8_t>& spare);
void maskFrame(RgbFrame& picture, const SourceOptions& options, int width, int height);

}  // namespace fleifeisa::host
