// Pictures of events: what cameras hand in is made into JPEG files on one thread and attached in the store.
#pragma once

#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <variant>

#include "common/fd.h"
#include "media/camera_pictures.h"
#include "outputs/output.h"
#include "store/store.h"

namespace fleifeisa::host {

/// For metrics.
struct PictureCounts {
    std::int64_t made = 0;      ///< files
    std::int64_t left_out = 0;  ///< frames and messages for which there was no room
    std::int64_t failed = 0;    ///< pictures that could not be made or written
};

/// Who makes pictures of what a camera's tap hands in.
class PictureMaker {
 public:
    PictureMaker() = default;
    virtual ~PictureMaker() = default;
    PictureMaker(const PictureMaker&) = delete;
    PictureMaker& operator=(const PictureMaker&) = delete;

    // From the camera's thread. False where there is no room, which is counted. `patience`: seconds that a source which
    // waits for nobody's clock may wait for room; 0 for all others.
    virtual bool frame(const std::string& camera, PictureFrame frame, double patience) = 0;
    virtual bool event(const std::string& camera, const CameraEvent& event) = 0;
    virtual bool trackEnded(const std::string& camera, std::int64_t track) = 0;
    /// It is later than that: what is over is closed.
    virtual bool passed(const std::string& camera, std::int64_t time_ns) = 0;
    /// Its events are closed. @param patience  seconds to wait until that is done
    virtual void finish(const std::string& camera, double patience) = 0;
};

/// On a thread of its own, into the store.
class PictureDesk : public PictureMaker {
 public:
    static constexpr std::size_t kMostBytes = 64 << 20;  ///< of frames that wait, of all cameras
    static constexpr std::size_t kMostWaiting = 20'000;

    /// @param directory  the state directory
    PictureDesk(Store& store, std::string directory);
    /// What waits is still made, for a second and a half.
    ~PictureDesk() override;

    /// The output that a camera gives its frames and events to. The desk lives longer.
    std::unique_ptr<Output> tap(const std::string& camera);

    bool frame(const std::string& camera, PictureFrame frame, double patience) override;
    bool event(const std::string& camera, const CameraEvent& event) override;
    bool trackEnded(const std::string& camera, std::int64_t track) override;
    bool passed(const std::string& camera, std::int64_t time_ns) override;
    void finish(const std::string& camera, double patience) override;

    PictureCounts counts();

 private:
    struct TrackEnded {
        std::int64_t track;
    };
    struct Passed {
        std::int64_t time_ns;
    };
    struct Finish {};
    struct Job {
        std::string camera;
        std::variant<PictureFrame, CameraEvent, TrackEnded, Passed, Finish> what;
    };
    bool push(Job job, std::size_t bytes, double patience);
    void run();
    void work(const Job& job);
    CameraPictures& of(const std::string& camera);
    void keep(const CameraEvent& event, std::vector<MadePicture> pictures);
    void failed(const std::string& camera, const std::string& why);

    Store& store_;
    const std::string directory_;

    std::mutex mutex_;
    std::condition_variable changed_, done_;
    std::deque<Job> jobs_;
    std::size_t bytes_ = 0;  ///< of the frames in there
    bool busy_ = false, stopping_ = false;
    Clock::time_point give_up_{};
    PictureCounts counts_;

    std::map<std::string, CameraPictures> cameras_;  ///< the thread's own, as is failing_
    bool failing_ = false;
    std::thread thread_;
};

}  // namespace fleifeisa::host
