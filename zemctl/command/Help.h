// Help: the table of verbs as texts for a reader. Free of state; any thread.
#pragma once

#include <string>

#include "command/Verb.h"

namespace zemctl {

// "list [OPTIONS]", "get PROFILE [OPTIONS]"
std::string usageOf(const Verb& verb);

// Prints the help for a verb, or, for an empty name, the list of all verbs.
Step helpStep(const std::string& verbName);

struct StatusText {
    int status;
    const char* text;
};

inline constexpr StatusText kStatusTexts[] = {
    {kDone, "done"},
    {kRefused, "the library or the modem said no, or a check failed"},
    {kUsage, "wrong command line or unusable input"},
    {kModemDown, "the modem is down or does not answer"},
    {kNoProfile, "no such profile, or no such key"},
};

}  // namespace zemctl
