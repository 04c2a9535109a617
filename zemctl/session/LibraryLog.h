// LibraryLog: how many of the library's own lines come through, and how they look.
#pragma once

#include <string>
#include <vector>

namespace zemctl {

// "verbose" to "fatal", the most talkative first.
std::vector<std::string> libraryLogLevels();

// Writes the library's lines from that level on to standard error, passwords masked as in all of
// the tool's output; an empty name lets none through. Must come before the library is started.
void setLibraryLog(const std::string& level);

}  // namespace zemctl
