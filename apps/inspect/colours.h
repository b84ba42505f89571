// Colours of the pictures, made in the perceptual space OKLab so that equal steps look equal.
#pragma once

#include <array>

#include "common/palette.h"

namespace fleifeisa::inspect {

/// A colour in OKLab: lightness 0..1, green-red, blue-yellow.
struct Lab {
    double l, a, b;
};
Lab toLab(Rgb c);
/// The sRGB colour of this lightness and hue (degrees), with as much of the chroma as the screen can show.
Rgb fromLightnessChromaHue(double lightness, double chroma, double hue);

/// 256 colours from near-black violet over red to light yellow: lightness only rises, and neighbours are equally far
/// apart in OKLab, so that equal differences of value look equally large.
const std::array<Rgb, 256>& heatMap();
/// The colour of `value` on a scale from 0 to `full`; values outside take the ends, numbers that are none are grey.
Rgb heat(double value, double full);

/// A colour for a number, far from those of the numbers around it; 0 is no colour (black).
Rgb distinct(int number);

}  // namespace fleifeisa::inspect
