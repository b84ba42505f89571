// Where frames come from.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/fd.h"
#include "sources/mask.h"
#include "sources/pixels.h"

namespace fleifeisa::host {

/// A frame as its source delivers it.
struct RawFrame {
    PixelLayout layout;
    std::vector<std::uint8_t> bytes;
    std::int64_t time_ns = 0;        ///< presentation time from the start; with hasDates() since 1970
    std::int64_t clock_step_ns = 0;  ///< of a live frame: by so much the clock was stepped since the one before
};

constexpr double kLeastIdleRate = 0.5;  ///< frames a second: pictures stay fresh, and who comes is noticed

/// What a user may say about a source.
struct SourceOptions {
    std::string source;               ///< file, directory, URL, device, "scene:...", "list:FILE"
    std::optional<bool> live;         ///< unset: streams and cameras are live, everything else is not
    bool loop = false;                ///< a file begins anew at its end
    bool realtime = false;            ///< a file's frames come at their own times, not as fast as possible
    std::int64_t frames = 0;          ///< end after so many, 0: all
    double rate = 0;                  ///< at most so many frames a second, 0: all; images: their rate (10)
    double idle_rate = 0;             ///< while nothing moves, so many a second are analyzed, 0: as ever
    std::optional<Region> region;     ///< cut out before scaling
    int width = 0, height = 0;        ///< scaled to this size; 0: as they come
    int longest_side = 0;             ///< without a size: larger pictures are scaled down to it, 0: as they come
    std::vector<Mask> masks;          ///< painted over
    std::vector<Mask> private_areas;  ///< black before anything else sees the frame
    std::optional<Matrix> matrix;     ///< unset: as the stream says, else by its height
    std::optional<bool> full_range;   ///< unset: as the stream says
    double stall_seconds = 20;        ///< without a frame for so long, the source counts as stalled
    int decoder_threads = 0;          ///< 0: as many as ffmpeg likes
    std::string ffmpeg = "ffmpeg";
    std::vector<std::string> ffmpeg_input_options;  ///< inserted before -i, in place of the host's own
    std::string credentials;  ///< of a URL: "env:NAME" or a file with USER:PASSWORD; "": as the URL says
    bool redirects = false;   ///< a URL may lead on to other addresses: HTTP redirects, playlists
    std::optional<std::int64_t> start_time_ns;  ///< of a file: the moment of its first frame, since 1970

    bool operator==(const SourceOptions&) const = default;
};

/// A source that cannot deliver. `code` is the exit status that fits (sysexits).
struct SourceError : std::runtime_error {
    SourceError(int exit_code, const std::string& what, bool may_pass = false)
        : std::runtime_error(what), code(exit_code), transient(may_pass) {}
    int code;
    bool transient;  ///< another try may well succeed: a decoder that crashed or stalled, no lack in the source itself
};

class PacketSink;

class Source {
 public:
    Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    virtual ~Source() = default;

    /// Waits for the next frame. False at the end, or when the stop event was set.
    /// @throws SourceError
    virtual bool next(RawFrame& frame) = 0;
    /// Frames in all, 0 where unknown; may become known with the first frame.
    virtual std::int64_t expectedFrames() const { return 0; }
    /// Nominal frames a second, 0 where unknown; may become known with the first frame.
    virtual double rate() const { return 0; }
    /// What went wrong without ending the stream, such as damaged frames; "" where nothing did.
    virtual std::string complaints() const { return ""; }
    /// What is to be said at once, such as the name of a damaged image.
    virtual std::vector<std::string> takeWarnings() { return {}; }
};

/// True for streams and cameras: wall clock times, newest frame wins, reopened when they end.
bool isLive(const SourceOptions& options);

/// True for streams and cameras, whatever is said of them; else a file, which may stand for a camera (`live`).
bool isCameraSource(const SourceOptions& options);

/// True where the frames' times are moments, since 1970.
bool hasDates(const SourceOptions& options);

/// True where nothing but a request for it makes a frame: as fast as they are asked for.
bool isSynthetic(const SourceOptions& options);

/// A short name for people: "vtest" for ".../vtest.avi", "street" for "scene:street?seed=3"; holds no secrets.
std::string baseName(const std::string& source);

/// The same as a camera's name: letters, digits, "_" and "-", 1 to 64 of them.
std::string cameraName(const std::string& source);
bool isCameraName(std::string_view name);

/// What is wrong with the text of a source (an unknown scene or protocol, a malformed URL), "" where nothing is.
std::string sourceFault(const SourceOptions& options);

/// What is wrong with the idle rate, "" where nothing is.
std::string idleRateFault(const SourceOptions& options);

/// Whether all that can be known without reading frames is in order: files are there, credentials can be read.
/// @throws SourceError
void checkSource(const SourceOptions& options);

/// @param sink  takes the compressed video, null: nobody does; lives longer than the source @throws SourceError
std::unique_ptr<Source> openSource(const SourceOptions& options, const Event& stop, PacketSink* sink = nullptr);

}  // namespace fleifeisa::host
