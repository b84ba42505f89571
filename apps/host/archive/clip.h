// What an archive is made of: clips, and runs of clips.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace fleifeisa::host {

/// The part of a clip that one run is answerable for, in nanoseconds since the clip's first frame. It reads a little
/// more: `warm_up_ns` before, to learn, and `tail_ns` behind, so that what began in the part can end. Kept are the
/// tracks and events that begin in it.
struct ClipPart {
    std::int64_t from_ns = 0;
    std::int64_t to_ns = 0;  ///< exclusive, 0: to the clip's end
    std::int64_t warm_up_ns = 0, tail_ns = 0;
    int parts = 1;  ///< that the clip is cut into

    bool whole() const { return from_ns == 0 && to_ns == 0; }
    bool operator==(const ClipPart&) const = default;
};

/// One video of one camera.
struct Clip {
    std::string camera;                         ///< isCameraName()
    std::string file;                           ///< absolute path, or "scene:..."
    std::optional<std::int64_t> start_time_ns;  ///< of its first frame, since 1970; unset: its times begin at 0
    std::uint64_t bytes = 0;                    ///< size of the file, 0 for a scene
    std::int64_t modified_ns = 0;               ///< since 1970, 0 for a scene
    ClipPart part;

    /// What it costs, about: bytes, more than 0. How long a file is stands nowhere before it is read.
    double weight() const { return static_cast<double>(bytes > 0 ? bytes : 1) / part.parts; }
    bool operator==(const Clip&) const = default;
};

/// One clip with one configuration. Its result is a function of these two and of the program's version.
struct ClipRun {
    /// Of its result: camera, stem of the file and a hash of all that the result depends on. So a result of that name
    /// is the right one, whenever, wherever and by whomever it was made.
    std::string name;
    Clip clip;
    std::string configuration;  ///< TOML of one camera, as clipConfiguration() (cli/clip_config.h) gives it
};

/// Hashes what the run depends on. @param version  of this program
ClipRun clipRun(Clip clip, std::string configuration, std::string_view version);

/// What became of a run, alike wherever it was made. Stands in its result as summary.json.
struct ClipSummary {
    std::string name;
    Clip clip;
    std::string damage;                      ///< why the rest of the file could not be read, "" where all of it was
    std::int64_t frames = 0, detected = 0;   ///< answered; of them with detection
    int width = 0, height = 0;               ///< as analyzed
    std::int64_t first_ns = 0, last_ns = 0;  ///< times of the first and last frame
    std::int64_t tracks = 0, events = 0;     ///< written; of a part: those that begin in it
    /// Over all frames that were analyzed: sizes, times and pixels (XXH3, 128 bits: against mistakes, not against
    /// people, at a tenth of the cost); answers; tracks of every frame; events (BLAKE2b, 256 bits).
    std::string frames_hash, replies_hash, tracks_hash, events_hash;

    /// The four hashes as one text: equal where the same was computed.
    std::string hashes() const { return frames_hash + ' ' + replies_hash + ' ' + tracks_hash + ' ' + events_hash; }
    bool operator==(const ClipSummary&) const = default;
};

/// How a run went: differs each time. Stands in the result as run.json.
struct ClipCost {
    std::string node;             ///< name of the machine
    std::int64_t ended_ns = 0;    ///< since 1970
    double seconds = 0;           ///< on the clock
    double cpu_seconds = 0;       ///< of all its processes
    std::int64_t peak_bytes = 0;  ///< of memory, at most
    std::string warnings;         ///< lines of the log
};

/// A run without a result.
struct ClipFailure {
    std::string name;
    std::string reason;
    std::string node;
    bool lasting = false;  ///< the clip is to blame: another try would fail alike
};

/// JSON on one line, without the end of it, and back. @throws std::runtime_error where the text is none of these
std::string toJson(const ClipRun& run);
std::string toJson(const ClipSummary& summary);
std::string toJson(const ClipCost& cost);
std::string toJson(const ClipFailure& failure);
template <typename T>
T fromJson(std::string_view text) = delete;
template <>
ClipRun fromJson<ClipRun>(std::string_view text);
template <>
ClipSummary fromJson<ClipSummary>(std::string_view text);
template <>
ClipCost fromJson<ClipCost>(std::string_view text);
template <>
ClipFailure fromJson<ClipFailure>(std::string_view text);

}  // namespace fleifeisa::host
