#include "inspect/inspect.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

#include "inspect/facts.h"
#include "inspect/page.h"
#include "inspect/pictures.h"
#include "inspect/track_pictures.h"
#include "inspect/track_stage.h"

namespace fleifeisa::inspect {

namespace {

namespace fs = std::filesystem;

void say(const std::string& text) {
    std::cerr << "fleifeisa-inspect: " << text << std::endl;
}

// A line that rewrites itself, on a terminal only.
class Progress {
 public:
    explicit Progress(bool wanted) : shown_(wanted && isatty(STDERR_FILENO) != 0) {}
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    void show(int frame, int pages) {
        const auto now = std::chrono::steady_clock::now();
        if (!shown_ || now - last_ < std::chrono::milliseconds(100)) return;
        last_ = now;
        std::fprintf(stderr, "\rframe %d, %d shown ", frame, pages);
        std::fflush(stderr);
        drawn_ = true;
    }
    void clear() {
        if (drawn_) std::fputs("\r\033[K", stderr);
        drawn_ = false;
    }

 private:
    bool shown_, drawn_ = false;
    std::chrono::steady_clock::time_point last_{};
};

std::vector<std::string> readList(const std::string& path, const std::string& prefix) {
    std::ifstream list(path);
    if (!list) throw Failure(kNoInput, path + ": cannot be opened");
    std::vector<std::string> names;
    for (std::string name; list >> name;) names.push_back(prefix + name);
    if (names.empty()) throw Failure(kBadData, path + ": names no image");
    return names;
}

std::unique_ptr<FrameSource> open(const Options& options) {
    if (!options.list.empty()) return openImages(readList(options.list, options.prefix), say);
    const std::string& first = options.inputs.front();
    // Pipes are not looked into: what was read from them would be gone.
    std::error_code error;
    if (first != "-" && !fs::is_fifo(first, error)) {
        for (const std::string& name : options.inputs)
            if (!fs::is_regular_file(name, error))
                throw Failure(kNoInput, name + (fs::exists(name, error) ? ": is not a file" : ": no such file"));
        if (!looksLikeStream(first)) return openImages(options.inputs, say);
    }
    if (options.inputs.size() > 1) throw Failure(kUsage, "only one request stream can be read at a time");
    return openStream(first, say);
}

class Inspection {
 public:
    explicit Inspection(const Options& options);
    void run();

 private:
    bool chosen(int number) const;
    void feed(SourceFrame& frame);
    void show(Phase phase, const SourceFrame& frame);
    void writeFiles(const std::string& stem, std::vector<Link>& files);
    std::string at(const std::string& name) const { return (fs::path(options_.directory) / name).string(); }

    const Options& options_;
    std::unique_ptr<FrameSource> source_;
    Session session_;
    TrackStage tracks_;
    Page page_;
    Progress progress_;
    int other_sizes_ = 0;
};

Inspection::Inspection(const Options& options)
    : options_(options),
      source_(open(options)),
      session_(options.settings),
      tracks_(options.settings),
      page_(!options.list.empty()           ? options.list
            : options.inputs.front() == "-" ? "standard input"
            : options.inputs.size() > 1     ? options.inputs.front() + " and more"
                                            : options.inputs.front(),
            options.settings),
      progress_(!options.quiet) {
    std::error_code error;
    fs::create_directories(options.directory, error);
    if (!fs::is_directory(options.directory))
        throw Failure(kCannotCreate, options.directory + ": cannot be created" + (error ? ": " + error.message() : ""));
}

bool Inspection::chosen(int number) const {
    if (!options_.frames.empty()) return options_.frames.contains(number);
    const int first = std::max(2, options_.settings.parameters.bg_frames + 1);
    return number >= first && (number - first) % options_.every == 0;
}

void Inspection::feed(SourceFrame& frame) {
    if (!session_.fits(frame.image)) {
        const std::string which =
            frame.name.empty() ? "frame behind number " + std::to_string(session_.number()) : frame.name;
        if (++other_sizes_ == 1) {
            progress_.clear();
            say(which + ": the size differs from the first frame's; frames like this one are left out");
        }
        frame.image.KsFreeImageMemory();
        frame.image.Detach();
        if (source_->dropsOtherSizes()) return;
    }
    const bool shown = chosen(session_.number() + 1);
    const Phase phase = session_.begin(frame.image, options_.trace && shown);
    if (phase != Phase::kNoPixels) tracks_.frame(session_, frame, shown);
    if (shown) show(phase, frame);
    session_.end();
    progress_.show(session_.number(), page_.frames());
}

void Inspection::show(Phase phase, const SourceFrame& frame) {
    char stem[32];
    std::snprintf(stem, sizeof stem, "frame-%06d", session_.number());
    FrameFacts facts = gatherFacts(session_, phase, frame);
    if (phase == Phase::kDetection) tracks_.gather(facts);
    std::vector<Figure> figures;
    std::vector<Link> files;
    const int scale = options_.scale > 0 ? options_.scale : pictureScale(facts.width);
    std::vector<Picture> pictures = drawPictures(session_, facts, scale);
    if (phase == Phase::kDetection)
        for (Picture& p : drawTrackPictures(session_, tracks_, scale)) pictures.push_back(std::move(p));
    for (const Picture& p : pictures) {
        const std::string name = std::string(stem) + "-" + p.name + ".png";
        p.image.writePng(at(name));
        figures.push_back({name, p.title, p.caption, p.image.width(), p.image.height()});
    }
    if (phase == Phase::kDetection) writeFiles(stem, files);
    page_.add(facts, figures, files);
}

// The detections document and the tables, where asked for.
void Inspection::writeFiles(const std::string& stem, std::vector<Link>& files) {
    ColorDiffTracker& tracker = *session_.tracker();
    const auto written = [&](const std::string& name, const char* text) {
        std::error_code error;
        if (fs::file_size(at(name), error) == 0 || error) throw std::runtime_error(at(name) + ": cannot be written");
        files.push_back({name, text});
    };
    if (options_.xml) {
        std::ofstream out(at(stem + "-detections.xml"));
        tracker.OutputXML(out);
        written(stem + "-detections.xml", "detections");
    }
    if (!options_.dumps) return;
    tracker.WriteImageEdges(at(stem + "-edges").c_str());
    written(stem + "-edges.txt", "edges");
    // The colour sums are otherwise those of the frame before.
    for (int k = 0; k < tracker.G->cnum; k++) {
        if (tracker.CIr == COLOR)
            tracker.G->cd[k].AddAll(session_.frame());
        else
            tracker.G->cd[k].AddAllGray(session_.frame());
    }
    tracker.G->CellPartialDerivatives();
    tracker.WriteImageDerivatives(at(stem + "-derivatives").c_str());
    written(stem + "-derivatives.txt", "derivatives");
    if (tracker.BT != SINGLE) return;
    tracker.OutputBackgroundImage(at(stem + "-background.pgm").c_str());
    written(stem + "-background.pgm", "background");
}

void Inspection::run() {
    const int last = options_.frames.empty() ? INT_MAX : options_.frames.last();
    SourceFrame frame;
    while (session_.number() < last && source_->next(frame)) feed(frame);
    progress_.clear();

    const std::string frames = std::to_string(session_.number()) + " frames";
    if (page_.frames() > 0) page_.write(at("index.html"));
    if (!options_.quiet || page_.frames() == 0)
        say(frames + " read, " + std::to_string(page_.frames()) + " shown" +
            (page_.frames() > 0 ? " in " + at("index.html") : ""));
    if (source_->truncated()) throw Failure(kBadData, "the input ends inside a message");
    if (session_.number() == 0) throw Failure(kBadData, "the input holds no frame");
    if (session_.tracker() == nullptr) throw Failure(kBadData, "no frame has pixels");
    if (page_.frames() > 0) {
        if (last != INT_MAX && session_.number() < last) say("the input ends before frame " + std::to_string(last));
        return;
    }
    throw Failure(kBadData, options_.frames.empty()
                                ? "the input ends while the background is being learnt; --bgframes sets how long that "
                                  "takes, --frames shows learning frames too"
                                : "the input ends before the frames asked for");
}

}  // namespace

void inspect(const Options& options) {
    try {
        Inspection(options).run();
    } catch (const Failure&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::runtime_error& e) {  // of a file that cannot be written
        throw Failure(kCannotCreate, e.what());
    }
}

}  // namespace fleifeisa::inspect
