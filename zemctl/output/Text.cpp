#include "output/Text.h"

#include <sys/time.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace zemctl {

namespace {

bool isContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

bool isWide(uint32_t codePoint) {
    return (codePoint >= 0x1100 && codePoint <= 0x115F) ||
           (codePoint >= 0x2E80 && codePoint <= 0xA4CF) ||
           (codePoint >= 0xAC00 && codePoint <= 0xD7A3) ||
           (codePoint >= 0xF900 && codePoint <= 0xFAFF) ||
           (codePoint >= 0xFF00 && codePoint <= 0xFF60);
}

// Letters put in, left out, replaced, or two that have changed places.
size_t editsBetween(std::string_view one, std::string_view other) {
    std::vector<std::vector<size_t>> edits(one.size() + 1, std::vector<size_t>(other.size() + 1));
    for (size_t i = 0; i <= one.size(); ++i) {
        for (size_t j = 0; j <= other.size(); ++j) {
            if (i == 0 || j == 0) {
                edits[i][j] = i + j;
                continue;
            }
            const bool same = one[i - 1] == other[j - 1];
            edits[i][j] = std::min(
                {edits[i - 1][j] + 1, edits[i][j - 1] + 1, edits[i - 1][j - 1] + (same ? 0 : 1)});
            if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1]) {
                edits[i][j] = std::min(edits[i][j], edits[i - 2][j - 2] + 1);
            }
        }
    }
    return edits[one.size()][other.size()];
}

}  // namespace

std::string printable(std::string_view text) {
    static const char kDigits[] = "0123456789abcdef";
    std::string result;
    unsigned char before = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool upperControl = before == 0xC2 && byte >= 0x80 && byte < 0xA0;  // U+0080 on
        before = byte;
        if (upperControl) {
            result.pop_back();
            result += "\\xc2";
        }
        if (byte < 0x20 || byte == 0x7F || upperControl) {
            result += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xF]};
        } else {
            result += c;
        }
    }
    return result;
}

size_t columns(std::string_view text) {
    size_t result = 0;
    for (size_t i = 0; i < text.size();) {
        const auto first = static_cast<unsigned char>(text[i++]);
        uint32_t codePoint = first < 0xC0 ? first : first & (first < 0xE0 ? 0x1Fu : 0x0Fu);
        while (i < text.size() && isContinuation(text[i])) {
            codePoint = codePoint << 6 | (static_cast<unsigned char>(text[i++]) & 0x3Fu);
        }
        result += isWide(codePoint) ? 2 : 1;
    }
    return result;
}

std::string lowerCase(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return result;
}

std::string_view trimmed(std::string_view text) {
    static const char kBlanks[] = " \t\r\n";
    const size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (;;) {
        const size_t end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return parts;
        }
        text.remove_prefix(end + 1);
    }
}

std::string join(const std::vector<std::string>& parts, std::string_view separator) {
    std::string result;
    for (const std::string& part : parts) {
        if (!result.empty()) {
            result += separator;
        }
        result += part;
    }
    return result;
}

std::string wrapped(std::string_view text, size_t indent) {
    constexpr size_t kWidth = 100;
    std::string result;
    size_t used = indent;
    std::istringstream words{std::string(text)};
    for (std::string word; words >> word;) {
        if (result.empty()) {
            used += columns(word);
        } else if (used + 1 + columns(word) > kWidth) {
            result += '\n' + std::string(indent, ' ');
            used = indent + columns(word);
        } else {
            result += ' ';
            used += 1 + columns(word);
        }
        result += word;
    }
    return result;
}

std::string timeOfDay() {
    timeval now = {};
    gettimeofday(&now, nullptr);
    tm parts = {};
    localtime_r(&now.tv_sec, &parts);
    char text[32];
    snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", parts.tm_hour, parts.tm_min, parts.tm_sec,
             static_cast<int>(now.tv_usec / 1000));
    return text;
}

std::string counted(size_t number, std::string_view one, std::string_view many) {
    return std::to_string(number) + ' ' + std::string(number == 1 ? one : many);
}

std::string nearest(std::string_view typed, const std::vector<std::string>& candidates) {
    constexpr size_t kLongestTyped = 64;   // a longer word is no slip of the finger
    constexpr size_t kShortestStart = 3;   // of a name that was not typed to its end
    constexpr size_t kLettersToASlip = 4;  // one more edit for so many
    if (typed.size() > kLongestTyped) {
        return "";
    }
    std::string best;
    size_t fewest = SIZE_MAX;
    for (const std::string& candidate : candidates) {
        const bool begun = typed.size() >= kShortestStart && typed.size() < candidate.size() &&
                           candidate.compare(0, typed.size(), typed) == 0;
        const size_t edits = begun ? 1 : editsBetween(typed, candidate);
        const size_t most = 1 + std::max(typed.size(), candidate.size()) / kLettersToASlip;
        if (edits > 0 && edits < fewest && edits <= most &&
            edits < std::max(typed.size(), candidate.size())) {
            fewest = edits;
            best = candidate;
        }
    }
    return best;
}

std::vector<std::string> splitWords(std::string_view line) {
    UnfinishedLine split = splitUnfinished(line);
    if (split.quote) {
        throw std::invalid_argument(std::string("a quote ") + split.quote + " is not closed");
    }
    if (split.inWord) {
        split.words.push_back(std::move(split.word));
    }
    return std::move(split.words);
}

UnfinishedLine splitUnfinished(std::string_view line) {
    UnfinishedLine split;
    split.begin = line.size();
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (!split.quote && (c == ' ' || c == '\t' || c == '\r')) {
            if (split.inWord) {
                split.words.push_back(std::exchange(split.word, {}));
                split.inWord = false;
                split.begin = line.size();
            }
            continue;
        }
        if (!split.inWord && c == '#') {
            split.comment = true;
            break;
        }
        if (!split.inWord) {
            split.inWord = true;
            split.begin = i;
        }
        if (split.quote && c == split.quote) {
            split.quote = 0;
        } else if (!split.quote && (c == '\'' || c == '"')) {
            split.quote = c;
        } else if (c == '\\' && split.quote != '\'' && i + 1 < line.size()) {
            split.word += line[++i];
        } else {
            split.word += c;
        }
    }
    return split;
}

std::string escaped(std::string_view word) {
    static const std::string_view kSpecial = " \t\r\"'\\";
    if (word.empty()) {
        return "''";
    }
    std::string result;
    for (const char c : word) {
        if (kSpecial.find(c) != std::string_view::npos || (c == '#' && result.empty())) {
            result += '\\';
        }
        result += c;
    }
    return result;
}

std::optional<int> parseNumber(std::string_view text, int least, int most) {
    int value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (text.empty() || error != std::errc() || stop != end || value < least || value > most) {
        return std::nullopt;
    }
    return value;
}

}  // namespace zemctl
