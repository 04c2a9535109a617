// What an engine takes of memory, beside the software modem: one line "NAME BYTES" for each figure.
// A machine without /proc/self/smaps_rollup, such as an emulated one, has no resident figures.
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include "Phone.h"

namespace {

struct Memory {
    long heap;
    long resident;
};

// Sum of the Private_Dirty lines, which are in KiB.
long privateBytes(const char* path) {
    std::ifstream file(path);
    long sum = 0;
    for (std::string word; file >> word;) {
        long kibibytes = 0;
        if (word == "Private_Dirty:" && file >> kibibytes) sum += kibibytes * 1024;
    }
    return sum;
}

// Freed memory is given back first, so that what is resident is in use.
Memory taken() {
    malloc_trim(0);
    const struct mallinfo2 heap = mallinfo2();
    return {static_cast<long>(heap.uordblks + heap.hblkhd),
            privateBytes("/proc/self/smaps_rollup")};
}

// With an engine that has read count profiles of each technology, less what stays when it is gone.
// The modem forgets its stores and logs before each look, and the engine keeps what it has read.
Memory ofEngine(size_t count) {
    Memory memory{};
    // What is made once for the process is there in the second round.
    for (int round = 0; round < 2; ++round) {
        auto phone = std::make_unique<zem::Phone>(count);
        softmodem::SoftModem& modem = phone->modem;
        modem.reset();
        memory = taken();
        if (phone->manager.filter({}).size() != 2 * count) abort();
        phone.reset();
        modem.reset();
        const Memory without = taken();
        memory.heap -= without.heap;
        memory.resident -= without.resident;
    }
    return memory;
}

}  // namespace

int main() {
    const Memory empty = ofEngine(0), full = ofEngine(zem::kFull);
    printf("heap-empty %ld\nheap-full %ld\n", empty.heap, full.heap);
    if (privateBytes("/proc/self/smaps_rollup")) {
        printf("resident-empty %ld\nresident-full %ld\n", empty.resident, full.resident);
    }
}
