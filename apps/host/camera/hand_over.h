// A new analyzer that learns the scene beside the one that answers, from frames that were answered already.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "analyzer/analyzer_client.h"
#include "camera/frame_ring.h"
#include "common/private_root.h"

namespace fleifeisa::host {

/// One of the few analyzers of this process that may learn beside others at the same time.
class LearnersPlace {
 public:
    static constexpr int kPlaces = 4;
    /// Null where all are taken.
    static std::unique_ptr<LearnersPlace> take();
    ~LearnersPlace();
    LearnersPlace(const LearnersPlace&) = delete;
    LearnersPlace& operator=(const LearnersPlace&) = delete;

 private:
    LearnersPlace() = default;
};

class HandOver {
 public:
    /// What it was given, and what it answered: nobody else has seen these replies.
    struct WarmUp {
        std::string header, reply;
        RgbFrame picture;
        std::int64_t time_ns = 0;
    };

    /// Starts it below a root of its own. @throws AnalyzerError, std::system_error
    /// @param settings  its root is not looked at  @param control  text of its control file
    /// @param learn  the frames that it learns, oldest first  @param masks  the options whose masks it gets
    HandOver(AnalyzerSettings settings, const std::string& control,
             const std::deque<std::shared_ptr<const KeptFrame>>& learn, const SourceOptions& masks);

    /// A frame that the other one has answered meanwhile. Of those that wait only the latest are kept, so that an
    /// analyzer that is no faster than its camera catches up, too.
    void add(std::shared_ptr<const KeptFrame> frame);
    /// Whatever goes on without waiting. @throws AnalyzerError where it failed
    void turn();
    /// For poll, as AnalyzerClient's.
    int wantsWrite() const { return analyzer_->wantsWrite(); }
    int wantsRead() const { return analyzer_->wantsRead(); }
    int wantsErrors() const { return analyzer_->wantsErrors(); }
    /// When it was last heard of.
    Clock::time_point heard() const { return heard_; }
    Clock::time_point began() const { return began_; }

    /// It has answered all it was given.
    bool caughtUp() const { return waiting_.empty() && answered_ == frames_.size(); }
    /// It has learned; no more than a few frames are left.
    bool nearly() const { return answered_ >= learning_; }
    /// When it had.
    Clock::time_point learned() const { return learned_; }
    /// How many frames it learns.
    std::size_t learning() const { return learning_; }
    const std::string& control() const { return control_; }

    /// Once it has caught up.
    std::unique_ptr<AnalyzerClient> takeAnalyzer() { return std::move(analyzer_); }
    std::unique_ptr<PrivateRoot> takeRoot() { return std::move(root_); }
    /// Valid as long as this.
    const std::deque<WarmUp>& frames() const { return frames_; }

 private:
    void sendNext();

    const std::size_t learning_;
    const SourceOptions masks_;
    const std::string control_;
    std::unique_ptr<PrivateRoot> root_;  // outlives the analyzer
    std::unique_ptr<AnalyzerClient> analyzer_;
    std::deque<std::shared_ptr<const KeptFrame>> waiting_;
    std::deque<WarmUp> frames_;  // sent, oldest first
    std::size_t answered_ = 0;   // of them
    Clock::time_point began_ = Clock::now(), heard_ = began_, learned_ = began_;
};

}  // namespace fleifeisa::host
