// The way of a track's foot in few points: what the store keeps of it, and what rules are tried on afterwards.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tracks/track.h"

namespace fleifeisa::host {

/// One sighting, in shares of the source picture.
struct FootPoint {
    std::int64_t time_ns = 0;
    Point foot;
    double width = 0, height = 0;  ///< of the box
};

/// Simplifies while the sightings come in, in constant time and memory a sighting.
///
/// At most kMaxPoints remain, the first and the last among them. Between two of them the foot is where a straight and
/// even motion puts it, wrong by less than error() on each axis: kTolerance (so that it is less than 1 % of the picture
/// in any direction) unless a way is so long or so crooked that the points do not suffice. Then they are thinned out
/// with twice the tolerance, as often as it takes.
class FootPath {
 public:
    static constexpr std::size_t kMaxPoints = 64;
    static constexpr double kTolerance = 0.007;     ///< shares, of the foot
    static constexpr double kSizeTolerance = 0.02;  ///< shares, of width and height of the box

    /// Times rise; a sighting of a time that is not later is left out.
    void add(const FootPoint& point);

    /// The points so far, the latest sighting last.
    std::vector<FootPoint> points() const;
    double error() const { return error_; }

 private:
    static constexpr int kAxes = 4;
    /// Speeds of one axis from the latest kept point that pass all sightings since near enough.
    struct Cone {
        double least, greatest;
    };
    void open(const FootPoint& point);
    void narrow(const FootPoint& point);
    bool fits(const FootPoint& point) const;
    void thinOut();

    std::vector<FootPoint> kept_;
    FootPoint latest_;  ///< not kept yet
    bool has_latest_ = false;
    Cone cones_[kAxes];
    double scale_ = 1;  ///< of the tolerances
    double error_ = kTolerance;
};

/// Where a track was at that time, between the points or at the nearest end. @pre points is not empty
FootPoint pointAt(std::span<const FootPoint> points, std::int64_t time_ns);

/// 16 bytes a point, little endian: time, then x, y, width, height in 1/8192 (-4 to 4).
std::string encodePath(std::span<const FootPoint> points);
/// @throws std::runtime_error where these are no such bytes
std::vector<FootPoint> decodePath(std::string_view bytes);

}  // namespace fleifeisa::host
