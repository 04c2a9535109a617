#include "LogWrapper.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

#include "LocalLogBuffer.h"

namespace zem {
namespace {

constexpr size_t kMessageSize = 512;  // the terminator included

}  // namespace

LogWrapper& LogWrapper::getInstance() {
    static LogWrapper& instance = *new LogWrapper;
    // At exit the writer goes, and a diagnostic channel with it.
    static const struct AtExit {
        ~AtExit() { instance.setLogWriter(nullptr); }
    } atExit;
    return instance;
}

void LogWrapper::setLogWriter(std::unique_ptr<LogWriter> writer) {
    std::shared_ptr<LogWriter> next = std::move(writer);
    const MutexLock lock(mutex);
    installed.swap(next);
}

void LogWrapper::log(LogLevel level, const char* tag, const char* format, ...) {
    std::shared_ptr<LogWriter> writer;
    {
        const MutexLock lock(mutex);
        writer = installed;
    }
    const bool kept = level == LOG_API || level == LOG_ERROR;
    if (!writer && !kept) return;

    char text[kMessageSize];
    text[0] = '\0';  // all of it would cost more than most lines do
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);

    if (writer) writer->write(level, tag, text);
    if (kept) LocalLogBuffer::getInstance().addLogWithTimestamp(text);
}

}  // namespace zem
