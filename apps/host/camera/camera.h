// One camera: its source, its analyzer process, its outputs, on a thread of its own.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "analyzer/analyzer_client.h"
#include "analyzer/control_file.h"
#include "analyzer/reply.h"
#include "camera/camera_why.h"
#include "camera/event_desk.h"
#include "camera/frame_tap.h"
#include "camera/hand_over.h"
#include "camera/idle_rate.h"
#include "camera/night_watch.h"
#include "camera/rule_run.h"
#include "common/backoff.h"
#include "events/rules.h"
#include "outputs/output.h"
#include "recorder/camera_recorder.h"
#include "sources/feeder.h"
#include "store/camera_keeper.h"
#include "tracks/track_maker.h"

namespace fleifeisa::host {

struct CameraConfig {
    std::string name;   ///< for files and logs: isCameraName()
    std::string title;  ///< what people read, "": the name
    std::string group;  ///< of the wall of pictures, "": none
    std::string link;   ///< where somebody else shows the live stream, "": nowhere
    SourceOptions source;
    AnalyzerSettings analyzer;
    bool type_by_picture = false;  ///< colour or infrared as the picture is: `analyzer.infrared` is only the beginning
    ControlParameters control;
    std::optional<bool> seamless;  ///< changes by hand-over; unset: where the control file is the host's own
    int warm_up = 30;              ///< frames that a new analyzer learns before it takes over, one a second
    std::string profile;      ///< its name (tracks/profiles.h), for people: what it sets stands in the other fields
    bool raw_tracks = false;  ///< the analyzer's ids as tracks
    FilterSettings filter;    ///< `infrared` follows from the analyzer's type
    Rules rules;
    bool pictures = true;  ///< of its events, where there is a store
    CameraLimits keep;     ///< of what the store keeps of it
    ClipSettings clips;    ///< where there is a store
    /// Programs (hooks) are told of its events from then on (nanoseconds since 1970); stored they are always.
    std::int64_t notify_from_ns = 0;
    static constexpr std::int64_t kNever = INT64_MAX;
    std::vector<OutputChoice> outputs;
    std::optional<bool> explain;  ///< the analyzer answers questions; unset: where there is a page
    std::string explain_off;      ///< why it does not, "": analyzer.explainer does
    double answer_seconds = 10;   ///< an analyzer that takes longer for a frame counts as hung
    bool service = false;         ///< files of an earlier run are kept; an output that cannot be made is tried again

    bool operator==(const CameraConfig&) const = default;
    bool handsOver() const { return seamless.value_or(control.any() || type_by_picture); }
    /// The same but for what a running camera takes over by itself (Camera::change).
    bool sameCamera(const CameraConfig& other) const;
};

/// What became of an output, once its camera has ended.
struct OutputEnd {
    OutputChoice choice;
    OutputState state;
};

/// What a camera has done so far; read from other threads.
struct CameraCounts {
    std::atomic<std::int64_t> answered{0};     ///< frames
    std::atomic<std::int64_t> detected{0};     ///< of them with detection
    std::atomic<std::int64_t> dropped{0};      ///< live frames replaced by newer ones
    std::atomic<std::int64_t> passed_over{0};  ///< not analyzed, because nothing was there (idle_rate)
    std::atomic<std::int64_t> lost{0};         ///< frames that went down with an analyzer
    std::atomic<std::int64_t> restarts{0};     ///< of the analyzer
    std::atomic<std::int64_t> hand_overs{0};
    std::atomic<std::int64_t> expected{0};  ///< frames in all, 0 where unknown
};

class Camera {
 public:
    /// Outputs beyond the configured ones may be handed in (not owned, called from the camera's thread).
    /// @param desk  keeps its events and tells of them, null: nobody does; lives longer
    /// @param why  where people ask what it sees, null: nowhere
    explicit Camera(CameraConfig config, std::vector<Output*> extra = {}, EventDesk* desk = nullptr,
                    const std::shared_ptr<WhyBox>& why = nullptr);
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    /// Writes the control file, makes the camera known to the desk, which waits for the disk. Outputs are opened when
    /// the source has delivered its first frame, so that a source that does not exist costs no file of an earlier run.
    /// @throws std::system_error
    void prepare();
    /// `done` is set (among others) when the camera has ended.
    void start(const Event& done);
    /// Ends it in order, in some two seconds at most: the frame in work is answered, outputs are made complete.
    void stop();
    /// Once done: waits until its source is closed, which hands on its last packets. Before the desk goes.
    void joinSource() { feeder_.join(); }
    /// The same, where another configuration takes over.
    void replace() {
        replaced_ = true;
        stop();
    }
    /// Files may have been moved away: outputs begin new ones (Output::reopen).
    void reopenOutputs();
    /// Another configuration of the same camera (sameCamera()) takes effect between two frames.
    void change(const CameraConfig& config);
    /// New rules take effect between two frames; tracks live on.
    void setRules(const Rules& rules);
    /// Who gets its frames from now on; what it answers is the same with and without them.
    void setTaps(std::vector<std::shared_ptr<FrameTap>> taps);
    /// Processor time of its thread and its analyzer so far, in seconds; less than before after a new analyzer began.
    double cpuSeconds() const;

    const CameraConfig& config() const { return config_; }
    const CameraCounts& counts() const { return counts_; }
    /// "" while frames come; else since when the source has been failing, why, and how often it is tried again.
    std::string trouble() const { return feeder_.trouble(); }
    bool done() const { return done_; }
    /// sysexits status, once done.
    int exitCode() const { return exit_code_; }
    /// Of each output that was opened, once done.
    const std::vector<OutputEnd>& outputEnds() const { return ends_; }

 private:
    static constexpr Clock::duration kShutdownGrace = std::chrono::milliseconds(1200);  // for an analyzer to end

    struct Request {
        std::string header;
        std::vector<std::uint8_t> rgb;
        std::int64_t time_ns = 0, sequence = 0, dropped = 0;
        int width = 0, height = 0;
        std::int64_t clock_step_ns = 0;
        PictureMap map;                   ///< where it lies in the source's picture
        int attempts = 0;                 ///< analyzers that died over it
        std::shared_ptr<KeptFrame> kept;  ///< for other analyzers, where one needs it
        bool for_ring = false;            ///< its second has come
    };
    /// A change that waits for a hand-over, or is on its way.
    struct Change {
        CameraConfig config;
        std::string why;           ///< one word
        bool new_picture = false;  ///< frames look otherwise from then on
    };

    // camera.cpp: the thread, frames
    void run();
    void serve();
    void takeFrames();
    void sendNext();
    bool takeFrame(RawFrame& frame, Request& request);
    bool readFrame(Request& request);
    void pollOnce();
    CameraInfo info() const;
    TrackSettings trackSettings(std::int64_t first_number) const;

    // camera_analyzer.cpp
    void startAnalyzer();
    void startFresh();
    void sendRequest(Request& request);
    void takeReplies();
    void handleReply(const std::string& bytes);
    Clock::time_point answerDeadline() const;
    void checkAnswerTime();
    void analyzerFailed(const std::string& why);
    std::int64_t giveUpFrames();

    // camera_handover.cpp
    void takeChange();
    void takeTaps();
    void want(const std::string& why, const CameraConfig& config, bool new_picture);
    const CameraConfig& latestConfig() const;
    void changeInPlace(const CameraConfig& config);
    void adopt(const CameraConfig& config);
    bool mayHandOver() const;
    bool changeDue() const;
    bool holdsBack() const;
    void stepHandOver();
    bool beginHandOver(const CameraConfig& config);
    void turnHandOver();
    void takeOver();
    bool recover();
    void keep(Request& request, const FrameResult& result);
    void watchLight(const FrameResult& result);

    // camera_outputs.cpp
    void openOutputs();
    void openOutput(const OutputChoice& wanted);
    void announce(const PictureMap& map);
    void beginTracks(const PictureMap& map);
    FrameResult resultOf(const Request& request, const Reply& reply, const std::string& bytes);
    void callOutputs(const std::function<void(Output&)>& call);
    bool freshAnalyzerWanted() const;
    CameraWhy::Keep keepsWhy();
    void reopenWhereAsked();
    void finishOutputs();

    // camera_rules.cpp
    void applyRules();
    void tellOutputs(const CameraEvent& event);
    void warnOfActiveTimes() const;
    void beginRules(const PictureMap& map);
    void finishRules(const std::string& reason);
    void ruled(const RuleResults& results);
    void tellRules(EventKind kind, const std::string& change, const std::string& text);
    void tickRules();
    void takePost();
    void noteSource();
    void endTracks(TrackEnd why);
    void keepTracks(const TrackFrame& frame, bool seen);
    std::int64_t now() const;
    void noteParameters();

    CameraConfig config_;
    static ClipSettings clipSettings(const CameraConfig& config);
    const std::shared_ptr<CameraRecorder> recorder_;  ///< null: nothing is recorded
    Feeder feeder_;
    EventDesk* const desk_;
    const std::shared_ptr<CameraPost> post_ = std::make_shared<CameraPost>();
    const Event& wake_;  ///< the post's; also: stop or a new configuration
    CameraCounts counts_;
    std::atomic<bool> stopping_{false}, done_{false}, reopen_{false}, replaced_{false};
    std::atomic<Clock::rep> stopped_at_{0};
    std::atomic<int> exit_code_{0};
    std::atomic<pid_t> analyzer_pid_{0};  ///< of the one that answers, 0: none
    const Event* done_event_ = nullptr;

    std::mutex mutex_;  // guards what is new
    std::optional<CameraConfig> new_config_;
    std::optional<Rules> new_rules_;
    std::optional<std::vector<std::shared_ptr<FrameTap>>> new_taps_;

    // the thread's own
    struct Sink {
        Output* output;
        OutputChoice choice;
        bool failing = false;  ///< and said so
    };
    std::vector<std::unique_ptr<Output>> owned_;
    std::vector<Sink> sinks_;
    std::vector<OutputEnd> ends_;
    bool opened_ = false;
    std::deque<CameraEvent> early_;  ///< of a source without a frame so far: outputs hear of them when they are opened
    std::unique_ptr<AnalyzerClient> analyzer_;
    std::deque<Request> in_flight_;        ///< sent or to be sent, oldest first
    std::vector<std::uint8_t> spare_rgb_;  ///< memory of an answered frame
    struct {
        std::int64_t dropped = 0, clock_step_ns = 0;
    } passed_over_;                         ///< what was told of frames that were not wanted
    std::optional<Request> held_;           ///< waits for a new analyzer, because its size differs
    const std::size_t window_;              ///< how many may be under way
    std::optional<CameraConfig> in_place_;  ///< waits until nothing is under way
    IdleRate idle_;
    FrameRing ring_;
    std::vector<std::shared_ptr<FrameTap>> taps_;
    NightWatch night_;
    CameraWhy why_;
    const FrameResult* judged_ = nullptr;   ///< the frame whose tracks the rules are told
    bool dark_ = false;                     ///< the light is changing
    std::optional<Change> change_;          ///< waits until the ring is full
    std::int64_t due_at_ = 0;               ///< change_ can begin before the frame of this number, 0: not yet
    std::optional<Change> coming_;          ///< what hand_over_ brings
    std::unique_ptr<HandOver> hand_over_;   ///< learns
    std::unique_ptr<LearnersPlace> place_;  ///< of it
    Backoff hand_over_retry_;
    bool warm_up_failed_ = false;        ///< since the latest answer: the next analyzer learns anew
    std::unique_ptr<PrivateRoot> root_;  ///< of the analyzer, where it took over from another
    Clock::time_point waiting_since_{};  ///< the oldest request's turn began
    Backoff restarts_;                   ///< of the analyzer
    int failures_in_a_row_ = 0;          ///< analyzers that ended without a single answer
    bool given_up_ = false;
    std::int64_t last_sequence_ = 0;
    std::int64_t lost_untold_ = 0;        ///< frames lost since the last one that the outputs heard of
    std::optional<TrackMaker> tracks_;    ///< since the first frame
    std::optional<RuleRun> rules_;        ///< since the start, anew with the first frame
    std::optional<CameraKeeper> keeper_;  ///< where there is a store
    NextNumbers next_, first_;            ///< numbers, of what is to come and of this run
    std::string parameters_;              ///< in force, their hash
    int outages_ = 0;                     ///< of a live source, that the outputs have heard of
    bool source_lost_ = false;            ///< since the latest of them
    int width_ = 0, height_ = 0;          ///< of this analyzer's frames
    bool unannounced_ = false;            ///< the outputs have not heard of this analyzer
    std::thread thread_;
};

}  // namespace fleifeisa::host
