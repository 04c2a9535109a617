// LoadCommand: `zemctl load`, an operator's carrier list through every operation of the library.
//
// One thread: the library takes one call at a time, and dropping a key is a call.
#pragma once

#include "Verb.h"

namespace zemctl {

RunVerb declareLoad(CLI::App& options);

inline constexpr Verb kLoadVerb = {
    "load", "Load an operator's carrier list into the modem and check each step", declareLoad};

}  // namespace zemctl
