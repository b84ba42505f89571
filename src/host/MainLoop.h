// The analyzer's command line, modes and main loop.
#pragma once

// Runs one analyzer with the process's arguments (argv[0] is the name shown in the usage text) over std::cin and
// std::cout, and returns the exit status: 0 after SHUTDOWN or the end of the input, 1 otherwise. Everything answered
// has been flushed by then. Only one analyzer runs at a time: the streams, the random generator and the identity of
// the device are the process's own. In the streaming mode the whole process is confined for good (Sandbox.h) unless
// FLEIFEISA_SANDBOX=off stands in the environment.
int RunAnalyzer(int argc, char** argv);
