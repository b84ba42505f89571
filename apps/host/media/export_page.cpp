// What can be read of an export: a page without script, and JSON.
#include <algorithm>

#include "common/text.h"
#include "media/export.h"
#include "store/media_files.h"

namespace fleifeisa::host {
namespace {

constexpr const char* kStyle = R"(
body{font:15px/1.4 system-ui,sans-serif;margin:2em auto;max-width:70em;padding:0 1em;color:#222;background:#fff}
article{display:flex;gap:1em;border-top:1px solid #ddd;padding:1em 0;flex-wrap:wrap}
article img.thumb{width:20em;max-width:100%}
video{width:40em;max-width:100%;background:#000}
img.strip{max-width:100%;display:block;margin-top:.5em}
h2{font-size:1em;margin:0}dl{margin:.3em 0;display:grid;grid-template-columns:max-content 1fr;gap:0 1em}
dt{color:#666}dd{margin:0}a{color:#0645ad}
@media(prefers-color-scheme:dark){body{background:#181818;color:#ddd}article{border-color:#444}a{color:#8ab4f8}dt{color:#aaa}}
)";

std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : cleanUtf8(text)) {
        if (c == '<')
            result += "&lt;";
        else if (c == '>')
            result += "&gt;";
        else if (c == '&')
            result += "&amp;";
        else if (c == '"')
            result += "&quot;";
        else
            result += c;
    }
    return result;
}

std::string localTime(std::int64_t time_ns, const TimeZone& zone) {
    constexpr std::int64_t kSecondNs = 1'000'000'000;
    std::string text = rfc3339(time_ns + zone.offsetAt(time_ns / kSecondNs).seconds * kSecondNs).substr(0, 19);
    text[10] = ' ';
    return text;
}

const StoredMedia* find(const ExportedEvent& event, MediaKind kind) {
    const auto found = std::ranges::find(event.files, kind, &StoredMedia::kind);
    return found == event.files.end() ? nullptr : &*found;
}

std::string article(const ExportedEvent& one, const TimeZone& zone) {
    const CameraEvent& event = one.event.event;
    const std::string id = escaped(eventId(event.camera, event.number));
    std::string html = "<article id=\"" + id + "\">\n";
    const auto file = [&one](MediaKind kind) {
        const StoredMedia* found = find(one, kind);
        return found ? escaped(found->file) : std::string();
    };
    if (const std::string thumb = file(MediaKind::kThumb); !thumb.empty())
        html +=
            "<a href=\"" + file(MediaKind::kPicture) + "\"><img class=\"thumb\" alt=\"\" src=\"" + thumb + "\"></a>\n";
    html += "<div><h2>" + id + ": " + nameOf(event.kind) + (event.rule.empty() ? "" : " " + escaped(event.rule)) +
            "</h2><dl>";
    const auto row = [&html](const char* name, const std::string& text) {
        if (!text.empty()) html += std::string("<dt>") + name + "</dt><dd>" + escaped(text) + "</dd>";
    };
    row("start", localTime(event.start_ns, zone));
    row("end", event.end_ns ? localTime(*event.end_ns, zone) : "runs");
    row("what", one.event.changes);
    row("reason", event.reason);
    row("text", event.text);
    row("value", event.value ? valueText(*event.value) : "");
    row("track", event.track > 0 ? std::to_string(event.track) : "");
    row("told", event.held ? "held back" : "");
    html += "</dl>";
    if (const std::string box = file(MediaKind::kBox); !box.empty()) html += "<a href=\"" + box + "\">with its box</a>";
    html += "</div>\n";
    const std::string playable = file(MediaKind::kPlayable),
                      clip = playable.empty() ? file(MediaKind::kClip) : playable;
    if (!clip.empty()) html += "<video controls preload=\"none\" src=\"" + clip + "\"></video>\n";
    if (const std::string strip = file(MediaKind::kStrip); !strip.empty())
        html += "<img class=\"strip\" alt=\"one picture a second\" loading=\"lazy\" src=\"" + strip + "\">\n";
    return html + "</article>\n";
}

}  // namespace

std::string exportPage(const std::vector<ExportedEvent>& events, const TimeZone& zone) {
    std::string html =
        "<!doctype html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><meta name=\"viewport\" "
        "content=\"width=device-width\">\n<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
        "img-src 'self'; media-src 'self'; style-src 'unsafe-inline'\">\n<title>Events</title>\n<style>" +
        std::string(kStyle) + "</style></head><body>\n<h1>Events</h1>\n<p>" + std::to_string(events.size()) +
        " events; times of " + escaped(zone.name()) +
        ". The same for programs: <a href=\"events.json\">events.json</a></p>\n";
    for (const ExportedEvent& event : events) html += article(event, zone);
    return html + "</body></html>\n";
}

std::string exportJson(const std::vector<ExportedEvent>& events) {
    std::string json = "[";
    for (const ExportedEvent& one : events) {
        std::string object = eventJson(one.event.event, one.event.pictures, one.event.clip);
        object.pop_back();
        json += (json.size() > 1 ? ",\n" : "\n") + object + ",\"keep\":" + (one.event.keep ? "true" : "false") +
                ",\"files\":[";
        for (const StoredMedia& media : one.files)
            json += (&media == one.files.data() ? "" : ",") + std::string("{\"kind\":\"") + nameOf(media.kind) +
                    "\",\"file\":" + jsonString(media.file) + ",\"start_ns\":" + std::to_string(media.start_ns) +
                    ",\"end_ns\":" + std::to_string(media.end_ns) +
                    (media.details.empty() ? "" : ",\"details\":" + media.details) + '}';
        json += "]}";
    }
    return json + "\n]\n";
}

}  // namespace fleifeisa::host
