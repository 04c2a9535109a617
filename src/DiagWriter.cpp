#include "DiagWriter.h"

#include "diag_channel.h"

namespace zem {
namespace {

constexpr int kMaskLow = 1;
constexpr int kMaskHigh = 4;
constexpr int kMaskFatal = 16;
constexpr int kAnyMask = 0x1F;

}  // namespace

DiagWriter::DiagWriter() {
    diag_open(0);
}

DiagWriter::~DiagWriter() {
    diag_close();
}

void DiagWriter::write(LogLevel level, std::string tag, std::string message) {
    const int mask = convertPrio(level);
    if ((mask & kAnyMask) == 0) return;
    // The channel's viewers know the library's lines by this one descriptor.
    static const diag_message descriptor = {116, 63, static_cast<unsigned>(mask), "|%s| %s",
                                            "src/LocalLogBuffer"};
    diag_emit(&descriptor, tag.c_str(), message.c_str());
}

int DiagWriter::convertPrio(LogLevel level) {
    switch (level) {
        case LOG_ERROR:
        case LOG_API:
            return kMaskHigh;
        case LOG_FATAL:
            return kMaskFatal;
        default:
            return kMaskLow;
    }
}

}  // namespace zem
