#include "tracks/track.h"

namespace fleifeisa::host {

const char* nameOf(TrackState state) {
    switch (state) {
        case TrackState::kTentative:
            return "tentative";
        case TrackState::kConfirmed:
            return "confirmed";
        case TrackState::kCoasting:
            return "coasting";
        case TrackState::kStopped:
            return "stopped";
        case TrackState::kEnded:
            break;
    }
    return "ended";
}

const char* nameOf(TrackEnd end) {
    switch (end) {
        case TrackEnd::kNone:
            return "";
        case TrackEnd::kLeft:
            return "left";
        case TrackEnd::kLost:
            return "lost";
        case TrackEnd::kStopped:
            return "stopped";
        case TrackEnd::kSource:
            return "source";
        case TrackEnd::kClock:
            break;
    }
    return "clock";
}

const char* nameOf(SceneState state) {
    switch (state) {
        case SceneState::kLearning:
            return "learning";
        case SceneState::kWatching:
            return "watching";
        case SceneState::kChanged:
            return "changed";
        case SceneState::kBlind:
            return "blind";
        case SceneState::kLost:
            break;
    }
    return "lost";
}

}  // namespace fleifeisa::host
