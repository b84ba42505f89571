#include "inspect/colours.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace fleifeisa::inspect {

namespace {

struct Linear {
    double r, g, b;
};

double expand(std::uint8_t v) {
    const double s = v / 255.0;
    return s <= 0.04045 ? s / 12.92 : std::pow((s + 0.055) / 1.055, 2.4);
}

std::uint8_t compress(double v) {
    const double s = v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1 / 2.4) - 0.055;
    return static_cast<std::uint8_t>(std::lround(std::clamp(s, 0.0, 1.0) * 255));
}

double cube(double v) {
    return v * v * v;
}

Linear toLinear(const Lab& c) {
    const double l = cube(c.l + 0.3963377774 * c.a + 0.2158037573 * c.b);
    const double m = cube(c.l - 0.1055613458 * c.a - 0.0638541728 * c.b);
    const double s = cube(c.l - 0.0894841775 * c.a - 1.2914855480 * c.b);
    return {4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s,
            -1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s,
            -0.0041960863 * l - 0.7034186147 * m + 1.7076147010 * s};
}

bool onScreen(const Linear& c) {
    const auto inside = [](double v) { return v >= 0 && v <= 1; };
    return inside(c.r) && inside(c.g) && inside(c.b);
}

Lab polar(double lightness, double chroma, double hue) {
    const double angle = hue * std::numbers::pi / 180;
    return {lightness, chroma * std::cos(angle), chroma * std::sin(angle)};
}

// The colour with its chroma reduced until the screen can show it.
Lab fit(double lightness, double chroma, double hue) {
    double low = 0, high = chroma;
    if (onScreen(toLinear(polar(lightness, chroma, hue)))) return polar(lightness, chroma, hue);
    for (int i = 0; i < 30; i++) {
        const double middle = (low + high) / 2;
        (onScreen(toLinear(polar(lightness, middle, hue))) ? low : high) = middle;
    }
    return polar(lightness, low, hue);
}

Rgb toRgb(const Lab& c) {
    const Linear v = toLinear(c);
    return {compress(v.r), compress(v.g), compress(v.b)};
}

double distance(const Lab& a, const Lab& b) {
    return std::sqrt((a.l - b.l) * (a.l - b.l) + (a.a - b.a) * (a.a - b.a) + (a.b - b.b) * (a.b - b.b));
}

// The path of the heat map, u from 0 to 1: violet (hue 290) over red to yellow (hue 470, that is 110).
Lab heatPath(double u) {
    return fit(0.16 + 0.80 * u, 0.05 + 0.14 * std::sin(std::numbers::pi * std::min(1.0, 0.15 + u)), 290 + 180 * u);
}

std::array<Rgb, 256> makeHeatMap() {
    // Walk the path finely, then take 256 points at equal distances along it.
    constexpr int kSteps = 4096;
    std::array<double, kSteps + 1> length{};
    for (int i = 1; i <= kSteps; i++)
        length[static_cast<std::size_t>(i)] =
            length[static_cast<std::size_t>(i) - 1] +
            distance(heatPath(static_cast<double>(i - 1) / kSteps), heatPath(static_cast<double>(i) / kSteps));
    std::array<Rgb, 256> map{};
    for (std::size_t k = 0; k < map.size(); k++) {
        const double target = length.back() * static_cast<double>(k) / 255;
        const auto at = std::lower_bound(length.begin(), length.end(), target);
        map[k] = toRgb(heatPath(static_cast<double>(at - length.begin()) / kSteps));
    }
    return map;
}

}  // namespace

Lab toLab(Rgb c) {
    const double r = expand(c.red), g = expand(c.green), b = expand(c.blue);
    const double l = std::cbrt(0.4122214708 * r + 0.5363325363 * g + 0.0514459929 * b);
    const double m = std::cbrt(0.2119034982 * r + 0.6806995451 * g + 0.1073969566 * b);
    const double s = std::cbrt(0.0883024619 * r + 0.2817188376 * g + 0.6299787005 * b);
    return {0.2104542553 * l + 0.7936177850 * m - 0.0040720468 * s,
            1.9779984951 * l - 2.4285922050 * m + 0.4505937099 * s,
            0.0259040371 * l + 0.7827717662 * m - 0.8086757660 * s};
}

Rgb fromLightnessChromaHue(double lightness, double chroma, double hue) {
    return toRgb(fit(lightness, chroma, hue));
}

const std::array<Rgb, 256>& heatMap() {
    static const std::array<Rgb, 256> map = makeHeatMap();
    return map;
}

Rgb heat(double value, double full) {
    if (std::isnan(value) || std::isnan(full) || !(full > 0)) return {128, 128, 128};
    return heatMap()[static_cast<std::size_t>(std::lround(std::clamp(value / full, 0.0, 1.0) * 255))];
}

Rgb distinct(int number) {
    if (number == 0) return {0, 0, 0};
    // The golden angle keeps the hues of neighbouring numbers far apart; three lightnesses tell the rest apart.
    constexpr double kGoldenAngle = 137.50776405;
    constexpr double kLightness[] = {0.78, 0.68, 0.88};
    return fromLightnessChromaHue(kLightness[static_cast<unsigned>(number) % 3], 0.17,
                                  std::fmod(number * kGoldenAngle, 360));
}

}  // namespace fleifeisa::inspect
