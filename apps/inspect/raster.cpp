#include "inspect/raster.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <stdexcept>

namespace fleifeisa::inspect {

namespace {

constexpr int kGlyphWidth = 5, kGlyphHeight = 7, kAdvance = 6;

// Five pixels a row, the leftmost in the highest of five bits.
struct Glyph {
    char character;
    unsigned char rows[kGlyphHeight];
};
constexpr Glyph kGlyphs[] = {
    {'0', {0b01110, 0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b01110}},
    {'1', {0b00100, 0b01100, 0b10100, 0b00100, 0b00100, 0b00100, 0b11111}},
    {'2', {0b01110, 0b10001, 0b00001, 0b00110, 0b01000, 0b10000, 0b11111}},
    {'3', {0b11110, 0b00001, 0b00001, 0b01110, 0b00001, 0b00001, 0b11110}},
    {'4', {0b10010, 0b10010, 0b10010, 0b10010, 0b11111, 0b00010, 0b00010}},
    {'5', {0b11111, 0b10000, 0b10000, 0b11110, 0b00001, 0b00001, 0b11110}},
    {'6', {0b00110, 0b01000, 0b10000, 0b11110, 0b10001, 0b10001, 0b01110}},
    {'7', {0b11111, 0b00001, 0b00001, 0b00010, 0b00100, 0b00100, 0b00100}},
    {'8', {0b01110, 0b10001, 0b10001, 0b01110, 0b10001, 0b10001, 0b01110}},
    {'9', {0b01110, 0b10001, 0b10001, 0b01111, 0b00001, 0b00010, 0b01100}},
    {'.', {0b00000, 0b00000, 0b00000, 0b00000, 0b00000, 0b01100, 0b01100}},
    {'-', {0b00000, 0b00000, 0b00000, 0b01110, 0b00000, 0b00000, 0b00000}},
    {'>', {0b01000, 0b00100, 0b00010, 0b00001, 0b00010, 0b00100, 0b01000}},
    {'#', {0b01010, 0b01010, 0b11111, 0b01010, 0b11111, 0b01010, 0b01010}},
};

const Glyph* FindGlyph(char character) {
    const auto at = std::find_if(std::begin(kGlyphs), std::end(kGlyphs),
                                 [character](const Glyph& g) { return g.character == character; });
    return at == std::end(kGlyphs) ? nullptr : at;
}

}  // namespace

Raster::Raster(int width, int height, Rgb fill)
    : width_(width),
      height_(height),
      pixels_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), fill) {}

void Raster::Set(int x, int y, Rgb c) {
    if (x >= 0 && x < width_ && y >= 0 && y < height_) pixels_[Index(x, y)] = c;
}

void Raster::Blend(int x, int y, Rgb c, double share) {
    if (x < 0 || x >= width_ || y < 0 || y >= height_) return;
    Rgb& p = pixels_[Index(x, y)];
    const auto mix = [share](std::uint8_t under, std::uint8_t over) {
        return static_cast<std::uint8_t>(std::lround(under + share * (over - under)));
    };
    p = {mix(p.r, c.r), mix(p.g, c.g), mix(p.b, c.b)};
}

void Raster::Fill(int x, int y, int width, int height, Rgb c) {
    const int x1 = std::min(x + width, width_), y1 = std::min(y + height, height_);
    for (int v = std::max(y, 0); v < y1; v++)
        for (int u = std::max(x, 0); u < x1; u++) pixels_[Index(u, v)] = c;
}

void Raster::Line(int x0, int y0, int x1, int y1, Rgb c, int dash) {
    const int steps = std::max(std::abs(x1 - x0), std::abs(y1 - y0));
    for (int i = 0; i <= steps; i++) {
        if (dash > 0 && i / dash % 2 == 1) continue;
        const double part = steps == 0 ? 0 : static_cast<double>(i) / steps;
        Set(static_cast<int>(std::lround(x0 + part * (x1 - x0))), static_cast<int>(std::lround(y0 + part * (y1 - y0))),
            c);
    }
}

void Raster::Box(int x0, int y0, int x1, int y1, Rgb c, int dash) {
    Line(x0, y0, x1, y0, c, dash);
    Line(x0, y1, x1, y1, c, dash);
    Line(x0, y0, x0, y1, c, dash);
    Line(x1, y0, x1, y1, c, dash);
}

int Raster::TextWidth(std::string_view text, int size) {
    return text.empty() ? 0 : (static_cast<int>(text.size()) * kAdvance - (kAdvance - kGlyphWidth)) * size;
}

int Raster::TextHeight(int size) {
    return kGlyphHeight * size;
}

void Raster::Text(int x, int y, std::string_view text, int size, Rgb c, const Rgb* back) {
    if (back != nullptr) Fill(x - size, y - size, TextWidth(text, size) + 2 * size, TextHeight(size) + 2 * size, *back);
    for (const char character : text) {
        const Glyph* glyph = FindGlyph(character);
        for (int row = 0; glyph != nullptr && row < kGlyphHeight; row++)
            for (int col = 0; col < kGlyphWidth; col++)
                if ((glyph->rows[row] >> (kGlyphWidth - 1 - col) & 1) != 0)
                    Fill(x + col * size, y + row * size, size, size, c);
        x += kAdvance * size;
    }
}

void Raster::WritePng(const std::string& path) const {
    static_assert(sizeof(Rgb) == 3, "rows are handed to libpng as they stand");
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width_);
    image.height = static_cast<png_uint_32>(height_);
    image.format = PNG_FORMAT_RGB;
    if (png_image_write_to_file(&image, path.c_str(), 0, pixels_.data(), width_ * 3, nullptr) == 0)
        throw std::runtime_error(path + ": " + image.message);
}

}  // namespace fleifeisa::inspect
