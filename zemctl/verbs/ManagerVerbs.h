// ManagerVerbs: the verbs that ask zem::Manager, one operation each.
#pragma once

#include "command/Verb.h"

namespace zemctl {

VerbGroup managerVerbs();

// The words that may stand for a profile: keys that are held, and the modem's profiles.
std::vector<std::string> profileWords(const Typing& typing);

}  // namespace zemctl
