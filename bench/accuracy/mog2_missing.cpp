#include <stdexcept>

#include "accuracy/mog2.h"

struct Mog2::State {};

Mog2::Mog2(bool) {
    throw std::runtime_error("built without OpenCV (packaging/setup.sh bench)");
}

Mog2::~Mog2() = default;

std::span<const fleifeisa::host::Blob> Mog2::frame(std::span<const std::uint8_t>, int, int) {
    return {};
}
