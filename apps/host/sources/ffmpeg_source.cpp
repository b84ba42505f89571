#include "sources/ffmpeg_source.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sysexits.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "common/log.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

bool isImageName(const fs::path& path) {
    std::string extension = path.extension().string();
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const char* known : {".jpg", ".jpeg", ".png", ".ppm", ".pgm", ".pnm", ".bmp", ".tif", ".tiff", ".webp"})
        if (extension == known) return true;
    return false;
}

std::vector<std::string> imagesOfDirectory(const std::string& directory) {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator it(directory, error), end; !error && it != end; it.increment(error))
        if (isImageName(it->path())) names.push_back(fs::absolute(it->path()).string());
    if (error) throw SourceError(EX_NOINPUT, directory + ": " + error.message());
    if (names.empty()) throw SourceError(EX_NOINPUT, directory + ": no images in this directory");
    std::sort(names.begin(), names.end());
    return names;
}

/// One name a line, relative to the list's directory; empty lines and lines that begin with # are skipped.
std::vector<std::string> imagesOfList(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw SourceError(EX_NOINPUT, path + ": " + std::strerror(errno));
    std::vector<std::string> names;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        if (line.ends_with('\r')) line.pop_back();
        if (line.empty() || line.starts_with('#')) continue;
        const fs::path name = fs::absolute(fs::path(path)).parent_path() / line;
        if (!fs::exists(name))
            throw SourceError(EX_NOINPUT, path + ": line " + std::to_string(number) + ": there is no file " + line);
        names.push_back(name.string());
    }
    if (names.empty()) throw SourceError(EX_NOINPUT, path + ": the list names no image");
    return names;
}

std::string concatQuoted(const std::string& name) {
    std::string result = "'";
    for (const char c : name) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

double toDouble(std::string_view text) {
    double value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

/// The number in front of `unit` in "..., 25 fps, ...".
double numberBefore(std::string_view text, std::string_view unit) {
    const std::size_t at = text.find(unit);
    if (at == std::string_view::npos) return 0;
    const std::size_t begin = text.rfind(' ', at - 1);
    return begin == std::string_view::npos ? 0 : toDouble(text.substr(begin + 1, at - begin - 1));
}

/// Removes "file:" and passwords; what a user wants to see named.
std::string shown(const std::string& source) {
    return withoutPassword(source);
}

}  // namespace

FfmpegSource::FfmpegSource(const SourceOptions& options, const Event& stop)
    : options_(options), live_(isLive(options)) {
    if (findProgram(options_.ffmpeg).empty())
        throw SourceError(EX_UNAVAILABLE, "ffmpeg is needed for " + shown(options_.source) +
                                              " and was not found (install it: packaging/setup.sh video)");
    Process::Options child;
    child.argv = arguments();
    child.pipe_out = child.pipe_err = true;
    try {
        process_ = Process(child);
    } catch (const std::system_error& error) {
        throw SourceError(EX_OSERR, std::string("ffmpeg could not be started: ") + error.what());
    }
    reader_ =
        std::make_unique<PipeReader>(process_.out.get(), process_.err.get(), stop, seconds(options_.stall_seconds),
                                     [this](std::string_view line) { onLine(line); });
    nut_ = std::make_unique<NutReader>(*reader_);
}

FfmpegSource::~FfmpegSource() {
    process_.out.reset();  // ffmpeg ends at its next write
    process_.signal(SIGTERM);
    if (process_.running() && !process_.wait(Clock::now() + std::chrono::seconds(1))) process_.kill();
    if (!list_path_.empty()) ::unlink(list_path_.c_str());
}

std::string FfmpegSource::writeImageList() {
    const bool list = options_.source.starts_with("list:");
    const auto names = list ? imagesOfList(options_.source.substr(5)) : imagesOfDirectory(options_.source);
    images_ = static_cast<std::int64_t>(names.size());
    rate_ = options_.rate > 0 ? options_.rate : 10;
    options_.rate = 0;  // it gives the images their times; nothing is left out
    std::string path = (fs::temp_directory_path() / "fleifeisa-list-XXXXXX").string();
    const Fd file(::mkostemp(path.data(), O_CLOEXEC));
    if (!file) throw SourceError(EX_CANTCREAT, path + ": " + std::strerror(errno));
    std::ofstream out(path);
    out << "ffconcat version 1.0\n";
    for (const std::string& name : names) out << "file " << concatQuoted(name) << "\nduration " << 1 / rate_ << "\n";
    if (!out.flush()) throw SourceError(EX_IOERR, path + ": cannot be written");
    return path;
}

void FfmpegSource::inputArguments(std::vector<std::string>& argv) {
    const std::string& source = options_.source;
    const auto add = [&argv](std::initializer_list<const char*> more) {
        argv.insert(argv.end(), more.begin(), more.end());
    };
    for (const std::string& option : options_.ffmpeg_input_options) argv.push_back(option);
    if (source.find("://") != std::string::npos) {
        if (source.starts_with("rtsp")) add({"-rtsp_transport", "tcp"});
        // A second of the stream is enough to know it by; the default of five would delay every reconnection.
        if (live_) add({"-fflags", "nobuffer", "-flags", "low_delay", "-analyzeduration", "1000000"});
        argv.insert(argv.end(), {"-i", source});
        return;
    }
    struct stat status {};
    const std::string path = source.starts_with("list:") ? source.substr(5) : source;
    if (::stat(path.c_str(), &status) != 0) throw SourceError(EX_NOINPUT, path + ": " + std::strerror(errno));
    if (source.starts_with("list:") || S_ISDIR(status.st_mode)) {
        list_path_ = writeImageList();
        leftover_.emplace(list_path_);
        argv.insert(argv.end(), {"-f", "concat", "-safe", "0", "-i", list_path_});
        return;
    }
    if (S_ISCHR(status.st_mode)) add({"-f", "v4l2"});
    if (S_ISREG(status.st_mode) && status.st_size == 0) throw SourceError(EX_DATAERR, path + ": the file is empty");
    if (options_.loop) add({"-stream_loop", "-1"});
    argv.insert(argv.end(), {"-i", "file:" + path});
}

std::vector<std::string> FfmpegSource::arguments() {
    std::vector<std::string> argv = {options_.ffmpeg, "-hide_banner", "-nostdin",
                                     "-nostats",      "-loglevel",    "level+info"};
    if (options_.decoder_threads > 0) argv.insert(argv.end(), {"-threads", std::to_string(options_.decoder_threads)});
    inputArguments(argv);
    // Formats that are in the list pass untouched. Others, and frames that change their size in mid-stream, go through
    // the scaler with the flags that make its results independent of the processor.
    argv.insert(argv.end(), {"-map",
                             "0:v:0",
                             "-an",
                             "-sn",
                             "-dn",
                             "-sws_flags",
                             "bicubic+accurate_rnd+bitexact",
                             "-vf",
                             "format=" + supportedFormats(),
                             "-fps_mode",
                             "passthrough",
                             "-enc_time_base",
                             "-1",
                             "-c:v",
                             "rawvideo",
                             "-flush_packets",
                             "1",
                             "-f",
                             "nut",
                             "pipe:1"});
    return argv;
}

/// ffmpeg's own report, one line: level in brackets, then text.
void FfmpegSource::onLine(std::string_view line) {
    if (line.find("[error]") != std::string_view::npos || line.find("[fatal]") != std::string_view::npos) {
        last_error_ = line.substr(
            line.find("] ", line.find(line.find("[error]") != std::string_view::npos ? "[error]" : "[fatal]")) + 2);
        if (errors_++ == 0) first_error_ = last_error_;
        return;
    }
    if (line.find("Output #0") != std::string_view::npos) in_output_ = true;
    if (const std::size_t at = line.find("Duration: ");
        at != std::string_view::npos && duration_ == 0 && images_ == 0) {
        const std::string_view time = line.substr(at + 10, 11);  // hh:mm:ss.cc or N/A
        if (time.size() == 11 && time[2] == ':')
            duration_ =
                toDouble(time.substr(0, 2)) * 3600 + toDouble(time.substr(3, 2)) * 60 + toDouble(time.substr(6));
    }
    const std::size_t at = line.find("Video: ");
    if (line.find("Stream #") == std::string_view::npos || at == std::string_view::npos) return;
    if (!in_output_ && rate_ == 0) rate_ = numberBefore(line, " fps");
    if (in_output_ && format_.empty()) onOutputStream(line.substr(at));
}

/// "Video: rawvideo (I420 / 0x30323449), yuv420p(tv, bt709, progressive), 320x240 [SAR ..."
void FfmpegSource::onOutputStream(std::string_view description) {
    const std::size_t comma = description.find("), ");
    const std::size_t plain = description.find(", ");
    const std::size_t begin = comma != std::string_view::npos && comma < plain ? comma + 3 : plain + 2;
    const std::size_t end = description.find_first_of("(,", begin);
    format_ = description.substr(begin, end - begin);
    if (end != std::string_view::npos && description[end] == '(')
        colours_ = description.substr(end + 1, description.find(')', end) - end - 1);
}

void FfmpegSource::takeLayout() {
    reader_->drainErrors();
    const auto format = findFormat(format_);
    if (!format)
        throw SourceError(EX_PROTOCOL,
                          shown(options_.source) + ": unexpected pixel format '" + format_ + "' from ffmpeg");
    layout_ = {*format, nut_->width(), nut_->height()};
    const auto says = [this](const char* word) { return colours_.find(word) != std::string::npos; };
    layout_.full_range = options_.full_range.value_or(says("pc"));
    if (options_.matrix)
        layout_.matrix = *options_.matrix;
    else if (says("bt709"))
        layout_.matrix = Matrix::kBt709;
    else if (says("bt2020"))
        layout_.matrix = Matrix::kBt2020;
    else if (!says("bt470bg") && !says("smpte170m") && layout_.height > 576)
        layout_.matrix = Matrix::kBt709;  // high definition without a word about its colours
    have_layout_ = true;
}

bool FfmpegSource::next(RawFrame& frame) {
    try {
        if (!have_layout_ && frames_ == 0) nut_->readHeaders();
        if (!nut_->next(frame.bytes, frame.time_ns)) {
            checkEnd();
            return false;
        }
    } catch (const ReadEnd& end) {
        if (end.reason == ReadEnd::kStopped) return false;
        if (end.reason == ReadEnd::kStalled)
            throw SourceError(EX_IOERR,
                              "no frame for " + std::to_string(static_cast<int>(options_.stall_seconds)) + " s", true);
        checkEnd();
        return false;
    } catch (const SourceError&) {
        throw;
    } catch (const std::runtime_error& error) {
        throw SourceError(EX_PROTOCOL, error.what());
    }
    if (!have_layout_) takeLayout();
    if (frame.bytes.size() != frameBytes(layout_))
        throw SourceError(EX_PROTOCOL, "a frame of " + std::to_string(frame.bytes.size()) + " bytes where " +
                                           std::to_string(frameBytes(layout_)) + " were expected");
    frame.layout = layout_;
    // The demuxer for images counts in 1/25 s, whatever their rate.
    if (images_ > 0) frame.time_ns = std::llround(static_cast<double>(frames_) * 1e9 / rate_);
    ++frames_;
    return true;
}

void FfmpegSource::checkEnd() {
    const auto status = process_.wait(Clock::now() + std::chrono::seconds(5));
    reader_->drainErrors();
    const std::string reason =
        last_error_.empty() ? (status ? describeStatus(*status) : "it does not end") : last_error_;
    if (frames_ == 0) throw SourceError(EX_DATAERR, shown(options_.source) + ": no frame could be read: " + reason);
    if (!status || *status != 0)
        throw SourceError(EX_DATAERR, shown(options_.source) + ": decoding ended after " + std::to_string(frames_) +
                                          " frames: " + reason);
}

std::int64_t FfmpegSource::expectedFrames() const {
    if (images_ > 0) return images_;
    return options_.loop || live_ ? 0 : std::llround(duration_ * rate_);
}

std::string FfmpegSource::complaints() const {
    if (errors_ == 0) return "";
    return "ffmpeg reported " + std::to_string(errors_) + (errors_ == 1 ? " error: " : " errors, the first: ") +
           first_error_;
}

}  // namespace fleifeisa::host
