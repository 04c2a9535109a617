// LibraryLog: how many of the library's own lines come through.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace zemctl {

// Declares --log.
void addLogOption(CLI::App& app, std::string& level);

// Lets the library's lines through from that level on; an empty name lets none through. False for
// an unknown name. Must come before the library is started.
bool setLibraryLog(const std::string& level);

}  // namespace zemctl
