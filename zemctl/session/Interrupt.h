// Interrupt: the user's wish to end (Ctrl-C, a closed terminal), seen between two steps.
//
// The handlers only note the wish; what runs ends by the exception, so that keys are released and
// files are whole.
#pragma once

#include <chrono>

namespace zemctl {

// Ends a verb; deliberately no std::exception, which would be reported.
struct Interrupted {};

// For SIGINT, SIGTERM and SIGHUP; SIGPIPE is ignored. Once, in front of all threads.
void watchForInterrupts();

// The signal that has come, or 0.
int interruptSignal();
// Forgets it: the user has ended one verb and goes on with the session.
void clearInterrupt();

void throwIfInterrupted();

// Waits until there is something to read from the first, or the end of it. False, at once, when the
// user wants an end or the other one, if any, can be read.
bool waitForInput(int fd, int otherFd = -1);

// Waits for the time to pass. False, at once, when the user wants an end.
bool sleepUnlessInterrupted(std::chrono::milliseconds time);

}  // namespace zemctl
