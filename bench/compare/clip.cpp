#include "bench/compare/clip.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <stdexcept>

extern char** environ;

namespace bench {
namespace {

// Runs a command (found on PATH) and hands its standard output to `sink` piece by piece. Throws where it cannot be
// started or does not end with status 0.
void runCommand(const std::vector<std::string>& command, const std::function<void(const uint8_t*, size_t)>& sink) {
    std::array<int, 2> pipe_ends{};
    if (pipe(pipe_ends.data()) != 0) throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
    std::vector<char*> argv;
    for (const std::string& word : command) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipe_ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, pipe_ends[0]);
    posix_spawn_file_actions_addclose(&actions, pipe_ends[1]);
    pid_t child = -1;
    const int failed = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipe_ends[1]);
    if (failed != 0) {
        close(pipe_ends[0]);
        throw std::runtime_error("cannot run " + command[0] + ": " + std::strerror(failed));
    }

    std::vector<uint8_t> block(1 << 20);
    for (;;) {
        const ssize_t got = read(pipe_ends[0], block.data(), block.size());
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        sink(block.data(), static_cast<size_t>(got));
    }
    close(pipe_ends[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (status != 0) throw std::runtime_error(command[0] + " failed on " + command.back());
}

}  // namespace

Clip decodeClip(const ClipRequest& request) {
    Clip clip;
    clip.name = request.name;
    clip.width = request.width;
    clip.height = request.height;
    const size_t wanted = request.frames * clip.frameBytes();
    clip.pixels.reserve(wanted);
    const std::string filter = "trim=start_frame=" + std::to_string(request.first) +
                               ":end_frame=" + std::to_string(request.first + request.frames) +
                               ",scale=" + std::to_string(request.width) + ":" + std::to_string(request.height) +
                               ":flags=bicubic";
    runCommand({"ffmpeg", "-nostdin", "-v", "error", "-i", request.path, "-vf", filter, "-vsync", "0", "-frames:v",
                std::to_string(request.frames), "-f", "rawvideo", "-pix_fmt", "rgb24", "-"},
               [&](const uint8_t* data, size_t size) { clip.pixels.insert(clip.pixels.end(), data, data + size); });
    if (clip.pixels.size() != wanted) {
        throw std::runtime_error(request.path + ": " + std::to_string(request.frames) + " frames from frame " +
                                 std::to_string(request.first) + " on wanted, " + std::to_string(clip.frames()) +
                                 " decoded");
    }
    return clip;
}

size_t countFrames(const std::string& path) {
    std::string text;
    runCommand({"ffprobe", "-v", "error", "-select_streams", "v:0", "-count_packets", "-show_entries",
                "stream=nb_read_packets", "-of", "csv=p=0", path},
               [&](const uint8_t* data, size_t size) { text.append(reinterpret_cast<const char*>(data), size); });
    try {
        return std::stoul(text);
    } catch (const std::exception&) {
        throw std::runtime_error(path + ": no video in it");
    }
}

}  // namespace bench
