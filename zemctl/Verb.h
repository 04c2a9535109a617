// Verb: one word of the command line, as the table of verbs holds it.
#pragma once

#include <functional>
#include <ostream>
#include <stdexcept>

namespace CLI {
class App;
}

namespace zemctl {

enum ExitStatus : int {
    kDone = 0,
    kRefused = 1,  // the library or the modem said no, or a check failed
    kUsage = 2,    // wrong command line or unusable input
};

// Ends the tool with kUsage; what() is the one line that is said.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

using RunVerb = std::function<int(std::ostream& out)>;

struct Verb {
    const char* name;
    const char* summary;
    // Declares the verb's options; what it returns runs the verb once they are parsed.
    RunVerb (*declare)(CLI::App& options);
};

}  // namespace zemctl
