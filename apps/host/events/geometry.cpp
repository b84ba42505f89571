#include "events/geometry.h"

#include <algorithm>
#include <cmath>

namespace fleifeisa::host {
namespace {

/// Twice the signed area of the triangle abc; its sign says on which side of ab c lies.
double cross(Point a, Point b, Point c) {
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

bool withinBox(Point p, Point a, Point b) {
    return p.x >= std::min(a.x, b.x) && p.x <= std::max(a.x, b.x) && p.y >= std::min(a.y, b.y) &&
           p.y <= std::max(a.y, b.y);
}

bool onBorder(Point a, Point b) {
    return (a.x == b.x && (a.x <= 0 || a.x >= 1)) || (a.y == b.y && (a.y <= 0 || a.y >= 1));
}

double length(Point a, Point b) {
    return std::sqrt((b.x - a.x) * (b.x - a.x) + (b.y - a.y) * (b.y - a.y));
}

bool same(Point a, Point b) {
    return a.x == b.x && a.y == b.y;
}

}  // namespace

PictureMap PictureMap::ofRegion(int region_left, int region_top, int region_width, int region_height, int source_width,
                                int source_height) {
    return {static_cast<double>(region_left) / source_width, static_cast<double>(region_top) / source_height,
            static_cast<double>(region_width) / source_width, static_cast<double>(region_height) / source_height};
}

Point PictureMap::shareOf(Point pixel, int frame_width, int frame_height) const {
    return {left + pixel.x / frame_width * width, top + pixel.y / frame_height * height};
}

bool segmentsMeet(Point a, Point b, Point c, Point d) {
    const double c_side = cross(a, b, c), d_side = cross(a, b, d), a_side = cross(c, d, a), b_side = cross(c, d, b);
    if (((c_side > 0 && d_side < 0) || (c_side < 0 && d_side > 0)) &&
        ((a_side > 0 && b_side < 0) || (a_side < 0 && b_side > 0)))
        return true;
    return (c_side == 0 && withinBox(c, a, b)) || (d_side == 0 && withinBox(d, a, b)) ||
           (a_side == 0 && withinBox(a, c, d)) || (b_side == 0 && withinBox(b, c, d));
}

std::string polygonFault(std::span<const Point> points) {
    const std::size_t n = points.size();
    if (n < 3) return "expected at least 3 points";
    for (const Point& p : points)
        if (!(p.x >= 0 && p.x <= 1 && p.y >= 0 && p.y <= 1)) return "expected points within 0 to 1";
    for (std::size_t i = 0; i < n; ++i)
        if (same(points[i], points[(i + 1) % n])) return "two points in a row are the same";
    for (std::size_t i = 0; i < n; ++i) {
        const Point a = points[i], b = points[(i + 1) % n], c = points[(i + 2) % n];
        // Neighbours share a point; they must not run back over each other.
        if (cross(a, b, c) == 0 && (withinBox(c, a, b) || withinBox(a, b, c))) return "its edges cross each other";
        for (std::size_t j = i + 2; j < n; ++j)
            if ((j + 1) % n != i && segmentsMeet(a, b, points[j], points[(j + 1) % n]))
                return "its edges cross each other";
    }
    return "";
}

double distanceToSegment(Point p, Point a, Point b) {
    const double dx = b.x - a.x, dy = b.y - a.y, square = dx * dx + dy * dy;
    const double along = square > 0 ? std::clamp(((p.x - a.x) * dx + (p.y - a.y) * dy) / square, 0.0, 1.0) : 0.0;
    return length(p, {a.x + along * dx, a.y + along * dy});
}

double sideOf(Point p, Point a, Point b) {
    return -cross(a, b, p) / length(a, b);  // y points downwards, which swaps left and right
}

Polygon::Polygon(std::vector<Point> points) : points_(std::move(points)), least_(points_[0]), greatest_(points_[0]) {
    double area = 0, perimeter = 0;
    for (std::size_t i = 0; i < points_.size(); ++i) {
        const Point a = points_[i], b = points_[(i + 1) % points_.size()];
        area += (a.x * b.y - b.x * a.y) / 2;
        perimeter += length(a, b);
        least_ = {std::min(least_.x, a.x), std::min(least_.y, a.y)};
        greatest_ = {std::max(greatest_.x, a.x), std::max(greatest_.y, a.y)};
    }
    largest_margin_ = (area < 0 ? -area : area) / perimeter / 2;
}

double Polygon::depth(Point p) const {
    p = {std::clamp(p.x, 0.0, 1.0), std::clamp(p.y, 0.0, 1.0)};
    bool inside = false, on_border = false;
    double nearest = 2;  // farther than anything in the picture
    for (std::size_t i = 0; i < points_.size(); ++i) {
        const Point a = points_[i], b = points_[(i + 1) % points_.size()];
        // Even-odd rule with half-open edges: each corner counts once.
        if ((a.y > p.y) != (b.y > p.y) && p.x < a.x + (p.y - a.y) / (b.y - a.y) * (b.x - a.x)) inside = !inside;
        if (!onBorder(a, b))
            nearest = std::min(nearest, distanceToSegment(p, a, b));
        else if (distanceToSegment(p, a, b) == 0)
            on_border = true;
    }
    return inside || on_border ? nearest : -nearest;
}

}  // namespace fleifeisa::host
