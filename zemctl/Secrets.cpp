#include "Secrets.h"

#include <algorithm>
#include <atomic>

#include "Settings.h"

namespace zemctl {

namespace {

constexpr std::string_view kMask = "********";
constexpr std::string_view kLabel = "Password=";

std::atomic<bool> secretsShown{false};

// A password may hold commas, so it ends where the next setting begins.
size_t endOfPassword(std::string_view text) {
    size_t end = text.size();
    for (const Setting& setting : kSettings) {
        end = std::min(end, text.find(',' + std::string(setting.name) + '='));
    }
    for (const std::string_view other :
         {",CommonIPType=", ",TechType=", ",Filter", ",IsPersistent="}) {
        end = std::min(end, text.find(other));
    }
    return end;
}

}  // namespace

void showSecrets(bool shown) {
    secretsShown = shown;
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
        line.remove_prefix(endOfPassword(line));
    }
    return result += line;
}

}  // namespace zemctl
