#include "sources/source.h"

#include <sys/stat.h>
#include <sysexits.h>

#include <algorithm>
#include <filesystem>

#include "common/secrets.h"
#include "scenes/scene.h"
#include "sources/ffmpeg_command.h"
#include "sources/ffmpeg_source.h"
#include "sources/images.h"
#include "sources/packet_sink.h"
#include "sources/protocols.h"
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

bool isScene(const std::string& source) {
    return source.starts_with("scene:");
}

/// Also a camera that is not plugged in at the moment.
bool isDevice(const std::string& source) {
    struct stat status {};
    if (::stat(source.c_str(), &status) == 0) return S_ISCHR(status.st_mode);
    return source.starts_with("/dev/video");
}

bool isImages(const std::string& source) {
    if (source.starts_with("list:")) return true;
    std::error_code error;
    if (std::filesystem::is_directory(source, error)) return true;
    return isImageName(source) && std::filesystem::is_regular_file(source, error);
}

/// @throws SourceError where the region leaves a picture of this size
void checkRegion(const std::optional<Region>& region, int width, int height) {
    if (!region || (region->left + region->width <= width && region->top + region->height <= height)) return;
    const auto pair = [](int a, char sign, int b) { return std::to_string(a) + sign + std::to_string(b); };
    throw SourceError(EX_USAGE, "the region " + pair(region->width, 'x', region->height) + "+" +
                                    pair(region->left, '+', region->top) + " leaves the picture of " +
                                    pair(width, 'x', height));
}

/// Refuses frames that do not hold the wanted region.
class RegionGuard : public Source {
 public:
    RegionGuard(std::unique_ptr<Source> inner, const Region& region) : inner_(std::move(inner)), region_(region) {}

    bool next(RawFrame& frame) override {
        if (!inner_->next(frame)) return false;
        checkRegion(region_, frame.layout.width, frame.layout.height);
        return true;
    }
    std::int64_t expectedFrames() const override { return inner_->expectedFrames(); }
    double rate() const override { return inner_->rate(); }
    std::string complaints() const override { return inner_->complaints(); }
    std::vector<std::string> takeWarnings() override { return inner_->takeWarnings(); }

 private:
    std::unique_ptr<Source> inner_;
    Region region_;
};

}  // namespace

bool isLive(const SourceOptions& options) {
    return options.live.value_or(isCameraSource(options));
}

bool isCameraSource(const SourceOptions& options) {
    return isUrl(options.source) || isDevice(options.source);
}

bool hasDates(const SourceOptions& options) {
    return isLive(options) || options.start_time_ns;
}

bool isSynthetic(const SourceOptions& options) {
    return isScene(options.source) || (!isUrl(options.source) && isRecording(options.source));
}

std::string baseName(const std::string& source) {
    if (isUrl(source)) {
        // The last part of the path that may be seen, else the host.
        std::string rest = withoutSecrets(source);
        rest = rest.substr(rest.find("://") + 3);
        rest = rest.substr(0, rest.find('?'));
        if (rest.starts_with("***@")) rest.erase(0, 4);
        while (rest.find('/') != std::string::npos && (rest.ends_with('/') || rest.ends_with("***")))
            rest.erase(rest.rfind('/'));
        const std::size_t slash = rest.rfind('/');
        return slash == std::string::npos ? rest : std::filesystem::path(rest.substr(slash + 1)).stem().string();
    }
    for (const char* prefix : {"scene:", "list:"})
        if (source.starts_with(prefix)) return baseName(source.substr(std::string_view(prefix).size()));
    std::string name = source.substr(0, source.find('?'));
    while (name.size() > 1 && name.ends_with('/')) name.pop_back();
    name = std::filesystem::path(name).stem().string();
    return name.empty() ? "camera" : name;
}

std::string cameraName(const std::string& source) {
    std::string name = baseName(source).substr(0, 64);
    for (char& c : name)
        if (!isCameraName(std::string_view(&c, 1))) c = '_';
    return name.empty() ? "camera" : name;
}

bool isCameraName(std::string_view name) {
    const auto allowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
    };
    return !name.empty() && name.size() <= 64 && std::ranges::all_of(name, allowed);
}

std::string sourceFault(const SourceOptions& options) {
    if (isUrl(options.source)) return urlFault(options.source);
    if (!isScene(options.source)) return "";
    try {
        const scenes::SceneDescription scene = scenes::parseScene(options.source);
        checkRegion(options.region, scene.width, scene.height);
    } catch (const std::exception& error) {
        return error.what();
    }
    return "";
}

std::string idleRateFault(const SourceOptions& options) {
    const bool saves = options.rate <= 0 || options.idle_rate < options.rate;
    return saves ? "" : "an idle rate is lower than the rate: it holds while nothing moves";
}

void checkSource(const SourceOptions& options) {
    if (const std::string fault = sourceFault(options); !fault.empty()) throw SourceError(EX_USAGE, fault);
    if (isSynthetic(options)) return;
    if (isImages(options.source)) {
        const Event never;
        const ImageSource names_only(options, never);
    } else {
        ffmpegCommand(options);
    }
}

namespace {

std::unique_ptr<Source> openAny(const SourceOptions& options, const Event& stop, PacketSink* sink) {
    const bool decoded = !isSynthetic(options) && !isImages(options.source);
    if (decoded) return std::make_unique<FfmpegSource>(options, stop, sink);
    if (sink) sink->codec("");
    if (isScene(options.source)) return std::make_unique<SceneSource>(options.source);
    if (isSynthetic(options)) return std::make_unique<RecordingSource>(options.source);
    return std::make_unique<ImageSource>(options, stop);
}

}  // namespace

std::unique_ptr<Source> openSource(const SourceOptions& options, const Event& stop, PacketSink* sink) {
    auto source = openAny(options, stop, sink);
    if (!options.region) return source;
    return std::make_unique<RegionGuard>(std::move(source), *options.region);
}

}  // namespace fleifeisa::host
