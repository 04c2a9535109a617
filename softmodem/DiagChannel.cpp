// The symbols of the diagnostic channel.
#include "diag_channel.h"

#include "ModemState.h"

namespace softmodem {

namespace {

constexpr size_t kKeptLines = 16384;

// Nothing but %s counts: the format comes from outside and must not pick its own arguments.
std::string formatted(const char* format, const char* first, const char* second) {
    const char* const arguments[] = {first, second};
    size_t next = 0;
    std::string text;
    for (const char* c = format; *c; ++c) {
        if (c[0] == '%' && c[1] == 's' && next < 2) {
            const char* argument = arguments[next++];
            text += argument ? argument : "(null)";
            ++c;
        } else {
            text += *c;
        }
    }
    return text;
}

}  // namespace

}  // namespace softmodem

extern "C" {

SOFTMODEM_API int diag_open(int) {
    softmodem::ModemState& modem = softmodem::ModemState::instance();
    const std::lock_guard<std::mutex> lock(modem.mutex);
    ++modem.diagOpens;
    return 0;
}

// A new writer opens the channel before the old one closes it, so openings are counted.
SOFTMODEM_API void diag_close() {
    softmodem::ModemState& modem = softmodem::ModemState::instance();
    const std::lock_guard<std::mutex> lock(modem.mutex);
    if (modem.diagOpens > 0) --modem.diagOpens;
}

SOFTMODEM_API void diag_emit(const diag_message* message, const char* arg1, const char* arg2) {
    if (!message || !message->format) return;
    softmodem::DiagLine line = {message->line, message->subsystem, message->mask,
                                message->file ? message->file : "",
                                softmodem::formatted(message->format, arg1, arg2)};
    softmodem::ModemState& modem = softmodem::ModemState::instance();
    const std::lock_guard<std::mutex> lock(modem.mutex);
    if (modem.diagOpens == 0) return;
    modem.diagLines.push_back(std::move(line));
    if (modem.diagLines.size() > softmodem::kKeptLines) modem.diagLines.pop_front();
}

}  // extern "C"
