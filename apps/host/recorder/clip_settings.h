// What is recorded of a camera.
#pragma once

#include <string>

namespace fleifeisa::host {

struct ClipSettings {
    bool on = true;         ///< false: no clips, nothing is recorded
    double before = 5;      ///< seconds that a clip begins before its event; at least, it begins at a key frame
    double after = 10;      ///< seconds that it goes on behind the event's end
    double continuous = 0;  ///< seconds that everything is kept, 0: only what clips may need
    bool sound = false;     ///< recorded, too
    bool as_seen = false;   ///< the analyzed frames, encoded here: something in the source's own picture is private
    std::string record;     ///< another stream of the same camera that clips are cut from, "": the source itself

    bool operator==(const ClipSettings&) const = default;
};

}  // namespace fleifeisa::host
