// Places where something came to rest. Each keeps two patches, the place before and with the thing; what the place
// looks like later says whether the thing is still there, also when it has long become background.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "tracks/background.h"
#include "tracks/tracker.h"

namespace fleifeisa::host {

/// 16 x 16 samples of a box grown by a quarter on every side: the two outer rings are the surroundings, by which a
/// change of light is told from a change of the thing.
struct Patch {
    static constexpr int kSide = 16, kRing = 2;
    std::array<std::uint8_t, kSide * kSide * kChannels> samples{};
    std::array<bool, kSide * kSide> inside{};  // of the frame
};

/// Mean difference per sample and channel in levels, after the surroundings' mean difference; large where too little
/// of the place lies in the frame.
int differenceOf(const Patch& a, const Patch& b, int channels);

class StoppedPlaces {
 public:
    void reset() { places_.clear(); }
    /// After the tracker's update: finds who came to rest, who went on, and once a second what each place looks like.
    /// Ends movers whose place is free again, and makes the background take such a place over.
    void update(std::vector<Mover>& movers, SmoothFrame& frame, Background& background, double seconds);
    std::size_t size() const { return places_.size(); }

 private:
    struct Place {
        std::int64_t number = 0;  // of its track
        Box box;
        Patch before, with;
        int contrast = 0;                // difference of the two
        double age = 0, until_look = 0;  // seconds
        double unknown = 0;              // for how long it has looked like neither
        bool left = false;               // its track went on: only the background is still waited for
        int free = 0;                    // looks in a row that found it as before
        bool done = false;
    };
    void rest(std::vector<Mover>& movers, SmoothFrame& frame, Background& background, double seconds);
    void look(Place& place, Mover* mover, SmoothFrame& frame, Background& background);

    std::vector<Place> places_;  // oldest first
};

}  // namespace fleifeisa::host
