#include "CountedNew.h"

#include <cstdlib>
#include <new>

namespace zem {

std::atomic<long> allocations{0}, allocatedBytes{0};

}  // namespace zem

// In a unit of their own, as a compiler that sees into one but not into the other takes them for a
// mismatch.
void* operator new(size_t size) {
    ++zem::allocations;
    zem::allocatedBytes += static_cast<long>(size);
    if (void* memory = malloc(size)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    free(memory);
}
void operator delete(void* memory, size_t) noexcept {
    free(memory);
}
