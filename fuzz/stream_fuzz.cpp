// A request stream through the real main loop and tracker, with a control file that changes in between.
//
// Input: three bytes of set-up, then directives. A directive adds raw bytes, whole frames of a small scene or a command
// to the stream, or changes the control file at this place of it. The parts reach the analyzer one by one, so that a
// change is in force from the frame before it on.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <streambuf>
#include <vector>

#include "fuzz/bytes.h"
#include "fuzz/temproot.h"
#include "host/Control.h"
#include "host/MainLoop.h"
#include "support/protocol.h"

namespace {

constexpr int kMaxFrames = 120;

struct Part {
    std::string bytes;
    bool change = false;  // of the control file, behind the bytes
    bool remove = false;
    std::string settings;
};

// --- the control file, of device 3 ---

class ChangingControl {
 public:
    void change(const Part& part) {
        const std::string path = ControlPath(3);
        if (part.remove) {
            std::filesystem::remove(path);
            return;
        }
        std::ofstream(path, std::ios::binary) << part.settings;
        const timespec times[2] = {{++stamp_, 0}, {stamp_, 0}};  // modification times count in whole seconds
        utimensat(AT_FDCWD, path.c_str(), times, 0);
    }

 private:
    TempRoot root_{3};
    time_t stamp_ = 1000000000;
};

ChangingControl& theControlFile() {
    static ChangingControl file;
    return file;
}

// --- standard input ---

class Feed : public std::streambuf {
 public:
    explicit Feed(std::vector<Part>& p) : parts_(p) {}

 protected:
    int_type underflow() override {
        while (gptr() == egptr()) {
            if (next_ > 0 && parts_[next_ - 1].change) theControlFile().change(parts_[next_ - 1]);
            if (next_ == parts_.size()) return traits_type::eof();
            std::string& bytes = parts_[next_++].bytes;
            setg(bytes.data(), bytes.data(), bytes.data() + bytes.size());
        }
        return traits_type::to_int_type(*gptr());
    }

 private:
    std::vector<Part>& parts_;
    std::size_t next_ = 0;
};

// --- the stream ---

class Script {
 public:
    explicit Script(Bytes& input) : in_(input) {
        type = in_.byte() % 5;
        width_ = in_.within(1, 40);
        height_ = in_.within(1, 40);
        setting(std::to_string(in_.within(0, 12)));
        while (!in_.empty() && frames < kMaxFrames) directive();
    }

    std::vector<Part> parts{1};  // the first one only sets the control file up
    int type, frames = 0;
    bool raw = false;          // holds bytes that are no message
    int expected_replies = 1;  // where it holds none

 private:
    void directive() {
        const int what = in_.byte();
        if (what < 24) return junk(in_.text(static_cast<std::size_t>(in_.byte())));
        if (what < 40) return setting(std::to_string(in_.byte() - 5));
        if (what < 48) return change(in_.text(static_cast<std::size_t>(in_.byte())));
        if (what < 52) return remove();
        if (what < 56) return command();
        const int count = what < 160 ? 1 : what % 12 + 1;
        Blob blob{in_.byte(), in_.byte(), in_.byte(), in_.byte()};
        for (int i = 0; i < count; i++, blob.x++) frame(blob, count == 1 ? what % 16 : 0);
    }

    struct Blob {
        int x, y, size, level;
    };

    void junk(const std::string& text) {
        raw = true;
        parts.push_back({text, false, false, ""});
    }
    void command() { parts.push_back({"ANALYTICS.CARTRIDGE\r\nCommand: RECONFIGURE\r\n\r\n", false, false, ""}); }
    void setting(const std::string& frames_text) {
        change("<param name=\"-bgframes\" value=\"" + frames_text + "\"/>\n");
    }
    void change(const std::string& text) {
        parts.back().change = true;
        parts.back().remove = false;
        parts.back().settings = text;
    }
    void remove() {
        change("");
        parts.back().remove = true;
    }

    // Variant 1 sends a short body, 2 a long one, 3 another size, 4 no pixels; the others are sound.
    void frame(const Blob& blob, int variant) {
        frames++;
        expected_replies++;
        const int w = variant == 3 ? width_ + 1 : variant == 4 ? 0 : width_, h = height_;
        std::string body;
        for (int r = 0; r < h; r++)
            for (int c = 0; c < w; c++) {
                const bool on = r >= blob.y % h && r < blob.y % h + blob.size % 16 && c >= blob.x % w &&
                                c < blob.x % w + blob.size / 16;
                const int v = on ? blob.level : (r * 5 + c * 3 + frames % 3) % 160;
                body += {static_cast<char>(v), static_cast<char>(v / 2), static_cast<char>(255 - v)};
            }
        if (variant == 1) body.resize(body.size() / 2 + 1);
        if (variant == 2 || variant == 4) body += "more";
        parts.push_back({frameMessage(w, h, body, std::to_string(frames), frames), false, false, ""});
    }

    Bytes& in_;
    int width_, height_;
};

// Announced images of many million pixels are legal and only slow; they are no work for a fuzzer.
bool announcesLargeImage(const std::vector<Part>& parts) {
    std::string text;
    for (const Part& p : parts)
        for (const char c : p.bytes) text += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const char* key : {"image-width", "image-height"})
        for (std::size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + 1)) {
            const std::size_t digits = text.find_first_of("0123456789", at);
            if (digits != std::string::npos && digits < at + 64 &&
                std::strtoll(text.c_str() + digits, nullptr, 10) > 300)
                return true;
        }
    return false;
}

int countReplies(const std::string& output) {
    int count = 0;
    constexpr char kStart[] = "ANALYTICS.CARTRIDGE\r\nStatus: ";
    for (std::size_t at = output.find(kStart); at != std::string::npos; at = output.find(kStart, at + 1)) count++;
    return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ChangingControl& control_file = theControlFile();
    Bytes in(data, size);
    Script script(in);
    if (announcesLargeImage(script.parts)) return 0;
    control_file.change(script.parts[0]);
    const bool missing = script.parts[0].remove;
    script.parts[0].change = false;

    constexpr const char* kTypes[] = {"COLOR", "COLOR", "IR", "IR", "color"};
    std::string args[] = {"fleifeisa", kTypes[script.type], "STREAMING", "3", "5"};
    char* argv[] = {args[0].data(), args[1].data(), args[2].data(), args[3].data(), args[4].data(), nullptr};
    Feed feed(script.parts);
    std::istream in_stream(&feed);
    std::ostringstream output;
    std::cerr.setstate(std::ios::failbit);  // messages of that many runs would hide those of the fuzzer
    const int status = RunAnalyzer(5, argv, in_stream, output);

    FUZZ_CHECK(status == 0 || status == 1, "status %d", status);
    if (!script.raw) {
        const int expected = script.expected_replies + (script.type == 4 ? 1 : 0) + (missing ? 1 : 0);
        const int replies = countReplies(output.str());
        FUZZ_CHECK(status == 0, "status %d", status);
        FUZZ_CHECK(replies == expected, "%d replies, not %d", replies, expected);
    }
    return 0;
}
