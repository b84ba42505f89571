#include "outputs/recording.h"

#include <cstdio>

namespace fleifeisa::host {

std::uint64_t fnv1a(std::string_view bytes) {
    std::uint64_t hash = 14695981039346656037u;
    for (const char byte : bytes) hash = (hash ^ static_cast<unsigned char>(byte)) * 1099511628211u;
    return hash;
}

void RecordingOutput::note(std::string_view name, std::string_view value) {
    file_.write("ANALYTICS.CARTRIDGE\r\n");
    file_.write(name);
    file_.write(": ");
    file_.write(value);
    file_.write("\r\n\r\n");
}

void RecordingOutput::started(const CameraInfo& camera) {
    note("Recording-Start", std::string(camera.infrared ? "IR " : "COLOR ") + std::to_string(camera.device) + " " +
                                std::to_string(camera.analyzer_id));
    controlChanged(camera.control);
}

void RecordingOutput::controlChanged(std::string_view control) {
    // An empty value begins the new text, so that a file with fewer lines than before loses the old ones.
    note("Recording-Control", "");
    while (!control.empty()) {
        const std::size_t end = control.find('\n');
        const std::string_view line = control.substr(0, end);
        if (!line.empty()) note("Recording-Control", line);
        control.remove_prefix(end == std::string_view::npos ? control.size() : end + 1);
    }
}

void RecordingOutput::frame(const FrameResult& result) {
    file_.write(result.request);
    file_.write(result.rgb);
    char text[64];
    std::snprintf(text, sizeof text, "%zu %016llx", result.reply.size(),
                  static_cast<unsigned long long>(fnv1a(result.reply)));
    note("Recording-Reply", text);
    file_.endRecord();  // a full disk leaves whole frames with their answers
}

void RecordingOutput::finish() {
    if (finished_) return;
    finished_ = true;
    file_.write("ANALYTICS.CARTRIDGE\r\nCommand: SHUTDOWN\r\n\r\n");
    file_.endRecord();
    file_.close();
}

}  // namespace fleifeisa::host
