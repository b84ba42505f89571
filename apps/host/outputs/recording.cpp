#include "outputs/recording.h"

#include <array>
#include <bit>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <utility>

#include "outputs/digest.h"

namespace fleifeisa::host {
namespace {

constexpr std::string_view kEnd = "ANALYTICS.CARTRIDGE\r\nCommand: SHUTDOWN\r\n\r\n";
constexpr std::size_t kMaxName = 150;  // characters as written: a header line holds 255

constexpr std::int64_t kMostWarmUps = 1000;  // a replay keeps them in memory

/// As recordedText(), up to a length; blanks, too, where they would end a word.
std::string written(std::string_view name, std::size_t most, bool word) {
    std::string text;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        std::array<char, 4> code{c, 0};
        if (byte < ' ' || byte > '~' || c == '%' || (c == ' ' && word))
            std::snprintf(code.data(), code.size(), "%%%02X", unsigned{byte});
        if (text.size() + 3 > most) break;
        text += code.data();
    }
    return text;
}

/// Numbers of any kind as bytes, the least first.
class Bytes {
 public:
    void add(std::int64_t value) {
        for (int shift = 0; shift < 64; shift += 8) bytes_ += static_cast<char>(value >> shift & 0xFF);
    }
    void add(double value) { add(std::bit_cast<std::int64_t>(value)); }
    std::span<const char> all() const { return bytes_; }

 private:
    std::string bytes_;
};

void add(Bytes& bytes, const Track& track) {
    for (const std::int64_t value :
         {track.number, static_cast<std::int64_t>(track.state), static_cast<std::int64_t>(track.ended), track.start_ns,
          track.seen_ns, std::int64_t{track.box.left}, std::int64_t{track.box.top}, std::int64_t{track.box.width},
          std::int64_t{track.box.height}, std::int64_t{track.area}, std::int64_t{track.frames}, track.split_from,
          track.merged_with, std::int64_t{track.removed}, track.stopped_ns})
        bytes.add(value);
    for (const double value : {track.centre.x, track.centre.y, track.velocity.x, track.velocity.y, track.path_px})
        bytes.add(value);
    bytes.add(static_cast<std::int64_t>(track.objects.size()));
    for (const int object : track.objects) bytes.add(std::int64_t{object});
}

}  // namespace

std::string recordedText(std::string_view text) {
    return written(text, 4 * text.size() + 4, false);
}

std::string readRecordedText(std::string_view value) {
    std::string text;
    for (std::size_t i = 0; i < value.size(); ++i) {
        unsigned byte = static_cast<unsigned char>(value[i]);
        if (value[i] == '%' && i + 2 < value.size()) {
            std::from_chars(value.data() + i + 1, value.data() + i + 3, byte, 16);
            i += 2;
        }
        text += static_cast<char>(byte);
    }
    return text;
}

std::string recordedEvents(const RuleResults& results) {
    return digestOf({resultsText(results)});
}

std::string recordedCamera(const CameraInfo& camera) {
    std::array<char, 96> text{};
    const Box region = camera.region.value_or(Box{});
    std::snprintf(text.data(), text.size(), "%s %.9g %dx%d+%d+%d ", camera.live ? "live" : "file", camera.rate,
                  region.width, region.height, region.left, region.top);
    return text.data() + written(camera.name, kMaxName, true);
}

bool parseRecordedCamera(const std::string& value, CameraInfo& camera) {
    std::array<char, 5> kind{};
    Box region;
    int length = 0;
    if (std::sscanf(value.c_str(), "%4s %lf %dx%d+%d+%d %n", kind.data(), &camera.rate, &region.width, &region.height,
                    &region.left, &region.top, &length) != 6)
        return false;
    camera.live = std::string_view(kind.data()) == "live";
    camera.region = region == Box{} ? std::nullopt : std::optional(region);
    camera.name = readRecordedText(std::string_view(value).substr(static_cast<std::size_t>(length)));
    return true;
}

std::string recordedHandOver(const RecordedHandOver& what) {
    return std::to_string(what.time_ns) + ' ' + std::to_string(what.frames) + (what.new_picture ? " new " : " same ") +
           what.why + ' ' + settingsText(what.tracks);
}

std::optional<RecordedHandOver> parseRecordedHandOver(std::string_view value) {
    RecordedHandOver what;
    std::array<char, 8> picture{};
    std::array<char, 24> why{};
    int length = 0;
    const std::string text(value);
    if (std::sscanf(text.c_str(), "%" SCNd64 " %" SCNd64 " %7s %23s %n", &what.time_ns, &what.frames, picture.data(),
                    why.data(), &length) != 4)
        return std::nullopt;
    const std::string_view kind = picture.data();
    const auto settings = parseSettings(value.substr(static_cast<std::size_t>(length)));
    if ((kind != "new" && kind != "same") || what.frames < 0 || what.frames > kMostWarmUps || !settings)
        return std::nullopt;
    what.new_picture = kind == "new";
    what.why = why.data();
    what.tracks = *settings;
    return what;
}

std::string recordedTracks(const TrackFrame& frame) {
    Bytes bytes;
    for (const std::int64_t value :
         {frame.time_ns, std::int64_t{frame.width}, std::int64_t{frame.height}, static_cast<std::int64_t>(frame.scene),
          static_cast<std::int64_t>(frame.tracks.size())})
        bytes.add(value);
    bytes.add(frame.foreground);
    for (const Track& track : frame.tracks) add(bytes, track);
    return digestOf({bytes.all()});
}

std::string recordedReply(std::string_view request, std::span<const std::uint8_t> rgb, std::string_view reply) {
    const std::span<const char> pixels(reinterpret_cast<const char*>(rgb.data()), rgb.size());
    return std::to_string(reply.size()) + " " + digestOf({reply}) + " " + digestOf({request, pixels});
}

void RecordingOutput::note(std::string_view name, std::string_view value) {
    file_.write("ANALYTICS.CARTRIDGE\r\n");
    file_.write(name);
    file_.write(": ");
    file_.write(value);
    file_.write("\r\n\r\n");
}

void RecordingOutput::noteText(std::string_view name, std::string_view text) {
    constexpr std::size_t kMost = 200;  // characters: a header line holds 255
    const std::string value = recordedText(text);
    std::string_view rest = value;
    for (; rest.size() > kMost; rest.remove_prefix(kMost)) note("Recording-Part", rest.substr(0, kMost));
    note(name, rest);
}

void RecordingOutput::begin(const CameraInfo& camera) {
    whole_ = whole_ && !broken();
    if (std::exchange(begun_, true)) {
        if (file_.newFileDue()) {
            file_.write(kEnd);
            file_.endRecord();
            whole_ = false;
        }
        file_.beginSession();
    }
    lost_before_ = file_.lost();
    note("Recording-Start", std::string(camera.infrared ? "IR " : "COLOR ") + std::to_string(camera.device) + " " +
                                std::to_string(camera.analyzer_id));
    note("Recording-Camera", recordedCamera(camera));
    // Where frames are missing the tracks cannot be the same; a replay makes some of its own.
    if (camera.fresh_tracks || !whole_) {
        note("Recording-Filter", settingsText(camera.tracks));
        noteText("Recording-Rules", setupText(camera.rules));
    }
    whole_ = whole_ || camera.fresh_tracks;
}

void RecordingOutput::started(const CameraInfo& camera) {
    begin(camera);
    controlChanged(camera.control);
}

void RecordingOutput::handedOver(const CameraInfo& camera, const HandedOver& what) {
    begin(camera);
    note("Recording-HandOver", recordedHandOver({what.time_ns, static_cast<std::int64_t>(what.frames.size()),
                                                 what.new_picture, std::string(what.why), camera.tracks}));
    controlChanged(camera.control);
    for (const WarmUpFrame& frame : what.frames) {
        if (broken()) return;
        file_.write(frame.request);
        file_.write(frame.rgb);
        note("Recording-Reply", recordedReply(frame.request, frame.rgb, frame.reply));
        file_.endRecord();
    }
}

void RecordingOutput::controlChanged(std::string_view control) {
    if (broken()) return;
    // An empty value begins the new text, so that a file with fewer lines than before loses the old ones.
    note("Recording-Control", "");
    while (!control.empty()) {
        const std::size_t end = control.find('\n');
        const std::string_view line = control.substr(0, end);
        if (!line.empty()) note("Recording-Control", line);
        control.remove_prefix(end == std::string_view::npos ? control.size() : end + 1);
    }
}

void RecordingOutput::frame(const FrameResult& result) {
    if (broken()) {
        ++left_out_;
        return;
    }
    file_.write(result.request);
    file_.write(result.rgb);
    if (whole_) note("Recording-Tracks", recordedTracks(result.tracks));
    note("Recording-Reply", recordedReply(result.request, result.rgb, result.reply));
    file_.endRecord();  // a full disk leaves whole frames with their answers
}

void RecordingOutput::ended(const TrackFrame& frame, TrackEnd why) {
    if (broken() || !begun_) return;
    note("Recording-Ended", nameOf(why) + (whole_ ? " " + recordedTracks(frame) : ""));
    file_.endRecord();
}

void RecordingOutput::stepped(const RuleStep& step) {
    if (broken() || !begun_ || finished_) return;
    noteText("Recording-Step", stepText(step));
    file_.endRecord();
}

void RecordingOutput::ruled(const RuleResults& results) {
    if (broken() || !begun_ || !whole_) return;
    note("Recording-Events", recordedEvents(results));
    file_.endRecord();
}

OutputState RecordingOutput::state() const {
    return {file_.failing() || broken(), file_.lost() + left_out_, !broken() && file_.newFileDue()};
}

void RecordingOutput::finish() {
    if (!std::exchange(finished_, true)) {
        file_.write(kEnd);
        file_.endRecord();
    }
    file_.close();
}

}  // namespace fleifeisa::host
