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
#include "camera/event_desk.h"
#include "camera/rule_run.h"
#include "common/backoff.h"
#include "events/rules.h"
#include "outputs/output.h"
#include "sources/feeder.h"
#include "store/camera_keeper.h"
#include "tracks/track_maker.h"

namespace fleifeisa::host {

struct CameraConfig {
    std::string name;   ///< for files and logs: isCameraName()
    std::string title;  ///< what people read, "": the name
    SourceOptions source;
    AnalyzerSettings analyzer;
    ControlParameters control;
    std::string profile;      ///< its name (tracks/profiles.h), for people: what it sets stands in the other fields
    bool raw_tracks = false;  ///< the analyzer's ids as tracks
    FilterSettings filter;    ///< `infrared` follows from the analyzer's type
    Rules rules;
    bool notify = true;  ///< its events are told to programs (hooks), not only stored
    std::vector<OutputChoice> outputs;
    double answer_seconds = 10;  ///< an analyzer that takes longer for a frame counts as hung
    bool service = false;        ///< files of an earlier run are kept; an output that cannot be made is tried again

    bool operator==(const CameraConfig&) const = default;
};

/// What became of an output, once its camera has ended.
struct OutputEnd {
    OutputChoice choice;
    OutputState state;
};

/// What a camera has done so far; read from other threads.
struct CameraCounts {
    std::atomic<std::int64_t> answered{0};  ///< frames
    std::atomic<std::int64_t> detected{0};  ///< of them with detection
    std::atomic<std::int64_t> dropped{0};   ///< live frames replaced by newer ones
    std::atomic<std::int64_t> lost{0};      ///< frames that went down with an analyzer
    std::atomic<std::int64_t> restarts{0};  ///< of the analyzer
    std::atomic<std::int64_t> expected{0};  ///< frames in all, 0 where unknown
};

class Camera {
 public:
    /// Outputs beyond the configured ones may be handed in (not owned, called from the camera's thread).
    /// @param desk  keeps its events and tells of them, null: nobody does; lives longer
    explicit Camera(CameraConfig config, std::vector<Output*> extra = {}, EventDesk* desk = nullptr);
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
    /// The same, where another configuration takes over.
    void replace() {
        replaced_ = true;
        stop();
    }
    /// Files may have been moved away: outputs begin new ones (Output::reopen).
    void reopenOutputs();
    /// New control parameters take effect between two frames.
    void setControl(const ControlParameters& control);

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
    struct Request {
        std::string header;
        std::vector<std::uint8_t> rgb;
        std::int64_t time_ns = 0, sequence = 0, dropped = 0;
        int width = 0, height = 0;
        std::int64_t clock_step_ns = 0;
        PictureMap map;    ///< where it lies in the source's picture
        int attempts = 0;  ///< analyzers that died over it
    };

    void run();
    void serve();
    void takeFrames();
    void sendNext();
    bool readFrame(Request& request);
    void applyControl();
    void pollOnce();
    void takeReplies();
    void handleReply(const std::string& bytes);
    void checkAnswerTime();
    void startAnalyzer();
    void analyzerFailed(const std::string& why);
    std::int64_t giveUpFrames();
    void sendRequest(Request& request);
    void announce(const PictureMap& map);
    void endTracks(TrackEnd why);
    void noteSource();
    void beginRules(const PictureMap& map);
    void finishRules(const std::string& reason);
    void ruled(const RuleResults& results);
    void keepTracks(const TrackFrame& frame, bool seen);
    void takePost();
    void tickRules();
    void tellRules(EventKind kind, const std::string& change, const std::string& text);
    std::int64_t now() const;
    void noteParameters();
    FrameResult resultOf(const Request& request, const Reply& reply, const std::string& bytes);
    void callOutputs(const std::function<void(Output&)>& call);
    void finishOutputs();
    void openOutputs();
    void openOutput(const OutputChoice& wanted);
    void reopenWhereAsked();
    bool freshAnalyzerWanted() const;
    Clock::time_point answerDeadline() const;
    CameraInfo info() const;

    CameraConfig config_;
    Feeder feeder_;
    EventDesk* const desk_;
    const std::shared_ptr<CameraPost> post_ = std::make_shared<CameraPost>();
    const Event& wake_;  ///< the post's; also: stop or new control parameters
    CameraCounts counts_;
    std::atomic<bool> stopping_{false}, done_{false}, reopen_{false}, replaced_{false};
    std::atomic<Clock::rep> stopped_at_{0};
    std::atomic<int> exit_code_{0};
    const Event* done_event_ = nullptr;

    std::mutex mutex_;  // guards the new control parameters
    std::optional<ControlParameters> new_control_;

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
    std::unique_ptr<AnalyzerClient> analyzer_;
    std::deque<Request> in_flight_;        ///< sent or to be sent, oldest first
    std::vector<std::uint8_t> spare_rgb_;  ///< memory of an answered frame
    std::optional<Request> held_;          ///< waits for a new analyzer, because its size differs
    const std::size_t window_;             ///< how many may be under way
    std::optional<ControlParameters> pending_control_;
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
