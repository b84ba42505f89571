#include "inspect/pictures.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>

namespace fleifeisa::inspect {

namespace {

constexpr Rgb kBlack{0, 0, 0}, kWhite{255, 255, 255};

// Calls f(r, c) for the pixels of a cell that lie inside the frame.
template <class F>
void InCell(const GridColorDiff& G, int k, F f) {
    const int r0 = G.cd[k].minr, c0 = G.cd[k].minc;
    const int r1 = std::min<int>(G.cd[k].maxr, G.NofR - 1), c1 = std::min<int>(G.cd[k].maxc, G.NofC - 1);
    for (int r = r0; r <= r1; r++)
        for (int c = c0; c <= c1; c++) f(r, c);
}

// A number for every pixel: the greater one of the cells that cover it.
std::vector<double> PerPixel(const GridColorDiff& G, const std::function<double(int)>& value) {
    std::vector<double> pixels(static_cast<std::size_t>(G.NofR) * static_cast<std::size_t>(G.NofC), 0.0);
    for (int k = 0; k < G.cnum; k++) {
        const double v = value(k);
        InCell(G, k, [&](int r, int c) {
            double& p =
                pixels[static_cast<std::size_t>(r) * static_cast<std::size_t>(G.NofC) + static_cast<std::size_t>(c)];
            p = std::max(p, v);
        });
    }
    return pixels;
}

std::uint8_t Byte(int v) {
    return static_cast<std::uint8_t>(std::clamp(v, 0, 255));
}

Rgb PixelOf(const KsColorImage& image, int r, int c, ImageType type) {
    if (type == IR) return {Byte(image.Red(r, c)), Byte(image.Red(r, c)), Byte(image.Red(r, c))};
    return {Byte(image.Red(r, c)), Byte(image.Green(r, c)), Byte(image.Blue(r, c))};
}

// The pictures share one size: the enlarged frame, with room below for a legend where there is one.
class Painter {
 public:
    Painter(Session& session, const FrameFacts& facts, int scale)
        : session_(session),
          facts_(facts),
          G_(*session.Tracker()->G),
          scale_(scale),
          text_(std::max(1, (G_.NofC * scale + 200) / 400)) {}

    Picture Objects();
    Picture Background();
    Picture Clusters();
    Picture Difference();
    Picture Confidence();
    Picture DerivativeConfidence();
    Picture Labels();

 private:
    struct Mark {
        double value;
        std::string text;
    };
    int Width() const { return G_.NofC * scale_; }
    int Height() const { return G_.NofR * scale_; }
    int LegendHeight() const { return Raster::TextHeight(text_) * 3 + 4 * text_; }
    Raster Blank(bool legend) const { return Raster(Width(), Height() + (legend ? LegendHeight() : 0), kBlack); }
    void Pixel(Raster& image, int r, int c, Rgb colour) const {
        image.Fill(c * scale_, r * scale_, scale_, scale_, colour);
    }
    int Middle(int v) const { return v * scale_ + scale_ / 2; }
    Raster HeatPicture(const std::vector<double>& values, double full, const std::vector<Mark>& marks) const;
    void Legend(Raster& image, double full, const std::vector<Mark>& marks) const;
    void DrawObject(Raster& image, const ObjectFacts& object) const;
    Rgb StrongestCluster(int k) const;

    Session& session_;
    const FrameFacts& facts_;
    const GridColorDiff& G_;
    int scale_, text_;
};

std::string Rounded(double v) {
    return std::isfinite(v) && std::fabs(v) < 1e9 ? std::to_string(std::lround(v)) : std::string();
}

void Painter::Legend(Raster& image, double full, const std::vector<Mark>& marks) const {
    const int bar = Raster::TextHeight(text_), top = Height() + text_;
    for (int x = 0; x < image.Width(); x++) image.Fill(x, top, 1, bar, Heat(x, std::max(1, image.Width() - 1)));
    int free = 0;  // the next text may begin here
    for (const Mark& mark : marks) {
        if (!(mark.value >= 0 && mark.value <= full)) continue;
        const int x = static_cast<int>(std::lround(mark.value / full * (image.Width() - 1)));
        image.Fill(x - text_ / 2, top, text_, bar + 2 * text_, kWhite);
        const int width = Raster::TextWidth(mark.text, text_);
        const int left = std::clamp(x - width / 2, text_, std::max(text_, image.Width() - width - text_));
        if (left < free) continue;
        image.Text(left, top + bar + 3 * text_, mark.text, text_, kWhite);
        free = left + width + 4 * text_;
    }
}

Raster Painter::HeatPicture(const std::vector<double>& values, double full, const std::vector<Mark>& marks) const {
    Raster image = Blank(true);
    for (int r = 0; r < G_.NofR; r++)
        for (int c = 0; c < G_.NofC; c++)
            Pixel(image, r, c,
                  Heat(values[static_cast<std::size_t>(r) * static_cast<std::size_t>(G_.NofC) +
                              static_cast<std::size_t>(c)],
                       full));
    Legend(image, full, marks);
    return image;
}

// Box dashed, contour in a broad coloured line, on it the polygon in white with its corners marked.
void Painter::DrawObject(Raster& image, const ObjectFacts& o) const {
    const Rgb colour = Distinct(o.id);
    image.Box(o.x * scale_, o.y * scale_, (o.x + o.width) * scale_ - 1, (o.y + o.height) * scale_ - 1, colour,
              2 * scale_);
    const auto broad = [&](int dx, int dy) {
        for (std::size_t i = 1; i < o.contour.size(); i++)
            image.Line(Middle(o.contour[i - 1].x) + dx, Middle(o.contour[i - 1].y) + dy, Middle(o.contour[i].x) + dx,
                       Middle(o.contour[i].y) + dy, colour);
    };
    for (int dy = -1; dy <= 1; dy++)
        for (int dx = -1; dx <= 1; dx++) broad(dx, dy);
    const ObjectFacts::Point* last = nullptr;
    for (const ObjectFacts::Point& p : o.contour) {
        if (!p.corner) continue;
        if (last != nullptr) image.Line(Middle(last->x), Middle(last->y), Middle(p.x), Middle(p.y), kWhite);
        image.Fill(Middle(p.x) - 1, Middle(p.y) - 1, 3, 3, kWhite);
        last = &p;
    }
}

Picture Painter::Objects() {
    Raster image = Blank(false);
    for (int r = 0; r < G_.NofR; r++)
        for (int c = 0; c < G_.NofC; c++) Pixel(image, r, c, PixelOf(session_.Frame(), r, c, G_.CIr));
    for (const ObjectFacts& o : facts_.objects) DrawObject(image, o);
    for (const ObjectFacts& o : facts_.objects) {  // above everything else
        const std::string id = std::to_string(o.id);
        const int above = o.y * scale_ - Raster::TextHeight(text_) - 2 * text_;
        const int x = std::clamp(o.x * scale_, text_, std::max(text_, Width() - Raster::TextWidth(id, text_) - text_));
        const Rgb plate = Distinct(o.id);
        image.Text(x, above >= text_ ? above : (o.y + o.height) * scale_ + 2 * text_, id, text_,
                   o.id == 0 ? kWhite : kBlack, &plate);
    }
    return {"objects", "Frame and objects",
            facts_.phase == Phase::kDetection
                ? "Dashed: box. Coloured line: contour. White line: polygon with its corners. Number: id."
                : "Nothing is searched for in this frame.",
            std::move(image)};
}

// The mean of the cluster with the greatest support, the earlier one on a tie; a checkerboard grey where there is none.
Rgb Painter::StrongestCluster(int k) const {
    const BackgroundModel& B = *session_.Tracker()->B;
    int best = -1, support = -1;
    for (int j = 0; j < B.cd[k].nclusters; j++) {
        const int s = B.cd[k].support[j];
        if (s <= support) continue;
        best = j;
        support = s;
    }
    if (best < 0) {
        const std::uint8_t grey = (G_.cd[k].minr + G_.cd[k].minc) / G_.cellsize % 2 == 0 ? 70 : 110;
        return {grey, grey, grey};
    }
    const int red = B.cd[k].clusters[best].R, green = B.cd[k].clusters[best].G, blue = B.cd[k].clusters[best].B;
    return G_.CIr == IR ? Rgb{Byte(red), Byte(red), Byte(red)} : Rgb{Byte(red), Byte(green), Byte(blue)};
}

Picture Painter::Background() {
    Raster image = Blank(false);
    const BackgroundModel& B = *session_.Tracker()->B;
    if (B.BType == SINGLE) {
        for (int r = 0; r < G_.NofR; r++)
            for (int c = 0; c < G_.NofC; c++) Pixel(image, r, c, PixelOf(B.IBkg, r, c, G_.CIr));
        return {"background", "Background", "The first frame, which stays the background.", std::move(image)};
    }
    for (int k = 0; k < G_.cnum_2; k++) {
        const Rgb colour = StrongestCluster(k);
        InCell(G_, k, [&](int r, int c) { Pixel(image, r, c, colour); });
    }
    return {"background", "Learnt background",
            "Mean colour of each cell's strongest cluster. Grey checks: nothing learnt yet.", std::move(image)};
}

Picture Painter::Clusters() {
    const BackgroundModel& B = *session_.Tracker()->B;
    const std::vector<double> counts = PerPixel(G_, [&B](int k) { return static_cast<double>(B.cd[k].nclusters); });
    std::vector<Mark> marks;
    for (int n = 0; n <= KsBackgroundCell::kMaxClusters; n++)
        marks.push_back({static_cast<double>(n), std::to_string(n)});
    return {"clusters", "Clusters per cell", "How many colours each cell of the background keeps, 0 to 6.",
            HeatPicture(counts, KsBackgroundCell::kMaxClusters, marks)};
}

Picture Painter::Difference() {
    const double full = std::isfinite(facts_.cht) && facts_.cht > 0 ? 2 * facts_.cht : 1;
    return {"difference", "Difference",
            "Difference of each cell to the background. Marks: 0, the thresholds clt and cht, twice cht and more.",
            HeatPicture(PerPixel(G_, [this](int k) { return G_.diff[k]; }), full,
                        {{0, "0"},
                         {facts_.clt, Rounded(facts_.clt)},
                         {facts_.cht, Rounded(facts_.cht)},
                         {full, ">" + Rounded(full)}})};
}

const std::vector<double>& UnitMarks() {
    static const std::vector<double> marks{0, 0.25, 0.5, 0.75, 1};
    return marks;
}

Picture Painter::Confidence() {
    std::vector<Mark> marks;
    for (const double v : UnitMarks()) marks.push_back({v, std::to_string(v).substr(0, 4)});
    return {"confidence", "Confidence",
            "0 up to clt, 1 from cht on. Cells whose component was dropped for want of a cell at 1 are back at 0.",
            HeatPicture(PerPixel(G_, [this](int k) { return G_.conf[k]; }), 1, marks)};
}

Picture Painter::DerivativeConfidence() {
    std::vector<Mark> marks;
    for (const double v : UnitMarks()) marks.push_back({v, std::to_string(v).substr(0, 4)});
    return {"derivative", "Derivative confidence", "Edges of the difference, 0 to 1: they seed and join components.",
            HeatPicture(PerPixel(G_, [this](int k) { return G_.der_conf[k]; }), 1, marks)};
}

// Labels in colour over the darkened frame, each component's label in its middle.
Picture Painter::Labels() {
    Raster image = Blank(false);
    for (int r = 0; r < G_.NofR; r++) {
        for (int c = 0; c < G_.NofC; c++) {
            const Rgb p = PixelOf(session_.Frame(), r, c, G_.CIr);
            const auto grey = static_cast<std::uint8_t>((p.r + p.g + p.b) / 8);
            Pixel(image, r, c, {grey, grey, grey});
        }
    }
    struct Extent {
        int minr, maxr, minc, maxc;
    };
    std::map<int, Extent> extents;
    for (int k = 0; k < G_.cnum; k++) {
        const int label = G_.label[k];
        if (label == 0) continue;
        const Rgb colour = Distinct(label);
        Extent& e = extents.try_emplace(label, Extent{G_.NofR, 0, G_.NofC, 0}).first->second;
        InCell(G_, k, [&](int r, int c) {
            Pixel(image, r, c, colour);
            e = {std::min(e.minr, r), std::max(e.maxr, r), std::min(e.minc, c), std::max(e.maxc, c)};
        });
    }
    for (const auto& [label, e] : extents) {
        const std::string text = std::to_string(label);
        const Rgb plate = kBlack;
        image.Text(Middle((e.minc + e.maxc) / 2) - Raster::TextWidth(text, text_) / 2,
                   Middle((e.minr + e.maxr) / 2) - Raster::TextHeight(text_) / 2, text, text_, kWhite, &plate);
    }
    return {"labels", "Components", "Each component in a colour of its own, with its label.", std::move(image)};
}

}  // namespace

int PictureScale(int frame_width) {
    return std::clamp((640 + frame_width / 2) / std::max(1, frame_width), 1, 8);
}

std::vector<Picture> DrawPictures(Session& session, const FrameFacts& facts, int scale) {
    std::vector<Picture> pictures;
    if (facts.phase == Phase::kNoPixels || session.Tracker() == nullptr) return pictures;
    Painter paint(session, facts, scale);
    pictures.push_back(paint.Objects());
    pictures.push_back(paint.Background());
    if (session.Tracker()->B->BType == MULTIPLE) pictures.push_back(paint.Clusters());
    if (facts.phase != Phase::kDetection) return pictures;
    pictures.push_back(paint.Difference());
    pictures.push_back(paint.Confidence());
    pictures.push_back(paint.DerivativeConfidence());
    pictures.push_back(paint.Labels());
    return pictures;
}

}  // namespace fleifeisa::inspect
