// PolicyVerbs: the verbs that ask zem::Util, one operation each.
#pragma once

#include "command/Verb.h"

namespace zemctl {

VerbGroup policyVerbs();

}  // namespace zemctl
