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
#include <memory>
#include <sstream>
#include <string>

#include "host/Control.h"
#include "reliability/crowdscene.h"
#include "support/process.h"
#include "support/protocol.h"
#include "support/statetrace.h"
#include "tracker/kscolortracker.h"

namespace {

constexpr int kDevice = 3, kLearning = 40;
constexpr std::int64_t kControlEvery = 3000;                // frames between two changes of the control file
constexpr std::int64_t kWarmUp = 2 * CrowdScene::kEpisode;  // frames; a fifth of the run where that is more
constexpr double kAllowedGrowth = 1.0;                      // MB of resident memory after the warm-up

struct Size {
    int rows, cols;
};

[[noreturn]] void Fail(const std::string& what) {
    std::fprintf(stderr, "soak: %s\n", what.c_str());
    std::exit(1);
}

// MB resident in a process ("self" or its number).
double Resident(const std::string& pid) {
    std::ifstream statm("/proc/" + pid + "/statm");
    double size = 0, resident = 0;
    statm >> size >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1 << 20);
}

// Processor time of a process, seconds.
double Busy(const std::string& pid) {
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
        Change(0);
    }
    // The n-th content: relearning of another length, other thresholds. Modification times count in seconds.
    void Change(std::int64_t n) const {
        root.WriteControl(BackgroundFrames(n == 0 ? kLearning : static_cast<int>(4 + n % 7)) +
                              "<param name=\"-color_low\" value=\"0." + std::to_string(25 + 5 * (n % 3)) + "\"/>\n",
                          1000000000 + n);
    }

    const TempDir root;
};

// --- in this process: the same flow as the main loop's ---

class Inside {
 public:
    explicit Inside(Size s) : size(s) {}
    void Frame(const std::vector<unsigned char>& pixels, int frame) {
        if (tracker == nullptr) {
            updated(kDevice, &mtime);
            updateControl(kDevice, &parameters);
        }
        current = pixels;
        image.KsReadImageMemory(current.data(), size.rows, size.cols);
        if (tracker == nullptr) {
            tracker = MakeTracker(COLOR, image, kLearning);
            return;
        }
        const bool detect = frame > kLearning && relearn == 0;
        if (detect)
            tracker->DetectForeground(image, frame, parameters.color_low, parameters.color_high, parameters.ir_low,
                                      parameters.ir_high);
        tracker->UpdateBackground(image, !detect);
        if (relearn > 0) relearn--;
        if (detect) Observe();
        if (relearn > 0) relearn--;
        if (updated(kDevice, &mtime)) {
            updateControl(kDevice, &parameters);
            relearn = parameters.bg_frames;
        }
        if (frame % 997 == 0) HashModel();
    }
    std::string Status() const {
        return std::to_string(tracker->numobjects) + " records (most " + std::to_string(most_records) + "), most " +
               std::to_string(most_nodes) + " contour nodes, ids wrapped " + std::to_string(wraps) + " times";
    }
    std::string Process() const { return "self"; }
    void End() {}

    StateHash hash;

 private:
    void Observe() {
        const ColorDiffTracker& T = *tracker;
        hash.Double(T.clt);
        hash.Double(T.cht);
        hash.Int(T.numobjects);
        hash.Int(T.NextTmpObId);
        std::int64_t nodes = 0;
        for (int i = 0; i < T.numobjects; i++) {
            Object& ob = T.Ob[T.usedob[i]];
            for (const ContNode* node = ob.fnode; node != nullptr; node = node->link) {
                nodes++;
                if (ob.framenum == T.t) hash.Int(node->r * 65536 + node->c);
            }
            if (ob.framenum != T.t) continue;
            for (const int v : {ob.id, ob.label, ob.numframes, ob.area, ob.rc, ob.cc, ob.numcells, ob.numparents,
                                ob.h.minr, ob.h.maxr, ob.h.minc, ob.h.maxc})
                hash.Int(v);
        }
        most_nodes = std::max(most_nodes, nodes);
        most_records = std::max(most_records, T.numobjects);
        if (T.NextTmpObId < last_id) wraps++;
        last_id = T.NextTmpObId;
    }
    void HashModel() {
        const BackgroundModel& B = *tracker->B;
        for (int k = 0; k < B.cnum; k++) {
            const KsBackgroundCell cell = B.cd[k];
            hash.Int(cell.nsamples);
            for (int j = 0; j < cell.nclusters; j++) {
                const ColorValue& sum = cell.clustersum[j];
                for (const int v : {sum.R, sum.G, sum.B, int{cell.support[j]}}) hash.Int(v);
            }
        }
    }

    const Size size;
    std::unique_ptr<ColorDiffTracker> tracker;
    std::vector<unsigned char> current;
    KsColorImage image;
    control parameters{};
    time_t mtime = 0;
    int relearn = 0, most_records = 0, last_id = 0, wraps = 0;
    std::int64_t most_nodes = 0;
};

// --- through the analyzer process ---

class Through {
 public:
    Through(const std::string& root, Size s) : size(s), session({"COLOR", "STREAMING", "3", "5"}, root, 0) {
        session.Reply();  // of the start
    }
    void Frame(const std::vector<unsigned char>& pixels, int frame) {
        session.Send(FrameMessage(size.cols, size.rows, {pixels.begin(), pixels.end()}, std::to_string(frame), frame));
        // A reply leaves the analyzer when that reads on, so its test of the control file is over.
        const std::string reply = session.Reply();
        if (reply.empty()) Fail("the analyzer ended");
        hash.Bytes(reply);
        for (std::size_t at = reply.find("<OBJECT"); at != std::string::npos; at = reply.find("<OBJECT", at + 1))
            objects++;
    }
    std::string Status() const { return std::to_string(objects) + " objects reported"; }
    std::string Process() const { return std::to_string(session.Process()); }
    void End() {
        if (session.Finish() != 0) Fail("the analyzer did not end with status 0");
    }

    StateHash hash;

 private:
    const Size size;
    Session session;
    std::int64_t objects = 0;
};

template <class Run>
int Soak(Run& run, const ChangingControl& control_file, Size size, std::int64_t frames) {
    CrowdScene scene(size.rows, size.cols);
    const std::int64_t part = std::max<std::int64_t>(frames / 20, 1);
    const std::int64_t warm = std::max(frames / 5, kWarmUp);
    double settled = 0, most = 0;
    double busy = Busy(run.Process());
    for (std::int64_t n = 1; n <= frames; n++) {
        if (n % kControlEvery == 0) control_file.Change(n / kControlEvery);
        run.Frame(scene.Render(n), static_cast<int>(n));
        if (n % part != 0) continue;
        const double memory = Resident(run.Process()), now = Busy(run.Process());
        std::printf("%9lld frames  %6.1f MB  %5.0f us a frame  %s\n", static_cast<long long>(n), memory,
                    (now - busy) * 1e6 / static_cast<double>(part), run.Status().c_str());
        std::fflush(stdout);
        busy = now;
        (n <= warm ? settled : most) = std::max(n <= warm ? settled : most, memory);
    }
    run.End();
    std::printf("hash %016llx\n", static_cast<unsigned long long>(run.hash.value));
    if (most > settled + kAllowedGrowth) Fail("resident memory grew after the warm-up");
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
        return Soak(run, control_file, size, frames);
    }
    Through run(control_file.root.path, size);
    return Soak(run, control_file, size, frames);
}
