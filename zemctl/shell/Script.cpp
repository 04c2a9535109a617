#include "shell/Script.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

#include "output/Secrets.h"
#include "output/Text.h"
#include "session/Files.h"
#include "session/Interrupt.h"
#include "session/Session.h"

namespace zemctl {

namespace {

constexpr std::string_view kExpect = "expect";
constexpr std::string_view kStatus = "status";
constexpr std::string_view kAnyLines = "...";
constexpr int kHighestStatus = 255;

// Blanks at the ends go, and each run of them within becomes one.
std::string simplified(std::string_view text) {
    std::string result;
    for (const char c : trimmed(text)) {
        const bool blank = c == ' ' || c == '\t';
        if (!blank || result.back() != ' ') {
            result += blank ? ' ' : c;
        }
    }
    return result;
}

// A star stands for any characters. The last one that was met is made longer as long as what
// follows it does not fit.
bool fits(std::string_view pattern, std::string_view text) {
    size_t p = 0, star = std::string_view::npos, starText = 0;
    for (size_t t = 0; t < text.size();) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            starText = t;
        } else if (p < pattern.size() && pattern[p] == text[t]) {
            ++p;
            ++t;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            t = ++starText;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

// What follows the word in front; empty when another word is there.
std::optional<std::string_view> behind(std::string_view word, std::string_view line) {
    const std::string_view text = trimmed(line);
    if (text.substr(0, word.size()) != word ||
        (text.size() > word.size() && text[word.size()] != ' ' && text[word.size()] != '\t')) {
        return std::nullopt;
    }
    return trimmed(text.substr(word.size()));
}

std::optional<int> statusIn(std::string_view expected) {
    const auto number = behind(kStatus, expected);
    return number ? parseNumber(*number, 0, kHighestStatus) : std::nullopt;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.emplace_back(trimmed(line));
    }
    return lines;
}

// How what was expected becomes what was answered, with the fewest changes.
struct Edit {
    enum Kind { kKeep, kReplace, kDrop, kInsert } kind;
    size_t expected;
    size_t line;
};

std::vector<Edit> align(std::vector<std::string> expected, std::vector<std::string> lines) {
    for (std::vector<std::string>* const texts : {&expected, &lines}) {
        for (std::string& text : *texts) {
            text = simplified(text);
        }
    }
    // To replace one is half of dropping it and inserting another.
    constexpr size_t kHalf = 1, kWhole = 2;
    const size_t end = expected.size();
    const size_t lineEnd = lines.size();
    // costs[i][j]: of all from the i-th that is expected and the j-th line on
    std::vector<std::vector<size_t>> costs(end + 1, std::vector<size_t>(lineEnd + 1));
    const auto isAny = [&](size_t i) { return expected[i] == kAnyLines; };
    const auto replacing = [&](size_t i, size_t j) {
        return costs[i + 1][j + 1] + (fits(expected[i], lines[j]) ? 0 : kHalf);
    };
    for (size_t i = end + 1; i-- > 0;) {
        for (size_t j = lineEnd + 1; j-- > 0;) {
            if (i == end) {
                costs[i][j] = (lineEnd - j) * kWhole;
            } else if (isAny(i)) {
                costs[i][j] =
                    j == lineEnd ? costs[i + 1][j] : std::min(costs[i + 1][j], costs[i][j + 1]);
            } else if (j == lineEnd) {
                costs[i][j] = costs[i + 1][j] + kWhole;
            } else {
                costs[i][j] =
                    std::min({replacing(i, j), costs[i + 1][j] + kWhole, costs[i][j + 1] + kWhole});
            }
        }
    }
    std::vector<Edit> edits;
    for (size_t i = 0, j = 0; i < end || j < lineEnd;) {
        if (i < end && isAny(i)) {
            if (j < lineEnd && costs[i][j] == costs[i][j + 1]) {
                ++j;
            } else {
                edits.push_back({Edit::kKeep, i++, j});
            }
        } else if (i < end && j < lineEnd && costs[i][j] == replacing(i, j)) {
            const bool same = costs[i][j] == costs[i + 1][j + 1];
            edits.push_back({same ? Edit::kKeep : Edit::kReplace, i++, j++});
        } else if (i < end && costs[i][j] == costs[i + 1][j] + kWhole) {
            edits.push_back({Edit::kDrop, i++, j});
        } else {
            edits.push_back({Edit::kInsert, i, j++});
        }
    }
    return edits;
}

std::string inQuotes(const std::string& text) {
    return '"' + simplified(text) + '"';
}

// Takes what a command says, for as long as this lives.
class Capture {
  public:
    explicit Capture(Output& where) : output(where) { output.redirect(&text); }
    ~Capture() { output.redirect(nullptr); }
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    std::ostringstream text;

  private:
    Output& output;
};

std::string contentsOf(const std::string& file, std::istream& in) {
    if (file != "-") {
        try {
            return readFile(file);
        } catch (const std::runtime_error& error) {
            throw UsageError(error.what());
        }
    }
    std::string text{std::istreambuf_iterator<char>(in), {}};
    throwIfInterrupted();
    return text;
}

}  // namespace

Script::Script(std::string name, const std::string& text, const Globals& globals)
    : file(name == "-" ? "stdin" : std::move(name)) {
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        source.push_back(line);
        if (const auto expected = behind(kExpect, line)) {
            readExpected(source.size(), std::string(*expected));
            continue;
        }
        try {
            Command command;
            command.line = source.size();
            command.words = splitWords(line);
            if (!command.words.empty()) {
                commands.push_back(std::move(command));
            }
        } catch (const std::invalid_argument& error) {
            throw UsageError(at(source.size(), error.what()));
        }
    }
    for (Command& command : commands) {
        if (command.status == kUsage) {
            continue;
        }
        try {
            command.parsed = parseCommand(command.words, globals, true);
        } catch (const UsageError& error) {
            throw UsageError(at(command.line, error.what()));
        }
    }
}

void Script::readExpected(size_t line, const std::string& text) {
    if (commands.empty()) {
        throw UsageError(at(line, "'expect' belongs below a command"));
    }
    Command& command = commands.back();
    const auto status = statusIn(text);
    if (!status && behind(kStatus, text) && text.find_first_of("*.") == std::string::npos) {
        throw UsageError(
            at(line, "'expect status' takes a number from 0 to " + std::to_string(kHighestStatus)));
    }
    if (!status) {
        command.answer.push_back({line, text});
        return;
    }
    if (command.statusLine != 0) {
        throw UsageError(at(line, "the command has a status already"));
    }
    command.status = *status;
    command.statusLine = line;
}

std::string Script::at(size_t line, const std::string& what) const {
    return file + ':' + std::to_string(line) + ": " + what;
}

Script::Answer Script::ask(Session& session, const Command& command) {
    const Capture capture(session.output);
    Answer answer;
    try {
        answer.status =
            session.run(command.parsed ? *command.parsed
                                       : parseCommand(command.words, session.options(), true));
    } catch (const UsageError& error) {
        session.output.complain(error.what());
        answer.status = error.status;
    }
    answer.text = capture.text.str();
    answer.lines = linesOf(answer.text);
    return answer;
}

void Script::compare(const Command& command, const Answer& answer) const {
    if (answer.status != command.status) {
        const size_t line = command.statusLine != 0 ? command.statusLine : command.line;
        throw Failure(kRefused,
                      at(line, "wanted status " + std::to_string(command.status) + ", got status " +
                                   std::to_string(answer.status) +
                                   (answer.lines.empty() ? "" : ": " + answer.lines.back())));
    }
    if (command.answer.empty()) {
        return;
    }
    std::vector<std::string> expected;
    for (const Expected& each : command.answer) {
        expected.push_back(each.text);
    }
    for (const auto& [kind, i, j] : align(expected, answer.lines)) {
        if (kind != Edit::kKeep) {
            const bool more = i < expected.size();
            throw Failure(
                kRefused,
                at(command.answer[more ? i : i - 1].line,
                   "wanted " + (more ? inQuotes(expected[i]) : "nothing more") + ", got " +
                       (j < answer.lines.size() ? inQuotes(answer.lines[j]) : "nothing more")));
        }
    }
}

void Script::play(Session& session, bool quiet) const {
    const Output& output = session.output;
    std::optional<Progress> progress(std::in_place, output, "playing " + printable(file),
                                     commands.size());
    size_t shown = 0;
    bool begun = false;  // not with an empty line
    size_t compared = 0;
    size_t played = 0;
    // What stands between two commands for the reader.
    const auto showUpTo = [&](size_t end) {
        for (; shown < end; ++shown) {
            const std::string_view line = trimmed(source[shown]);
            const bool forReader = line.empty() || (line[0] == '#' && line.substr(0, 2) != "#!");
            begun = begun || (forReader && !line.empty());
            if (forReader && begun && !quiet) {
                output.text() << printable(line) << '\n';
            }
        }
    };
    for (const Command& command : commands) {
        showUpTo(command.line);
        if (quiet) {
            progress->step();
        } else {
            const std::string line = withoutSecretWords(trimmed(source[command.line - 1]));
            output.text() << output.bold("> " + printable(line)) << std::endl;
        }
        const Answer answer = ask(session, command);
        if (!quiet) {
            (output.isJson() ? output.console.out : output.text()) << answer.text << std::flush;
        }
        compare(command, answer);
        compared += command.answer.size();
        ++played;
        if (session.over) {
            break;
        }
    }
    progress.reset();
    showUpTo(source.size());
    if (!quiet) {
        output.text() << '\n';
    }
    output.text() << printable(file) << ": " << counted(played, "command", "commands") << ", "
                  << counted(compared, "line", "lines") << " as expected" << std::endl;
}

void Script::record(Session& session) const {
    std::ostream& out = session.output.console.out;
    size_t shown = 0;
    // Line by line as it was, but for what a checked command has expected.
    for (const Command& command : commands) {
        for (; shown < command.line; ++shown) {
            out << source[shown] << '\n';
        }
        if (session.over) {
            break;
        }
        const Answer answer = ask(session, command);
        throwIfInterrupted();
        if (!command.isChecked() && answer.status == kDone) {
            continue;
        }
        std::vector<std::string> expected;
        size_t last = command.statusLine;
        size_t first = command.statusLine;
        for (const Expected& each : command.answer) {
            expected.push_back(each.text);
            first = first == 0 ? each.line : std::min(first, each.line);
            last = std::max(last, each.line);
        }
        for (; first != 0 && shown + 1 < first; ++shown) {
            out << source[shown] << '\n';
        }
        for (const auto& [kind, i, j] : align(expected, answer.lines)) {
            if (kind == Edit::kKeep) {
                out << trimmed(source[command.answer[i].line - 1]) << '\n';
            } else if (kind != Edit::kDrop && !command.answer.empty()) {
                out << kExpect << (answer.lines[j].empty() ? "" : " ") << answer.lines[j] << '\n';
            }
        }
        if (answer.status != kDone) {
            out << kExpect << ' ' << kStatus << ' ' << answer.status << '\n';
        }
        for (; shown < last; ++shown) {
            if (!behind(kExpect, source[shown])) {
                out << source[shown] << '\n';
            }
        }
    }
    for (; shown < source.size(); ++shown) {
        out << source[shown] << '\n';
    }
    out << std::flush;
}

Step prepareRun(const Given& given) {
    return [file = given.text("FILE"), quiet = given.has("--quiet"),
            record = given.has("--record")](Session& session) {
        const std::string text = contentsOf(file, session.output.console.in);
        const Script script(file, text, session.options());
        session.interactive = true;
        session.unlockFile();
        const auto end = [&session] {  // without a word, as it is no command's answer
            session.watch = nullptr;
            session.keys.clear();
        };
        try {
            if (record) {
                script.record(session);
            } else {
                script.play(session, quiet);
            }
        } catch (const Failure&) {
            end();
            throw;
        }
        end();
        return kDone;
    };
}

Step prepareExpect(const Given& /*given*/) {
    throw UsageError("'expect' belongs to scripts, below the command that it is about");
}

}  // namespace zemctl
