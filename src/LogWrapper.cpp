// A writer may be replaced while threads are in its write(), and must then live until the last of
// them leaves. A thread therefore counts itself into the writer's slot, and then checks that the
// slot is still current: if it is, the writer cannot be destroyed before the thread leaves; if not,
// the thread does not touch the writer, and tries the slot that is current now. Whoever replaces a
// writer, and every thread that leaves a replaced one, destroys it when the count is zero; the
// mutex lets only one of them do so. Each side writes (count or current) before it reads what the
// other writes, in one order for all threads, so that at least one of the two sees the other.
#include "LogWrapper.h"

#include <charconv>
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

std::atomic<LogWrapper*> LogWrapper::instance{nullptr};

LogWrapper& LogWrapper::make() {
    // At exit the writer goes, and a diagnostic channel with it.
    static const struct AtExit {
        AtExit() { instance = new LogWrapper; }
        ~AtExit() { instance.load()->setLogWriter(nullptr); }
    } atExit;
    return *instance;
}

void LogWrapper::setLogWriter(std::unique_ptr<LogWriter> writer) {
    Slot* old = nullptr;
    {
        const MutexLock lock(mutex);
        Slot* next = nullptr;
        if (writer) {
            next = &freeSlot();
            next->writer = std::move(writer);
        }
        old = current.exchange(next);
    }
    if (old) destroyIfIdle(*old);
}

LogWrapper::Slot& LogWrapper::freeSlot() {
    for (const auto& slot : slots) {
        if (!slot->writer) return *slot;
    }
    return *slots.emplace_back(std::make_unique<Slot>());
}

LogWrapper::Slot* LogWrapper::enter() {
    while (Slot* const slot = current) {
        ++slot->users;
        if (current == slot) return slot;
        leave(*slot);
    }
    return nullptr;
}

void LogWrapper::leave(Slot& slot) {
    if (--slot.users == 0 && current != &slot) destroyIfIdle(slot);
}

void LogWrapper::destroyIfIdle(Slot& slot) {
    // Outlives the lock: a writer may log in its destructor.
    std::unique_ptr<LogWriter> gone;
    const MutexLock lock(mutex);
    if (current != &slot && slot.users == 0) gone = std::move(slot.writer);
}

void LogWrapper::write(LogLevel level, const char* tag, std::string_view message) {
    struct Use {  // leaves even when the writer throws
        explicit Use(LogWrapper& log) : log(log), slot(log.enter()) {}
        ~Use() {
            if (slot) log.leave(*slot);
        }
        LogWrapper& log;
        Slot* const slot;
    };
    const Use use(*this);
    if (use.slot) use.slot->writer->write(level, tag, std::string(message));
}

void LogWrapper::print(LogLevel level, const char* tag, const char* format, va_list args) {
    Text text;
    va_list again;
    va_copy(again, args);
    if (!printPlain(text, format, args)) text.print(format, again);
    va_end(again);
    write(level, tag, text.view());
    if (kept(level)) LocalLogBuffer::getInstance().addLogWithTimestamp(text.view());
}

void LogWrapper::log(LogLevel level, const char* tag, const char* format, ...) {
    if (!wants(level)) return;
    va_list args;
    va_start(args, format);
    print(level, tag, format, args);
    va_end(args);
}

}  // namespace zem
