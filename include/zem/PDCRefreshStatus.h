// PDCRefreshStatus: the two ends of a modem configuration refresh.
#pragma once

#include <cstdint>

namespace zem {

// Any non-zero value counts as COMPLETE.
enum PDCRefreshStatus : uint8_t {
    START = 0,     // the modem has begun to change its profiles
    COMPLETE = 1,  // it has ended; the profiles may be read again
};

}  // namespace zem
