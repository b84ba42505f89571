// The verbs that do something with stored events: copy, mark, delete; and what they take on disk.
#include <sys/statvfs.h>
#include <sysexits.h>

#include <chrono>
#include <cstdio>

#include "camera/tell_socket.h"
#include "cli/commands.h"
#include "cli/store_commands.h"
#include "common/log.h"
#include "common/text.h"
#include "media/export.h"
#include "store/media_files.h"
#include "store/store.h"

namespace fleifeisa::host {
namespace {

std::int64_t wallClock() {
    return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::vector<StoredEvent> chosen(StoreReader& reader, const EventFilter& filter, const std::vector<std::string>& ids) {
    std::vector<StoredEvent> events;
    if (ids.empty()) reader.events(filter, [&events](const StoredEvent& event) { events.push_back(event); });
    for (const std::string& text : ids) {
        const auto id = parseEventId(text);
        if (!id) throw SourceError(EX_USAGE, "'" + text + "': expected an event, such as gate-12");
        const auto event = reader.event(id->first, id->second);
        if (!event) throw SourceError(EX_DATAERR, "there is no event " + text);
        events.push_back(*event);
    }
    return events;
}

std::string megabytes(std::int64_t bytes) {
    return fixedPoint((bytes + 50'000) / 100'000, 1) + " MB";
}

}  // namespace

int exportCommand(const EventsOptions& options, const std::vector<std::string>& ids, const std::string& path) {
    return withStore([&] {
        const std::string directory = stateDirectoryOf(options.state);
        StoreReader reader(directory);
        const std::vector<StoredEvent> events = chosen(reader, options.filter, ids);
        if (events.empty()) throw SourceError(EX_DATAERR, "no events");
        std::string name = "events-" + rfc3339(wallClock()).substr(0, 19) + ".zip";
        for (char& c : name)
            if (c == ':') c = '.';
        const std::string out = path.empty() ? directory + '/' + kExportDirectory + '/' + name : path;
        const ExportResult result = exportEvents(reader, directory, events, out, TimeZone(options.timezone));
        std::printf("%s: %zu events, %zu files\n", out.c_str(), result.events, result.files);
        if (result.missing > 0) logWarning("", std::to_string(result.missing) + " files are gone and are not in it");
        return EX_OK;
    });
}

int eventActCommand(const std::string& state, const std::string& verb, const std::vector<std::string>& ids) {
    return withStore([&] {
        const std::string directory = stateDirectoryOf(state);
        const StoreReader reader(directory);  // there is a store, or the error says that there is none
        std::optional<Store> store;
        int code = EX_OK;
        for (const std::string& text : ids) {
            const auto id = parseEventId(text);
            if (!id) throw SourceError(EX_USAGE, "'" + text + "': expected an event, such as gate-12");
            std::string refused;
            bool told = !store;
            if (told) try {
                    refused = tellHost(directory, '/' + verb, text);
                } catch (const std::runtime_error&) {
                    told = false;  // no host runs: it is done here
                }
            if (!told) {
                if (!store) {
                    StoreOptions here;
                    here.directory = directory;
                    here.keep_house = false;
                    store.emplace(std::move(here), nullptr);
                }
                refused = verb == "delete" ? store->remove(id->first, id->second)
                                           : store->keep(id->first, id->second, verb == "keep");
            }
            if (refused.empty()) continue;
            logError("", refused);
            code = EX_DATAERR;
        }
        return code;
    });
}

int nearMissesCommand(const EventsOptions& options) {
    return withStore([&] {
        StoreReader reader(stateDirectoryOf(options.state));
        const EventFilter& filter = options.filter;
        const bool json = options.format == EventsOptions::Format::kJson;
        if (options.format == EventsOptions::Format::kCsv) std::puts("camera,time,rule,track,what,value,limit");
        for (const std::string& camera :
             filter.camera.empty() ? reader.cameras() : std::vector<std::string>{filter.camera})
            for (const NearMiss& miss : reader.nearMisses(camera)) {
                if (miss.time_ns < filter.since_ns || (filter.until_ns > 0 && miss.time_ns >= filter.until_ns))
                    continue;
                if (!filter.rule.empty() && miss.rule != filter.rule) continue;
                const char* format =
                    json ? "{\"camera\":\"%s\",\"time\":\"%s\",\"rule\":\"%s\",\"track\":%lld,\"what\":"
                           "\"%s\",\"value\":%s,\"limit\":%s}\n"
                    : options.format == EventsOptions::Format::kCsv ? "%s,%s,%s,%lld,%s,%s,%s\n"
                                                                    : "%-16s %s  %-12s track %lld: %s %s, limit %s\n";
                std::printf(format, camera.c_str(), rfc3339(miss.time_ns).c_str(), miss.rule.c_str(),
                            static_cast<long long>(miss.track), miss.value_name.c_str(), valueText(miss.value).c_str(),
                            valueText(miss.limit).c_str());
            }
        return EX_OK;
    });
}

int dbUseCommand(const std::string& state) {
    return withStore([&] {
        const std::string directory = stateDirectoryOf(state);
        struct statvfs filesystem {};
        const bool known = ::statvfs(directory.c_str(), &filesystem) == 0;
        const auto free_bytes = known ? static_cast<std::int64_t>(filesystem.f_bavail * filesystem.f_frsize) : 0;
        std::printf("%-20s %12s %12s %12s %12s  %s\n", "camera", "clips", "pictures", "marked", "a day",
                    "days that fit");
        for (const MediaUse& use : StoreReader(directory).use(wallClock(), free_bytes))
            std::printf(
                "%-20s %12s %12s %12s %12s  %s\n", use.camera.c_str(), megabytes(use.clips).c_str(),
                megabytes(use.pictures).c_str(), megabytes(use.kept).c_str(), megabytes(use.a_day).c_str(),
                use.days_that_fit < 0 ? "any" : std::to_string(static_cast<long long>(use.days_that_fit)).c_str());
        std::printf("free: %s\n", megabytes(free_bytes).c_str());
        return EX_OK;
    });
}

}  // namespace fleifeisa::host
