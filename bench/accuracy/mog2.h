// The comparison: OpenCV's MOG2 with shadow removal finds the blobs, the same tracker follows them.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "tracks/blobs.h"

class Mog2 {
 public:
    /// @throws std::runtime_error where this was built without OpenCV
    explicit Mog2(bool split_people);
    ~Mog2();
    std::span<const fleifeisa::host::Blob> frame(std::span<const std::uint8_t> rgb, int width, int height);

 private:
    struct State;
    std::unique_ptr<State> state_;
};
