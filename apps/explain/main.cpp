// The analyzer that explains itself: the same process as fleifeisa, with the same replies, and a socket as descriptor 3
// on which it answers questions about what it sees (docs/explain.md). Without that socket it is fleifeisa.
#include <sys/stat.h>

#include <csignal>
#include <iostream>

#include "explain/asked_input.h"
#include "explain/explainer.h"
#include "host/MainLoop.h"

namespace {

constexpr int kQuestions = 3;

// What a careless parent left open under that number is no asker.
int askersSocket() {
    struct stat what {};
    return ::fstat(kQuestions, &what) == 0 && S_ISSOCK(what.st_mode) ? kQuestions : -1;
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);  // a broken output is found by the stream's state
    std::ios::sync_with_stdio(false);
    fleifeisa::explain::Explainer explainer(askersSocket());
    fleifeisa::explain::AskedInput input(0, explainer);
    std::istream in(&input);
    return RunAnalyzer(argc, argv, in, std::cout, &explainer);
}
