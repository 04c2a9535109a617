#include "CommandParser.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

#include <CLI/CLI.hpp>

#include "Help.h"
#include "Text.h"
#include "Values.h"

namespace zemctl {

namespace {

constexpr const char* kHint = " (zemctl --help shows how)";
constexpr const char* kSessionHint = " ('help' shows how)";

void declare(CLI::App& app, const Arguments& arguments) {
    for (const Argument& argument : arguments) {
        if (argument.arity == Arity::kSwitch) {
            app.add_flag(argument.name);
            continue;
        }
        CLI::Option* const option =
            app.add_option(argument.name, [](const CLI::results_t&) { return true; });
        if (argument.arity == Arity::kRequired || argument.arity == Arity::kMany) {
            option->required();
        }
        const bool many = argument.arity == Arity::kMany || argument.arity == Arity::kAny;
        option->expected(1, many ? CLI::detail::expected_max_vector_size : 1);
        option->allow_extra_args(many);
    }
}

Given takeGiven(const CLI::App& app, const Arguments& arguments) {
    Given::Values values;
    for (const Argument& argument : arguments) {
        const CLI::Option* const option = app.get_option(argument.name);
        if (option->count() != 0) {
            values[argument.name] = option->results();
        }
    }
    return Given(std::move(values));
}

class Parser {
  public:
    Parser(const Globals& defaults, bool session)
        : app("", "zemctl"), inSession(session), globalOptions(globalArguments()) {
        parsed.globals = defaults;
        app.require_subcommand(0, 0);
        app.set_help_flag("-h,--help");
        declare(app, globalOptions);
        for (const VerbGroup& group : verbGroups()) {
            for (const Verb& verb : group.verbs) {
                if (verb.where != (inSession ? Where::kCommandLine : Where::kSession)) {
                    addVerb(verb);
                }
            }
        }
    }

    ParsedCommand parse(std::vector<std::string> words) {
        takeRest(words);
        try {
            app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
        } catch (const CLI::CallForHelp&) {
            const std::string name = lastVerb();
            parsed.steps = {helpStep(name)};
            return std::move(parsed);
        } catch (const CLI::ExtrasError& error) {
            refuse(unexpected(error.what()));
        } catch (const CLI::ParseError& error) {
            refuse(error.what());
        }
        takeGlobals(takeGiven(app, globalOptions), parsed.globals);
        if (inSession) {
            for (const std::string& name : startOptions()) {
                const CLI::Option* const option = app.get_option_no_throw(name);
                if (option && option->count() != 0) {
                    refuse(name + " belongs to the line that starts zemctl");
                }
            }
        }
        if (parsed.steps.empty()) {
            refuse(startOf(words));
        }
        if (parsed.steps.size() > 1 && !alone.empty()) {
            refuse('\'' + alone + "' stands alone");
        }
        return std::move(parsed);
    }

  private:
    [[noreturn]] void refuse(const std::string& what) const {
        throw UsageError(what + (inSession ? kSessionHint : kHint));
    }

    void addVerb(const Verb& verb) {
        const size_t blank = verb.name.find(' ');
        CLI::App* parent = &app;
        if (blank != std::string::npos) {
            const std::string first = verb.name.substr(0, blank);
            CLI::App*& known = parents[first];
            if (!known) {
                known = app.add_subcommand(first);
                known->require_subcommand(1);
                known->fallthrough();
                known->set_help_flag("-h,--help");
            }
            parent = known;
        }
        CLI::App* const options = parent->add_subcommand(
            blank == std::string::npos ? verb.name : verb.name.substr(blank + 1));
        options->fallthrough();
        options->set_help_flag("-h,--help");
        declare(*options, verb.arguments);
        // At once, so that a verb may come again with other options.
        options->immediate_callback()->callback([this, &verb, options] {
            parsed.steps.push_back(verb.prepare(takeGiven(*options, verb.arguments)));
            if (verb.where == Where::kCommandLine) {
                alone = verb.name;
            }
        });
    }

    // A verb that comes first may take the words behind it: up to the next option, or all behind
    // "--". They are taken out of the words.
    void takeRest(std::vector<std::string>& words) {
        auto at = words.begin();
        while (at != words.end() && (*at)[0] == '-') {
            const Argument* const option = findArgument(globalOptions, *at);
            ++at;
            if (option && option->arity != Arity::kSwitch && at != words.end()) {
                ++at;
            }
        }
        const Verb* const verb = at == words.end() ? nullptr : findVerb(*at);
        if (!verb || !verb->takesRest ||
            verb->where == (inSession ? Where::kCommandLine : Where::kSession)) {
            return;
        }
        const auto first = std::next(at);
        const bool all = first != words.end() && *first == "--";
        const auto last =
            all ? words.end()
                : std::find_if(first, words.end(), [](const auto& word) { return word[0] == '-'; });
        Given::Values values;
        if (first != last) {
            values[verb->arguments.front().name].assign(all ? std::next(first) : first, last);
        }
        parsed.steps.push_back(verb->prepare(Given(std::move(values))));
        words.erase(at, last);
    }

    // The verb that the words came to last; empty when there is none yet.
    std::string lastVerb() const {
        std::vector<std::string> names;
        const CLI::App* current = &app;
        while (!current->get_subcommands().empty()) {
            current = current->get_subcommands().back();
            names.push_back(current->get_name());
        }
        return join(names, " ");
    }

    std::string startOf(const std::vector<std::string>& words) const {
        return words.empty() ? "a verb is missing"
                             : "a verb is missing behind '" + words.back() + '\'';
    }

    // The library that reads the words names those that are left over.
    std::string unexpected(const std::string& message) const {
        const size_t colon = message.find(": ");
        const std::string rest = colon == std::string::npos ? message : message.substr(colon + 2);
        std::string word = rest.substr(0, rest.find(' '));
        for (const std::string_view other : split(rest, ' ')) {
            if (other.substr(0, 2) == "--") {  // what follows it may be its value
                word = std::string(other.substr(0, other.find('=')));
                break;
            }
        }
        const std::string name = lastVerb();
        const Verb* const verb = findVerb(name);
        if (word[0] == '-') {
            std::vector<std::string> options;
            for (const Argument& argument :
                 (verb ? verb->arguments : Arguments()) + globalOptions) {
                if (argument.isOption()) {
                    options.push_back(argument.name);
                }
            }
            return (verb ? '\'' + name + "' has no option '" : "no option '") + word + '\'' +
                   suggestion(word, options);
        }
        // Behind "modem", or instead of a verb.
        const std::string typed = verb || name.empty() ? word : name + ' ' + word;
        return (verb ? '\'' + word + "' is no verb, nor anything that '" + name + "' takes"
                     : "no verb '" + typed + '\'') +
               suggestion(typed, verbNames(inSession));
    }

    CLI::App app;
    const bool inSession;
    const Arguments& globalOptions;
    ParsedCommand parsed;
    std::map<std::string, CLI::App*> parents;  // of verbs of two words
    std::string alone;                         // a verb that nothing may stand beside
};

}  // namespace

ParsedCommand parseCommand(const std::vector<std::string>& words, const Globals& defaults,
                           bool inSession) {
    return Parser(defaults, inSession).parse(words);
}

}  // namespace zemctl
