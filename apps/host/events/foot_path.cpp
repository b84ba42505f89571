#include "events/foot_path.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>

namespace fleifeisa::host {
namespace {

constexpr double kUnits = 8192;
constexpr std::size_t kBytes = 16;

std::array<double, 4> axes(const FootPoint& point) {
    return {point.foot.x, point.foot.y, point.width, point.height};
}

double toleranceOf(std::size_t axis) {
    return axis < 2 ? FootPath::kTolerance : FootPath::kSizeTolerance;
}

void put(std::string& bytes, std::uint64_t value, int count) {
    for (int i = 0; i < count; ++i) bytes += static_cast<char>(value >> (8 * i) & 0xFF);
}

std::uint64_t get(const char* bytes, int count) {
    std::uint64_t value = 0;
    for (int i = 0; i < count; ++i)
        value |= static_cast<std::uint64_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
    return value;
}

}  // namespace

void FootPath::add(const FootPoint& point) {
    if (kept_.empty()) return open(point);
    if (point.time_ns <= (has_latest_ ? latest_ : kept_.back()).time_ns) return;
    if (has_latest_ && !fits(point)) open(FootPoint(latest_));
    // Deliberate: the first sighting after a kept one always fits, it has no cone yet.
    latest_ = point;
    has_latest_ = true;
    narrow(point);
}

/// Keeps the point; a new cone begins there.
void FootPath::open(const FootPoint& point) {
    kept_.push_back(point);
    has_latest_ = false;
    for (Cone& cone : cones_) cone = {-INFINITY, INFINITY};
    if (kept_.size() >= kMaxPoints) thinOut();
}

void FootPath::narrow(const FootPoint& point) {
    const auto from = axes(kept_.back()), to = axes(point);
    const auto dt = static_cast<double>(point.time_ns - kept_.back().time_ns);
    for (std::size_t i = 0; i < kAxes; ++i) {
        const double tolerance = toleranceOf(i) * scale_;
        cones_[i].least = std::max(cones_[i].least, (to[i] - from[i] - tolerance) / dt);
        cones_[i].greatest = std::min(cones_[i].greatest, (to[i] - from[i] + tolerance) / dt);
    }
}

/// Does the straight way to this point pass all sightings since the kept one near enough?
bool FootPath::fits(const FootPoint& point) const {
    const auto from = axes(kept_.back()), to = axes(point);
    const auto dt = static_cast<double>(point.time_ns - kept_.back().time_ns);
    for (std::size_t i = 0; i < kAxes; ++i) {
        const double speed = (to[i] - from[i]) / dt;
        if (speed < cones_[i].least || speed > cones_[i].greatest) return false;
    }
    return true;
}

void FootPath::thinOut() {
    const std::vector<FootPoint> points = std::move(kept_);
    kept_.clear();
    scale_ *= 2;
    error_ += kTolerance * scale_;
    for (const FootPoint& point : points) add(point);
    if (has_latest_) open(FootPoint(latest_));  // it was kept
}

std::vector<FootPoint> FootPath::points() const {
    std::vector<FootPoint> points = kept_;
    if (has_latest_) points.push_back(latest_);
    return points;
}

FootPoint pointAt(std::span<const FootPoint> points, std::int64_t time_ns) {
    const auto after = std::ranges::upper_bound(points, time_ns, {}, &FootPoint::time_ns);
    if (after == points.begin()) return points.front();
    if (after == points.end()) return points.back();
    const FootPoint &a = *(after - 1), &b = *after;
    const double part = static_cast<double>(time_ns - a.time_ns) / static_cast<double>(b.time_ns - a.time_ns);
    const auto between = [part](double from, double to) { return from + part * (to - from); };
    return {time_ns,
            {between(a.foot.x, b.foot.x), between(a.foot.y, b.foot.y)},
            between(a.width, b.width),
            between(a.height, b.height)};
}

std::string encodePath(std::span<const FootPoint> points) {
    std::string bytes;
    bytes.reserve(points.size() * kBytes);
    for (const FootPoint& point : points) {
        put(bytes, static_cast<std::uint64_t>(point.time_ns), 8);
        for (const double share : axes(point)) {
            const long units = std::lround(std::clamp(share * kUnits, -32768.0, 32767.0));
            put(bytes, static_cast<std::uint64_t>(units), 2);
        }
    }
    return bytes;
}

std::vector<FootPoint> decodePath(std::string_view bytes) {
    if (bytes.empty() || bytes.size() % kBytes != 0) throw std::runtime_error("a track's path is damaged");
    std::vector<FootPoint> points(bytes.size() / kBytes);
    for (std::size_t i = 0; i < points.size(); ++i) {
        const char* at = bytes.data() + i * kBytes;
        const auto share = [at](int axis) { return static_cast<std::int16_t>(get(at + 8 + 2 * axis, 2)) / kUnits; };
        points[i] = {static_cast<std::int64_t>(get(at, 8)), {share(0), share(1)}, share(2), share(3)};
        if (i > 0 && points[i].time_ns <= points[i - 1].time_ns) throw std::runtime_error("a track's path is damaged");
    }
    return points;
}

}  // namespace fleifeisa::host
