// A host that is killed (SIGKILL) at random moments under load: after each of them the database opens and is whole,
// every event that was told is there and at least as far on as it was told, and no number is given out twice.
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
void beCamera(Store& store, std::int64_t camera) {
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
            event.end_ns = state == EventState::kEnd ? std::optional(time) : std::nullopt;
            store.event(event);
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
        const Told told{stored.event.camera.back() - '0', stored.event.number, static_cast<int>(stored.event.state)};
        if (::write(pipe, &told, sizeof told) != sizeof told) std::_Exit(1);
    });
    std::vector<std::thread> cameras;
    for (int camera = 0; camera < kCameras; ++camera)
        cameras.emplace_back([&store, camera] { beCamera(store, camera); });
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
        if (!check() || !good) {
            std::printf("run %d: failed\n", number);
            return false;
        }
        return true;
    }
    std::size_t told() const { return latest_.size(); }

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

    std::mt19937 random_;
    std::string directory_;
    std::map<Id, std::int64_t> latest_;  ///< what was told, of all runs
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
    std::printf("every one of %zu told events is there, none twice\n", trial.told());
    return trial.told() > 0 ? 0 : 1;
}
