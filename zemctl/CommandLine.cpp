#include "CommandLine.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "LoadCommand.h"
#include "Text.h"
#include "Verb.h"

namespace zemctl {

namespace {

constexpr Verb kVerbs[] = {
    kLoadVerb,
};

constexpr const char* kFooter =
    "Exit status: 0 done; 1 the library or the modem said no, or a check failed;\n"
    "2 wrong command line or unusable input.\n";

constexpr const char* kHint = " (zemctl --help shows how)";

int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    CLI::App app("zemctl: data profiles of a modem, through the zem library", "zemctl");
    app.require_subcommand(1);
    app.footer(kFooter);
    std::vector<std::pair<CLI::App*, RunVerb>> verbs;
    for (const Verb& verb : kVerbs) {
        CLI::App* options = app.add_subcommand(verb.name, verb.summary);
        options->footer(kFooter);
        verbs.emplace_back(options, verb.declare(*options));
    }
    const std::string_view first = argc > 1 ? argv[1] : "";
    if (first.empty()) {
        throw UsageError(std::string("a verb is missing") + kHint);
    }
    if (first[0] != '-' && std::none_of(std::begin(kVerbs), std::end(kVerbs),
                                        [&](const Verb& verb) { return first == verb.name; })) {
        throw UsageError("no verb '" + std::string(first) + '\'' + kHint);
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
            return runVerb(out);
        }
    }
    return kUsage;
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
