// Census: what a process holds that a test may leave behind.
#pragma once

#include <softmodem/SoftModem.h>

#include <chrono>
#include <filesystem>
#include <ostream>
#include <thread>

namespace zem {

struct Census {
    size_t descriptors, threads;
    unsigned handles;

    static Census take() {
        const auto modem = softmodem::SoftModem::instance().counters();
        return {entriesOf("/proc/self/fd"), entriesOf("/proc/self/task"),
                modem.openClients + modem.openNotifiers};
    }

    // Taken again for a while until it is as expected: a thread that has been joined may still be
    // in the list for a moment.
    static Census settled(const Census& expected) {
        Census now = take();
        for (int tries = 0; !(now == expected) && tries < 200; ++tries) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            now = take();
        }
        return now;
    }

    friend bool operator==(const Census& a, const Census& b) {
        return a.descriptors == b.descriptors && a.threads == b.threads && a.handles == b.handles;
    }
    friend std::ostream& operator<<(std::ostream& out, const Census& census) {
        return out << census.descriptors << " descriptors, " << census.threads << " threads, "
                   << census.handles << " handles of the modem";
    }

  private:
    static size_t entriesOf(const char* folder) {
        const std::filesystem::directory_iterator entries(folder);
        return static_cast<size_t>(std::distance(begin(entries), end(entries)));
    }
};

}  // namespace zem
