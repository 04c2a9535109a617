#include "LibraryLog.h"

#include <vector>

#include <android/log.h>
#include <CLI/CLI.hpp>

namespace zemctl {

namespace {

constexpr struct {
    const char* name;
    int priority;
} kLevels[] = {
    {"verbose", ANDROID_LOG_VERBOSE}, {"debug", ANDROID_LOG_DEBUG},
    {"info", ANDROID_LOG_INFO},       {"api", ANDROID_LOG_INFO},  // both go out at this priority
    {"error", ANDROID_LOG_ERROR},     {"fatal", ANDROID_LOG_FATAL},
};

}  // namespace

void addLogOption(CLI::App& app, std::string& level) {
    std::vector<std::string> names;
    for (const auto& known : kLevels) {
        names.emplace_back(known.name);
    }
    app.add_option("--log", level,
                   "Show the library's own lines from this level on; passwords are in the clear")
        ->check(CLI::IsMember(names))
        ->type_name("LEVEL");
}

bool setLibraryLog(const std::string& name) {
    if (name.empty()) {
        __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
        return true;
    }
    for (const auto& level : kLevels) {
        if (name == level.name) {
            __android_log_set_minimum_priority(level.priority);
            return true;
        }
    }
    return false;
}

}  // namespace zemctl
