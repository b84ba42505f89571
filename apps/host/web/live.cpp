#include "web/live.h"

#include <algorithm>
#include <chrono>

#include "common/log.h"
#include "common/text.h"
#include "outputs/picture.h"
#include "outputs/track_json.h"
#include "sources/pixels.h"

namespace fleifeisa::host {
namespace {

constexpr int kQuality = 75;
constexpr double kAskSeconds = 3;  // for the next frame
constexpr std::size_t kMostAsking = 100;
constexpr double kCalmSeconds = 10;  // between pictures in which nothing is
constexpr std::array kWidths = {160, 320, 640, 960, 1280, 1920};

std::int64_t wallClock() {
    return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

void putLength(std::string& to, std::size_t length) {
    for (int shift = 24; shift >= 0; shift -= 8) to += static_cast<char>(length >> shift & 0xFF);
}

std::string listOf(std::initializer_list<int> numbers) {
    std::string text = "[";
    for (const int n : numbers) text += (text.size() > 1 ? "," : "") + std::to_string(n);
    return text + ']';
}

}  // namespace

int LiveFrame::shown() const {
    return static_cast<int>(std::ranges::count_if(tracks, [](const Track& track) {
        return track.state == TrackState::kConfirmed || track.state == TrackState::kStopped;
    }));
}

std::string liveFrameJson(const std::string& camera, const LiveFrame& frame) {
    std::string json = "{\"camera\":" + jsonString(camera) + ",\"sequence\":" + std::to_string(frame.sequence) +
                       ",\"time\":\"" + rfc3339(frame.time_ns) + "\",\"time_ns\":" + std::to_string(frame.time_ns) +
                       ",\"size\":" + listOf({frame.width, frame.height}) + ",\"state\":\"" + nameOf(frame.scene) +
                       "\",\"dropped\":" + std::to_string(frame.dropped) + ",\"tracks\":[";
    for (std::size_t i = 0; i < frame.tracks.size(); ++i)
        json += (i == 0 ? "" : ",") +
                trackJson(camera, frame.tracks[i], frame.time_ns, frame.width, frame.height, frame.region) + '}';
    json += "],\"objects\":[";
    for (std::size_t i = 0; i < frame.objects.size(); ++i) {
        const AnalyzerObject& object = frame.objects[i];
        json += std::string(i == 0 ? "" : ",") + "{\"id\":" + std::to_string(object.id) +
                ",\"box\":" + listOf({object.left, object.top, object.width, object.height}) +
                ",\"density\":" + std::to_string(object.density) + '}';
    }
    return json + ']';
}

std::string framed(std::string_view json, std::string_view jpeg) {
    std::string bytes;
    bytes.reserve(8 + json.size() + jpeg.size());
    putLength(bytes, json.size());
    putLength(bytes, jpeg.size());
    bytes += json;
    bytes += jpeg;
    return bytes;
}

// ---- The tap: called from the camera's thread ----

void LiveCamera::started(const CameraInfo& info) {
    const std::lock_guard lock(mutex_);
    region_ = info.region;
    map_ = info.rules.start.map;
}

bool LiveCamera::Viewers::wanted(bool busy) const {
    return live > 0 || once || (calm > 0 && (busy || Seconds(Clock::now() - made_at).count() >= kCalmSeconds));
}

bool LiveCamera::wanted(bool busy) const {
    if (live_ == 0 && calm_ == 0 && !due_) return false;  // without a lock: the usual case
    const std::lock_guard lock(mutex_);
    return std::ranges::any_of(viewers_, [busy](const auto& each) { return each.second.wanted(busy); });
}

void LiveCamera::frame(const FrameResult& result) {
    const bool copied = wanted(std::ranges::any_of(
        result.tracks.tracks, [](const Track& track) { return track.state == TrackState::kConfirmed; }));
    bool changed = false;
    {
        const std::lock_guard lock(mutex_);
        changed = latest_.scene != result.tracks.scene || latest_.sequence == 0;
        latest_.sequence = result.sequence;
        latest_.time_ns = result.time_ns;
        latest_.dropped = result.dropped;
        latest_.width = result.width;
        latest_.height = result.height;
        latest_.scene = result.tracks.scene;
        latest_.region = region_;
        latest_.map = map_;
        latest_.tracks.clear();
        latest_.busy = false;
        for (const Track& track : result.tracks.tracks) {
            latest_.busy = latest_.busy || track.state == TrackState::kConfirmed;
            if (track.state != TrackState::kTentative && track.state != TrackState::kEnded)
                latest_.tracks.push_back(track);
        }
        latest_.objects.assign(result.objects.begin(), result.objects.end());
        seen_at_ = Clock::now();
        if (copied) {
            due_ = false;
            if (std::exchange(waits_, true)) ++all_.counts_.skipped;
            rgb_.assign(result.rgb.begin(), result.rgb.end());
            waiting_ = latest_;
        }
    }
    if (copied)
        all_.queue(*this);
    else if (changed)
        all_.news();
}

void LiveCamera::ended(const TrackFrame&, TrackEnd) {
    const std::lock_guard lock(mutex_);
    latest_.tracks.clear();
    latest_.objects.clear();
}

void LiveCamera::stepped(const RuleStep& step) {
    const std::lock_guard lock(mutex_);
    if (step.kind == RuleStep::kMap) map_ = step.map;
    if (step.kind == RuleStep::kLost) latest_.scene = SceneState::kLost;
}

void LiveCamera::finish() {
    const std::lock_guard lock(mutex_);
    latest_.scene = SceneState::kLost;
    latest_.tracks.clear();
    latest_.objects.clear();
}

// ---- For viewers ----

LiveFrame LiveCamera::latest() const {
    const std::lock_guard lock(mutex_);
    return latest_;
}

bool LiveCamera::stale(double seconds) const {
    const std::lock_guard lock(mutex_);
    return latest_.sequence == 0 || Seconds(Clock::now() - seen_at_).count() > seconds;
}

std::shared_ptr<const LiveMessage> LiveCamera::picture(int width) const {
    const std::lock_guard lock(mutex_);
    const auto found = viewers_.find(width);
    return found == viewers_.end() ? nullptr : found->second.latest;
}

bool LiveCamera::askOnce(int width, Take take) {
    const std::lock_guard lock(mutex_);
    Viewers& viewers = viewers_[width];
    if (viewers.asked.size() >= kMostAsking) return false;
    viewers.asked.emplace_back(Clock::now(), std::move(take));
    viewers.once = true;
    due_ = true;
    return true;
}

LiveView::LiveView(LiveCamera& camera, int width, bool calm) : camera_(camera), width_(width), calm_(calm) {
    const std::lock_guard lock(camera_.mutex_);
    LiveCamera::Viewers& viewers = camera_.viewers_[width_];
    ++(calm ? viewers.calm : viewers.live);
    ++(calm ? camera_.calm_ : camera_.live_);
    viewers.once = true;
    camera_.due_ = true;
    version_ = camera_.versions_;
}

LiveView::~LiveView() {
    const std::lock_guard lock(camera_.mutex_);
    const auto found = camera_.viewers_.find(width_);
    --(calm_ ? found->second.calm : found->second.live);
    --(calm_ ? camera_.calm_ : camera_.live_);
    if (found->second.live + found->second.calm == 0 && found->second.asked.empty()) camera_.viewers_.erase(found);
}

std::shared_ptr<const LiveMessage> LiveView::next() const {
    auto message = camera_.picture(width_);
    return message && message->version > version_ ? message : nullptr;
}

// ---- Encoding ----

LivePictures::LivePictures() : thread_(&LivePictures::run, this) {}

LivePictures::~LivePictures() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

LiveCamera& LivePictures::camera(const std::string& name) {
    const std::lock_guard lock(mutex_);
    auto& camera = cameras_[name];
    if (!camera) camera = std::make_unique<LiveCamera>(name, *this);
    return *camera;
}

void LivePictures::onNews(std::function<void()> call) {
    const std::lock_guard lock(mutex_);
    on_news_ = std::move(call);
}

void LivePictures::news() const {
    const std::lock_guard lock(mutex_);
    if (on_news_) on_news_();
}

void LivePictures::expire() {
    std::vector<LiveCamera::Take> late;
    {
        const std::lock_guard lock(mutex_);
        for (const auto& [name, camera] : cameras_) {
            const std::lock_guard camera_lock(camera->mutex_);
            for (auto& [width, viewers] : camera->viewers_)
                std::erase_if(viewers.asked, [&late](auto& each) {
                    if (Seconds(Clock::now() - each.first).count() < kAskSeconds) return false;
                    late.push_back(std::move(each.second));
                    return true;
                });
        }
    }
    for (const LiveCamera::Take& take : late) take(nullptr);
}

int LivePictures::widthFor(int wanted) {
    const auto* const found = std::ranges::lower_bound(kWidths, wanted);
    return found == kWidths.end() ? kWidths.back() : *found;
}

void LivePictures::queue(LiveCamera& camera) {
    {
        const std::lock_guard lock(mutex_);
        if (std::ranges::find(dirty_, &camera) == dirty_.end()) dirty_.push_back(&camera);
    }
    changed_.notify_one();
}

void LivePictures::run() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return stopping_ || !dirty_.empty(); });
        if (stopping_) return;
        LiveCamera& camera = *dirty_.front();
        dirty_.erase(dirty_.begin());
        lock.unlock();
        try {
            encode(camera);
        } catch (const std::exception& error) {
            logWarning(camera.name(), error.what());
        }
        news();
        lock.lock();
    }
}

void LivePictures::encode(LiveCamera& camera) {
    LiveFrame frame;
    std::vector<int> widths;
    std::int64_t version = 0;
    {
        const std::lock_guard lock(camera.mutex_);
        if (!std::exchange(camera.waits_, false)) return;
        rgb_.swap(camera.rgb_);
        std::swap(frame, camera.waiting_);
        version = ++camera.versions_;
        for (auto& [width, viewers] : camera.viewers_)
            if (viewers.wanted(frame.busy)) widths.push_back(width);
    }
    const auto begin = Clock::now();
    const std::string json = liveFrameJson(camera.name(), frame);
    for (const int wanted : widths) {
        const int width = std::min(wanted, frame.width);
        const int height = std::max(1, static_cast<int>(std::int64_t{frame.height} * width / frame.width));
        auto message = std::make_shared<LiveMessage>();
        const std::string jpeg =
            width == frame.width
                ? jpegOf(PictureView{width, height, rgb_}, kQuality)
                : jpegOf(Picture{width, height, resize(rgb_, frame.width, frame.height, width, height)}, kQuality);
        message->version = version;
        message->time_ns = frame.time_ns;
        message->bytes = framed(
            json + ",\"picture\":" + listOf({width, height}) + ",\"sent_ns\":" + std::to_string(wallClock()) + '}',
            jpeg);
        message->jpeg = message->bytes.size() - jpeg.size();
        ++counts_.encoded;
        std::vector<std::pair<Clock::time_point, LiveCamera::Take>> asked;
        {
            const std::lock_guard lock(camera.mutex_);
            const auto found = camera.viewers_.find(wanted);
            if (found == camera.viewers_.end()) continue;
            found->second.latest = message;
            found->second.once = false;
            found->second.made_at = Clock::now();
            asked.swap(found->second.asked);
        }
        for (const auto& [since, take] : asked) take(message);
    }
    counts_.encode_ns += std::chrono::nanoseconds(Clock::now() - begin).count();
}

}  // namespace fleifeisa::host
