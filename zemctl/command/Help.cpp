#include "command/Help.h"

#include <algorithm>
#include <iomanip>

#include "command/Globals.h"
#include "output/Text.h"
#include "session/Session.h"

namespace zemctl {

namespace {

std::string label(const Argument& argument) {
    return argument.name + (argument.type.empty() ? "" : ' ' + argument.type);
}

void printArguments(std::ostream& out, const Arguments& arguments) {
    size_t width = 0;
    for (const Argument& argument : arguments) {
        width = std::max(width, label(argument).size());
    }
    for (const Argument& argument : arguments) {
        out << "  " << std::left << std::setw(static_cast<int>(width)) << label(argument) << "  "
            << wrapped(argument.help, width + 4) << '\n';
    }
}

void printOverview(Session& session) {
    const Output& output = session.output;
    const bool inSession = session.interactive;
    std::ostream& out = output.page();
    if (!inSession) {
        out << "usage: zemctl [OPTIONS] VERB [ARGUMENTS] [VERB [ARGUMENTS]]...\n\n"
               "The data profiles of a modem, through the zem library.\n";
    }
    const std::vector<std::string> names = verbNames(inSession);
    size_t width = 0;
    for (const std::string& name : names) {
        width = std::max(width, name.size());
    }
    for (const VerbGroup& group : verbGroups()) {
        out << '\n' << output.bold(group.title) << '\n';
        for (const Verb& verb : group.verbs) {
            if (std::find(names.begin(), names.end(), verb.name) != names.end()) {
                out << "  " << std::left << std::setw(static_cast<int>(width)) << verb.name << "  "
                    << verb.summary << '\n';
            }
        }
    }
    if (inSession) {
        out << "\n'help VERB' says more, with an example. --json and --show-secrets in a line hold "
               "for it.\n";
        return;
    }
    out << '\n' << output.bold("Options, anywhere in the line") << '\n';
    printArguments(out, globalArguments());
    out << "\nVerbs run in the order given, against one modem and one library, up to the first "
           "that "
           "fails;\nkeys are held to the end. 'zemctl VERB --help' says more, with an example.\n\n"
        << output.bold("Exit status") << '\n';
    for (const auto& [status, text] : kStatusTexts) {
        out << "  " << status << "  " << text << '\n';
    }
}

void printVerb(Session& session, const Verb& verb) {
    const Output& output = session.output;
    const std::string start = session.interactive ? "" : "zemctl ";
    std::ostream& out = output.page();
    out << "usage: " << start << usageOf(verb) << "\n\n" << verb.summary << ".\n";
    if (!verb.details.empty()) {
        out << wrapped(verb.details, 0) << '\n';
    }
    if (!verb.arguments.empty()) {
        out << '\n';
        printArguments(out, verb.arguments);
    }
    out << "\nexample: " << start << verb.example << '\n';
}

}  // namespace

std::string usageOf(const Verb& verb) {
    std::string words = verb.name;
    std::string required;
    std::string optional;
    for (const Argument& argument : verb.arguments) {
        if (argument.isOption() && argument.arity == Arity::kRequired) {
            required += ' ' + label(argument);
        } else if (argument.isOption()) {
            optional = " [OPTIONS]";
        } else if (argument.arity == Arity::kMany) {
            words += ' ' + argument.name + "...";
        } else if (argument.arity == Arity::kAny) {
            words += " [" + argument.name + "]...";
        } else {
            words += argument.arity == Arity::kRequired ? ' ' + argument.name
                                                        : " [" + argument.name + ']';
        }
    }
    return words + required + optional;
}

Step helpStep(const std::string& verbName) {
    return [verbName](Session& session) {
        const Verb* const verb = findVerb(verbName);
        if (verb) {
            printVerb(session, *verb);
            return kDone;
        }
        bool group = false;  // "modem": all verbs that begin so
        for (const VerbGroup& verbs : verbGroups()) {
            for (const Verb& candidate : verbs.verbs) {
                if (!verbName.empty() && candidate.name.rfind(verbName + ' ', 0) == 0) {
                    session.output.page()
                        << usageOf(candidate) << "\n    " << candidate.summary << '\n';
                    group = true;
                }
            }
        }
        if (!group) {
            printOverview(session);
        }
        return kDone;
    };
}

}  // namespace zemctl
