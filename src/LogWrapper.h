// LogWrapper: every line that the library logs, on its way to the installed writer.
//
// Any thread. The instance is never destroyed, so that keys in a caller's globals may still log
// while the process exits; its writer is destroyed then.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

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
    // The first to ask makes it, so that at exit its writer goes after whatever has begun to log.
    static LogWrapper& getInstance() {
        LogWrapper* const made = instance.load(std::memory_order_acquire);
        return made ? *made : make();
    }

    // Whether a line of this level goes anywhere.
    bool wants(LogLevel level) const {
        return kept(level) || current.load(std::memory_order_relaxed);
    }

    LogWrapper(const LogWrapper&) = delete;
    LogWrapper& operator=(const LogWrapper&) = delete;

    // Null removes the writer. The one before is destroyed at once, or when the last thread that is
    // in its write() returns from there, on that thread.
    void setLogWriter(std::unique_ptr<LogWriter> writer);

    // Cuts the message to 511 characters. Errors and API lines are kept in the LocalLogBuffer as
    // well.
    __attribute__((format(printf, 4, 5))) void log(LogLevel level, const char* tag,
                                                   const char* format, ...);

  private:
    LogWrapper() = default;
    static LogWrapper& make();
    static bool kept(LogLevel level) { return level == LOG_API || level == LOG_ERROR; }
    __attribute__((format(printf, 4, 0))) void print(LogLevel level, const char* tag,
                                                     const char* format, va_list args);
    void write(LogLevel level, const char* tag, std::string_view message);

    // Where a writer is installed, and the count of threads that may be in its write(). A slot is
    // never destroyed: a thread may count itself into one that is no longer current.
    struct Slot {
        std::unique_ptr<LogWriter> writer;  // changed under the mutex while no thread uses it
        std::atomic<int> users{0};
    };
    Slot* enter();
    void leave(Slot& slot);
    void destroyIfIdle(Slot& slot);
    Slot& freeSlot() ZEM_REQUIRES(mutex);

    static std::atomic<LogWrapper*> instance;
    std::atomic<Slot*> current{nullptr};  // null while no writer is installed
    Mutex mutex;
    std::vector<std::unique_ptr<Slot>> slots ZEM_GUARDED_BY(mutex);
};

inline constexpr char kLogTag[] = "ZEM";

}  // namespace zem

// Logs a line; its arguments are evaluated only when somebody sees it.
#define ZEM_LOG(level, ...)                                                                    \
    do {                                                                                       \
        ::zem::LogWrapper& zemLog = ::zem::LogWrapper::getInstance();                          \
        if (zemLog.wants(::zem::level)) zemLog.log(::zem::level, ::zem::kLogTag, __VA_ARGS__); \
    } while (false)
