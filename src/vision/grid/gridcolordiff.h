// The analyzer's working grid: two interleaved lattices of square cells over the frame, with every per-pixel and
// per-cell array that the stages of a frame fill one after the other.
//
//   main lattice (cells 0 .. cnum_2 - 1)          shifted lattice (cells cnum_2 .. cnum - 1)
//   covers every pixel once, row by row           moved by half a cell down and right; leaves a border of half a cell
//
//     +-------+-------+-------+                     .   .   .   .   .   .   .
//     |       |       |       |                     .   +-------+-------+   .
//     |   0   |   1   |   2   |                     .   |       |       |   .
//     |       |       |       |                     .   |   9   |  10   |   .      each quadrant of a shifted cell
//     +-------+-------+-------+                     .   |       |       |   .      is a quadrant of one of the four
//     |   3   |   4   |   5   |                     .   +-------+-------+   .      main cells around its centre
//
// Boxes are inclusive at both ends and are not clipped: where a frame side is no multiple of the cell size, the last
// row or column of cells reaches past the frame. Every walk over pixels covers only those inside.
//
// Order of a frame: ComputeDifferences, AddDifferences, CellDerivatives, Confidences, ConnectedComponents, then for
// each component BuildHistogramForComponent, BuildContourForObject and FindPotentialParents.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "image/kscolor.h"
#include "vision/valuetypes.h"

class BackgroundModel;
class GridColorDiff;
class KsHistogram;
class Object;

// One cell of the grid.
class KsCellDiff {
 public:
    int minr, maxr, minc, maxc;        // box, pixels, inclusive; set once
    int RedDiff, GreenDiff, BlueDiff;  // signed sums of the pixel differences (AddDifferences)
    int Rx, Ry, Gx, Gy, Bx, By;        // derivatives of those sums (CellDerivatives)
    ColorValue sum;                    // channel sums of the cell's pixels (AddAll)
    ColorDerivative der;               // derivatives of the channel sums (CellPartialDerivatives)

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
    // Sums each channel over the cell's pixels inside the frame.
    void AddAll(KsColorImage& CI);
    // The same for the first byte alone. Deliberate: sum.G and sum.B stay as they were
    // (Grid.SumOfOneChannelLeavesTheOthers).
    void AddAllGray(KsColorImage& CI);
};

// Pixel box of a cell, inclusive, not clipped.
struct CellBox {
    int minr, maxr, minc, maxc;
};

// The cells of a grid. The stages of a frame keep what they need in arrays of their own; a record is filled in when it
// is first asked for, and kept up to date from then on.
class GridCells {
 public:
    explicit GridCells(GridColorDiff& of) : grid(of) {}
    KsCellDiff& operator[](int k) const;

 private:
    GridColorDiff& grid;
};

class GridColorDiff {
 public:
#ifdef FLEIFEISA_SMALL_TABLES
    static constexpr int kPoolBlock = 128;  // fuzz builds: pools grow within a few small frames
#else
    static constexpr int kPoolBlock = 100000;  // contour nodes allocated at a time
#endif

    // --- set once ---
    bool Equalise, SharpChange;  // results of the brightness comparison, which the main flow does not invoke
    ImageType CIr;
    ContNode* FreeNodes;   // head of the free list of contour nodes
    ContNode* tmpstorage;  // the first block of contour nodes, kept for release
    int cellsize;          // cell edge, pixels, 1..8
    int cellsize_2;        // offset of the shifted lattice: half of it, truncated
    int NofR, NofC;        // frame rows and columns, pixels

    // --- per pixel, NofR x NofC, row-major; carried over: a pixel without background keeps its value ---
    std::int16_t *RedD, *GreenD, *BlueD;

    int bhist[256], chist[256], lut[256];  // brightness of the background, of a frame, and the map between them

    // --- per cell, cnum entries each ---
    GridCells cd;
    Neighbors* n;
    int cnum;                        // cells of both lattices; 0 for a frame without pixels
    int cnum_2;                      // cells of the main lattice
    double *conf, *diff, *der_conf;  // foreground confidence 0..1, difference measure, derivative confidence 0..1
    double *motion1, *motion2, *motion5, *motion;  // scores of ConfidencesMotion; null until it is first called
    int *label, *prevlabel;                        // component of each cell in this and the previous frame, 0 for none
    double* labelconf;                             // confidence of each component, indexed by label: cnum + 1 entries
    int numlabel, numprevlabel;                    // components in this and the previous frame
    int* aux;                                      // scratch; the background update leaves its update flags here

    // Quantisation of the 4096-bin histogram: bin = auxdiv[R] + auxmult16[auxdiv[G]] + auxmult256[auxdiv[B]]. The
    // histogram itself shifts instead: three look-ups a pixel cost more than they say.
    int auxdiv[256], auxmult16[16], auxmult256[16];

    // Builds the grid over the first frame. cellsize_in is 1..8. Throws std::bad_alloc.
    GridColorDiff(KsColorImage& CI, int cellsize_in, ImageType CIr_in);
    ~GridColorDiff();
    GridColorDiff(const GridColorDiff&) = delete;
    GridColorDiff& operator=(const GridColorDiff&) = delete;

    // --- differences ---
    // Each stage leaves what the next one needs in compact arrays, and in the records that somebody holds. Whoever
    // changes a record between two stages changes what the next one sees.
    //
    // Per pixel, the signed difference to the background B: nearest cluster minus frame for MULTIPLE, frame minus
    // background for SINGLE. Deliberate: a pixel for which no cluster qualifies keeps its earlier value
    // (Differences.UnmatchedPixelsKeepTheirValue).
    void ComputeDifferences(KsColorImage& CI, BackgroundModel* B);
    // Per cell, the signed sums of the pixel differences of its box. The first call after ComputeDifferences over a
    // MULTIPLE background adds up the sums that this one left behind; every other call reads the pixels.
    void AddDifferences();
    // Per cell, lower minus upper pair (x) and right minus left pair (y) of the four diagonal neighbours' difference
    // sums; zero where one of them is missing.
    void CellDerivatives();
    // The same of the channel sums, into der.
    void CellPartialDerivatives();

    // --- confidences ---
    // Difference measure, adaptive thresholds and both confidences of every cell. clt and cht carry over from frame
    // to frame and never end below ltmin and htmin; low and high multiply the standard deviation of the measure.
    void Confidences(double& clt, double& cht, double ltmin, double htmin, double derlt, double derht, float color_low,
                     float color_high, float ir_low, float ir_high);
    // Motion variant with a memory per cell; see Confidences.cpp for the formula. num is 4, 3 or 0.
    void ConfidencesMotion(double clt, double cht, int num);

    // --- components ---
    // Labels 1 .. numlabel, gap-free, in the order of their seeds. The cells of dropped components lose their conf.
    // The labels so far become prevlabel: `label` and `prevlabel` swap places, so pointers into them do as well.
    void ConnectedComponents();
    // Lists the cells of every component, for the stages behind. Between the two calls the labels must stay as they
    // are; without them those stages look for the cells.
    void ListComponents();
    void ForgetComponents();
    double GetConfCC(int cc) const {
        return labelconf[cc];
    }
    int GetNumLabel() const {
        return numlabel;
    }

    // Colours, box and area (pixels) of component `lab`; labconf is its confidence, rc and cc the sums of the rows and
    // columns of its pixels. hcomp must be clear. A label that no cell carries gives area 0, the box
    // (100000, -1, 100000, -1) and leaves labconf alone.
    // The sums of large components exceed 32 bits: the first form is the whole one, the second saturates them.
    int BuildHistogramForComponent(KsColorImage& CI, KsHistogram& hcomp, int lab, double& labconf, long long& rc,
                                   long long& cc);
    int BuildHistogramForComponent(KsColorImage& CI, KsHistogram& hcomp, int lab, double& labconf, int& rc, int& cc);

    // --- contours and parents: their sources live with the tracker, in src/tracker/ ---
    // Outer boundary of component `lab` as a closed list of nodes from the pool. The label must exist.
    ContNode* BuildContourForObject(int lab);
    // Head of the free list, growing the pool when it is empty; its link must be overwritten.
    ContNode* GetNewNode();
    // Puts a fresh block on the free list; what the list held before is dropped from it.
    void AddMoreContourNodes();
    // Returns a whole contour to the front of the free list; null returns nothing.
    void ReturnNodes(ContNode* first);
    // Number of cells of the component and its overlap with the components of the previous frame, best first.
    void FindPotentialParents(Object& COb);

    // --- brightness comparison ---
    void ImageBrightnessHistogram(KsColorImage& CI);
    // Deliberate: a declared hook without effect (Grid.TablesHistogramAndPool).
    void HistogramEqualisation(KsColorImage& CI);
    // Maps the frame's brightness levels onto the background's (lut), remaps chist and sets Equalise where the mean
    // cumulative difference per pixel is below one. Call after ImageBrightnessHistogram.
    void ScoreHistDifference();

    // --- cells ---
    CellBox Box(int k) const;
    // The record of cell k, which from now on follows the stages. cd[k] is the same.
    KsCellDiff& Hold(int k);
    // AddAll of every cell over an updated frame, as soon as somebody looks at one.
    void RememberColors(const std::shared_ptr<unsigned char[]>& frame);

 private:
    void SubtractBackground(const KsColorImage& CI, const KsColorImage& bkg);
    void CompareRow(const KsColorImage& CI, const BackgroundModel& B, int row);
    void PlainCell(const KsColorImage& CI, const BackgroundModel& B, int k);
    void KeptCell(int k);
    void SumQuadrants();
    void SumPixels();
    void SumColors(const unsigned char* rgb);
    void DeriveRow(int k, int above, int below, int count);
    void AdaptThresholds(double total, double squares, double& clt, double& cht, double ltmin, double htmin, double low,
                         double high) const;
    int NextSeed(int k) const;
    std::span<const int> CellsOf(int lab);
    bool IsWhole(const CellBox& box) const;

    // Records that somebody holds: what a stage found goes into them, and what their holders changed comes out.
    void PublishDifferences(int k);
    void PublishDerivatives(int k);
    void PublishSums(int k);
    void AdoptDifferences();
    void AdoptDerivatives();

    void BuildGeometry();
    void LinkNeighbors(int inum, int jnum);
    ContNode* NewPoolBlock();
    ContNode* TraceContour(int start, int lab);

    struct Storage;  // owns what the public pointers show, the node blocks and the scratch of a frame
    std::unique_ptr<Storage> own;
    friend class PoolCensus;  // counts nodes for the invariant checks
};
