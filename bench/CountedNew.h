// CountedNew: the program's operator new, which counts what it is asked for, on whatever thread.
#pragma once

#include <atomic>

namespace zem {

extern std::atomic<long> allocations, allocatedBytes;

}  // namespace zem
