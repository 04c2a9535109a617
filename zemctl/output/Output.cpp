#include "output/Output.h"

#include <chrono>
#include <future>
#include <utility>

#include <nlohmann/json.hpp>

#include "output/Text.h"
#include "session/Interrupt.h"

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
    std::ostream& out = page();
    return json ? nowhere : out;
}

std::ostream& Output::page() const {
    throwIfInterrupted();
    if (!console.out) {
        throw Interrupted();  // nobody reads
    }
    return captured ? *captured : console.out;
}

void Output::whileShowing(const std::string& doing, const std::function<void()>& work) const {
    if (!console.errTerminal) {
        work();
        return;
    }
    Progress progress(*this, doing, 0);
    std::future<void> done = std::async(std::launch::async, work);
    while (done.wait_for(std::chrono::milliseconds(kRefresh)) != std::future_status::ready) {
        progress.show();
    }
    done.get();
}

void Output::object(const Json& object) const {
    if (json) {
        page() << object.dump(-1, ' ', false, Json::error_handler_t::replace) << std::endl;
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
    show();
}

void Progress::show() {
    if (const int64_t time = now();
        output.console.errTerminal && time - begin > kGlance && time - shown > kRefresh) {
        shown = time;
        output.console.err << "\r\x1b[K" << doing;
        if (steps != 0) {
            output.console.err << ' ' << done << " of " << steps << std::flush;
        } else {
            output.console.err << ", " << (time - begin) / 1000 << " s" << std::flush;
        }
    }
}

}  // namespace zemctl
