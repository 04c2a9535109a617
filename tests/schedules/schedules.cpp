// The scenarios that Scheduler.h runs, the faults that show that it finds any, and the program's
// command line.

#include <sys/eventfd.h>
#include <unistd.h>
#include <zem/Manager.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>

#include "ClientRequestManager.h"
#include "Interposed.h"
#include "LogWrapper.h"
#include "Scheduler.h"
#include "SteppedModem.h"

namespace zem::schedules {
namespace {

using Key = std::shared_ptr<IProfileKey>;
using Work = std::function<void()>;

const AddProfileParams kTransient = {{}, false, TechType::TECH_3GPP, false};

// Each of the others on a thread of its own, all beside what is done here.
void together(std::initializer_list<Work> others, const Work& here) {
    std::vector<std::thread> threads;
    for (const Work& other : others) threads.emplace_back(other);
    explore(true);
    here();
    for (std::thread& thread : threads) thread.join();
    explore(false);
}

// The library with an engine and without a writer.
class Library {
  public:
    Library() {
        passOverLog(true);
        init();
    }
    ~Library() { end(); }

    void init() {
        manager->init(0, false);
        LogWrapper::getInstance().setLogWriter(nullptr);
    }
    void end() { manager.reset(); }
    Key add() {
        settle();  // the service is up
        Key key = manager->addProfile(kTransient);
        require(key != nullptr, "a profile is added");
        return key;
    }
    Manager* operator->() const { return manager.get(); }

  private:
    std::unique_ptr<Manager> manager = std::make_unique<Manager>();
};

void callAgainstEngine() {
    explore(true);
    Library library;
    const Key early = library->addProfile(kTransient);
    library->refresh(COMPLETE);
    Key key = library.add();
    require(library->getProfile(key).has_value(), "a profile is read");
    key.reset();
    require(profilesStored() == (early ? 1 : 0), "the last key takes its profile with it");
}

void callAgainstEnd() {
    Library library;
    Key key = library.add();
    together({[&] { key->registerExpirationListener([] {}); }}, [&] { library.end(); });
}

void callAgainstInit() {
    Library library;
    const Key key = library.add();
    together({[&] { key->registerExpirationListener([] {}); }}, [&] { library.init(); });
    require(library.add() != nullptr, "the new engine works");
}

// The end comes when both callers are under way. The second engine, if there is one, has started by
// then; else as Manager::init.
void overlappingCallers(bool secondEngine) {
    passOverLog(true);
    auto engine = std::make_unique<ClientRequestManager>(0);
    const auto call = [&engine](const std::shared_ptr<ClientRequest>& request) {
        return engine ? engine->processClientRequest(request) : nullptr;
    };
    settle();
    const auto add = [&call] {
        const auto request = std::make_shared<AddRequest>(kTransient);
        return std::static_pointer_cast<AddResponse>(call(request))->getAddProfileKey();
    };
    Key gone = add(), kept = add();
    const std::weak_ptr<IProfileKey> watched = gone;
    std::unique_ptr<ClientRequestManager> other;
    if (secondEngine) other = std::make_unique<ClientRequestManager>(0);
    settle();
    unsigned started = 0;
    together({[&] {
                  ++started;
                  // Takes the other's answer at times, and leaves the last reference to its key in
                  // the slot.
                  call(std::make_shared<DeleteRequest>(std::move(gone)));
                  call(std::make_shared<GetRequest>(kept));
              },
              [&] {
                  ++started;
                  call(std::make_shared<GetRequest>(kept));
              }},
             [&] {
                 reach("the wait for callers", [&started] { return started == 2; });
                 engine.swap(other);
                 other.reset();
                 if (!secondEngine) return;
                 settle();
                 // A caller whose request another replaced waits for the end.
                 engine.reset();
             });
    require(watched.expired(), "no request is left, and no key in it");
}

void overlapAgainstEnd() {
    overlappingCallers(false);
}

void overlapAgainstEndAndInit() {
    overlappingCallers(true);
}

void releaseAgainstCallAndEnd() {
    Library library;
    Key last = library.add(), other = library.add();
    together({[&] { last.reset(); }, [&] { other->registerExpirationListener([] {}); }},
             [&] { library.end(); });
}

void indicationsAgainstQueueRestartAndEnd() {
    Library library;
    Key key = library.add();
    together({[&] {
                 indicate(1, 7);
                 indicate(3, 1);
                 restart();
                 indicate(2, 1);
             }},
             [&] {
                 library->getProfile(key);
                 library.end();
             });
}

void dumpAgainstRefresh() {
    Library library;
    Key keys[] = {library.add(), library.add()};
    together({[&] {
                 const auto lines = library->dump();
                 require(lines.size() > 2 && lines[0] == "Cache:", "a dump is whole");
             }},
             [&] { library->refresh(COMPLETE); });
}

// What the guide tells callers: listen first, then read. No deletion is missed that way.
void listenerAgainstDeletion() {
    Library library;
    Key key = library.add();
    unsigned fired = 0;
    bool there = false;
    together({[&] {
                  key->registerExpirationListener([&fired] { ++fired; });
                  there = library->getProfile(key).has_value();
              },
              [] { removeByNetwork(1); }},
             [] {});
    settle();
    require(fired <= 1, "a listener runs once");
    require(fired == 1 || !there, "a listener that was there in time runs");
}

// --- The log ---

struct WriterState {
    unsigned inside = 0;
    bool mayGo = false, replaced = false, destroyed = false;
    unsigned users = 0;  // threads that were logging when it was replaced, and still are: bits
};

class CheckedWriter : public LogWriter {
  public:
    explicit CheckedWriter(WriterState& state) : state(state) {}
    ~CheckedWriter() override {
        LogWrapper::getInstance().log(LOG_DEBUG, kLogTag, "a writer may log as it goes");
        reach("~LogWriter");
        require(state.inside == 0 && !state.destroyed, "no thread is in a writer that goes");
        require(state.mayGo, "an installed writer stays");
        state.destroyed = true;
    }
    void write(LogLevel, std::string, std::string) override {
        require(!state.destroyed, "a writer is there when it is used");
        ++state.inside;
        reach("LogWriter::write");
        require(!state.destroyed, "a writer stays while it is used");
        --state.inside;
    }
    int convertPrio(LogLevel) override { return 0; }

  private:
    WriterState& state;
};

WriterState states[3];
unsigned logging;  // threads: bits

void checkReplaced() {
    for (const WriterState& state : states)
        require(!state.replaced || state.destroyed || state.users,
                "a replaced writer goes with its last user");
}

void logLines(int count) {
    const unsigned me = 1U << current();
    for (; count > 0; --count) {
        logging |= me;
        LogWrapper::getInstance().log(LOG_API, kLogTag, "a line");
        logging &= ~me;
        for (WriterState& state : states) state.users &= ~me;
        checkReplaced();
    }
}

void writerExchange() {
    passOverLog(false);
    for (WriterState& state : states) state = {};
    LogWrapper& log = LogWrapper::getInstance();
    log.setLogWriter(std::make_unique<CheckedWriter>(states[0]));
    together({[] { logLines(2); }, [] { logLines(2); }}, [&log] {
        for (int i = 0; i < 3; ++i) {
            states[i].mayGo = true;
            log.setLogWriter(i < 2 ? std::make_unique<CheckedWriter>(states[i + 1]) : nullptr);
            states[i].replaced = true;
            states[i].users = logging;
            checkReplaced();
        }
    });
    for (const WriterState& state : states) require(state.destroyed, "replaced writers go");
}

void writerAtExit() {
    passOverLog(false);
    // Called after what has begun since.
    states[0].mayGo = true;
    atexit([] { require(states[0].destroyed || logging, "the writer goes at exit"); });
    LogWrapper::getInstance().setLogWriter(std::make_unique<CheckedWriter>(states[0]));
    together({[] { logLines(2); }, [] { logLines(1); }}, [] { exit(0); });
}

// The process's manager goes at exit, under a call and before another.
void engineAtExit() {
    passOverLog(true);
    atexit([] {
        endModem();
        endDescriptors();
    });
    Manager& manager = Manager::getInstance();
    manager.init(0, false);
    settle();
    Key key = manager.addProfile(kTransient);
    together({[&manager, &key] {
                 key->registerExpirationListener([] {});
                 manager.getProfile(key);
                 key.reset();
             }},
             [] { exit(0); });
}

// --- Faults that must be found ---

std::mutex mutexes[2];
std::condition_variable condition;

void opposedLocks() {
    const auto lockBoth = [](int first) {
        const std::lock_guard outer(mutexes[first]);
        const std::lock_guard inner(mutexes[1 - first]);
    };
    together({[&] { lockBoth(0); }}, [&] { lockBoth(1); });
}

void flagSetWithoutLock() {
    bool set = false;
    together({[&] {
                 std::unique_lock lock(mutexes[0]);
                 while (!set) {
                     reach("a look at the flag");
                     condition.wait(lock);
                 }
             }},
             [&] {
                 reach("a change of the flag");
                 set = true;
                 condition.notify_all();
             });
}

void lateWrite() {
    const int fd = eventfd(0, EFD_NONBLOCK);
    const uint64_t one = 1;
    together({[&] { close(fd); }},
             [&] { require(write(fd, &one, sizeof one) == sizeof one, "it is written"); });
}

void endlessTurns() {
    bool set = false;
    together({[&] {
                 while (!set) reach("a look at the flag");
             }},
             [&] {
                 reach("a change of the flag");
                 set = true;
             });
}

constexpr Scenario kScenarios[] = {
    {"call-engine", callAgainstEngine},
    {"call-end", callAgainstEnd},
    {"call-init", callAgainstInit},
    {"overlap-end", overlapAgainstEnd},
    {"overlap-end-init", overlapAgainstEndAndInit},
    {"release-call-end", releaseAgainstCallAndEnd},
    {"indications", indicationsAgainstQueueRestartAndEnd},
    {"dump-refresh", dumpAgainstRefresh},
    {"listener-deletion", listenerAgainstDeletion},
    {"writer-exchange", writerExchange},
    {"writer-exit", writerAtExit, true},
    {"engine-exit", engineAtExit, true},
    {"fault/deadlock", opposedLocks, false, "no thread can go on"},
    {"fault/lost-wake-up", flagSetWithoutLock, false, "no thread can go on"},
    {"fault/closed-descriptor", lateWrite, false, "which is closed"},
    {"fault/livelock", endlessTurns, false, "steps"},
};

int usage() {
    fprintf(
        stderr,
        "usage: schedules [--preemptions N] [--seconds N] [--random N] [--seed N] [--replay LIST] "
        "[SCENARIO...]\n");
    return 2;
}

int runAll(int argc, char** argv) {
    Limits limits = {3000, 2, 300, 600, 1};
    Schedule replay;
    int i = 1;
    for (; i < argc && strncmp(argv[i], "--", 2) == 0; i += 2) {
        if (i + 1 == argc) return usage();
        const std::string_view name = argv[i];
        char* end = nullptr;
        const unsigned long number = strtoul(argv[i + 1], &end, 10);
        if (name == "--seconds") {
            limits.seconds = static_cast<unsigned>(number);
            limits.schedules = SIZE_MAX;
        } else if (name == "--preemptions" && number <= kMostPreemptions) {
            limits.preemptions = static_cast<unsigned>(number);
        } else if (name == "--random") {
            limits.random = number;
        } else if (name == "--seed") {
            limits.seed = static_cast<uint32_t>(number);
        } else if (name == "--replay") {
            replay.push_back(static_cast<uint8_t>(number));
            while (*end == ',') replay.push_back(static_cast<uint8_t>(strtoul(end + 1, &end, 10)));
        } else {
            return usage();
        }
        if (*end) return usage();
    }
    unsigned ran = 0, failed = 0;
    for (const Scenario& scenario : kScenarios) {
        bool wanted = i == argc;
        for (int j = i; j < argc; ++j) wanted |= strcmp(argv[j], scenario.name) == 0;
        if (!wanted) continue;
        ++ran;
        failed += !run(scenario, limits, replay.empty() ? nullptr : &replay);
    }
    if (ran == 0) return usage();
    return failed ? 1 : 0;
}

}  // namespace
}  // namespace zem::schedules

int main(int argc, char** argv) {
    return zem::schedules::runAll(argc, argv);
}
