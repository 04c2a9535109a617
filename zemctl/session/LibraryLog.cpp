#include "session/LibraryLog.h"

#include <unistd.h>

#include <cerrno>

#include <android/log.h>

#include "output/Secrets.h"
#include "output/Text.h"

namespace zemctl {

namespace {

constexpr struct {
    const char* name;
    int priority;
    char letter;
} kLevels[] = {
    {"verbose", ANDROID_LOG_VERBOSE, 'V'}, {"debug", ANDROID_LOG_DEBUG, 'D'},
    {"info", ANDROID_LOG_INFO, 'I'},       {"error", ANDROID_LOG_ERROR, 'E'},
    {"fatal", ANDROID_LOG_FATAL, 'F'},
};

// On the thread that logs: one write for each line, so that lines of two threads do not mix.
void writeLine(int priority, const char* tag, const char* text) {
    char letter = '?';
    for (const auto& level : kLevels) {
        if (level.priority == priority) {
            letter = level.letter;
        }
    }
    const std::string line = timeOfDay() + ' ' + letter + ' ' + (tag ? tag : "") + ": " +
                             printable(withoutSecrets(text ? text : "")) + '\n';
    for (size_t done = 0; done < line.size();) {
        const ssize_t put = write(STDERR_FILENO, line.data() + done, line.size() - done);
        if (put < 0 && errno != EINTR) {
            return;  // nobody reads
        }
        done += put < 0 ? 0 : static_cast<size_t>(put);
    }
}

}  // namespace

std::vector<std::string> libraryLogLevels() {
    std::vector<std::string> names;
    for (const auto& level : kLevels) {
        names.emplace_back(level.name);
    }
    return names;
}

void setLibraryLog(const std::string& name) {
    for (const auto& level : kLevels) {
        if (name == level.name) {
            __android_log_set_minimum_priority(level.priority);
#ifdef __ANDROID__
            __android_log_set_logger([](const __android_log_message* message) {
                writeLine(message->priority, message->tag, message->message);
            });
#else  // of an earlier release
            __android_log_set_logger([](const __android_logger_data* data, const char* text) {
                writeLine(data->priority, data->tag, text);
            });
#endif
            return;
        }
    }
#ifndef __ANDROID__  // where the lines go to the system's log, as any process's do
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
#endif
}

}  // namespace zemctl
