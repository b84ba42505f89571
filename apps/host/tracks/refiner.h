// Stage 1: looks again at the pixels around the analyzer's boxes and where tracks are expected, and finds blobs.
#pragma once

#include <span>
#include <vector>

#include "analyzer/reply.h"
#include "tracks/background.h"
#include "tracks/blobs.h"
#include "tracks/foreground.h"
#include "tracks/tiles.h"
#include "tracks/tracker.h"

namespace fleifeisa::host {

struct FilterSettings;
struct FilterView;

class Refiner {
 public:
    void reset(int width, int height);
    /// Accepted blobs of this frame, at most kMostBlobs. Heals the background under what is none.
    /// `view`, where there is one, takes what was seen; the blobs are the same.
    std::span<const Blob> find(SmoothFrame& frame, Background& background, std::span<const AnalyzerObject> objects,
                               std::span<const Mover> movers, const FilterSettings& settings, double seconds,
                               FilterView* view = nullptr);
    /// The rest of the frame's work on the background.
    void follow(SmoothFrame& frame, Background& background, std::span<const Mover> movers, std::int64_t time_ns);
    /// Share of the frame that is accepted foreground.
    double foreground() const { return foreground_; }

 private:
    /// A place where ghost or light was found: it heals on when its traces are too faint to be told from a thing.
    struct Healing {
        Box box;
        double found = 0;  // for how long it has been found without a pause, seconds
        double left = 0;   // of healing after it was found last
    };
    bool healsAlready(const Box& box) const;
    void found(const Box& box, double seconds);
    void paint(std::span<const AnalyzerObject> objects, std::span<const Mover> movers);
    void show(FilterView& view) const;

    int width_ = 0, height_ = 0;
    TileMap where_, support_;
    Foreground foreground_mask_;
    std::vector<Blob> blobs_, parts_;
    std::vector<Box> boxes_;
    std::vector<Healing> healing_;  // kMostHealing at most: beyond it a place is judged by each frame alone
    double foreground_ = 0;
};

}  // namespace fleifeisa::host
