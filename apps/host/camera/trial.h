// A changed version of a camera that runs beside it on the same frames and answers to nobody but those who look: an
// analyzer and a track filter of its own, on a thread of its own. What it cannot take in time it leaves out.
//
// It learns like the analyzer of a hand-over: from one frame a second, those that the camera has kept and, where these
// are too few, the next ones.
#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "camera/camera.h"
#include "camera/frame_tap.h"

namespace fleifeisa::host {

/// What a trial has come to so far, and what its camera has in the same time. Both are counted from the moment on at
/// which it has settled: who is in the picture when it begins to look is no new track of its.
struct TrialState {
    int learned = 0, learning = 0;          ///< frames
    std::int64_t frames = 0, left_out = 0;  ///< answered with detection; passed over because they came too fast
    bool settled = false;
    std::int64_t tracks = 0, live_tracks = 0;  ///< confirmed
    double seconds = 0;                        ///< of frames
    double cpu_seconds = 0;                    ///< of its analyzer and filter
    double wall_seconds = 0;
    int width = 0, height = 0;  ///< of its frames
    std::string trouble;        ///< why it has ended, "" while it runs
};

class Trial final : public FrameTap {
 public:
    /// @param shown  is told of its frames, from its thread; lives longer
    Trial(CameraConfig config, Output& shown);
    /// Waits for its thread: not to be called from a camera's, so that whoever hands it out keeps it longest.
    ~Trial() override;
    /// It ends soon; waits for nothing.
    void stop();

    const std::string& camera() const { return config_.name; }
    void begin(const std::deque<std::shared_ptr<const KeptFrame>>& frames, std::size_t learning) override;
    void add(std::shared_ptr<const KeptFrame> frame, const FrameResult& result) override;
    TrialState state() const;

 private:
    static constexpr std::size_t kMostWaiting = 2;
    static constexpr std::int64_t kSettleNs = 5'000'000'000;  ///< after its first look
    class Run;

    void run();
    bool wanted(const KeptFrame& frame);

    const CameraConfig config_;
    Output& shown_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool stopping_ = false;
    std::deque<std::shared_ptr<const KeptFrame>> learn_, waiting_;
    std::int64_t latest_ns_ = INT64_MIN;  ///< of the frames that were taken
    std::set<std::int64_t> live_seen_;    ///< tracks that live
    TrialState state_;
    std::thread thread_;
};

}  // namespace fleifeisa::host
