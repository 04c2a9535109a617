#include "command/CommandLine.h"

#include <csignal>
#include <string>
#include <vector>

#include "command/CommandParser.h"
#include "command/Verb.h"
#include "output/Text.h"
#include "session/Interrupt.h"
#include "session/Session.h"

namespace zemctl {

namespace {

constexpr int kSignalled = 128;

int run(const std::vector<std::string>& words, Output& output) {
    const ParsedCommand command = parseCommand(words, {}, false);
    Session session(command.globals, output);
    try {
        for (const Step& step : command.steps) {
            if (const int status = session.run(step); status != kDone) {
                session.finish();
                return status;
            }
        }
        return session.finish();
    } catch (const Interrupted&) {
        session.abandon();
        return kSignalled + (interruptSignal() != 0 ? interruptSignal() : SIGPIPE);
    }
}

}  // namespace

int runCommandLine(int argc, const char* const* argv, const Console& console) {
    Output output(console);
    int status = kRefused;
    try {
        status = run({argv + (argc > 0 ? 1 : 0), argv + argc}, output);
    } catch (const Interrupted&) {  // before anything ran
        status = kSignalled + interruptSignal();
    } catch (const Failure& failure) {
        output.complain(failure.what());
        status = failure.status;
    } catch (const std::exception& error) {
        output.complain(error.what());
    }
    console.out.flush();
    if (console.out) {
        return status;
    }
    if (console.readerIsGone && console.readerIsGone()) {
        return kSignalled + SIGPIPE;
    }
    output.complain("cannot write the output");
    return kRefused;
}

}  // namespace zemctl
