// Images from generator functions, and component labels drawn as text.
#pragma once

#include <cstdlib>
#include <string>
#include <vector>

#include "image/kscolor.h"
#include "vision/kshistograms.h"

// An image over its own buffer, filled by pixel(r, c) -> ColorValue.
class TestImage {
 public:
    template <class Pixel>
    TestImage(int rows, int cols, Pixel pixel) {
        const auto bytes = static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols) * 3;
        image.KsReadImageMemory(static_cast<unsigned char*>(std::malloc(bytes)), rows, cols);
        fill(pixel);
    }
    TestImage(const TestImage&) = delete;
    TestImage& operator=(const TestImage&) = delete;
    ~TestImage() { image.KsFreeImageMemory(); }
    operator KsColorImage&() { return image; }

    template <class Pixel>
    void fill(Pixel pixel) {
        for (int r = 0; r < image.NofR; r++) {
            for (int c = 0; c < image.NofC; c++) {
                const ColorValue v = pixel(r, c);
                image.SetRed(r, c, static_cast<unsigned char>(v.R));
                image.SetGreen(r, c, static_cast<unsigned char>(v.G));
                image.SetBlue(r, c, static_cast<unsigned char>(v.B));
            }
        }
    }

    KsColorImage image;
};

// Stores a value in a field of any integer type.
template <class Field>
void put(Field& field, int v) {
    field = static_cast<Field>(v);
}

inline auto flat(int v) {
    return [v](int, int) { return ColorValue{v, v, v}; };
}

// A small generator for test data: the process-wide random() belongs to the background model.
class TestRandom {
 public:
    explicit TestRandom(unsigned long long seed) : state_(seed * 0x9E3779B97F4A7C15ULL + 1) {}
    int below(int n) {
        state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<int>((state_ >> 33) % static_cast<unsigned long long>(n));
    }
    int range(int low, int high) { return low + below(high - low + 1); }

 private:
    unsigned long long state_;
};

// Where cell k stands on the common half-cell raster: main cell (i, j) at (2i, 2j), shifted cell at (2i + 1, 2j + 1).
struct RasterPlace {
    int row, col;
};
inline RasterPlace placeOf(const GridColorDiff& g, int k) {
    const int jnum = (g.NofC + g.cellsize - 1) / g.cellsize;
    if (k < g.cnum_2) return {k / jnum * 2, k % jnum * 2};
    return {(k - g.cnum_2) / (jnum - 1) * 2 + 1, (k - g.cnum_2) % (jnum - 1) * 2 + 1};
}

// Labels from a drawing on the half-cell raster: a digit labels the cell at its place, everything else is background.
// Only places whose row and column are both even (main) or both odd (shifted) hold a cell.
inline void drawLabels(const GridColorDiff& g, const std::vector<std::string>& drawing, int* labels) {
    for (int k = 0; k < g.cnum; k++) {
        const RasterPlace at = placeOf(g, k);
        char mark = '.';
        if (at.row < static_cast<int>(drawing.size())) {
            const std::string& line = drawing[static_cast<std::size_t>(at.row)];
            if (at.col < static_cast<int>(line.size())) mark = line[static_cast<std::size_t>(at.col)];
        }
        labels[k] = mark >= '0' && mark <= '9' ? mark - '0' : 0;
    }
}
