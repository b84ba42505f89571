#include "host/Streaming.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <new>

namespace {

constexpr std::size_t kLine = 255;  // line buffer, with the terminating NUL
constexpr char kProtocol[] = "ANALYTICS.CARTRIDGE";

bool truncated_body = false;

// Headers of the message being read.
struct Headers {
    char* cmd = nullptr;
    char* content_type = nullptr;
    int content_length = 0, image_width = 0, image_height = 0;
    bool error = false;       // a number is missing or out of range
    const char* errtxt = "";  // of the latest one

    ~Headers() {
        std::free(cmd);
        std::free(content_type);
    }
    bool Contains(const char* word) const { return cmd != nullptr && std::strstr(cmd, word) != nullptr; }
    bool IsImage() const { return content_type != nullptr && std::strstr(content_type, "image/rgb") != nullptr; }
};

// A text header without a value counts as absent: an earlier value stays.
void SetText(char*& text, const char* value) {
    if (value == nullptr) return;
    char* copy = strdup(value);
    if (copy == nullptr) throw std::bad_alloc();
    std::free(text);
    text = copy;
}

// A missing value, or one outside 32 bits, is an error and leaves the number as it was. Text converts to 0.
void SetNumber(int& number, const char* value, const char* errtxt, Headers& h) {
    if (value != nullptr) {
        errno = 0;
        const long v = std::strtol(value, nullptr, 10);
        if (errno != ERANGE && v >= INT_MIN && v <= INT_MAX) {
            number = static_cast<int>(v);
            return;
        }
    }
    h.error = true;
    h.errtxt = errtxt;
}

bool IsKey(const char* name, const char* key) {
    return strncasecmp(name, key, std::strlen(key)) == 0;
}

// The keys are prefixes of the name, and the first that matches wins. Deliberate: "Status" stands before "Status-text"
// and takes its lines; the value lands in status (StreamIo.MessageTable).
void ReadHeader(char* line, Headers& h, streamin& s) {
    char* rest = nullptr;
    const char* name = strtok_r(line, ": ", &rest);
    const char* value = strtok_r(nullptr, "\r\n", &rest);  // keeps the blank behind the colon
    if (name == nullptr) return;
    if (IsKey(name, "Command"))
        SetText(h.cmd, value);
    else if (IsKey(name, "Status"))
        SetText(s.status, value);
    else if (IsKey(name, "Status-text"))
        SetText(s.status_text, value);
    else if (IsKey(name, "Content-Type"))
        SetText(h.content_type, value);
    else if (IsKey(name, "Content-Length"))
        SetNumber(h.content_length, value, "Content length invalid.", h);
    else if (IsKey(name, "Image-width"))
        SetNumber(h.image_width, value, "Image width invalid.", h);
    else if (IsKey(name, "Image-height"))
        SetNumber(h.image_height, value, "Image height invalid.", h);
    else if (IsKey(name, "Timestamp"))
        SetText(s.timestamp, value);
    else if (IsKey(name, "Sequence-Number"))
        SetNumber(s.sequence_num, value, "Sequence num invalid.", h);
}

bool HasLetter(const char* line) {
    for (; *line != '\0'; line++)
        if (std::isalpha(static_cast<unsigned char>(*line))) return true;
    return false;
}

// Bytes that the image needs, whatever the body's length; none where a side is below 1. Exact for any width and height.
long double ImageBytes(const Headers& h) {
    if (h.image_width < 1 || h.image_height < 1) return 0;
    return static_cast<long double>(h.image_width) * h.image_height * 3;
}

// A body of `length` bytes in a malloc'ed buffer with room for `needed`, the rest zero. The buffer grows with the bytes
// that arrive, not with those announced. Null where the input ends first.
unsigned char* ReadBody(std::istream& in, std::size_t length, std::size_t needed) {
    constexpr std::size_t kFirstChunk = std::size_t{8} << 20;
    std::size_t capacity = std::min(length, kFirstChunk), have = 0;
    auto* buffer = static_cast<unsigned char*>(std::malloc(capacity + 1));
    for (;;) {
        if (buffer == nullptr) throw std::bad_alloc();
        in.read(reinterpret_cast<char*>(buffer) + have, static_cast<std::streamsize>(capacity - have));
        have += static_cast<std::size_t>(in.gcount());
        if (have < capacity) {
            std::free(buffer);
            return nullptr;
        }
        if (have == length) break;
        capacity = std::min(length, capacity * 2);
        void* grown = std::realloc(buffer, capacity + 1);
        if (grown == nullptr) std::free(buffer);
        buffer = static_cast<unsigned char*>(grown);
    }
    buffer[length] = 0;
    if (needed <= length) {
        // Frames are kept for a while: what their image does not need goes back.
        void* const cut = length - needed > needed / 4 ? std::realloc(buffer, needed + 1) : nullptr;
        return cut != nullptr ? static_cast<unsigned char*>(cut) : buffer;
    }

    static bool said = false;
    if (!said) std::cerr << "A body is shorter than its image; the missing bytes are taken as zero." << std::endl;
    said = true;
    auto* whole = static_cast<unsigned char*>(std::calloc(needed + 1, 1));  // pages behind the body stay untouched
    if (whole != nullptr) std::memcpy(whole, buffer, length);
    std::free(buffer);
    if (whole == nullptr) throw std::bad_alloc();
    return whole;
}

// Step over a body. False where the input ends first.
bool SkipBody(std::istream& in, int length) {
    in.ignore(length);
    return in.gcount() == length;
}

// The body behind the headers, which overrides a command. False where the input ends inside it.
bool TakeBody(const Headers& h, KsColorImage* Img, streamin& s, std::istream& in, std::ostream& out) {
    if (h.content_length > kMaxBody) {
        s.ret_status = kNothing;
        if (!SkipBody(in, h.content_length)) return false;
        AckError("Content length too large.", out);
    } else if (h.IsImage() && ImageBytes(h) > kMaxBody) {
        s.ret_status = kNothing;
        if (!SkipBody(in, h.content_length)) return false;
        AckError("Image size too large.", out);
    } else if (h.IsImage()) {
        unsigned char* body =
            ReadBody(in, static_cast<std::size_t>(h.content_length), static_cast<std::size_t>(ImageBytes(h)));
        if (body == nullptr) return false;
        Img->KsReadImageMemory(body, h.image_height, h.image_width);
        s.ret_status = kFrame;
    } else {
        if (!SkipBody(in, h.content_length)) return false;
        s.ret_status = kOtherBody;
    }
    return true;
}

}  // namespace

bool TruncatedBody() {
    return truncated_body;
}

streamin StreamIO(KsColorImage* Img, std::istream& in, std::ostream& out) {
    truncated_body = false;
    streamin s{};
    char msgbuf[kLine] = "";
    in.getline(msgbuf, kLine);
    if (std::strncmp(msgbuf, kProtocol, sizeof kProtocol - 1) != 0) {
        // Deliberate: the text names another word than the protocol's (MainLoop.MessagesWithoutAFrameDoNotCount).
        if (!(std::strlen(msgbuf) == 1 && std::isblank(static_cast<unsigned char>(msgbuf[0]))))
            out << kProtocol << "\r\nStatus: ERROR\r\nStatus-text: Unknown command " << msgbuf
                << ", expecting ANALYZER.CARTRIDGE\r\n\r\n";
        return s;
    }

    Headers h;
    for (;;) {
        in.getline(msgbuf, kLine);
        if (!HasLetter(msgbuf)) break;
        ReadHeader(msgbuf, h, s);
    }
    if (h.Contains("SHUTDOWN")) s.ret_status = kShutdown;
    if (h.Contains("RECONFIGURE")) s.ret_status = kReconfigure;
    if (h.content_length > 0 && !TakeBody(h, Img, s, in, out)) {
        truncated_body = in.eof();
        s.ret_status = kNothing;
        if (truncated_body) return s;
    }
    if (h.error)
        out << kProtocol << "\r\nStatus: ERROR\r\nStatus-text: << " << h.errtxt
            << "\r\nTimestamp: " << (s.timestamp != nullptr ? s.timestamp : "")
            << "\r\nSequence-Number: " << s.sequence_num << "\r\n\r\n";
    return s;
}

void Release(KsColorImage& Img, streamin& message) {
    Img.KsFreeImageMemory();
    Img.Detach();
    std::free(message.status);
    std::free(message.status_text);
    std::free(message.timestamp);
    message = streamin{};
}

void AckOK(const streamin& s, std::ostream& out) {
    out << kProtocol << "\r\nStatus: OK\r\nTimestamp:" << s.timestamp << "\r\nSequence-Number:" << s.sequence_num
        << "\r\n\r\n";
}

void AckError(const char* msg, std::ostream& out) {
    out << kProtocol << "\r\nStatus: ERROR\r\nStatus-text: " << msg << "\r\n\r\n";
}

void shutdown() {
    std::exit(0);
}
