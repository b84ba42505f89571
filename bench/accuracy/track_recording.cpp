// A recording and its replies through the track filter, as MOTChallenge CSV of the tracks that are shown. What became
// of each track goes to standard error, with the filter's CPU time a frame.
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>

#include "accuracy/mog2.h"
#include "analyzer/reply.h"
#include "sources/recording_source.h"
#include "sources/rgb_frame.h"
#include "tracks/profiles.h"
#include "tracks/tracker.h"

using namespace fleifeisa::host;

namespace {

constexpr const char* kUsage =
    "usage: track_recording RECORDING REPLIES PROFILE LEARNING [tracks|mog2|objects]\n"
    "       track_recording --profile NAME WIDTH HEIGHT\n"
    "  LEARNING   frames that the analyzer learned\n"
    "  mog2       blobs of OpenCV's MOG2 with shadow removal instead of the refiner's, through the same tracker\n"
    "  objects    what the analyzer answered, as it is\n"
    "  --profile  the size at which a source of this size is analyzed\n";

enum class What { kTracks, kMog2, kObjects };

struct Options {
    std::string recording, replies;
    const Profile* profile = nullptr;
    int learning = 0;
    What what = What::kTracks;
};

Options parse(int argc, char** argv) {
    Options options;
    if (argc < 5 || argc > 6) throw std::invalid_argument(kUsage);
    options.recording = argv[1];
    options.replies = argv[2];
    options.profile = findProfile(argv[3]);
    options.learning = std::atoi(argv[4]);
    const std::string what = argc > 5 ? argv[5] : "tracks";
    if (what == "mog2")
        options.what = What::kMog2;
    else if (what == "objects")
        options.what = What::kObjects;
    else if (what != "tracks")
        throw std::invalid_argument(kUsage);
    if (!options.profile || options.learning < 0) throw std::invalid_argument(kUsage);
    return options;
}

void printSize(char** argv) {
    const Profile* profile = findProfile(argv[2]);
    const int width = std::atoi(argv[3]), height = std::atoi(argv[4]);
    if (!profile || width < 1 || height < 1) throw std::invalid_argument(kUsage);
    const auto [across, down] = fittedSize(width, height, profile->longest_side);
    std::printf("%dx%d\n", across, down);
}

/// Answers to frames, one after the other; start-up replies are passed over.
class Replies {
 public:
    explicit Replies(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        if (!file) throw std::runtime_error(path + ": cannot be read");
        bytes_.assign(std::istreambuf_iterator<char>(file), {});
        rest_ = bytes_;
    }
    Reply next() {
        for (;;) {
            const std::size_t length = replyLength(rest_);
            if (length == 0) throw std::runtime_error("there are fewer replies than frames");
            Reply reply = parseReply(rest_.substr(0, length));
            rest_.remove_prefix(length);
            if (reply.numbered) return reply;
        }
    }

 private:
    std::string bytes_;
    std::string_view rest_;
};

/// MOG2 through the tracker of the filter.
class Comparison {
 public:
    explicit Comparison(const Options& options)
        : mog2_(options.profile->filter.split_people), least_area_(options.profile->filter.least_area) {}

    TrackFrame frame(const FilterInput& input) {
        const std::span<const Blob> blobs = mog2_.frame(input.rgb, input.width, input.height);
        told_.clear();
        if (last_ns_ < 0) tracker_.reset(input.width, input.height, least_area_, 1);
        const double seconds = last_ns_ < 0 ? 0.001 : static_cast<double>(input.time_ns - last_ns_) / 1e9;
        last_ns_ = input.time_ns;
        if (input.detection) {
            tracker_.predict(seconds);
            tracker_.update(blobs, input.time_ns, seconds);
            tracker_.tell(told_);
        }
        TrackFrame result;
        result.scene = input.detection ? SceneState::kWatching : SceneState::kLearning;
        result.tracks = told_;
        return result;
    }

 private:
    Mog2 mog2_;
    Tracker tracker_;
    double least_area_;
    std::int64_t last_ns_ = -1;
    std::vector<Track> told_;
};

/// Of this thread.
double cpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void row(long frame, long number, const Box& box) {
    std::printf("%ld,%ld,%d,%d,%d,%d,1,-1,-1,-1\n", frame, number, box.left + 1, box.top + 1, box.width, box.height);
}

void write(long frame, const TrackFrame& result) {
    for (const Track& track : result.tracks) {
        const auto number = static_cast<long>(track.number);
        const Box& box = track.box;
        if (track.state == TrackState::kEnded)
            std::fprintf(stderr, "frame %ld: track %ld ended (%s%s), %d sightings, way %.0f, at %d,%d %dx%d\n", frame,
                         number, nameOf(track.ended), track.removed ? ", removed" : "", track.frames, track.path_px,
                         box.left, box.top, box.width, box.height);
        if (track.state == TrackState::kConfirmed || track.state == TrackState::kStopped) row(frame, number, box);
    }
}

void run(const Options& options) {
    RecordingReader reader(options.recording);
    Replies replies(options.replies);
    TrackFilter filter(options.profile->filter, options.learning);
    std::optional<Comparison> comparison;
    if (options.what == What::kMog2) comparison.emplace(options);
    RecordedMessage message;
    long frame = 0;
    double spent = 0;
    SceneState scene = SceneState::kLearning;
    while (reader.next(message)) {
        if (message.kind != RecordedMessage::kFrame) continue;
        const Reply reply = replies.next();
        ++frame;
        if (options.what == What::kObjects) {
            for (const AnalyzerObject& object : reply.objects)
                row(frame, object.id, {object.left, object.top, object.width, object.height});
            continue;
        }
        const FilterInput input{message.time_ns, message.width,   message.height,
                                message.body,    reply.detection, reply.objects};
        const double begin = cpuSeconds();
        const TrackFrame result = comparison ? comparison->frame(input) : filter.frame(input);
        spent += cpuSeconds() - begin;
        if (result.scene != scene) std::fprintf(stderr, "frame %ld: %s\n", frame, nameOf(scene = result.scene));
        write(frame, result);
    }
    std::fprintf(stderr, "%ld frames, %.3f ms a frame\n", frame,
                 1e3 * spent / static_cast<double>(std::max(1L, frame)));
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc == 5 && std::string(argv[1]) == "--profile")
            printSize(argv);
        else
            run(parse(argc, argv));
    } catch (const std::invalid_argument& wrong) {
        std::fputs(wrong.what(), stderr);
        return 64;
    } catch (const std::exception& failed) {
        std::fprintf(stderr, "track_recording: %s\n", failed.what());
        return 65;
    }
}
