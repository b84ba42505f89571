#include "inspect/pictures.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>

#include "inspect/colours.h"

namespace fleifeisa::inspect {

namespace {

constexpr Rgb kBlack{0, 0, 0}, kWhite{255, 255, 255};

// Calls f(r, c) for the pixels of a cell that lie inside the frame.
template <class F>
void inCell(const GridColorDiff& g, int k, F f) {
    const int r0 = g.cd[k].minr, c0 = g.cd[k].minc;
    const int r1 = std::min<int>(g.cd[k].maxr, g.NofR - 1), c1 = std::min<int>(g.cd[k].maxc, g.NofC - 1);
    for (int r = r0; r <= r1; r++)
        for (int c = c0; c <= c1; c++) f(r, c);
}

// A number for every pixel: the greater one of the cells that cover it.
std::vector<double> perPixel(const GridColorDiff& g, const std::function<double(int)>& value) {
    std::vector<double> pixels(static_cast<std::size_t>(g.NofR) * static_cast<std::size_t>(g.NofC), 0.0);
    for (int k = 0; k < g.cnum; k++) {
        const double v = value(k);
        inCell(g, k, [&](int r, int c) {
            double& p =
                pixels[static_cast<std::size_t>(r) * static_cast<std::size_t>(g.NofC) + static_cast<std::size_t>(c)];
            p = std::max(p, v);
        });
    }
    return pixels;
}

std::uint8_t byte(int v) {
    return static_cast<std::uint8_t>(std::clamp(v, 0, 255));
}

Rgb pixelOf(const KsColorImage& image, int r, int c, ImageType type) {
    if (type == IR) return {byte(image.Red(r, c)), byte(image.Red(r, c)), byte(image.Red(r, c))};
    return {byte(image.Red(r, c)), byte(image.Green(r, c)), byte(image.Blue(r, c))};
}

// The pictures share one size: the enlarged frame, with room below for a legend where there is one.
class Painter {
 public:
    Painter(Session& session, const FrameFacts& facts, int scale)
        : session_(session),
          facts_(facts),
          g_(*session.tracker()->G),
          scale_(scale),
          text_(std::max(1, (g_.NofC * scale + 200) / 400)) {}

    Picture objects();
    Picture background();
    Picture clusters();
    Picture difference();
    Picture confidence();
    Picture derivativeConfidence();
    Picture labels();

 private:
    struct Mark {
        double value;
        std::string text;
    };
    int width() const { return g_.NofC * scale_; }
    int height() const { return g_.NofR * scale_; }
    int legendHeight() const { return Canvas::textHeight(text_) * 3 + 4 * text_; }
    Raster blank(bool legend) const { return Raster(width(), height() + (legend ? legendHeight() : 0), kBlack); }
    void pixel(Raster& image, int r, int c, Rgb colour) const {
        image.fill(c * scale_, r * scale_, scale_, scale_, colour);
    }
    int middle(int v) const { return v * scale_ + scale_ / 2; }
    Raster heatPicture(const std::vector<double>& values, double full, const std::vector<Mark>& marks) const;
    void legend(Raster& image, double full, const std::vector<Mark>& marks) const;
    void drawObject(Raster& image, const ObjectFacts& object) const;
    Rgb strongestCluster(int k) const;

    Session& session_;
    const FrameFacts& facts_;
    const GridColorDiff& g_;
    int scale_, text_;
};

std::string rounded(double v) {
    return std::isfinite(v) && std::fabs(v) < 1e9 ? std::to_string(std::lround(v)) : std::string();
}

void Painter::legend(Raster& image, double full, const std::vector<Mark>& marks) const {
    const int bar = Canvas::textHeight(text_), top = height() + text_;
    for (int x = 0; x < image.width(); x++) image.fill(x, top, 1, bar, heat(x, std::max(1, image.width() - 1)));
    int free = 0;  // the next text may begin here
    for (const Mark& mark : marks) {
        if (!(mark.value >= 0 && mark.value <= full)) continue;
        const int x = static_cast<int>(std::lround(mark.value / full * (image.width() - 1)));
        image.fill(x - text_ / 2, top, text_, bar + 2 * text_, kWhite);
        const int width = Canvas::textWidth(mark.text, text_);
        const int left = std::clamp(x - width / 2, text_, std::max(text_, image.width() - width - text_));
        if (left < free) continue;
        image.text(left, top + bar + 3 * text_, mark.text, text_, kWhite);
        free = left + width + 4 * text_;
    }
}

Raster Painter::heatPicture(const std::vector<double>& values, double full, const std::vector<Mark>& marks) const {
    Raster image = blank(true);
    for (int r = 0; r < g_.NofR; r++)
        for (int c = 0; c < g_.NofC; c++)
            pixel(image, r, c,
                  heat(values[static_cast<std::size_t>(r) * static_cast<std::size_t>(g_.NofC) +
                              static_cast<std::size_t>(c)],
                       full));
    legend(image, full, marks);
    return image;
}

// Box dashed, contour in a broad coloured line, on it the polygon in white with its corners marked.
void Painter::drawObject(Raster& image, const ObjectFacts& o) const {
    const Rgb colour = distinct(o.id);
    image.dashedBox(o.x * scale_, o.y * scale_, (o.x + o.width) * scale_ - 1, (o.y + o.height) * scale_ - 1, colour,
                    2 * scale_);
    const auto broad = [&](int dx, int dy) {
        for (std::size_t i = 1; i < o.contour.size(); i++)
            image.line(middle(o.contour[i - 1].x) + dx, middle(o.contour[i - 1].y) + dy, middle(o.contour[i].x) + dx,
                       middle(o.contour[i].y) + dy, colour);
    };
    for (int dy = -1; dy <= 1; dy++)
        for (int dx = -1; dx <= 1; dx++) broad(dx, dy);
    const ObjectFacts::Point* last = nullptr;
    for (const ObjectFacts::Point& p : o.contour) {
        if (!p.corner) continue;
        if (last != nullptr) image.line(middle(last->x), middle(last->y), middle(p.x), middle(p.y), kWhite);
        image.fill(middle(p.x) - 1, middle(p.y) - 1, 3, 3, kWhite);
        last = &p;
    }
}

Picture Painter::objects() {
    Raster image = blank(false);
    for (int r = 0; r < g_.NofR; r++)
        for (int c = 0; c < g_.NofC; c++) pixel(image, r, c, pixelOf(session_.frame(), r, c, g_.CIr));
    for (const ObjectFacts& o : facts_.objects) drawObject(image, o);
    for (const ObjectFacts& o : facts_.objects) {  // above everything else
        const std::string id = std::to_string(o.id);
        const int above = o.y * scale_ - Canvas::textHeight(text_) - 2 * text_;
        const int x = std::clamp(o.x * scale_, text_, std::max(text_, width() - Canvas::textWidth(id, text_) - text_));
        image.label(x, above >= text_ ? above : (o.y + o.height) * scale_ + 2 * text_, id, text_,
                    o.id == 0 ? kWhite : kBlack, distinct(o.id));
    }
    return {"objects", "Frame and objects",
            facts_.phase == Phase::kDetection
                ? "Dashed: box. Coloured line: contour. White line: polygon with its corners. Number: id."
                : "Nothing is searched for in this frame.",
            std::move(image)};
}

// The mean of the cluster with the greatest support, the earlier one on a tie; a checkerboard grey where there is none.
Rgb Painter::strongestCluster(int k) const {
    const BackgroundModel& b = *session_.tracker()->B;
    int best = -1, support = -1;
    for (int j = 0; j < b.cd[k].nclusters; j++) {
        const int s = b.cd[k].support[j];
        if (s <= support) continue;
        best = j;
        support = s;
    }
    if (best < 0) {
        const std::uint8_t grey = (g_.cd[k].minr + g_.cd[k].minc) / g_.cellsize % 2 == 0 ? 70 : 110;
        return {grey, grey, grey};
    }
    const int red = b.cd[k].clusters[best].R, green = b.cd[k].clusters[best].G, blue = b.cd[k].clusters[best].B;
    return g_.CIr == IR ? Rgb{byte(red), byte(red), byte(red)} : Rgb{byte(red), byte(green), byte(blue)};
}

Picture Painter::background() {
    Raster image = blank(false);
    const BackgroundModel& b = *session_.tracker()->B;
    if (b.BType == SINGLE) {
        for (int r = 0; r < g_.NofR; r++)
            for (int c = 0; c < g_.NofC; c++) pixel(image, r, c, pixelOf(b.IBkg, r, c, g_.CIr));
        return {"background", "Background", "The first frame, which stays the background.", std::move(image)};
    }
    for (int k = 0; k < g_.cnum_2; k++) {
        const Rgb colour = strongestCluster(k);
        inCell(g_, k, [&](int r, int c) { pixel(image, r, c, colour); });
    }
    return {"background", "Learnt background",
            "Mean colour of each cell's strongest cluster. Grey checks: nothing learnt yet.", std::move(image)};
}

Picture Painter::clusters() {
    const BackgroundModel& b = *session_.tracker()->B;
    const std::vector<double> counts = perPixel(g_, [&b](int k) { return static_cast<double>(b.cd[k].nclusters); });
    std::vector<Mark> marks;
    for (int n = 0; n <= KsBackgroundCell::kMaxClusters; n++)
        marks.push_back({static_cast<double>(n), std::to_string(n)});
    return {"clusters", "Clusters per cell", "How many colours each cell of the background keeps, 0 to 6.",
            heatPicture(counts, KsBackgroundCell::kMaxClusters, marks)};
}

Picture Painter::difference() {
    const double full = std::isfinite(facts_.cht) && facts_.cht > 0 ? 2 * facts_.cht : 1;
    return {"difference", "Difference",
            "Difference of each cell to the background. Marks: 0, the thresholds clt and cht, twice cht and more.",
            heatPicture(perPixel(g_, [this](int k) { return g_.diff[k]; }), full,
                        {{0, "0"},
                         {facts_.clt, rounded(facts_.clt)},
                         {facts_.cht, rounded(facts_.cht)},
                         {full, ">" + rounded(full)}})};
}

const std::vector<double>& unitMarks() {
    static const std::vector<double> marks{0, 0.25, 0.5, 0.75, 1};
    return marks;
}

Picture Painter::confidence() {
    std::vector<Mark> marks;
    for (const double v : unitMarks()) marks.push_back({v, std::to_string(v).substr(0, 4)});
    return {"confidence", "Confidence",
            "0 up to clt, 1 from cht on. Cells whose component was dropped for want of a cell at 1 are back at 0.",
            heatPicture(perPixel(g_, [this](int k) { return g_.conf[k]; }), 1, marks)};
}

Picture Painter::derivativeConfidence() {
    std::vector<Mark> marks;
    for (const double v : unitMarks()) marks.push_back({v, std::to_string(v).substr(0, 4)});
    return {"derivative", "Derivative confidence", "Edges of the difference, 0 to 1: they seed and join components.",
            heatPicture(perPixel(g_, [this](int k) { return g_.der_conf[k]; }), 1, marks)};
}

// Labels in colour over the darkened frame, each component's label in its middle.
Picture Painter::labels() {
    Raster image = blank(false);
    for (int r = 0; r < g_.NofR; r++) {
        for (int c = 0; c < g_.NofC; c++) {
            const Rgb p = pixelOf(session_.frame(), r, c, g_.CIr);
            const auto grey = static_cast<std::uint8_t>((p.red + p.green + p.blue) / 8);
            pixel(image, r, c, {grey, grey, grey});
        }
    }
    struct Extent {
        int minr, maxr, minc, maxc;
    };
    std::map<int, Extent> extents;
    for (int k = 0; k < g_.cnum; k++) {
        const int label = g_.label[k];
        if (label == 0) continue;
        const Rgb colour = distinct(label);
        Extent& e = extents.try_emplace(label, Extent{g_.NofR, 0, g_.NofC, 0}).first->second;
        inCell(g_, k, [&](int r, int c) {
            pixel(image, r, c, colour);
            e = {std::min(e.minr, r), std::max(e.maxr, r), std::min(e.minc, c), std::max(e.maxc, c)};
        });
    }
    for (const auto& [label, e] : extents) {
        const std::string text = std::to_string(label);
        image.label(middle((e.minc + e.maxc) / 2) - Canvas::textWidth(text, text_) / 2,
                    middle((e.minr + e.maxr) / 2) - Canvas::textHeight(text_) / 2, text, text_, kWhite, kBlack);
    }
    return {"labels", "Components", "Each component in a colour of its own, with its label.", std::move(image)};
}

}  // namespace

int pictureScale(int frame_width) {
    return std::clamp((640 + frame_width / 2) / std::max(1, frame_width), 1, 8);
}

std::vector<Picture> drawPictures(Session& session, const FrameFacts& facts, int scale) {
    std::vector<Picture> pictures;
    if (facts.phase == Phase::kNoPixels || session.tracker() == nullptr) return pictures;
    Painter paint(session, facts, scale);
    pictures.push_back(paint.objects());
    pictures.push_back(paint.background());
    if (session.tracker()->B->BType == MULTIPLE) pictures.push_back(paint.clusters());
    if (facts.phase != Phase::kDetection) return pictures;
    pictures.push_back(paint.difference());
    pictures.push_back(paint.confidence());
    pictures.push_back(paint.derivativeConfidence());
    pictures.push_back(paint.labels());
    return pictures;
}

}  // namespace fleifeisa::inspect
