// Least privilege for the streaming mode (docs/sandbox.md): after start-up the process needs its three standard
// streams and one control file, and gives up the rest, so that a fault in the parsing of frames gains nothing.
#pragma once

#include <string>

struct SandboxResult {
    bool files = false;     // Landlock holds: only the control file's surroundings can be opened, and only for reading
    bool calls = false;     // seccomp holds: only the system calls of a short list work
    std::string directory;  // whose files can still be opened; empty for none but the present control file
    std::string note;       // the line written to standard error, without its end; empty where nothing was written
};

// Confines the calling process for the rest of its life, and everything it would start. Denied calls fail with EPERM
// or EACCES; the process goes on. Descriptors above 2 are closed, but for `also` (3, or -1 for none), which can be read
// and written like the standard streams.
//
// `control_file` has the form <conf>/<device>/<file>. stat and reading of it keep working when it is replaced, deleted
// or created later, and so does <device>. Where <conf> does not exist yet, its nearest existing ancestor other than the
// root stands for it; see docs/sandbox.md for what cannot be followed.
//
// What the kernel lacks is left out, with one line on standard error. The environment variable FLEIFEISA_SANDBOX
// switches the confinement off ("off") and on ("on"). The default is on, but off in builds with the address, memory or
// thread sanitizer, whose own system calls (the leak check starts a tracing process at exit) would be denied.
// Call once, before other threads exist.
SandboxResult ConfineProcess(const char* control_file, int also = -1);
