// What really happened in a clip, as somebody who watched it wrote down. A small TOML file beside the clip (gate.toml
// for gate.mp4), or one file for many clips, with a [[clip]] table for each:
//
//   nothing = true                      # nobody and nothing; whatever is tracked is wrong
//
//   judged = [12.0, 80.0]               # only this span was looked at; else the whole clip
//   [[thing]]
//   name = "postman"                    # free
//   from = 14.5                         # seconds since the clip's first frame
//   to = 31
//   about = [0.6, 0.7]                  # its middle passes there, in shares of the picture; else anywhere
//   within = 0.15                       # by so much, in width and in height
//
//   [boxes]                             # or every box: lines of frame, id, left, top, width, height, confidence
//   file = "gate.csv"                   # frames and corners from 1; confidence 0: not judged, either way
//   rate = 10                           # frames a second
//   size = [768, 576]                   # of the picture that the boxes belong to
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "compare/clip_result.h"
#include "compare/match.h"

namespace fleifeisa::host {

struct TruthBox {
    std::int64_t time_ns = 0;  ///< since the first frame
    ShareBox box;
};

/// Of what was written down by times alone, a person's seconds are rough: it may be seen so much earlier or later.
constexpr std::int64_t kRoughNs = 1'000'000'000;

struct Thing {
    std::string name;
    TimeSpan span;               ///< since the first frame
    std::optional<Point> about;  ///< shares of the picture
    double within = 0.15;
    std::vector<TruthBox> boxes;  ///< by time; empty: only span and place are known

    bool rough() const { return boxes.empty(); }
};

struct Truth {
    std::optional<TimeSpan> judged;
    std::vector<Thing> things;      ///< none: nothing happened
    std::vector<TruthBox> ignored;  ///< by time: what is tracked there is neither right nor wrong
    std::int64_t box_step_ns = 0;   ///< between annotated frames, 0: no boxes
};

/// The text of one clip's file. Faults are told as "PATH:LINE: KEY: what is wrong"; then the result is of no use.
/// @param path  for messages, and to find the file of boxes beside
Truth parseTruth(const std::string& text, const std::string& path, std::vector<std::string>& errors);

/// The truth about each clip that has one.
class TruthBook {
 public:
    /// @param file  one file for many clips: [[clip]] tables with file = "NAME" beside the keys above; "": files beside
    ///              the clips. Faults as parseTruth() tells them
    TruthBook(const std::string& file, std::vector<std::string>& errors);

    /// Nothing where there is none.
    std::optional<Truth> of(const std::string& clip, std::vector<std::string>& errors) const;

 private:
    const std::string file_;
    std::map<std::string, Truth> truths_;  ///< by the name of the clip's file
};

}  // namespace fleifeisa::host
