// The analyzer's command line, modes and start-up. The loop behind them is FrameLoop.
#pragma once

#include <iostream>

#include "host/Control.h"
#include "host/FrameWatch.h"

// A signal handler that reads the control file of the running analyzer's device again. Deliberate: nothing installs it;
// the frame loop looks at the file between frames (Handler.ReadsTheControlFile).
void handler(int num);

// The parameters in force.
const control& Parameters();

// Runs one analyzer with the process's arguments (argv[0] is the name shown in the usage text) and returns the exit
// status: 0 after SHUTDOWN or the end of the input, 1 otherwise. Everything answered has been flushed by then. The
// usage text goes to standard output, messages to standard error. Only one analyzer runs at a time: the random
// generator and the identity of the device are the process's own. In the streaming mode the whole process is confined
// for good (Sandbox.h) unless FLEIFEISA_SANDBOX=off stands in the environment. `watch`, where there is one, is shown
// every frame.
int RunAnalyzer(int argc, char** argv, std::istream& in = std::cin, std::ostream& out = std::cout,
                FrameWatch* watch = nullptr);
