#include "session/Files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "output/Text.h"
#include "session/Interrupt.h"

namespace zemctl {

namespace {

constexpr size_t kLargestFile = size_t{64} << 20;

// An open file or folder that nobody else has locked; none when it cannot be opened.
class LockedDescriptor {
  public:
    LockedDescriptor(const std::string& path, int flags)
        : fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | flags)) {
        while (fd >= 0 && flock(fd, LOCK_EX) != 0 && errno == EINTR) {
            if (interruptSignal() != 0) {
                close(fd);
                throw Interrupted();
            }
        }
    }
    ~LockedDescriptor() {
        if (fd >= 0) {
            close(fd);
        }
    }
    LockedDescriptor(const LockedDescriptor&) = delete;
    LockedDescriptor& operator=(const LockedDescriptor&) = delete;

    int get() const { return fd; }
    int release() { return std::exchange(fd, -1); }

  private:
    int fd;
};

}  // namespace

std::string readFile(const std::string& path) {
    const auto failure = [&](const std::string& why) {
        return std::runtime_error(printable(path) + ": " + why);
    };
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "re"), std::fclose);
    if (!file) {
        throwIfInterrupted();
        throw failure("cannot open: " + std::generic_category().message(errno));
    }
    std::string text;
    std::string chunk(1u << 16, '\0');
    size_t count = 0;
    while ((count = std::fread(chunk.data(), 1, chunk.size(), file.get())) > 0 &&
           text.size() <= kLargestFile) {
        text.append(chunk, 0, count);
    }
    if (std::ferror(file.get()) != 0) {
        throwIfInterrupted();
        throw failure("cannot read: " + std::generic_category().message(errno));
    }
    if (text.size() > kLargestFile) {
        throw failure("larger than 64 MiB");
    }
    return text;
}

std::optional<std::string> readFileIfThere(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::exists(path, error) && !error) {
        return std::nullopt;
    }
    if (!std::filesystem::is_regular_file(path, error)) {
        throw std::runtime_error(printable(path) + ": " +
                                 (error ? error.message() : "not a regular file"));
    }
    return readFile(path);
}

FileLock::FileLock(const std::string& path) {
    if (std::error_code error; std::filesystem::is_directory(path, error)) {
        return;
    }
    std::string folder = std::filesystem::path(path).parent_path().string();
    if (folder.empty()) {
        folder = ".";
    }
    for (;;) {
        LockedDescriptor ofFile(path, O_NONBLOCK);
        struct stat locked = {};
        struct stat there = {};
        if (ofFile.get() < 0) {
            // There is none yet: whoever makes it keeps the others out of the folder.
            LockedDescriptor ofFolder(folder, O_DIRECTORY);
            if (stat(path.c_str(), &there) != 0) {
                fd = ofFolder.release();
                return;
            }
        } else if (fstat(ofFile.get(), &locked) == 0 && stat(path.c_str(), &there) == 0 &&
                   locked.st_ino == there.st_ino && locked.st_dev == there.st_dev) {
            fd = ofFile.release();
            return;
        }
        // Whoever had it before has put another file in its place.
        if (interruptSignal() != 0) {
            throw Interrupted();
        }
        if (ofFile.get() < 0 && access(path.c_str(), R_OK) != 0) {
            return;  // it can be neither read nor locked
        }
    }
}

FileLock::~FileLock() {
    if (fd >= 0) {
        close(fd);
    }
}

}  // namespace zemctl
