// Construction of the background model over the first frame.
#include "backgroundmodel.h"
#include "pixelwalk.h"
#include "randomdraws.h"

BackgroundModel::BackgroundModel()
    : NofR(0),
      NofC(0),
      CIr(COLOR),
      G(nullptr),
      BType(SINGLE),
      n(nullptr),
      map1(nullptr),
      map2(nullptr),
      cnum(0),
      cnum_2(0),
      cellsize(0),
      cellsize_2(0),
      maxdist(0),
      mindist(0),
      dermaxdist(128),
      dermindist(32),
      alpha(0),
      t(0) {}

BackgroundModel::BackgroundModel(KsColorImage& CI, double alpha_in, ImageType CIr_in, GridColorDiff* G_in,
                                 BackgroundType BT_in, int maxdist_in)
    : BackgroundModel() {
    random_draws::Seed();
    NofR = CI.NofR;
    NofC = CI.NofC;
    CIr = CIr_in;
    BType = BT_in;
    G = G_in;
    // The volatile double keeps the product from being carried in a wider register: 0.29 gives 28, not 29.
    const volatile double hundredths = alpha_in * 100.0;
    alpha = static_cast<int>(hundredths);
    // Colour distances are squared, gray ones are not; the 32-bit product wraps.
    maxdist = CIr_in == COLOR ? static_cast<int>(static_cast<unsigned>(maxdist_in) * static_cast<unsigned>(maxdist_in))
                              : maxdist_in;
    if (BT_in == SINGLE) {
        IBkg = CI;
        return;
    }

    cnum = G->cnum;
    cnum_2 = G->cnum_2;
    cellsize = G->cellsize;
    cellsize_2 = G->cellsize_2;
    n = G->n;
    KsBackgroundCell* const cells = new KsBackgroundCell[static_cast<std::size_t>(cnum)]();
    cd.cells = cells;
    cd.shared.resize(static_cast<std::size_t>(cnum));
    candidates.resize(static_cast<std::size_t>(cnum));
    const std::size_t pixels = cnum > 0 ? static_cast<std::size_t>(NofR) * static_cast<std::size_t>(NofC) : 0;
    map1 = new int[pixels];
    map2 = new int[pixels];
    for (std::size_t i = 0; i < pixels; i++) map2[i] = -1;
    for (int k = 0; k < cnum; k++) {
        const CellBox box = G->Box(k);
        cells[k].KsSetBoxBounds(box.minr, box.maxr, box.minc, box.maxc);
        int* map = k < cnum_2 ? map1 : map2;
        ForEachPixel(box, NofR, NofC, [&](int r, int c) {
            map[static_cast<std::size_t>(r) * static_cast<std::size_t>(NofC) + static_cast<std::size_t>(c)] = k;
        });
    }
    for (int k = 0; k < cnum; k++) {
        GatherSamples(cells[k], CI);
        // Deliberate: the colour form for IR models too. Their samples are (R, 0, 0), and the squared distance meets
        // the plain threshold, so such cells split more readily here than in later frames.
        if (Full(cells[k])) cells[k].ClusterCell(maxdist);
        kernels::ListCandidates(cells[k], CIr == IR, candidates[static_cast<std::size_t>(k)]);
    }
}

BackgroundModel::~BackgroundModel() {
    // IBkg's buffer belongs to the frame it was taken from.
    delete[] map1;
    delete[] map2;
    delete[] cd.cells;
}

void BackgroundModel::OutputBackgroundImage(const char* name) {
    IBkg.KsWriteImage(name);
}
