// Threads meet at atomics as well: in the log wrapper, and at the flag that ends an engine. For
// this program these units are compiled as for the thread sanitizer, which calls a function for
// each access: those to the atomics are points, those to reference counts and to plain memory
// nothing. Orders are not modelled: an access sees the latest value.

#include <cstddef>
#include <cstdint>

#include "Interposed.h"
#include "Scheduler.h"

namespace zem::schedules {
namespace {

// A flag has one byte; all others are the log's.
void reachAtomic(size_t size) {
    if (controlled() && (size == 1 || !passesOverLog())) reach("an atomic");
}

}  // namespace
}  // namespace zem::schedules

// NOLINTBEGIN(bugprone-reserved-identifier): the compiler's names
#define ZEM_ATOMIC(bits, Value)                                                 \
    Value __tsan_atomic##bits##_load(const volatile Value* place, int) {        \
        zem::schedules::reachAtomic(sizeof *place);                             \
        return __atomic_load_n(place, __ATOMIC_SEQ_CST);                        \
    }                                                                           \
    void __tsan_atomic##bits##_store(volatile Value* place, Value value, int) { \
        zem::schedules::reachAtomic(sizeof *place);                             \
        __atomic_store_n(place, value, __ATOMIC_SEQ_CST);                       \
    }                                                                           \
    ZEM_ATOMIC_CHANGE(bits, Value, exchange, exchange_n)                        \
    ZEM_ATOMIC_CHANGE(bits, Value, fetch_add, fetch_add)                        \
    ZEM_ATOMIC_CHANGE(bits, Value, fetch_sub, fetch_sub)
#define ZEM_ATOMIC_CHANGE(bits, Value, name, builtin)                             \
    Value __tsan_atomic##bits##_##name(volatile Value* place, Value value, int) { \
        zem::schedules::reachAtomic(sizeof *place);                               \
        return __atomic_##builtin(place, value, __ATOMIC_SEQ_CST);                \
    }
#define ZEM_PLAIN(name) \
    void __tsan_##name(void*) {}

extern "C" {
ZEM_ATOMIC(8, uint8_t)
ZEM_ATOMIC(32, uint32_t)
ZEM_ATOMIC(64, uint64_t)

void __tsan_init() {}
void __tsan_func_exit() {}
ZEM_PLAIN(func_entry)
ZEM_PLAIN(read1)
ZEM_PLAIN(read2)
ZEM_PLAIN(read4)
ZEM_PLAIN(read8)
ZEM_PLAIN(read16)
ZEM_PLAIN(write1)
ZEM_PLAIN(write2)
ZEM_PLAIN(write4)
ZEM_PLAIN(write8)
ZEM_PLAIN(write16)
ZEM_PLAIN(vptr_read)
void __tsan_vptr_update(void**, void*) {}
void __tsan_read_range(void*, size_t) {}
void __tsan_write_range(void*, size_t) {}
}
// NOLINTEND(bugprone-reserved-identifier)
