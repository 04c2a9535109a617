// LogWrapper: every line that the library logs, on its way to the installed writer.
//
// Any thread. The instance is never destroyed, so that keys in a caller's globals may still log
// while the process exits; its writer is destroyed then.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include <zem/Mutex.h>

namespace zem {

enum LogLevel : uint32_t {
    LOG_VERBOSE = 0,
    LOG_DEBUG = 1,
    LOG_INFO = 2,
    LOG_ERROR = 3,
    LOG_FATAL = 4,
    LOG_API = 5,  // entry and exit of public operations, policy decisions
};

// A sink for log lines. write() is called from any thread, possibly from several at once.
class LogWriter {
  public:
    virtual ~LogWriter() = default;
    virtual void write(LogLevel level, std::string tag, std::string message) = 0;
    // The sink's own value for a level.
    virtual int convertPrio(LogLevel level) = 0;
};

class LogWrapper {
  public:
    static LogWrapper& getInstance();

    // Whether a line of this level reaches anybody.
    static bool wanted(LogLevel level) {
        return kept(level) || hasWriter.load(std::memory_order_acquire);
    }

    LogWrapper(const LogWrapper&) = delete;
    LogWrapper& operator=(const LogWrapper&) = delete;

    // Null removes the writer. The one before is destroyed as soon as no thread is writing through
    // it.
    void setLogWriter(std::unique_ptr<LogWriter> writer);

    // Cuts the message to 511 characters. Errors and API lines are kept in the LocalLogBuffer as
    // well.
    void log(LogLevel level, const char* tag, const char* format, ...)
        __attribute__((format(printf, 4, 5)));

  private:
    LogWrapper() = default;
    static LogWrapper& make();
    static bool kept(LogLevel level) { return level == LOG_API || level == LOG_ERROR; }

    static std::atomic<bool> hasWriter;
    Mutex mutex;
    std::shared_ptr<LogWriter> installed ZEM_GUARDED_BY(mutex);
};

inline constexpr char kLogTag[] = "ZEM";

}  // namespace zem

// Logs a line; its arguments are evaluated only when somebody sees it.
#define ZEM_LOG(level, ...)                                                                  \
    do {                                                                                     \
        if (::zem::LogWrapper::wanted(::zem::level))                                         \
            ::zem::LogWrapper::getInstance().log(::zem::level, ::zem::kLogTag, __VA_ARGS__); \
    } while (false)
