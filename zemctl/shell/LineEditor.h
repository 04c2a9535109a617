// LineEditor: one line after the other from a terminal, with a prompt.
//
// Two implementations, chosen by the build: on libedit, with completion and a history, and without
// either. One at a time, on the main thread, which sees the signals.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "command/Completion.h"
#include "output/Output.h"

namespace zemctl {

class LineEditor {
  public:
    using Completer =
        std::function<Completions(const std::vector<std::string>& before, const std::string& word)>;

    // The history is kept in the file, which may be empty: then nothing is kept.
    LineEditor(const Console& console, const Completer& completer, const std::string& historyFile);
    ~LineEditor();
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;

    // Empty at the end of the input. Ctrl-C discards what is typed; with nothing typed it throws
    // Interrupted, as every other signal to end does.
    std::optional<std::string> read(const std::string& prompt);

    // The last line is not to be kept in the file: it may be a password that went astray.
    void forgetLast();

  private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};

}  // namespace zemctl
