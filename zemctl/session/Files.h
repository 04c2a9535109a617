// Files: what the tool reads as a whole, and what two of it share. Any thread.
#pragma once

#include <optional>
#include <string>

namespace zemctl {

// Throws std::runtime_error with the file's name and the reason; the largest is 64 MiB.
std::string readFile(const std::string& path);

// The same; empty when there is no file of that name.
std::optional<std::string> readFileIfThere(const std::string& path);

// Keeps other tools that ask for the same file's lock waiting, for as long as this lives. The file
// may be replaced meanwhile. Where it cannot be had, as in a folder that is gone, nothing is
// locked.
class FileLock {
  public:
    // Waits for its turn; throws Interrupted when the user wants an end.
    explicit FileLock(const std::string& path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

  private:
    int fd = -1;
};

}  // namespace zemctl
