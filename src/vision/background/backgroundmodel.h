// What the analyzer believes the empty scene looks like.
//
// SINGLE: one image, the first frame. MULTIPLE: per cell of the grid up to 64 colour samples, summarised as up to 6
// colour clusters with a mean and a support; cell i of the model and cell i of the grid are the same square.
//
// Random draws are part of the result. Building a model seeds the process-wide generator (srandom(0)); random() is
// drawn for the starting centres of ClusterCell and rand() once for every foreground cell of an update, in cell order.
// Nothing else may draw from it (see randomdraws.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "image/kscolor.h"
#include "vision/grid/gridcolordiff.h"
#include "vision/kernels/kernels.h"
#include "vision/valuetypes.h"

constexpr int kFarthest = 1000000;  // queries see only clusters nearer than this, squared for colour

// One cell of the background. The Gray forms use the red members alone and |dR| as the distance; the others use all
// three and the squared Euclidean distance. maxdist is compared with these as it stands.
class KsBackgroundCell {
 public:
    static constexpr int kMaxSamples = 64;
    static constexpr int kMaxClusters = kernels::kClusters;
    static constexpr int kMaxSupport =
        kernels::kMaxSupport;  // a cluster is a running mean over about this many samples
    static constexpr int kMinSupport = kernels::kMinSupport;  // queries see clusters with more support than this

    int minr, maxr, minc, maxc;           // box, pixels, inclusive, not clipped; set once
    std::int16_t nsamples;                // gathered since the last clustering, 0..64
    std::int16_t nclusters;               // in use, 0..6; entries behind it are stale and never read
    std::int16_t support[kMaxClusters];   // samples that a cluster stands for, 0..512
    std::int16_t added[kMaxClusters];     // samples given by the latest maintenance; read by forgetting
    ColorMean clusters[kMaxClusters];     // rounded means; can leave 0..255, see clustersum
    ColorValue clustersum[kMaxClusters];  // channel sums behind the means, about support x clusters. Can be negative:
                                          // forgetting subtracts rounded means
    ColorSample cv[kMaxSamples];          // samples in the order gathered; in IR models G and B stay 0

    // The derivative model of the same cell keeps a single sample and cluster; the main flow never uses it.
    int ndersamples, nderclusters;
    ColorDerivative cd[1];
    double dernorm[1];
    ColorDerivative derclustersum[1], derclusters[1];
    double derclusternorm[1];
    int dersupport[1], deradded[1];

    void KsSetBoxBounds(int r0, int r1, int c0, int c1) {
        minr = r0;
        maxr = r1;
        minc = c0;
        maxc = c1;
    }
    int GetMinR() const { return minr; }
    int GetMaxR() const { return maxr; }
    int GetMinC() const { return minc; }
    int GetMaxC() const { return maxc; }

    // First clustering: turns the samples into 1 to 3 clusters and empties the store. Requires nsamples >= 1 and
    // maxdist >= 0. Draws random() for every starting centre and redraw.
    void ClusterCell(int maxdist);
    void ClusterCellGray(int maxdist);

    // Maintenance: opens clusters for samples farther than maxdist from all others (at most three a call, six in all),
    // folds the samples in and empties the store. No random draws.
    void UpdateCellClusters(int maxdist);
    void UpdateCellClustersGray(int maxdist);
    // Merges the closest pair if it is closer than maxdist.
    void MergeClusters(int maxdist);
    void MergeClustersGray(int maxdist);
    // Takes support from clusters that the latest maintenance gave fewer than two samples; removes those without any.
    void ForgetUnsupportedClusters();
    void ForgetUnsupportedClustersGray();

    // Smallest distance below minval between the colour and a cluster with support above 128, else minval. Rd, Gd and
    // Bd receive cluster minus colour of the nearest one, and are left alone where there is none.
    int GetMinDifference(int minval, int R, int G, int B, int& Rd, int& Gd, int& Bd) const;
    int GetMinDifferenceGray(int minval, int R, int& Rd) const;

    // From and to the compact form that models keep (nclusters, support, added, clusters, clustersum).
    void TakeClusters(const kernels::ClusterSet& set);
    void GiveClusters(kernels::ClusterSet& set) const;
    // Appends the pixels of a whole 4 x 4 cell to the samples.
    void TakeSamples(const kernels::PixelBlock& px, bool gray);
};

// The cells of a model. It keeps them in a compact form; a record is filled in when it is first asked for, and from
// then on takes the place of the compact one, since whoever holds it may change it; such a cell goes the plain way for
// good.
class BackgroundCells {
 public:
    BackgroundCells() = default;  // none: of a SINGLE background
    explicit BackgroundCells(BackgroundModel& of) : model(&of) {}
    KsBackgroundCell& operator[](int k);
    // A copy of the cell as it stands: keep the cell, not a pointer into it.
    KsBackgroundCell operator[](int k) const;
    bool operator==(std::nullptr_t) const { return model == nullptr; }

 private:
    BackgroundModel* model = nullptr;
};

// Which cell of one lattice a pixel lies in. Looks like an array over the pixels, row by row, but is computed: arrays
// would cost 8 bytes a pixel for what two divisions tell.
class CellMap {
 public:
    CellMap() = default;
    // Cells of the given edge from pixel (offset, offset) on, `rows` x `cols` of them, numbered row by row from
    // `first`; `width` pixels to a row of the frame.
    CellMap(int edge_in, int offset_in, int rows_in, int cols_in, int first_in, int width_in)
        : edge(edge_in), offset(offset_in), rows(rows_in), cols(cols_in), first(first_in), width(width_in) {}

    // Index of the pixel's cell, -1 where the lattice does not reach.
    int At(int r, int c) const {
        if (edge == 0 || r < offset || c < offset) return -1;
        const int i = (r - offset) / edge, j = (c - offset) / edge;
        return i < rows && j < cols ? first + i * cols + j : -1;
    }
    // The same for pixel i, counted row by row. i lies inside the frame.
    int operator[](std::size_t i) const {
        const auto w = static_cast<std::size_t>(width);
        return At(static_cast<int>(i / w), static_cast<int>(i % w));
    }
    bool operator==(std::nullptr_t) const { return edge == 0; }

 private:
    int edge = 0, offset = 0, rows = 0, cols = 0, first = 0, width = 0;
};

// Draws n distinct indices below range (n <= range) with random() % range, redrawing repeats.
void RandomCenters(int* icl, int n, int range);

class BackgroundModel {
 public:
    int NofR, NofC;  // frame rows and columns, pixels
    ImageType CIr;
    GridColorDiff* G;  // not owned
    BackgroundType BType;
    KsColorImage IBkg;           // SINGLE only: shares the first frame's buffer, which the caller must keep alive
    BackgroundCells cd;          // MULTIPLE only: cnum cells, owned
    Neighbors* n;                // the grid's neighbours, not owned
    CellMap map1, map2;          // MULTIPLE only, per pixel: index of its main cell; of its shifted cell or -1
    int cnum, cnum_2;            // cells of both lattices, of the main lattice
    int cellsize, cellsize_2;    // pixels
    int maxdist;                 // cluster radius: squared for COLOR, plain for IR
    int mindist;                 // declared, unused
    int dermaxdist, dermindist;  // 128 and 32: bounds of the derivative model, unused
    int alpha;                   // alpha_in in hundredths, truncated; stored only
    int t;                       // frame number of the latest update; stored only

    BackgroundModel();
    // Builds the model over the first frame and seeds the process-wide generator. Throws std::bad_alloc.
    BackgroundModel(KsColorImage& CI, double alpha_in, ImageType CIr_in, GridColorDiff* G_in, BackgroundType BT_in,
                    int maxdist_in);
    ~BackgroundModel();
    BackgroundModel(const BackgroundModel&) = delete;
    BackgroundModel& operator=(const BackgroundModel&) = delete;

    // Brings the model up to date with a frame of the first frame's size. With updateall every cell is updated and
    // nothing is forgotten; without it, cells whose conf is above 0 are updated on about 3 frames in 10.
    void UpdateBackground(KsColorImage& CI, bool updateall, int tnew);

    // Difference of pixel (r, c) to the nearest qualifying cluster of its main cell and the four diagonal neighbours
    // of that cell, in this order, the earlier one on a tie; outputs are left alone where none qualifies.
    void GetDifference(int r, int c, int R, int G, int B, int& Rd, int& Gd, int& Bd) const;
    void GetDifferenceGray(int r, int c, int G, int& Gd) const;

    // What a row of main cells is compared with, MULTIPLE only: `whole` cells from the left fit the kernels, and these
    // are the lists of their clusters as in ComparisonRow. Valid after PrepareQueries until the model changes.
    struct QueryRow {
        int whole;
        const kernels::CandidateList *own, *above, *below;
    };
    void PrepareQueries();
    QueryRow Queries(int row) const;

    // Of cell k: its record, which from now on takes the place of the compact form (cd[k] is the same); a copy; a copy
    // without the samples.
    KsBackgroundCell& Hold(int k);
    KsBackgroundCell Copy(int k) const;
    KsBackgroundCell Look(int k) const;

    // SINGLE: writes the red channel of the background image (KsWriteImage). Nothing for MULTIPLE.
    void OutputBackgroundImage(const char* name);

 private:
    struct Storage;

    void UpdateSingle(bool updateall);
    void Maintain(const KsColorImage& CI, bool updateall);

    enum class Action { kClusterAsColor, kCluster, kMaintain, kMaintainAndForget };  // on a cell whose store is full
    // Gives the frame's pixels to the cells whose flag is set (all where flags is null), and acts on those then full.
    void Gather(const KsColorImage& CI, const std::uint8_t* flags, Action action);
    void GatherRow(const KsColorImage& CI, int lattice, int row, const std::uint8_t* flags, Action action);
    void GatherRecord(const KsColorImage& CI, int k, Action action);
    void ActOnRow(int lattice, int row, Action action);
    void ActOn(const kernels::CellRun& run, Action action);
    void ActOnRecord(KsBackgroundCell& cell, Action action) const;
    void TakeOut(int k);

    kernels::CandidateList& List(int k);
    void ListRecord(int k);
    bool Full(const KsBackgroundCell& cell) const;

    std::unique_ptr<Storage> own;  // null for SINGLE
};
