#include "sources/recording_source.h"

#include <sys/stat.h>
#include <sysexits.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>

namespace fleifeisa::host {
namespace {

constexpr std::string_view kFirstLine = "ANALYTICS.CARTRIDGE";
constexpr std::int64_t kMaxBody = 268'435'456;

constexpr std::pair<std::string_view, RecordedMessage::Kind> kNotes[] = {
    {"Recording-Start", RecordedMessage::kStart},      {"Recording-Camera", RecordedMessage::kCamera},
    {"Recording-Filter", RecordedMessage::kFilter},    {"Recording-Control", RecordedMessage::kControl},
    {"Recording-Tracks", RecordedMessage::kTracks},    {"Recording-Reply", RecordedMessage::kReply},
    {"Recording-Ended", RecordedMessage::kEnded},      {"Recording-Rules", RecordedMessage::kRules},
    {"Recording-Step", RecordedMessage::kStep},        {"Recording-Events", RecordedMessage::kEvents},
    {"Recording-HandOver", RecordedMessage::kHandOver}};
constexpr std::string_view kPart = "Recording-Part";
constexpr std::size_t kMaxValue = 1 << 20;  // characters of one value in all its parts

std::int64_t toNumber(std::string_view text) {
    std::int64_t value = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? value : -1;
}

/// "12.000000345" as nanoseconds; whole seconds without a fraction are fine.
std::int64_t toNanoseconds(std::string_view text) {
    const std::size_t dot = std::min(text.find('.'), text.size());
    const std::int64_t whole = toNumber(text.substr(0, dot));
    if (whole < 0 || whole > 9'000'000'000) return 0;  // beyond what nanoseconds can count
    std::string fraction(text.substr(std::min(dot + 1, text.size())));
    fraction.resize(9, '0');
    return whole * 1'000'000'000 + std::max<std::int64_t>(0, toNumber(fraction));
}

/// How many of the frames that follow a new analyzer was given before it took over: the value's second word.
std::int64_t framesAgain(std::string_view value) {
    value.remove_prefix(std::min(value.find(' ') + 1, value.size()));
    return std::max<std::int64_t>(0, toNumber(value.substr(0, value.find(' '))));
}

}  // namespace

bool isRecording(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    std::FILE* file = std::fopen(path.c_str(), "rbe");
    if (!file) return false;
    std::string start(kFirstLine.size(), '\0');
    const bool found = std::fread(start.data(), 1, start.size(), file) == start.size() && start == kFirstLine;
    std::fclose(file);
    return found;
}

RecordingReader::RecordingReader(const std::string& path) : path_(path), file_(std::fopen(path.c_str(), "rbe")) {
    if (!file_) throw SourceError(EX_NOINPUT, path + ": " + std::strerror(errno));
    std::fseek(file_, 0, SEEK_END);
    size_ = std::ftell(file_);
    std::rewind(file_);
}

RecordingReader::~RecordingReader() {
    std::fclose(file_);
}

std::int64_t RecordingReader::position() const {
    return std::ftell(file_);
}

void RecordingReader::damaged(const char* what) const {
    throw SourceError(EX_DATAERR,
                      path_ + ": the recording is damaged at byte " + std::to_string(position()) + ": " + what);
}

/// A line without its "\r\n"; false at the end of the file.
bool RecordingReader::readLine(std::string& line) {
    line.clear();
    for (int c = std::getc(file_); c != EOF; c = std::getc(file_)) {
        if (c == '\n') {
            if (line.ends_with('\r')) line.pop_back();
            return true;
        }
        line += static_cast<char>(c);
        if (line.size() > 255) damaged("a header line too long");
    }
    if (!line.empty()) damaged("it ends within a line");
    return false;
}

bool RecordingReader::next(RecordedMessage& message) {
    do {
        if (!nextPart(message)) return false;
        if (part_.size() > kMaxValue) damaged("a value too long");
    } while (message.kind == RecordedMessage::kOther && message.value == kPart);
    if (!part_.empty()) message.value.insert(0, std::exchange(part_, {}));
    return true;
}

/// One message. Of a part of a value: kOther with the name as its value.
bool RecordingReader::nextPart(RecordedMessage& message) {
    message = {};
    std::string line;
    if (!readLine(line)) return false;
    if (line != kFirstLine) damaged("no message begins here");
    std::int64_t length = 0;
    do {
        message.header += line + "\r\n";
        const std::size_t colon = line.find(": ");
        const std::string name = line.substr(0, colon);
        const std::string value = colon == std::string::npos ? "" : line.substr(colon + 2);
        if (name == "Content-Length") length = toNumber(value);
        if (name == "Image-width") message.width = static_cast<int>(toNumber(value));
        if (name == "Image-height") message.height = static_cast<int>(toNumber(value));
        if (name == "Timestamp") message.time_ns = toNanoseconds(value);
        if (name == "Sequence-Number") message.sequence = toNumber(value);
        if (name == kPart) {
            part_ += value;
            message.value = kPart;
        }
        for (const auto& [known, kind] : kNotes) {
            if (name != known) continue;
            message.kind = kind;
            message.value = value;
        }
        if (!readLine(line)) damaged("it ends within the headers");
    } while (!line.empty());
    message.header += "\r\n";
    if (length == 0) return true;
    const bool fits = message.width > 0 && message.height > 0 && message.width <= 16384 && message.height <= 16384 &&
                      length == std::int64_t{message.width} * message.height * 3;
    if (length < 0 || length > kMaxBody || !fits) damaged("image size and body length differ");
    message.kind = RecordedMessage::kFrame;
    if (length > size_ - position()) damaged("it ends within a frame");
    message.body.resize(static_cast<std::size_t>(length));
    if (std::fread(message.body.data(), 1, message.body.size(), file_) != message.body.size())
        damaged("it ends within a frame");
    return true;
}

bool RecordingSource::next(RawFrame& frame) {
    RecordedMessage message;
    std::int64_t again = 0;  // frames that were answered before
    while (reader_.next(message)) {
        if (message.kind == RecordedMessage::kHandOver) again = framesAgain(message.value);
        if (message.kind != RecordedMessage::kFrame || again-- > 0) continue;
        if (expected_ == 0 && reader_.position() > 0)
            expected_ = std::max<std::int64_t>(1, reader_.bytes() / reader_.position());
        if (first_ns_ < 0) first_ns_ = message.time_ns;
        frame.layout = {*findFormat("rgb24"), message.width, message.height};
        frame.bytes = std::move(message.body);
        frame.time_ns = message.time_ns - first_ns_;
        return true;
    }
    return false;
}

}  // namespace fleifeisa::host
