// The table of tracks that ends a `play`.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "outputs/output.h"

namespace fleifeisa::host {

class TrackTable : public Output {
 public:
    void frame(const FrameResult& result) override;
    void finish() override {}

    /// The longest-lived tracks in the order of their appearance, at most `rows`, with a line on what was left out.
    std::string text(std::size_t rows) const;
    std::size_t size() const { return tracks_.size() + forgotten_; }

 private:
    struct Row {
        std::int64_t first = 0, last = 0, frames = 0;
        double path = 0;
        std::vector<std::int16_t> left, top, width, height;  ///< samples for the medians
        int stride = 1;                                      ///< every so many frames a sample
    };
    static void sample(Row& row, const Box& box);
    void forgetShort();

    std::map<std::int64_t, Row> tracks_;  ///< by number
    std::size_t forgotten_ = 0;
};

}  // namespace fleifeisa::host
