// From blobs to tracks: prediction, three passes of assignment, groups, birth and death. Knows no pixels.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "tracks/blobs.h"
#include "tracks/track.h"

namespace fleifeisa::host {

/// A track as the tracker keeps it. Positions in pixels, times in seconds.
struct Mover {
    Track track;          // as told, apart from numbers of frames not yet told
    double x = 0, y = 0;  // centre
    double width = 0, height = 0;
    double odd_width = 0, odd_height = 0;  // for how long sightings have been of another size
    double vx = 0, vy = 0;                 // pixels a second
    double missed = 0;                     // since it was seen; does not run while the picture is frozen
    double unsupported = 0;                // since an analyzer box touched it
    double rest_x = 0, rest_y = 0;         // where its rest began: centre and foot
    double rest = 0;                       // for how long
    std::int64_t rest_ns = 0;              // since when
    bool arrived = false;                  // has moved off it, or came out of one that had: no flaw of the background
    bool confirmed = false;
    bool stopped = false;
    bool dead = false;
    double inside = 0;                       // for how long it has lain in a larger one
    double hidden = 0;                       // for how long its group's blob has been no larger than the owner
    bool grouped = false;                    // in this frame or the one before its latest
    int blob = -1;                           // of this frame
    int area = 0;                            // largest foreground of a sighting, pixels
    std::vector<std::int64_t> stacked_with;  // older tracks above or below which it has always been: one thing, perhaps

    Box box() const;  // rounded
    Box boxAt(double cx, double cy) const;
};

/// Neither has been seen without the other above or below it: legs and upper body. People who meet came from elsewhere.
bool mayBeOne(const Mover& a, const Mover& b);

class Tracker {
 public:
    void reset(int width, int height, double least_area, std::int64_t first_number);
    /// Moves every track to where it is expected `seconds` later. First step of a frame.
    void predict(double seconds);
    /// Assigns the blobs. Second step.
    void update(std::span<const Blob> blobs, std::int64_t time_ns, double seconds);
    /// Writes Track of every mover that lives or ended in this frame; removes those that ended. Last step.
    void tell(std::vector<Track>& out);
    /// Ends all of them.
    void endAll(TrackEnd why, std::vector<Track>& out);

    std::vector<Mover>& movers() { return movers_; }
    const std::vector<Mover>& movers() const { return movers_; }
    std::int64_t nextNumber() const { return next_; }
    void setNextNumber(std::int64_t number) { next_ = number; }
    void setLeastArea(double least_area) { least_pixels_ = least_area * width_ * height_; }

 private:
    static constexpr int kFree = -1, kTaken = -2;  // of a blob: nobody's yet, and a part of another blob
    struct Pair {
        double value;
        int mover, blob;
    };
    template <class Value>
    void assign(std::span<const Blob> blobs, bool confirmed, Value&& value);
    void addPieces(std::span<const Blob> blobs);
    void joinGroups(std::span<const Blob> blobs, double seconds);
    bool isPieceOf(const Mover& piece, const Mover& owner, const Box& blob) const;
    void moveGroup(const Box& blob, std::span<const int> members, double seconds);
    void mendPieces(double seconds);
    void absorb(Mover& whole, Mover& part);
    void see(Mover& mover, const Box& box, double seconds);
    void moveTo(Mover& mover, double x, double y, double seconds);
    void bear(std::span<const Blob> blobs, std::int64_t time_ns, double seconds);
    void confirm(Mover& mover);
    void tellApart();
    void letGo(double seconds);
    bool atEdge(const Mover& mover) const;

    int width_ = 0, height_ = 0;
    double least_pixels_ = 0;
    std::int64_t next_ = 1;
    std::vector<Mover> movers_;  // confirmed and young, in the order of their births
    std::vector<int> owner_;     // of each blob of this frame: index of a mover, or the above
    std::vector<Box> seen_;      // each blob's box, with the pieces that were added
    std::vector<std::vector<int>> members_;
    std::vector<Pair> pairs_;
};

}  // namespace fleifeisa::host
