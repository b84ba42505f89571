// What a search came to, for people: a page, a table, the lines to copy.
#pragma once

#include <string>
#include <vector>

#include "tune/parameter_set.h"

namespace fleifeisa::host {

/// A clip and what it is used for.
struct TunedClip {
    std::string name;
    enum class Use { kSearched, kHeldOut, kNotJudged } use = Use::kNotJudged;
    std::string why;  ///< it is not judged
    std::int64_t things = 0;
    std::int64_t length_ns = 0;
    Score present, best;  ///< where it is judged
};

struct TuneRow {
    Judged judged;
    bool held_out_known = false;
    Score held_out;
};

struct TunePage {
    bool infrared = false;
    bool over_rate = false;  ///< what is set now has a rate
    Weights weights;
    double least_seconds = 60;  ///< that a clip must have behind its learning
    double learning_seconds = 0;
    std::vector<TunedClip> clips;         ///< by name
    std::vector<TuneRow> rows;            ///< the best first
    std::size_t present = 0;              ///< its row
    double seconds = 0, cpu_seconds = 0;  ///< that all trials took; of earlier starts, too
    std::string compare;                  ///< page of the comparison, relative, "": none

    const TuneRow& best() const { return rows.front(); }
};

/// How the best stands to the present on what was held out.
enum class HeldOutVerdict { kBetter, kSame, kWorse, kNothingHeldOut, kPresentIsBest };
HeldOutVerdict verdictOf(const TunePage& page);
/// In a sentence.
std::string verdictText(const TunePage& page);

/// Candidates that none is better than in both: fewer wrong a minute, more found. Indices of rows, by wrong a minute.
std::vector<std::size_t> tradeFront(const std::vector<TuneRow>& rows);

std::string tunePage(const TunePage& page);
/// CSV, a line for each candidate.
std::string tuneTable(const TunePage& page);
/// Some lines for a terminal.
std::string tuneText(const TunePage& page);

}  // namespace fleifeisa::host
