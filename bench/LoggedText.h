// LoggedText: what each benchmark of a log line logs, and in which time zone.
#pragma once

#include <cstdlib>
#include <ctime>

namespace zem {

inline constexpr char kLoggedText[] =
    "MATCH None: ApnName=internet,UserName=me, 3GPP:1 token=12345";

// A process without the variable has its zone by a file, which is looked at again and again.
inline void setTimeZone(const char* zone) {
    if (zone) {
        setenv("TZ", zone, 1);
    } else {
        unsetenv("TZ");
    }
    tzset();
}

}  // namespace zem
