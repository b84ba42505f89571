// The command line, the modes and the start-up.
#include "host/MainLoop.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <new>
#include <string>

#include "host/Control.h"
#include "host/FileFrames.h"
#include "host/FrameLoop.h"
#include "host/Requests.h"
#include "host/Sandbox.h"
#include "host/Streaming.h"

namespace {

int devid = 0;       // device (camera) number: selects the control file, written in replies
int analyzerid = 0;  // set in the streaming mode only
control c{};         // parameters in force

enum Mode { kStored = 0, kLive = 1, kStreaming = 2 };

// What has been answered must have left the process; otherwise that is a failure.
int Finish(std::ostream& out, int status) {
    out.flush();
    if (out) return status;
    std::cerr << "Cannot write to standard output." << std::endl;
    return 1;
}

int PrintUsage(const char* name) {
    std::puts("There are three possible modes of execution:");
    std::printf("1) %s <COLOR | IR> <name_path> <file_names> <devid>\n", name);
    std::puts("\t-Intended to operate with stored sequences.");
    std::printf("2) %s <COLOR | IR> LIVE <updated file> <devid>\n", name);
    std::puts("\t-Intended to operate with a live camera updating a file.");
    std::printf("3) %s <COLOR | IR> STREAMING <devid> <analyzerid>\n", name);
    std::puts("\t-Intended to operate with a live camera through stdio.");
    if (std::fflush(stdout) != 0) std::cerr << "Cannot write to standard output." << std::endl;
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

class Analyzer {
 public:
    Analyzer(int argc, char** argv, std::istream& in_stream, std::ostream& out_stream, FrameWatch* watch_in);
    int Run();

 private:
    void ParseArguments(int argc, char** argv);
    bool StartUp(int& status);
    void PreparePaths();

    std::istream& in;
    std::ostream& out;
    FrameWatch* const watch;
    Mode mode = kStored;
    const char* type_text = "";
    std::string name_path, list_name;
    std::string out_file, out_file_tmp;  // the device's documents: prepared, and nothing is written there
    ImageType CIr = COLOR;
    std::unique_ptr<ControlFile> control_file;
    FileFrames files;  // of the file modes
};

Analyzer::Analyzer(int argc, char** argv, std::istream& in_stream, std::ostream& out_stream, FrameWatch* watch_in)
    : in(in_stream), out(out_stream), watch(watch_in) {
    ParseArguments(argc, argv);
    control_file = std::make_unique<ControlFile>(devid);
}

void Analyzer::ParseArguments(int argc, char** argv) {
    const char* third = argv[3];
    const char* fourth = argc > 4 ? argv[4] : nullptr;  // an absent one counts as 0
    type_text = argv[1];
    name_path = argv[2];
    if (name_path.starts_with("LIVE"))
        mode = kLive;
    else if (name_path.starts_with("STREAMING"))
        mode = kStreaming;
    analyzerid = 0;
    if (mode == kStreaming) {
        devid = ToInt(third);
        analyzerid = ToInt(fourth);
    } else {
        list_name = third;  // or the one file of the live mode
        devid = ToInt(fourth);
    }
}

// False where the run ends here, with `status`.
bool Analyzer::StartUp(int& status) {
    srand48(0);  // a constant seed; nothing draws from this generator
    control_file->Changed();
    if (!updateControl(devid, &c)) {
        if (mode != kStreaming) {
            out << "Cannot open control file.  Cannot proceed." << std::endl;
            status = 0;
            return false;
        }
        AckError("Cannot open configuration file.", out);
    } else if (mode != kStreaming) {
        PreparePaths();
        if (mode == kStored && !files.OpenList(list_name, name_path)) {
            out << "\n Invalid file name " << list_name << std::endl;
            status = 1;
            return false;
        }
    }
    if (mode == kLive) files.Follow(list_name);
    if (std::strcmp(type_text, "COLOR") != 0) {
        CIr = IR;
        if (std::strcmp(type_text, "IR") != 0) AckError("Type must be COLOR or IR.", out);
    }
    std::cerr << "INITIAL STARTUP!! My ID is " << analyzerid << "\n" << std::endl;
    out << "ANALYTICS.CARTRIDGE\r\nStatus: OK\r\n\r\n";
    return true;
}

void Analyzer::PreparePaths() {
    out_file = "/tmp/" + std::to_string(devid) + "_qel.xml";
    out_file_tmp = out_file + ".tmp";
}

int Analyzer::Run() {
    int status = 0;
    if (!StartUp(status)) return Finish(out, status);
    if (mode == kStreaming) {
        EnlargePipe();
        // The file modes open images for as long as they run; a stream needs nothing more than is open now.
        ConfineProcess(ControlPath(devid).c_str(), watch != nullptr ? watch->Descriptor() : -1);
    }
    RequestFrames requests(in, out);
    FrameInput* frames = &files;
    if (mode == kStreaming) frames = &requests;
    FrameLoop loop({CIr, devid, analyzerid, c, watch}, *frames, *control_file, out);
    return Finish(out, loop.Run());
}

}  // namespace

void handler(int) {
    updateControl(devid, &c);
}

const control& Parameters() {
    return c;
}

int RunAnalyzer(int argc, char** argv, std::istream& in, std::ostream& out, FrameWatch* watch) {
    if (argc != 4 && argc != 5) return PrintUsage(argv[0]);
    try {
        return Analyzer(argc, argv, in, out, watch).Run();
    } catch (const std::bad_alloc&) {
        std::cerr << "Out of memory." << std::endl;
        return Finish(out, 1);
    }
}
