// LineEditor where there is no library for it.
#include <istream>

#include "session/Interrupt.h"
#include "shell/LineEditor.h"

namespace zemctl {

struct LineEditor::Impl {
    const Console console;
};

LineEditor::LineEditor(const Console& console, const Completer& /*completer*/,
                       const std::string& /*historyFile*/)
    : impl(new Impl{console}) {}

LineEditor::~LineEditor() = default;

std::optional<std::string> LineEditor::read(const std::string& prompt) {
    impl->console.err << prompt << std::flush;
    std::string line;
    const bool read = static_cast<bool>(std::getline(impl->console.in, line));
    if (!read) {
        impl->console.err << std::endl;
    }
    throwIfInterrupted();
    return read ? std::optional(line) : std::nullopt;
}

void LineEditor::forgetLast() {}

}  // namespace zemctl
