// What users would build from OpenCV alone: a video file through VideoCapture and the MOG2 pipeline, no tracks.
//
// usage: opencv_chain FILE        prints the number of frames, of outer contours, and what OpenCV uses
#include <cstdio>
#include <memory>
#include <opencv2/videoio.hpp>

#include "bench/compare/opencv_pipeline.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: opencv_chain FILE\n", stderr);
        return 64;
    }
    cv::VideoCapture video(argv[1]);
    if (!video.isOpened()) {
        std::fprintf(stderr, "opencv_chain: %s cannot be opened\n", argv[1]);
        return 66;
    }
    std::unique_ptr<bench::OpenCvPipeline> pipeline;
    cv::Mat frame;
    long frames = 0;
    std::size_t objects = 0;
    while (video.read(frame)) {
        if (!pipeline)
            pipeline = std::make_unique<bench::OpenCvPipeline>(bench::Subtractor::kMog2, frame.cols, frame.rows);
        pipeline->run(frame.data);
        objects += pipeline->objects();
        ++frames;
    }
    std::printf("%ld frames, %zu contours, %s\n", frames, objects, bench::OpenCvPipeline::description().c_str());
    return frames > 0 ? 0 : 65;
}
