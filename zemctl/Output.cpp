#include "Output.h"

#include <chrono>
#include <utility>

#include <nlohmann/json.hpp>

#include "Interrupt.h"
#include "Text.h"

namespace zemctl {

namespace {

constexpr int64_t kGlance = 300;   // milliseconds before progress is worth a word
constexpr int64_t kRefresh = 100;  // and between two words of it

int64_t now() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

std::ostream& Output::text() const {
    throwIfInterrupted();
    if (!console.out) {
        throw Interrupted();  // nobody reads
    }
    if (captured) {
        return json ? nowhere : *captured;
    }
    return json ? console.err : console.out;
}

void Output::object(const Json& object) const {
    throwIfInterrupted();
    if (json) {
        (captured ? *captured : console.out)
            << object.dump(-1, ' ', false, Json::error_handler_t::replace) << std::endl;
    }
}

void Output::complain(const std::string& what) const {
    if (captured) {
        *captured << printable(what) << '\n';
    } else {
        console.out.flush();
        console.err << "zemctl: " << printable(what) << std::endl;
    }
}

std::string Output::painted(const char* code, const std::string& text) const {
    return console.outColours && !captured && !json
               ? std::string("\x1b[") + code + 'm' + text + "\x1b[0m"
               : text;
}

Progress::Progress(const Output& where, std::string what, size_t total)
    : output(where), doing(std::move(what)), steps(total), begin(now()) {}

Progress::~Progress() {
    if (shown) {
        output.console.err << "\r\x1b[K" << std::flush;
    }
}

void Progress::step() {
    throwIfInterrupted();
    ++done;
    if (const int64_t time = now();
        output.console.errTerminal && time - begin > kGlance && time - shown > kRefresh) {
        shown = time;
        output.console.err << "\r\x1b[K" << doing << ' ' << done << " of " << steps << std::flush;
    }
}

}  // namespace zemctl
