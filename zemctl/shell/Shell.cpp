#include "shell/Shell.h"

#include <csignal>
#include <cstdlib>
#include <istream>
#include <stdexcept>

#include "command/CommandParser.h"
#include "command/Completion.h"
#include "output/Text.h"
#include "session/Interrupt.h"
#include "session/Session.h"
#include "shell/LineEditor.h"

namespace zemctl {

namespace {

int settled(Session& session) {
    return session.run([](Session&) { return static_cast<int>(kDone); });
}

std::string historyFile() {
    const char* const state = std::getenv("XDG_STATE_HOME");
    if (state && *state) {
        return std::string(state) + "/zemctl/history";
    }
    const char* const home = std::getenv("HOME");
    return home && *home ? std::string(home) + "/.local/state/zemctl/history" : "";
}

int runTyped(Session& session) {
    const Console& console = session.output.console;
    const bool inProcess = session.modem().inProcess();
    console.err << "A session with " << (inProcess ? "the software modem" : "the device's modem")
                << ". 'help' shows what to type, 'quit' ends it." << std::endl;
    LineEditor editor(
        console,
        [&](const auto& before, const auto& word) { return complete(before, word, &session); },
        historyFile());
    while (!session.over) {
        const auto line =
            editor.read(session.modem().isUp() ? "zemctl> " : "zemctl (modem down)> ");
        if (!line) {
            break;
        }
        try {
            if (runLine(session, *line) == kUsage) {
                editor.forgetLast();
            }
        } catch (const Interrupted&) {
            if (interruptSignal() != SIGINT) {
                throw;
            }
            session.goOn();
            console.out.flush();
            console.err << "\ninterrupted" << std::endl;  // the terminal has shown ^C
            settled(session);
        }
    }
    return kDone;
}

int runPiped(Session& session) {
    const Console& console = session.output.console;
    int status = kDone;
    for (std::string line; !session.over && std::getline(console.in, line);) {
        throwIfInterrupted();
        if (!splitUnfinished(line).blank()) {
            status = runLine(session, line);
        }
    }
    throwIfInterrupted();
    return status;
}

}  // namespace

int runLine(Session& session, const std::string& line) {
    ParsedCommand command;
    try {
        const std::vector<std::string> words = splitWords(line);
        if (words.empty()) {
            return kDone;
        }
        command = parseCommand(words, session.options(), true);
    } catch (const std::invalid_argument& error) {
        session.output.complain(error.what());
        return kUsage;
    } catch (const Failure& failure) {
        session.output.complain(failure.what());
        return failure.status;
    }
    return session.run(command);
}

Step prepareShell(const Given& /*given*/) {
    return [](Session& session) {
        session.interactive = true;
        session.unlockFile();
        session.modem();
        const Console& console = session.output.console;
        return console.inTerminal && console.errTerminal ? runTyped(session) : runPiped(session);
    };
}

Step prepareQuit(const Given& /*given*/) {
    return [](Session& session) {
        session.over = true;
        return kDone;
    };
}

}  // namespace zemctl
