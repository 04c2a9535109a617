// ToolRunner: the tool's command line in this process, whose modem a test can make fail; and a
// shell for its program.
#pragma once

#include <softmodem/SoftModem.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "CapturedStream.h"
#include "command/CommandLine.h"
#include "output/Text.h"

namespace zemctl {

struct Outcome {
    int status;
    std::string out, err;
};

// FILE stands for the example.
inline Outcome runTool(const std::string& line, const std::string& input = {}) {
    std::vector<std::string> words = splitWords("zemctl " + line);
    std::vector<const char*> argv;
    for (std::string& word : words) {
        if (word == "FILE") word = ZEM_SOURCE_DIR "/examples/carriers.xml";
        argv.push_back(word.c_str());
    }
    std::istringstream in(input);
    std::ostringstream out, err;
    const int status = runCommandLine(static_cast<int>(argv.size()), argv.data(), {in, out, err});
    return {status, out.str(), err.str()};
}

// On a modem that has just left its maker.
inline Outcome runAfresh(const std::string& line, const std::string& input = {}) {
    softmodem::SoftModem::instance().reset();
    return runTool(line, input);
}

// Signals that this process ignores, as under nohup, are the shell's to receive all the same.
inline Outcome runShell(const std::string& command) {
    setenv("SCRIPT", command.c_str(), 1);
    const zem::CapturedStream out(STDOUT_FILENO), err(STDERR_FILENO);
    const int status = std::system("env --default-signal bash -c \"$SCRIPT\"");
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out.text(), err.text()};
}

}  // namespace zemctl
