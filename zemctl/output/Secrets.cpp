#include "output/Secrets.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <vector>

#include "output/Settings.h"
#include "output/Text.h"

namespace zemctl {

namespace {

constexpr std::string_view kMask = "(hidden)";
constexpr std::string_view kLabel = "Password=";

std::atomic<bool> secretsShown{false};

// Read by the threads that log, also at the process's end.
struct Known {
    std::mutex mutex;
    std::set<std::string> passwords;
};

Known& known() {
    static Known& instance = *new Known;
    return instance;
}

// The length of the longest known password that stands here; empty when none does.
std::optional<size_t> knownPasswordAt(std::string_view text) {
    std::optional<size_t> longest;
    const std::lock_guard lock(known().mutex);
    for (const std::string& password : known().passwords) {
        const size_t size = password.size();
        if (text.substr(0, size) == password && (text.size() == size || text[size] == ',') &&
            size >= longest.value_or(0)) {
            longest = size;
        }
    }
    return longest;
}

// One that is not known may hold all that a line does, so it ends at the last place where the
// setting behind it may begin.
size_t endOfPassword(std::string_view text) {
    bool behind = false;
    for (const Setting& setting : kSettings) {
        if (behind) {
            // Of the two kinds of dump one says it like this, the other for all IP types at once.
            for (const std::string& name :
                 {std::string(setting.name), std::string("CommonIPType")}) {
                const size_t end = text.rfind(',' + name + '=');
                if (end != std::string_view::npos) {
                    return end;
                }
            }
        }
        behind = behind || setting.secret;
    }
    return text.size();
}

}  // namespace

void showSecrets(bool shown) {
    secretsShown = shown;
}

void rememberSecret(const std::string& password) {
    const std::lock_guard lock(known().mutex);
    known().passwords.insert(password);
}

bool isSecretField(std::string_view name) {
    return lowerCase(name).find("password") != std::string::npos;
}

std::string secret(std::string_view text) {
    return std::string(secretsShown ? text : kMask);
}

std::string withoutSecrets(std::string_view line) {
    std::string result;
    while (!secretsShown) {
        const size_t label = line.find(kLabel);
        if (label == std::string_view::npos) {
            break;
        }
        result += line.substr(0, label + kLabel.size());
        result += kMask;
        line.remove_prefix(label + kLabel.size());
        line.remove_prefix(knownPasswordAt(line).value_or(endOfPassword(line)));
    }
    return result += line;
}

std::string withoutSecretWords(std::string_view line) {
    constexpr std::string_view kWord = "password";
    if (secretsShown) {
        return std::string(line);
    }
    std::vector<std::string> words;
    try {
        words = splitWords(line);
    } catch (const std::invalid_argument&) {
        return std::string(line.substr(0, line.find(kWord)));
    }
    if (std::none_of(words.begin(), words.end(), [&](const std::string& word) {
            return word.find(kWord) != std::string::npos;
        })) {
        return std::string(line);
    }
    std::vector<std::string> shown;
    shown.reserve(words.size());
    for (size_t i = 0; i < words.size(); ++i) {
        const size_t equals = words[i].find('=');
        if (equals != std::string::npos && words[i].rfind(kWord, equals) != std::string::npos) {
            shown.push_back(escaped(words[i].substr(0, equals + 1)).append(kMask));
        } else if (i > 0 && words[i - 1] == "--password") {
            shown.emplace_back(kMask);
        } else {
            shown.push_back(escaped(words[i]));
        }
    }
    return join(shown, " ");
}

}  // namespace zemctl
