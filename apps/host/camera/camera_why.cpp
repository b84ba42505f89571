#include "camera/camera_why.h"

#include <algorithm>

#include "tracks/filter_view.h"

namespace fleifeisa::host {
namespace {

// So long a question waits for the next frame; then it is about the latest one. Slow cameras have no other.
constexpr Clock::duration kNextFrame = std::chrono::milliseconds(1500);
constexpr Clock::duration kLongest = std::chrono::seconds(3);
constexpr Clock::duration kLongestOfEvent = std::chrono::seconds(1);
constexpr Clock::duration kTurn = std::chrono::milliseconds(100);
constexpr std::size_t kMostHappened = 32;  // events that wait; of those beyond the analyzer says nothing

WhyFrame frameOf(const FrameResult& result) {
    return {result.sequence, result.time_ns,      result.width,
            result.height,   result.tracks.scene, result.tracks.foreground};
}

bool isError(const std::string& json) {
    return json.starts_with("{\"error\":");
}

}  // namespace

CameraWhy::CameraWhy(std::string camera, std::shared_ptr<WhyBox> box, const std::string& off, Keep keep)
    : camera_(std::move(camera)),
      box_(std::move(box)),
      on_(off.empty()),
      opened_(box_ ? box_->open() : 0),
      keep_(std::move(keep)) {
    if (box_ && !on_) box_->close(opened_, off);
}

CameraWhy::~CameraWhy() {
    if (box_ && on_) box_->close(opened_, "the camera does not run");
}

Clock::time_point CameraWhy::due(Clock::time_point otherwise) const {
    return person_ || !happened_.empty() ? std::min(otherwise, Clock::now() + kTurn) : otherwise;
}

void CameraWhy::sending(AnalyzerClient& analyzer, std::int64_t sequence) {
    if (!person_ || person_->sent || !analyzer.questions().ask(person_->asked.question.words(sequence))) return;
    person_->frame = sequence;
    person_->sent = true;
}

FilterView* CameraWhy::viewOf(std::int64_t sequence) {
    if (!person_ || !person_->sent || person_->frame != sequence || person_->of) return nullptr;
    if (!person_->view) person_->view = std::make_shared<FilterView>();
    return person_->view.get();
}

void CameraWhy::answered(const FrameResult& result) {
    latest_ = frameOf(result);
    if (!viewOf(result.sequence)) return;
    person_->of = latest_;
    person_->filter = filterJson(*person_->view, result.time_ns);
    person_->view.reset();
    tellWhole();
}

void CameraWhy::began(const CameraEvent& event, const FrameResult& result, const TrackMaker& tracks,
                      const std::string& rules_text) {
    if (!on_ || !keep_) return;
    FilterView view;
    tracks.glance(view);
    Happened& one = happened_.emplace_back();
    one.event = event;
    one.frame = frameOf(result);
    one.rule_values = ruleValues(event, rules_text);
    one.filter = filterJson(view, result.time_ns, event.track);
    one.objects.assign(result.objects.begin(), result.objects.end());
    WhyQuestion question;
    if (event.box) {
        const Point middle{event.box->left + event.box->width / 2.0, event.box->top + event.box->height / 2.0};
        question.at = {std::clamp(static_cast<int>(middle.x), 0, result.width - 1),
                       std::clamp(static_cast<int>(middle.y), 0, result.height - 1)};
    }
    if (!event.objects.empty()) question.object = event.objects.front();
    one.words = question.words(0);
    if (happened_.size() <= kMostHappened) return;
    keep(one, "");
    happened_.pop_back();
}

void CameraWhy::turn(AnalyzerClient* analyzer) {
    if (!on_) return;
    QuestionWire* const wire = analyzer ? &analyzer->questions() : nullptr;
    if (wire) take(*wire);
    // Of an analyzer that has gone nothing comes any more; the next one is asked anew.
    if (!wire || !wire->busy()) {
        if (!happened_.empty() && happened_.front().sent) keepFirst("");
        if (person_ && person_->sent && person_->analyzer.empty()) {
            person_->sent = false;
            person_->frame = 0;
        }
    }
    giveUpLate(wire);
    if (!wire) return;
    if (!happened_.empty() && !happened_.front().sent) happened_.front().sent = wire->ask(happened_.front().words);
    if (!person_ && box_)
        if (auto asked = box_->next()) person_.emplace().asked = std::move(*asked);
    if (person_ && !person_->sent && Clock::now() >= person_->since + kNextFrame)
        person_->sent = wire->ask(person_->asked.question.words(0));
}

void CameraWhy::take(QuestionWire& wire) {
    wire.read();
    auto answer = wire.take();
    if (!answer) return;
    if (!happened_.empty() && happened_.front().sent) return keepFirst(isError(answer->json) ? "" : answer->json);
    if (!person_ || !person_->sent) return;
    if (isError(answer->json)) {
        constexpr std::size_t kBehind = 10, kEnd = 2;  // {"error":"..."}
        return tell(answer->json.substr(kBehind, answer->json.size() - kBehind - kEnd));
    }
    person_->analyzer = std::move(answer->json);
    person_->layer = std::move(answer->layer);
    if (person_->frame == 0) person_->of = latest_;
    tellWhole();
}

/// Both halves are there: the analyzer's, and the filter's where the question was about a frame to come.
void CameraWhy::tellWhole() {
    if (!person_->of || person_->analyzer.empty()) return;
    const AskedByPerson done = *std::exchange(person_, std::nullopt);
    box_->answer(done.asked.id, {"", whyJson(camera_, *done.of, done.analyzer, done.filter), done.layer});
}

void CameraWhy::tell(const std::string& fault) {
    const AskedByPerson done = *std::exchange(person_, std::nullopt);
    box_->answer(done.asked.id, {fault, "", ""});
}

void CameraWhy::keep(const Happened& one, const std::string& analyzer) const {
    keep_(one.event, eventWhyJson(one.event, one.frame, one.rule_values, one.objects, analyzer, one.filter));
}

void CameraWhy::keepFirst(const std::string& analyzer) {
    keep(happened_.front(), analyzer);
    happened_.pop_front();
}

void CameraWhy::giveUpLate(QuestionWire* wire) {
    const Clock::time_point now = Clock::now();
    while (!happened_.empty() && now >= happened_.front().since + kLongestOfEvent) {
        if (happened_.front().sent && wire) wire->forget();
        keepFirst("");
    }
    if (!person_ || now < person_->since + kLongest) return;
    if (person_->sent && wire && happened_.empty()) wire->forget();
    tell("the analyzer gave no answer");
}

void CameraWhy::finish() {
    while (!happened_.empty()) keepFirst("");
}

}  // namespace fleifeisa::host
