// `fleifeisa-host replay FILE`: the exact requests of a recording, against the analyzer of today.
#include <poll.h>
#include <sysexits.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>

#include "analyzer/reply.h"
#include "cli/commands.h"
#include "cli/replayed_tracks.h"
#include "common/file_writer.h"
#include "common/log.h"
#include "common/private_root.h"
#include "outputs/recording.h"
#include "sources/recording_source.h"

namespace fleifeisa::host {
namespace {

constexpr double kAnswerSeconds = 60;

class Replay {
 public:
    explicit Replay(const ReplayOptions& options)
        : options_(options), reader_(options.recording), tracks_(options.recording, chosenOutputs(options)) {
        settings_.program = foundAnalyzer(options.analyzer);
        settings_.root = root_.path();
        if (!isRecording(options.recording))
            throw SourceError(EX_DATAERR,
                              options.recording + ": this is no recording (play takes videos and pictures)");
        if (!options.replies.empty()) replies_ = std::make_unique<FileWriter>(options.replies);
    }

    int run() {
        RecordedMessage message;
        while (reader_.next(message)) {
            switch (message.kind) {
                case RecordedMessage::kStart:
                    start(message.value);
                    break;
                case RecordedMessage::kHandOver:
                    again_ = tracks_.noteHandOver(message.value);
                    break;
                case RecordedMessage::kControl:
                    control(message.value);
                    break;
                case RecordedMessage::kFrame:
                    frame(message);
                    break;
                case RecordedMessage::kReply:
                    compare(message.value);
                    break;
                case RecordedMessage::kCamera:
                    tracks_.noteCamera(message.value);
                    break;
                case RecordedMessage::kFilter:
                    tracks_.noteFilter(message.value);
                    break;
                case RecordedMessage::kTracks:
                    tracks_.noteTracks(message.value);
                    break;
                case RecordedMessage::kEnded:
                    tracks_.noteEnded(message.value);
                    break;
                case RecordedMessage::kRules:
                    tracks_.noteRules(message.value);
                    break;
                case RecordedMessage::kStep:
                    tracks_.noteStep(message.value);
                    break;
                case RecordedMessage::kEvents:
                    tracks_.noteEvents(message.value);
                    break;
                case RecordedMessage::kOther:
                    ended_ = message.header.find("\r\nCommand: SHUTDOWN\r\n") != std::string::npos;
                    break;
            }
        }
        if (analyzer_) analyzer_->shutdown(std::chrono::seconds(2));
        tracks_.finish();
        if (replies_) replies_->close();
        if (frames_ == 0) throw SourceError(EX_DATAERR, options_.recording + ": no frames in this recording");
        return report();
    }

 private:
    static std::vector<OutputChoice> chosenOutputs(const ReplayOptions& options) {
        std::vector<OutputChoice> choices;
        for (const std::string& text : options.outputs) choices.push_back(parseOutputChoice(text, options.out));
        return choices;
    }

    void start(const std::string& value) {
        if (analyzer_) analyzer_->shutdown(std::chrono::seconds(2));
        analyzer_.reset();
        std::istringstream in(value);
        std::string type;
        if (!(in >> type >> settings_.device >> settings_.analyzer_id) || (type != "COLOR" && type != "IR"))
            throw SourceError(EX_DATAERR, options_.recording + ": malformed Recording-Start");
        settings_.infrared = type == "IR";
        again_ = 0;
        control_.clear();
        CameraInfo camera;
        camera.device = settings_.device;
        camera.analyzer_id = settings_.analyzer_id;
        camera.infrared = settings_.infrared;
        tracks_.start(camera);
    }

    /// Lines are gathered, an empty one begins a new text; the next frame writes the file.
    void control(const std::string& value) {
        control_changed_ = true;
        if (value.empty())
            control_.clear();
        else
            control_ += value + "\n";
    }

    void frame(const RecordedMessage& message) {
        if (std::exchange(control_changed_, false)) {
            if (!control_.empty()) writeControlFile(controlPath(settings_.root, settings_.device), control_);
            tracks_.control(control_);
        }
        if (!analyzer_) analyzer_ = std::make_unique<AnalyzerClient>(settings_);
        analyzer_->send(std::span<const char>(message.header));
        analyzer_->send(std::span<const std::uint8_t>(message.body));
        ++frames_;
        await();
        frame_now_ = recordedReply(message.header, message.body, reply_);
        ended_ = false;
        if (again_ > 0) {
            --again_;
            ++repeated_;
            return tracks_.warmUp(message, reply_);
        }
        tracks_.frame(message, reply_);
        if (!replies_) return;
        replies_->write(std::string_view(reply_));
        replies_->endRecord();
    }

    /// Exchanges bytes until the reply that carries a sequence number is there.
    void await() {
        const Clock::time_point deadline = Clock::now() + seconds(kAnswerSeconds);
        for (;;) {
            while (analyzer_->nextReply(reply_))
                if (parseReply(reply_).numbered) return;
            std::array<pollfd, 3> items = {{{analyzer_->wantsWrite(), POLLOUT, 0},
                                            {analyzer_->wantsRead(), POLLIN, 0},
                                            {analyzer_->wantsErrors(), POLLIN, 0}}};
            if (::poll(items.data(), items.size(), pollTimeout(deadline)) == 0)
                throw AnalyzerError("the analyzer gave no answer for 60 s");
            if (items[2].revents != 0)
                for (const std::string& line : analyzer_->takeErrors()) logDebug("", "analyzer: " + line);
            if (items[0].revents != 0) analyzer_->write();
            if (items[1].revents != 0) analyzer_->read();
        }
    }

    void compare(const std::string& value) {
        ++compared_;
        const auto request = [](const std::string& text) {
            return text.substr(std::min(text.rfind(' '), text.size()));
        };
        if (request(value).size() != request(frame_now_).size())
            throw SourceError(EX_DATAERR, options_.recording + ": its hashes are not those of this version");
        if (value == frame_now_) return;
        const bool changed = request(value) != request(frame_now_);
        if (changed && changed_++ == 0) first_changed_ = frames_;
        if (!changed && different_++ == 0) first_different_ = frames_;
    }

    int report() const {
        if (!options_.verify) {
            std::printf("%s replayed.\n", replayed().c_str());
            return 0;
        }
        if (!ended_) logError("", options_.recording + ": the end is missing, it was cut off or never completed");
        if (compared_ == 0) throw SourceError(EX_DATAERR, options_.recording + ": it holds no replies to compare with");
        if (changed_ > 0)
            logError("", std::to_string(changed_) +
                             " frames are not those that were recorded, the first of them frame " +
                             std::to_string(first_changed_));
        if (different_ + changed_ == 0 && compared_ == frames_) {
            if (!ended_ || tracksDiffer()) return EX_DATAERR;
            std::printf("%s replayed, every reply is the same%s.\n", replayed().c_str(),
                        tracks_.compared() == 0         ? ""
                        : tracks_.eventsCompared() == 0 ? ", and every track"
                                                        : ", and every track and event");
            return 0;
        }
        tracksDiffer();
        if (different_ > 0)
            logError("", std::to_string(different_) + " of " + std::to_string(compared_) +
                             " replies differ, the first at frame " + std::to_string(first_different_));
        if (compared_ != frames_)
            logError("",
                     std::to_string(frames_ - compared_) + " frames of the recording carry no reply to compare with");
        return EX_DATAERR;
    }

    std::string replayed() const {
        std::string text = std::to_string(frames_ - repeated_) + " frames";
        if (repeated_ > 0) text += " (and " + std::to_string(repeated_) + " again for hand-overs)";
        return text;
    }

    bool tracksDiffer() const {
        if (tracks_.eventsDifferent() > 0)
            logError("", "events differ " + std::to_string(tracks_.eventsDifferent()) + " times, first behind frame " +
                             std::to_string(tracks_.firstEventsDifferent()));
        if (tracks_.different() == 0) return tracks_.eventsDifferent() > 0;
        logError("", "the tracks of " + std::to_string(tracks_.different()) + " frames differ, the first at frame " +
                         std::to_string(tracks_.firstDifferent()));
        return true;
    }

    const ReplayOptions& options_;
    RecordingReader reader_;
    ReplayedTracks tracks_;
    PrivateRoot root_;
    AnalyzerSettings settings_;
    std::unique_ptr<AnalyzerClient> analyzer_;
    std::unique_ptr<FileWriter> replies_;
    std::string control_, reply_;
    std::string frame_now_;  ///< what Recording-Reply would say of the latest frame
    bool control_changed_ = false, ended_ = false;
    std::int64_t again_ = 0;  ///< frames to come that were answered before
    std::int64_t frames_ = 0, repeated_ = 0, compared_ = 0;
    std::int64_t different_ = 0, first_different_ = 0;  ///< answers
    std::int64_t changed_ = 0, first_changed_ = 0;      ///< frames of the file itself
};

}  // namespace

int replayCommand(const ReplayOptions& options) {
    return statusOf([&options] { return Replay(options).run(); });
}

}  // namespace fleifeisa::host
