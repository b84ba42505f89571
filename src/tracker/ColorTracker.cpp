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
    if (BT == MULTIPLE) {
        G->Compare(CI, *B);
        G->Score(clt, cht, lt, ht, dlt, dht, CIr == COLOR ? color_low : ir_low, CIr == COLOR ? color_high : ir_high);
    } else {
        G->ComputeDifferences(CI, B);
        G->AddDifferences();
        G->CellDerivatives();
        G->Confidences(clt, cht, lt, ht, dlt, dht, color_low, color_high, ir_low, ir_high);
    }
    CleanObjectList(frame);  // before the labelling: it sees only records of earlier frames
    if (BT == MULTIPLE)
        G->Label();
    else
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
    ob.rc = static_cast<int>((rows + ob.area / 2) / ob.area);
    ob.cc = static_cast<int>((cols + ob.area / 2) / ob.area);
}

void ColorDiffTracker::ChooseBestFive() {
    for (int i = 0; i < numobjects; i++)
        if (Ob[usedob[i]].framenum == t) Ob[usedob[i]].reportit = true;
}
