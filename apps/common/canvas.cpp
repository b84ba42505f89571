#include "common/canvas.h"

#include <algorithm>
#include <cstdlib>

#include "common/font.h"

namespace fleifeisa {
namespace {

std::uint8_t mix(std::uint8_t below, std::uint8_t above, int weight) {
    return static_cast<std::uint8_t>((below * (256 - weight) + above * weight + 128) >> 8);
}

}  // namespace

void Canvas::fill(int left, int top, int width, int height, Rgb colour, int weight) {
    const int right = static_cast<int>(std::min<std::int64_t>(width_, std::int64_t{left} + width));
    const int bottom = static_cast<int>(std::min<std::int64_t>(height_, std::int64_t{top} + height));
    for (int y = std::max(0, top); y < bottom; ++y) {
        for (int x = std::max(0, left); x < right; ++x) {
            std::uint8_t* pixel =
                &rgb_[(static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(x)) *
                      3];
            pixel[0] = mix(pixel[0], colour.red, weight);
            pixel[1] = mix(pixel[1], colour.green, weight);
            pixel[2] = mix(pixel[2], colour.blue, weight);
        }
    }
}

void Canvas::box(int left, int top, int width, int height, Rgb colour, int thick) {
    thick = std::min({thick, (width + 1) / 2, (height + 1) / 2});
    fill(left, top, width, thick, colour);
    fill(left, top + height - thick, width, thick, colour);
    fill(left, top + thick, thick, height - 2 * thick, colour);
    fill(left + width - thick, top + thick, thick, height - 2 * thick, colour);
}

void Canvas::line(int x0, int y0, int x1, int y1, Rgb colour, int thick, int weight, int dash) {
    // Points may lie beyond the picture by a box's size at most: stepping over the outside costs little.
    const int dx = x1 - x0, dy = y1 - y0;
    const int steps = std::max(std::abs(dx), std::abs(dy));
    for (int i = 0; i <= steps; ++i) {
        if (dash > 0 && i / dash % 2 == 1) continue;
        const int x = steps == 0 ? x0 : x0 + (2 * dx * i + (dx < 0 ? -steps : steps)) / (2 * steps);
        const int y = steps == 0 ? y0 : y0 + (2 * dy * i + (dy < 0 ? -steps : steps)) / (2 * steps);
        fill(x - thick / 2, y - thick / 2, thick, thick, colour, weight);
    }
}

void Canvas::text(int left, int top, std::string_view text, Rgb colour, int scale) {
    for (const char c : text) {
        const Glyph& glyph = glyphOf(c);
        for (int y = 0; y < kGlyphHeight; ++y)
            for (int x = 0; x < kGlyphWidth; ++x)
                if (glyph[static_cast<std::size_t>(y * kGlyphWidth + x)] == '#')
                    fill(left + x * scale, top + y * scale, scale, scale, colour);
        left += (kGlyphWidth + 1) * scale;
    }
}

int Canvas::textWidth(std::string_view text, int scale) {
    return text.empty() ? 0 : (static_cast<int>(text.size()) * (kGlyphWidth + 1) - 1) * scale;
}

int Canvas::textHeight(int scale) {
    return kGlyphHeight * scale;
}

}  // namespace fleifeisa
