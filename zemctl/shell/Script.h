// Script: the tool's commands in a file, one a line, with what each has to answer.
//
// Commands are the lines of a session. "expect TEXT" says a line that the command above prints,
// "expect ..." any number of lines, "expect status N" the exit status. One thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "command/CommandParser.h"
#include "command/Verb.h"

namespace zemctl {

class Session;

class Script {
  public:
    // Reads all lines and checks them, but for the words of commands that are expected to be wrong.
    // Throws UsageError with the file's name and the line.
    Script(std::string name, const std::string& text, const Globals& globals);

    // Shows what it plays, or only what became of it. Throws Failure at the first difference, with
    // the file's name and the line.
    void play(Session& session, bool quiet) const;

    // Prints the script with what its commands answer now; wrong answers are as good as right ones.
    void record(Session& session) const;

  private:
    struct Expected {
        size_t line;
        std::string text;
    };
    struct Command {
        size_t line = 0;
        std::vector<std::string> words;
        std::vector<Expected> answer;
        int status = kDone;
        size_t statusLine = 0;                // 0: none says it
        std::optional<ParsedCommand> parsed;  // empty: the words are expected to be wrong

        bool isChecked() const { return !answer.empty() || statusLine != 0; }
    };
    struct Answer {
        int status = kDone;
        std::string text;
        std::vector<std::string> lines;  // of the text, as they are compared
    };

    void readExpected(size_t line, const std::string& text);
    static Answer ask(Session& session, const Command& command);
    void compare(const Command& command, const Answer& answer) const;
    std::string at(size_t line, const std::string& what) const;

    const std::string file;
    std::vector<std::string> source;
    std::vector<Command> commands;
};

// The verbs "run" and "expect".
Step prepareRun(const Given& given);
Step prepareExpect(const Given& given);

}  // namespace zemctl
