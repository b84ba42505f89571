// Points, lines and polygons in shares of the source picture: x from left, y downwards, 0 to 1 each.
//
// Distances are measured in shares, too (a hundredth of the width counts as much as a hundredth of the height), so that
// no rule depends on the picture's format. Only + - * / and square roots, in a fixed order.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "tracks/track.h"

namespace fleifeisa::host {

/// From pixels of the analyzed frame to shares of the source picture. The default: the frame is the whole picture.
struct PictureMap {
    double left = 0, top = 0;      ///< of the analyzed part, shares
    double width = 1, height = 1;  ///< of the analyzed part, shares

    /// The part `region_*` (pixels of the source, after which the frame may have been scaled) of a source picture.
    static PictureMap ofRegion(int region_left, int region_top, int region_width, int region_height, int source_width,
                               int source_height);
    Point shareOf(Point pixel, int frame_width, int frame_height) const;
    bool operator==(const PictureMap&) const = default;
};

/// Why the points are no zone: "expected at least 3 points" ..., "" where they are one. Closing is implied.
std::string polygonFault(std::span<const Point> points);
/// Do the segments ab and cd have a point in common? Touching counts.
bool segmentsMeet(Point a, Point b, Point c, Point d);

/// Distance between a point and the segment ab.
double distanceToSegment(Point p, Point a, Point b);

/// More than 0: left of the direction from a to b as it is seen in the picture (y downwards); the distance to the
/// endless line, so the same for every length of ab. a and b must differ.
double sideOf(Point p, Point a, Point b);

/// A simple polygon, prepared for many questions.
class Polygon {
 public:
    /// @pre polygonFault(points) is ""
    explicit Polygon(std::vector<Point> points);

    /// How far inside the point lies (positive) or outside (negative). Edges along the border of the picture count as
    /// far away, and points beyond the border as on it: behind it nothing can be seen, so nobody hesitates there.
    double depth(Point p) const;
    /// Largest margin that leaves room inside: half of area by perimeter, which is a quarter of a strip's width.
    double largestMargin() const { return largest_margin_; }
    Point least() const { return least_; }
    Point greatest() const { return greatest_; }

 private:
    std::vector<Point> points_;
    double largest_margin_ = 0;
    Point least_, greatest_;  ///< corners of its bounding box
};

}  // namespace fleifeisa::host
