#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <future>
#include <thread>

#include "AdbWriter.h"
#include "CapturedStream.h"
#include "DiagWriter.h"
#include "LocalLogBuffer.h"
#include "LogWrapper.h"
#include "TestLog.h"
#include "softmodem/SoftModem.h"

namespace zem {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

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

TEST(LogWrapperTest, OnlyErrorsAndApiLinesAreKeptWhetherOrNotThereIsAWriter) {
    const struct {
        LogLevel level;
        bool kept;
    } cases[] = {{LOG_VERBOSE, false}, {LOG_DEBUG, false},           {LOG_INFO, false},
                 {LOG_ERROR, true},    {LOG_FATAL, false},           {LOG_API, true},
                 {LogLevel(6), false}, {LogLevel(0xFFFFFFFF), false}};
    for (const auto& c : cases) {
        for (const bool hasWriter : {true, false}) {
            SCOPED_TRACE(::testing::Message() << "level " << c.level << " writer " << hasWriter);
            std::optional<RecordedLog> log;
            if (hasWriter) log.emplace();
            LocalLogBuffer::getInstance().flush();

            LogWrapper::getInstance().log(c.level, kLogTag, "line %d", 1);

            EXPECT_EQ(keptLines().size(), c.kept ? 1u : 0u);
            if (log) {
                EXPECT_THAT(log->lines(), ElementsAre(Line{c.level, "line 1"}));
            }
        }
    }
}

TEST(LogWrapperTest, ReplacedWriterLivesUntilTheLastWriteThroughItReturns) {
    std::atomic<bool> destroyed{false};
    std::promise<void> entered, mayReturn;
    LogWrapper::getInstance().setLogWriter(std::make_unique<HookedWriter>(
        [&] {
            entered.set_value();
            mayReturn.get_future().wait();
        },
        [&] { destroyed = true; }));
    std::thread logging([] { ZEM_LOG(LOG_INFO, "slow"); });
    EXPECT_EQ(entered.get_future().wait_for(kLimit), std::future_status::ready);

    LogWrapper::getInstance().setLogWriter(nullptr);

    EXPECT_FALSE(destroyed);
    mayReturn.set_value();
    logging.join();
    EXPECT_TRUE(destroyed);
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

TEST(LocalLogBufferTest, LineHasLocalTimeInMillisecondsThenNameThenMessage) {
    tzset();
    setenv("TZ", "TST-05:30", 1);  // 5:30 ahead of UTC, which no default is
    LocalLogBuffer buffer("radio", 5);
    const auto now = [] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::system_clock::now().time_since_epoch())
            .count();
    };
    while (now() % 1000 < 100) std::this_thread::yield();  // until the milliseconds have all digits

    const auto before = now();
    buffer.addLogWithTimestamp("say 100% of it");
    const auto after = now();
    unsetenv("TZ");

    const std::string line = buffer.getLogs().at(0);
    EXPECT_THAT(line, MatchesRegex("    [0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}"
                                   "\\.[0-9]{3} \\[radio\\]say 100% of it"));
    tm fields = {};
    const char* const rest = strptime(line.c_str(), " %Y-%m-%d %H:%M:%S", &fields);
    ASSERT_NE(rest, nullptr);
    const auto told = (timegm(&fields) - 330L * 60) * 1000 + strtol(rest + 1, nullptr, 10);
    EXPECT_GE(told, before);
    EXPECT_LE(told, after);
    EXPECT_EQ(buffer.getName(), "radio");
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

// One test for all that goes through the channel: the mask is the first line's of the process.
TEST(LogWritersTest, DiagnosticChannelGetsAllLinesUnderTheMaskOfTheFirst) {
    auto& modem = softmodem::SoftModem::instance();
    modem.reset();
    LogWrapper::getInstance().setLogWriter(std::make_unique<DiagWriter>());
    EXPECT_TRUE(modem.counters().diagOpen);

    ZEM_LOG(LOG_DEBUG, "first");
    ZEM_LOG(LOG_ERROR, "%s", "100% %s %n done");
    LogWrapper::getInstance().setLogWriter(nullptr);
    EXPECT_FALSE(modem.counters().diagOpen);
    LogWrapper::getInstance().setLogWriter(std::make_unique<DiagWriter>());
    ZEM_LOG(LOG_FATAL, "from the next writer");
    LogWrapper::getInstance().setLogWriter(nullptr);

    std::vector<std::string> texts;
    for (const auto& line : modem.diagLines()) {
        texts.push_back(line.text);
        EXPECT_EQ(line.line, 116u);
        EXPECT_EQ(line.subsystem, 63u);
        EXPECT_EQ(line.mask, 1u);
        EXPECT_EQ(line.file, "src/LocalLogBuffer");
    }
    EXPECT_THAT(texts,
                ElementsAre("|ZEM| first", "|ZEM| 100% %s %n done", "|ZEM| from the next writer"));
}

}  // namespace
}  // namespace zem
