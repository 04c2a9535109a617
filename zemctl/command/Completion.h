// Completion: what may come next in a line that is being typed, worked out from the table of verbs;
// for the shell and, through the verb "complete", for the terminal's shells. One thread, that of
// the session.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "command/Verb.h"

namespace zemctl {

struct Completions {
    std::vector<std::string> words;  // each for the place of the whole word that is being typed
    bool open = false;               // they may go on: no blank belongs behind them
    bool files = false;              // names of files as well,
    size_t filesFrom = 0;            // in the place of what follows so much of the word
};

// What the word can become behind the words in front of it. Outside of a session, which is then
// null, the profiles of the modem may be named.
Completions complete(const std::vector<std::string>& before, const std::string& word,
                     const Session* session, const std::vector<std::string>& profiles = {});

// The profiles that the modem of such a command line boots with, as "3gpp:1". Nothing is written.
std::vector<std::string> profilesAtStart(const std::vector<std::string>& words);

// The files whose names begin so; a directory's ends in '/'.
std::vector<std::string> filesFrom(const std::string& typed);

// The verb "complete": one word a line, behind lines ":files" and ":open" where they hold.
Step prepareComplete(const Given& given);

// The verb "completion".
Argument completionArgument();
Step prepareCompletion(const Given& given);

}  // namespace zemctl
