// StoryCommand: `zemctl story`, a phone's day with zem::Util from boot to the release of its keys.
//
// One thread: the library takes one call at a time, and dropping a key is a call.
#pragma once

#include "Verb.h"

namespace zemctl {

RunVerb declareStory(CLI::App& options);

inline constexpr Verb kStoryVerb = {
    "story", "Tell a phone's story: boot, carrier list, attach, calls, restart, release",
    declareStory};

}  // namespace zemctl
