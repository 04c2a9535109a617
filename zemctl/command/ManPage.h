// ManPage: the table of verbs as a page for man(1). Free of state; any thread.
#pragma once

#include <string>

namespace zemctl {

std::string manPage();

}  // namespace zemctl
