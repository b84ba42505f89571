// Which pictures the events of one camera get: best view, box, thumbnail, filmstrip. No thread, no file: what is to be
// kept goes to a function.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "events/event.h"
#include "media/filmstrip.h"
#include "store/records.h"

namespace fleifeisa::host {

/// A view of a track that is better than those before.
struct Candidate {
    std::int64_t track = 0;
    Box box;
    double score = 0;  ///< viewScore()
};

/// A frame that something is to be made of.
struct PictureFrame {
    std::int64_t time_ns = 0;
    int width = 0, height = 0;
    std::vector<std::uint8_t> rgb;
    std::vector<Candidate> candidates;
    bool tile = false;  ///< of filmstrips
};

/// A file of an event: `media` says what it is but for file and bytes.
struct MadePicture {
    StoredMedia media;
    std::string jpeg;
};

/// Does this kind of event have a picture? Not what is told of the host, and not of a source without one.
bool hasPicture(const CameraEvent& event);

class CameraPictures {
 public:
    /// The first picture comes with the event's start where there is a view, better ones later (at most every ten
    /// seconds while it runs), the strip behind its end.
    using Keep = std::function<void(const CameraEvent& event, std::vector<MadePicture> pictures)>;
    static constexpr std::int64_t kBeforeNs = 2'000'000'000;  ///< that a strip begins before its event
    static constexpr std::int64_t kAfterNs = 3'000'000'000;   ///< that strip and best view go on behind it

    /// The best view of a track, once that has ended: a thumbnail.
    using KeepTrack = std::function<void(std::int64_t track, const MadePicture& thumb)>;
    explicit CameraPictures(Keep keep, KeepTrack keep_track = {})
        : keep_(std::move(keep)), keep_track_(std::move(keep_track)) {}

    /// Before the events of the same frame. @throws OutputError where a picture cannot be made
    void frame(const PictureFrame& frame);
    void event(const CameraEvent& event);
    void trackEnded(std::int64_t track);
    /// No frame is needed to know that it is later: events whose time is over are closed.
    void passed(std::int64_t time_ns);
    /// Nothing more comes: what is open is kept as far as it came.
    void finish();

 private:
    struct View {
        std::shared_ptr<const std::string> jpeg;
        int width = 0, height = 0;
        std::optional<Box> box;
        std::int64_t track = 0, time_ns = 0;
        double score = 0;
    };
    struct Open {
        CameraEvent event;
        std::optional<View> best;
        Filmstrip strip;
        std::int64_t until_ns = std::numeric_limits<std::int64_t>::max();  ///< of what still belongs to it
        std::int64_t kept_ns = 0;
        double kept_score = 0;
        bool wants_frame = false;  ///< no track belongs to it: the next frame is its picture
    };
    static bool concerns(const CameraEvent& event, std::int64_t track);
    static MadePicture thumbOf(const View& view, const Picture& picture);
    void offer(Open& open, const View& view);
    void keepBest(Open& open);
    void close(Open& open);

    const Keep keep_;
    const KeepTrack keep_track_;
    std::map<std::int64_t, View> views_;  ///< the best so far, by track
    std::map<std::int64_t, Open> open_;   ///< by number
    std::deque<SharedTile> recent_;       ///< of the latest seconds
};

}  // namespace fleifeisa::host
