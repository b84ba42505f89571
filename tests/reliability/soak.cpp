// The soak run: hundreds of thousands of frames of moving scenes with a control file that changes every few thousand,
// inside this process or through the analyzer process. Prints a line for every twentieth of the run and a hash over all
// that came out; fails where resident memory grows after the warm-up. Times are processor time, so that other work on
// the machine does not show in them.
//
//   fleifeisa_soak inside WIDTH HEIGHT FRAMES         tracker and model in this process; the hash covers their state
//   fleifeisa_soak through WIDTH HEIGHT FRAMES        the analyzer process; the hash covers its replies
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "host/Control.h"
#include "host/FrameCycle.h"
#include "reliability/crowdscene.h"
#include "support/process.h"
#include "support/protocol.h"
#include "support/state_hash.h"

namespace {

constexpr int kDevice = 3, kLearning = 40;
constexpr std::int64_t kControlEvery = 3000;                // frames between two changes of the control file
constexpr std::int64_t kWarmUp = 2 * CrowdScene::kEpisode;  // frames; a fifth of the run where that is more
constexpr double kAllowedGrowth = 1.0;                      // MB of resident memory after the warm-up

struct Size {
    int rows, cols;
};

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "soak: %s\n", what.c_str());
    std::exit(1);
}

// MB resident in a process ("self" or its number).
double resident(const std::string& pid) {
    std::ifstream statm("/proc/" + pid + "/statm");
    double size = 0, resident = 0;
    statm >> size >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1 << 20);
}

// Processor time of a process, seconds.
double processorTime(const std::string& pid) {
    std::ifstream file("/proc/" + pid + "/stat");
    std::string text;
    std::getline(file, text);
    std::istringstream fields(text.substr(text.rfind(')') + 1));
    std::string skipped;
    for (int i = 3; i < 14; i++) fields >> skipped;
    double user = 0, kernel = 0;
    fields >> user >> kernel;
    return (user + kernel) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

class ChangingControl {
 public:
    ChangingControl() {
        setenv("FLEIFEISA_ROOT", root.path.c_str(), 1);
        change(0);
    }
    // The n-th content: relearning of another length, other thresholds. Modification times count in seconds.
    void change(std::int64_t n) const {
        root.writeControl(backgroundFrames(n == 0 ? kLearning : static_cast<int>(4 + n % 7)) +
                              "<param name=\"-color_low\" value=\"0." + std::to_string(25 + 5 * (n % 3)) + "\"/>\n",
                          1000000000 + n);
    }

    const TempDir root;
};

// --- in this process ---

class Inside {
 public:
    explicit Inside(Size s) : size_(s), cycle_(COLOR, kLearning) {
        updated(kDevice, &mtime_);
        updateControl(kDevice, &parameters_);
    }
    void frame(const std::vector<unsigned char>& pixels, int frame) {
        current_ = pixels;
        image_.KsReadImageMemory(current_.data(), size_.rows, size_.cols);
        const Phase phase = cycle_.Begin(image_, parameters_);
        cycle_.End(image_);
        if (phase == Phase::kDetection) observe();
        answer_.str("");
        cycle_.Answer(answer_, message_, kDevice, 1);
        if (updated(kDevice, &mtime_)) {
            updateControl(kDevice, &parameters_);
            cycle_.Relearn(parameters_.bg_frames);
        }
        if (frame % 997 == 0) hashModel();
    }
    std::string status() const {
        return std::to_string(cycle_.Tracker()->numobjects) + " records (most " + std::to_string(most_records_) +
               "), most " + std::to_string(most_nodes_) + " contour nodes, ids wrapped " + std::to_string(wraps_) +
               " times";
    }
    std::string process() const { return "self"; }
    void end() {}

    StateHash hash;

 private:
    void observe() {
        const ColorDiffTracker& t = *cycle_.Tracker();
        hash.real(t.clt);
        hash.real(t.cht);
        hash.integer(t.numobjects);
        hash.integer(t.NextTmpObId);
        std::int64_t nodes = 0;
        for (int i = 0; i < t.numobjects; i++) {
            Object& ob = t.Ob[t.usedob[i]];
            for (const ContNode* node = ob.fnode; node != nullptr; node = node->link) {
                nodes++;
                if (ob.framenum == t.t) hash.integer(node->r * 65536 + node->c);
            }
            if (ob.framenum != t.t) continue;
            for (const int v : {ob.id, ob.label, ob.numframes, ob.area, ob.rc, ob.cc, ob.numcells, ob.numparents,
                                ob.h.minr, ob.h.maxr, ob.h.minc, ob.h.maxc})
                hash.integer(v);
        }
        most_nodes_ = std::max(most_nodes_, nodes);
        most_records_ = std::max(most_records_, t.numobjects);
        if (t.NextTmpObId < last_id_) wraps_++;
        last_id_ = t.NextTmpObId;
    }
    void hashModel() {
        const BackgroundModel& b = *cycle_.Tracker()->B;
        for (int k = 0; k < b.cnum; k++) {
            const KsBackgroundCell cell = b.cd[k];
            hash.integer(cell.nsamples);
            for (int j = 0; j < cell.nclusters; j++) {
                const ColorValue& sum = cell.clustersum[j];
                for (const int v : {sum.R, sum.G, sum.B, int{cell.support[j]}}) hash.integer(v);
            }
        }
    }

    const Size size_;
    FrameCycle cycle_;
    char timestamp_[4] = " 0";
    streamin message_{0, nullptr, nullptr, timestamp_, kFrame};
    std::ostringstream answer_;
    std::vector<unsigned char> current_;
    KsColorImage image_;
    control parameters_{};
    time_t mtime_ = 0;
    int most_records_ = 0, last_id_ = 0, wraps_ = 0;
    std::int64_t most_nodes_ = 0;
};

// --- through the analyzer process ---

class Through {
 public:
    Through(const std::string& root, Size s) : size_(s), session_({"COLOR", "STREAMING", "3", "5"}, root, 0) {
        session_.reply();  // of the start
    }
    void frame(const std::vector<unsigned char>& pixels, int frame) {
        session_.send(
            frameMessage(size_.cols, size_.rows, {pixels.begin(), pixels.end()}, std::to_string(frame), frame));
        // A reply leaves the analyzer when that reads on, so its test of the control file is over.
        const std::string reply = session_.reply();
        if (reply.empty()) fail("the analyzer ended");
        hash.bytes(reply);
        for (std::size_t at = reply.find("<OBJECT"); at != std::string::npos; at = reply.find("<OBJECT", at + 1))
            objects_++;
    }
    std::string status() const { return std::to_string(objects_) + " objects reported"; }
    std::string process() const { return std::to_string(session_.process()); }
    void end() {
        if (session_.finish() != 0) fail("the analyzer did not end with status 0");
    }

    StateHash hash;

 private:
    const Size size_;
    Session session_;
    std::int64_t objects_ = 0;
};

template <class Run>
int soak(Run& run, const ChangingControl& control_file, Size size, std::int64_t frames) {
    CrowdScene scene(size.rows, size.cols);
    const std::int64_t part = std::max<std::int64_t>(frames / 20, 1);
    const std::int64_t warm = std::max(frames / 5, kWarmUp);
    double settled = 0, most = 0;
    double busy = processorTime(run.process());
    for (std::int64_t n = 1; n <= frames; n++) {
        if (n % kControlEvery == 0) control_file.change(n / kControlEvery);
        run.frame(scene.render(n), static_cast<int>(n));
        if (n % part != 0) continue;
        const double memory = resident(run.process()), now = processorTime(run.process());
        std::printf("%9lld frames  %6.1f MB  %5.0f us a frame  %s\n", static_cast<long long>(n), memory,
                    (now - busy) * 1e6 / static_cast<double>(part), run.status().c_str());
        std::fflush(stdout);
        busy = now;
        (n <= warm ? settled : most) = std::max(n <= warm ? settled : most, memory);
    }
    run.end();
    std::printf("hash %016llx\n", static_cast<unsigned long long>(run.hash.value));
    if (most > settled + kAllowedGrowth) fail("resident memory grew after the warm-up");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const bool inside = argc == 5 && std::strcmp(argv[1], "inside") == 0;
    Size size{0, 0};
    long long frames = 0;
    if (inside || (argc == 5 && std::strcmp(argv[1], "through") == 0)) {
        size = {std::atoi(argv[3]), std::atoi(argv[2])};
        frames = std::atoll(argv[4]);
    }
    if (frames < 1 || frames > 2000000000 || size.rows < 32 || size.cols < 32 || size.rows > 2000 || size.cols > 2000) {
        std::fprintf(stderr, "Usage: %s inside|through WIDTH HEIGHT FRAMES\n", argv[0]);
        return 2;
    }
    std::signal(SIGPIPE, SIG_IGN);
    const ChangingControl control_file;
    if (inside) {
        Inside run(size);
        return soak(run, control_file, size, frames);
    }
    Through run(control_file.root.path, size);
    return soak(run, control_file, size, frames);
}
