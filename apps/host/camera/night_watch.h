// Is the picture grey, as a camera's night mode makes it?
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace fleifeisa::host {

/// Says so once it has been for a while, with two limits, so that a picture in between changes nothing. A function of
/// the frames and their times alone.
class NightWatch {
 public:
    explicit NightWatch(bool grey) : grey_(grey) {}

    /// One frame. Where the picture has become the other kind: since when it is.
    std::optional<std::int64_t> update(std::span<const std::uint8_t> rgb, int width, int height, std::int64_t time_ns);
    /// The kind of picture that has lasted.
    bool grey() const { return grey_; }

 private:
    bool grey_;
    std::optional<std::int64_t> since_ns_;  ///< the other kind has been seen
};

}  // namespace fleifeisa::host
