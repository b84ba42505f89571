// Preloaded into a host under test: a wall clock that is stepped, and a disk that stalls. Named by the environment:
//   FAULT_CLOCK   a file with seconds that are added to the wall clock, while it is there
//   FAULT_DISK    a file while which is there fsync and fdatasync wait
#include <dlfcn.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

template <class Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

int syncLater(const char* name, int fd) {
    struct stat there {};
    const char* path = std::getenv("FAULT_DISK");
    while (path && ::stat(path, &there) == 0) ::usleep(10'000);
    return next<int (*)(int)>(name)(fd);
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, struct timespec* time) {
    static const auto real = next<int (*)(clockid_t, struct timespec*)>("clock_gettime");
    const int result = real(clock, time);
    const char* path = clock == CLOCK_REALTIME ? std::getenv("FAULT_CLOCK") : nullptr;
    if (std::FILE* file = path ? std::fopen(path, "r") : nullptr) {
        long step = 0;
        if (std::fscanf(file, "%ld", &step) == 1) time->tv_sec += step;
        std::fclose(file);
    }
    return result;
}
extern "C" int fsync(int fd) {
    return syncLater("fsync", fd);
}
extern "C" int fdatasync(int fd) {
    return syncLater("fdatasync", fd);
}
