// DiagWriter: log lines to the modem vendor's diagnostic channel, which is open while the writer
// lives. Any thread.
#pragma once

#include "LogWrapper.h"

namespace zem {

class DiagWriter : public LogWriter {
  public:
    DiagWriter();
    ~DiagWriter() override;
    DiagWriter(const DiagWriter&) = delete;
    DiagWriter& operator=(const DiagWriter&) = delete;

    // All lines of the process go out under the mask of the very first one.
    void write(LogLevel level, std::string tag, std::string message) override;
    int convertPrio(LogLevel level) override;
};

}  // namespace zem
