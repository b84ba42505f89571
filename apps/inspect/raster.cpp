#include "inspect/raster.h"

#include <png.h>

#include <stdexcept>

namespace fleifeisa::inspect {

Raster::Raster(int width, int height, Rgb background)
    : width_(width), height_(height), rgb_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3) {
    fill(0, 0, width, height, background);
}

Rgb Raster::at(int x, int y) const {
    const std::size_t i =
        (static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(x)) * 3;
    return {rgb_[i], rgb_[i + 1], rgb_[i + 2]};
}

void Raster::dashedBox(int x0, int y0, int x1, int y1, Rgb colour, int dash) {
    const auto side = [&](int from_x, int from_y, int to_x, int to_y) {
        canvas().line(from_x, from_y, to_x, to_y, colour, 1, 256, dash);
    };
    side(x0, y0, x1, y0);
    side(x0, y1, x1, y1);
    side(x0, y0, x0, y1);
    side(x1, y0, x1, y1);
}

void Raster::label(int x, int y, std::string_view text, int size, Rgb colour, Rgb plate) {
    fill(x - size, y - size, Canvas::textWidth(text, size) + 2 * size, Canvas::textHeight(size) + 2 * size, plate);
    this->text(x, y, text, size, colour);
}

void Raster::writePng(const std::string& path) const {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width_);
    image.height = static_cast<png_uint_32>(height_);
    image.format = PNG_FORMAT_RGB;
    if (png_image_write_to_file(&image, path.c_str(), 0, rgb_.data(), width_ * 3, nullptr) == 0)
        throw std::runtime_error(path + ": " + image.message);
}

}  // namespace fleifeisa::inspect
