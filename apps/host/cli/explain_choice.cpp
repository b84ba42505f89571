#include "cli/explain_choice.h"

#include <filesystem>

#include "common/process.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

// An explaining analyzer takes a few hundred kilobytes more; what is asked of it is answered in some more of the host.
// Where that could matter everything else is near its end, too.
constexpr std::int64_t kLeastLeft = 64 << 20;

/// The other build lies beside the analyzer. Of somebody else's analyzer there is none.
std::string explainerOf(const std::string& analyzer) {
    const fs::path path(analyzer);
    return path.filename() == "fleifeisa" ? findProgram((path.parent_path() / "fleifeisa-explain").string()) : "";
}

}  // namespace

void chooseExplain(CameraConfig& camera, bool page, std::optional<std::int64_t> memory_left) {
    camera.analyzer.explainer.clear();
    camera.explain_off.clear();
    if (!camera.explain.value_or(page)) {
        camera.explain_off = camera.explain ? "the configuration says so" : "there is no page";
        return;
    }
    if (memory_left && *memory_left < kLeastLeft) {
        camera.explain_off = "memory is short, " + std::to_string(*memory_left >> 20) +
                             " MB were left at the start of " + std::to_string(kLeastLeft >> 20) + " that are wanted";
        return;
    }
    camera.analyzer.explainer = explainerOf(camera.analyzer.program);
    if (camera.analyzer.explainer.empty()) camera.explain_off = "there is no fleifeisa-explain beside the analyzer";
}

}  // namespace fleifeisa::host
