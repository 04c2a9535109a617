// What Interposed.cpp, which defines the system's calls in place of the C library, knows of a run.
#pragma once

namespace zem::schedules {

// Whether the atomics of the log and the mutex of its buffer are no points. No other is reached
// while that mutex is held, so no thread ever finds it locked.
void passOverLog(bool pass);
bool passesOverLog();

// Fails unless every descriptor that the run made is closed. endInterposed() also fails when a
// mutex is locked.
void endDescriptors();
void endInterposed();

}  // namespace zem::schedules
