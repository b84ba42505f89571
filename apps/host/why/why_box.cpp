#include "why/why_box.h"

#include <algorithm>
#include <utility>

namespace fleifeisa::host {

std::string WhyQuestion::words(std::int64_t frame) const {
    std::string text = std::to_string(frame);
    if (at) text += " cell " + std::to_string(at->x) + ' ' + std::to_string(at->y);
    if (object) text += " object " + std::to_string(*object);
    if (!layer.empty()) text += " layer " + layer;
    return text;
}

bool WhyBox::ask(const WhyQuestion& question, Take take) {
    std::string closed;
    {
        const std::lock_guard lock(mutex_);
        closed = closed_;
        if (closed.empty()) {
            if (waiting_.size() >= kMostWaiting) return false;
            waiting_.push_back({{++last_, question}, std::move(take), Clock::now()});
            wake_.set();
            return true;
        }
    }
    take({closed, "", ""});
    return true;
}

void WhyBox::expire(Clock::time_point now) {
    std::deque<Waiting> late;
    {
        const std::lock_guard lock(mutex_);
        while (!waiting_.empty() && now >= waiting_.front().since + seconds(kPatience)) {
            late.push_back(std::move(waiting_.front()));
            waiting_.pop_front();
        }
    }
    tell(std::move(late), "there was no answer in time");
}

std::string WhyBox::closedBecause() const {
    const std::lock_guard lock(mutex_);
    return closed_;
}

std::uint64_t WhyBox::open() {
    const std::lock_guard lock(mutex_);
    closed_.clear();
    return ++opened_;
}

void WhyBox::close(std::uint64_t opened, const std::string& why) {
    std::deque<Waiting> all;
    {
        const std::lock_guard lock(mutex_);
        if (opened != opened_) return;
        closed_ = why;
        all.swap(waiting_);
    }
    tell(std::move(all), why);
}

std::optional<WhyBox::Asked> WhyBox::next() {
    const std::lock_guard lock(mutex_);
    wake_.clear();
    const auto found = std::ranges::find(waiting_, false, &Waiting::given);
    if (found == waiting_.end()) return std::nullopt;
    found->given = true;
    return found->asked;
}

void WhyBox::answer(std::uint64_t id, const WhyAnswer& answer) {
    Take take;
    {
        const std::lock_guard lock(mutex_);
        const auto found = std::ranges::find_if(waiting_, [id](const Waiting& one) { return one.asked.id == id; });
        if (found == waiting_.end()) return;  // told before that there is none
        take = std::move(found->take);
        waiting_.erase(found);
    }
    take(answer);
}

void WhyBox::tell(std::deque<Waiting> those, const std::string& fault) const {
    for (const Waiting& one : those) one.take({fault, "", ""});
}

std::shared_ptr<WhyBox> WhyBoxes::of(const std::string& camera) {
    const std::lock_guard lock(mutex_);
    std::shared_ptr<WhyBox>& box = boxes_[camera];
    if (!box) box = std::make_shared<WhyBox>();
    return box;
}

void WhyBoxes::expire() {
    std::map<std::string, std::shared_ptr<WhyBox>> all;
    {
        const std::lock_guard lock(mutex_);
        all = boxes_;
    }
    for (const auto& [camera, box] : all) box->expire(Clock::now());
}

}  // namespace fleifeisa::host
