// LoadCommand: `zemctl load`, an operator's carrier list through every operation of the library.
#pragma once

#include "command/Verb.h"

namespace zemctl {

Step prepareLoad(const Given& given);

}  // namespace zemctl
