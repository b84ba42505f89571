// A picture in memory and its PNG file.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/canvas.h"

namespace fleifeisa::inspect {

/// Owns the pixels that a Canvas draws on. All drawing is clipped to the picture. x runs to the right, y downwards.
class Raster {
 public:
    Raster(int width, int height, Rgb background);
    int width() const { return width_; }
    int height() const { return height_; }
    Rgb at(int x, int y) const;

    void fill(int x, int y, int width, int height, Rgb colour) { canvas().fill(x, y, width, height, colour); }
    /// One pixel wide.
    void line(int x0, int y0, int x1, int y1, Rgb colour) { canvas().line(x0, y0, x1, y1, colour, 1); }
    /// The outline of a box with inclusive corners; `dash` pixels on, as many off.
    void dashedBox(int x0, int y0, int x1, int y1, Rgb colour, int dash);
    /// x and y are the upper left corner, each dot is `size` pixels wide.
    void text(int x, int y, std::string_view text, int size, Rgb colour) { canvas().text(x, y, text, colour, size); }
    /// Text on a plate of the colour `plate`.
    void label(int x, int y, std::string_view text, int size, Rgb colour, Rgb plate);

    /// Throws std::runtime_error where the file cannot be written.
    void writePng(const std::string& path) const;

 private:
    Canvas canvas() { return {rgb_, width_, height_}; }

    int width_, height_;
    std::vector<std::uint8_t> rgb_;
};

}  // namespace fleifeisa::inspect
