#include "host/Control.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

constexpr control kDefaults{300, 0.25f, 0.5f, 1.0f, 2.0f};
constexpr char kDelimiters[] = "<>\"= ";

void SetBgFrames(control& c, const char* v) {
    c.bg_frames = static_cast<int>(std::strtol(v, nullptr, 10));
}
template <float control::*Field>
void SetFloat(control& c, const char* v) {
    c.*Field = static_cast<float>(std::strtod(v, nullptr));
}

// Deliberate: the value's delimiters alternate. With the quote alone, the value runs from the opening to the closing
// quote and may hold blanks and brackets, where the conversion then stops (Control.FileTable).
struct Key {
    const char* name;  // a prefix of the token
    void (*set)(control&, const char*);
    const char* delimiters;  // of the value
};
constexpr Key kKeys[] = {
    {"-color_low", SetFloat<&control::color_low>, kDelimiters},
    {"-color_high", SetFloat<&control::color_high>, "\""},
    {"-ir_low", SetFloat<&control::ir_low>, kDelimiters},
    {"-ir_high", SetFloat<&control::ir_high>, "\""},
    {"-bgframes", SetBgFrames, "\""},
};

bool HasPrefix(const char* token, const char* prefix) {
    return std::strncmp(token, prefix, std::strlen(prefix)) == 0;
}

// Settings of one line. What counts is the order of the tokens: name, key, one more word, value.
void ReadLine(char* line, control& c) {
    char* rest = nullptr;
    for (char* token = strtok_r(line, kDelimiters, &rest); token != nullptr;
         token = strtok_r(nullptr, kDelimiters, &rest)) {
        if (!HasPrefix(token, "name")) continue;
        const char* name = strtok_r(nullptr, kDelimiters, &rest);
        if (name == nullptr) return;
        for (const Key& key : kKeys) {
            if (!HasPrefix(name, key.name)) continue;
            if (strtok_r(nullptr, kDelimiters, &rest) == nullptr) return;
            const char* value = strtok_r(nullptr, key.delimiters, &rest);
            if (value == nullptr) return;
            key.set(c, value);
            break;
        }
    }
}

// Never blocks, whatever stands at the path.
std::FILE* OpenForReading(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return nullptr;
    std::FILE* f = fdopen(fd, "r");
    if (f == nullptr) close(fd);
    return f;
}

bool IsRegular(std::FILE* f) {
    struct stat st;
    return fstat(fileno(f), &st) == 0 && S_ISREG(st.st_mode);
}

// A line, or as much of it as fits; as fgets, but tells the length also where the line holds NUL bytes.
std::size_t ReadPiece(std::FILE* f, char* line, std::size_t size) {
    std::size_t n = 0;
    for (int ch; n + 1 < size && (ch = getc_unlocked(f)) != EOF;) {
        line[n++] = static_cast<char>(ch);
        if (ch == '\n') break;
    }
    line[n] = '\0';
    return n;
}

}  // namespace

std::string ControlPath(int devid) {
    const char* root = std::getenv("FLEIFEISA_ROOT");
    return (root != nullptr ? std::string(root) : std::string()) + "/opt/tesra/var/conf/" + std::to_string(devid) +
           "/qelparams2.conf";
}

bool updateControl(int devid, control* c) {
    return readControl(ControlPath(devid), c);
}

bool readControl(const std::string& path, control* c) {
    *c = kDefaults;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> f(OpenForReading(path), std::fclose);
    if (!f) return false;
    if (!IsRegular(f.get())) return true;
    char line[512];
    long read = 0;
    for (std::size_t n; (n = ReadPiece(f.get(), line, sizeof line)) > 0;) {
        read += static_cast<long>(n);
        if (read > kMaxControlFile) {
            std::fprintf(stderr, "The control file is longer than %ld bytes; the rest is ignored.\n", kMaxControlFile);
            break;
        }
        ReadLine(line, *c);
    }
    return true;
}

bool updated(int devid, time_t* lastmtime) {
    struct stat st;
    if (stat(ControlPath(devid).c_str(), &st) != 0) return false;
    if (st.st_mtime == *lastmtime) return false;
    *lastmtime = st.st_mtime;
    return true;
}

bool ControlFile::Read(control& c) {
    if (updateControl(devid, &c)) return true;
    std::fprintf(stderr, "The control file %s has changed but cannot be opened: %s. The defaults hold.\n",
                 ControlPath(devid).c_str(), std::strerror(errno));
    return false;
}
