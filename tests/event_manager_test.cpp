// The loop is stepped by hand; it runs on a thread of its own only where a test is about that.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zem/EventManager.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <future>
#include <thread>
#include <utility>

#include "CapturedStream.h"
#include "EventFd.h"
#include "TestLog.h"

namespace zem {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

std::string text(const char* before, int fd, const char* after) {
    return before + std::to_string(fd) + after;
}

// Two ends of a pipe; one that has been closed, here or by the loop, is -1.
struct Pipe {
    Pipe() { EXPECT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0); }
    ~Pipe() { close(reader), close(writer); }
    Pipe(const Pipe&) = delete;

    void fill() const { EXPECT_EQ(write(writer, "x", 1), 1); }
    static void closeEnd(int& end) { close(std::exchange(end, -1)); }

    int ends[2] = {-1, -1};
    int &reader = ends[0], &writer = ends[1];
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
        const auto turn = std::async(std::launch::async, [this] { manager.processEvents(); });
        if (turn.wait_for(std::chrono::seconds(10)) == std::future_status::ready) return;
        ADD_FAILURE() << "no event came";
        manager.wake();
    }

    Pipe pipe, other;
    RecordedLog log;
    EventManager manager;
    Calls calls, closeCalls;
};

TEST_F(EventManagerTest, HangUpOrInputOfUnapprovedDescriptorRemovesAndClosesIt) {
    closeCalls.action = [&](int) { EXPECT_EQ(manager.removeEventHandler(-1), 0); };
    for (Pipe* const each : {&pipe, &other}) {
        const bool hangsUp = each == &pipe;
        const int fd = each->reader;
        manager.addEventHandler(fd, Calls::record, &closeCalls, Calls::record, EPOLLIN);
        each->fill();
        if (hangsUp) Pipe::closeEnd(each->writer);
        if (!hangsUp) EventManager::remApprovedFd(fd);

        step();

        EXPECT_THAT(std::exchange(closeCalls.fds, {}), ElementsAre(fd));  // closed, not read
        EXPECT_FALSE(isOpen(std::exchange(each->reader, -1)));
        const std::string line =
            text(hangsUp ? "file descriptor '" : "file descriptor ", fd,
                 hangsUp ? "' sent HUP." : " is not on the approved list, cannot process event");
        EXPECT_TRUE(log.contains(LOG_INFO, line));
    }
    EXPECT_EQ(log.count("Cannot remove event handler"), 2u);  // only that of -1, from the callback
}

TEST_F(EventManagerTest, HandlersMayComeAndGoDuringATurn) {
    const Pipe added;
    calls.action = [&](int fd) {
        EXPECT_EQ(manager.removeEventHandler(fd), 1);
        EXPECT_EQ(manager.removeEventHandler(other.reader), 1);  // its event is on its way
        EventManager::addApprovedFd(other.reader);
        manager.addEventHandler(added.reader, nullptr, nullptr, nullptr, EPOLLIN);
    };
    for (const Pipe* const ready : {&pipe, &other}) {
        manager.addEventHandler(ready->reader, Calls::record, &calls, nullptr, EPOLLIN);
        ready->fill();
    }
    added.fill();

    step();
    EXPECT_TRUE(log.contains(LOG_INFO, text("file descriptor '", other.reader,
                                            "' does not have an event handler registered")));
    EXPECT_TRUE(isOpen(other.reader));
    step();
    EXPECT_TRUE(log.contains(LOG_ERROR, "no callback registered"));
    EXPECT_TRUE(isOpen(added.reader));

    EXPECT_THAT(calls.fds, ElementsAre(pipe.reader));
    EventManager::remApprovedFd(other.reader);
}

TEST_F(EventManagerTest, MoreThanFourReadyAreLeftForTheNextTurn) {
    std::vector<EventFd> ready(6);
    calls.action = [](int fd) { EventManager::clearRead(fd, nullptr); };
    for (EventFd& one : ready) {
        one = EventFd::create();
        one.signal();
        manager.addEventHandler(one.get(), Calls::record, &calls, nullptr, EPOLLIN);
    }

    step();
    EXPECT_EQ(calls.fds.size(), 4u);
    EXPECT_TRUE(log.contains(LOG_VERBOSE, "there are 1 file descriptor(s) with events pending"));
    step();

    EXPECT_EQ(calls.fds.size(), 6u);  // each once: the handler has drained it
}

TEST_F(EventManagerTest, DestructionLeavesDescriptorsToTheirOwners) {
    EventManager().addEventHandler(pipe.reader, nullptr, &closeCalls, Calls::record, EPOLLIN);

    EXPECT_THAT(closeCalls.fds, IsEmpty());
    EXPECT_TRUE(isOpen(pipe.reader));
    EXPECT_EQ(EventManager::remApprovedFd(pipe.reader), 1);
}

TEST_F(EventManagerTest, DrainingStopsWhereNothingMoreCanCome) {
    pipe.fill();
    other.fill();
    Pipe::closeEnd(other.writer);
    log.clear();

    EventManager::clearRead(pipe.reader, nullptr);
    EventManager::clearRead(other.reader, nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());

    EventManager::clearRead(-1, nullptr);
    EXPECT_TRUE(log.contains(LOG_INFO, "Error while clearing the read buffer on fd -1"));
}

// A loop that runs on a thread of its own until the test ends.
class RunningEventManagerTest : public EventManagerTest {
  protected:
    ~RunningEventManagerTest() override {
        stop = true;
        manager.wake();
        engine.join();
    }

    // False when waking does not make the loop turn.
    bool turnsWhenWoken() {
        const CapturedStream console(STDOUT_FILENO);
        const size_t turns = log.count("end of turn");
        manager.wake();
        return log.waitFor("end of turn", turns + 1);
    }

    std::atomic<bool> stop{false};
    std::thread engine{[this] {
        while (!stop) {
            manager.processEvents();
            ZEM_LOG(LOG_INFO, "end of turn");
        }
    }};
};

TEST_F(RunningEventManagerTest, WakeFromAnotherThreadEndsTheWait) {
    for (int i = 0; i < 100; ++i) ASSERT_TRUE(turnsWhenWoken());
}

TEST_F(RunningEventManagerTest, DescriptorAddedWhileReadableLosesNoEvent) {
    const auto handle = [](int fd, void*) {
        EventManager::clearRead(fd, nullptr);
        ZEM_LOG(LOG_INFO, "handled");
    };
    for (int i = 0; i < 2000; ++i) {
        log.clear();
        const EventFd ready = EventFd::create();
        ready.signal();

        manager.addEventHandler(ready.get(), handle, nullptr, nullptr, EPOLLIN);

        ASSERT_TRUE(log.waitFor("handled"));
        manager.removeEventHandler(ready.get());
        ASSERT_TRUE(isOpen(ready.get()));
    }
}

TEST(EventManagerDeathTest, LoopThatGoesAtExitStillHasItsWriter) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";  // nothing has been logged before
    const auto live = [] {
        static const EventManager loop;
        logToErrorOutput();
        exit(0);
    };
    EXPECT_EXIT(live(), testing::ExitedWithCode(0), "EventManager::removeEventHandler");
}

}  // namespace
}  // namespace zem
