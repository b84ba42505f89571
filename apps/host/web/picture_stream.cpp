#include "web/picture_stream.h"

#include <algorithm>
#include <cstring>

#include "common/text.h"

namespace fleifeisa::host {
namespace {

constexpr double kQuietSeconds = 15;

}  // namespace

PictureStream::PictureStream(LivePictures& live, std::string id, std::function<bool()> over)
    : live_(live), id_(std::move(id)), over_(std::move(over)), own_(framed("{\"stream\":" + jsonString(id_) + '}')) {}

PictureStream::~PictureStream() = default;

void PictureStream::show(const std::vector<Watched>& view) {
    std::list<Entry> before;
    before.swap(entries_);
    for (const Watched& watched : view) {
        const auto kept = std::ranges::find(before, watched, &Entry::watched);
        if (kept != before.end()) {
            entries_.splice(entries_.end(), before, kept);
            continue;
        }
        entries_.push_back({watched, std::make_unique<LiveView>(live_.camera(watched.camera),
                                                                LivePictures::widthFor(watched.width), watched.calm)});
    }
}

bool PictureStream::ready() {
    return message_ || !own_.empty() || Seconds(Clock::now() - told_at_).count() >= kQuietSeconds ||
           std::ranges::any_of(entries_, [](const Entry& entry) { return entry.view->next() != nullptr; });
}

void PictureStream::refill() {
    sent_ = 0;
    for (auto entry = entries_.begin(); entry != entries_.end(); ++entry) {
        message_ = entry->view->next();
        if (!message_) continue;
        entry->view->taken(*message_);
        entries_.splice(entries_.end(), entries_, entry);
        return;
    }
    if (Seconds(Clock::now() - told_at_).count() >= kQuietSeconds) own_ = framed("{}");
}

std::size_t PictureStream::read(std::span<char> to) {
    if (!message_ && own_.empty()) refill();
    const std::string& bytes = message_ ? message_->bytes : own_;
    if (bytes.empty()) return 0;
    const std::size_t count = std::min(to.size(), bytes.size() - sent_);
    std::memcpy(to.data(), bytes.data() + sent_, count);
    sent_ += count;
    told_at_ = Clock::now();
    if (sent_ < bytes.size()) return count;
    message_.reset();
    own_.clear();
    sent_ = 0;
    return count;
}

}  // namespace fleifeisa::host
