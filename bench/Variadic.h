// Functions called as the log's own, in a unit of their own: no compiler sees from a call what they
// do.
#pragma once

#include <cstddef>

namespace zem {

void doNothing(int level, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// As vsnprintf.
int formatInto(char* text, size_t size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace zem
