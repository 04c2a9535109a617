// RecordedLog: every line that the library logs while it lives, for tests to look at and wait for.
//
// Any thread.
#pragma once

#include <android/log.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "AdbWriter.h"
#include "LogWrapper.h"

namespace zem {

struct Line {
    LogLevel level;
    std::string text;

    friend bool operator==(const Line& a, const Line& b) {
        return a.level == b.level && a.text == b.text;
    }
    friend std::ostream& operator<<(std::ostream& out, const Line& line) {
        return out << '[' << static_cast<unsigned>(line.level) << "] " << line.text;
    }
};

class RecordedLog {
  public:
    RecordedLog() { LogWrapper::getInstance().setLogWriter(std::make_unique<Writer>(record)); }
    ~RecordedLog() { LogWrapper::getInstance().setLogWriter(nullptr); }
    RecordedLog(const RecordedLog&) = delete;
    RecordedLog& operator=(const RecordedLog&) = delete;

    std::vector<Line> lines() const {
        const std::lock_guard lock(record->mutex);
        return record->lines;
    }

    size_t count(std::string_view exactText) const {
        const std::lock_guard lock(record->mutex);
        return record->count(exactText);
    }

    size_t count(LogLevel level, std::string_view exactText) const {
        const std::lock_guard lock(record->mutex);
        return std::count_if(record->lines.begin(), record->lines.end(), [&](const Line& line) {
            return line.level == level && line.text == exactText;
        });
    }

    size_t countContaining(std::string_view part) const {
        const std::lock_guard lock(record->mutex);
        return static_cast<size_t>(std::count_if(
            record->lines.begin(), record->lines.end(),
            [&](const Line& line) { return line.text.find(part) != std::string::npos; }));
    }

    bool contains(std::string_view exactText) const { return count(exactText) != 0; }
    bool contains(LogLevel level, std::string_view exactText) const {
        return count(level, exactText) != 0;
    }

    // False when the limit passes before the line has been logged that often.
    bool waitFor(std::string_view exactText, size_t times = 1,
                 std::chrono::seconds limit = std::chrono::seconds(10)) {
        std::unique_lock lock(record->mutex);
        return record->changed.wait_for(lock, limit,
                                        [&] { return record->count(exactText) >= times; });
    }

    void clear() {
        const std::lock_guard lock(record->mutex);
        record->lines.clear();
    }

  private:
    struct Record {
        size_t count(std::string_view exactText) const {
            return std::count_if(lines.begin(), lines.end(),
                                 [&](const Line& line) { return line.text == exactText; });
        }

        mutable std::mutex mutex;
        std::condition_variable changed;
        std::vector<Line> lines;
    };

    class Writer : public LogWriter {
      public:
        explicit Writer(std::shared_ptr<Record> record) : record(std::move(record)) {}

        void write(LogLevel level, std::string, std::string message) override {
            const std::lock_guard lock(record->mutex);
            record->lines.push_back({level, std::move(message)});
            record->changed.notify_all();
        }
        int convertPrio(LogLevel level) override { return static_cast<int>(level); }

      private:
        const std::shared_ptr<Record> record;
    };

    // Shared: a thread may still be writing through the writer after it has been replaced.
    const std::shared_ptr<Record> record = std::make_shared<Record>();
};

// For death tests, which look at the error output: "ZEM E (date) (time) (process) (thread) text".
inline void logToErrorOutput() {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    LogWrapper::getInstance().setLogWriter(std::make_unique<AdbWriter>());
}

}  // namespace zem
