// The command line of a decoding ffmpeg.
#pragma once

#include <string>
#include <vector>

#include "sources/packet_sink.h"
#include "sources/source.h"

namespace fleifeisa::host {

struct FfmpegCommand {
    std::vector<std::string> argv;
    /// What it reads from standard input, "": nothing. A URL with secrets stands here, in the form of the concat
    /// demuxer's list: a command line can be read by every user of the machine.
    std::string script;
};

/// Options of the user replace the host's own of the same name.
/// @throws SourceError where the source does not exist or its URL is no good
/// @param copy  what is kept of the compressed video, as MPEG-TS on its descriptor 3
FfmpegCommand ffmpegCommand(const SourceOptions& options, PacketCopy copy = PacketCopy::kNone);
/// The compressed video alone, as MPEG-TS on standard output.
FfmpegCommand ffmpegCopyCommand(const SourceOptions& options, PacketCopy copy);

}  // namespace fleifeisa::host
