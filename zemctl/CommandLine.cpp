#include "CommandLine.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "LoadCommand.h"
#include "PolicyVerbs.h"
#include "StoryCommand.h"
#include "Text.h"
#include "Verb.h"

namespace zemctl {

namespace {

constexpr Verb kVerbs[] = {
    kStoryVerb,
    kLoadVerb,
};

constexpr const char* kFooter =
    "Exit status: 0 done; 1 the library or the modem said no, or a check failed;\n"
    "2 wrong command line or unusable input.\n";

constexpr const char* kSequence =
    "The verbs from setup-call on may follow each other, as often as you like, and run in that\n"
    "order against one modem: zemctl updates on setup-call --apn internet attach --home v4v6\n\n";

constexpr const char* kHint = " (zemctl --help shows how)";

int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    CLI::App app("zemctl: data profiles of a modem, through the zem library", "zemctl");
    app.require_subcommand(1, 0);
    std::vector<std::pair<CLI::App*, RunVerb>> verbs;
    for (const Verb& verb : kVerbs) {
        CLI::App* options = app.add_subcommand(verb.name, verb.summary);
        verbs.emplace_back(options, verb.declare(*options));
    }
    PolicyVerbs policies;
    policies.declare(app);
    app.footer(std::string(kSequence) + kFooter);
    const auto all = app.get_subcommands({});
    for (CLI::App* verb : all) {
        verb->footer(kFooter);
    }
    const std::string first = argc > 1 ? argv[1] : "";
    if (first.empty()) {
        throw UsageError(std::string("a verb is missing") + kHint);
    }
    if (first[0] != '-' && std::none_of(all.begin(), all.end(), [&](const CLI::App* verb) {
            return first == verb->get_name();
        })) {
        throw UsageError("no verb '" + first + '\'' + kHint);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        app.exit(help, out, err);
        return kDone;
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what() + std::string(kHint));
    }
    for (const auto& [options, runVerb] : verbs) {
        if (options->parsed()) {
            if (app.get_subcommands().size() > 1) {
                throw UsageError('\'' + options->get_name() + "' stands alone" + kHint);
            }
            return runVerb(out);
        }
    }
    return policies.run(out);
}

}  // namespace

int runCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    const auto complain = [&](int status, const std::string& what) {
        out.flush();
        err << "zemctl: " << printable(what) << std::endl;
        return status;
    };
    try {
        const int status = run(argc, argv, out, err);
        out.flush();
        return out ? status : complain(kRefused, "cannot write the output");
    } catch (const UsageError& error) {
        return complain(kUsage, error.what());
    } catch (const std::exception& error) {
        return complain(kRefused, error.what());
    }
}

}  // namespace zemctl
