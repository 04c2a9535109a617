#include "Scheduler.h"

#include <malloc.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <random>

#include "Interposed.h"
#include "SteppedModem.h"

namespace zem::schedules {
namespace {

constexpr unsigned kMostSteps = 5000;
constexpr unsigned kSecondsWithoutPoint = 20;

struct Decision {
    uint8_t taken, of;
    bool preempts;  // all but 0 are preemptions
    uint64_t past;  // a hash of what led here
};

// What a scenario's process tells its parent, who reads it also after a crash.
struct Record {
    unsigned steps, length;
    Decision decisions[kMostSteps];
    char failure[2000];
    size_t schedules[kMostPreemptions + 1];  // by number of preemptions
    size_t random, left;
    unsigned longest;  // in steps
};
Record* record;

// The decisions that a run begins with. The same ones must always lead to the same last one.
struct Prefix {
    Schedule taken;
    uint64_t past = 0;  // of the last decision; 0: not known
};

// What decides in the present run.
struct Plan {
    Prefix prefix;
    std::minstd_rand* dice = nullptr;   // null: 0 after the prefix
    std::vector<unsigned> preemptions;  // the decisions that are one, if they can
    bool loud = false;
};
Plan present;
bool exploring;
uint64_t past;  // of the decisions so far
std::deque<std::unique_ptr<Thread>> threads;
thread_local Thread* self;

void take(Thread& thread) {
    while (sem_wait(&thread.baton) != 0) {
    }
    if (present.loud)
        fprintf(stderr, "%5u  thread %u: %s\n", record->steps, thread.number, thread.call);
}

std::string blockedCalls() {
    std::string text;
    for (const auto& thread : threads) {
        if (thread->finished) continue;
        text += "; thread " + std::to_string(thread->number) + " is in " + thread->call;
    }
    return text;
}

uint8_t decide(size_t of, bool preempts) {
    if (of == 1 || !exploring) return 0;
    const unsigned place = record->length;
    if (place >= std::size(record->decisions)) fail("too many decisions");
    past = (past ^ (self->number << 9 | of << 1 | unsigned{preempts})) * 0x100000001b3;
    if (place + 1 == present.prefix.taken.size() && present.prefix.past &&
        present.prefix.past != past)
        fail("the same decisions led elsewhere: the scenario is not deterministic");
    uint8_t taken = 0;
    if (place < present.prefix.taken.size()) {
        taken = present.prefix.taken[place];
    } else if (present.dice && !preempts) {
        taken = static_cast<uint8_t>((*present.dice)() % of);
    } else if (present.dice &&
               std::count(present.preemptions.begin(), present.preemptions.end(), place)) {
        taken = static_cast<uint8_t>(1 + (*present.dice)() % (of - 1));
    }
    if (taken >= of) fail("decision %u is %u of %zu: not of this scenario", place, taken, of);
    record->decisions[place] = {taken, static_cast<uint8_t>(of), preempts, past};
    ++record->length;
    past ^= taken;
    return taken;
}

Thread& next() {
    std::vector<Thread*> able;  // the current one first
    const auto add = [&able](Thread* thread) {
        if (!thread->finished && !thread->last && (!thread->ready || thread->ready()))
            able.push_back(thread);
    };
    add(self);
    const bool preempts = !able.empty();
    for (const auto& thread : threads) {
        if (thread.get() != self) add(thread.get());
    }
    if (!able.empty()) return *able[decide(able.size(), preempts)];
    for (const auto& thread : threads) {
        if (thread->last) return *thread;
    }
    fail("no thread can go on%s", blockedCalls().c_str());
}

void pass(const char* call, Condition ready, bool last) {
    Thread& me = *self;
    me.call = call;
    me.ready = std::move(ready);
    me.last = last;
    if (++record->steps > kMostSteps)
        fail("more than %u steps%s", kMostSteps, blockedCalls().c_str());
    Thread& chosen = next();
    sem_post(&chosen.baton);
    take(me);
    me.ready = nullptr;
    me.last = false;
}

// Thread 0's part of a run.
void play(const Scenario& scenario) {
    record->steps = record->length = 0;
    exploring = false;
    past = 0xcbf29ce484222325;
    self = &adopt(nullptr, nullptr);
    scenario.body();
    exploring = false;
    for (const auto& thread : threads) {
        if (thread.get() != self && !thread->finished) fail("thread %u is left", thread->number);
    }
    endInterposed();
    endModem();
    self = nullptr;
    for (const auto& thread : threads) sem_destroy(&thread->baton);
    threads.clear();
}

void describeEnd(int status) {
    if (record->failure[0]) return;
    const int signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    snprintf(record->failure, sizeof record->failure,
             signal == SIGALRM ? "a thread blocks elsewhere than at a point"
             : signal          ? "ended by signal %d"
                               : "ended with status %d",
             signal ? signal : WEXITSTATUS(status));
}

std::string replayOf(const Scenario& scenario) {
    unsigned length = record->length;
    while (length > 0 && record->decisions[length - 1].taken == 0) --length;
    std::string text = "schedules --replay ";
    for (unsigned i = 0; i < length; ++i)
        text += (i ? "," : "") + std::to_string(record->decisions[i].taken);
    return text + (length ? " " : "0 ") + scenario.name;
}

bool report(const Scenario& scenario) {
    size_t total = 0;
    for (const size_t each : record->schedules) total += each;
    printf("%-28s", scenario.name);
    if (record->failure[0]) {
        const bool meant = scenario.fault && strstr(record->failure, scenario.fault);
        printf(" %s after %zu schedules: %s\n%28s %s\n", meant ? "found" : "FAILED",
               total + record->random + 1, record->failure, "", replayOf(scenario).c_str());
        return meant;
    }
    printf("%6zu schedules, %s (", total, record->left ? "more are left" : "all");
    for (unsigned i = 0; i <= kMostPreemptions; ++i) {
        if (record->schedules[i]) printf("%s%zu with %u", i ? ", " : "", record->schedules[i], i);
    }
    printf(" preemptions), %zu random, of up to %u steps%s\n", record->random, record->longest,
           scenario.fault ? ": the FAULT in it was NOT found" : "");
    return !scenario.fault;
}

// As one thread runs at a time; passing the baton takes half as long.
void stayOnOneProcessor() {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(static_cast<unsigned>(std::max(sched_getcpu(), 0)), &processors);
    sched_setaffinity(0, sizeof processors, &processors);
}

// In a process of its own when the body ends that.
void playOnce(const Scenario& scenario, Plan next) {
    present = std::move(next);
    if (!scenario.exits) {
        alarm(kSecondsWithoutPoint);
        return play(scenario);
    }
    const pid_t child = fork();
    if (child == 0) {
        alarm(kSecondsWithoutPoint);
        play(scenario);
        fail("the scenario did not exit");
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (status == 0) return;
    describeEnd(status);
    _exit(1);
}

// Each schedule once: a run yields those that differ from it in one decision after its prefix.
class Explorer {
  public:
    Explorer(const Scenario& scenario, const Limits& limits)
        : scenario(scenario), limits(limits), dice(limits.seed) {}

    void explore() {
        waiting[0].push_back({});
        for (unsigned preemptions = 0; preemptions <= limits.preemptions; ++preemptions) {
            while (!waiting[preemptions].empty() && !over()) {
                visit(preemptions);
                ++record->schedules[preemptions];
                ++total;
            }
        }
        for (const auto& prefixes : waiting) record->left += prefixes.size();
        for (; record->random < limits.random; ++record->random) wander();
    }

  private:
    bool over() const {
        return total >= limits.schedules || std::chrono::steady_clock::now() > end;
    }

    // Any of those that wait, so that a limit leaves no part of the scenario out.
    void visit(unsigned preemptions) {
        auto& prefixes = waiting[preemptions];
        std::swap(prefixes[dice() % prefixes.size()], prefixes.back());
        const size_t fixed = prefixes.back().taken.size();
        Plan plan;
        plan.prefix = std::move(prefixes.back());
        prefixes.pop_back();
        Schedule taken = plan.prefix.taken;
        playOnce(scenario, std::move(plan));
        record->longest = std::max(record->longest, record->steps);
        decisions = std::max(decisions, record->length);
        for (size_t place = fixed; place < record->length; ++place) {
            const Decision& made = record->decisions[place];
            const unsigned cost = preemptions + made.preempts;
            for (uint8_t other = 1; cost <= limits.preemptions && other < made.of; ++other) {
                taken.push_back(other);
                waiting[cost].push_back({taken, made.past});
                taken.pop_back();
            }
            taken.push_back(0);
        }
    }

    void wander() {
        Plan plan;
        plan.dice = &dice;
        for (unsigned i = 0; i <= limits.preemptions; ++i)
            plan.preemptions.push_back(static_cast<unsigned>(dice() % std::max(decisions, 1U)));
        playOnce(scenario, std::move(plan));
    }

    const Scenario& scenario;
    const Limits& limits;
    const std::chrono::steady_clock::time_point end =
        std::chrono::steady_clock::now() + std::chrono::seconds(limits.seconds);
    std::minstd_rand dice;
    std::vector<Prefix> waiting[kMostPreemptions + 1];  // by number of preemptions
    size_t total = 0;
    unsigned decisions = 0;  // of the longest run
};

}  // namespace

bool controlled() {
    return self != nullptr;
}

unsigned current() {
    return self->number;
}

void reach(const char* call, Condition ready) {
    pass(call, std::move(ready), false);
}

void settle() {
    pass("settle", {}, true);
}

size_t choose(size_t of) {
    return decide(of, false);
}

void explore(bool on) {
    exploring = on;
}

void fail(const char* format, ...) {
    va_list args;
    va_start(args, format);
    vsnprintf(record->failure, sizeof record->failure, format, args);
    va_end(args);
    _exit(1);
}

void require(bool condition, const char* what) {
    if (!condition) fail("not so: %s", what);
}

Thread& adopt(void* (*body)(void*), void* argument) {
    const auto number = static_cast<unsigned>(threads.size());
    Thread& thread = *threads.emplace_back(
        new Thread{number, body, argument, "its start", {}, false, false, {}});
    sem_init(&thread.baton, 0, 0);
    return thread;
}

void* runThread(void* thread) {
    self = static_cast<Thread*>(thread);
    take(*self);
    void* const result = self->body(self->argument);
    self->finished = true;
    Thread& chosen = next();
    self = nullptr;
    sem_post(&chosen.baton);
    return result;
}

bool run(const Scenario& scenario, const Limits& limits, const Schedule* replay) {
    static void* const shared =
        mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) abort();
    record = new (shared) Record();
    fflush(nullptr);
    const pid_t worker = fork();
    if (worker == 0) {
        if (!freopen("/dev/null", "w", stdout)) abort();  // the engines' own lines
        stayOnOneProcessor();
        mallopt(M_PERTURB, 0x5A);  // what is freed changes, so that a later use is noticed
        playOnce(scenario, {});    // makes what is made once in a process
        if (replay) {
            Plan plan;
            plan.prefix.taken = *replay;
            plan.loud = true;
            playOnce(scenario, std::move(plan));
        } else {
            Explorer(scenario, limits).explore();
        }
        _exit(0);
    }
    int status = 0;
    waitpid(worker, &status, 0);
    if (status != 0) describeEnd(status);
    return report(scenario);
}

}  // namespace zem::schedules
