// Live frames for those who watch: what a camera's latest frame came to, and pictures of it while somebody looks.
//
// The camera's thread copies the tracks of each frame, and its pixels only where a viewer wants this one. One thread
// encodes: each frame once for every size that is watched, the newest frame wins. With nobody watching nothing is
// copied and nothing encoded.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "outputs/output.h"

namespace fleifeisa::host {

/// What one analyzed frame came to.
struct LiveFrame {
    std::int64_t sequence = 0;  ///< 0: there was none yet
    std::int64_t time_ns = 0, dropped = 0;
    int width = 0, height = 0;
    SceneState scene = SceneState::kLost;
    bool busy = false;          ///< something moves
    std::vector<Track> tracks;  ///< those that live and were not tentative
    std::vector<AnalyzerObject> objects;
    std::optional<Box> region;
    PictureMap map;  ///< where it lies in the source's picture

    /// Confirmed and standing ones.
    int shown() const;
};

/// `{"camera":...}` as the interface has it, without its closing brace.
std::string liveFrameJson(const std::string& camera, const LiveFrame& frame);

/// A picture with its frame, as streams send it: two lengths, JSON, JPEG.
struct LiveMessage {
    std::int64_t version = 0;  ///< rising
    std::int64_t time_ns = 0;
    std::string bytes;
    std::size_t jpeg = 0;  ///< where it begins
};

/// "\0\0\0\2\0\0\0\0{}" and the like.
std::string framed(std::string_view json, std::string_view jpeg = {});

class LivePictures;

/// The tap of one camera. Stays while the host runs, however often the camera is started anew.
class LiveCamera final : public Output {
 public:
    LiveCamera(std::string name, LivePictures& all) : name_(std::move(name)), all_(all) {}

    void started(const CameraInfo& info) override;
    void frame(const FrameResult& result) override;
    void ended(const TrackFrame& frame, TrackEnd why) override;
    void stepped(const RuleStep& step) override;
    void finish() override;

    const std::string& name() const { return name_; }
    LiveFrame latest() const;
    /// No frame for `seconds`, or none at all.
    bool stale(double seconds) const;
    /// Nothing where there is none of that width (as widthFor() says) yet.
    std::shared_ptr<const LiveMessage> picture(int width) const;
    /// Calls with the next frame of that width, or with null where none comes in time. False where too many wait.
    using Take = std::function<void(std::shared_ptr<const LiveMessage>)>;
    bool askOnce(int width, Take take);

 private:
    friend class LivePictures;
    friend class LiveView;
    struct Viewers {
        int live = 0, calm = 0;
        bool once = false;                                      ///< the next frame, whatever it shows
        std::vector<std::pair<Clock::time_point, Take>> asked;  ///< since when
        Clock::time_point made_at{};
        std::shared_ptr<const LiveMessage> latest;

        bool wanted(bool busy) const;
    };
    bool wanted(bool busy) const;

    const std::string name_;
    LivePictures& all_;
    std::atomic<int> live_{0}, calm_{0};
    std::atomic<bool> due_{false};  ///< the next frame is wanted whatever it shows

    mutable std::mutex mutex_;
    LiveFrame latest_;
    std::optional<Box> region_;
    PictureMap map_;
    Clock::time_point seen_at_{};
    std::vector<std::uint8_t> rgb_;  ///< of a frame that waits for the encoder
    LiveFrame waiting_;              ///< that frame
    bool waits_ = false;
    std::map<int, Viewers> viewers_;  ///< by width
    std::int64_t versions_ = 0;
};

/// One viewer's interest in one camera, while it lives.
class LiveView {
 public:
    LiveView(LiveCamera& camera, int width, bool calm);
    ~LiveView();
    LiveView(const LiveView&) = delete;
    LiveView& operator=(const LiveView&) = delete;

    LiveCamera& camera() const { return camera_; }
    /// The newest picture that was not taken yet, null: there is none.
    std::shared_ptr<const LiveMessage> next() const;
    void taken(const LiveMessage& message) { version_ = message.version; }

 private:
    LiveCamera& camera_;
    const int width_;
    const bool calm_;
    std::int64_t version_ = 0;
};

struct LiveCounts {
    std::atomic<std::int64_t> encoded{0}, skipped{0}, encode_ns{0};
};

class LivePictures {
 public:
    LivePictures();
    ~LivePictures();
    LivePictures(const LivePictures&) = delete;
    LivePictures& operator=(const LivePictures&) = delete;

    /// Made where it is not known yet.
    LiveCamera& camera(const std::string& name);
    /// Those who asked once and wait too long are told so; to be called a few times a second.
    void expire();
    /// Called from any thread when there is a new picture or state; must not wait.
    void onNews(std::function<void()> call);
    const LiveCounts& counts() const { return counts_; }

    /// The width of the pictures for a viewer who asks for so many pixels, before they are bounded by the frame.
    static int widthFor(int wanted);

 private:
    friend class LiveCamera;
    void queue(LiveCamera& camera);
    void news() const;
    void run();
    void encode(LiveCamera& camera);

    LiveCounts counts_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::string, std::unique_ptr<LiveCamera>> cameras_;
    std::vector<LiveCamera*> dirty_;
    std::function<void()> on_news_;
    bool stopping_ = false;

    // the encoder's own
    std::vector<std::uint8_t> rgb_;
    std::thread thread_;
};

}  // namespace fleifeisa::host
