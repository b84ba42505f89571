// Colours that stay apart on any picture.
#pragma once

#include <array>
#include <cstdint>

namespace fleifeisa {

struct Rgb {
    std::uint8_t red, green, blue;

    bool operator==(const Rgb&) const = default;
};

/// Bright and far apart from their neighbours, to be seen on pictures with a dark outline.
constexpr std::array<Rgb, 10> kTrackColours = {{
    {255, 99, 71},    // red
    {64, 196, 255},   // sky
    {255, 202, 40},   // amber
    {178, 132, 255},  // violet
    {105, 219, 124},  // green
    {255, 130, 203},  // pink
    {38, 222, 199},   // turquoise
    {255, 158, 64},   // orange
    {143, 164, 255},  // blue
    {212, 225, 87},   // lime
}};

}  // namespace fleifeisa
