// StoryCommand: `zemctl story`, a phone's day with zem::Util from boot to the release of its keys.
#pragma once

#include "command/Verb.h"

namespace zemctl {

Step prepareStory(const Given& given);

}  // namespace zemctl
