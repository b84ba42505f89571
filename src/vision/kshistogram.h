// The colour histogram of a connected component, and the record of one tracked observation.
#pragma once

#include <cstdint>

#include "image/kscolor.h"
#include "vision/colorbins.h"
#include "vision/valuetypes.h"

class GridColorDiff;

// 4096 bins over colours reduced to 16 levels a channel: bin = (R >> 4) + 16 * (G >> 4) + 256 * (B >> 4).
// Bins are 16 bits wide and wrap: a component of more than 32767 pixels of one bin overflows it.
class KsHistogram {
 public:
    static constexpr int kBins = ColorBins::kBins;

    // While a histogram is being built, the rectangle to count next; afterwards the bounding box of the whole
    // component. Pixels, inclusive at both ends, not clipped to the frame.
    int minr, maxr, minc, maxc;
    ColorBins chist;
    int csum;  // pixels counted

    KsHistogram() : minr(0), maxr(0), minc(0), maxc(0), csum(0) {}

    // Clears the bins and the count; the box stays.
    void KsInitColorHistogram() {
        chist.Clear();
        csum = 0;
    }
    void KsSetBoxBounds(int r0, int r1, int c0, int c1) {
        minr = r0;
        maxr = r1;
        minc = c0;
        maxc = c1;
    }
    // Counts every pixel of the box that lies inside the image, row by row.
    void KsBuildColorHistogram(KsColorImage& CI, GridColorDiff* G);
    // The same walk with ready-made bins: entry r * NofC + c of CInd is the bin of pixel (r, c).
    void KsBuildColorHistogram(KsColorImage& CI, const int* CInd);
    // One pixel more of bin v. Slow: the builds count in another way.
    void KsSetCval(int v);
    int GetMinR() const { return minr; }
    int GetMaxR() const { return maxr; }
    int GetMinC() const { return minc; }
    int GetMaxC() const { return maxc; }
};

// One observation of a tracked thing: every frame makes new records for its components, and a track is the chain of
// records that share an id over consecutive frames. All-zero bytes are a valid, free record.
class Object {
 public:
    static constexpr int kMaxParents = 20;

    bool reportit;             // set for every record of the frame by detection, cleared by the reply that reports it
    int framenum;              // frame in which the record was made
    int id;                    // identity 1..99999; 0 marks a free cell (and a record without an identifiable parent)
    int label;                 // component label in its frame
    double conf;               // the component's confidence, 0..1
    int numframes;             // length of the track: 1 for a new object, the parent's value plus 1 for a continued one
    int area;                  // pixels, counted by quadrants (see BuildHistogramForComponent)
    int rc, cc;                // row and column of the centre, rounded; sums of rows and columns while being built
    int numcells;              // grid cells carrying the label
    KsHistogram h;             // colours and bounding box
    ContNode* fnode;           // contour, on loan from the grid's pool; null where the record owns none
    int members[20];           // declared, unused
    int nummembers;            // declared, unused
    int parents[kMaxParents];  // labels of the previous frame that overlap this component, most cells first
    double dist[kMaxParents];  // for each parent, the number of overlapping cells
    int numparents;            // entries in use, 0..20

    Object()
        : reportit(false),
          framenum(0),
          id(0),
          label(0),
          conf(0),
          numframes(0),
          area(0),
          rc(0),
          cc(0),
          numcells(0),
          fnode(nullptr),
          members{},
          nummembers(0),
          parents{},
          dist{},
          numparents(0) {}
};
