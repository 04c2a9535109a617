#include "command/Completion.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <nlohmann/json.hpp>

#include "command/Globals.h"
#include "command/Values.h"
#include "output/Text.h"
#include "session/Files.h"
#include "session/ModemAccess.h"
#include "session/ModemView.h"
#include "session/Session.h"

namespace zemctl {

namespace {

using Words = std::vector<std::string>;

bool contains(const Words& words, const std::string& word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

bool startsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

// Of names of several words, those that come next behind the first ones.
Words nextWords(const Words& names, const Words& first) {
    Words result;
    const std::string start = first.empty() ? "" : join(first, " ") + ' ';
    for (const std::string& name : names) {
        if (startsWith(name, start)) {
            const std::string rest = name.substr(start.size());
            result.push_back(rest.substr(0, rest.find(' ')));
        }
    }
    return result;
}

// The words of a line, as far as they are typed, and what they leave to be said. Reads them as the
// parser does, but takes whatever comes.
class Line {
  public:
    Line(const Session* where, Words modemProfiles)
        : session(where), profiles(std::move(modemProfiles)), names(verbNames(where != nullptr)) {}

    void take(const std::string& word) {
        if (pending) {
            values[pending->name] = {word};
            pending = nullptr;
            verbWords.push_back(word);
        } else if (word.size() > 1 && word[0] == '-') {
            takeOption(word);
            verbWords.push_back(word);
        } else if (!group.empty()) {
            begin(group + ' ' + word);
        } else if (!mustTake() && !(verb && verb->takesRest) &&
                   contains(nextWords(names, {}), word)) {
            begin(word);
        } else {
            positionals.push_back(word);
            verbWords.push_back(word);
        }
    }

    Completions next(const std::string& word) {
        const size_t equals = word.find('=');
        if (pending) {
            offerValues(*pending, word, "");
        } else if (word[0] == '-' && equals != std::string::npos) {
            const Argument* const option = findOption(word.substr(0, equals));
            if (option && option->arity != Arity::kSwitch) {
                offerValues(*option, word.substr(equals + 1), word.substr(0, equals + 1));
            }
        } else if (word[0] == '-') {
            offerOptions(word, true);
        } else if (!group.empty()) {
            offer(nextWords(names, {group}), word);
        } else {
            offerWords(word);
        }
        return std::move(result);
    }

    // The global options that have got their values.
    Given globals() const {
        Given::Values given;
        for (const auto& [name, value] : values) {
            if (!value.empty() && findArgument(globalArguments(), name)) {
                given[name] = value;
            }
        }
        return Given(given);
    }

  private:
    void begin(const std::string& name) {
        verb = findVerb(name);
        group = verb ? "" : name;
        positionals.clear();
        verbWords.clear();
        for (auto each = values.begin(); each != values.end();) {
            each =
                findArgument(globalArguments(), each->first) ? std::next(each) : values.erase(each);
        }
    }

    const Argument* findOption(const std::string& name) const {
        const Argument* const own = verb ? findArgument(verb->arguments, name) : nullptr;
        return own ? own : findArgument(globalArguments(), name);
    }

    void takeOption(const std::string& word) {
        const size_t equals = word.find('=');
        const Argument* const option = findOption(word.substr(0, equals));
        if (!option) {
            return;
        }
        values[option->name];
        if (equals != std::string::npos) {
            values[option->name] = {word.substr(equals + 1)};
        } else if (option->arity != Arity::kSwitch) {
            pending = option;
        }
    }

    // The verb's next word, null when it takes no more.
    const Argument* positional() const {
        size_t behind = positionals.size();
        for (const Argument& argument : verb ? verb->arguments : Arguments()) {
            if (argument.isOption()) {
                continue;
            }
            if (argument.takesMany() || behind-- == 0) {
                return findArgument(verb->arguments, argument.name);
            }
        }
        return nullptr;
    }

    bool mustTake() const {
        const Argument* const argument = positional();
        return argument && argument->mustCome() &&
               (argument->arity != Arity::kMany || positionals.empty());
    }

    void offer(const Words& words, const std::string& typed) {
        for (const std::string& each : words) {
            if (startsWith(each, typed) && !contains(result.words, each)) {
                result.words.push_back(each);
            }
        }
    }

    void offerOption(const Argument& option, const std::string& typed) {
        if (option.isOption() && values.count(option.name) == 0) {
            offer({option.name}, typed);
        }
    }

    void offerOptions(const std::string& typed, bool all) {
        for (const Argument& argument : verb ? verb->arguments : Arguments()) {
            offerOption(argument, typed);
        }
        if (!all) {
            return;
        }
        for (const Argument& argument : globalArguments()) {
            if (!session || !contains(startOptions(), argument.name)) {
                offerOption(argument, typed);
            }
        }
        offer({"--help"}, typed);
    }

    void offerWords(const std::string& word) {
        if (const Argument* const argument = positional()) {
            offerValues(*argument, word, "");
        }
        if (verb && verb->takesRest) {
            return;
        }
        bool complete = !mustTake();
        for (const Argument& argument : verb ? verb->arguments : Arguments()) {
            if (argument.mustCome() && argument.isOption() && values.count(argument.name) == 0) {
                offerOption(argument, word);
                complete = false;
            }
        }
        if (!complete) {
            return;
        }
        if (verb && word.empty()) {
            offerOptions(word, false);
        }
        if (!verb) {
            offer(nextWords(names, {}), word);
        } else if (verb->where != Where::kCommandLine &&
                   (!word.empty() || verb->arguments.empty())) {
            Words others;
            for (const std::string& name : names) {
                if (findVerb(name)->where != Where::kCommandLine) {  // they stand alone
                    others.push_back(name);
                }
            }
            offer(nextWords(others, {}), word);
        }
    }

    // The values that begin as typed, in any case; the word begins with what is in front of them.
    void offerValues(const Argument& argument, const std::string& typed, const std::string& front) {
        if (argument.candidates == fileNames) {
            result.files = true;
            result.filesFrom = front.size();
            return;
        }
        if (!argument.candidates) {
            return;
        }
        const size_t comma = argument.list ? typed.rfind(',') : std::string::npos;
        const std::string head = comma == std::string::npos ? "" : typed.substr(0, comma + 1);
        const std::string start = front + head;
        const std::string last = lowerCase(typed.substr(head.size()));
        Words used = argument.isOption() ? Words() : positionals;
        for (const std::string_view piece : split(head, ',')) {
            used.push_back(lowerCase(trimmed(piece)));
        }
        Words found = argument.candidates({session, verbWords, typed, profiles});
        if (verb && verb->takesRest) {
            found = nextWords(found, positionals);
            used.clear();
        }
        for (const std::string& value : found) {
            if (startsWith(lowerCase(value), last) && !contains(used, value)) {
                offer({std::string(start).append(value)}, "");
                result.open = result.open || argument.list || value.back() == '=';
            }
        }
    }

    const Session* const session;
    const Words profiles;
    const Words names;
    const Verb* verb = nullptr;         // the last one
    std::string group;                  // the first word of a verb of two
    const Argument* pending = nullptr;  // an option whose value comes next
    Given::Values values;               // of the verb's options and the global ones
    Words positionals, verbWords;
    Completions result;
};

constexpr const char* kBash = R"END(# zemctl's completion for bash: eval "$(zemctl completion bash)"
_zemctl() {
    local text=${COMP_LINE:0:COMP_POINT} words=() part kept i
    # bash parts words at ':' and '=' too; blanks tell which belong together.
    for ((i = 0; i <= COMP_CWORD; i++)); do
        part=${COMP_WORDS[i]}
        if [[ -z $text || $text == [[:blank:]]* || $i == 0 ]]; then
            text=${text#"${text%%[![:blank:]]*}"}
            words+=("")
        fi
        ((i < COMP_CWORD)) || part=$text
        words[${#words[@]}-1]+=$part
        text=${text#"$part"}
    done
    local cur=${words[${#words[@]}-1]}
    words=("${words[@]:1}")
    # It replaces what is behind the last of them.
    for part in : =; do
        if [[ $COMP_WORDBREAKS == *"$part"* && $cur == *"$part"* ]]; then
            part=${cur%"${cur##*"$part"}"}
            ((${#part} > ${#kept})) && kept=$part
        fi
    done
    COMPREPLY=()
    while IFS= read -r part; do
        case $part in
            :files)
                compopt -o filenames 2>/dev/null
                part=${cur#--*=}
                while IFS= read -r i; do COMPREPLY+=("${cur%"$part"}$i"); done \
                    < <(compgen -f -- "$part")
                ;;
            :open) compopt -o nospace 2>/dev/null ;;
            *) COMPREPLY+=("$part") ;;
        esac
    done < <("$1" complete -- "${words[@]/#\~\//$HOME/}" 2>/dev/null)
    COMPREPLY=("${COMPREPLY[@]#"$kept"}")
}
complete -F _zemctl zemctl
)END";

constexpr const char* kZsh = R"END(#compdef zemctl
# zemctl's completion for zsh: source <(zemctl completion zsh)
_zemctl() {
    local -a found blank
    local line
    blank=()
    for line in "${(@f)$("${(Q)words[1]}" complete -- \
            "${(@Q)${words[2,CURRENT-1]/#\~\//$HOME/}}" "${(Q)PREFIX}" 2>/dev/null)}"; do
        case $line in
            :files)
                compset -P '--*='
                _files
                ;;
            :open) blank=(-S '') ;;
            ?*) found+=("$line") ;;
        esac
    done
    # What it prints fits already, in any case of letters.
    ((${#found})) && compadd -U $blank -a found
}
if [[ ${funcstack[1]} == _zemctl ]]; then
    _zemctl "$@"
else
    compdef _zemctl zemctl
fi
)END";

}  // namespace

Completions complete(const std::vector<std::string>& before, const std::string& word,
                     const Session* session, const std::vector<std::string>& profiles) {
    Line line(session, profiles);
    for (const std::string& each : before) {
        line.take(each);
    }
    return line.next(word);
}

std::vector<std::string> profilesAtStart(const std::vector<std::string>& words) {
    Line line(nullptr, {});
    for (const std::string& each : words) {
        line.take(each);
    }
    Words names;
    try {
        Globals globals;
        takeGlobals(line.globals(), globals);
        ModemAccess modem(globals.subscription);
        if (!globals.modemFile.empty() && readFileIfThere(globals.modemFile)) {
            modem.load(globals.modemFile);
        } else if (globals.factoryProfiles) {
            modem.storeFactoryProfiles();
        }
        for (const StoredProfile& profile : modem.profiles()) {
            names.push_back(lowerCase(profileName(profile.tech, profile.index)));
        }
    } catch (const std::runtime_error&) {
        // The line itself will say what is wrong with it.
    }
    return names;
}

std::vector<std::string> filesFrom(const std::string& typed) {
    const size_t slash = typed.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : typed.substr(0, slash + 1);
    const std::string start = typed.substr(folder.size());
    Words names;
    std::error_code error;
    for (std::filesystem::directory_iterator each(folder.empty() ? "." : folder, error), end;
         !error && each != end; each.increment(error)) {
        const std::string name = each->path().filename().string();
        if (startsWith(name, start) && (name[0] != '.' || !start.empty())) {
            std::error_code unknown;
            names.push_back(folder + name + (each->is_directory(unknown) ? "/" : ""));
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

Step prepareComplete(const Given& given) {
    return [words = given.all("WORD")](Session& session) mutable {
        const std::string word = words.empty() ? "" : words.back();
        if (!words.empty()) {
            words.pop_back();
        }
        const Completions found = complete(words, word, nullptr, profilesAtStart(words));
        std::ostream& out = session.output.page();
        out << (found.files ? ":files\n" : "") << (found.open ? ":open\n" : "");
        for (const std::string& each : found.words) {
            out << each << '\n';
        }
        return kDone;
    };
}

Argument completionArgument() {
    return {"SHELL", "", "bash or zsh", Arity::kRequired, [](const Typing&) -> Words {
                return {"bash", "zsh"};
            }};
}

Step prepareCompletion(const Given& given) {
    const Words shells = completionArgument().candidates({});
    const bool zsh = OptionText{"completion", given.text("SHELL")}.placeIn(shells) == 1;
    return [zsh](Session& session) {
        const char* const script = zsh ? kZsh : kBash;
        session.output.page() << script;
        session.output.object({{"script", script}});
        return kDone;
    };
}

}  // namespace zemctl
