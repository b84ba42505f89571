#include "support/replay.h"

#include <cstdlib>
#include <iostream>
#include <memory>

#include "host/Streaming.h"
#include "support/protocol.h"

void Replay(const std::string& requests, const ReplayOptions& options,
            const std::function<void(const ReplayedFrame&)>& show) {
    RedirectedStreams streams(requests);
    KsColorImage image;
    std::unique_ptr<ColorDiffTracker> tracker;
    int frame = 0, relearn = 0, devid = 3, analyzerid = 5;
    while (std::cin.peek() != std::char_traits<char>::eof()) {
        streamin message = StreamIO(&image);
        if (message.ret_status == kShutdown) break;
        if (message.ret_status != kFrame) continue;
        frame++;
        FrameMode mode = FrameMode::kFirst;
        if (!tracker) {
            tracker = MakeTracker(options.type, image, options.bg_frames);
            AckOK(message);
        } else {
            const bool learning = frame <= options.bg_frames;
            const bool detect = !learning && relearn == 0;
            mode = detect ? FrameMode::kDetect : FrameMode::kLearn;
            if (detect) tracker->DetectForeground(image, frame, 0.25f, 0.5f, 1.0f, 2.0f);
            tracker->UpdateBackground(image, !detect);
            if (relearn > 0) relearn--;
            if (!learning && relearn == 0) {
                tracker->OutputAnalyticsXML(devid, message.timestamp, message.sequence_num, analyzerid);
            } else {
                AckOK(message);
                if (relearn > 0) relearn--;
            }
        }
        show({frame, mode, *tracker, streams.Take()});
        const auto change = options.changes.find(frame);
        if (change != options.changes.end()) relearn = change->second;
        image.KsFreeImageMemory();
        image.Detach();
        std::free(message.status);
        std::free(message.status_text);
        std::free(message.timestamp);
    }
}
