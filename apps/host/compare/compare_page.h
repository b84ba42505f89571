// The page of a comparison: one HTML document that needs nothing else, the same bytes for the same results.
#pragma once

#include <string>
#include <vector>

#include "compare/match.h"

namespace fleifeisa::host {

/// One moment of a clip in A and in B, side by side.
struct LookPair {
    std::string title;  ///< "Only in A: track 3"
    std::string note;   ///< "0:12.3 to 0:15.0"
    std::int64_t time_ns = 0;
    std::string a, b;  ///< JPEG files
};

/// One run of a clip in figures.
struct RunFigures {
    std::int64_t frames = 0, learning_ns = 0, length_ns = 0;
    int width = 0, height = 0;
    std::int64_t tracks = 0, events = 0;

    /// Megapixels analyzed for each second of video: what the cost follows, the same in every run.
    double work() const {
        return length_ns > 0 ? static_cast<double>(frames) * width * height * 1e3 / static_cast<double>(length_ns) : 0;
    }
};

struct ComparedClip {
    std::string name;
    std::string fault;  ///< why there is nothing to compare, "": there is
    RunFigures a, b;
    ClipComparison comparison;
    std::vector<CameraEvent> events_a, events_b;  ///< by number
    std::vector<LookPair> looks;                  ///< the first is of the parting, where there is one
    std::string no_looks;                         ///< why there are none though the runs differ, "": nothing is wrong
    std::int64_t looks_left_out = 0;
};

struct ComparePage {
    std::string a, b;  ///< names of the two
    /// What the configurations say otherwise: key, value in A, value in B.
    struct Line {
        std::string key, a, b;
    };
    std::vector<Line> differences;
    std::vector<ComparedClip> clips;

    /// Any clip's tracks or events are in one alone, or at other times, or a clip is in one alone.
    bool differs() const;
};

std::string comparePage(const ComparePage& page);
/// The same in some lines for a terminal.
std::string compareText(const ComparePage& page);

}  // namespace fleifeisa::host
