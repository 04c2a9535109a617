// ToolVerbs: the verbs about the tool itself. No thread rule of their own.
#pragma once

#include "command/Verb.h"

namespace zemctl {

VerbGroup toolVerbs();

}  // namespace zemctl
