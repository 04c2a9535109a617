// Verb: what the tool can be told to do, as one table says it. The command line, the shell, help,
// completion and the man page are all made from that table.
#pragma once

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace zemctl {

enum ExitStatus : int {
    kDone = 0,
    kRefused = 1,    // the library or the modem said no, or a check failed
    kUsage = 2,      // wrong command line or unusable input
    kModemDown = 3,  // nothing answers
    kNoProfile = 4,  // no such profile, or no such key
};

// Ends a verb with a status; what() is the one line that is said.
class Failure : public std::runtime_error {
  public:
    Failure(ExitStatus exitStatus, const std::string& what)
        : std::runtime_error(what), status(exitStatus) {}

    const ExitStatus status;
};

class UsageError : public Failure {
  public:
    explicit UsageError(const std::string& what) : Failure(kUsage, what) {}
};

class Session;

// Where somebody is typing, for the candidates of what comes next.
struct Typing {
    const Session* session;          // null outside of a session
    std::vector<std::string> words;  // of this verb, in front of the one that is being typed
    std::string word;                // as far as it is typed
    std::vector<std::string> profiles = {};  // outside of a session: the modem's, as "3gpp:1"
};

using Candidates = std::vector<std::string> (*)(const Typing&);

// The candidates of a file's name, which the terminal's shell knows best.
std::vector<std::string> fileNames(const Typing& typing);

enum class Arity {
    kSwitch,    // given or not, without a value
    kOptional,  // one value
    kRequired,  // one value, which must be there
    kMany,      // one or more
    kAny,       // none or more
};

// An option ("--apn"), or a word that has a name for the reader only ("PROFILE").
struct Argument {
    std::string name;
    std::string type;  // of an option's value: "NAME"
    std::string help;
    Arity arity = Arity::kOptional;
    Candidates candidates = nullptr;  // null: nothing can be offered
    bool list = false;                // values are joined by commas

    bool isOption() const { return name[0] == '-'; }
    bool mustCome() const { return arity == Arity::kRequired || arity == Arity::kMany; }
    bool takesMany() const { return arity == Arity::kMany || arity == Arity::kAny; }
};

using Arguments = std::vector<Argument>;

// Null when there is none of that name.
const Argument* findArgument(const Arguments& arguments, const std::string& name);

// What was given for a verb's arguments, by their names.
class Given {
  public:
    using Values = std::map<std::string, std::vector<std::string>>;

    explicit Given(Values given) : values(std::move(given)) {}

    bool has(const std::string& name) const { return values.count(name) != 0; }
    // Empty when it was not given.
    std::vector<std::string> all(const std::string& name) const {
        const auto found = values.find(name);
        return found == values.end() ? std::vector<std::string>() : found->second;
    }
    std::string text(const std::string& name) const {
        return has(name) ? values.at(name).front() : "";
    }

  private:
    Values values;
};

// Runs a verb and returns its exit status.
using Step = std::function<int(Session&)>;

enum class Where {
    kAnywhere,
    kCommandLine,  // not in a session: it has a modem of its own, or begins a session
    kSession,      // shell and scripts only
};

struct Verb {
    std::string name;     // one word or two: "list", "modem show"
    std::string summary;  // one line, without a full stop
    std::string details;  // what a reader has to know besides; may be empty
    std::string example;  // behind "zemctl", or as typed in the shell
    Arguments arguments;
    Where where = Where::kAnywhere;
    // Checks what was given, before anything runs; throws UsageError.
    Step (*prepare)(const Given&);
    bool takesRest = false;  // what follows are its own words, also the names of verbs
    bool hidden = false;     // for programs, not for people
};

// The groups in which help and man page show them.
struct VerbGroup {
    std::string title;
    std::vector<Verb> verbs;
};

const std::vector<VerbGroup>& verbGroups();

// Null when there is none of that name.
const Verb* findVerb(const std::string& name);

// "list", "modem show" and so on, of those that may stand there and are for people.
std::vector<std::string> verbNames(bool inSession);

// One argument list behind the other.
Arguments operator+(Arguments first, const Arguments& second);

}  // namespace zemctl
