// Pictures that are made here: cut out, made smaller, as JPEG files and back.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace fleifeisa::host {

/// width * height * 3 bytes, rows from the top, R G B interleaved.
struct Picture {
    int width = 0, height = 0;
    std::vector<std::uint8_t> rgb;
};

struct PictureView {
    int width, height;
    std::span<const std::uint8_t> rgb;
};

/// A rectangle of a picture, clipped to it.
struct Cut {
    int left, top, width, height;
};

/// The part of `from` that `cut` names (at least one pixel of it lies inside), never made larger: averages over whole
/// pixels, in whole numbers, so that it takes at most `max_width` by `max_height` pixels and keeps its shape.
Picture reduced(const PictureView& from, Cut cut, int max_width, int max_height);

/// A JPEG file of it, the same bytes on every machine; quality 1 to 100. @throws OutputError
std::string jpegOf(const PictureView& picture, int quality);
inline std::string jpegOf(const Picture& picture, int quality) {
    return jpegOf(PictureView{picture.width, picture.height, picture.rgb}, quality);
}
/// The picture of a JPEG file. @throws OutputError
Picture pictureOf(const std::string& jpeg);

}  // namespace fleifeisa::host
