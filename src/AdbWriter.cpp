#include "AdbWriter.h"

#include <android/log.h>

namespace zem {

void AdbWriter::write(LogLevel level, std::string tag, std::string message) {
    __android_log_print(convertPrio(level), tag.c_str(), "%s", message.c_str());
}

int AdbWriter::convertPrio(LogLevel level) {
    switch (level) {
        case LOG_VERBOSE:
            return ANDROID_LOG_VERBOSE;
        case LOG_DEBUG:
            return ANDROID_LOG_DEBUG;
        case LOG_ERROR:
            return ANDROID_LOG_ERROR;
        case LOG_FATAL:
            return ANDROID_LOG_FATAL;
        case LOG_INFO:
        case LOG_API:
            break;
    }
    return ANDROID_LOG_INFO;
}

}  // namespace zem
