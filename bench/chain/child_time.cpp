// Runs a program and appends the processor time it took to a file: "NAME USER SYSTEM", in seconds.
//
// usage: child_time FILE NAME PROGRAM [ARGUMENT...]
//
// Stands before a child of the host's, whose time would else be the sum of all. Signals that ask for an end are passed
// on.
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace {

volatile pid_t child = 0;

void passOn(int number) {
    if (child > 0) kill(child, number);
}

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fputs("usage: child_time FILE NAME PROGRAM [ARGUMENT...]\n", stderr);
        return 64;
    }
    signal(SIGTERM, passOn);
    signal(SIGINT, passOn);
    child = fork();
    if (child == 0) {
        signal(SIGTERM, SIG_DFL);
        signal(SIGINT, SIG_DFL);
        execvp(argv[3], argv + 3);
        std::perror(argv[3]);
        _exit(127);
    }
    // The pipes are the child's alone: whoever reads them learns of its end.
    close(0), close(1), close(3);
    int status = 0;
    rusage used{};
    while (child > 0 && wait4(child, &status, 0, &used) < 0 && errno == EINTR) {
    }
    if (std::FILE* file = std::fopen(argv[1], "a")) {
        std::fprintf(file, "%s %.6f %.6f\n", argv[2], seconds(used.ru_utime), seconds(used.ru_stime));
        std::fclose(file);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
