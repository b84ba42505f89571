// The tracker: owns the grid and the background model, keeps the table of observed objects, and answers frames.
//
// One tracker is built over the first frame. A learning frame is UpdateBackground(frame, true); a detection frame is
// DetectForeground, then UpdateBackground(frame, false), then OutputAnalyticsXML.
#pragma once

#include <iostream>
#include <memory>

#include "vision/kshistograms.h"

class ColorDiffTracker {
 public:
#ifdef FLEIFEISA_SMALL_TABLES
    static constexpr int kMaxObjects = 64, kMaxUsed = 32, kMaxId = 99;  // fuzz builds: small frames reach the bounds
#else
    static constexpr int kMaxObjects = 10000;  // object cells
    static constexpr int kMaxUsed = 5000;      // records in use; further components of a frame get no record
    static constexpr int kMaxId = 99999;       // ids run 1 .. 99999 and repeat
#endif
    static constexpr int kMaxAge = 25;                 // frames that a record stays in the table
    static constexpr double kPolygonTolerance = 1.41;  // pixels, of the polygons in replies

    bool RestartTracker;  // false; nothing reads it
    int NextTmpObId;      // next id to hand out, 1..99999
    int NextObId;         // declared, unused
    ImageType CIr;
    bool DEBUG;          // DetectForeground prints its trace to standard output
    BackgroundModel* B;  // owned
    BackgroundType BT;
    int NofBackgroundFrames;  // learning frames, stored only
    int lt, ht;               // floors of clt and cht
    double clt, cht;          // thresholds of the colour confidence; adapt from frame to frame
    int dlt, dht;             // thresholds of the derivative confidence
    double maxdist;           // Deliberate: not set from the constructor's argument (ObjectTable.MeasuresOfARecord)
    GridColorDiff* G;         // owned
    int t;                    // frame number of the latest DetectForeground, 0 before the first
    Object* Ob;               // kMaxObjects cells, owned; untouched cells cost no memory
    int numobjects;           // entries in usedob
    int usedob[kMaxUsed];  // indices into Ob of the records in use, unordered. A cell whose record has id 0 counts as
                           // free and may be handed out again: it then stands here twice

    ColorDiffTracker(KsColorImage& CI, int lt_in, int ht_in, double maxdist_in, int cellsize_in, double alpha_in,
                     ImageType CIr_in, bool DEBUG_NODEBUG, int dlt_in, int dht_in, int NofBF, BackgroundType BT_in);
    ~ColorDiffTracker();
    ColorDiffTracker(const ColorDiffTracker&) = delete;
    ColorDiffTracker& operator=(const ColorDiffTracker&) = delete;

    void UpdateBackground(KsColorImage& CI, bool updateall);

    // Segments the frame, makes a record for every confident component, links it with the records of frame - 1 by
    // overlap, gives it an id and a contour, and marks the records of this frame for reporting.
    void DetectForeground(KsColorImage& CI, int frame, float color_low, float color_high, float ir_low, float ir_high);

    // --- object table ---
    // Releases records more than 25 frames old, then puts the first cell with id 0 into usedob and returns its index.
    // A contour that the cell still owns goes back to the pool. Returns kMaxObjects, and hands out nothing, where
    // kMaxUsed records are in use or no cell is free.
    int NextFreeObjectCell(int framenum);
    // Releases records whose id was last seen more than the record's own numframes ago, or which are over 25 frames
    // old.
    void CleanObjectList(int framenum);
    // Deliberate: marks every record of the frame for reporting, not five (Golden.StateAfterEveryFrame).
    void ChooseBestFive();

    // --- replies and dumps ---
    // The reply to a detection frame: headers, then one XML document if anything is reported.
    // Clears the reportit of what it reports. timestamp is written verbatim; a null one fails the stream.
    void OutputAnalyticsXML(int& devid, char* timestamp, int& seqnum, int& analyzerid, std::ostream& out = std::cout);
    // A detections document of the current frame; clears reportit likewise.
    void OutputXML(std::ostream& fout);
    // Writes the background image of a SINGLE model.
    void OutputBackgroundImage(const char* name);
    // Per-cell text tables in the file named fname + ".txt".
    void WriteImageEdges(const char* fname);
    void WriteImageDerivatives(const char* fname);

    // --- polygons ---
    // Marks in keepnode the vertices of a polygon within eps pixels of the contour; the ends are always kept.
    void PolygonalApproximation(ContNode* fnode, double eps);
    // Walk the polygons of this frame's records, the second with a trace on standard output. CI is not read.
    void ScoreImage(KsColorImage& CI);
    void ScoreImageEdges(KsColorImage& CI);

 private:
    void ReleaseRecord(int position);
    void Observe(KsColorImage& CI, int k, int label);  // colours, box, contour and centre of a component into cell k
    class FrameIndex;                                  // finds records of a detection frame without walking the table
    std::unique_ptr<FrameIndex> index;
    int handed_out = 0;  // cells of Ob from here on have never been used
    int TakeObjectCell();
    int HandOut(int k);
    void Associate(int k);  // id and numframes of cell k, the last of usedob
    void TraceRecord(const Object& ob) const;
    void TraceId(const Object& ob) const;
    void TraceSummary() const;
};

// A tracker with the analyzer's own constants for this type of image, over the first frame that has pixels. NofBF is
// the number of learning frames.
std::unique_ptr<ColorDiffTracker> MakeTracker(ImageType type, KsColorImage& first, int NofBF,
                                              BackgroundType BT = MULTIPLE, int cellsize = 4,
                                              bool DEBUG_NODEBUG = false);

// The reply to a detection frame without objects, also used while there is no tracker yet.
void OutputEmptyAnalytics(const char* timestamp, int seqnum, std::ostream& out = std::cout);
