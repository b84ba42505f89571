// Which candidates are tried: a coarse grid over all of them, then steps around the best, each round finer. A function
// of the scores alone, so that the same clips give the same search, and an interrupted one goes on.
#pragma once

#include <cstddef>
#include <set>
#include <vector>

#include "tune/parameter_set.h"

namespace fleifeisa::host {

/// What the clips allow: a size or rate beyond theirs is the same as all of it.
struct SearchSpace {
    bool infrared = false;
    int longest_side = 0;  ///< of the largest clip, pixels
    double rate = 0;       ///< of the fastest clip, frames a second
    double learning_seconds = 0;
};

class Search {
 public:
    /// @param present  is tried first  @param most  candidates in all, at least 1
    Search(const ParameterSet& present, const SearchSpace& space, std::size_t most, const Weights& weights)
        : present_(present), space_(space), most_(most), weights_(weights), same_as_present_(fitted(present)) {}

    /// What is to be tried next, none twice; none when the search is over.
    /// @param judged  all that next() returned before, in any order
    std::vector<ParameterSet> next(const std::vector<Judged>& judged);
    /// From 0 for the grid.
    int round() const { return round_; }

    /// Orders candidates: fewer mistakes, then things seen for longer, fewer tracks a thing, less work, less change.
    bool better(const Judged& one, const Judged& other) const;
    /// The first by better(). @param judged  not empty
    const Judged& best(const std::vector<Judged>& judged) const;

 private:
    std::vector<ParameterSet> grid() const;
    std::vector<ParameterSet> around(const ParameterSet& centre, double factor) const;
    ParameterSet fitted(ParameterSet candidate) const;
    double work(const ParameterSet& candidate) const;
    double change(const ParameterSet& candidate) const;

    const ParameterSet present_;
    const SearchSpace space_;
    const std::size_t most_;
    const Weights weights_;
    const ParameterSet same_as_present_;  ///< as the grid would have it
    std::set<ParameterSet> tried_;
    int round_ = -1;
};

}  // namespace fleifeisa::host
