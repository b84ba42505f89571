// The analyzer process.
#include <csignal>
#include <iostream>

#include "host/MainLoop.h"

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);  // a broken output is found by the stream's state
    std::ios::sync_with_stdio(false);
    return RunAnalyzer(argc, argv);
}
