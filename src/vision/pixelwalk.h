// The one way to walk the pixels of a box: row by row, only those inside the frame.
#pragma once

#include <algorithm>

#include "image/kscolor.h"
#include "vision/valuetypes.h"

// Calls f(r, c) for every pixel of the inclusive box that lies inside a frame of rows x cols pixels.
template <class F>
inline void ForEachPixel(int minr, int maxr, int minc, int maxc, int rows, int cols, F f) {
    const int r1 = std::min(maxr, rows - 1), c1 = std::min(maxc, cols - 1);
    for (int r = std::max(minr, 0); r <= r1; r++)
        for (int c = std::max(minc, 0); c <= c1; c++) f(r, c);
}

// The same for anything with the four bounds of a box.
template <class Box, class F>
inline void ForEachPixel(const Box& b, int rows, int cols, F f) {
    ForEachPixel(b.minr, b.maxr, b.minc, b.maxc, rows, cols, f);
}

// Clears hist (256 entries) and counts the brightness of every pixel: (R + G + B + 1) / 3, or the first byte for IR.
void CountBrightness(const KsColorImage& CI, ImageType type, int rows, int cols, int* hist);
