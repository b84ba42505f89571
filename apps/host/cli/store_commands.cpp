#include "cli/store_commands.h"

#include <sysexits.h>

#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "camera/tell_socket.h"
#include "cli/commands.h"
#include "cli/rules_config.h"
#include "cli/values.h"
#include "common/log.h"
#include "common/text.h"

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kSecondNs = 1'000'000'000;

/// One after another, as the user wants them.
class Printer {
 public:
    explicit Printer(const EventsOptions& options) : format_(options.format), zone_(options.timezone) {
        if (format_ == EventsOptions::Format::kCsv)
            std::puts("event,camera,kind,rule,changes,state,reason,track,visit,start,end,value,held,clip");
    }
    void print(const StoredEvent& stored) {
        if (format_ == EventsOptions::Format::kJson)
            std::puts(eventJson(stored.event, stored.pictures, stored.clip).c_str());
        else if (format_ == EventsOptions::Format::kCsv)
            printCsv(stored);
        else
            printText(stored);
        ++count_;
    }
    void finish() const {
        if (format_ == EventsOptions::Format::kText && count_ == 0) std::puts("no events");
    }

 private:
    /// "2026-11-21 09:15:02" in the place's time.
    std::string localTime(std::int64_t time_ns) const {
        const std::int64_t offset = zone_.offsetAt(time_ns / kSecondNs).seconds;
        std::string text = rfc3339(time_ns + offset * kSecondNs).substr(0, 19);
        text[10] = ' ';
        return text;
    }
    void printText(const StoredEvent& stored) const {
        const CameraEvent& event = stored.event;
        const std::string lasted = event.end_ns ? clockTime(*event.end_ns - event.start_ns) : "runs";
        std::string what = event.rule;
        if (!stored.changes.empty()) what += (what.empty() ? "" : " ") + stored.changes;
        if (event.track > 0) what += " track " + std::to_string(event.track);
        if (event.value) what += " (" + valueText(*event.value) + ')';
        if (!event.reason.empty()) what += ", " + event.reason;
        if (!event.text.empty()) what += ' ' + cleanUtf8(event.text);
        if (event.held) what += " [held]";
        std::printf("%s  %-16s %-8s %8s  %s\n", localTime(event.start_ns).c_str(),
                    eventId(event.camera, event.number).c_str(), nameOf(event.kind), lasted.c_str(), what.c_str());
    }
    static void printCsv(const StoredEvent& stored) {
        const CameraEvent& event = stored.event;
        const auto quoted = [](const std::string& text) {
            std::string field = "\"";
            for (const char c : text) field += c == '"' ? std::string("\"\"") : std::string(1, c);
            return field + '"';
        };
        std::printf("%s,%s,%s,%s,%s,%s,%s,%s,%s,%s,%s,%s,%s,%s\n", eventId(event.camera, event.number).c_str(),
                    event.camera.c_str(), nameOf(event.kind), event.rule.c_str(), quoted(stored.changes).c_str(),
                    nameOf(event.state), quoted(event.reason).c_str(),
                    event.track > 0 ? std::to_string(event.track).c_str() : "",
                    event.visit > 0 ? eventId(event.camera, event.visit).c_str() : "", rfc3339(event.start_ns).c_str(),
                    event.end_ns ? rfc3339(*event.end_ns).c_str() : "",
                    event.value ? valueText(*event.value).c_str() : "", event.held ? "true" : "false",
                    nameOf(stored.clip));
    }

    const EventsOptions::Format format_;
    const TimeZone zone_;
    std::int64_t count_ = 0;
};

/// Each event as it was in its last message.
void printWhatIf(StoreReader& reader, const EventsOptions& options, Printer& printer) {
    Rules rules;
    addRule(rules, options.what_if);
    rules.timezone = options.timezone;
    const std::vector<std::string> cameras =
        options.filter.camera.empty() ? reader.cameras() : std::vector<std::string>{options.filter.camera};
    for (const std::string& camera : cameras) {
        std::map<std::int64_t, StoredEvent> events;
        for (const CameraEvent& event : eventsOfThePast(rules, camera, reader.tracks(camera, options.filter.since_ns),
                                                        reader.scenes(camera, options.filter.since_ns))) {
            StoredEvent& stored = events[event.number];
            stored.changes += (stored.changes.empty() || event.change == stored.event.change)
                                  ? (stored.changes.empty() ? event.change : "")
                                  : ',' + event.change;
            stored.event = event;
        }
        for (const auto& [number, stored] : events) printer.print(stored);
    }
}

}  // namespace

std::string stateDirectoryOf(const std::string& given) {
    if (!given.empty()) return given;
    if (std::string directory = stateDirectory(); !directory.empty()) return directory;
    throw SourceError(EX_USAGE, "which state directory? (--state DIRECTORY, or $STATE_DIRECTORY)");
}

int withStore(const std::function<int()>& verb) {
    return statusOf([&verb] {
        try {
            return verb();
        } catch (const StoreError& error) {
            throw SourceError(EX_NOINPUT, error.what());
        } catch (const ValueError& error) {
            throw SourceError(EX_USAGE, error.what());
        } catch (const std::invalid_argument& error) {
            throw SourceError(EX_USAGE, error.what());
        }
    });
}

/// A service manager may give several, by colons: the first.
std::string stateDirectory() {
    const char* given = std::getenv("STATE_DIRECTORY");
    const std::string directories = given ? given : "";
    return directories.substr(0, directories.find(':'));
}

int tellCommand(const std::string& state, const std::string& camera, const std::string& text) {
    return withStore([&] {
        const std::string directory = stateDirectoryOf(state);
        std::string answer;
        try {
            answer = tellHost(directory, camera, text);
        } catch (const std::runtime_error& error) {
            throw SourceError(EX_UNAVAILABLE, error.what());
        }
        if (!answer.empty()) throw SourceError(EX_DATAERR, answer);
        return EX_OK;
    });
}

int eventsCommand(const EventsOptions& options) {
    return withStore([&options] {
        StoreReader reader(stateDirectoryOf(options.state));
        Printer printer(options);
        if (options.what_if.empty())
            reader.events(options.filter, [&printer](const StoredEvent& event) { printer.print(event); });
        else
            printWhatIf(reader, options, printer);
        printer.finish();
        return EX_OK;
    });
}

int dbCheckCommand(const std::string& state) {
    return withStore([&state] {
        const std::vector<std::string> faults = StoreReader(stateDirectoryOf(state)).check();
        for (const std::string& fault : faults) logError("", fault);
        if (faults.empty()) std::puts("the store is whole");
        return faults.empty() ? EX_OK : EX_DATAERR;
    });
}

int dbBackupCommand(const std::string& state, const std::string& path) {
    return withStore([&] {
        if (std::filesystem::exists(path)) throw SourceError(EX_CANTCREAT, path + ": exists already");
        StoreReader(stateDirectoryOf(state)).backup(path);
        return EX_OK;
    });
}

std::int64_t parseTime(const std::string& text, std::int64_t now_ns) {
    constexpr const char* kExpected = "expected a time such as 2026-11-21 or 2026-11-21T08:15:02 (UTC), or 36h, 7d";
    const char* at = text.data();
    const char* const end = at + text.size();
    const auto number = [&at, end] {
        int value = 0;
        const auto [next, error] = std::from_chars(at, end, value);
        if (error != std::errc() || value < 0) throw ValueError(kExpected);
        at = next;
        return value;
    };
    const auto skip = [&at, end](char sign) { return at != end && *at == sign ? (++at, true) : false; };
    const int first = number();
    if (const std::string unit(at, end); unit == "min" || unit == "h" || unit == "d")
        return now_ns - std::int64_t{first} * (unit == "d" ? 86400 : unit == "h" ? 3600 : 60) * kSecondNs;
    std::array<int, 5> fields{};  // month, day, hour, minute, second
    constexpr std::string_view kSigns = "--T::";
    std::size_t count = 0;
    while (count < fields.size() && skip(kSigns[count])) fields[count++] = number();
    const bool time = count > 2;
    if (time) skip('Z');
    const std::chrono::year_month_day day{std::chrono::year(first),
                                          std::chrono::month(static_cast<unsigned>(fields[0])),
                                          std::chrono::day(static_cast<unsigned>(fields[1]))};
    if (at != end || count < 2 || count == 3 || !day.ok() || fields[2] > 23 || fields[3] > 59 || fields[4] > 59)
        throw ValueError(kExpected);
    return (std::chrono::sys_days(day).time_since_epoch().count() * std::int64_t{86400} + fields[2] * 3600 +
            fields[3] * 60 + fields[4]) *
           kSecondNs;
}

}  // namespace fleifeisa::host
