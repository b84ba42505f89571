// A host that is killed (SIGKILL) at random moments under load: after each of them the database opens and is whole,
// every event that was told is there and at least as far on as it was told, and no number is given out twice. Of the
// pictures the next start of a host leaves none without a row, and no row without its picture.
//
//   store_crash [RUNS] [SEED]
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "store/media_files.h"
#include "store/reader.h"
#include "store/store.h"

namespace fleifeisa::host {
namespace {

constexpr int kCameras = 4;

/// One message as the child tells it; shorter than what a pipe takes in one piece.
struct Told {
    std::int64_t camera, number, state;
};

std::string cameraName(std::int64_t camera) {
    return "camera" + std::to_string(camera);
}

/// Hands in events until it is killed: each starts, is updated and ends, some three hundred messages a second.
void beCamera(Store& store, const std::string& directory, std::int64_t camera) {
    const std::string name = cameraName(camera);
    NextNumbers next = store.addCamera(name, "", "");
    CameraEvent event;
    event.camera = name;
    event.kind = EventKind::kZone;
    for (std::int64_t time = 1;; ++time) {
        event.number = next.event++;
        event.track = next.track++;
        event.start_ns = event.time_ns = time;
        for (const EventState state : {EventState::kStart, EventState::kUpdate, EventState::kEnd}) {
            event.state = state;
            event.change = state == EventState::kUpdate ? "dwell" : "";
            event.end_ns = state == EventState::kEnd ? std::optional(time) : std::nullopt;
            store.event(event);
            StoredMedia picture;
            picture.kind = state == EventState::kStart ? MediaKind::kThumb : MediaKind::kPicture;  // that one twice
            picture.file = mediaFile(name, event.number, time, picture.kind);
            picture.bytes = 100 + static_cast<std::int64_t>(state);
            if (writeMedia(directory, picture.file, std::string(static_cast<std::size_t>(picture.bytes), 'x')).empty())
                store.attach(name, event.number, {picture});
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
        }
        store.crossing(name, {"line", true, time});
        store.track(name,
                    {{event.track, 0, TrackEnd::kLeft, time, time + 1, {{time, {}, 0, 0}}}, 1, 0, 1, 1, false, 0});
        store.numbers(name, next);
    }
}

[[noreturn]] void beHost(const std::string& directory, int pipe) {
    StoreOptions options;
    options.directory = directory;
    options.now = [] { return std::int64_t{0}; };  // nothing is old
    options.group_seconds = 0.02;                  // many commits, so that many moments lie within one
    Store store(options, [pipe](const StoredEvent& stored) {
        const EventState state = stored.event.state;
        // An update of what was attached says nothing new of the event itself.
        if (state == EventState::kUpdate && stored.event.change != "dwell") return;
        const Told told{stored.event.camera.back() - '0', stored.event.number, static_cast<int>(state)};
        if (::write(pipe, &told, sizeof told) != sizeof told) std::_Exit(1);
    });
    std::vector<std::thread> cameras;
    for (int camera = 0; camera < kCameras; ++camera)
        cameras.emplace_back([&store, &directory, camera] { beCamera(store, directory, camera); });
    for (std::thread& camera : cameras) camera.join();
    std::_Exit(1);
}

class Trial {
 public:
    explicit Trial(unsigned seed) : random_(seed) {
        std::string path = (std::filesystem::temp_directory_path() / "crash-XXXXXX").string();
        if (::mkdtemp(path.data())) directory_ = path;
    }
    ~Trial() { std::filesystem::remove_all(directory_); }
    Trial(const Trial&) = delete;
    Trial& operator=(const Trial&) = delete;

    bool run(int number) {
        int ends[2];
        if (::pipe(ends) != 0) return false;
        const pid_t child = ::fork();
        if (child == 0) beHost(directory_, ends[1]);
        ::close(ends[1]);
        std::thread killer([child, delay = std::chrono::microseconds(20'000 + random_() % 400'000)] {
            std::this_thread::sleep_for(delay);
            ::kill(child, SIGKILL);
        });
        bool good = true;
        for (Told told{}; ::read(ends[0], &told, sizeof told) == sizeof told;) good = hear(told) && good;
        killer.join();
        ::waitpid(child, nullptr, 0);
        ::close(ends[0]);
        if (!check() || !mended() || !good) {
            std::printf("run %d: failed\n", number);
            return false;
        }
        return true;
    }
    std::size_t told() const { return latest_.size(); }
    std::string mending() const {
        return std::to_string(mended_rows_) + " rows without pictures and " + std::to_string(mended_files_) +
               " pictures without rows were mended";
    }

 private:
    using Id = std::pair<std::int64_t, std::int64_t>;

    bool hear(const Told& told) {
        const auto [known, first] = latest_.try_emplace(Id{told.camera, told.number}, told.state);
        if (told.state == 0 && !first) {
            std::printf("%s-%ld started twice\n", cameraName(told.camera).c_str(), static_cast<long>(told.number));
            return false;
        }
        known->second = std::max(known->second, told.state);
        return true;
    }
    bool check() {
        if (!std::filesystem::exists(StateDirectory::databasePath(directory_))) return latest_.empty();
        std::map<Id, std::int64_t> stored;
        try {
            StoreReader reader(directory_);
            for (const std::string& fault : reader.check()) {
                std::printf("%s\n", fault.c_str());
                return false;
            }
            reader.events({}, [&stored](const StoredEvent& row) {
                stored[{row.event.camera.back() - '0', row.event.number}] = static_cast<int>(row.event.state);
            });
        } catch (const StoreError& error) {
            std::printf("%s\n", error.what());
            // Killed before the first commit of the tables.
            return latest_.empty();
        }
        for (const auto& [id, state] : latest_) {
            const auto row = stored.find(id);
            if (row != stored.end() && row->second >= state) continue;
            std::printf("%s-%ld was told, and is %s\n", cameraName(id.first).c_str(), static_cast<long>(id.second),
                        row == stored.end() ? "not there" : "not as far on");
            return false;
        }
        return true;
    }

    /// Starts a host without cameras, which looks through what there is.
    bool mended() {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));  // the filesystem's clock goes in steps
        {
            StoreOptions options;
            options.directory = directory_;
            options.now = [] { return std::int64_t{0}; };
            Store store(options, nullptr);
            for (int i = 0; i < 600 && store.counts().mending; ++i)
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            const StoreCounts counts = store.counts();
            mended_rows_ += counts.mended_rows;
            mended_files_ += counts.mended_files;
            if (counts.mending) return false;
        }
        Database database(StateDirectory::databasePath(directory_), Database::Mode::kReadOnly);
        Statement rows = database.prepare("SELECT file, bytes FROM media");
        std::set<std::string> told;
        while (rows.step()) {
            const std::string path = directory_ + '/' + rows.text(0);
            std::error_code error;
            if (std::filesystem::file_size(path, error) != static_cast<std::uintmax_t>(rows.integer(1))) {
                std::printf("%s is not what its row says\n", path.c_str());
                return false;
            }
            told.insert(path);
        }
        const std::string media = directory_ + '/' + kMediaDirectory;
        if (!std::filesystem::exists(media)) return true;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(media))
            if (entry.is_regular_file() && !told.contains(entry.path().string())) {
                std::printf("%s has no row\n", entry.path().c_str());
                return false;
            }
        return true;
    }

    std::mt19937 random_;
    std::string directory_;
    std::map<Id, std::int64_t> latest_;  ///< what was told, of all runs
    std::int64_t mended_rows_ = 0, mended_files_ = 0;
};

}  // namespace
}  // namespace fleifeisa::host

int main(int argc, char** argv) {
    const int runs = argc > 1 ? std::atoi(argv[1]) : 200;
    const auto seed = static_cast<unsigned>(argc > 2 ? std::atoi(argv[2]) : ::getpid());
    std::printf("%d runs, seed %u\n", runs, seed);
    fleifeisa::host::Trial trial(seed);
    for (int run = 1; run <= runs; ++run)
        if (!trial.run(run)) return 1;
    std::printf("every one of %zu told events is there, none twice; %s\n", trial.told(), trial.mending().c_str());
    return trial.told() > 0 ? 0 : 1;
}
