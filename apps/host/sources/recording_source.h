// Recordings of earlier runs: as frames for a new run, and message by message for a replay.
#pragma once

#include <cstdio>
#include <optional>
#include <string>

#include "sources/source.h"

namespace fleifeisa::host {

/// One message of a recorded request stream.
struct RecordedMessage {
    enum Kind {
        kFrame,
        kStart,
        kHandOver,
        kCamera,
        kFilter,
        kControl,
        kTracks,
        kReply,
        kEnded,
        kRules,
        kStep,
        kEvents,
        kOther
    };
    Kind kind = kOther;
    std::string header;              ///< exact bytes, empty line included
    std::vector<std::uint8_t> body;  ///< of a frame
    int width = 0, height = 0;
    std::int64_t time_ns = 0, sequence = 0;
    std::string value;  ///< of all but kFrame and kOther: what stands behind the name, its parts put together
};

class RecordingReader {
 public:
    /// @throws SourceError
    explicit RecordingReader(const std::string& path);
    ~RecordingReader();
    RecordingReader(const RecordingReader&) = delete;
    RecordingReader& operator=(const RecordingReader&) = delete;

    /// False at the end. @throws SourceError where the file is damaged or cut off
    bool next(RecordedMessage& message);
    std::int64_t bytes() const { return size_; }
    std::int64_t position() const;

 private:
    bool nextPart(RecordedMessage& message);
    bool readLine(std::string& line);
    [[noreturn]] void damaged(const char* what) const;

    std::string path_;
    std::FILE* file_;
    std::int64_t size_ = 0;
    std::string part_;  ///< of a value that goes on in the next message
};

/// True for a regular file that begins like a request stream.
bool isRecording(const std::string& path);

/// The frames of a recording, with the times of their headers; without those that a new analyzer was given once more.
class RecordingSource : public Source {
 public:
    explicit RecordingSource(const std::string& path) : reader_(path) {}
    bool next(RawFrame& frame) override;
    std::int64_t expectedFrames() const override { return expected_; }

 private:
    RecordingReader reader_;
    std::int64_t expected_ = 0;
    std::int64_t first_ns_ = -1;
};

}  // namespace fleifeisa::host
