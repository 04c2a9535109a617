// CommandLine: the tool but for its process: verbs, help and exit statuses.
#pragma once

#include "output/Output.h"

namespace zemctl {

// Runs what the arguments ask for and returns the tool's exit status: an ExitStatus, or 128 and a
// signal's number when the user or the reader of the output ended it. Trouble is one line on the
// console's err. Throws nothing.
int runCommandLine(int argc, const char* const* argv, const Console& console);

}  // namespace zemctl
