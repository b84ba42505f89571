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

class PictureDesk {
 public:
    static constexpr std::size_t kMostBytes = 64 << 20;  ///< of frames that wait, of all cameras
    static constexpr std::size_t kMostWaiting = 20'000;

    /// @param directory  the state directory
    PictureDesk(Store& store, std::string directory);
    /// What waits is still made, for a second and a half.
    ~PictureDesk();
    PictureDesk(const PictureDesk&) = delete;
    PictureDesk& operator=(const PictureDesk&) = delete;

    /// The output that a camera gives its frames and events to. The desk lives longer.
    std::unique_ptr<Output> tap(const std::string& camera);

    // For the tap, from its camera's thread. False where there is no room, which is counted. `patience`: seconds that
    // a source which waits for nobody's clock may wait for room; 0 for all others.
    bool frame(const std::string& camera, PictureFrame frame, double patience);
    bool event(const std::string& camera, const CameraEvent& event);
    bool trackEnded(const std::string& camera, std::int64_t track);
    /// What an event has to say for itself: kept as it is, beside its pictures. From any camera's thread.
    bool why(const CameraEvent& event, std::string json);
    /// It is later than that: what is over is closed.
    bool passed(const std::string& camera, std::int64_t time_ns);
    /// Its events are closed. @param patience  seconds to wait until that is done
    void finish(const std::string& camera, double patience);

    PictureCounts counts();

 private:
    struct TrackEnded {
        std::int64_t track;
    };
    struct Passed {
        std::int64_t time_ns;
    };
    struct Finish {};
    struct Why {
        CameraEvent event;
        std::string json;
    };
    struct Job {
        std::string camera;
        std::variant<PictureFrame, CameraEvent, TrackEnded, Passed, Finish, Why> what;
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
