#include "LogWrapper.h"

#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

#include "LocalLogBuffer.h"

namespace zem {
namespace {

constexpr size_t kLongest = 511;  // characters of a message

// A message as it grows, up to its longest.
class Text {
  public:
    void append(std::string_view piece) {
        const size_t taken = piece.copy(characters + length, kLongest - length);
        length += taken;
    }
    template <class Number>
    void append(Number number, int base) {
        char digits[20];
        char* const end = std::to_chars(digits, std::end(digits), number, base).ptr;
        append({digits, static_cast<size_t>(end - digits)});
    }

    // What vsnprintf makes of it, and nothing else.
    __attribute__((format(printf, 2, 0))) void print(const char* format, va_list args) {
        characters[0] = '\0';
        vsnprintf(characters, sizeof characters, format, args);
        length = strlen(characters);
    }

    std::string_view view() const { return {characters, length}; }

  private:
    size_t length = 0;
    char characters[kLongest + 1];  // not zeroed: that would cost more than most lines do
};

// Most lines have no conversions but these, for which vsnprintf takes several times as long. False
// when there is another one, or a null pointer, which each C library prints in its own way.
__attribute__((format(printf, 2, 0))) bool printPlain(Text& text, const char* format,
                                                      va_list args) {
    for (;;) {
        const char* const conversion = strchrnul(format, '%');
        text.append({format, static_cast<size_t>(conversion - format)});
        if (!*conversion) return true;
        if (conversion[1] == 's') {
            const char* const piece = va_arg(args, const char*);
            if (!piece) return false;
            text.append(piece);
        } else if (conversion[1] == 'd') {
            text.append(va_arg(args, int), 10);
        } else if (conversion[1] == 'p') {
            const void* const address = va_arg(args, void*);
            if (!address) return false;
            text.append("0x");
            text.append(reinterpret_cast<uintptr_t>(address), 16);
        } else {
            return false;
        }
        format = conversion + 2;
    }
}

}  // namespace

std::atomic<bool> LogWrapper::hasWriter{false};

LogWrapper& LogWrapper::getInstance() {
    static LogWrapper& instance = make();
    return instance;
}

LogWrapper& LogWrapper::make() {
    // At exit the writer goes, and a diagnostic channel with it.
    static const struct AtExit {
        LogWrapper& made = *new LogWrapper;
        ~AtExit() { made.setLogWriter(nullptr); }
    } atExit;
    return atExit.made;
}

void LogWrapper::setLogWriter(std::unique_ptr<LogWriter> writer) {
    std::shared_ptr<LogWriter> next = std::move(writer);
    const MutexLock lock(mutex);
    hasWriter.store(next != nullptr, std::memory_order_release);
    installed.swap(next);
}

void LogWrapper::log(LogLevel level, const char* tag, const char* format, ...) {
    if (!wanted(level)) return;

    Text text;
    va_list args;
    va_start(args, format);
    if (!printPlain(text, format, args)) {
        va_end(args);
        va_start(args, format);
        text.print(format, args);
    }
    va_end(args);

    std::shared_ptr<LogWriter> writer;
    {
        const MutexLock lock(mutex);
        writer = installed;
    }
    if (writer) writer->write(level, tag, std::string(text.view()));
    if (kept(level)) LocalLogBuffer::getInstance().addLogWithTimestamp(text.view());
}

}  // namespace zem
