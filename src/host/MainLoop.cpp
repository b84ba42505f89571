// The command line, the modes and the main loop.
#include "host/MainLoop.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <limits>
#include <memory>
#include <new>
#include <string>

#include "host/Control.h"
#include "host/FileFrames.h"
#include "host/Sandbox.h"
#include "host/Streaming.h"
#include "tracker/kscolortracker.h"

namespace {

int devid = 0;       // device (camera) number: selects the control file, written in replies
int analyzerid = 0;  // set in the streaming mode only
control c{};         // parameters in force

enum Mode { kStored = 0, kLive = 1, kStreaming = 2 };

// How a run ends: thrown from wherever the loop finds out.
struct Exit {
    int status;
};

// Re-reads the parameters. Deliberate: nothing installs it; the loop below re-reads the file.
[[maybe_unused]] void handler(int) {
    updateControl(devid, &c);
}

int PrintUsage(const char* name) {
    std::puts("There are three possible modes of execution:");
    std::printf("1) %s <COLOR | IR> <name_path> <file_names> <devid>\n", name);
    std::puts("\t-Intended to operate with stored sequences.");
    std::printf("2) %s <COLOR | IR> LIVE <updated file> <devid>\n", name);
    std::puts("\t-Intended to operate with a live camera updating a file.");
    std::printf("3) %s <COLOR | IR> STREAMING <devid> <analyzerid>\n", name);
    std::puts("\t-Intended to operate with a live camera through stdio.");
    return 1;
}

int ToInt(const char* text) {
    return text != nullptr ? static_cast<int>(std::strtol(text, nullptr, 10)) : 0;
}

// A frame that arrives in a few pieces, instead of 64 KB at a time, costs fewer changes between processes. Modest: what
// the pipes of a user may take together is limited, and beyond that new ones are tiny. Where standard input is no pipe,
// or the system allows no more, everything stays as it is.
void EnlargePipe() {
#if defined(F_SETPIPE_SZ)
    constexpr int kBytes = 256 << 10;
    const int now = fcntl(STDIN_FILENO, F_GETPIPE_SZ);
    if (now > 0 && now < kBytes) fcntl(STDIN_FILENO, F_SETPIPE_SZ, kBytes);
#endif
}

bool HasPixels(const KsColorImage& img) {
    return img.raw && img.NofR > 0 && img.NofC > 0;
}

class Analyzer {
 public:
    Analyzer(int argc, char** argv) { ParseArguments(argc, argv); }
    ~Analyzer() { ReleaseFrame(); }
    Analyzer(const Analyzer&) = delete;
    Analyzer& operator=(const Analyzer&) = delete;
    [[noreturn]] void Run();

 private:
    void ParseArguments(int argc, char** argv);
    void StartUp();
    void NextFrame();
    void NextFileFrame();
    void NextStreamedFrame();
    bool ReadMessage();
    void ReleaseFrame();
    void BuildTracker();
    void Answer(bool learning);
    void CheckControl();

    // Set once.
    Mode mode = kStored;
    const char* type_text = "";
    std::string name_path, list_name;
    ImageType CIr = COLOR;
    int NofBckgFrames = 0;

    // Carried from frame to frame.
    FileFrames files;                      // source of the file modes
    KsColorImage Img;                      // the frame; owns its pixels
    streamin streamdata{};                 // its message
    std::unique_ptr<ColorDiffTracker> TD;  // built over the first frame that has pixels
    int frame = 0;                         // frames counted
    int relearn_time = 0;
    time_t last_mtime = 0;
};

void Analyzer::ParseArguments(int argc, char** argv) {
    const char* third = argv[3];
    const char* fourth = argc > 4 ? argv[4] : nullptr;  // an absent one counts as 0
    type_text = argv[1];
    name_path = argv[2];
    if (name_path.starts_with("LIVE"))
        mode = kLive;
    else if (name_path.starts_with("STREAMING"))
        mode = kStreaming;
    if (mode == kStreaming) {
        devid = ToInt(third);
        analyzerid = ToInt(fourth);
    } else {
        list_name = third;  // or the one file of the live mode
        devid = ToInt(fourth);
    }
}

void Analyzer::StartUp() {
    srand48(0);  // Deliberate: a constant seed for a generator that nothing draws from
    updated(devid, &last_mtime);
    if (!updateControl(devid, &c)) {
        if (mode != kStreaming) {
            std::cout << "Cannot open control file.  Cannot proceed." << std::endl;
            throw Exit{0};
        }
        AckError("Cannot open configuration file.");
    } else if (mode == kStored && !files.OpenList(list_name, name_path)) {
        std::cout << "\n Invalid file name " << list_name << std::endl;
        throw Exit{1};
    }
    if (mode == kLive) files.Follow(list_name);
    NofBckgFrames = c.bg_frames;  // fixed for the rest of the run
    if (std::strcmp(type_text, "COLOR") != 0) {
        CIr = IR;
        if (std::strcmp(type_text, "IR") != 0) AckError("Type must be COLOR or IR.");
    }
    std::cerr << "INITIAL STARTUP!! My ID is " << analyzerid << "\n" << std::endl;
    std::cout << "ANALYTICS.CARTRIDGE\r\nStatus: OK\r\n\r\n";
}

void Analyzer::Run() {
    StartUp();
    if (mode == kStreaming) EnlargePipe();
    // The file modes open images for as long as they run; a stream needs nothing more than is open now.
    if (mode == kStreaming) ConfineProcess(ControlPath(devid).c_str());
    for (;;) {
        frame++;
        NextFrame();
        if (HasPixels(Img)) Img.Share();  // the model keeps the latest frames
        if (frame == 1) {
            if (mode == kStreaming) AckOK(streamdata);
            if (HasPixels(Img)) BuildTracker();
        } else {
            const bool learning = frame <= NofBckgFrames;
            const bool detect = !learning && relearn_time == 0;
            if (TD == nullptr) {
                if (HasPixels(Img)) BuildTracker();  // this frame only constructs it
            } else if (HasPixels(Img)) {
                if (detect) TD->DetectForeground(Img, frame, c.color_low, c.color_high, c.ir_low, c.ir_high);
                TD->UpdateBackground(Img, !detect);
            }
            if (relearn_time > 0) relearn_time--;
            Answer(learning);
        }
        CheckControl();
    }
}

// Deliberate: also on the frame on which relearning has just run out, although that one was only learned. A plain
// answer counts down once more, so relearning takes two a frame.
void Analyzer::Answer(bool learning) {
    if (!learning && relearn_time == 0) {
        if (TD != nullptr)
            TD->OutputAnalyticsXML(devid, streamdata.timestamp, streamdata.sequence_num, analyzerid);
        else
            OutputEmptyAnalytics(streamdata.timestamp, streamdata.sequence_num);
        return;
    }
    AckOK(streamdata);
    if (relearn_time > 0) relearn_time--;
}

void Analyzer::CheckControl() {
    if (!updated(devid, &last_mtime)) return;
    updateControl(devid, &c);
    relearn_time = c.bg_frames;
}

void Analyzer::BuildTracker() {
    TD = MakeTracker(CIr, Img, NofBckgFrames);
}

// --- frames ---

void Analyzer::NextFrame() {
    if (mode == kStreaming)
        NextStreamedFrame();
    else
        NextFileFrame();
}

// Releases the pixels and the texts of the previous message, once.
void Analyzer::ReleaseFrame() {
    Img.KsFreeImageMemory();
    Img.Detach();
    std::free(streamdata.status);
    std::free(streamdata.status_text);
    std::free(streamdata.timestamp);
    streamdata = streamin{};
}

// Reads messages until one carries a frame that counts: of the tracker's size, or without pixels.
void Analyzer::NextStreamedFrame() {
    for (;;) {
        ReleaseFrame();
        if (!ReadMessage()) continue;
        if (streamdata.ret_status == kShutdown) throw Exit{0};
        if (streamdata.ret_status != kFrame) continue;
        if (TD != nullptr && HasPixels(Img) && (Img.NofR != TD->G->NofR || Img.NofC != TD->G->NofC)) {
            AckError("Image size differs from the first frame.");
            continue;
        }
        if (streamdata.timestamp == nullptr) streamdata.timestamp = strdup("");
        return;
    }
}

// One message. False where a line was too long: the message is dropped and the input goes on behind that line.
bool Analyzer::ReadMessage() {
    const bool ended = std::cin.peek() == std::char_traits<char>::eof();  // flushes what has been answered
    if (!std::cout) throw Exit{1};
    if (ended) throw Exit{0};
    streamdata = StreamIO(&Img);
    if (TruncatedBody()) {
        std::cerr << "The input ended inside a message body." << std::endl;
        throw Exit{1};
    }
    if (std::cin.fail() && !std::cin.eof()) {
        std::cin.clear();
        std::cin.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
        AckError("Line too long.");
        return false;
    }
    std::cin.clear();  // the end of input is found again before the next message
    return true;
}

void Analyzer::NextFileFrame() {
    ReleaseFrame();
    std::cout.flush();  // nothing read from standard input does it here
    if (!std::cout) throw Exit{1};
    const bool sized = TD != nullptr;
    const FileFrames::Result next = files.Next(Img, frame, sized ? TD->G->NofR : 0, sized ? TD->G->NofC : 0);
    if (next != FileFrames::kFrame) throw Exit{next == FileFrames::kEnd ? 0 : 1};
    char text[80];
    std::snprintf(text, sizeof text, "%d", static_cast<int>(std::time(nullptr)));
    streamdata.timestamp = strdup(text);
    streamdata.sequence_num = frame;
}

// Ends the process. What was answered must have left it; otherwise that is a failure.
int Finish(int status) {
    std::cout.flush();
    if (std::cout) return status;
    std::cerr << "Cannot write to standard output." << std::endl;
    return 1;
}

}  // namespace

int RunAnalyzer(int argc, char** argv) {
    if (argc != 4 && argc != 5) return PrintUsage(argv[0]);
    try {
        Analyzer(argc, argv).Run();
    } catch (const Exit& e) {
        return Finish(e.status);
    } catch (const std::bad_alloc&) {
        std::cerr << "Out of memory." << std::endl;
        return Finish(1);
    }
}
