// AdbWriter: log lines to the Android log. Any thread.
#pragma once

#include "LogWrapper.h"

namespace zem {

class AdbWriter : public LogWriter {
  public:
    void write(LogLevel level, std::string tag, std::string message) override;
    int convertPrio(LogLevel level) override;
};

}  // namespace zem
