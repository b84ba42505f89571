// The watch that answers: takes questions between frames, and answers them there, or at the frame that they are about.
#pragma once

#include <optional>
#include <vector>

#include "explain/channel.h"
#include "explain/snapshot.h"
#include "host/FrameWatch.h"

namespace fleifeisa::explain {

class Explainer final : public FrameWatch {
 public:
    /// @param fd  the asker's socket, -1: nobody asks
    explicit Explainer(int fd) : channel_(fd), descriptor_(channel_.fd()) {}

    void Frame(const WatchedFrame& frame) override;
    int Descriptor() const override { return descriptor_; }

    /// Waits until there is something to read from the frames' descriptor; answers meanwhile. A question that arrived
    /// before what there is to read is taken before this returns.
    void waitFor(int frames);
    const Snapshot& snapshot() const { return snapshot_; }

 private:
    void noteTime(const streamin& message);
    void noteCells();
    void turn();

    Channel channel_;
    const int descriptor_;
    std::optional<Question> held_;  // until its frame comes; a newer question takes its place
    Snapshot snapshot_;
    std::vector<Since> since_;
    bool any_labels_ = false;  // in the searched frame before
    std::int64_t first_tenth_ = -1;
};

}  // namespace fleifeisa::explain
