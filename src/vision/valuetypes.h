// Value types shared by the grid, the background model and the tracker.
#pragma once

#include <cstdint>

// COLOR uses all three channels of a pixel. IR uses only its first byte and only the red members of every record;
// green and blue members are then left untouched.
enum ImageType { COLOR = 0, IR = 1 };

// SINGLE: the background is the first frame. MULTIPLE: colour clusters per cell.
enum BackgroundType { SINGLE = 0, MULTIPLE = 1 };

struct ColorValue {
    int R, G, B;
};

// A gathered sample: a pixel's channels as they came, 0..255 each. Four bytes, so that 16 of them fill a cache line.
struct alignas(4) ColorSample {
    std::uint8_t R, G, B;
    operator ColorValue() const { return {R, G, B}; }
};

// The mean of a cluster. A little outside 0..255 at times; 16 bits hold it with room to spare.
struct ColorMean {
    std::int16_t R, G, B;
    operator ColorValue() const { return {R, G, B}; }
};

// Per-channel derivatives of a cell. x runs down the rows and y across the columns (see CellDerivatives).
struct ColorDerivative {
    int Rx, Ry, Gx, Gy, Bx, By;
};

// Square root of the sum of the six squares, the sum taken as a 32-bit integer.
double derNorm(ColorDerivative cd);

// 2 d / (n1 + n2) with d the sum of the six squared differences (32-bit); 0 where mindist > n1 + n2.
double CellPartialDerivativeDistance(ColorDerivative cd1, ColorDerivative cd2, double n1, double n2, int mindist);

// The eight neighbours of a cell, -1 for none. Slots 0..3 stay in the cell's own lattice, one cell away; slots 4..7
// lead into the other lattice, half a cell away diagonally:
//
//        5   1   4            0 right   1 up         2 left        3 down
//          \ | /              4 up-right 5 up-left   6 down-left   7 down-right
//        2 - + - 0
//          / | \              Opposite slots are 0-2, 1-3, 4-6, 5-7: if a has b in one, b has a in the other.
//        6   3   7
struct Neighbors {
    int n[8];
    int GetNeighbor(int i) const { return n[i]; }
};

// A point of a contour. Contours are closed lists: the last node repeats the first point, its link is null.
struct ContNode {
    bool keepnode;  // vertex of the simplified polygon; set by PolygonalApproximation, left as found by tracing
    int r, c;       // pixel row and column
    ContNode* link;
};

// Rounded mean of m values (m >= 1) with sum s: both divisions truncate, so halves of positive sums round up.
constexpr int RoundedMean(int s, int m) {
    return (s + m / 2) / m;
}
