// Text: strings from files and command lines, made fit for a line on a terminal.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zemctl {

// Control characters become \xNN, so that a value from a file cannot break a line or move the
// cursor.
std::string printable(std::string_view text);

// Columns that UTF-8 text takes on a terminal; East Asian characters take two.
size_t columns(std::string_view text);

// ASCII letters only, as the library compares APN names.
std::string lowerCase(std::string_view text);

std::string_view trimmed(std::string_view text);
std::vector<std::string_view> split(std::string_view text, char separator);

// "a, b, c"
std::string join(const std::vector<std::string>& parts, std::string_view separator);

// The words in lines of up to 100 columns; all but the first line begin with so many blanks.
std::string wrapped(std::string_view text, size_t indent);

// "17:04:09.250", as it is now and here
std::string timeOfDay();

// "1 profile", "3 profiles"
std::string counted(size_t number, std::string_view one, std::string_view many);

// The candidate that takes the fewest edits to reach; empty when all take too many
// to be meant.
std::string nearest(std::string_view typed, const std::vector<std::string>& candidates);

// A line as words: blanks part them, quotes and backslashes keep blanks, # begins a comment. Throws
// std::invalid_argument when a quote is not closed.
std::vector<std::string> splitWords(std::string_view line);

// A line that is still being typed: whole words, and the one that it ends in.
struct UnfinishedLine {
    std::vector<std::string> words;
    std::string word;
    size_t begin = 0;      // where that word begins in the line, with its quotes
    bool inWord = false;   // false behind a blank
    char quote = 0;        // the one that is not closed
    bool comment = false;  // the line ends in one

    bool blank() const { return words.empty() && !inWord; }
};

UnfinishedLine splitUnfinished(std::string_view line);

// A word so that splitWords reads it as one again.
std::string escaped(std::string_view word);

// The whole text as a decimal number within the limits; empty for anything else.
std::optional<int> parseNumber(std::string_view text, int least, int most);

}  // namespace zemctl
