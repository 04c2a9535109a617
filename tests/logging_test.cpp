#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
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

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

constexpr auto kLimit = std::chrono::seconds(10);

std::vector<std::string> keptLines() {
    return LocalLogBuffer::getInstance().getLogs();
}

TEST(LogWrapperTest, MessageIsCutAt511Characters) {
    for (const size_t length : {0u, 1u, 510u, 511u, 512u, 513u, 600u}) {
        SCOPED_TRACE(length);
        RecordedLog log;
        LocalLogBuffer::getInstance().flush();
        std::string message(length, 'a');
        for (size_t i = 0; i < length; ++i) message[i] = static_cast<char>('a' + i % 26);

        ZEM_LOG(LOG_ERROR, "%s", message.c_str());

        const std::string expected = message.substr(0, 511);
        EXPECT_THAT(log.lines(), ElementsAre(Line{LOG_ERROR, expected}));
        EXPECT_THAT(keptLines(), ElementsAre(EndsWith("]" + expected)));
    }
}

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
    struct SlowWriter : LogWriter {
        ~SlowWriter() override { destroyed->store(true); }
        void write(LogLevel, std::string, std::string) override {
            entered->set_value();
            mayReturn.wait();
        }
        int convertPrio(LogLevel) override { return 0; }
        std::atomic<bool>* destroyed = nullptr;
        std::promise<void>* entered = nullptr;
        std::shared_future<void> mayReturn;
    };
    std::atomic<bool> destroyed{false};
    std::promise<void> entered;
    std::promise<void> mayReturn;
    auto writer = std::make_unique<SlowWriter>();
    writer->destroyed = &destroyed;
    writer->entered = &entered;
    writer->mayReturn = mayReturn.get_future().share();
    LogWrapper::getInstance().setLogWriter(std::move(writer));
    std::thread logging([] { ZEM_LOG(LOG_INFO, "slow"); });
    const bool inWrite = entered.get_future().wait_for(kLimit) == std::future_status::ready;

    LogWrapper::getInstance().setLogWriter(nullptr);

    EXPECT_TRUE(inWrite);
    EXPECT_FALSE(destroyed);
    mayReturn.set_value();
    logging.join();
    EXPECT_TRUE(destroyed);
}

TEST(LogWrapperTest, WriterMayLogWhileItIsBeingDestroyed) {
    struct TalkingWriter : LogWriter {
        ~TalkingWriter() override { ZEM_LOG(LOG_INFO, "closing"); }
        void write(LogLevel, std::string, std::string) override {}
        int convertPrio(LogLevel) override { return 0; }
    };
    LogWrapper::getInstance().setLogWriter(std::make_unique<TalkingWriter>());

    RecordedLog log;

    EXPECT_TRUE(log.contains("closing"));
}

TEST(LogWrapperTest, WritersMayBeReplacedWhileOtherThreadsLog) {
    struct Tally {
        std::atomic<unsigned> lines{0}, late{0}, destroyed{0};
    };
    struct CountingWriter : LogWriter {
        explicit CountingWriter(Tally& tally) : tally(tally) {}
        ~CountingWriter() override {
            alive = false;
            ++tally.destroyed;
        }
        void write(LogLevel, std::string, std::string) override {
            ++tally.lines;
            if (!alive) ++tally.late;
        }
        int convertPrio(LogLevel) override { return 0; }
        Tally& tally;
        std::atomic<bool> alive{true};
    };
    constexpr unsigned kThreads = 4, kLines = 500, kWriters = 300;
    LocalLogBuffer::getInstance().flush();
    Tally tally;
    LogWrapper::getInstance().setLogWriter(std::make_unique<CountingWriter>(tally));

    std::vector<std::thread> threads;
    for (unsigned t = 0; t < kThreads; ++t) {
        threads.emplace_back([] {
            for (unsigned i = 0; i < kLines; ++i) ZEM_LOG(LOG_ERROR, "busy %u", i);
        });
    }
    for (unsigned i = 1; i < kWriters; ++i)
        LogWrapper::getInstance().setLogWriter(std::make_unique<CountingWriter>(tally));
    for (auto& thread : threads) thread.join();
    LogWrapper::getInstance().setLogWriter(nullptr);

    EXPECT_EQ(tally.lines, kThreads * kLines);
    EXPECT_EQ(tally.late, 0u);
    EXPECT_EQ(tally.destroyed, kWriters);
    EXPECT_EQ(keptLines().size(), 201u);
}

TEST(LocalLogBufferTest, LineHasLocalTimeInMillisecondsThenNameThenMessage) {
    const char* const oldZone = getenv("TZ");
    const std::string restore = oldZone ? oldZone : "";
    setenv("TZ", "TST-05:30", 1);  // 5:30 ahead of UTC, which no default is
    LocalLogBuffer buffer("radio", 5);
    const auto clock = [](time_t time) {
        time += 5 * 3600 + 30 * 60;
        tm fields = {};
        char text[50];
        strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", gmtime_r(&time, &fields));
        return std::string(text);
    };

    const auto now = [] {  // time() lags behind the precise clock
        return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    };

    const time_t before = now();
    buffer.addLogWithTimestamp("say 100% of it");
    const time_t after = now();

    if (oldZone) {
        setenv("TZ", restore.c_str(), 1);
    } else {
        unsetenv("TZ");
    }
    tzset();
    const std::string line = buffer.getLogs().at(0);
    EXPECT_THAT(line, MatchesRegex("    [0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}"
                                   "\\.[0-9]{3} \\[radio\\]say 100% of it"));
    EXPECT_GE(line.substr(4, 19), clock(before));
    EXPECT_LE(line.substr(4, 19), clock(after));
}

TEST(LocalLogBufferTest, SettlesAtOneLineMoreThanItsCapacityKeepingTheNewest) {
    const struct {
        const char* name;
        int capacity;
        size_t appended, kept;
    } cases[] = {{"not yet full", 200, 200, 200}, {"one over", 200, 201, 201},
                 {"settled", 200, 202, 201},      {"long after", 200, 250, 201},
                 {"no capacity", 0, 1, 1},        {"no capacity, later", 0, 7, 1},
                 {"capacity of one", 1, 7, 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        LocalLogBuffer buffer("ZEM", c.capacity);

        for (size_t i = 0; i < c.appended; ++i)
            buffer.addLogWithTimestamp(" line " + std::to_string(i));

        const auto lines = buffer.getLogs();
        ASSERT_EQ(lines.size(), c.kept);
        for (size_t i = 0; i < c.kept; ++i)
            EXPECT_THAT(lines[i], EndsWith("] line " + std::to_string(c.appended - c.kept + i)));
    }
}

TEST(LocalLogBufferTest, TheLibrarysOwnKeeps201LinesUnderItsTag) {
    LocalLogBuffer& buffer = LocalLogBuffer::getInstance();
    buffer.flush();

    for (int i = 0; i < 250; ++i) buffer.addLogWithTimestamp(std::to_string(i));

    EXPECT_EQ(buffer.getName(), "ZEM");
    ASSERT_EQ(buffer.getLogs().size(), 201u);
    EXPECT_THAT(buffer.getLogs().front(), EndsWith("[ZEM]49"));
    EXPECT_THAT(buffer.getLogs().back(), EndsWith("[ZEM]249"));
}

TEST(LocalLogBufferTest, FlushEmptiesItAndReadingDoesNot) {
    LocalLogBuffer buffer("ZEM", 5);
    buffer.addLogWithTimestamp("a");
    buffer.getLogs();
    EXPECT_EQ(buffer.getLogs().size(), 1u);

    buffer.flush();

    EXPECT_THAT(buffer.getLogs(), IsEmpty());
}

TEST(LogWritersTest, EachSinkHasItsOwnValueForALevel) {
    const struct {
        uint32_t level;
        int android, diagnostic;
    } cases[] = {{0, 2, 1},  {1, 3, 1}, {2, 4, 1}, {3, 6, 4},
                 {4, 7, 16}, {5, 4, 4}, {6, 4, 1}, {0xFFFFFFFF, 4, 1}};
    AdbWriter android;
    DiagWriter diagnostic;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.level);
        EXPECT_EQ(android.convertPrio(LogLevel(c.level)), c.android);
        EXPECT_EQ(diagnostic.convertPrio(LogLevel(c.level)), c.diagnostic);
    }
}

TEST(LogWritersTest, AndroidLogGetsMessageVerbatimUnderTagAndPriority) {
    const struct {
        LogLevel level;
        const char* letter;
    } cases[] = {{LOG_VERBOSE, " V "}, {LOG_DEBUG, " D "}, {LOG_INFO, " I "},
                 {LOG_ERROR, " E "},   {LOG_FATAL, " F "}, {LOG_API, " I "}};
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.letter);
        CapturedStream captured(STDERR_FILENO);

        AdbWriter().write(c.level, "TAG", "100% %s %n done");

        const std::string text = captured.text();
        EXPECT_THAT(text, HasSubstr("TAG"));
        EXPECT_THAT(text, HasSubstr(c.letter));
        EXPECT_THAT(text, EndsWith("100% %s %n done\n"));
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
