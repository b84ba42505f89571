#include "outputs/recording.h"

#include <utility>

#include "outputs/digest.h"

namespace fleifeisa::host {
namespace {

constexpr std::string_view kEnd = "ANALYTICS.CARTRIDGE\r\nCommand: SHUTDOWN\r\n\r\n";

}  // namespace

std::string recordedReply(std::string_view request, std::span<const std::uint8_t> rgb, std::string_view reply) {
    const std::span<const char> pixels(reinterpret_cast<const char*>(rgb.data()), rgb.size());
    return std::to_string(reply.size()) + " " + digestOf({reply}) + " " + digestOf({request, pixels});
}

void RecordingOutput::note(std::string_view name, std::string_view value) {
    file_.write("ANALYTICS.CARTRIDGE\r\n");
    file_.write(name);
    file_.write(": ");
    file_.write(value);
    file_.write("\r\n\r\n");
}

void RecordingOutput::started(const CameraInfo& camera) {
    if (std::exchange(begun_, true)) {
        if (file_.newFileDue()) {
            file_.write(kEnd);
            file_.endRecord();
        }
        file_.beginSession();
    }
    lost_before_ = file_.lost();
    note("Recording-Start", std::string(camera.infrared ? "IR " : "COLOR ") + std::to_string(camera.device) + " " +
                                std::to_string(camera.analyzer_id));
    controlChanged(camera.control);
}

void RecordingOutput::controlChanged(std::string_view control) {
    if (broken()) return;
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
    if (broken()) {
        ++left_out_;
        return;
    }
    file_.write(result.request);
    file_.write(result.rgb);
    note("Recording-Reply", recordedReply(result.request, result.rgb, result.reply));
    file_.endRecord();  // a full disk leaves whole frames with their answers
}

OutputState RecordingOutput::state() const {
    return {file_.failing() || broken(), file_.lost() + left_out_, !broken() && file_.newFileDue()};
}

void RecordingOutput::finish() {
    if (!std::exchange(finished_, true)) {
        file_.write(kEnd);
        file_.endRecord();
    }
    file_.close();
}

}  // namespace fleifeisa::host
