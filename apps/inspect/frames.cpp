#include "inspect/frames.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "host/Requests.h"
#include "image/ImageFiles.h"

namespace fleifeisa::inspect {

namespace {

constexpr char kFirstWord[] = "ANALYTICS.CARTRIDGE";

// A frame number from the front of `rest`, which moves behind it.
int takeNumber(std::string_view& rest, const std::string& part) {
    int number = 0;
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
    if (error != std::errc() || number < 1)
        throw std::invalid_argument("\"" + part + "\" is not a frame number or range");
    rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
    return number;
}

class Stream : public FrameSource {
 public:
    Stream(const std::string& path, Warn warn)
        : warn_(std::move(warn)), reader_(path == "-" ? static_cast<std::istream&>(std::cin) : file_, answer_) {
        if (path == "-") return;
        file_.open(path, std::ios::binary);
        if (!file_) throw std::runtime_error(path + ": cannot be opened");
    }

    bool next(SourceFrame& frame) override {
        streamin message{};
        for (;;) {
            frame = SourceFrame();
            const RequestReader::Result result = reader_.Read(frame.image, message);
            const int code = message.ret_status;
            frame.sequence = message.sequence_num;
            if (message.timestamp != nullptr) frame.timestamp = message.timestamp;
            truncated_ = result == RequestReader::kCutOff || result == RequestReader::kUnreadable;
            if (truncated_ || result == RequestReader::kEnd) break;
            number_++;
            report();
            if (result == RequestReader::kMessage && code == kShutdown) break;
            if (result == RequestReader::kMessage && code == kFrame) {
                KsColorImage none;
                Release(none, message);
                return true;
            }
            Release(frame.image, message);
        }
        Release(frame.image, message);
        return false;
    }
    bool dropsOtherSizes() const override { return true; }
    bool truncated() const override { return truncated_; }

 private:
    // The reader answers what it cannot read; here that becomes a warning.
    void report() {
        const std::string said = answer_.str();
        answer_.str("");
        const std::size_t at = said.find("Status-text: ");
        if (at != std::string::npos) complain(said.substr(at + 13, said.find('\r', at) - at - 13));
    }

    void complain(const std::string& what) {
        constexpr int kShown = 5;
        if (++complaints_ <= kShown) warn_("message " + std::to_string(number_) + ": " + what);
        if (complaints_ == kShown + 1) warn_("more messages like these are not shown");
    }

    Warn warn_;
    std::ifstream file_;
    std::ostringstream answer_;
    RequestReader reader_;
    int number_ = 0, complaints_ = 0;
    bool truncated_ = false;
};

class Images : public FrameSource {
 public:
    Images(std::vector<std::string> names, Warn warn) : names_(std::move(names)), warn_(std::move(warn)) {}
    bool next(SourceFrame& frame) override {
        if (at_ == names_.size()) return false;
        frame = SourceFrame();
        frame.name = names_[at_++];
        const LoadedImage loaded = LoadImageFile(frame.name.c_str());
        if (loaded.pixels == nullptr)
            warn_(loaded.error);
        else
            frame.image.KsReadImageMemory(loaded.pixels, loaded.height, loaded.width);
        return true;
    }
    bool dropsOtherSizes() const override { return false; }

 private:
    std::vector<std::string> names_;
    Warn warn_;
    std::size_t at_ = 0;
};

}  // namespace

FrameRanges FrameRanges::parse(const std::string& text) {
    FrameRanges result;
    std::istringstream parts(text);
    std::string part;
    while (std::getline(parts, part, ',')) {
        std::string_view rest = part;
        Range range{takeNumber(rest, part), 0};
        range.last = range.first;
        if (rest == "-") {
            range.last = INT_MAX;
            rest = {};
        } else if (rest.starts_with('-')) {
            rest.remove_prefix(1);
            range.last = takeNumber(rest, part);
        }
        if (!rest.empty()) throw std::invalid_argument("\"" + part + "\" is not a frame number or range");
        if (range.last < range.first) throw std::invalid_argument("\"" + part + "\" ends before it begins");
        result.ranges_.push_back(range);
    }
    if (result.ranges_.empty() || text.ends_with(',')) throw std::invalid_argument("a frame number is missing");
    return result;
}

bool FrameRanges::contains(int number) const {
    return std::any_of(ranges_.begin(), ranges_.end(),
                       [number](const Range& r) { return number >= r.first && number <= r.last; });
}

int FrameRanges::last() const {
    int last = 0;
    for (const Range& r : ranges_) last = std::max(last, r.last);
    return last;
}

std::unique_ptr<FrameSource> openStream(const std::string& path, Warn warn) {
    return std::make_unique<Stream>(path, std::move(warn));
}

std::unique_ptr<FrameSource> openImages(std::vector<std::string> names, Warn warn) {
    return std::make_unique<Images>(std::move(names), std::move(warn));
}

bool looksLikeStream(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string start(sizeof kFirstWord - 1, '\0');
    return file.read(start.data(), static_cast<std::streamsize>(start.size())) && start == kFirstWord;
}

}  // namespace fleifeisa::inspect
