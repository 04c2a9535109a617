#include "LibraryLog.h"

#include <android/log.h>

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

std::vector<std::string> logLevelNames() {
    std::vector<std::string> names;
    for (const auto& level : kLevels) {
        names.emplace_back(level.name);
    }
    return names;
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
