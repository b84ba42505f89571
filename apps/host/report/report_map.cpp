// The report's map: the ways of all tracks over the background.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numeric>

#include "common/text.h"
#include "outputs/track_colours.h"
#include "report/report_data.h"

namespace fleifeisa::host {
namespace {

using Points = std::vector<PathPoint>;

/// Keeps the points that a straight line would miss by more than one pixel, between `first` and `last`.
void markCorners(const Points& points, std::size_t first, std::size_t last, std::vector<bool>& keep) {
    if (last <= first + 1) return;
    const std::int64_t dx = points[last].x2 - points[first].x2, dy = points[last].y2 - points[first].y2;
    std::int64_t farthest = 0;
    std::size_t corner = first;
    for (std::size_t i = first + 1; i < last; ++i) {
        const std::int64_t x = points[i].x2 - points[first].x2, y = points[i].y2 - points[first].y2;
        // Twice the triangle's area; where both ends coincide, the distance from them.
        const std::int64_t away = dx == 0 && dy == 0 ? std::abs(x) + std::abs(y) : std::abs(dx * y - dy * x);
        if (away > farthest) {
            farthest = away;
            corner = i;
        }
    }
    const std::int64_t length_squared = dx * dx + dy * dy;
    const std::int64_t limit = 2;  // half pixels
    const bool straight =
        length_squared == 0 ? farthest <= limit : farthest / limit * (farthest / limit) <= length_squared;
    if (corner == first || straight) return;
    keep[corner] = true;
    markCorners(points, first, corner, keep);
    markCorners(points, corner, last, keep);
}

/// The way in the map's units, without what a straight line shows as well.
Points corners(std::span<const PathPoint> path, int scale) {
    Points points(path.begin(), path.end());
    for (PathPoint& point : points) {
        point.x2 *= scale;
        point.y2 *= scale;
    }
    std::vector<bool> keep(points.size(), false);
    keep.front() = keep.back() = true;
    markCorners(points, 0, points.size() - 1, keep);
    Points result;
    for (std::size_t i = 0; i < points.size(); ++i)
        if (keep[i]) result.push_back(points[i]);
    return result;
}

/// Half pixels as the shortest decimal: "12" or "12.5".
std::string halves(std::int64_t value) {
    return value % 2 == 0 ? std::to_string(value / 2) : fixedPoint(value * 5, 1);
}

/// Arrow head at the end of a way, pointing along its last 12 pixels or more.
std::string arrow(const Points& points, int size) {
    const PathPoint& tip = points.back();
    std::int64_t dx = 0, dy = 0;
    for (std::size_t i = points.size() - 1; i-- > 0 && dx * dx + dy * dy < 24 * 24;) {
        dx = tip.x2 - points[i].x2;
        dy = tip.y2 - points[i].y2;
    }
    const std::int64_t longer = std::max(std::abs(dx), std::abs(dy));
    if (longer == 0) return "";
    const auto ahead = [&](std::int64_t along, std::int64_t across) {
        return halves(tip.x2 + (along * dx - across * dy) / longer) + " " +
               halves(tip.y2 + (along * dy + across * dx) / longer);
    };
    return "<path class=\"tip\" d=\"M" + ahead(2 * size, 0) + "L" + ahead(-size, size) + "L" + ahead(-size, -size) +
           "Z\"/>";
}

/// The map's units: pixels, or a whole part of them where pictures are small, so that lines and labels can be fine.
struct MapSize {
    int scale, width, height;
    int unit;  ///< about 1/256 of the width: markers and labels grow with the picture

    explicit MapSize(const ReportData& data)
        : scale(std::max(1, 512 / std::max(1, data.width))),
          width(data.width * scale),
          height(data.height * scale),
          unit(std::max(1, (width + 128) / 256)) {}
};

/// Where a track's number stands: beside its end, within the picture.
struct Label {
    std::int64_t left, top, width, height;  ///< half pixels
    bool shown;                             ///< else only while the track is highlighted

    bool overlaps(const Label& other) const {
        return left < other.left + other.width && other.left < left + width && top < other.top + other.height &&
               other.top < top + height;
    }
};

/// Labels of all tracks that are not brief, in their order. The longest tracks choose first; what would cover a label
/// that stands already is not shown.
std::vector<Label> placeLabels(const std::vector<const ReportTrack*>& tracks, const MapSize& size) {
    const int unit = size.unit;
    std::vector<Label> labels;
    for (const ReportTrack* track : tracks) {
        const PathPoint& end = track->path.points().back();
        const auto digits = static_cast<std::int64_t>(std::to_string(track->number).size());
        Label label{end.x2 * size.scale + 5 * unit, end.y2 * size.scale - 11 * unit, 6 * unit * digits, 8 * unit,
                    false};
        label.left = std::clamp<std::int64_t>(label.left, 0, std::max<std::int64_t>(0, 2 * size.width - label.width));
        label.top = std::clamp<std::int64_t>(label.top, 0, std::max<std::int64_t>(0, 2 * size.height - label.height));
        labels.push_back(label);
    }
    std::vector<std::size_t> order(tracks.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(), [&tracks](std::size_t a, std::size_t b) {
        return tracks[a]->path.sightings() > tracks[b]->path.sightings();
    });
    std::vector<std::size_t> standing;
    for (const std::size_t i : order) {
        labels[i].shown = std::none_of(standing.begin(), standing.end(),
                                       [&](std::size_t other) { return labels[i].overlaps(labels[other]); });
        if (labels[i].shown) standing.push_back(i);
    }
    return labels;
}

std::string labelText(const ReportTrack& track, const Label& label, int unit) {
    const std::string number = std::to_string(track.number);
    return "<text class=\"name k" + std::to_string(trackColourIndex(track.number)) + (label.shown ? "" : " extra") +
           "\" data-t=\"" + number + "\" x=\"" + halves(label.left) + "\" y=\"" + halves(label.top + 7 * unit) +
           "\" font-size=\"" + std::to_string(4 * unit) + "\">" + number + "</text>\n";
}

std::string trackOnMap(const ReportTrack& track, const MapSize& size) {
    const Points points = corners(track.path.points(), size.scale);
    const int unit = size.unit;
    const std::string number = std::to_string(track.number);
    std::string way = "M" + halves(points[0].x2) + " " + halves(points[0].y2);
    for (std::size_t i = 1; i < points.size(); ++i)
        way += (i == 1 ? "l" : " ") + halves(points[i].x2 - points[i - 1].x2) + " " +
               halves(points[i].y2 - points[i - 1].y2);
    std::string text = "<g class=\"track k" + std::to_string(trackColourIndex(track.number)) +
                       (track.brief() ? " brief" : "") + "\" id=\"m" + number + "\" data-t=\"" + number + "\">";
    text += "<title>Track " + number + "</title>";
    if (points.size() > 1) text += "<path class=\"under\" d=\"" + way + "\"/><path class=\"way\" d=\"" + way + "\"/>";
    text += "<circle class=\"from\" cx=\"" + halves(points[0].x2) + "\" cy=\"" + halves(points[0].y2) + "\" r=\"" +
            std::to_string(unit) + "\"/>";
    if (!track.brief()) text += arrow(points, 2 * unit);
    return text + "</g>\n";
}

/// A zone or line with its name; of a line an arrow's head at its end.
std::string shapeOnMap(const ReportShape& shape, const MapSize& size) {
    Points points;
    for (const Point& point : shape.points)
        points.push_back({0, std::llround(point.x * size.scale * 2), std::llround(point.y * size.scale * 2)});
    std::string way;
    for (const PathPoint& point : points) way += (way.empty() ? "M" : "L") + halves(point.x2) + " " + halves(point.y2);
    std::string text = std::string("<g class=\"") + (shape.line ? "line" : "zone") + "\"><path d=\"" + way +
                       (shape.line ? "\"/>" : "Z\"/>");
    if (shape.line) text += arrow(points, 2 * size.unit);
    return text + "<text x=\"" + halves(points[0].x2 + 4 * size.unit) + "\" y=\"" +
           halves(points[0].y2 + 10 * size.unit) + "\" font-size=\"" + std::to_string(4 * size.unit) + "\">" +
           xmlText(shape.name) + "</text></g>\n";
}

}  // namespace

std::string trackMap(const ReportData& data) {
    const MapSize size(data);
    const std::string width = std::to_string(size.width), height = std::to_string(size.height);
    std::string text =
        "<svg class=\"map\" viewBox=\"0 0 " + width + " " + height + "\" role=\"img\" aria-labelledby=\"map-title\">\n";
    text += "<title id=\"map-title\">The ways of " + std::to_string(data.tracks.size()) +
            " tracks over the picture. The table below lists them all.</title>\n";
    if (!data.background.empty())
        text += "<image width=\"" + width + "\" height=\"" + height +
                "\" preserveAspectRatio=\"none\" href=\"data:image/jpeg;base64," + base64(data.background) + "\"/>\n";
    for (const ReportShape& shape : data.shapes) text += shapeOnMap(shape, size);
    std::vector<const ReportTrack*> lasting;
    for (const ReportTrack& track : data.tracks) {
        if (track.brief())
            text += trackOnMap(track, size);
        else
            lasting.push_back(&track);
    }
    for (const ReportTrack* track : lasting) text += trackOnMap(*track, size);
    const std::vector<Label> labels = placeLabels(lasting, size);
    for (std::size_t i = 0; i < lasting.size(); ++i) text += labelText(*lasting[i], labels[i], size.unit);
    return text + "</svg>\n";
}

}  // namespace fleifeisa::host
