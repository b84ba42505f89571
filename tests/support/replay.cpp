#include "support/replay.h"

#include <sstream>

#include "host/FrameLoop.h"
#include "host/Requests.h"

namespace {

class Changes : public ControlSource {
 public:
    explicit Changes(const std::map<int, int>& changes_after) : after_(changes_after) {}
    bool Changed() override { return after_.contains(++frame_); }
    bool Read(control& c) override {
        c.bg_frames = after_.at(frame_);
        return true;
    }

 private:
    const std::map<int, int>& after_;
    int frame_ = 0;
};

}  // namespace

void replay(const std::string& requests, const ReplayOptions& options,
            const std::function<void(const ReplayedFrame&)>& show) {
    std::istringstream in(requests);
    std::ostringstream out;
    RequestFrames frames(in, out);
    Changes changes(options.changes);
    control parameters{options.bg_frames, 0.25f, 0.5f, 1.0f, 2.0f};
    FrameLoop loop({options.type, 3, 5, parameters, options.watch}, frames, changes, out);
    while (loop.Step()) {
        show({loop.Cycle().Number(), loop.Latest(), *loop.Cycle().Tracker(), out.str()});
        out.str("");
    }
}
