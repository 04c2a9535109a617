// Globals: the options that stand for a whole command line or session, and not for one verb.
#pragma once

#include <string>
#include <vector>

#include "command/Verb.h"

namespace zemctl {

inline constexpr int kLastSubscription = 15;

struct Globals {
    bool factoryProfiles = true;  // what a new modem boots with
    bool json = false;
    std::string log;        // the library's lines from this level on; empty: none
    std::string modemFile;  // keeps the modem's store between calls; empty: nothing does
    bool showSecrets = false;
    int subscription = 0;
};

// The options as the table of verbs has them.
const Arguments& globalArguments();

// Those of them that belong to the line that starts a session, and to no line in it.
const std::vector<std::string>& startOptions();

// Takes what was given over the defaults. Throws UsageError.
void takeGlobals(const Given& given, Globals& globals);

}  // namespace zemctl
