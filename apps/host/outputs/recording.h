// The request stream as it was sent, in one file that replays to the same bytes (`fleifeisa-host replay FILE
// --verify`).
//
// The file is itself a valid request stream. What a replay needs beyond the frames stands in messages that carry
// neither a command nor a body, which an analyzer reads without an answer:
//
//   Recording-Start     a fresh analyzer process begins here: image type, device, analyzer number
//   Recording-HandOver  the analyzer that begins here takes over from another: time, how many of the frames that follow
//                       it was given before (they come first, with their answers, and are no frames of the camera),
//                       why, the settings of the tracks from then on
//   Recording-Control   one line of the control file; the file changed before the next frame
//   Recording-Camera    what outputs know of the camera: live or file, rate, region, name
//   Recording-Filter    tracks begin anew here with these settings (track_maker.h)
//   Recording-Tracks    of the frame before: hash of its tracks
//   Recording-Reply     of the frame before: length of the answer, hash of the answer, hash of the request
//   Recording-Ended     why all tracks ended here, hash of these tracks
//   Recording-Rules     the rules begin anew here, with all their values (rule_steps.h)
//   Recording-Step      what the rules were told between two frames, with its time
//   Recording-Events    of the frame, end, or step before: hash of the events that the rules made of it
//   Recording-Part      begin of a value that is too long for one line
//
// What an analyzer answers depends on every frame since its start. So a recording that has lost a frame goes on with
// the next fresh analyzer, and rotation asks for one: every file can be replayed alone. Tracks depend on every frame
// since they began, which is rarer: behind a loss they are recorded without hashes until they begin anew.
#pragma once

#include "outputs/file_output.h"

namespace fleifeisa::host {

class RecordingOutput : public FileOutput {
 public:
    explicit RecordingOutput(const std::string& path, const FilePolicy& policy = {})
        : FileOutput(path, WriteMode::kSession, policy) {}
    void started(const CameraInfo& camera) override;
    void handedOver(const CameraInfo& camera, const HandedOver& what) override;
    void controlChanged(std::string_view control) override;
    void frame(const FrameResult& result) override;
    void ended(const TrackFrame& frame, TrackEnd why) override;
    void stepped(const RuleStep& step) override;
    void ruled(const RuleResults& results) override;
    void finish() override;
    OutputState state() const override;

 private:
    void begin(const CameraInfo& camera);
    void note(std::string_view name, std::string_view value);
    void noteText(std::string_view name, std::string_view text);
    bool broken() const { return file_.lost() != lost_before_; }

    bool finished_ = false, begun_ = false;
    bool whole_ = false;             ///< every frame since the tracks began is in this file
    std::uint64_t lost_before_ = 0;  ///< records, when this analyzer began
    std::uint64_t left_out_ = 0;     ///< frames that were not written because an earlier one is missing
};

/// A text as the value of a message, and back: "%" and two digits for what is no printable character.
std::string recordedText(std::string_view text);
std::string readRecordedText(std::string_view value);

/// Value of Recording-Camera, and back. A name is written with "%" and two digits for what is no printable character.
std::string recordedCamera(const CameraInfo& camera);
/// Sets live, rate, region and name. False where the text is no such value.
bool parseRecordedCamera(const std::string& value, CameraInfo& camera);

/// Value of Recording-HandOver, and back.
struct RecordedHandOver {
    std::int64_t time_ns = 0;
    std::int64_t frames = 0;  ///< that follow and were given to it before
    bool new_picture = false;
    std::string why;
    TrackSettings tracks;
};
std::string recordedHandOver(const RecordedHandOver& what);
/// Nothing where the text is no such value.
std::optional<RecordedHandOver> parseRecordedHandOver(std::string_view value);

/// Value of Recording-Tracks: every bit of what was told.
std::string recordedTracks(const TrackFrame& frame);

/// Value of Recording-Events.
std::string recordedEvents(const RuleResults& results);

/// Value of Recording-Reply.
std::string recordedReply(std::string_view request, std::span<const std::uint8_t> rgb, std::string_view reply);

}  // namespace fleifeisa::host
