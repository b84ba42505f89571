#include "sources/source.h"

#include <sys/stat.h>
#include <sysexits.h>

#include <filesystem>

#include "scenes/scene.h"
#include "sources/ffmpeg_source.h"
#include "sources/recording_source.h"

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kBillion = 1'000'000'000;

class SceneSource : public Source {
 public:
    explicit SceneSource(const std::string& description) try : scene_(scenes::parseScene(description)) {
    } catch (const std::invalid_argument& error) {
        throw SourceError(EX_USAGE, error.what());
    }

    bool next(RawFrame& frame) override {
        const scenes::SceneDescription& wanted = scene_.description();
        if (wanted.frames != 0 && number_ >= wanted.frames) return false;
        frame.layout = {*findFormat("rgb24"), wanted.width, wanted.height};
        frame.bytes.resize(frameBytes(frame.layout));
        scene_.render(number_, frame.bytes);
        frame.time_ns = number_ * kBillion / wanted.rate;
        ++number_;
        return true;
    }
    std::int64_t expectedFrames() const override { return scene_.description().frames; }
    double rate() const override { return scene_.description().rate; }

 private:
    scenes::Scene scene_;
    std::int64_t number_ = 0;
};

bool isUrl(const std::string& source) {
    return source.find("://") != std::string::npos;
}

bool isDevice(const std::string& source) {
    struct stat status {};
    return ::stat(source.c_str(), &status) == 0 && S_ISCHR(status.st_mode);
}

}  // namespace

bool isLive(const SourceOptions& options) {
    if (options.live) return *options.live;
    return isUrl(options.source) || isDevice(options.source);
}

bool needsDecoder(const SourceOptions& options) {
    return !options.source.starts_with("scene:") && !isRecording(options.source);
}

std::string baseName(const std::string& source) {
    std::string name = source.substr(0, source.find('?'));
    for (const char* prefix : {"scene:", "list:"})
        if (name.starts_with(prefix)) return baseName(name.substr(std::string(prefix).size()));
    while (name.size() > 1 && name.ends_with('/')) name.pop_back();
    name = std::filesystem::path(name).stem().string();
    for (char& c : name)
        if (static_cast<unsigned char>(c) <= ' ' || c == ':' || c == '/' || c == '@') c = '_';
    return name.empty() ? "camera" : name;
}

std::unique_ptr<Source> openSource(const SourceOptions& options, const Event& stop) {
    if (options.source.starts_with("scene:")) return std::make_unique<SceneSource>(options.source);
    if (isRecording(options.source)) return std::make_unique<RecordingSource>(options.source);
    return std::make_unique<FfmpegSource>(options, stop);
}

}  // namespace fleifeisa::host
