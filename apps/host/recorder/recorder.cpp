#include "recorder/recorder.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>

#include "common/log.h"
#include "recorder/clip_cutter.h"
#include "store/media_files.h"
#include "store/reader.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

/// Kept beyond what clips begin with: an event may be told of late.
constexpr std::int64_t kMarginNs = 90'000'000'000;
constexpr double kLookSeconds = 1;       ///< for clips whose time has come
constexpr double kTellLostSeconds = 60;  ///< between two messages about what was lost
constexpr std::int64_t kSecondNs = 1'000'000'000;

std::int64_t wallClock() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

/// Under another name until it is whole. "", or why not.
std::string writeSegment(const std::string& path, const std::vector<std::uint8_t>& head, const Segment& segment) {
    std::error_code error;
    fs::create_directories(fs::path(path).parent_path(), error);
    const std::string part = path + ".part";
    const auto failed = [&part] {
        const std::string why = std::strerror(errno);
        ::unlink(part.c_str());
        return why;
    };
    const Fd file(::open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640));
    if (!file) return std::strerror(errno);
    for (const auto* bytes : {&head, &segment.tables, &segment.packets}) {
        for (std::size_t at = 0; at < bytes->size();) {
            const ssize_t count = ::write(file.get(), bytes->data() + at, bytes->size() - at);
            if (count < 0 && errno == EINTR) continue;
            if (count <= 0) return failed();
            at += static_cast<std::size_t>(count);
        }
    }
    return ::rename(part.c_str(), path.c_str()) == 0 ? "" : failed();
}

}  // namespace

Recorder::Recorder(std::string state, Store& store)
    : state_(std::move(state)), store_(store), writer_(&Recorder::writeAll, this), maker_(&Recorder::makeAll, this) {}

Recorder::~Recorder() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    stop_.set();
    written_.notify_all();
    changed_.notify_all();
    writer_.join();
    maker_.join();
}

void Recorder::add(const std::string& camera, const ClipSettings& settings, std::int64_t first_event) {
    const std::lock_guard lock(mutex_);
    CameraState* known = find(camera);
    if (known) {
        known->settings = settings;
    } else {
        cameras_.emplace_back(camera, settings, state_ + "/ring/" + camera);
        cameras_.back().unfinished_before = first_event;
    }
    written_.notify_all();
}

Recorder::CameraState* Recorder::find(const std::string& camera) {
    const auto found = std::ranges::find(cameras_, camera, &CameraState::name);
    return found == cameras_.end() ? nullptr : &*found;
}

// ---- From a camera's threads ----

std::int64_t Recorder::begin(const std::string& camera) {
    const std::lock_guard lock(mutex_);
    latest_run_ = std::max(latest_run_ + 1, wallClock());
    if (CameraState* state = find(camera)) state->open[latest_run_];
    return latest_run_;
}

void Recorder::note(const std::string& camera, std::int64_t run, std::int64_t first_ns) {
    const std::lock_guard lock(mutex_);
    CameraState* state = find(camera);
    if (const auto found = state ? state->open.find(run) : OpenRuns::iterator{}; state && found != state->open.end())
        found->second.first_ns = first_ns;
}

void Recorder::end(const std::string& camera, std::int64_t run) {
    const std::lock_guard lock(mutex_);
    CameraState* state = find(camera);
    if (!state) return;
    const auto found = state->open.find(run);
    if (found == state->open.end()) return;
    found->second.ended = true;
    if (found->second.queued == 0) state->open.erase(found);
    changed_.notify_all();
}

void Recorder::take(const std::string& camera, Segment segment) {
    const std::lock_guard lock(mutex_);
    CameraState* state = find(camera);
    if (!state || stopping_) return;
    const std::size_t bytes = segment.packets.size();
    if (state->waiting + bytes > kMostWaitingOfCamera || queued_bytes_ + bytes > kMostWaiting)
        return lose(*state, "the disk was too slow");
    state->waiting += bytes;
    queued_bytes_ += bytes;
    ++state->open[segment.head.run].queued;
    queue_.push_back({state, std::move(segment)});
    written_.notify_all();
}

void Recorder::lose(CameraState& camera, const std::string& why) {
    ++counts_.dropped;
    ++camera.lost;
    camera.lost_why = why;
}

std::int64_t Recorder::takeLost(const std::string& camera, std::string& why) {
    const std::lock_guard lock(mutex_);
    CameraState* state = find(camera);
    if (!state || state->lost == 0) return 0;
    const Clock::time_point now = Clock::now();
    if (state->told_lost != Clock::time_point{} && now < state->told_lost + seconds(kTellLostSeconds)) return 0;
    state->told_lost = now;
    why = state->lost_why;
    return std::exchange(state->lost, 0);
}

void Recorder::event(const CameraEvent& event) {
    {
        const std::lock_guard lock(mutex_);
        CameraState* state = find(event.camera);
        if (!state || !state->settings.on || !state->jobs.take(event, Clock::now())) return;
        changed_.notify_all();
    }
    store_.clip(event.camera, event.number, ClipState::kRecording);
}

// ---- The thread that writes segments ----

void Recorder::writeAll() {
    std::unique_lock lock(mutex_);
    for (;;) {
        written_.wait(lock, [this] {
            return stopping_ || !queue_.empty() || std::ranges::any_of(cameras_, &CameraState::unread);
        });
        for (CameraState& camera : cameras_) {
            if (!std::exchange(camera.unread, false)) continue;
            Ring found(camera.ring.directory());
            ++writing_;
            lock.unlock();
            found.load();
            lock.lock();
            --writing_;
            // What was recorded meanwhile comes behind it: nothing, as this thread writes it.
            camera.ring = std::move(found);
            changed_.notify_all();
        }
        if (queue_.empty()) {
            if (stopping_) return;
            continue;
        }
        Waiting next = std::move(queue_.front());
        queue_.pop_front();
        ++writing_;
        lock.unlock();
        write(std::move(next));
        lock.lock();
        --writing_;
        changed_.notify_all();
    }
}

void Recorder::write(Waiting waiting) {
    CameraState& camera = *waiting.camera;
    const Segment& segment = waiting.segment;
    const std::vector<std::uint8_t> head = encodeHead(segment.head);
    RingSegment entry;
    entry.run = segment.head.run;
    entry.number = segment.head.number;
    entry.start_ns = segment.head.startNs();
    entry.end_ns = segment.head.endNs();
    entry.key = segment.head.key();
    entry.bytes = static_cast<std::int64_t>(head.size() + segment.tables.size() + segment.packets.size());
    const std::string fault = writeSegment(camera.ring.path(entry), head, segment);

    std::unique_lock lock(mutex_);
    const std::size_t bytes = segment.packets.size();
    camera.waiting -= bytes;
    queued_bytes_ -= bytes;
    if (fault.empty()) {
        camera.ring.add(entry);
        ++counts_.segments;
    } else {
        lose(camera, fault);
    }
    const auto run = camera.open.find(entry.run);
    if (run != camera.open.end() && --run->second.queued == 0 && run->second.ended) camera.open.erase(run);
    const std::vector<std::string> old = outdated(camera);
    lock.unlock();
    if (!fault.empty()) logWarning(camera.name, "a segment of video is lost: " + fault);
    for (const std::string& path : old) {
        ::unlink(path.c_str());
        ::rmdir(fs::path(path).parent_path().c_str());  // of the day, once it is empty
    }
}

/// Segments that nobody needs any more, taken out of the ring.
std::vector<std::string> Recorder::outdated(CameraState& camera) {
    std::vector<std::string> paths;
    const auto& segments = camera.ring.segments();
    if (segments.empty()) return paths;
    const auto keep = static_cast<std::int64_t>(std::max(camera.settings.continuous, camera.settings.before) *
                                                static_cast<double>(kSecondNs));
    const RingSegment latest = segments.back();
    const std::int64_t needed = camera.jobs.needed(camera.settings);
    while (segments.size() > 1) {
        const RingSegment& oldest = segments.front();
        // Where the time went back, by the moments at which the runs began.
        const std::int64_t age =
            oldest.end_ns <= latest.end_ns ? latest.end_ns - oldest.end_ns : latest.run - oldest.run;
        if (age <= keep + kMarginNs) break;
        // The one that holds what is needed begins before it: the next one tells.
        if (oldest.end_ns >= needed || segments[1].start_ns > needed) break;
        paths.push_back(camera.ring.path(*camera.ring.takeOldest()));
    }
    return paths;
}

bool Recorder::dropOldest() {
    std::unique_lock lock(mutex_);
    CameraState* holder = nullptr;
    for (CameraState& camera : cameras_) {
        const auto& segments = camera.ring.segments();
        if (segments.size() < 2 || segments.front().end_ns >= camera.jobs.needed(camera.settings)) continue;
        if (!holder || segments.front().run < holder->ring.segments().front().run ||
            segments.front().end_ns < holder->ring.segments().front().end_ns)
            holder = &camera;
    }
    if (!holder) return false;
    const std::string path = holder->ring.path(*holder->ring.takeOldest());
    lock.unlock();
    ::unlink(path.c_str());
    return true;
}

RecorderCounts Recorder::counts() {
    const std::lock_guard lock(mutex_);
    RecorderCounts counts = counts_;
    counts.waiting_bytes = static_cast<std::int64_t>(queued_bytes_);
    for (const CameraState& camera : cameras_) counts.ring_bytes += camera.ring.bytes();
    return counts;
}

// ---- The thread that makes clips ----

std::optional<std::pair<Recorder::CameraState*, ClipJob>> Recorder::nextJob() {
    const Clock::time_point now = Clock::now();
    for (CameraState& camera : cameras_)
        if (!camera.unread)
            if (const ClipJob* job = camera.jobs.due(camera.settings, camera.ring, camera.open, now))
                return std::pair(&camera, *job);
    return std::nullopt;
}

void Recorder::makeAll() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        for (CameraState& camera : cameras_)
            if (camera.unfinished_before && !camera.unread) findUnfinished(camera, lock);
        making_ = true;
        if (!asked_.empty()) {
            auto work = std::move(asked_.front());
            asked_.pop_front();
            lock.unlock();
            work();
            lock.lock();
            continue;
        }
        if (const auto job = nextJob()) {
            make(*job->first, job->second, lock);
            continue;
        }
        making_ = false;
        settled_.notify_all();
        changed_.wait_for(lock, Seconds(kLookSeconds));
    }
}

/// What the host did not come to before it ended.
void Recorder::findUnfinished(CameraState& camera, std::unique_lock<std::mutex>& lock) {
    const std::int64_t before = *std::exchange(camera.unfinished_before, std::nullopt);
    lock.unlock();
    std::vector<CameraEvent> found;
    try {
        EventFilter filter;
        filter.camera = camera.name;
        filter.clip = ClipState::kRecording;
        StoreReader(state_).events(filter, [&](const StoredEvent& stored) {
            if (stored.event.number < before) found.push_back(stored.event);
        });
    } catch (const StoreError& error) {
        logWarning(camera.name, error.what());
    }
    lock.lock();
    for (CameraEvent& event : found) {
        event.state = EventState::kStart;
        if (!event.end_ns) event.end_ns = event.time_ns;
        camera.jobs.take(event, Clock::now());
    }
}

void Recorder::make(CameraState& camera, ClipJob job, std::unique_lock<std::mutex>& lock) {
    ClipOrder order;
    order.from_ns = job.fromNs(camera.settings);
    order.to_ns = job.toNs(camera.settings);
    order.sound = camera.settings.sound;
    for (const RingSegment& segment : camera.ring.cut(order.from_ns, job.start_ns, order.to_ns))
        order.segments.push_back(camera.ring.path(segment));
    lock.unlock();
    StoredMedia clip, times;
    std::string fault;
    try {
        clip.kind = MediaKind::kClip;
        times.kind = MediaKind::kTimes;
        clip.file = mediaFile(camera.name, job.number, job.start_ns, MediaKind::kClip);
        times.file = mediaFile(camera.name, job.number, job.start_ns, MediaKind::kTimes);
        order.file = state_ + '/' + clip.file;
        order.times = state_ + '/' + times.file;
        const ClipMade made = cutClip(order, stop_);
        clip.bytes = made.bytes;
        times.bytes = made.times_bytes;
        clip.start_ns = times.start_ns = made.start_ns;
        clip.end_ns = times.end_ns = made.end_ns;
        clip.width = made.width;
        clip.height = made.height;
        clip.details = "{\"codec\":\"" + made.codec +
                       "\",\"lead_ns\":" + std::to_string(order.from_ns - made.start_ns) +
                       ",\"gaps\":" + (made.gaps ? "true" : "false") + '}';
    } catch (const ClipError& error) {
        fault = error.what();
    }
    lock.lock();
    if (stopping_ && !fault.empty()) return;  // the next run of the host goes on with it
    camera.jobs.remove(job.number);
    ++(fault.empty() ? counts_.clips : counts_.clips_failed);
    lock.unlock();
    if (fault.empty()) {
        store_.attach(camera.name, job.number, {clip, times});
    } else {
        logWarning(camera.name, "no clip of event " + eventId(camera.name, job.number) + ": " + fault);
        store_.clip(camera.name, job.number, ClipState::kFailed);
    }
    lock.lock();
}

bool Recorder::settle(double seconds_at_most) {
    std::unique_lock lock(mutex_);
    changed_.notify_all();
    return settled_.wait_for(lock, Seconds(seconds_at_most), [this] {
        return queue_.empty() && writing_ == 0 && !making_ && asked_.empty() && !nextJob();
    });
}

// ---- What others ask for ----

bool Recorder::playableLater(const std::string& camera, std::int64_t event, std::function<void(const ClipFile&)> done) {
    constexpr std::size_t kMostAsked = 20;
    const std::lock_guard lock(mutex_);
    if (stopping_ || asked_.size() >= kMostAsked) return false;
    asked_.emplace_back([=, this, done = std::move(done)] {
        ClipFile file;
        try {
            file = makeCopy(camera, event);
        } catch (const std::exception& error) {
            file.fault = error.what();
        }
        done(file);
    });
    changed_.notify_all();
    return true;
}

ClipFile Recorder::makeCopy(const std::string& camera, std::int64_t event) {
    std::string clip, copy, codec;
    std::int64_t start_ns = 0;
    StoreReader reader(state_);
    const auto stored = reader.event(camera, event);
    if (stored) start_ns = stored->event.start_ns;
    for (const StoredMedia& media : reader.media(camera, event)) {
        if (media.kind == MediaKind::kPlayable) copy = media.file;
        if (media.kind != MediaKind::kClip) continue;
        clip = media.file;
        codec = media.details;
    }
    if (clip.empty()) return {"", "there is no clip of this event"};
    if (codec.find("\"h264\"") != std::string::npos) return {state_ + '/' + clip, ""};
    if (!copy.empty()) return {state_ + '/' + copy, ""};
    StoredMedia made;
    made.kind = MediaKind::kPlayable;
    made.file = mediaFile(camera, event, start_ns, MediaKind::kPlayable);
    const std::string path = state_ + '/' + made.file;
    // A file of that name is whole; its row may be on its way to the disk still.
    std::error_code error;
    const auto there = std::filesystem::file_size(path, error);
    made.bytes = error ? makePlayable(state_ + '/' + clip, path, stop_) : static_cast<std::int64_t>(there);
    made.start_ns = made.end_ns = start_ns;
    if (!store_.attach(camera, event, {made})) return {"", "the store takes nothing more for now"};
    return {path, ""};
}

}  // namespace fleifeisa::host
