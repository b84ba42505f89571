#include "bench/compare/opencv_pipeline.h"

#include <opencv2/bgsegm.hpp>
#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/background_segm.hpp>
#include <sstream>
#include <vector>

#include "bench/compare/cpu_clock.h"

namespace bench {

struct OpenCvPipeline::State {
    int width = 0;
    int height = 0;
    cv::Ptr<cv::BackgroundSubtractor> subtractor;
    cv::Mat kernel = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3));
    // Kept from frame to frame, so that nothing is allocated anew without need.
    cv::Mat mask, opened, closed, labels, statistics, centres;
    std::vector<std::vector<cv::Point>> contours;
    std::vector<std::vector<cv::Point>> polygons;
};

OpenCvPipeline::OpenCvPipeline(Subtractor kind, int width, int height) : state_(std::make_unique<State>()) {
    state_->width = width;
    state_->height = height;
    cv::setNumThreads(1);
    if (kind == Subtractor::kMog2) {
        state_->subtractor = cv::createBackgroundSubtractorMOG2(500, 16.0, /*detectShadows=*/false);
    } else {
        state_->subtractor =
            cv::bgsegm::createBackgroundSubtractorCNT(15, /*useHistory=*/true, 15 * 60, /*isParallel=*/false);
    }
}

OpenCvPipeline::~OpenCvPipeline() = default;

StageSeconds OpenCvPipeline::run(const uint8_t* rgb) {
    State& s = *state_;
    // The stages work on any order of three channels; the pixels are only read.
    const cv::Mat frame(s.height, s.width, CV_8UC3, const_cast<uint8_t*>(rgb));
    const double t0 = threadSeconds();
    s.subtractor->apply(frame, s.mask);
    const double t1 = threadSeconds();
    cv::morphologyEx(s.mask, s.opened, cv::MORPH_OPEN, s.kernel);
    cv::morphologyEx(s.opened, s.closed, cv::MORPH_CLOSE, s.kernel);
    const double t2 = threadSeconds();
    cv::connectedComponentsWithStats(s.closed, s.labels, s.statistics, s.centres, 8, CV_32S);
    const double t3 = threadSeconds();
    cv::findContours(s.closed, s.contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
    s.polygons.resize(s.contours.size());
    for (size_t i = 0; i < s.contours.size(); ++i) cv::approxPolyDP(s.contours[i], s.polygons[i], 1.41, true);
    const double t4 = threadSeconds();
    return {{t1 - t0, t2 - t1, t3 - t2, t4 - t3}};
}

size_t OpenCvPipeline::objects() const {
    return state_->contours.size();
}

bool OpenCvPipeline::available() {
    return true;
}

std::string OpenCvPipeline::description() {
    cv::setNumThreads(1);
    std::string extensions;
    std::istringstream information(cv::getBuildInformation());
    for (std::string line; std::getline(information, line);) {
        if (line.find("Dispatched code generation") == std::string::npos) continue;
        extensions = line.substr(line.find(':') + 1);
        extensions.erase(0, extensions.find_first_not_of(' '));
    }
    std::string running;  // what this processor really gets
    for (const auto& [feature, name] : {std::pair{CV_CPU_AVX, "AVX"}, std::pair{CV_CPU_AVX2, "AVX2"},
                                        std::pair{CV_CPU_AVX512_SKX, "AVX512_SKX"}, std::pair{CV_CPU_NEON, "NEON"}}) {
        if (cv::checkHardwareSupport(feature)) running += std::string(running.empty() ? "" : " ") + name;
    }
    return "OpenCV " + cv::getVersionString() + ", " + std::to_string(cv::getNumThreads()) +
           " thread, dispatched for " + extensions + "; used here: " + running;
}

}  // namespace bench
