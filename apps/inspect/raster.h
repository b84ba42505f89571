// A picture in memory, the few things that are drawn on it, and its PNG file.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "inspect/colours.h"

namespace fleifeisa::inspect {

/// All drawing is clipped to the picture. x runs to the right, y downwards.
class Raster {
 public:
    Raster(int width, int height, Rgb fill);
    int Width() const { return width_; }
    int Height() const { return height_; }
    Rgb At(int x, int y) const { return pixels_[Index(x, y)]; }

    void Set(int x, int y, Rgb c);
    void Blend(int x, int y, Rgb c, double share);
    void Fill(int x, int y, int width, int height, Rgb c);
    /// One pixel wide; `dash` pixels on, as many off, 0 for a solid line.
    void Line(int x0, int y0, int x1, int y1, Rgb c, int dash = 0);
    /// The outline of a box with inclusive corners.
    void Box(int x0, int y0, int x1, int y1, Rgb c, int dash = 0);
    /// Digits, '.', '-', '>' and '#' (other characters are blanks), each pixel of a letter `size` pixels wide. x and y
    /// are the upper left corner. With `back` the text stands on a plate of that colour.
    void Text(int x, int y, std::string_view text, int size, Rgb c, const Rgb* back = nullptr);
    static int TextWidth(std::string_view text, int size);
    static int TextHeight(int size);

    /// Throws std::runtime_error where the file cannot be written.
    void WritePng(const std::string& path) const;

 private:
    std::size_t Index(int x, int y) const {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(x);
    }
    int width_, height_;
    std::vector<Rgb> pixels_;
};

}  // namespace fleifeisa::inspect
