// Construction of the background model over the first frame.
#include "vision/background/backgroundprivate.h"
#include "vision/background/randomdraws.h"

BackgroundModel::BackgroundModel()
    : NofR(0),
      NofC(0),
      CIr(COLOR),
      G(nullptr),
      BType(SINGLE),
      n(nullptr),
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
    cd = BackgroundCells(*this);
    own = std::make_unique<Storage>(*G, NofR, NofC);
    const int inum = (NofR + cellsize - 1) / cellsize, jnum = (NofC + cellsize - 1) / cellsize;
    map1 = CellMap(cellsize, 0, inum, jnum, 0, NofC);
    map2 = CellMap(cellsize, cellsize_2, inum - 1, jnum - 1, cnum_2, NofC);
    for (int k = 0; k < cnum; k++) {
        if (own->stage[static_cast<std::size_t>(k)] != Storage::kRecord) continue;
        const CellBox box = G->Box(k);
        own->records[k].KsSetBoxBounds(box.minr, box.maxr, box.minc, box.maxc);
    }
    // Deliberate: the colour form for IR models too. Their samples are (R, 0, 0), and the squared distance meets the
    // plain threshold, so cells that are full at once split more readily here than in later frames
    // (Background.FramesAgainstNaiveModel).
    if (cnum > 0) Gather(CI, nullptr, Action::kClusterAsColor);
}

// IBkg's buffer belongs to the frame it was taken from.
BackgroundModel::~BackgroundModel() = default;

void BackgroundModel::OutputBackgroundImage(const char* name) {
    IBkg.KsWriteImage(name);
}
