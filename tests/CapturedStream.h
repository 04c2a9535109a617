// CapturedStream: what the process writes to one of its standard descriptors while this lives.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <string>

namespace zem {

class CapturedStream {
  public:
    explicit CapturedStream(int fd) : fd(fd), saved(dup(fd)), file(tmpfile()) {
        fflush(nullptr);
        dup2(fileno(file), fd);
    }
    ~CapturedStream() {
        fflush(nullptr);
        dup2(saved, fd);
        close(saved);
        fclose(file);
    }
    CapturedStream(const CapturedStream&) = delete;
    CapturedStream& operator=(const CapturedStream&) = delete;

    std::string text() const {
        std::string all;
        char piece[1024];
        ssize_t got = 0;
        while ((got = pread(fileno(file), piece, sizeof piece, static_cast<off_t>(all.size()))) > 0)
            all.append(piece, static_cast<size_t>(got));
        return all;
    }

  private:
    const int fd;
    const int saved;
    FILE* const file;
};

}  // namespace zem
