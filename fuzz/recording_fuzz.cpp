// Recordings: read message by message and as a source of frames; damage is an error with a place, never more.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "sources/recording_source.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace fleifeisa::host;
    const int file = ::memfd_create("recording", MFD_CLOEXEC);
    if (file < 0 || ::write(file, data, size) != static_cast<ssize_t>(size)) std::abort();
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    std::size_t bytes = 0;
    try {
        RecordingReader reader(path);
        for (RecordedMessage message; reader.next(message);) {
            bytes += message.body.size();
            const auto pixels = static_cast<std::size_t>(message.width) * static_cast<std::size_t>(message.height);
            if (message.kind == RecordedMessage::kFrame && message.body.size() != pixels * 3) std::abort();
        }
    } catch (const SourceError&) {
    }
    if (bytes > size) std::abort();
    try {
        RecordingSource source(path);
        for (RawFrame frame; source.next(frame);) continue;
    } catch (const SourceError&) {
    }
    ::close(file);
    return 0;
}
