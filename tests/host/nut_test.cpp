// The NUT reader on bytes in memory: what ffmpeg may write, and what it must not.
#include "sources/nut.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace fleifeisa::host {
namespace {

class Memory : public ByteStream {
 public:
    explicit Memory(std::string bytes) : bytes_(std::move(bytes)) {}
    void read(std::span<std::uint8_t> to) override {
        if (bytes_.size() - at_ < to.size()) throw ReadEnd(ReadEnd::kEnd, "the data ends within a frame");
        std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(at_), to.size(), to.begin());
        at_ += to.size();
    }
    std::uint8_t byte() override {
        if (!more()) throw ReadEnd(ReadEnd::kEnd, "the data ends");
        return static_cast<std::uint8_t>(bytes_[at_++]);
    }
    bool more() override { return at_ < bytes_.size(); }
    std::uint64_t position() const override { return at_; }

 private:
    std::string bytes_;
    std::size_t at_ = 0;
};

std::string number(std::uint64_t value) {
    std::string text(1, static_cast<char>(value & 127));
    while ((value >>= 7) != 0) text.insert(text.begin(), static_cast<char>(128 | (value & 127)));
    return text;
}
std::string numbers(std::initializer_list<std::uint64_t> values) {
    std::string text;
    for (const std::uint64_t value : values) text += number(value);
    return text;
}
std::string packet(std::string_view start_code, const std::string& body) {
    const std::string checksum(4, '\0');
    return std::string(start_code) + number(body.size() + 4) + (body.size() + 4 > 4096 ? checksum : "") + body +
           checksum;
}

using namespace std::string_view_literals;
constexpr auto kFileId = "nut/multimedia container\0"sv;
constexpr auto kMain = "NM\x7A\x56\x1F\x5F\x04\xAD"sv, kStream = "NS\x11\x40\x5B\xF2\xF9\xDB"sv;
constexpr auto kSync = "NK\xE4\xAD\xEE\xCA\x45\x69"sv, kInfo = "NI\xAB\x68\xB5\x96\xBA\x78"sv;
constexpr auto kIndex = "NX\xDD\x67\x2F\x23\xE6\x4E"sv;

// Frame codes: 0 has its flags coded in the frame (4096); 1 counts one tick on, 6 bytes; the rest is invalid (8192).
struct Header {
    std::uint64_t version = 3, streams = 1, bases = 1, num = 1, den = 25;
    std::string table = numbers({4096, 6, 0, 1, 0, 0, 0, 1}) +   // code 0
                        numbers({0, 6, 1, 7, 0, 6, 0, 1}) +      // code 1
                        numbers({8192, 6, 0, 1, 0, 0, 0, 253});  // 2 to 255, without 'N'
    std::uint64_t shift = 7, width = 2, height = 1, kind = 0;

    std::string bytes() const {
        const std::string main = numbers({version, streams, 65536, bases, num, den}) + table + numbers({0, 0});
        const std::string stream = numbers({0, kind, 4}) + "I420" + numbers({0, shift, 1000, 0, 0, 0, width, height});
        return std::string(kFileId) + packet(kMain, main) + packet(kStream, stream);
    }
};

constexpr std::uint64_t kCodedPts = 8, kSizeMsb = 32, kChecksum = 64, kReserved = 128;
/// A frame with everything spelt out. Code 0 has size_mul 1, so that the msb is the size.
std::string frame(std::uint64_t pts, const std::string& body, std::uint64_t more = 0) {
    std::string text = number(0) + number((kCodedPts | kSizeMsb | more)) + number(pts) + number(body.size());
    if (more & kReserved) text += numbers({2, 9, 9});
    if (more & kChecksum) text += std::string(4, '\x55');
    return text + body;
}

struct Read {
    std::vector<std::pair<std::int64_t, std::string>> frames;  ///< milliseconds, body
    std::string error;
    int width = 0, height = 0;
};
Read readAll(const std::string& bytes) {
    Memory memory(bytes);
    NutReader reader(memory);
    Read result;
    try {
        reader.readHeaders();
        result.width = reader.width();
        result.height = reader.height();
        std::vector<std::uint8_t> body;
        for (std::int64_t time = 0; reader.next(body, time);)
            result.frames.emplace_back(time / 1'000'000, std::string(body.begin(), body.end()));
    } catch (const std::runtime_error& error) {
        result.error = error.what();
    }
    return result;
}

TEST(Nut, FramesTimesAndPackets) {
    const std::string header = Header{}.bytes();
    const std::vector<char> zs(9'000'000, 'z');
    const std::string large(zs.begin(), zs.end());
    const struct {
        const char* what;
        std::string bytes;
        std::vector<std::pair<std::int64_t, std::string>> frames;
    } rows[] = {
        {"none", "", {}},
        {"full time stamps lie behind 2^shift", frame(128 + 50, "abcdef"), {{2000, "abcdef"}}},
        {"low bits near the last time", frame(128 + 100, "a") + frame(1, "b"), {{4000, "a"}, {129 * 40, "b"}}},
        {"full ones also go back", frame(128 + 130, "a") + frame(128, "b"), {{5200, "a"}, {0, "b"}}},
        {"and before it", frame(128 + 130, "a") + frame(127, "b"), {{5200, "a"}, {127 * 40, "b"}}},
        {"times and sizes from the table",
         frame(128, "x") + "\1abcdef\1ghijkl",
         {{0, "x"}, {40, "abcdef"}, {80, "ghijkl"}}},
        {"a syncpoint sets the time", packet(kSync, numbers({200, 0})) + "\1abcdef", {{201 * 40, "abcdef"}}},
        {"other packets are passed over", packet(kInfo, std::string(5000, 'N')) + "\1abcdef", {{40, "abcdef"}}},
        {"the index ends it", "\1abcdef" + packet(kIndex, "xyz") + "\1ghijkl", {{40, "abcdef"}}},
        {"checksums and reserved fields", frame(128, "abc", kChecksum | kReserved), {{0, "abc"}}},
        {"an empty frame", frame(128, ""), {{0, ""}}},
        {"a large one", frame(128, large), {{0, large}}},
    };
    for (const auto& row : rows) {
        const Read found = readAll(header + row.bytes);
        EXPECT_EQ(found.error, "") << row.what;
        EXPECT_TRUE(found.frames == row.frames) << row.what;
        EXPECT_EQ(found.width * 10 + found.height, 21);
    }
    Header ticks;
    ticks.num = 1001;
    ticks.den = 30000;
    EXPECT_EQ(readAll(ticks.bytes() + frame(128 + 3'000'000'000, "a")).frames.at(0).first, 100'100'000'000);
}

TEST(Nut, Damage) {
    const Header good;
    Header streams, bases, zero, huge, shift, wide, flat, audio, version;
    streams.streams = bases.bases = 2;
    zero.den = 0;
    huge.num = huge.den = 100'000;
    shift.shift = 33;
    wide.width = 16385;
    flat.height = 0;
    audio.kind = 1;
    version.table = numbers({0, 6, 1, 7, 0, 6, 0, 300});
    const std::pair<std::string, const char*> rows[] = {
        {"RIFF", "no NUT file"},
        {std::string(kFileId) + "NX345678", "no main header"},
        {streams.bytes(), "more than one stream"},
        {bases.bytes(), "more than one time base"},
        {zero.bytes(), "time base"},
        {huge.bytes(), "time base"},
        {shift.bytes(), "stream header"},
        {wide.bytes(), "frame size"},
        {flat.bytes(), "frame size"},
        {audio.bytes(), "no video stream"},
        {version.bytes(), "frame table"},
        {good.bytes() + "\2", "frame code"},
        {good.bytes() + "\1abc", "within a frame"},
        {good.bytes() + "NK", "the data ends"},
        {good.bytes() + std::string(kSync) + number(1u << 25), "packet too long"},
        {good.bytes() + packet(kSync, "").substr(0, 9) + numbers({1, 0}), "the data ends"},
        {good.bytes() + number(0) + numbers({kCodedPts | kSizeMsb, 128, 1u << 30}), "frame too large"},
        {good.bytes() + number(0) + numbers({kSizeMsb, 400u << 20}) + "abc", "within a frame"},
        {good.bytes() + number(0) + numbers({16, 1}), "second stream"},
        {good.bytes() + frame(std::uint64_t{1} << 62, "a"), "time"},
        {good.bytes() + frame(std::uint64_t{1} << 60, "a"), "time"},
        {good.bytes() + packet(kSync, numbers({std::uint64_t{1} << 63, 0})), "time"},
        {good.bytes() + number(0) + numbers({256}), "frame header"},
        {good.bytes() + number(0) + std::string(11, '\xFF'), "number too long"},
    };
    for (const auto& [bytes, words] : rows) {
        const Read found = readAll(bytes);
        EXPECT_NE(found.error.find(words), std::string::npos) << words << " <- " << found.error;
        EXPECT_TRUE(found.frames.empty());
    }
    // Wherever the headers are cut there is an error and no frame.
    const std::string whole = good.bytes();
    for (std::size_t n = 0; n < whole.size(); ++n) EXPECT_NE(readAll(whole.substr(0, n)).error, "") << n;
}

}  // namespace
}  // namespace fleifeisa::host
