#include "output/Report.h"

#include <algorithm>

#include "output/Text.h"

namespace zemctl {

namespace {

constexpr size_t kIndent = 4;
constexpr size_t kWidth = 100;

}  // namespace

Table::Table(std::vector<std::string> header) {
    rows.push_back(std::move(header));
}

void Table::row(std::vector<std::string> cells) {
    cells.resize(rows.front().size());
    rows.push_back(std::move(cells));
}

void Table::print(const Output& output, size_t indent) const {
    std::vector<size_t> widths(rows.front().size());
    for (const auto& cells : rows) {
        for (size_t i = 0; i < cells.size(); ++i) {
            widths[i] = std::max(widths[i], columns(cells[i]));
        }
    }
    for (const auto& cells : rows) {
        std::string text(indent, ' ');
        for (size_t i = 0; i < cells.size(); ++i) {
            text += cells[i] + std::string(widths[i] - columns(cells[i]) + 2, ' ');
        }
        text.erase(text.find_last_not_of(' ') + 1);
        output.text() << (&cells == &rows.front() ? output.bold(text) : text) << '\n';
    }
}

void Report::step(const std::string& title) {
    ++steps;
    std::ostream& out = output.text();
    if (numbered) {
        out << '\n' << output.bold(std::to_string(steps) + ". " + title);
    } else {
        out << output.bold(title);
    }
    out << std::endl;  // in order with the library's lines on standard error
}

void Report::line(const std::string& text) {
    output.text() << std::string(kIndent, ' ') << text << '\n';
}

void Report::table(const Table& table) {
    if (!table.empty()) {
        table.print(output, kIndent);
    }
}

void Report::paragraph(const std::string& name, const std::vector<std::string>& words) {
    const size_t indent = kIndent + columns(name) + 2;
    std::string text = std::string(kIndent, ' ') + name + "  ";
    size_t used = indent;
    for (const std::string& word : words) {
        if (used > indent && used + columns(word) > kWidth) {
            output.text() << text.substr(0, text.find_last_not_of(' ') + 1) << '\n';
            text.assign(indent, ' ');
            used = indent;
        }
        text += word + "  ";
        used += columns(word) + 2;
    }
    output.text() << text.substr(0, text.find_last_not_of(' ') + 1) << '\n';
}

bool Report::check(bool ok, const std::string& statement, const std::vector<std::string>& details) {
    ++checks;
    line((ok ? output.green("ok") + "     " : output.red("WRONG") + "  ") + statement);
    if (!ok) {
        ++failures;
        if (output.isJson()) {
            output.complain("wrong: " + statement +
                            (details.empty() ? "" : ": " + join(details, "; ")));
        }
        for (const std::string& detail : details) {
            line("       " + detail);
        }
    }
    return ok;
}

void Report::countChecks() {
    line(counted(checks, "check", "checks") + ", " +
         (failures == 0 ? "all passed" : std::to_string(failures) + " failed"));
}

}  // namespace zemctl
