#include "accuracy/mog2.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/background_segm.hpp>

#include "tracks/constants.h"

using namespace fleifeisa::host;

struct Mog2::State {
    cv::Ptr<cv::BackgroundSubtractorMOG2> model;
    bool split;
    cv::Mat mask, labels, stats, centres;
    std::vector<Blob> blobs;
};

Mog2::Mog2(bool split_people) : state_(std::make_unique<State>()) {
    state_->model = cv::createBackgroundSubtractorMOG2(500, 16, true);
    state_->split = split_people;
}

Mog2::~Mog2() = default;

std::span<const Blob> Mog2::frame(std::span<const std::uint8_t> rgb, int width, int height) {
    State& s = *state_;
    const cv::Mat image(height, width, CV_8UC3, const_cast<std::uint8_t*>(rgb.data()));
    s.model->apply(image, s.mask);
    cv::threshold(s.mask, s.mask, 200, 255, cv::THRESH_BINARY);  // 127 is shadow
    cv::morphologyEx(s.mask, s.mask, cv::MORPH_OPEN, cv::getStructuringElement(cv::MORPH_CROSS, {3, 3}));
    cv::morphologyEx(s.mask, s.mask, cv::MORPH_CLOSE, cv::getStructuringElement(cv::MORPH_RECT, {3, 3}));
    const int count = cv::connectedComponentsWithStats(s.mask, s.labels, s.stats, s.centres, 8);
    const int least = static_cast<int>(std::lround(kLeastComponent * width * height));
    s.blobs.clear();
    for (int i = 1; i < count; ++i) {
        const int pixels = s.stats.at<int>(i, cv::CC_STAT_AREA);
        if (pixels < least) continue;
        Component one;
        one.pixels = pixels;
        one.box = {s.stats.at<int>(i, cv::CC_STAT_LEFT), s.stats.at<int>(i, cv::CC_STAT_TOP),
                   s.stats.at<int>(i, cv::CC_STAT_WIDTH), s.stats.at<int>(i, cv::CC_STAT_HEIGHT)};
        std::vector<Run> runs;
        for (int y = one.box.top; y < one.box.bottom(); ++y)
            for (int x = one.box.left; x < one.box.right(); ++x)
                if (s.labels.at<int>(y, x) == i) runs.push_back({y, x, x + 1});
        one.runs = runs;
        if (s.split)
            splitPeople(one, s.blobs);
        else
            s.blobs.push_back({one.box, pixels});
    }
    std::stable_sort(s.blobs.begin(), s.blobs.end(), [](const Blob& a, const Blob& b) { return a.pixels > b.pixels; });
    if (s.blobs.size() > static_cast<std::size_t>(kMostBlobs)) s.blobs.resize(kMostBlobs);
    joinPieces(s.blobs, [](std::int64_t, std::int64_t) { return false; });
    return s.blobs;
}
