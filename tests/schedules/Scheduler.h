// Scheduler: runs the threads of a scenario one at a time. Each call that may block, or that
// another thread may notice, is a point: there the scheduler decides which thread goes on.
// Interposed.cpp and SteppedModem.cpp have the calls.
//
// A schedule is the list of the decisions that had an alternative. 0 lets the current thread go on
// or, if it cannot, the lowest one that can. Going on with another thread although the current one
// could continue is a preemption.
#pragma once

#include <pthread.h>
#include <semaphore.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace zem::schedules {

using Schedule = std::vector<uint8_t>;

struct Scenario {
    const char* name;
    // Runs on thread 0; the threads that it creates are 1, 2, ... It joins them all.
    void (*body)();
    bool exits = false;           // ends by exit(), so each run has a process of its own
    const char* fault = nullptr;  // what must be found in it; null: nothing
};

// --- For the threads of a scenario ---

// Whether the calling thread is one.
bool controlled();

// A point. The thread goes on when it is chosen, which it is only while ready holds; none: always.
using Condition = std::function<bool()>;
void reach(const char* call, Condition ready = {});

// Goes on when no other thread can.
void settle();

// One of so many, which the schedule decides.
size_t choose(size_t of);

// Decisions are taken from the schedule from here on, or no longer; at first they are all 0.
void explore(bool on);

// Ends the run: it has failed. Requires the condition.
[[noreturn]] __attribute__((format(printf, 1, 2))) void fail(const char* format, ...);
void require(bool condition, const char* what);

// A thread, for pthread_create and pthread_join.
struct Thread {
    unsigned number;
    void* (*body)(void*);
    void* argument;
    const char* call;  // that it is about to make, or is in
    Condition ready;
    bool last;  // goes on when no other can
    bool finished;
    sem_t baton;
};
Thread& adopt(void* (*body)(void*), void* argument);  // on its creator
void* runThread(void* thread);                        // on itself
unsigned current();                                   // its number

// --- For the program ---

struct Limits {
    size_t schedules;      // that are explored
    unsigned preemptions;  // in each of them
    size_t random;         // with one preemption more
    unsigned seconds;      // of exploring
    uint32_t seed;
};
constexpr unsigned kMostPreemptions = 4;

// Runs the scenario's schedules until one fails; prints how many there were, or the failing one.
// With a schedule to replay runs only that, and prints what each thread does.
bool run(const Scenario& scenario, const Limits& limits, const Schedule* replay);

}  // namespace zem::schedules
