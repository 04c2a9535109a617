// CommandLine: the tool but for its process: verbs, help and exit statuses.
#pragma once

#include <ostream>

namespace zemctl {

// Runs what the arguments ask for and returns the tool's exit status; usage trouble is one line on
// err. Throws nothing.
int runCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

}  // namespace zemctl
