// LibraryLog: how many of the library's own lines come through.
#pragma once

#include <string>
#include <vector>

namespace zemctl {

// From most lines to fewest.
std::vector<std::string> logLevelNames();

// Lets the library's lines through from that level on; an empty name lets none through. False for
// an unknown name. Must come before the library is started.
bool setLibraryLog(const std::string& level);

}  // namespace zemctl
