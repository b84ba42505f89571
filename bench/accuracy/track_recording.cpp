// A recording and its replies through the track filter: MOTChallenge CSV of the tracks that are shown.
//
// usage: track_recording RECORDING REPLIES [--infrared] [--split] [--no-shadow-test] [--least-area SHARE] [--learning
// N]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "analyzer/reply.h"
#include "sources/recording_source.h"
#include "tracks/track_filter.h"

using namespace fleifeisa::host;

int main(int argc, char** argv) {
    if (argc < 3) return 64;
    FilterSettings settings;
    int learning = 300, every = 1;
    bool all = false;
    for (int i = 3; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--infrared") settings.infrared = true;
        if (option == "--split") settings.split_people = true;
        if (option == "--no-shadow-test") settings.shadow_test = false;
        if (option == "--least-area") settings.least_area = std::atof(argv[++i]);
        if (option == "--learning") learning = std::atoi(argv[++i]);
        if (option == "--every") every = std::atoi(argv[++i]);
        if (option == "--all") all = true;
    }
    RecordingReader reader(argv[1]);
    std::ifstream file(argv[2], std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    const std::string replies = text.str();
    std::string_view rest = replies;
    TrackFilter filter(settings, learning / every);
    RecordedMessage message;
    long frame = 0, skipped = 0;
    std::chrono::nanoseconds spent{0};
    SceneState scene = SceneState::kLearning;
    while (reader.next(message)) {
        if (message.kind != RecordedMessage::kFrame) continue;
        Reply reply;
        do {  // replies to start-up messages carry no number
            const std::size_t length = replyLength(rest);
            if (length == 0) {
                std::fprintf(stderr, "replies end at frame %ld\n", frame);
                return 65;
            }
            reply = parseReply(rest.substr(0, length));
            rest.remove_prefix(length);
        } while (!reply.numbered);
        ++frame;
        if (every > 1 && frame % every != 1) {
            ++skipped;
            continue;
        }
        FilterInput input{message.time_ns, message.width, message.height, message.body, reply.detection, reply.objects};
        const auto begin = std::chrono::steady_clock::now();
        const TrackFrame result = filter.frame(input);
        spent += std::chrono::steady_clock::now() - begin;
        if (result.scene != scene) std::fprintf(stderr, "frame %ld: %s\n", frame, nameOf(scene = result.scene));
        for (const Track& t : result.tracks) {
            if (t.state == TrackState::kEnded) {
                std::fprintf(stderr, "frame %ld: track %ld ended %s%s frames %d path %.0f box %d %d %d %d\n", frame,
                             static_cast<long>(t.number), nameOf(t.ended), t.removed ? " removed" : "", t.frames,
                             t.path_px, t.box.left, t.box.top, t.box.width, t.box.height);
                continue;
            }
            const bool shown = t.state == TrackState::kConfirmed || t.state == TrackState::kStopped;
            if (!shown && !all) continue;
            std::printf("%ld,%ld,%d,%d,%d,%d,1,-1,-1,-1%s%s\n", frame, static_cast<long>(t.number), t.box.left + 1,
                        t.box.top + 1, t.box.width, t.box.height, all ? "," : "", all ? (std::string(nameOf(t.state)) + " " + std::to_string(t.area) + " g" + std::to_string(t.merged_with)).c_str() : "");
        }
    }
    std::fprintf(
        stderr, "%ld frames, %.3f ms a frame, %ld tracks\n", frame - skipped,
        std::chrono::duration<double, std::milli>(spent).count() / static_cast<double>(std::max(1L, frame - skipped)),
        static_cast<long>(filter.nextNumber() - 1));
}
