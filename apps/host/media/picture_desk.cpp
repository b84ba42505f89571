#include "media/picture_desk.h"

#include <algorithm>
#include <utility>

#include "common/log.h"
#include "media/picture_tap.h"
#include "store/media_files.h"

namespace fleifeisa::host {
namespace {

constexpr double kEndSeconds = 1.5;  // the host has three to end in

std::size_t bytesOf(const PictureFrame& frame) {
    return frame.rgb.size();
}

}  // namespace

PictureDesk::PictureDesk(Store& store, std::string directory)
    : store_(store), directory_(std::move(directory)), thread_(&PictureDesk::run, this) {}

PictureDesk::~PictureDesk() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        give_up_ = Clock::now() + seconds(kEndSeconds);
    }
    changed_.notify_all();
    thread_.join();
}

std::unique_ptr<Output> PictureDesk::tap(const std::string& camera) {
    return std::make_unique<PictureTap>(*this, camera);
}

bool PictureDesk::push(Job job, std::size_t bytes, double patience) {
    std::unique_lock lock(mutex_);
    const auto room = [&] { return jobs_.size() < kMostWaiting && (bytes_ == 0 || bytes_ + bytes <= kMostBytes); };
    if (!room() && patience > 0) done_.wait_for(lock, Seconds(patience), room);
    if (!room()) {
        ++counts_.left_out;
        return false;
    }
    bytes_ += bytes;
    jobs_.push_back(std::move(job));
    changed_.notify_all();
    return true;
}

bool PictureDesk::frame(const std::string& camera, PictureFrame frame, double patience) {
    const std::size_t bytes = bytesOf(frame);
    return push({camera, std::move(frame)}, bytes, patience);
}
bool PictureDesk::event(const std::string& camera, const CameraEvent& event) {
    return push({camera, event}, 0, 0);
}
bool PictureDesk::trackEnded(const std::string& camera, std::int64_t track) {
    return push({camera, TrackEnded{track}}, 0, 0);
}
bool PictureDesk::why(const CameraEvent& event, std::string json) {
    return push({event.camera, Why{event, std::move(json)}}, 0, 0);
}
bool PictureDesk::passed(const std::string& camera, std::int64_t time_ns) {
    return push({camera, Passed{time_ns}}, 0, 0);
}
void PictureDesk::finish(const std::string& camera, double patience) {
    push({camera, Finish{}}, 0, patience);
    std::unique_lock lock(mutex_);
    done_.wait_for(lock, Seconds(patience), [this] { return jobs_.empty() && !busy_; });
}

PictureCounts PictureDesk::counts() {
    const std::lock_guard lock(mutex_);
    return counts_;
}

// ---- The thread ----

void PictureDesk::run() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
        if (jobs_.empty()) break;
        if (stopping_ && Clock::now() >= give_up_) {
            counts_.left_out += static_cast<std::int64_t>(jobs_.size());
            logWarning("", "pictures of the last events are missing: the host ends");
            return;
        }
        const Job job = std::move(jobs_.front());
        jobs_.pop_front();
        busy_ = true;
        lock.unlock();
        try {
            work(job);
        } catch (const std::exception& error) {
            failed(job.camera, error.what());
        }
        lock.lock();
        busy_ = false;
        if (const auto* frame = std::get_if<PictureFrame>(&job.what)) bytes_ -= bytesOf(*frame);
        done_.notify_all();
    }
}

void PictureDesk::work(const Job& job) {
    if (const auto* why = std::get_if<Why>(&job.what)) {
        const CameraEvent& event = why->event;
        return keep(event, {{{MediaKind::kWhy, "", 0, event.start_ns, event.start_ns, 0, 0, ""}, why->json}});
    }
    CameraPictures& camera = of(job.camera);
    if (const auto* frame = std::get_if<PictureFrame>(&job.what)) camera.frame(*frame);
    if (const auto* event = std::get_if<CameraEvent>(&job.what)) camera.event(*event);
    if (const auto* ended = std::get_if<TrackEnded>(&job.what)) camera.trackEnded(ended->track);
    if (const auto* time = std::get_if<Passed>(&job.what)) camera.passed(time->time_ns);
    if (std::holds_alternative<Finish>(job.what)) {
        camera.finish();
        cameras_.erase(job.camera);
    }
}

CameraPictures& PictureDesk::of(const std::string& camera) {
    const auto make = [this](const CameraEvent& event, std::vector<MadePicture> pictures) {
        keep(event, std::move(pictures));
    };
    return cameras_.try_emplace(camera, make).first->second;
}

void PictureDesk::keep(const CameraEvent& event, std::vector<MadePicture> pictures) {
    std::vector<StoredMedia> media;
    for (MadePicture& made : pictures) {
        StoredMedia& file = made.media;
        file.file = mediaFile(event.camera, event.number, event.start_ns, file.kind);
        file.bytes = static_cast<std::int64_t>(made.jpeg.size());
        const std::string fault = writeMedia(directory_, file.file, made.jpeg);
        if (!fault.empty()) return failed(event.camera, fault);  // those before it are mended away at the next start
        media.push_back(file);
    }
    if (std::exchange(failing_, false)) logWarning("", "pictures are written again");
    const auto count = static_cast<std::int64_t>(media.size());
    const bool taken = store_.attach(event.camera, event.number, std::move(media));
    const std::lock_guard lock(mutex_);
    (taken ? counts_.made : counts_.left_out) += count;
}

void PictureDesk::failed(const std::string& camera, const std::string& why) {
    if (!std::exchange(failing_, true)) logError(camera, why + "; pictures of events are missing");
    const std::lock_guard lock(mutex_);
    ++counts_.failed;
}

}  // namespace fleifeisa::host
