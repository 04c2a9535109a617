#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <ostream>
#include <streambuf>
#include <string>

#include "command/CommandLine.h"
#include "session/Interrupt.h"

namespace {

// Standard output under a descriptor of the tool's own: the library says a word on the other one
// when its engine stops, which is no answer of the tool's.
class OwnOutput : public std::streambuf {
  public:
    OwnOutput() : fd(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (nowhere >= 0) {
            dup2(nowhere, STDOUT_FILENO);
            close(nowhere);
        }
        setp(buffer, buffer + sizeof buffer);
    }
    ~OwnOutput() override { close(fd); }
    OwnOutput(const OwnOutput&) = delete;
    OwnOutput& operator=(const OwnOutput&) = delete;

    // As "head" is when it has enough.
    bool readerIsGone() const { return lastError == EPIPE; }

  protected:
    int overflow(int c) override {
        if (sync() != 0) {
            return traits_type::eof();
        }
        if (c != traits_type::eof()) {
            sputc(static_cast<char>(c));
        }
        return traits_type::not_eof(c);
    }

    int sync() override {
        for (const char* from = pbase(); from != pptr();) {
            const ssize_t put = write(fd, from, static_cast<size_t>(pptr() - from));
            if (put >= 0) {
                from += put;
            } else if (errno != EINTR) {
                lastError = errno;
                return -1;
            }
        }
        setp(buffer, buffer + sizeof buffer);
        return 0;
    }

  private:
    const int fd;
    int lastError = 0;
    char buffer[4096];
};

bool wantsColours() {
    const char* const no = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && (!no || !*no) && terminal &&
           std::string(terminal) != "dumb";
}

// What is opened later must not take the place of a standard stream that is closed. Nothing can be
// written to this one, and nothing read.
void fillClosedStreams() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) < 0 &&
            open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) < 0) {
            return;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    fillClosedStreams();
    zemctl::watchForInterrupts();
    const bool colours = wantsColours();
    OwnOutput buffer;
    std::ostream out(&buffer);
    const int status = zemctl::runCommandLine(
        argc, argv,
        {std::cin, out, std::cerr, isatty(STDIN_FILENO) != 0, colours, isatty(STDERR_FILENO) != 0,
         [&buffer] { return buffer.readerIsGone(); }});
    // Ended by the signal itself, as whoever started the tool looks for.
    if (const int number = zemctl::interruptSignal(); number != 0 && status == 128 + number) {
        std::signal(number, SIG_DFL);
        std::raise(number);
    }
    return status;
}
