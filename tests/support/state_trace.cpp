// state_trace COLOR|IR BGFRAMES [FRAME:BGFRAMES]... < REQUESTS
// Prints the state after every frame of a request stream. FRAME:BGFRAMES: after that frame a changed control file is
// seen, which starts a relearning period.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>

#include "support/state_hash.h"

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fputs("usage: state_trace COLOR|IR BGFRAMES [FRAME:BGFRAMES]... < REQUESTS\n", stderr);
        return 1;
    }
    ReplayOptions options;
    options.type = std::string(argv[1]) == "IR" ? IR : COLOR;
    options.bg_frames = std::atoi(argv[2]);
    for (int i = 3; i < argc; i++) {
        const std::string change = argv[i];
        options.changes[std::atoi(argv[i])] = std::atoi(change.substr(change.find(':') + 1).c_str());
    }
    const std::string requests{std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
    replay(requests, options, [](const ReplayedFrame& frame) { std::fputs(traceBlock(frame).c_str(), stdout); });
}
