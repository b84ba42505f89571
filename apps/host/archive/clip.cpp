#include "archive/clip.h"

#include <filesystem>

#include "outputs/digest.h"
#include "sources/source.h"

namespace fleifeisa::host {
namespace {

/// Part of every name: with another form of results all of them are made anew.
constexpr std::string_view kForm = "clip run 1";

constexpr std::size_t kStem = 40, kHash = 16;  // characters of a name

}  // namespace

ClipRun clipRun(Clip clip, std::string configuration, std::string_view version, std::string trial) {
    ClipRun run{"", std::move(clip), std::move(configuration), std::move(trial)};
    const std::string whole = toJson(run);
    const std::string hash = digestOf({kForm, version, whole}).substr(0, kHash);
    run.name = run.clip.camera + '.' + cameraName(run.clip.file).substr(0, kStem) + '.' + hash;
    return run;
}

}  // namespace fleifeisa::host
