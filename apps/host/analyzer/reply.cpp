#include "analyzer/reply.h"

#include <charconv>
#include <climits>
#include <stdexcept>

namespace fleifeisa::host {
namespace {

constexpr std::string_view kFirstLine = "ANALYTICS.CARTRIDGE\r\n";
constexpr std::string_view kHeaderEnd = "\r\n\r\n";
constexpr std::size_t kMaxHeaderBytes = 8192;

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error("not a reply of an analyzer: " + what);
}

std::int64_t toNumber(std::string_view text, const char* what) {
    while (text.starts_with(' ')) text.remove_prefix(1);
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) fail(std::string("bad ") + what);
    return value;
}

/// Value of a header line, from behind the colon to the line end; nothing where there is no such line.
std::optional<std::string_view> header(std::string_view head, std::string_view name) {
    for (std::size_t at = 0; at < head.size();) {
        const std::size_t end = std::min(head.find("\r\n", at), head.size());
        const std::string_view line = head.substr(at, end - at);
        if (line.starts_with(name)) return line.substr(name.size());
        at = end + 2;
    }
    return std::nullopt;
}

std::size_t bodyLength(std::string_view head) {
    const auto text = header(head, "Content-Length:");
    if (!text) return 0;
    const std::int64_t length = toNumber(*text, "Content-Length");
    if (length < 0 || length > static_cast<std::int64_t>(kMaxReplyBytes)) fail("Content-Length out of range");
    return static_cast<std::size_t>(length);
}

/// Reads the integers that stand between the pieces of a fixed text: take("<BOX X=\""), number(), take("\" Y=\"") ...
class Scanner {
 public:
    explicit Scanner(std::string_view text) : rest_(text) {}

    bool tryTake(std::string_view piece) {
        if (!rest_.starts_with(piece)) return false;
        rest_.remove_prefix(piece.size());
        return true;
    }
    void take(std::string_view piece) {
        if (!tryTake(piece)) fail("malformed document");
    }
    void skipLine() {
        const std::size_t end = rest_.find('\n');
        if (end == std::string_view::npos) fail("malformed document");
        rest_.remove_prefix(end + 1);
    }
    int number(const char* what, int least, int most) {
        int value = 0;
        const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
        if (error == std::errc::invalid_argument) fail("malformed number in the document");
        if (error != std::errc() || value < least || value > most) fail(std::string(what) + " out of range");
        rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
        return value;
    }
    bool done() const { return rest_.empty(); }

 private:
    std::string_view rest_;
};

AnalyzerObject parseObject(Scanner& in) {
    AnalyzerObject object{};
    object.device = in.number("a device number", 0, INT_MAX);
    in.take(".");
    object.analyzer_id = in.number("an analyzer number", 0, INT_MAX);
    in.take(".");
    object.id = in.number("an object's id", 0, kMaxObjectId);
    in.take("\">\n<BOX X=\"");
    constexpr int kFar = kMaxFrameSide + kBoxMargin;
    const int x = in.number("a box", -kBoxMargin, kFar);
    in.take("\" Y=\"");
    const int y = in.number("a box", -kBoxMargin, kFar);
    in.take("\" W=\"");
    object.width = in.number("a box", 1, kFar + kBoxMargin);
    in.take("\" H=\"");
    object.height = in.number("a box", 1, kFar + kBoxMargin);
    in.take("\" DENS=\"");
    object.density = in.number("a density", 0, 100);
    in.take("\"/>\n<SHAPE>\n</SHAPE>\n</OBJECT>");
    object.left = x - object.width / 2;  // X and Y are the centre: left + width / 2, truncated
    object.top = y - object.height / 2;
    const auto within = [](int from, int size) { return from >= -kBoxMargin && from + size <= kFar; };
    if (!within(object.left, object.width) || !within(object.top, object.height)) fail("a box out of range");
    return object;
}

std::vector<AnalyzerObject> parseDocument(std::string_view document) {
    std::vector<AnalyzerObject> objects;
    Scanner in(document);
    in.take("<ANALYTICS>\n");
    in.take("<FRAME DEVID=\"");
    in.skipLine();  // device, time and sequence are known from the request
    in.take("<TRACKING ANALYZERID=\"");
    in.number("an analyzer number", 0, INT_MAX);
    in.take("\">");
    while (in.tryTake("<OBJECT OID=\"")) {
        if (objects.size() == kMaxObjects) fail("too many objects");
        objects.push_back(parseObject(in));
    }
    in.take("</TRACKING>\n</ANALYTICS>\n");
    if (!in.done()) fail("text behind the document");
    return objects;
}

}  // namespace

std::size_t replyLength(std::string_view bytes) {
    const std::string_view start = bytes.substr(0, kFirstLine.size());
    if (!kFirstLine.starts_with(start)) fail("it begins with other text");
    const std::size_t end = bytes.find(kHeaderEnd);
    if (end == std::string_view::npos) {
        if (bytes.size() > kMaxHeaderBytes) fail("headers without an end");
        return 0;
    }
    if (end > kMaxHeaderBytes) fail("headers too long");
    const std::size_t total = end + kHeaderEnd.size() + bodyLength(bytes.substr(0, end));
    return bytes.size() < total ? 0 : total;
}

Reply parseReply(std::string_view bytes) {
    const std::size_t end = bytes.find(kHeaderEnd);
    if (end == std::string_view::npos || !bytes.starts_with(kFirstLine)) fail("incomplete");
    const std::string_view head = bytes.substr(0, end);
    const std::string_view body = bytes.substr(end + kHeaderEnd.size());
    Reply reply;
    reply.ok = header(head, "Status:").value_or("") == " OK";
    if (const auto text = header(head, "Status-text: ")) reply.status_text = *text;
    if (auto time = header(head, "Timestamp:")) {
        if (time->starts_with(' ')) time->remove_prefix(1);
        reply.timestamp = *time;
    }
    if (const auto number = header(head, "Sequence-Number:")) {
        reply.numbered = true;
        reply.sequence = toNumber(*number, "Sequence-Number");
        // An analytics reply without objects differs from a plain OK in this blank alone.
        reply.detection = reply.ok && number->starts_with(' ');
    }
    if (!body.empty()) reply.objects = parseDocument(body);
    return reply;
}

}  // namespace fleifeisa::host
