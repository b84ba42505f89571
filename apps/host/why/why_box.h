// Questions of people about what a camera sees, on their way to its thread and back. Neither side waits for the other.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "common/fd.h"

namespace fleifeisa::host {

/// About the next frame, or the latest where none comes.
struct WhyQuestion {
    struct Pixel {
        int x, y;
    };
    std::optional<Pixel> at;    ///< of the analyzed frame
    std::optional<int> object;  ///< the analyzer's number
    std::string layer;          ///< its name, "": none

    /// As the analyzer is asked about this frame: "12 cell 3 4".
    std::string words(std::int64_t frame) const;
};

struct WhyAnswer {
    std::string fault;  ///< why there is no answer, "": there is
    std::string json;   ///< one object (why_json.h)
    std::string layer;  ///< bytes of the layer
};

/// Of one camera, however often it is started anew. From any thread.
class WhyBox {
 public:
    static constexpr std::size_t kMostWaiting = 8;
    static constexpr double kPatience = 4;  ///< seconds until an asker is told that there was no answer

    /// Called once, from any thread; must not wait.
    using Take = std::function<void(const WhyAnswer&)>;

    /// Where nobody answers, `take` is told so at once. False where too many wait.
    bool ask(const WhyQuestion& question, Take take);
    /// Those who wait too long are told so; to be called a few times a second.
    void expire(Clock::time_point now);
    /// "": questions are answered; else why not.
    std::string closedBecause() const;

    // The camera's side.
    struct Asked {
        std::uint64_t id = 0;
        WhyQuestion question;
    };
    const Event& wake() const { return wake_; }
    /// @returns what close() wants: a camera that goes closes nothing that its successor has opened
    std::uint64_t open();
    /// All that wait are told why.
    void close(std::uint64_t opened, const std::string& why);
    /// The next one that was not given yet.
    std::optional<Asked> next();
    void answer(std::uint64_t id, const WhyAnswer& answer);

 private:
    struct Waiting {
        Asked asked;
        Take take;
        Clock::time_point since;
        bool given = false;
    };
    void tell(std::deque<Waiting> those, const std::string& fault) const;

    Event wake_;
    mutable std::mutex mutex_;
    std::deque<Waiting> waiting_;
    std::string closed_ = "the camera has not started yet";
    std::uint64_t last_ = 0, opened_ = 0;
};

class WhyBoxes {
 public:
    /// Made where it is not known yet.
    std::shared_ptr<WhyBox> of(const std::string& camera);
    void expire();

 private:
    std::mutex mutex_;
    std::map<std::string, std::shared_ptr<WhyBox>> boxes_;
};

}  // namespace fleifeisa::host
