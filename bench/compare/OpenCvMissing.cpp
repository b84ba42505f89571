// Takes the place of OpenCvPipeline.cpp where OpenCV is not installed: the analyzer is then measured alone.
#include <stdexcept>

#include "bench/compare/OpenCvPipeline.h"

namespace bench {

struct OpenCvPipeline::State {};

OpenCvPipeline::OpenCvPipeline(Subtractor, int, int) {
    throw std::logic_error("built without OpenCV");
}
OpenCvPipeline::~OpenCvPipeline() = default;
StageSeconds OpenCvPipeline::Run(const uint8_t*) {
    return {};
}
size_t OpenCvPipeline::Objects() const {
    return 0;
}
bool OpenCvPipeline::Available() {
    return false;
}
std::string OpenCvPipeline::Description() {
    return "built without OpenCV: the analyzer is measured alone";
}

}  // namespace bench
