// ModemVerbs: the verbs that reach into the software modem behind the library's back. No thread
// rule of their own.
#pragma once

#include "command/Verb.h"

namespace zemctl {

VerbGroup modemVerbs();

}  // namespace zemctl
