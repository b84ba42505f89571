// Drawing on an RGB picture in whole numbers: lines, boxes and small text.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "common/palette.h"

namespace fleifeisa {

/// Draws on pixels that belong to somebody else. Whatever lies outside of the picture is clipped.
class Canvas {
 public:
    Canvas(std::span<std::uint8_t> rgb, int width, int height) : rgb_(rgb), width_(width), height_(height) {}

    /// `weight` of 256 parts of the colour over what is there.
    void fill(int left, int top, int width, int height, Rgb colour, int weight = 256);
    /// The frame of a box, `thick` pixels inwards.
    void box(int left, int top, int width, int height, Rgb colour, int thick);
    /// A line between two points, `thick` pixels wide; `dash` steps on, as many off, 0 for a solid line.
    void line(int x0, int y0, int x1, int y1, Rgb colour, int thick, int weight = 256, int dash = 0);
    /// Text in capitals, its upper left corner at (left, top), each dot `scale` pixels wide.
    void text(int left, int top, std::string_view text, Rgb colour, int scale);

    static int textWidth(std::string_view text, int scale);
    static int textHeight(int scale);

 private:
    std::span<std::uint8_t> rgb_;
    int width_, height_;
};

}  // namespace fleifeisa
