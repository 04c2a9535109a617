#include "Variadic.h"

#include <cstdarg>
#include <cstdio>

namespace zem {

void doNothing(int, const char*, const char*, ...) {}

int formatInto(char* text, size_t size, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(text, size, format, args);
    va_end(args);
    return length;
}

}  // namespace zem
