// The loop is stepped on the test's own thread; other threads only where a test is about them.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <zem/EventManager.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <future>
#include <thread>

#include "CapturedStream.h"
#include "EventFd.h"
#include "TestLog.h"

namespace zem {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAreArray;

constexpr auto kLimit = std::chrono::seconds(10);

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

std::string text(const char* before, int fd, const char* after) {
    return before + std::to_string(fd) + after;
}

// Two ends of a pipe; an end may be closed before, here or by the loop.
struct Pipe {
    Pipe() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
        reader = ends[0];
        writer = ends[1];
    }
    ~Pipe() {
        closeReader();
        closeWriter();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    void fill() const { EXPECT_EQ(write(writer, "x", 1), 1); }
    void closeReader() { closeOnce(reader); }
    void closeWriter() { closeOnce(writer); }
    int reader, writer;

  private:
    static void closeOnce(int& fd) {
        if (fd != -1) close(fd);
        fd = -1;
    }
};

// What a handler was called with, and what it shall do besides.
struct Calls {
    std::vector<int> fds;
    std::function<void(int fd)> action;

    static void record(int fd, void* data) {
        auto* const calls = static_cast<Calls*>(data);
        calls->fds.push_back(fd);
        if (calls->action) calls->action(fd);
    }
};

class EventManagerTest : public ::testing::Test {
  protected:
    // One turn of the loop; one in which nothing comes fails the test instead of blocking it.
    void step() {
        std::promise<void> done;
        std::thread watchdog([this, finished = done.get_future()]() mutable {
            if (finished.wait_for(kLimit) == std::future_status::ready) return;
            ADD_FAILURE() << "no event came";
            manager.wake();
        });
        manager.processEvents();
        done.set_value();
        watchdog.join();
    }

    RecordedLog log;
    EventManager manager;
    Calls calls;
    Calls closeCalls;
};

TEST_F(EventManagerTest, SecondRegistrationIsRefusedAndLeavesTheFirst) {
    const Pipe pipe;
    Calls others;
    EXPECT_TRUE(manager.addEventHandler(pipe.reader, Calls::record, &calls, nullptr, EPOLLIN));

    EXPECT_FALSE(manager.addEventHandler(pipe.reader, Calls::record, &others, nullptr, EPOLLOUT));

    EXPECT_TRUE(log.contains(LOG_INFO, text("fd=", pipe.reader, " is already in handlers")));
    pipe.fill();
    step();
    EXPECT_THAT(calls.fds, ElementsAre(pipe.reader));
    EXPECT_THAT(others.fds, IsEmpty());
}

TEST_F(EventManagerTest, DescriptorThatCannotBeWatchedIsRecordedAllTheSame) {
    FILE* const file = tmpfile();  // epoll takes no regular files
    const int fd = fileno(file);

    EXPECT_TRUE(manager.addEventHandler(fd, Calls::record, &calls, nullptr, EPOLLIN));

    EXPECT_TRUE(log.contains(LOG_ERROR, "Cannot add event handler"));
    EXPECT_FALSE(manager.addEventHandler(fd, Calls::record, &calls, nullptr, EPOLLIN));
    EXPECT_EQ(manager.removeEventHandler(fd), 1);
    EXPECT_TRUE(log.contains(LOG_ERROR, "Cannot remove event handler"));
    fclose(file);
}

TEST_F(EventManagerTest, HangUpWinsOverInputAndClosesTheDescriptor) {
    Pipe pipe;
    const int fd = pipe.reader;
    const Pipe other;
    closeCalls.action = [&](int) {
        EXPECT_TRUE(manager.addEventHandler(other.reader, nullptr, nullptr, nullptr, EPOLLIN));
    };
    manager.addEventHandler(fd, Calls::record, &closeCalls, Calls::record, EPOLLIN);
    pipe.fill();
    pipe.closeWriter();

    step();

    EXPECT_THAT(closeCalls.fds, ElementsAre(fd));  // by the close callback alone
    EXPECT_TRUE(log.contains(LOG_INFO, text("file descriptor '", fd, "' sent HUP.")));
    EXPECT_FALSE(isOpen(fd));
    EXPECT_FALSE(EventManager::isApprovedFd(fd));
    pipe.reader = -1;
}

TEST_F(EventManagerTest, OtherEventsAreNamedInOrderAndLeaveTheDescriptorRegistered) {
    const struct {
        const char* name;
        int events;
        bool readerCloses;
        const char* line;
    } cases[] = {
        {"only an error", 0, true, "Unhandled epoll event: EPOLLERR  [flags 010]"},
        {"room to write", EPOLLOUT, false, "Unhandled epoll event: EPOLLOUT  [flags 04]"},
        {"both", EPOLLOUT, true, "Unhandled epoll event: EPOLLOUT EPOLLERR  [flags 014]"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        log.clear();
        Pipe pipe;
        manager.addEventHandler(pipe.writer, Calls::record, &calls, nullptr, c.events);
        if (c.readerCloses) pipe.closeReader();

        step();

        EXPECT_TRUE(log.contains(LOG_INFO, c.line));
        EXPECT_TRUE(isOpen(pipe.writer));
        EXPECT_EQ(manager.removeEventHandler(pipe.writer), 1);
    }
    EXPECT_THAT(calls.fds, IsEmpty());
}

TEST_F(EventManagerTest, InputOfUnapprovedDescriptorRemovesAndClosesIt) {
    Pipe pipe;
    const int fd = pipe.reader;
    manager.addEventHandler(fd, Calls::record, &calls, nullptr, EPOLLIN);
    EXPECT_EQ(EventManager::remApprovedFd(fd), 1);
    pipe.fill();

    step();

    EXPECT_THAT(calls.fds, IsEmpty());
    EXPECT_TRUE(log.contains(LOG_INFO, text("file descriptor ", fd,
                                            " is not on the approved list, cannot process event")));
    EXPECT_FALSE(isOpen(fd));
    pipe.reader = -1;
}

TEST_F(EventManagerTest, InputWithoutHandlerIsLeftAlone) {
    const Pipe first;
    const Pipe second;
    calls.action = [&](int) {  // the second one's event is already on its way
        manager.removeEventHandler(second.reader);
        EventManager::addApprovedFd(second.reader);
    };
    manager.addEventHandler(first.reader, Calls::record, &calls, nullptr, EPOLLIN);
    manager.addEventHandler(second.reader, Calls::record, &calls, nullptr, EPOLLIN);
    first.fill();
    second.fill();

    step();

    EXPECT_THAT(calls.fds, ElementsAre(first.reader));
    EXPECT_TRUE(log.contains(LOG_INFO, text("file descriptor '", second.reader,
                                            "' does not have an event handler registered")));
    EXPECT_TRUE(isOpen(second.reader));
    EventManager::remApprovedFd(second.reader);
}

TEST_F(EventManagerTest, NullCallbackIsLogged) {
    const Pipe pipe;
    manager.addEventHandler(pipe.reader, nullptr, nullptr, nullptr, EPOLLIN);
    pipe.fill();

    step();

    EXPECT_TRUE(log.contains(LOG_ERROR, "no callback registered"));
    EXPECT_TRUE(isOpen(pipe.reader));
    manager.removeEventHandler(pipe.reader);
}

TEST_F(EventManagerTest, RemovalReturnsWhatTheApprovedListLost) {
    const struct {
        const char* name;
        bool registered, approved;
        int lost;
    } cases[] = {{"unknown", false, false, 0},
                 {"only approved", false, true, 1},
                 {"registered", true, true, 1},
                 {"registered, approval taken back", true, false, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Pipe pipe;
        closeCalls.fds.clear();
        if (c.registered)
            manager.addEventHandler(pipe.reader, nullptr, &closeCalls, Calls::record, EPOLLIN);
        if (c.approved) EventManager::addApprovedFd(pipe.reader);
        if (!c.approved) EventManager::remApprovedFd(pipe.reader);
        log.clear();

        EXPECT_EQ(manager.removeEventHandler(pipe.reader), c.lost);

        EXPECT_EQ(closeCalls.fds.size(), c.registered ? 1u : 0u);
        EXPECT_EQ(log.count(LOG_ERROR, "Cannot remove event handler"), c.registered ? 0u : 1u);
        EXPECT_EQ(log.lines().size(), c.registered ? 1u : 2u);
        EXPECT_FALSE(EventManager::isApprovedFd(pipe.reader));
        EXPECT_TRUE(isOpen(pipe.reader));
    }
}

TEST_F(EventManagerTest, HandlerMayRemoveItselfAndAddAnother) {
    const Pipe once;
    const Pipe other;
    manager.addEventHandler(once.reader, Calls::record, &calls, nullptr, EPOLLIN);
    calls.action = [&](int fd) {
        EXPECT_EQ(manager.removeEventHandler(fd), 1);
        if (fd == once.reader)
            manager.addEventHandler(other.reader, Calls::record, &calls, nullptr, EPOLLIN);
    };
    once.fill();
    other.fill();

    step();
    step();

    EXPECT_THAT(calls.fds, ElementsAre(once.reader, other.reader));
}

TEST_F(EventManagerTest, MoreThanFourReadyAreLeftForTheNextTurn) {
    std::vector<EventFd> ready;
    std::vector<int> fds;
    calls.action = [](int fd) { EventManager::clearRead(fd, nullptr); };
    for (int i = 0; i < 6; ++i) {
        ready.push_back(EventFd::create());
        fds.push_back(ready.back().get());
        manager.addEventHandler(fds.back(), Calls::record, &calls, nullptr, EPOLLIN);
        ready.back().signal();
    }

    step();
    EXPECT_EQ(calls.fds.size(), 4u);
    EXPECT_TRUE(log.contains(LOG_VERBOSE, "there are 4 file descriptor(s) with events pending"));
    step();

    EXPECT_THAT(calls.fds, UnorderedElementsAreArray(fds));
    for (const int fd : fds) manager.removeEventHandler(fd);
}

TEST_F(EventManagerTest, DestructionLeavesDescriptorsToTheirOwners) {
    const Pipe pipe;
    {
        EventManager shortLived;
        shortLived.addEventHandler(pipe.reader, nullptr, &closeCalls, Calls::record, EPOLLIN);
    }

    EXPECT_THAT(closeCalls.fds, IsEmpty());
    EXPECT_TRUE(isOpen(pipe.reader));
    EXPECT_EQ(EventManager::remApprovedFd(pipe.reader), 1);
}

TEST_F(EventManagerTest, DrainingStopsWhereNothingMoreCanCome) {
    const EventFd counter = EventFd::create();
    counter.signal();
    Pipe ended;
    ended.fill();
    ended.closeWriter();
    log.clear();

    EventManager::clearRead(counter.get(), nullptr);
    EventManager::clearRead(ended.reader, nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
    EventManager::clearRead(-1, nullptr);

    uint64_t left = 0;
    EXPECT_EQ(read(counter.get(), &left, sizeof left), -1);
    EXPECT_TRUE(log.contains(LOG_INFO, "Error while clearing the read buffer on fd -1"));
}

TEST_F(EventManagerTest, WakingPrintsOnTheConsoleAndIsDrainedInOneTurn) {
    const Pipe pipe;
    manager.addEventHandler(pipe.reader, Calls::record, &calls, nullptr, EPOLLIN);
    {
        const CapturedStream console(STDOUT_FILENO);
        manager.wake();
        EXPECT_EQ(console.text(), "wake()\n");
    }
    step();
    pipe.fill();
    log.clear();

    step();

    EXPECT_THAT(calls.fds, ElementsAre(pipe.reader));
    EXPECT_EQ(log.count("there are 2 file descriptor(s) with events pending"), 0u);
}

// A loop that runs on a thread of its own until the test ends.
class RunningEventManagerTest : public EventManagerTest {
  protected:
    RunningEventManagerTest() {
        engine = std::thread([this] {
            while (!stop) {
                manager.processEvents();
                ZEM_LOG(LOG_INFO, "end of turn");
            }
        });
    }
    ~RunningEventManagerTest() override {
        const CapturedStream console(STDOUT_FILENO);
        stop = true;
        manager.wake();
        engine.join();
    }

    std::atomic<bool> stop{false};
    std::thread engine;
};

TEST_F(RunningEventManagerTest, WakeFromAnotherThreadEndsTheWait) {
    const CapturedStream console(STDOUT_FILENO);
    for (int i = 0; i < 100; ++i) {
        const size_t turns = log.count("end of turn");

        manager.wake();

        ASSERT_TRUE(log.waitFor("end of turn", turns + 1));
    }
}

TEST_F(RunningEventManagerTest, DescriptorAddedWhileReadableLosesNoEvent) {
    struct Seen {
        std::mutex mutex;
        std::condition_variable changed;
        int count = 0;

        static void record(int fd, void* data) {
            EventManager::clearRead(fd, nullptr);
            auto* const seen = static_cast<Seen*>(data);
            const std::lock_guard lock(seen->mutex);
            ++seen->count;
            seen->changed.notify_all();
        }
    } seen;
    for (int i = 0; i < 2000; ++i) {
        const EventFd ready = EventFd::create();
        ready.signal();

        manager.addEventHandler(ready.get(), Seen::record, &seen, nullptr, EPOLLIN);

        std::unique_lock lock(seen.mutex);
        ASSERT_TRUE(seen.changed.wait_for(lock, kLimit, [&] { return seen.count == i + 1; }));
        lock.unlock();
        manager.removeEventHandler(ready.get());
        ASSERT_TRUE(isOpen(ready.get()));
    }
}

TEST_F(RunningEventManagerTest, InterruptedWaitIsLoggedAndTheLoopGoesOn) {
    struct sigaction old = {};
    struct sigaction ignore = {};
    ignore.sa_handler = [](int) {};
    sigaction(SIGUSR1, &ignore, &old);
    const auto deadline = std::chrono::steady_clock::now() + kLimit;

    // Again and again: the signal may come while the thread is not waiting.
    while (!log.contains(LOG_ERROR, "epoll_wait error") &&
           std::chrono::steady_clock::now() < deadline) {
        pthread_kill(engine.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }

    EXPECT_TRUE(log.contains(LOG_ERROR, "epoll_wait error"));
    const CapturedStream console(STDOUT_FILENO);
    const size_t turns = log.count("end of turn");
    manager.wake();
    EXPECT_TRUE(log.waitFor("end of turn", turns + 1));
    sigaction(SIGUSR1, &old, nullptr);
}

}  // namespace
}  // namespace zem
