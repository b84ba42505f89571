// A camera's answers to "why?": questions of people, and what is kept with its events. Each is about one frame, for
// which the analyzer is asked and the track filter shows what it saw; one question is under way at a time.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "analyzer/analyzer_client.h"
#include "events/event.h"
#include "outputs/output.h"
#include "tracks/track_maker.h"
#include "why/why_box.h"
#include "why/why_json.h"

namespace fleifeisa::host {

struct FilterView;

/// What somebody at the page wants to know, and how far its answer is.
struct AskedByPerson {
    WhyBox::Asked asked;
    std::int64_t frame = 0;  ///< that it is asked about, 0: none yet, or the latest
    bool sent = false;
    Clock::time_point since = Clock::now();
    std::shared_ptr<FilterView> view;  ///< while its frame is under way
    std::string filter, analyzer, layer;
    std::optional<WhyFrame> of;
};

/// The camera's thread's own. The analyzer is handed in, since it may be another one from call to call.
class CameraWhy {
 public:
    /// What an event has to say for itself, to be kept.
    using Keep = std::function<void(const CameraEvent& event, const std::string& json)>;

    /// @param box  where people ask, null: nowhere  @param off  why nothing is explained, "": it is
    CameraWhy(std::string camera, std::shared_ptr<WhyBox> box, const std::string& off, Keep keep);
    /// Whoever waits is told that the camera has ended.
    ~CameraWhy();
    CameraWhy(const CameraWhy&) = delete;
    CameraWhy& operator=(const CameraWhy&) = delete;

    bool on() const { return on_; }
    /// For poll, -1: nothing.
    int wakes() const { return on_ && box_ ? box_->wake().fd() : -1; }
    int wantsRead(AnalyzerClient* analyzer) const { return on_ && analyzer ? analyzer->questions().wantsRead() : -1; }
    /// How soon turn() wants to be called, whatever comes.
    Clock::time_point due(Clock::time_point otherwise) const;

    /// Before the request of this number is sent: a question that waits is asked about it.
    void sending(AnalyzerClient& analyzer, std::int64_t sequence);
    /// What the filter of that frame's tracks is to fill, null: nothing.
    FilterView* viewOf(std::int64_t sequence);
    /// A frame has its tracks; before the events of this frame.
    void answered(const FrameResult& result);
    /// An event of the latest answered frame begins. @param rules_text  the rules in force
    void began(const CameraEvent& event, const FrameResult& result, const TrackMaker& tracks,
               const std::string& rules_text);
    /// Takes what is there, asks what waits, gives up what takes too long.
    void turn(AnalyzerClient* analyzer);
    /// No more frames come: events keep what is known of them.
    void finish();

 private:
    struct Happened {
        CameraEvent event;
        WhyFrame frame;
        std::string rule_values, filter, words;
        std::vector<AnalyzerObject> objects;
        bool sent = false;
        Clock::time_point since = Clock::now();
    };

    void take(QuestionWire& wire);
    void keep(const Happened& one, const std::string& analyzer) const;
    void keepFirst(const std::string& analyzer);
    void tell(const std::string& fault);
    void tellWhole();
    void giveUpLate(QuestionWire* wire);

    const std::string camera_;
    const std::shared_ptr<WhyBox> box_;
    const bool on_;
    const std::uint64_t opened_;
    const Keep keep_;
    std::optional<AskedByPerson> person_;
    std::deque<Happened> happened_;  // the front one may be under way
    WhyFrame latest_;
};

}  // namespace fleifeisa::host
