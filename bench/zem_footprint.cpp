// What an engine takes of memory, beside the software modem: one line "NAME NUMBER" for each
// figure, sizes in bytes, and what an operation allocates. A machine without
// /proc/self/smaps_rollup, such as an emulated one, has no resident figures.
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include "CountedNew.h"
#include "DirectModem.h"
#include "LocalLogBuffer.h"
#include "LoggedText.h"
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

// Freed memory is given back first, so that what is resident is in use. The kept log lines are the
// process's and not an engine's.
Memory taken() {
    zem::LocalLogBuffer::getInstance().flush();
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
        auto phone = std::make_unique<zem::Phone>(zem::Stock{count, count});
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

// By all threads, as an operation is shared out among several.
struct Allocated {
    double number = 0;
    double bytes = 0;

    static Allocated soFar() {
        return {static_cast<double>(zem::allocations), static_cast<double>(zem::allocatedBytes)};
    }

    Allocated& operator+=(const Allocated& other) {
        number += other.number;
        bytes += other.bytes;
        return *this;
    }
    Allocated operator-(const Allocated& other) const {
        return {number - other.number, bytes - other.bytes};
    }
    Allocated operator/(double parts) const { return {number / parts, bytes / parts}; }
};

template <class Step>
Allocated allocatedBy(const Step& step) {
    const Allocated before = Allocated::soFar();
    step();
    return Allocated::soFar() - before;
}

constexpr int kTimes = 1000;
constexpr int kWarmUp = 250;  // until the kept log lines, and whatever grows, are what they stay

// On average.
template <class Step>
Allocated allocatedByEach(const Step& step, int times = kTimes) {
    for (int i = 0; i < std::min(times, kWarmUp); ++i) step();
    return allocatedBy([&] {
               for (int i = 0; i < times; ++i) step();
           }) /
           times;
}

struct Changes {
    Allocated add, modify, remove;
};

// When settle returns, no thread has anything left to do.
template <class Client, class Settle>
Changes allocatedByChanges(const Settle& settle) {
    Client client({1, 1});
    const auto settled = [&](const auto& step) {
        return allocatedBy([&] {
            step();
            settle(client);
        });
    };
    Changes sum;
    for (int i = -kWarmUp; i < kTimes; ++i) {
        if (i == 0) sum = {};
        auto added = client.add();
        settle(client);
        sum.modify += settled([&] { client.changeUserName(added); });
        sum.remove += settled([&] { client.remove(added); });
        added = {};
        sum.add += settled([&] { added = client.add(); });
        client.remove(added);
    }
    const Allocated settling = allocatedByEach([&] { settle(client); });
    return {sum.add / kTimes - settling, sum.modify / kTimes - settling,
            sum.remove / kTimes - settling};
}

void print(const char* name, const Allocated& figures) {
    printf("%s-allocations %.1f\n%s-bytes %.0f\n", name, figures.number, name, figures.bytes);
}

void printRequests() {
    zem::Phone phone({zem::kFull, 0});
    zem::Manager& manager = phone.manager;
    zem::FilterProfileParams filter;
    filter.setApnName(zem::apnNameOf(0));
    const auto key = manager.filter(filter).front();
    print("match", allocatedByEach([&] { manager.match(filter, key); }));
    print("get", allocatedByEach([&] { manager.getProfile(key); }));
    filter.setApnName(zem::apnNameOf(zem::kFull));
    const Allocated withoutHit = allocatedByEach([&] { manager.filter(filter); });
    print("filter-without-hit", withoutHit);
    const Allocated all = allocatedByEach([&] { manager.filter({}); }, 10);
    print("filter-each-hit-and-its-end", (all - withoutHit) / zem::kFull);
}

// What the modem allocates for the same requests is not the library's.
void printModemRequests() {
    const auto phone = allocatedByChanges<zem::Phone>([](zem::Phone& settled) {
        settled.modem.waitUntilIdle();
        settled.manager.getProfile(nullptr);  // answered after all that came before
    });
    const auto modem = allocatedByChanges<zem::DirectModem>(
        [](zem::DirectModem&) { softmodem::SoftModem::instance().waitUntilIdle(); });
    print("add", phone.add - modem.add);
    print("modify", phone.modify - modem.modify);
    print("remove", phone.remove - modem.remove);
}

void printRefresh() {
    constexpr int kRefreshes = 10;
    const zem::Stock stock{zem::kFull, zem::kFull};
    Allocated library, modem;
    {
        zem::Phone phone(stock);
        library = allocatedByEach([&] { phone.manager.refresh(zem::COMPLETE); }, kRefreshes);
    }
    {
        zem::DirectModem direct(stock);
        modem = allocatedByEach([&] { direct.readAll(); }, kRefreshes);
    }
    print("refresh-each-profile", (library - modem) / static_cast<double>(stock.all()));
}

void printLogLines() {
    zem::LogWrapper& log = zem::LogWrapper::getInstance();
    const auto logged = [&](zem::LogLevel level) {
        return allocatedByEach(
            [&] { log.log(level, zem::kLogTag, "Manager::match > %s", zem::kLoggedText); });
    };
    zem::CountingWriter::install();
    print("line-kept", logged(zem::LOG_API));
    log.setLogWriter(nullptr);
    print("line-not-kept", logged(zem::LOG_DEBUG));
}

}  // namespace

int main() {
    const Memory empty = ofEngine(0), full = ofEngine(zem::kFull);
    printf("heap-empty %ld\nheap-full %ld\n", empty.heap, full.heap);
    if (privateBytes("/proc/self/smaps_rollup")) {
        printf("resident-empty %ld\nresident-full %ld\n", empty.resident, full.resident);
    }
    printRequests();
    printModemRequests();
    printRefresh();
    printLogLines();
}
