#include "explain/answer.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "explain/json.h"

namespace fleifeisa::explain {
namespace {

constexpr int kMostParents = 5;  // of an object in an answer, best first
// Which cells' clusters a pixel is compared with, in the order of the comparison: its main cell's, then those of the
// four cells of the other lattice around that one's middle.
constexpr const char* kSlotNames[] = {"own", "up-right", "up-left", "down-left", "down-right"};

const char* nameOf(Phase phase) {
    switch (phase) {
        case Phase::kFirst:
            return "first";
        case Phase::kLearning:
            return "learning";
        case Phase::kDetection:
            return "detection";
        default:
            return "no-pixels";
    }
}

std::string boxJson(const CellBox& box) {
    return list(box.minc, box.minr, box.maxc - box.minc + 1, box.maxr - box.minr + 1);
}

// Of infrared frames one channel counts, and the others are never set.
std::string colourJson(int red, int green, int blue, ImageType type) {
    return type == IR ? list(red) : list(red, green, blue);
}

std::string parametersJson(const Snapshot& s) {
    const control& c = *s.parameters;
    const bool infrared = s.tracker() != nullptr && s.tracker()->CIr == IR;
    Members m;
    m.add("bg_frames", c.bg_frames);
    m.add("low", infrared ? c.ir_low : c.color_low).add("high", infrared ? c.ir_high : c.color_high);
    return m.object();
}

// ---- objects ----

std::string parentsJson(const Object& ob) {
    Items parents;
    for (int i = 0; i < std::min(ob.numparents, kMostParents); i++)
        parents.raw(list(ob.parents[i], static_cast<int>(ob.dist[i])));
    return parents.array();
}

int densityOf(const Object& ob) {
    const int width = ob.h.maxc - ob.h.minc + 1, height = ob.h.maxr - ob.h.minr + 1;
    return static_cast<int>(
        std::floor(static_cast<float>(static_cast<long double>(ob.area) / (width * height) * 100.0L)));
}

Members objectMembers(const Object& ob) {
    Members m;
    m.add("id", ob.id).add("label", ob.label);
    m.raw("box", boxJson({ob.h.minr, ob.h.maxr, ob.h.minc, ob.h.maxc}));
    m.add("area", ob.area).add("density", densityOf(ob)).add("confidence", ob.conf);
    m.add("frames", ob.numframes).add("cells", ob.numcells);
    return m.raw("parents", parentsJson(ob));
}

// Of the latest searched frame, in the order of their components.
template <class Take>
void eachObject(const ColorDiffTracker& tracker, Take take) {
    for (int i = 0; i < tracker.numobjects; i++) {
        const Object& ob = tracker.Ob[tracker.usedob[i]];
        if (ob.framenum == tracker.t) take(ob);
    }
}

void addObjects(const Snapshot& s, Members& m) {
    Items objects;
    std::size_t count = 0;
    eachObject(*s.tracker(), [&](const Object& ob) {
        if (count++ < kMostObjects) objects.raw(objectMembers(ob).object());
    });
    m.raw("objects", objects.array());
    m.add("objects_left_out", count > kMostObjects ? count - kMostObjects : 0);
}

std::string outlineJson(const Object& ob) {
    Items points;
    std::size_t count = 0;
    for (const ContNode* node = ob.fnode; node != nullptr && count < kMostPoints; node = node->link, count++)
        points.raw(list(node->c, node->r));
    return points.array();
}

std::string objectJson(const Snapshot& s, int id) {
    std::string json = "null";
    eachObject(*s.tracker(), [&](const Object& ob) {
        if (ob.id == id) json = objectMembers(ob).raw("outline", outlineJson(ob)).object();
    });
    return json;
}

// ---- cells ----

std::string clustersJson(const KsBackgroundCell& cell, ImageType type) {
    Items clusters;
    for (int i = 0; i < cell.nclusters; i++) {
        const ColorMean& mean = cell.clusters[i];
        Members m;
        m.raw("mean", colourJson(mean.R, mean.G, mean.B, type)).add("support", static_cast<int>(cell.support[i]));
        m.add("counts", cell.support[i] > KsBackgroundCell::kMinSupport);
        clusters.raw(m.object());
    }
    return clusters.array();
}

std::string cellJson(const Snapshot& s, int k) {
    const GridColorDiff& g = s.grid();
    const KsBackgroundCell cell = s.background().Look(k);
    Members m;
    m.word("lattice", k < g.cnum_2 ? "main" : "shifted").add("cell", k).raw("box", boxJson(g.Box(k)));
    if (s.searched()) {
        m.add("difference", g.diff[k]).add("confidence", g.conf[k]).add("edges", g.der_conf[k]);
        m.add("label", g.label[k]);
    }
    const Since since = s.since[static_cast<std::size_t>(k)];
    m.add("foreground", (since & 1) != 0).add("since_s", s.secondsSince(k));
    m.add("since_start", since >> 1 == 0);
    return m.raw("clusters", clustersJson(cell, g.CIr)).object();
}

// The cluster that the pixel is nearest to, as the comparison finds it: the earlier one on a tie.
struct Nearest {
    int distance = kFarthest, slot = -1;
    ColorMean mean{};
};

void look(const KsBackgroundCell& cell, int slot, ImageType type, const ColorValue& pixel, Nearest& nearest) {
    for (int i = 0; i < cell.nclusters; i++) {
        if (cell.support[i] <= KsBackgroundCell::kMinSupport) continue;
        const ColorMean& mean = cell.clusters[i];
        const int r = mean.R - pixel.R, g = mean.G - pixel.G, b = mean.B - pixel.B;
        const int distance = type == IR ? std::abs(r) : r * r + g * g + b * b;
        if (distance < nearest.distance) nearest = {distance, slot, mean};
    }
}

Nearest nearestTo(const Snapshot& s, int main_cell, const ColorValue& pixel) {
    const BackgroundModel& b = s.background();
    Nearest nearest;
    look(b.Look(main_cell), 0, b.CIr, pixel, nearest);
    for (int slot = 4; slot < 8; slot++)
        if (const int k = b.n[main_cell].n[slot]; k >= 0) look(b.Look(k), slot - 3, b.CIr, pixel, nearest);
    return nearest;
}

void addPixel(const Snapshot& s, const Pixel& at, int main_cell, Members& m) {
    const GridColorDiff& g = s.grid();
    const std::size_t i =
        static_cast<std::size_t>(at.y) * static_cast<std::size_t>(g.NofC) + static_cast<std::size_t>(at.x);
    if (s.searched()) m.raw("pixel_difference", colourJson(g.RedD[i], g.GreenD[i], g.BlueD[i], g.CIr));
    if (!s.pixels) return;
    const unsigned char* const rgb = s.pixels.get() + 3 * i;
    m.raw("pixel", colourJson(rgb[0], rgb[1], rgb[2], g.CIr));
    const Nearest nearest = nearestTo(s, main_cell, {rgb[0], rgb[1], rgb[2]});
    if (nearest.slot < 0) {
        m.raw("nearest", "null");
        return;
    }
    Members n;
    n.raw("mean", colourJson(nearest.mean.R, nearest.mean.G, nearest.mean.B, g.CIr));
    n.add("distance", nearest.distance).word("of", kSlotNames[nearest.slot]);
    m.raw("nearest", n.object());
}

std::string placeJson(const Snapshot& s, const Pixel& at) {
    const BackgroundModel& b = s.background();
    const int main_cell = b.map1.At(at.y, at.x), shifted = b.map2.At(at.y, at.x);
    Members m;
    m.raw("at", list(at.x, at.y));
    addPixel(s, at, main_cell, m);
    Items cells;
    cells.raw(cellJson(s, main_cell));
    if (shifted >= 0) cells.raw(cellJson(s, shifted));
    return m.raw("cells", cells.array()).object();
}

// ---- the frame ----

void addThresholds(const Snapshot& s, Members& m) {
    const ColorDiffTracker& t = *s.tracker();
    const GridColorDiff& g = s.grid();
    const auto foreground = std::count_if(g.label, g.label + g.cnum, [](int label) { return label != 0; });
    m.add("low", t.clt).add("high", t.cht);
    m.add("components", g.GetNumLabel()).add("foreground", static_cast<int>(foreground));
}

void addFrame(const Snapshot& s, Members& m) {
    const ColorDiffTracker& t = *s.tracker();
    const GridColorDiff& g = s.grid();
    m.word("type", t.CIr == IR ? "infrared" : "color").raw("size", list(g.NofC, g.NofR));
    m.add("cells", g.cnum).add("main_cells", g.cnum_2).add("cell_size", g.cellsize);
    m.raw("floors", list(t.lt, t.ht)).raw("edge_thresholds", list(t.dlt, t.dht));
    m.add("radius", s.background().maxdist);
    if (!s.searched()) return;
    addThresholds(s, m);
    addObjects(s, m);
}

std::string addLayer(const Snapshot& s, Layer layer, Members& m) {
    LayerPicture picture = layerOf(layer, s);
    Members l;
    l.word("name", nameOf(layer)).add("width", picture.width).add("height", picture.height);
    m.raw("layer", l.add("step", picture.step).add("full", picture.full).object());
    return std::move(picture.bytes);
}

std::string faultOf(const Question& question, const Snapshot& s) {
    if (s.cycle == nullptr) return "no frame has come yet";
    if (question.frame != 0 && question.frame != s.sequence) return "that frame is not the latest";
    if (s.tracker() == nullptr)
        return question.at || question.object || question.layer != Layer::kNone ? "no frame with pixels has come yet"
                                                                                : "";
    if (question.at && (question.at->x >= s.grid().NofC || question.at->y >= s.grid().NofR))
        return "cell: outside of the frame";
    if ((question.object || question.layer != Layer::kNone) && !s.searched())
        return "nothing was searched for in this frame";
    return "";
}

}  // namespace

Answer errorAnswer(const std::string& what) {
    return {Members().word("error", what).object(), ""};
}

Answer answer(const Question& question, const Snapshot& s) {
    if (const std::string fault = faultOf(question, s); !fault.empty()) return errorAnswer(fault);
    Members m;
    m.add("sequence", s.sequence).add("frame", s.cycle->Number()).word("phase", nameOf(s.phase));
    m.word("background", s.compared ? "compared" : "updated").raw("parameters", parametersJson(s));
    Answer result;
    if (s.tracker() != nullptr) {
        addFrame(s, m);
        if (question.at) m.raw("place", placeJson(s, *question.at));
        if (question.object) m.raw("object", objectJson(s, *question.object));
        if (question.layer != Layer::kNone) result.layer = addLayer(s, question.layer, m);
    }
    result.json = m.object();
    return result.json.size() > kMostJson ? errorAnswer("the answer would be too long") : std::move(result);
}

std::string framed(std::uint32_t id, const Answer& answer) {
    return std::to_string(id) + ' ' + std::to_string(answer.json.size()) + ' ' + std::to_string(answer.layer.size()) +
           '\n' + answer.json + answer.layer;
}

}  // namespace fleifeisa::explain
