#include "archive/clip_worker.h"

#include <poll.h>
#include <sys/resource.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <thread>

#include "archive/clip_pictures.h"
#include "archive/clip_record.h"
#include "archive/clip_videos.h"
#include "archive/own_part.h"
#include "archive/plan.h"
#include "camera/output_types.h"
#include "camera/supervisor.h"
#include "common/leftovers.h"
#include "common/log.h"
#include "common/private_root.h"
#include "common/process.h"
#include "media/picture_tap.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

/// Held while a result gets its name: what is removed at an early end must be a part, not half of a result.
std::mutex naming;

/// The camera of a clip: every frame once, as fast as it goes, into files of this part.
void adapt(CameraConfig& camera, const Clip& clip, const std::string& part) {
    camera.name = clip.camera;
    SourceOptions& source = camera.source;
    source.source = clip.file;
    source.live = false;
    source.loop = source.realtime = false;
    source.decoder_threads = 1;  // a run is one processor's work: there are others beside it
    source.start_time_ns = clip.start_time_ns;
    if (!clip.part.whole()) readPart(source, clip.part);
    camera.service = false;
    for (const char* always : {"tracks", "events"})
        if (std::ranges::find(camera.outputs, always, &OutputChoice::type) == camera.outputs.end())
            camera.outputs.push_back({always, "", {}});
    for (OutputChoice& choice : camera.outputs) {
        choice.path = part + '/' + std::string(findOutputType(choice.type)->default_file);
        choice.policy = {};
    }
}

/// What the log has to say of a run: warnings and errors, the latest last.
std::string loggedTroubles(std::string* latest) {
    std::string all;
    for (const LogLine& line : lastLogLines(0)) {
        if (line.level > LogLevel::kWarning) continue;
        all += line.message + '\n';
        if (latest != nullptr) *latest = line.message;
    }
    return all;
}

void writeText(const std::string& path, const std::string& text) {
    FileWriter file(path);
    file.write(text + '\n');
    file.close();
}

class Run {
 public:
    Run(const Archive& archive, const ClipRun& run)
        : archive_(archive), run_(run), part_(archive.partOf(run.name, ::getpid())), leftover_(part_) {}

    int make(CameraConfig camera) {
        fs::create_directories(part_);
        const PrivateRoot root;
        camera.analyzer.root = root.path();
        adapt(camera, run_.clip, part_);
        const bool pictures = camera.pictures, videos = camera.clips.on && camera.source.private_areas.empty();
        ClipRecord record;
        ClipSummary summary{run_.name, run_.clip, "", 0, 0, 0, 0, 0, 0, 0, 0, "", "", "", ""};
        ClipPictures maker(part_);
        PictureTap tap(maker, camera.name);
        std::vector<Output*> outputs{&record};
        if (pictures) outputs.push_back(&tap);
        const int status = analyze(std::move(camera), outputs, summary);
        if (status != 0) return abandon(status);
        record.write(summary);
        takeOwnPart(part_, summary);
        fs::remove(part_ + '/' + PartProgress::kFile);
        const bool is_file = !run_.clip.file.starts_with("scene:") && fs::is_regular_file(run_.clip.file);
        if (videos && is_file && !isPlayable(run_.clip.file)) makeVisits(part_, run_.clip, never_);
        summary.events = linesOf(part_ + "/events.jsonl");
        summary.tracks = linesOf(part_ + "/tracks.jsonl");
        writeText(part_ + "/summary.json", toJson(summary));
        ClipCost cost = costSince(begin_);
        cost.ended_ns = std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
        cost.warnings = loggedTroubles(nullptr);
        writeText(part_ + "/run.json", toJson(cost));
        nameResult(archive_, part_, run_.name);
        return 0;
    }

 private:
    int abandon(int status) const {
        std::error_code error;
        fs::remove_all(part_, error);
        return status;
    }

    /// All frames of the clip; 0 where the result is of use.
    int analyze(CameraConfig camera, const std::vector<Output*>& outputs, ClipSummary& summary) {
        Supervisor supervisor;
        auto owned = std::make_unique<Camera>(std::move(camera), outputs);
        const Camera& running = *owned;
        owned->prepare();
        supervisor.add(std::move(owned));
        const CameraCounts& counts = running.counts();
        const int code = supervisor.run([this, &counts] { tell(counts); }, nullptr);
        if (supervisor.stopping()) return EX_TEMPFAIL;
        if (counts.restarts > 0 || counts.lost > 0) {
            logError(run_.clip.camera, "the analyzer failed, so the result would be another one");
            return EX_SOFTWARE;
        }
        if (code == EX_DATAERR && counts.answered > 0) {  // what could be read is of use
            loggedTroubles(&summary.damage);
            return 0;
        }
        return code;
    }

    void tell(const CameraCounts& counts) {
        constexpr double kBetween = 5;  // seconds: the archive may be on another machine
        std::printf("frames %lld %lld\n", static_cast<long long>(counts.answered),
                    static_cast<long long>(counts.expected));
        std::fflush(stdout);
        const Clock::time_point now = Clock::now();
        if (Seconds(now - told_).count() < kBetween) return;
        told_ = now;
        notePart(part_, {counts.answered, counts.expected, Seconds(now - begin_).count()});
    }

    static std::int64_t linesOf(const std::string& file) {
        const std::string text = readFile(file);
        return std::ranges::count(text, '\n');
    }

    const Archive& archive_;
    const ClipRun& run_;
    const std::string part_;
    const Leftover leftover_;
    const Clock::time_point begin_ = Clock::now();
    Clock::time_point told_{};
    const Event never_;
};

}  // namespace

void endWithParent() {
    std::thread([] {
        std::array<char, 64> bytes{};
        pollfd item{STDIN_FILENO, POLLIN, 0};
        for (;;) {
            ::poll(&item, 1, -1);
            if (::read(STDIN_FILENO, bytes.data(), bytes.size()) > 0) continue;
            const std::lock_guard lock(naming);
            killAllChildren();
            removeLeftovers(true);
            ::_exit(EX_TEMPFAIL);
        }
    }).detach();
}

void nameResult(const Archive& archive, const std::string& part, const std::string& name) {
    const std::lock_guard lock(naming);
    archive.finish(part, name);
}

ClipCost costSince(Clock::time_point begin) {
    ClipCost cost;
    cost.node = nodeName();
    cost.seconds = Seconds(Clock::now() - begin).count();
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage use{};
        ::getrusage(who, &use);
        for (const timeval& time : {use.ru_utime, use.ru_stime})
            cost.cpu_seconds += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
        // Of the children the largest alone is known; there are two, analyzer and decoder.
        cost.peak_bytes += std::int64_t{use.ru_maxrss} * 1024 * (who == RUSAGE_SELF ? 1 : 2);
    }
    return cost;
}

int makeResult(const Archive& archive, const ClipRun& run, CameraConfig camera) {
    endWithParent();
    return Run(archive, run).make(std::move(camera));
}

}  // namespace fleifeisa::host
