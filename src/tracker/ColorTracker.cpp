// Life of the tracker and the pipeline of a detection frame.
#include "tracker/kscolortracker.h"

#include <cstdlib>
#include <memory>
#include <new>

#include "tracker/frameindex.h"

#include "tracker/Invariants.h"

namespace {

// Radius of a cluster, per pixel and channel: half the low threshold, spread over the pixels of a cell.
int ClusterDistance(double clt, int cellsize) {
    return static_cast<int>(static_cast<double>(0.5f) * clt) / (cellsize * cellsize);
}

// All-zero bytes are free records, and calloc leaves untouched pages of the table without memory behind them.
Object* NewObjectTable() {
    void* table = std::calloc(ColorDiffTracker::kMaxObjects, sizeof(Object));
    if (table == nullptr) throw std::bad_alloc();
    return static_cast<Object*>(table);
}

}  // namespace

ColorDiffTracker::ColorDiffTracker(KsColorImage& CI, int lt_in, int ht_in, double, int cellsize_in, double alpha_in,
                                   ImageType CIr_in, bool DEBUG_NODEBUG, int dlt_in, int dht_in, int NofBF,
                                   BackgroundType BT_in)
    : RestartTracker(false),
      NextTmpObId(1),
      NextObId(0),
      CIr(CIr_in),
      DEBUG(DEBUG_NODEBUG),
      B(nullptr),
      BT(BT_in),
      NofBackgroundFrames(NofBF),
      lt(lt_in),
      ht(ht_in),
      clt(lt_in),
      cht(ht_in),
      dlt(dlt_in),
      dht(dht_in),
      maxdist(0),
      G(nullptr),
      t(0),
      Ob(nullptr),
      numobjects(0),
      usedob{} {
    // The grid comes before the model: it knows the cells, and building the model seeds the generator.
    auto grid = std::make_unique<GridColorDiff>(CI, cellsize_in, CIr);
    auto model =
        std::make_unique<BackgroundModel>(CI, alpha_in, CIr_in, grid.get(), BT, ClusterDistance(clt, cellsize_in));
    Ob = NewObjectTable();
    G = grid.release();
    B = model.release();
    index = std::make_unique<FrameIndex>(*this);
    CheckGeometry(*this);
}

std::unique_ptr<ColorDiffTracker> MakeTracker(ImageType type, KsColorImage& first, int NofBF, BackgroundType BT,
                                              int cellsize, bool DEBUG_NODEBUG) {
    struct Setup {
        int lt, ht, dlt, dht;
        double alpha;
    };
    constexpr Setup kColor{240, 480, 500, 1200, 0.95}, kIr{120, 240, 150, 600, 0.99};
    const Setup& s = type == COLOR ? kColor : kIr;
    return std::make_unique<ColorDiffTracker>(first, s.lt, s.ht, 1.0, cellsize, s.alpha, type, DEBUG_NODEBUG, s.dlt,
                                              s.dht, NofBF, BT);
}

ColorDiffTracker::~ColorDiffTracker() {
    // Contours are not returned one by one: their nodes go with the grid's pool.
    delete G;
    delete B;
    for (int k = 0; k < handed_out; k++) Ob[k].~Object();
    std::free(Ob);
}

void ColorDiffTracker::UpdateBackground(KsColorImage& CI, bool updateall) {
    B->UpdateBackground(CI, updateall, t);
    CheckFrame(*this, "the background update");
}

void ColorDiffTracker::DetectForeground(KsColorImage& CI, int frame, float color_low, float color_high, float ir_low,
                                        float ir_high) {
    t = frame;
    G->ComputeDifferences(CI, B);
    G->AddDifferences();
    G->CellDerivatives();
    G->Confidences(clt, cht, lt, ht, dlt, dht, color_low, color_high, ir_low, ir_high);
    CleanObjectList(frame);  // before the labelling: it sees only records of earlier frames
    G->ConnectedComponents();
    G->ListComponents();
    index->Begin(frame, G->numprevlabel);
    for (int label = 1; label <= G->GetNumLabel(); label++) {
        if (!(G->GetConfCC(label) > 0.1)) continue;
        const int k = TakeObjectCell();
        if (k == kMaxObjects) continue;  // table full: no record, id or contour for this component
        Observe(CI, k, label);
        index->Refresh(k);
        if (DEBUG) TraceRecord(Ob[k]);
        G->FindPotentialParents(Ob[k]);
        Associate(k);
        index->Note(numobjects - 1);
        if (DEBUG) TraceId(Ob[k]);
        if (NextTmpObId > kMaxId) NextTmpObId = 1;
    }
    G->ForgetComponents();
    ChooseBestFive();
    if (DEBUG) TraceSummary();
    CheckFrame(*this, "the detection");
}

void ColorDiffTracker::Observe(KsColorImage& CI, int k, int label) {
    Object& ob = Ob[k];
    long long rows = 0, cols = 0;  // sums over the component's pixels
    ob.h.KsInitColorHistogram();
    ob.area = G->BuildHistogramForComponent(CI, ob.h, label, ob.conf, rows, cols);
    ob.label = label;
    ob.fnode = G->BuildContourForObject(label);
    ob.framenum = t;
    // Half a cell of one pixel is none, so that components of such cells have no area; their centre is their box's.
    ob.rc = ob.area > 0 ? static_cast<int>((rows + ob.area / 2) / ob.area) : (ob.h.minr + ob.h.maxr) / 2;
    ob.cc = ob.area > 0 ? static_cast<int>((cols + ob.area / 2) / ob.area) : (ob.h.minc + ob.h.maxc) / 2;
}

void ColorDiffTracker::ChooseBestFive() {
    for (int i = 0; i < numobjects; i++)
        if (Ob[usedob[i]].framenum == t) Ob[usedob[i]].reportit = true;
}
