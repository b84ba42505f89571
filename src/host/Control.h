// The per-device control file (docs/control-file.md).
#pragma once

#include <ctime>
#include <string>

struct control {
    int bg_frames;     // learning frames at start, length of a relearning period after a change; default 300
    float color_low;   // multiplier of the standard deviation, low threshold, COLOR; default 0.25
    float color_high;  // the same for the distance of the high threshold above it; default 0.5
    float ir_low;      // the two for IR; default 1.0
    float ir_high;     // default 2.0
};

// "/opt/tesra/var/conf/<devid>/qelparams2.conf", prefixed by $FLEIFEISA_ROOT where that is set.
std::string ControlPath(int devid);

// Writes the defaults into *c, then the settings of the file; the last setting of a key wins. False where the file
// cannot be opened. Only regular files hold settings (a directory or a pipe counts as an empty file), and only their
// first kMaxControlFile bytes are read.
constexpr long kMaxControlFile = 64L << 20;
bool updateControl(int devid, control* c);

// The same from any file.
bool readControl(const std::string& path, control* c);

// Whether the file's modification time (whole seconds) differs from *lastmtime; stores the new one. A file that does
// not exist is no change.
bool updated(int devid, time_t* lastmtime);

// What can change the parameters of a run.
class ControlSource {
 public:
    ControlSource() = default;
    ControlSource(const ControlSource&) = delete;
    ControlSource& operator=(const ControlSource&) = delete;
    virtual ~ControlSource() = default;
    virtual bool Changed() = 0;         // since the latest call
    virtual bool Read(control& c) = 0;  // false where there are only defaults
};

// The control file of a device. A change that is seen but cannot be read is told on standard error.
class ControlFile : public ControlSource {
 public:
    explicit ControlFile(int device) : devid(device) {}
    bool Changed() override { return updated(devid, &last_mtime); }
    bool Read(control& c) override;

 private:
    int devid;
    time_t last_mtime = 0;
};
