// The records of archives as JSON.
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "archive/clip.h"
#include "common/text.h"

namespace fleifeisa::host {
namespace {

using Json = nlohmann::ordered_json;

std::string line(const Json& json) {
    // Names of files may hold any bytes.
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json jsonOf(const Clip& clip) {
    Json json{{"camera", clip.camera}, {"file", clip.file}};
    json["start_time_ns"] = clip.start_time_ns ? Json(*clip.start_time_ns) : Json();
    json["bytes"] = clip.bytes;
    json["modified_ns"] = clip.modified_ns;
    if (!clip.part.whole())
        json["part"] = {clip.part.from_ns, clip.part.to_ns, clip.part.warm_up_ns, clip.part.tail_ns, clip.part.parts};
    return json;
}

Clip clipOf(const Json& json) {
    Clip clip;
    json.at("camera").get_to(clip.camera);
    json.at("file").get_to(clip.file);
    if (const Json& start = json.at("start_time_ns"); !start.is_null()) clip.start_time_ns = start.get<std::int64_t>();
    json.at("bytes").get_to(clip.bytes);
    json.at("modified_ns").get_to(clip.modified_ns);
    if (const auto part = json.find("part"); part != json.end())
        clip.part = {part->at(0), part->at(1), part->at(2), part->at(3), part->at(4)};
    return clip;
}

/// @throws std::runtime_error as nlohmann's own errors are, in words that name the record
template <typename Read>
auto parsed(const char* what, std::string_view text, Read read) {
    try {
        return read(Json::parse(text));
    } catch (const nlohmann::json::exception& error) {
        throw std::runtime_error(std::string("no ") + what + ": " + error.what());
    }
}

}  // namespace

std::string toJson(const ClipRun& run) {
    return line({{"name", run.name}, {"clip", jsonOf(run.clip)}, {"configuration", run.configuration}});
}

template <>
ClipRun fromJson<ClipRun>(std::string_view text) {
    return parsed("run of a clip", text, [](const Json& json) {
        return ClipRun{json.at("name"), clipOf(json.at("clip")), json.at("configuration")};
    });
}

std::string toJson(const ClipSummary& s) {
    return line({{"name", s.name},
                 {"clip", jsonOf(s.clip)},
                 {"damage", s.damage},
                 {"frames", s.frames},
                 {"detected", s.detected},
                 {"size", {s.width, s.height}},
                 {"first_ns", s.first_ns},
                 {"last_ns", s.last_ns},
                 {"tracks", s.tracks},
                 {"events", s.events},
                 {"frames_hash", s.frames_hash},
                 {"replies_hash", s.replies_hash},
                 {"tracks_hash", s.tracks_hash},
                 {"events_hash", s.events_hash}});
}

template <>
ClipSummary fromJson<ClipSummary>(std::string_view text) {
    return parsed("summary of a clip", text, [](const Json& json) {
        ClipSummary s;
        s.name = json.at("name");
        s.clip = clipOf(json.at("clip"));
        s.damage = json.at("damage");
        s.frames = json.at("frames");
        s.detected = json.at("detected");
        s.width = json.at("size").at(0);
        s.height = json.at("size").at(1);
        s.first_ns = json.at("first_ns");
        s.last_ns = json.at("last_ns");
        s.tracks = json.at("tracks");
        s.events = json.at("events");
        s.frames_hash = json.at("frames_hash");
        s.replies_hash = json.at("replies_hash");
        s.tracks_hash = json.at("tracks_hash");
        s.events_hash = json.at("events_hash");
        return s;
    });
}

std::string toJson(const ClipCost& cost) {
    return line({{"node", cost.node},
                 {"ended_ns", cost.ended_ns},
                 {"seconds", cost.seconds},
                 {"cpu_seconds", cost.cpu_seconds},
                 {"peak_bytes", cost.peak_bytes},
                 {"warnings", cost.warnings}});
}

template <>
ClipCost fromJson<ClipCost>(std::string_view text) {
    return parsed("cost of a clip", text, [](const Json& json) {
        return ClipCost{json.at("node"),        json.at("ended_ns"),   json.at("seconds"),
                        json.at("cpu_seconds"), json.at("peak_bytes"), json.at("warnings")};
    });
}

std::string toJson(const ClipFailure& failure) {
    return line(
        {{"name", failure.name}, {"reason", failure.reason}, {"node", failure.node}, {"lasting", failure.lasting}});
}

template <>
ClipFailure fromJson<ClipFailure>(std::string_view text) {
    return parsed("failure of a clip", text, [](const Json& json) {
        return ClipFailure{json.at("name"), json.at("reason"), json.at("node"), json.at("lasting")};
    });
}

}  // namespace fleifeisa::host
