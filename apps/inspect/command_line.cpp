// The command line.
#include <CLI/CLI.hpp>
#include <iostream>
#include <new>

#include "image/ImageFiles.h"
#include "inspect/inspect.h"

namespace fleifeisa::inspect {

namespace {

constexpr char kAbout[] =
    "Shows what the analyzer sees: runs its tracker over a recorded request stream or image files and writes, for the "
    "frames asked for, pictures, numbers and one page (DIR/index.html).";

constexpr char kExamples[] = R"(Examples:
  fleifeisa-inspect recorded.stream --frames 900 -o frame900
      Frame 900 of what a host sent, with the learning before it.
  fleifeisa-inspect recorded.stream --frames 890-910,950 --color-low 0.4
      The same stream with another threshold: how do the objects change?
  fleifeisa-inspect --list names.txt --prefix night/ --type IR --bgframes 50
      Infrared images, named in a list. Shows every 100th detection frame.
  cat recorded.stream | fleifeisa-inspect - --frames 301 --xml --dumps

Exit status: 0 done; 64 wrong usage; 65 the input is damaged or too short;
66 an input cannot be opened; 73 the output cannot be written.)";

// Values as given, before they are put together: the control file first, then single options.
struct Given {
    std::string type = "COLOR", background = "clusters", frames, control_file;
    int device = 0, bgframes = 0;
    float color_low = 0, color_high = 0, ir_low = 0, ir_high = 0;
};

void declare(CLI::App& app, Options& o, Given& g) {
    app.add_option("input", o.inputs, "A request stream (- for standard input), or image files, one frame each");
    app.add_option("--list", o.list, "File with the names of the images, instead of an input");
    app.add_option("--prefix", o.prefix, "Put directly before every name of the list")->needs("--list");
    app.add_option("-o,--output", o.directory, "Directory for everything written; made where it is missing")
        ->type_name("DIR")
        ->capture_default_str();
    app.add_option("-f,--frames", g.frames, "Frames to show, from 1: 900, or 890-910,950, or 1200- to the end");
    app.add_option("--every", o.every, "Without --frames: show the first detection frame and every Nth after it")
        ->check(CLI::Range(1, 1000000))
        ->capture_default_str();
    app.add_option("--scale", o.scale, "Pixels of a picture for each pixel of the frame; 0 chooses")
        ->check(CLI::Range(0, 16))
        ->capture_default_str();

    const std::string tuning = "How the analyzer would run";
    app.add_option("-t,--type", g.type, "COLOR or IR")
        ->check(CLI::IsMember({"COLOR", "IR"}))
        ->capture_default_str()
        ->group(tuning);
    app.add_option("--control", g.control_file, "Control file with the parameters")->type_name("FILE")->group(tuning);
    app.add_option("--device", g.device, "Take the control file of this device")->excludes("--control")->group(tuning);
    app.add_option("--bgframes", g.bgframes, "Learning frames (300 without a control file)")->group(tuning);
    app.add_option("--color-low", g.color_low, "Low threshold of COLOR, in standard deviations (0.25)")->group(tuning);
    app.add_option("--color-high", g.color_high, "Distance of the high one above it (0.5)")->group(tuning);
    app.add_option("--ir-low", g.ir_low, "Low threshold of IR (1)")->group(tuning);
    app.add_option("--ir-high", g.ir_high, "Distance of the high one above it (2)")->group(tuning);
    app.add_option("--background", g.background, "clusters, as in the analyzer, or single: the first frame as it is")
        ->check(CLI::IsMember({"clusters", "single"}))
        ->capture_default_str()
        ->group(tuning);

    app.add_flag("--xml", o.xml, "Write the detections of each frame shown as XML");
    app.add_flag("--dumps", o.dumps, "Write tables of each cell's edges and derivatives (and a single background)");
    app.add_flag("--trace", o.trace, "Print the detection's trace of each frame shown to standard output");
    app.add_flag("-q,--quiet", o.quiet, "No progress and no summary, only problems");
    app.set_version_flag("--version",
                         "fleifeisa-inspect " FLEIFEISA_VERSION "\nimage formats: " + ImageFormatsBuiltIn());
    app.footer(kExamples);
}

void settle(const CLI::App& app, const Given& g, Options& o) {
    if (o.inputs.empty() == o.list.empty())
        throw Failure(kUsage,
                      o.list.empty() ? "no input given; --help shows how" : "--list stands instead of an input");
    try {
        if (!g.frames.empty()) o.frames = FrameRanges::parse(g.frames);
    } catch (const std::invalid_argument& e) {
        throw Failure(kUsage, std::string("--frames: ") + e.what());
    }
    control& c = o.settings.parameters;
    if (!g.control_file.empty() && !readControl(g.control_file, &c))
        throw Failure(kNoInput, g.control_file + ": cannot be opened");
    if (app.count("--device") > 0 && !updateControl(g.device, &c))
        throw Failure(kNoInput, ControlPath(g.device) + ": cannot be opened");
    if (app.count("--bgframes") > 0) c.bg_frames = g.bgframes;
    if (app.count("--color-low") > 0) c.color_low = g.color_low;
    if (app.count("--color-high") > 0) c.color_high = g.color_high;
    if (app.count("--ir-low") > 0) c.ir_low = g.ir_low;
    if (app.count("--ir-high") > 0) c.ir_high = g.ir_high;
    o.settings.type = g.type == "IR" ? IR : COLOR;
    o.settings.background = g.background == "single" ? SINGLE : MULTIPLE;
}

}  // namespace

int inspectMain(int argc, const char* const* argv) {
    Options options;
    Given given;
    CLI::App app(kAbout, "fleifeisa-inspect");
    declare(app, options, given);
    try {
        app.parse(argc, argv);
        settle(app, given, options);
        inspect(options);
        return kOk;
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? kOk : kUsage;
    } catch (const Failure& e) {
        std::cerr << "fleifeisa-inspect: " << e.what() << std::endl;
        return e.status;
    } catch (const std::bad_alloc&) {
        std::cerr << "fleifeisa-inspect: out of memory" << std::endl;
        return kSystem;
    } catch (const std::exception& e) {
        std::cerr << "fleifeisa-inspect: " << e.what() << std::endl;
        return kSoftware;
    }
}

}  // namespace fleifeisa::inspect
