// A camera with a real analyzer and a synthetic scene, and somebody who writes down what it tells.
#pragma once

#include <csignal>
#include <gtest/gtest.h>
#include <poll.h>

#include <functional>
#include <map>
#include <set>

#include "camera/camera.h"
#include "cli/commands.h"
#include "common/private_root.h"
#include "outputs/recording.h"

namespace fleifeisa::host {

/// What a camera tells while it runs.
class Witness : public Output {
 public:
    void frame(const FrameResult& result) override {
        ++frames;
        in_order &= result.sequence == frames;
        if (!result.detection) learned.push_back(result.sequence);
        living.emplace_back();
        seen.emplace_back();
        for (const Track& track : result.tracks.tracks) {
            if (track.ended == TrackEnd::kLeft) left.insert(track.number);
            if (track.number == 0 || track.state == TrackState::kEnded) continue;
            living.back().insert(track.number);
            if (track.state != TrackState::kCoasting) seen.back().insert(track.number);
        }
        hashes.push_back(recordedTracks(result.tracks));
        objects.emplace_back(result.objects.begin(), result.objects.end());
        if (const auto it = at.find(result.sequence); it != at.end()) it->second();
    }
    void handedOver(const CameraInfo& camera, const HandedOver& what) override {
        taken.push_back({frames, std::string(what.why), camera.infrared, what.frames.size()});
        if (on_taken) on_taken();
    }
    void told(const CameraEvent& event) override { events.push_back(event); }
    void finish() override {}

    struct Taken {
        std::int64_t after;  ///< frames
        std::string why;
        bool infrared;
        std::size_t warm_ups;
    };
    std::map<std::int64_t, std::function<void()>> at;  ///< by sequence number
    std::function<void()> on_taken;
    std::int64_t frames = 0;
    bool in_order = true;
    std::vector<std::int64_t> learned;
    std::vector<std::set<std::int64_t>> living, seen;  ///< numbers of tracks; `seen` without those that coast
    std::set<std::int64_t> left;                       ///< who went over the edge of the picture
    std::vector<std::string> hashes;
    std::vector<std::vector<AnalyzerObject>> objects;
    std::vector<Taken> taken;
    std::vector<CameraEvent> events;
};

class Handover : public testing::Test {
 protected:
    Handover() { std::signal(SIGPIPE, SIG_IGN); }  // as the host does: a broken analyzer is told by its pipe
    CameraConfig camera(const std::string& scene) const {
        CameraConfig config;
        config.name = "gate";
        config.source.source = "scene:" + scene;
        config.analyzer.program = FLEIFEISA_EXE;
        config.analyzer.root = root_.path();
        config.control.bgframes = "60";
        config.warm_up = 20;
        return config;
    }
    /// Runs it to its end.
    static void run(
        const CameraConfig& config, Witness& witness, const std::function<void(Camera&)>& begun = [](Camera&) {}) {
        Camera one(config, {&witness});
        one.prepare();
        begun(one);
        const Event done;
        one.start(done);
        pollfd item{done.fd(), POLLIN, 0};
        ::poll(&item, 1, 120'000);
        ASSERT_TRUE(one.done());
        ASSERT_EQ(one.exitCode(), 0);
    }
    std::string recording() const { return root_.path() + "/gate.rec"; }
    int replayed() const { return replayed(recording()); }
    static int replayed(const std::string& path) {
        ReplayOptions options;
        options.recording = path;
        options.analyzer = FLEIFEISA_EXE;
        options.verify = true;
        return replayCommand(options);
    }

    PrivateRoot root_;
};

}  // namespace fleifeisa::host
