#include "sources/ffmpeg_source.h"

#include <signal.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "common/secrets.h"
#include "sources/ffmpeg_command.h"

namespace fleifeisa::host {
namespace {

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

/// Thrown where the decoder is to begin once more, without its second output.
struct UselessCopy {};
/// The same with as many threads as ffmpeg likes.
struct LargePicture {};

/// Up to here one thread decodes faster than anybody analyzes, and more of them cost a tenth more.
constexpr double kOneThreadPixels = 640 * 480;

/// Pixels of a picture in "..., 320x240 [SAR 1:1 DAR 4:3], ...", 0 where nothing is said.
double pixelsIn(std::string_view description) {
    for (std::size_t at = description.find(", "); at != std::string_view::npos; at = description.find(", ", at)) {
        at += 2;
        int width = 0, height = 0;
        const char* const end = description.data() + description.size();
        const auto first = std::from_chars(description.data() + at, end, width);
        if (first.ec != std::errc() || first.ptr == end || *first.ptr != 'x') continue;
        if (std::from_chars(first.ptr + 1, end, height).ec == std::errc()) return 1.0 * width * height;
    }
    return 0;
}

/// Its size is not known before it is opened; a pipe cannot be opened twice, and packets must not come twice.
bool mayBeginAgain(const SourceOptions& options, const PacketSink* sink) {
    std::error_code error;
    return sink == nullptr && options.decoder_threads == 0 &&
           std::ranges::count(options.ffmpeg_input_options, "-threads") == 0 && !isLive(options) &&
           !isCameraSource(options) && std::filesystem::is_regular_file(options.source, error);
}

/// What a user may do about a refusal of ffmpeg's.
std::string hint(const std::string& reason) {
    if (reason.find("whitelist") == std::string::npos) return "";
    return " (playlists and redirects may lead anywhere: they are off unless redirects are allowed)";
}

}  // namespace

FfmpegSource::FfmpegSource(const SourceOptions& options, const Event& stop, PacketSink* sink)
    : options_(options), stop_(stop), sink_(sink), live_(isLive(options)) {
    if (findProgram(options_.ffmpeg).empty())
        throw SourceError(EX_UNAVAILABLE, "ffmpeg is needed for " + withoutSecrets(options_.source) +
                                              " and was not found (install it: packaging/setup.sh video)");
    one_thread_ = mayBeginAgain(options_, sink_);
    if (one_thread_) options_.decoder_threads = 1;
    begin(sink_ ? sink_->wanted() : PacketCopy::kNone);
}

FfmpegSource::~FfmpegSource() {
    end();
}

void FfmpegSource::begin(PacketCopy copy) {
    end();
    copy_ = copy;
    copy_broke_ = in_output_ = codec_known_ = false;
    errors_ = 0;
    last_error_ = first_error_ = "";
    announced_.clear();
    const FfmpegCommand command = ffmpegCommand(options_, copy);
    Process::Options child;
    child.argv = command.argv;
    child.pipe_out = child.pipe_err = true;
    child.pipe_extra = copy != PacketCopy::kNone;
    child.pipe_in = !command.script.empty();
    try {
        process_ = Process(child);
    } catch (const std::system_error& error) {
        throw SourceError(EX_OSERR, std::string("ffmpeg could not be started: ") + error.what(), true);
    }
    // A few hundred bytes fit into the empty pipe; should ffmpeg be dead already, its status says more than EPIPE.
    if (child.pipe_in && ::write(process_.in.get(), command.script.data(), command.script.size()) >= 0)
        process_.in.reset();
    reader_ =
        std::make_unique<PipeReader>(process_.out.get(), process_.err.get(), stop_, seconds(options_.stall_seconds),
                                     [this](std::string_view line) { onLine(line); });
    if (child.pipe_extra) {
        sink_->began();
        reader_->alsoRead(process_.extra.get(), [this](std::span<const std::uint8_t> bytes) { sink_->packets(bytes); });
    }
    nut_ = std::make_unique<NutReader>(*reader_);
}

void FfmpegSource::end() {
    process_.out.reset();  // ffmpeg ends at its next write
    process_.signal(SIGTERM);
    if (process_.running() && !process_.wait(Clock::now() + std::chrono::seconds(1))) process_.kill();
    if (copy_ == PacketCopy::kNone) return;
    reader_->drainAlso();
    sink_->ended();
    copy_ = PacketCopy::kNone;
}

/// Of the input's stream. A file whose packets are of no use is opened again without them; a live source would be lost
/// for a while, so its packets are thrown away until it has to be opened again anyway.
void FfmpegSource::onCodec(std::string_view description) {
    constexpr std::string_view kBefore = "Video: ";
    const std::string_view name = description.substr(kBefore.size());
    const bool of_use = sink_->codec(name.substr(0, name.find_first_of(" ,(")));
    if (!of_use && !live_ && copy_ != PacketCopy::kNone && frames_ == 0) throw UselessCopy();
}

/// ffmpeg's own report, one line: level in brackets, then text.
void FfmpegSource::onLine(std::string_view line) {
    // Threads of ffmpeg write into each other's lines, so a complaint may stand behind a frame's size.
    if (line.find("showinfo") != std::string_view::npos) onFrameInfo(line);
    if (line.find("[error]") != std::string_view::npos || line.find("[fatal]") != std::string_view::npos) {
        last_error_ = line.substr(
            line.find("] ", line.find(line.find("[error]") != std::string_view::npos ? "[error]" : "[fatal]")) + 2);
        if (errors_++ == 0) first_error_ = last_error_;
        if (copy_ != PacketCopy::kNone && (line.find("[mpegts @") != std::string_view::npos ||
                                           line.find("av_interleaved_write_frame") != std::string_view::npos))
            copy_broke_ = true;
        return;
    }
    if (line.find("Output #0") != std::string_view::npos) in_output_ = true;
    if (const std::size_t at = line.find("Duration: "); at != std::string_view::npos && duration_ == 0) {
        const std::string_view time = line.substr(at + 10, 11);  // hh:mm:ss.cc or N/A
        if (time.size() == 11 && time[2] == ':')
            duration_ =
                toDouble(time.substr(0, 2)) * 3600 + toDouble(time.substr(3, 2)) * 60 + toDouble(time.substr(6));
    }
    const std::size_t at = line.find("Video: ");
    if (line.find("Stream #") == std::string_view::npos || at == std::string_view::npos) return;
    if (!in_output_ && rate_ == 0) rate_ = numberBefore(line, " fps");
    if (!in_output_ && one_thread_ && frames_ == 0 && pixelsIn(line.substr(at)) > kOneThreadPixels)
        throw LargePicture();
    if (!in_output_ && sink_ && !std::exchange(codec_known_, true)) onCodec(line.substr(at));
    if (in_output_ && colours_.empty()) onOutputStream(line.substr(at));
}

/// "[Parsed_showinfo_2 @ 0x55d0] [info] n:   0 pts:  0 pts_time:0 pos: 564 fmt:yuv420p sar:1/1 s:96x64 i:P ...": one
/// line for each frame, written before the frame itself.
void FfmpegSource::onFrameInfo(std::string_view line) {
    const auto field = [line](std::string_view name) {
        const std::size_t at = line.find(name);
        return at == std::string_view::npos
                   ? ""
                   : line.substr(at + name.size(), line.find(' ', at + name.size()) - at - name.size());
    };
    const std::string_view size = field(" s:"), format = field(" fmt:");
    const std::size_t cross = size.find('x');
    if (cross == std::string_view::npos || format.empty()) return;
    const auto known = findFormat(format);
    if (!known)
        throw SourceError(EX_PROTOCOL, withoutSecrets(options_.source) + ": unexpected pixel format '" +
                                           std::string(format) + "' from ffmpeg");
    PixelLayout layout{*known, static_cast<int>(toDouble(size.substr(0, cross))),
                       static_cast<int>(toDouble(size.substr(cross + 1)))};
    constexpr int kLargest = 16384;
    if (layout.width < 1 || layout.height < 1 || layout.width > kLargest || layout.height > kLargest)
        throw SourceError(EX_PROTOCOL, withoutSecrets(options_.source) + ": frames of " + std::string(size));
    announced_.push_back(layout);
}

/// "Video: rawvideo (I420 / 0x30323449), yuv420p(tv, bt709, progressive), 320x240 [SAR ..."
void FfmpegSource::onOutputStream(std::string_view description) {
    const std::size_t comma = description.find("), ");
    const std::size_t plain = description.find(", ");
    const std::size_t begin = comma != std::string_view::npos && comma < plain ? comma + 3 : plain + 2;
    const std::size_t end = description.find_first_of("(,", begin);
    if (end != std::string_view::npos && description[end] == '(')
        colours_ = description.substr(end + 1, description.find(')', end) - end - 1);
}

void FfmpegSource::findColours() {
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
    else
        layout_.matrix = Matrix::kBt601;
}

PixelLayout FfmpegSource::layoutOfFrame() {
    if (announced_.empty() || frames_ == 0) reader_->drainErrors();
    if (announced_.empty()) throw SourceError(EX_PROTOCOL, "a frame from ffmpeg without a word about its size", true);
    const PixelLayout& now = announced_.front();
    if (frames_ == 0 || now.width != layout_.width || now.height != layout_.height ||
        now.format.name != layout_.format.name) {
        layout_ = now;
        findColours();
    }
    announced_.pop_front();
    return layout_;
}

bool FfmpegSource::next(RawFrame& frame) {
    for (;;) {
        try {
            return read(frame);
        } catch (const UselessCopy&) {
        } catch (const LargePicture&) {
            one_thread_ = false;
            options_.decoder_threads = 0;
        } catch (const SourceError& error) {
            if (!copy_broke_) throw;
            const std::string why = first_error_;
            sink_->failed(why);
            // What was read stays read: whoever opens it again goes on behind it.
            if (frames_ > 0)
                throw SourceError(error.code, "copying its packets failed (" + why + "), it goes on without", true);
        }
        begin(PacketCopy::kNone);
    }
}

bool FfmpegSource::read(RawFrame& frame) {
    try {
        if (frames_ == 0) nut_->readHeaders();
        if (!nut_->next(frame.bytes, frame.time_ns)) {
            checkEnd();
            return false;
        }
    } catch (const ReadEnd& end) {
        if (end.reason == ReadEnd::kStopped) return false;
        if (end.reason == ReadEnd::kStalled) {
            char text[64];
            std::snprintf(text, sizeof text, "no frame for %g s", options_.stall_seconds);
            throw SourceError(EX_IOERR, text, true);
        }
        checkEnd();
        return false;
    } catch (const SourceError&) {
        throw;
    } catch (const std::runtime_error& error) {
        throw SourceError(EX_PROTOCOL, error.what(), true);
    }
    frame.layout = layoutOfFrame();
    if (frame.bytes.size() != frameBytes(frame.layout))
        throw SourceError(EX_PROTOCOL,
                          "a frame of " + std::to_string(frame.bytes.size()) + " bytes where " +
                              std::to_string(frameBytes(frame.layout)) + " were expected",
                          true);
    ++frames_;
    return true;
}

void FfmpegSource::checkEnd() {
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(5);
    reader_->finishAlso(deadline);
    const auto status = process_.wait(deadline);
    reader_->drainErrors();
    const bool crashed = status && WIFSIGNALED(*status);
    const std::string reason =
        crashed || last_error_.empty() ? (status ? describeStatus(*status) : "it does not end") : last_error_;
    const std::string source = withoutSecrets(options_.source);
    if (crashed || !status) throw SourceError(EX_DATAERR, source + ": the decoder died: " + reason, true);
    if (frames_ == 0)
        throw SourceError(EX_DATAERR, source + ": no frame could be read: " + reason + hint(first_error_));
    if (*status != 0)
        throw SourceError(EX_DATAERR,
                          source + ": decoding ended after " + std::to_string(frames_) + " frames: " + reason);
}

std::int64_t FfmpegSource::expectedFrames() const {
    return options_.loop || live_ ? 0 : std::llround(duration_ * rate_);
}

std::string FfmpegSource::complaints() const {
    if (errors_ == 0) return "";
    return "ffmpeg reported " + std::to_string(errors_) + (errors_ == 1 ? " error: " : " errors, the first: ") +
           first_error_;
}

}  // namespace fleifeisa::host
