#include "command/CommandParser.h"

#include <algorithm>
#include <optional>
#include <utility>

#include <CLI/CLI.hpp>

#include "command/Help.h"
#include "command/Values.h"
#include "output/Text.h"
#include "session/Session.h"

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
        option->required(argument.mustCome());
        option->expected(1, argument.takesMany() ? CLI::detail::expected_max_vector_size : 1);
        option->allow_extra_args(argument.takesMany());
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

// One verb with the words behind it; null in front of the first.
struct Segment {
    const Verb* verb;
    std::vector<std::string> words;
    size_t wordsWanted = 0;  // that must still come, and so are no verbs
};

size_t wordsWanted(const Verb& verb) {
    return static_cast<size_t>(std::count_if(
        verb.arguments.begin(), verb.arguments.end(),
        [](const Argument& argument) { return !argument.isOption() && argument.mustCome(); }));
}

class Parser {
  public:
    Parser(const Globals& defaults, bool session) : inSession(session) {
        parsed.globals = defaults;
    }

    ParsedCommand parse(const std::vector<std::string>& words) {
        const std::vector<Segment> segments = split(words);
        for (const Segment& segment : segments) {
            take(segment);
        }
        if (help) {  // instead of all else
            parsed.steps = {*help};
            return std::move(parsed);
        }
        if (parsed.steps.empty()) {
            refuse("a verb is missing");
        }
        for (const Segment& segment : segments) {
            if (segment.verb && segment.verb->where == Where::kCommandLine && segments.size() > 2) {
                refuse('\'' + segment.verb->name + "' stands alone");
            }
        }
        return std::move(parsed);
    }

  private:
    [[noreturn]] void refuse(const std::string& what) const {
        throw UsageError(what + (inSession ? kSessionHint : kHint));
    }

    // A verb begins where its name stands and no option waits for a value.
    std::vector<Segment> split(const std::vector<std::string>& words) const {
        std::vector<Segment> segments = {{nullptr, {}}};
        for (size_t i = 0; i < words.size(); ++i) {
            const std::string& word = words[i];
            Segment& current = segments.back();
            const bool isOption = word.size() > 1 && word[0] == '-';
            if (isOption || (current.verb && current.verb->takesRest) ||
                (!current.words.empty() && takesValue(current.verb, current.words.back()))) {
                current.words.push_back(word);
                continue;
            }
            if (current.wordsWanted > 0) {
                current.words.push_back(word);
                --current.wordsWanted;
                continue;
            }
            const std::string two = i + 1 < words.size() ? word + ' ' + words[i + 1] : word;
            if (const Verb* const verb = findVerb(two); verb && two != word) {
                segments.push_back({verb, {}, wordsWanted(*verb)});
                ++i;
            } else if (const Verb* const single = findVerb(word)) {
                segments.push_back({single, {}, wordsWanted(*single)});
            } else if (beginsTwoWords(word) && (!current.verb || two == word)) {
                if (two != word && words[i + 1][0] != '-') {
                    refuse("no verb '" + two + '\'' + suggestion(two, verbNames(inSession)));
                }
                segments.push_back({findVerb("help"), {word}});
            } else if (!current.verb) {
                refuse("no verb '" + word + '\'' + suggestion(word, verbNames(inSession)));
            } else {
                current.words.push_back(word);
            }
        }
        return segments;
    }

    static bool takesValue(const Verb* verb, const std::string& option) {
        const Arguments arguments = (verb ? verb->arguments : Arguments()) + globalArguments();
        const Argument* const argument = findArgument(arguments, option);
        return argument && argument->isOption() && argument->arity != Arity::kSwitch;
    }

    static bool beginsTwoWords(const std::string& word) {
        const auto names = verbNames(false);
        return std::any_of(names.begin(), names.end(),
                           [&](const std::string& name) { return name.rfind(word + ' ', 0) == 0; });
    }

    void take(const Segment& segment) {
        if (segment.verb &&
            segment.verb->where == (inSession ? Where::kCommandLine : Where::kSession)) {
            refuse('\'' + segment.verb->name + "' stands " +
                   (inSession ? "on the line that starts zemctl" : "in the shell and in scripts"));
        }
        const Arguments own = segment.verb ? segment.verb->arguments : Arguments();
        const Arguments all = own + globalArguments();
        for (const std::string& word : segment.words) {
            const std::string name = word.substr(0, word.find('='));
            const Argument* const option = findArgument(all, name);
            if (option && option->arity == Arity::kSwitch && name != word) {
                refuse(name + " takes no value");
            }
        }
        CLI::App app;
        app.set_help_flag("-h,--help");
        declare(app, all);
        try {
            app.parse(std::vector<std::string>(segment.words.rbegin(), segment.words.rend()));
        } catch (const CLI::CallForHelp&) {
            help = helpStep(segment.verb ? segment.verb->name : "");
            return;
        } catch (const CLI::ExtrasError&) {
            refuse(unexpected(segment, app.remaining()));
        } catch (const CLI::ArgumentMismatch& error) {
            const std::string_view text = error.what();
            const std::string name(text.substr(0, text.find(':')));
            const bool many = text.find("At Most") != std::string_view::npos;
            refuse(name + (many ? " is given more than once" : " takes a value"));
        } catch (const CLI::ParseError& error) {
            refuse((segment.verb ? segment.verb->name + ": " : "") + error.what());
        }
        const Given globals = takeGiven(app, globalArguments());
        if (inSession) {
            for (const std::string& name : startOptions()) {
                if (globals.has(name)) {
                    refuse(name + " belongs to the line that starts zemctl");
                }
            }
        }
        takeGlobals(globals, parsed.globals);
        if (globals.has("--version")) {
            help = [](Session& session) {
                session.output.page() << "zemctl " ZEM_VERSION "\n";
                return static_cast<int>(kDone);
            };
            return;
        }
        if (segment.verb) {
            parsed.steps.push_back(segment.verb->prepare(takeGiven(app, own)));
        }
    }

    std::string unexpected(const Segment& segment, const std::vector<std::string>& rest) const {
        const std::string what = segment.verb ? '\'' + segment.verb->name + "' " : "zemctl ";
        // What stands behind an option may be meant as its value.
        const auto option = std::find_if(rest.begin(), rest.end(), [](const std::string& word) {
            return !word.empty() && word[0] == '-';
        });
        if (option == rest.end()) {
            return what + "takes no '" + rest.front() + '\'' +
                   suggestion(rest.front(), verbNames(inSession));
        }
        std::vector<std::string> options;
        for (const Argument& argument :
             (segment.verb ? segment.verb->arguments : Arguments()) + globalArguments()) {
            if (argument.isOption()) {
                options.push_back(argument.name);
            }
        }
        const std::string name = option->substr(0, option->find('='));
        return what + "has no option '" + name + '\'' + suggestion(name, options);
    }

    const bool inSession;
    ParsedCommand parsed;
    std::optional<Step> help;
};

}  // namespace

ParsedCommand parseCommand(const std::vector<std::string>& words, const Globals& defaults,
                           bool inSession) {
    return Parser(defaults, inSession).parse(words);
}

}  // namespace zemctl
