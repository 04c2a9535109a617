// Shell: lines that are typed, or come through a pipe, run in one session. One thread, the main
// one.
#pragma once

#include <string>

#include "command/Verb.h"

namespace zemctl {

class Session;

// Runs the verbs of a line up to the first that fails; what is wrong is said. The exit status.
int runLine(Session& session, const std::string& line);

// The verb "shell".
Step prepareShell(const Given& given);
// The verbs "quit" and "exit".
Step prepareQuit(const Given& given);

}  // namespace zemctl
