// The two halves of Sandbox.h. Both are null where they hold, else a short reason why not.
#pragma once

#include <string>

// Landlock: nothing but reading below the control file's directory, whose path is stored in `directory`.
const char* ConfineFiles(const std::string& control_file, std::string& directory);

// seccomp: the system calls of a short list, the rest fails with EPERM. Descriptors up to `last` can be written to.
const char* ConfineCalls(int last);
