// The configuration: settings, or faults of one line that name the file.
#include "cli/config.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/bytes.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace fleifeisa::host;
    std::vector<std::string> errors;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const HostConfig config = parseConfig(text, "/nowhere/c.toml", errors);
    for (const std::string& error : errors) FUZZ_CHECK(error.starts_with("/nowhere/c.toml:"), "%s", error.c_str());
    FUZZ_CHECK(!config.cameras.empty() || !errors.empty(), "cameras or a fault");
    if (errors.empty())
        for (const CameraConfig& camera : config.cameras) {
            FUZZ_CHECK(isCameraName(camera.name) && !camera.source.source.empty(), "a whole camera");
            FUZZ_CHECK(camera.analyzer.device >= 0 && camera.source.rate >= 0 && camera.source.rate <= 1000,
                       "in its bounds");
        }
    return 0;
}
