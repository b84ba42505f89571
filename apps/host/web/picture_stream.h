// The live pictures of all cameras that one viewer looks at, in one response.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "http/message.h"
#include "web/live.h"

namespace fleifeisa::host {

/// One camera in a viewer's view.
struct Watched {
    std::string camera;
    int width = 640;
    bool calm = false;

    bool operator==(const Watched&) const = default;
};

/// For the server's thread.
class PictureStream final : public HttpStream {
 public:
    /// @param id  by which the view is changed  @param over  whether the viewer may look no longer
    PictureStream(LivePictures& live, std::string id, std::function<bool()> over);
    ~PictureStream() override;

    /// What stays in view goes on undisturbed.
    void show(const std::vector<Watched>& view);
    const std::string& id() const { return id_; }

    std::size_t read(std::span<char> to) override;
    bool ready() override;
    bool over() override { return over_(); }

 private:
    struct Entry {
        Watched watched;
        std::unique_ptr<LiveView> view;
    };
    void refill();

    LivePictures& live_;
    const std::string id_;
    const std::function<bool()> over_;
    std::list<Entry> entries_;                    ///< the one that was sent last comes last
    std::shared_ptr<const LiveMessage> message_;  ///< on its way
    std::string own_;                             ///< in place of it: what belongs to no camera
    std::size_t sent_ = 0;
    Clock::time_point told_at_ = Clock::now();
};

}  // namespace fleifeisa::host
