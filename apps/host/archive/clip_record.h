// What a run of a clip says of itself: hashes and counts.
#pragma once

#include <memory>
#include <string>

#include "archive/clip.h"
#include "outputs/digest.h"
#include "outputs/output.h"

namespace fleifeisa::host {

class ClipRecord : public Output {
 public:
    ClipRecord();
    ~ClipRecord() override;
    void frame(const FrameResult& result) override;
    void ended(const TrackFrame& frame, TrackEnd why) override;
    void ruled(const RuleResults& results) override;
    void finish() override {}

    /// Sets frames, sizes, times and hashes. Call once.
    void write(ClipSummary& summary);

 private:
    struct Pixels;
    std::unique_ptr<Pixels> pixels_;
    Digest replies_, tracks_, events_;
    ClipSummary summary_;
};

}  // namespace fleifeisa::host
