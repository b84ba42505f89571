// The soak run: hundreds of thousands of frames of moving scenes with a control file that changes every few thousand,
// inside this process or through the analyzer process. Prints a line for every twentieth of the run and a hash over all
// that came out; fails where resident memory grows after the warm-up. Times are processor time, so that other work on
// the machine does not show in them.
//
//   fleifeisa_soak inside WIDTH HEIGHT FRAMES         tracker and model in this process; the hash covers their state
//   fleifeisa_soak through EXE WIDTH HEIGHT FRAMES    the analyzer process; the hash covers its replies
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

#include "Control.h"
#include "crowdscene.h"
#include "kscolortracker.h"

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

class Hash {
 public:
    void Add(const void* data, std::size_t size) {
        const auto* p = static_cast<const unsigned char*>(data);
        for (std::size_t i = 0; i < size; i++) value = (value ^ p[i]) * 1099511628211ULL;
    }
    template <class T>
    void Add(T v) {
        Add(&v, sizeof v);
    }
    std::uint64_t value = 14695981039346656037ULL;
};

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

class ControlFile {
 public:
    ControlFile() {
        if (mkdtemp(root) == nullptr) Fail("no temporary directory");
        setenv("FLEIFEISA_ROOT", root, 1);
        std::filesystem::create_directories(std::filesystem::path(ControlPath(kDevice)).parent_path());
        Change(0);
    }
    ~ControlFile() { std::filesystem::remove_all(root); }
    // The n-th content: relearning of another length, other thresholds. Modification times count in seconds.
    void Change(std::int64_t n) {
        std::ofstream(ControlPath(kDevice))
            << "<param name=\"-bgframes\" value=\"" << (n == 0 ? kLearning : 4 + n % 7) << "\"/>\n"
            << "<param name=\"-color_low\" value=\"" << 0.25 + 0.05 * static_cast<double>(n % 3) << "\"/>\n";
        const timespec times[2] = {{1000000000 + n, 0}, {1000000000 + n, 0}};
        if (utimensat(AT_FDCWD, ControlPath(kDevice).c_str(), times, 0) != 0) Fail("no control file");
    }

 private:
    char root[32] = "/tmp/fleifeisa-soak-XXXXXX";
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
            tracker = std::make_unique<ColorDiffTracker>(image, 240, 480, 1.0, 4, 0.95, COLOR, false, 500, 1200,
                                                         kLearning, MULTIPLE);
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

    Hash hash;

 private:
    void Observe() {
        const ColorDiffTracker& T = *tracker;
        hash.Add(T.clt);
        hash.Add(T.cht);
        hash.Add(T.numobjects);
        hash.Add(T.NextTmpObId);
        std::int64_t nodes = 0;
        for (int i = 0; i < T.numobjects; i++) {
            Object& ob = T.Ob[T.usedob[i]];
            for (const ContNode* node = ob.fnode; node != nullptr; node = node->link) {
                nodes++;
                if (ob.framenum == T.t) hash.Add(node->r * 65536 + node->c);
            }
            if (ob.framenum != T.t) continue;
            for (const int v : {ob.id, ob.label, ob.numframes, ob.area, ob.rc, ob.cc, ob.numcells, ob.numparents,
                                ob.h.minr, ob.h.maxr, ob.h.minc, ob.h.maxc})
                hash.Add(v);
        }
        most_nodes = std::max(most_nodes, nodes);
        most_records = std::max(most_records, T.numobjects);
        if (T.NextTmpObId < last_id) wraps++;
        last_id = T.NextTmpObId;
    }
    void HashModel() {
        const BackgroundModel& B = *tracker->B;
        for (int k = 0; k < B.cnum; k++) {
            hash.Add(static_cast<int>(B.cd[k].nsamples));
            for (int j = 0; j < B.cd[k].nclusters; j++)
                for (const int v : {int(B.cd[k].clustersum[j].R), int(B.cd[k].clustersum[j].G),
                                    int(B.cd[k].clustersum[j].B), int(B.cd[k].support[j])})
                    hash.Add(v);
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
    Through(const char* exe, Size s) : size(s) {
        int in[2], out[2];
        if (pipe(in) != 0 || pipe(out) != 0) Fail("no pipe");
        child = fork();
        if (child == 0) {
            dup2(in[0], 0);
            dup2(out[1], 1);
            dup2(open("/dev/null", O_WRONLY), 2);
            for (const int fd : {in[0], in[1], out[0], out[1]}) close(fd);
            execl(exe, exe, "COLOR", "STREAMING", "3", "5", static_cast<char*>(nullptr));
            _exit(127);
        }
        close(in[0]);
        close(out[1]);
        to = in[1];
        from = out[0];
        Reply();  // the start-up reply
    }
    void Frame(const std::vector<unsigned char>& pixels, int frame) {
        std::ostringstream head;
        head << "ANALYTICS.CARTRIDGE\r\nContent-Type: image/rgb\r\nContent-Length: " << pixels.size()
             << "\r\nImage-width: " << size.cols << "\r\nImage-height: " << size.rows << "\r\nTimestamp: " << frame
             << "\r\nSequence-Number: " << frame << "\r\n\r\n";
        Send(head.str().data(), head.str().size());
        Send(pixels.data(), pixels.size());
        const std::string reply = Reply();
        hash.Add(reply.data(), reply.size());
        for (std::size_t at = reply.find("<OBJECT"); at != std::string::npos; at = reply.find("<OBJECT", at + 1))
            objects++;
    }
    std::string Status() const { return std::to_string(objects) + " objects reported"; }
    std::string Process() const { return std::to_string(child); }
    void End() {
        close(to);
        int status = 0;
        waitpid(child, &status, 0);
        if (status != 0) Fail("the analyzer did not end with status 0");
    }

    Hash hash;

 private:
    void Send(const void* data, std::size_t left) {
        for (const auto* p = static_cast<const char*>(data); left > 0;) {
            const ssize_t n = write(to, p, left);
            if (n <= 0) Fail("the analyzer does not read");
            p += n;
            left -= static_cast<std::size_t>(n);
        }
    }
    // A whole reply. It leaves the analyzer when that reads on, so its test of the control file is over.
    std::string Reply() {
        std::size_t end;
        while ((end = pending.find("\r\n\r\n")) == std::string::npos) More();
        end += 4;
        const std::size_t length = pending.find("Content-Length: ");
        if (length < end) end += std::strtoul(pending.c_str() + length + 16, nullptr, 10);
        while (pending.size() < end) More();
        const std::string reply = pending.substr(0, end);
        pending.erase(0, end);
        return reply;
    }
    void More() {
        char piece[65536];
        const ssize_t n = read(from, piece, sizeof piece);
        if (n <= 0) Fail("the analyzer ended");
        pending.append(piece, static_cast<std::size_t>(n));
    }

    const Size size;
    pid_t child = 0;
    int to = -1, from = -1;
    std::string pending;
    std::int64_t objects = 0;
};

template <class Run>
int Soak(Run& run, ControlFile& control_file, Size size, std::int64_t frames) {
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
    const bool through = argc == 6 && std::strcmp(argv[1], "through") == 0;
    Size size{0, 0};
    long long frames = 0;
    if (inside || through) {
        size = {std::atoi(argv[argc - 2]), std::atoi(argv[argc - 3])};
        frames = std::atoll(argv[argc - 1]);
    }
    if (frames < 1 || frames > 2000000000 || size.rows < 32 || size.cols < 32 || size.rows > 2000 || size.cols > 2000) {
        std::fprintf(stderr, "Usage: %s inside WIDTH HEIGHT FRAMES | through ANALYZER WIDTH HEIGHT FRAMES\n", argv[0]);
        return 2;
    }
    std::signal(SIGPIPE, SIG_IGN);
    ControlFile control_file;
    if (inside) {
        Inside run(size);
        return Soak(run, control_file, size, frames);
    }
    Through run(argv[2], size);
    return Soak(run, control_file, size, frames);
}
