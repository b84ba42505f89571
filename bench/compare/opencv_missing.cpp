// Takes the place of opencv_pipeline.cpp where OpenCV is not installed: the analyzer is then measured alone.
#include <stdexcept>

#include "bench/compare/opencv_pipeline.h"

namespace bench {

struct OpenCvPipeline::State {};

OpenCvPipeline::OpenCvPipeline(Subtractor, int, int) {
    throw std::logic_error("built without OpenCV");
}
OpenCvPipeline::~OpenCvPipeline() = default;
StageSeconds OpenCvPipeline::run(const uint8_t*) {
    return {};
}
size_t OpenCvPipeline::objects() const {
    return 0;
}
bool OpenCvPipeline::available() {
    return false;
}
std::string OpenCvPipeline::description() {
    return "built without OpenCV: the analyzer is measured alone";
}

}  // namespace bench
