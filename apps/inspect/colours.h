// Colours of the pictures, made in the perceptual space OKLab so that equal steps look equal.
#pragma once

#include <array>
#include <cstdint>

namespace fleifeisa::inspect {

struct Rgb {
    std::uint8_t r, g, b;
    bool operator==(const Rgb&) const = default;
};

/// A colour in OKLab: lightness 0..1, green-red, blue-yellow.
struct Lab {
    double L, a, b;
};
Lab ToLab(Rgb c);
/// The sRGB colour of this lightness and hue (degrees), with as much of the chroma as the screen can show.
Rgb FromLightnessChromaHue(double lightness, double chroma, double hue);

/// 256 colours from near-black violet over red to light yellow: lightness only rises, and neighbours are equally far
/// apart in OKLab, so that equal differences of value look equally large.
const std::array<Rgb, 256>& HeatMap();
/// The colour of `value` on a scale from 0 to `full`; values outside take the ends, numbers that are none are grey.
Rgb Heat(double value, double full);

/// A colour for a number, far from those of the numbers around it; 0 is no colour (black).
Rgb Distinct(int number);

}  // namespace fleifeisa::inspect
