// What is made for whoever asks: copies of clips that every browser plays, and exports.
#include <sys/statvfs.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "common/log.h"
#include "common/text.h"
#include "events/schedule.h"
#include "media/export.h"
#include "sources/source.h"
#include "store/media_files.h"
#include "web/arguments.h"
#include "web/json_body.h"
#include "web/web_server.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostEvents = 500;
constexpr std::int64_t kMostBytes = std::int64_t{2} << 30;    // of one export
constexpr std::int64_t kLeaveFree = std::int64_t{512} << 20;  // of the disk, for the host's own work
constexpr int kMostAtOnce = 4;                                // exports that are made or fetched
constexpr std::size_t kMostFailures = 100;

/// Where exports of the page are made. They lose their name as soon as they are whole.
std::string makingPlace(const std::string& state) {
    return state + '/' + kExportDirectory + "/page";
}

std::int64_t freeBytes(const std::string& path) {
    struct statvfs disk {};
    if (::statvfs(path.c_str(), &disk) != 0) return 0;
    return static_cast<std::int64_t>(disk.f_bavail * disk.f_frsize);
}

}  // namespace

/// The clip itself where browsers play it, the copy where there is one; else one is begun.
HttpResponse WebServer::playable(const Call& call) {
    const auto all = queries().media(call.camera(), call.number());
    const auto clip = std::ranges::find(all, MediaKind::kClip, &StoredMedia::kind);
    if (clip == all.end()) throw HttpError(404, "there is no clip of this event");
    const bool plain = clip->details.find("\"h264\"") != std::string::npos;
    if (plain || std::ranges::count(all, MediaKind::kPlayable, &StoredMedia::kind) > 0)
        return mediaFileOf(call, plain ? MediaKind::kClip : MediaKind::kPlayable);
    if (!parts_.make_playable) throw HttpError(404, "no copies of clips are made here");
    const auto key = std::pair(call.camera(), call.number());
    {
        const std::lock_guard lock(copies_->mutex);
        if (const auto failed = copies_->failed.find(key); failed != copies_->failed.end()) {
            const std::string why = failed->second;
            copies_->failed.erase(failed);  // the next one to ask tries again
            throw HttpError(404, "no copy could be made: " + why);
        }
        // Before it begins: it may end at once.
        if (copies_->making.insert(key).second &&
            !parts_.make_playable(key.first, key.second, [copies = copies_, key](const std::string& fault) {
                const std::lock_guard ending(copies->mutex);
                copies->making.erase(key);
                if (fault.empty()) return;
                logWarning(key.first, "no copy of clip " + eventId(key.first, key.second) + ": " + fault);
                if (copies->failed.size() >= kMostFailures) copies->failed.clear();
                copies->failed[key] = fault;
            }))
            copies_->making.erase(key);
    }
    HttpResponse response = errorResponse(503, "a copy that browsers play is being made");
    response.headers = {{"Retry-After", "2"}};
    return response;
}

/// All of the events or an error: whoever exports for evidence wants to know what is missing.
HttpResponse WebServer::exported(const Call& call) {
    const JsonBody body(call.request->body);
    const std::vector<std::string> ids = body.texts("events");
    if (ids.empty() || ids.size() > kMostEvents) throw HttpError(400, "events: expected 1 to 500");
    if (!parts_.store) throw HttpError(503, "nothing is kept: the configuration names no state directory");
    // Whoever fetches slowly keeps the disk filled: few at once.
    if (++*exports_ > kMostAtOnce) {
        --*exports_;
        throw HttpError(503, "too many exports are made or fetched at once, try again");
    }
    const auto turn = std::shared_ptr<void>(nullptr, [count = exports_](void*) { --*count; });

    StoreReader reader(parts_.state);
    std::vector<StoredEvent> events;
    std::int64_t bytes = 0;
    std::set<std::string> seen;
    for (const std::string& id : ids) {
        const auto parts = eventIdParts(id);
        const bool allowed = parts && isCameraName(parts->first) && call.identity->sees(parts->first);
        auto event = allowed ? reader.event(parts->first, parts->second) : std::nullopt;
        if (!event) throw HttpError(404, "there is no event " + cleanUtf8(id));
        if (!seen.insert(eventId(parts->first, parts->second)).second) continue;
        for (const StoredMedia& media : reader.media(parts->first, parts->second)) bytes += media.bytes;
        events.push_back(std::move(*event));
    }
    if (bytes > kMostBytes)
        throw HttpError(400, "these are " + std::to_string(bytes >> 20) + " MB, of at most " +
                                 std::to_string(kMostBytes >> 20) + " at once: choose fewer events");
    if (freeBytes(parts_.state) < bytes + kLeaveFree) throw HttpError(503, "the disk has no room for this");

    const std::string now = rfc3339(wallSeconds() * 1'000'000'000).substr(0, 19);
    const std::string path = makingPlace(parts_.state) + "/export.zip";  // one at a time
    std::error_code ignored;
    fs::remove_all(makingPlace(parts_.state), ignored);  // what a killed host left
    const auto done = exportEvents(reader, parts_.state, events, path, TimeZone(parts_.timezone), &stopping_);
    if (done.missing > 0) logWarning("", std::to_string(done.missing) + " files are gone and are not in an export");
    HttpResponse response = fileResponse({}, path, "application/zip");
    fs::remove_all(makingPlace(parts_.state), ignored);
    // The turn ends when nobody reads the file any more.
    response.file = std::shared_ptr<Fd>(response.file.get(), [file = response.file, turn](Fd*) {});
    std::string name = "events-" + now + ".zip";
    std::ranges::replace(name, ':', '.');
    response.headers = {{"Content-Disposition", "attachment; filename=\"" + name + '"'}};
    return response;
}

void WebServer::addMediaRoutes() {
    routes_.push_back({"GET", "cameras/{camera}/events/{number}/play.mp4", Need::kView, Place::kStore,
                       [this](Call& call) { return playable(call); }});
    routes_.push_back({"POST", "export", Need::kView, Place::kExport, [this](Call& call) { return exported(call); }});
}

}  // namespace fleifeisa::host
