#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <future>
#include <optional>
#include <thread>

#include "AdbWriter.h"
#include "CapturedStream.h"
#include "DiagWriter.h"
#include "LocalLogBuffer.h"
#include "LogWrapper.h"
#include "TestLog.h"
#include "softmodem/SoftModem.h"

namespace {

std::optional<timeval> fakeNow;

}  // namespace

// In place of the C library's: the time that a test wants it to be.
extern "C" int gettimeofday(timeval* now, void*) noexcept {
    timespec precise = {};
    clock_gettime(CLOCK_REALTIME, &precise);
    *now = fakeNow.value_or(timeval{precise.tv_sec, precise.tv_nsec / 1000});
    return 0;
}

namespace zem {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr auto kLimit = std::chrono::seconds(10);

std::vector<std::string> keptLines() {
    return LocalLogBuffer::getInstance().getLogs();
}

// A writer that does what a test tells it to.
struct HookedWriter : LogWriter {
    HookedWriter(std::function<void()> onWrite, std::function<void()> onDestruction)
        : onWrite(std::move(onWrite)), onDestruction(std::move(onDestruction)) {}
    ~HookedWriter() override { onDestruction(); }
    void write(LogLevel, std::string, std::string) override { onWrite(); }
    int convertPrio(LogLevel) override { return 0; }
    const std::function<void()> onWrite, onDestruction;
};

// A writer whose write() begins and ends when the test says so.
class HeldWriter {
  public:
    void install() {
        LogWrapper::getInstance().setLogWriter(std::make_unique<HookedWriter>(
            [this] {
                entered.set_value();
                mayReturn.get_future().wait();
            },
            [this] { destroyed = true; }));
    }
    void occupy() {
        thread = std::thread([] { ZEM_LOG(LOG_INFO, "slow"); });
        ASSERT_EQ(entered.get_future().wait_for(kLimit), std::future_status::ready);
    }
    void leave() {
        mayReturn.set_value();
        thread.join();
    }
    std::atomic<bool> destroyed{false};

  private:
    std::promise<void> entered, mayReturn;
    std::thread thread;
};

TEST(LogWrapperTest, ReplacedWriterGoesThoughThreadsAreInOtherWriters) {
    HeldWriter busy, alsoBusy, idle;
    busy.install();
    busy.occupy();
    idle.install();
    alsoBusy.install();
    EXPECT_TRUE(idle.destroyed);
    alsoBusy.occupy();

    busy.leave();

    EXPECT_TRUE(busy.destroyed);
    LogWrapper::getInstance().setLogWriter(nullptr);
    EXPECT_FALSE(alsoBusy.destroyed);
    alsoBusy.leave();
    EXPECT_TRUE(alsoBusy.destroyed);
}

TEST(LogWrapperTest, WriterMayLogWhileItIsBeingDestroyed) {
    LogWrapper::getInstance().setLogWriter(
        std::make_unique<HookedWriter>([] {}, [] { ZEM_LOG(LOG_INFO, "closing"); }));

    RecordedLog log;

    EXPECT_TRUE(log.contains("closing"));
}

TEST(LogWrapperTest, WritersMayBeReplacedWhileOtherThreadsLog) {
    constexpr unsigned kThreads = 4, kLines = 5000, kWriters = 3000;
    std::atomic<unsigned> lines{0}, destroyed{0};
    const auto replace = [&] {
        LogWrapper::getInstance().setLogWriter(
            std::make_unique<HookedWriter>([&] { ++lines; }, [&] { ++destroyed; }));
    };
    LocalLogBuffer::getInstance().flush();
    replace();

    std::vector<std::thread> threads;
    for (unsigned t = 0; t < kThreads; ++t) {
        threads.emplace_back([] {
            for (unsigned i = 0; i < kLines; ++i) ZEM_LOG(LOG_ERROR, "busy %u", i);
        });
    }
    for (unsigned i = 1; i < kWriters; ++i) replace();
    for (auto& thread : threads) thread.join();
    LogWrapper::getInstance().setLogWriter(nullptr);

    EXPECT_EQ(lines, kThreads * kLines);
    EXPECT_EQ(destroyed, kWriters);
    EXPECT_EQ(keptLines().size(), 201u);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
template <class... Arguments>
void expectPrinted(const char* format, Arguments... arguments) {
    char expected[512] = {};
    snprintf(expected, sizeof expected, format, arguments...);
    RecordedLog log;

    LogWrapper::getInstance().log(LOG_ERROR, kLogTag, format, arguments...);

    EXPECT_THAT(log.lines(), ElementsAre(Line{LOG_ERROR, expected})) << format;
    EXPECT_THAT(keptLines().back(), EndsWith(std::string("[ZEM]") + expected));
}
#pragma GCC diagnostic pop

TEST(LogWrapperTest, LinesReadAsPrintfHasThem) {
    const std::string longest(511, 'l'), longer(600, 'm');
    const char* const none = nullptr;
    const int object = 0;
    const void *const somewhere = &object, *const nowhere = nullptr;
    expectPrinted("");
    expectPrinted("%s", "");
    expectPrinted("%s%s|%d", "a", "%d", INT_MIN);
    expectPrinted("%d,%d and %d.", INT_MAX, 0, -1);
    expectPrinted("%p at %s", somewhere, "home");
    expectPrinted("%s: %p", "null", nowhere);
    expectPrinted("before %s after %d", none, 7);
    expectPrinted("%d %5d|%-4s|%lu|0%o|%c|%x%%", 1, 2, "3", 4ul, 5u, '6', 0x7Fu);
    expectPrinted("100%% of %s", "it");
    expectPrinted("%s", longest.c_str());
    expectPrinted("%s", longer.c_str());
    expectPrinted("%s%d", longest.substr(0, 508).c_str(), 12345);
    expectPrinted("%s%lu", longest.substr(0, 508).c_str(), 12345ul);
    expectPrinted("%s%s%d%p", longer.c_str(), "lost", 1, somewhere);
}

// In the order of the rows: each finds what the ones before have left behind.
TEST(LocalLogBufferTest, LineHasLocalTimeInMillisecondsThenNameThenMessage) {
    const std::string tooLong = "<" + std::string(80, 'L') + ">+2";
    const struct {
        const char* zone;  // null: not set
        timeval now;
        const char* expected;
    } cases[] = {
        {"TST-05:30", {1762677000, 123999}, "2025-11-09 14:00:00.123"},
        {"TST-05:30", {1762677000, 999999}, "2025-11-09 14:00:00.999"},
        {"TST-05:30", {1762677001, 0}, "2025-11-09 14:00:01.000"},
        {"UTC0", {1762677001, 1000}, "2025-11-09 08:30:01.001"},  // within the second
        {"TST-05:30", {1762677001, 2000}, "2025-11-09 14:00:01.002"},
        {"TST-05:3", {1762677001, 3000}, "2025-11-09 13:33:01.003"},
        {"", {1762677001, 4000}, "2025-11-09 08:30:01.004"},
        {nullptr, {1762677001, 5000}, nullptr},
        {tooLong.c_str(), {1762677001, 6000}, "2025-11-09 06:30:01.006"},
        {tooLong.c_str(), {1762677001, 7000}, "2025-11-09 06:30:01.007"},
        {tooLong.c_str(), {-1, 0}, "1969-12-31 21:59:59.000"},
        {"UTC0", {1762677001, 8000}, "2025-11-09 08:30:01.008"},
        {"UTC0", {1762670000, 9000}, "2025-11-09 06:33:20.009"},  // the clock was set back
        {"CET-1CEST,M3.5.0,M10.5.0/3", {1761440399, 0}, "2025-10-26 02:59:59.000"},
        {"CET-1CEST,M3.5.0,M10.5.0/3", {1761440400, 0}, "2025-10-26 02:00:00.000"},
        {"UTC0", {-1, 0}, "1969-12-31 23:59:59.000"},
        {"UTC0", {0, 0}, "1970-01-01 00:00:00.000"},
    };
    LocalLogBuffer buffer("radio", 0);
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << (c.zone ? c.zone : "no zone") << " " << c.now.tv_sec);
        if (c.zone) {
            setenv("TZ", c.zone, 1);
        } else {
            unsetenv("TZ");
        }
        fakeNow = c.now;

        buffer.addLogWithTimestamp("say 100% of it");

        std::string expected = c.expected ? c.expected : "";
        if (!c.expected) {  // the machine's own zone
            char text[50];
            strftime(text, sizeof text, "%F %X.005", localtime(&c.now.tv_sec));
            expected = text;
        }
        EXPECT_THAT(buffer.getLogs(), ElementsAre("    " + expected + " [radio]say 100% of it"));
    }
    fakeNow.reset();
    unsetenv("TZ");
    EXPECT_EQ(buffer.getName(), "radio");
}

TEST(LocalLogBufferTest, LineTellsTheTimeAtWhichItWasAdded) {
    setenv("TZ", "UTC0", 1);
    LocalLogBuffer buffer("radio", 0);
    const auto now = [] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::system_clock::now().time_since_epoch())
            .count();
    };

    const auto before = now();
    buffer.addLogWithTimestamp("");
    const auto after = now();
    unsetenv("TZ");

    tm fields = {};
    const std::string line = buffer.getLogs().at(0);
    const char* const rest = strptime(line.c_str(), " %Y-%m-%d %H:%M:%S", &fields);
    ASSERT_NE(rest, nullptr);
    const auto told = timegm(&fields) * 1000 + strtol(rest + 1, nullptr, 10);
    EXPECT_GE(told, before);
    EXPECT_LE(told, after);
}

TEST(LocalLogBufferTest, SettlesAtOneLineMoreThanItsCapacityKeepingTheNewest) {
    const struct {
        int capacity;
        size_t appended, kept;
    } cases[] = {{200, 200, 200}, {200, 201, 201}, {200, 202, 201}, {200, 250, 201},
                 {0, 1, 1},       {0, 7, 1},       {1, 7, 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.appended << " into " << c.capacity);
        LocalLogBuffer buffer("ZEM", c.capacity);

        for (size_t i = 0; i < c.appended; ++i)
            buffer.addLogWithTimestamp(" line " + std::to_string(i));

        const auto lines = buffer.getLogs();
        ASSERT_EQ(lines.size(), c.kept);
        for (size_t i = 0; i < c.kept; ++i)
            EXPECT_THAT(lines[i], EndsWith("] line " + std::to_string(c.appended - c.kept + i)));
        EXPECT_EQ(buffer.getLogs(), lines);  // reading takes nothing away
        buffer.flush();
        EXPECT_THAT(buffer.getLogs(), IsEmpty());
    }
}

TEST(LogWritersTest, EachSinkHasItsOwnValueForALevelAndAndroidGetsTheMessageVerbatim) {
    const struct {
        uint32_t level;
        int android, diagnostic;
        const char* letter;
    } cases[] = {{0, 2, 1, " V "},  {1, 3, 1, " D "}, {2, 4, 1, " I "}, {3, 6, 4, " E "},
                 {4, 7, 16, " F "}, {5, 4, 4, " I "}, {6, 4, 1, " I "}, {0xFFFFFFFF, 4, 1, " I "}};
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.level);
        const CapturedStream captured(STDERR_FILENO);

        AdbWriter().write(LogLevel(c.level), "TAG", "100% %s %n done");

        EXPECT_THAT(captured.text(),
                    AllOf(HasSubstr("TAG"), HasSubstr(c.letter), EndsWith("100% %s %n done\n")));
        EXPECT_EQ(AdbWriter().convertPrio(LogLevel(c.level)), c.android);
        EXPECT_EQ(DiagWriter().convertPrio(LogLevel(c.level)), c.diagnostic);
    }
}

}  // namespace
}  // namespace zem
