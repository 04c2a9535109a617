// Files: what the tool reads as a whole. Free of state; any thread.
#pragma once

#include <string>

namespace zemctl {

// Throws std::runtime_error with the file's name and the reason; the largest is 64 MiB.
std::string readFile(const std::string& path);

}  // namespace zemctl
