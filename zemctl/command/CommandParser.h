// CommandParser: words to the steps of verbs, by the table of verbs. Free of state; any thread.
#pragma once

#include <string>
#include <vector>

#include "command/Globals.h"
#include "command/Verb.h"

namespace zemctl {

struct ParsedCommand {
    std::vector<Step> steps;  // in the order of the words
    Globals globals;
};

// Takes any number of verbs with their arguments; all are checked before anything runs. In a
// session no verb may stand that begins one, and of the globals only those that change how an
// answer is shown. Throws UsageError.
ParsedCommand parseCommand(const std::vector<std::string>& words, const Globals& defaults,
                           bool inSession);

}  // namespace zemctl
