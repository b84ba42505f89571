// One self-contained HTML page on the whole run: track map, timeline, table with thumbnails, foreground share.
#pragma once

#include <map>

#include "common/file_writer.h"
#include "outputs/output.h"
#include "report/median_background.h"
#include "report/report_data.h"

namespace fleifeisa::host {

/// Written by finish(), whole or not at all ("PATH.part" until then). Memory stays bounded however long the run: some
/// 40 MB for the background, at most 1000 finished tracks with a thumbnail of a few kilobytes each, and 480 spans of
/// time.
class ReportOutput : public Output {
 public:
    ReportOutput(const std::string& path, const CameraInfo& camera, const FilePolicy& policy = {});
    void started(const CameraInfo& camera) override;
    void frame(const FrameResult& result) override;
    void ended(const TrackFrame& frame, TrackEnd) override { closeEnded(frame); }
    void stepped(const RuleStep& step) override {
        if (step.kind == RuleStep::kRules) rules_.rules = step.rules;
    }
    void ruled(const RuleResults& results) override;
    void finish() override;
    OutputState state() const override { return {file_.failing(), file_.lost()}; }

 private:
    struct Open {
        ReportTrack track;
        Picture thumbnail;
        std::int64_t score = 0;  ///< of the thumbnail: foreground pixels, less at the picture's edge
    };
    std::int64_t elapsed(const FrameResult& result);
    void addSpan(const FrameResult& result, std::int64_t now);
    void addSighting(const FrameResult& result, const Track& track, std::int64_t now);
    Point inFirstSize(const FrameResult& result, Point point) const;
    void closeEnded(const TrackFrame& frame);
    void close(std::int64_t number);
    void leaveOutBriefest();
    void placeShapes();

    FileWriter file_;
    ReportData data_;
    MedianBackground background_;
    RuleSetup rules_;
    std::map<std::int64_t, std::size_t> event_rows_;  ///< by number
    std::map<std::int64_t, Open> open_;               ///< by track number
    std::int64_t span_frames_ = 1;                    ///< frames in a full span
    std::int64_t now_ns_ = 0;                         ///< of the latest frame, since the first
    std::int64_t last_step_ns_ = 0;                   ///< from the frame before to the latest
    bool restarted_ = false, finished_ = false;
};

}  // namespace fleifeisa::host
