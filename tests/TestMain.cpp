// Runs the tests of a program, and counts descriptors, threads and the modem's handles around each:
// a test that leaves more of them than it found has failed. The engine of the process-wide Manager
// is no leak: it stays from the first test on that starts it.

#include <gmock/gmock.h>
#include <softmodem/SoftModem.h>

#include <chrono>
#include <filesystem>
#include <ostream>
#include <thread>

namespace {

struct Count {
    size_t descriptors, threads;
    unsigned handles;

    friend bool operator==(const Count& a, const Count& b) {
        return a.descriptors == b.descriptors && a.threads == b.threads && a.handles == b.handles;
    }
    friend std::ostream& operator<<(std::ostream& out, const Count& count) {
        return out << count.descriptors << " descriptors, " << count.threads << " threads, "
                   << count.handles << " handles of the modem";
    }
};

size_t entriesOf(const char* folder) {
    const std::filesystem::directory_iterator entries(folder);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

Count count() {
    const auto modem = softmodem::SoftModem::instance().counters();
    return {entriesOf("/proc/self/fd"), entriesOf("/proc/self/task"),
            modem.openClients + modem.openNotifiers};
}

class Census : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override { before = count(); }

    void OnTestEnd(const testing::TestInfo&) override {
        // A thread that has been joined may still stand in the list for a moment.
        Count after = count();
        for (int tries = 0; !(after == before) && tries < 200; ++tries) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            after = count();
        }
        const Count withEngine = {before.descriptors + 6, before.threads + 1, before.handles + 1};
        if (!managerHasEngine && after == withEngine) {
            managerHasEngine = true;
        } else {
            EXPECT_EQ(after, before) << "left by the test";
        }
    }

    Count before = {};
    bool managerHasEngine = false;
};

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    softmodem::SoftModem::instance();  // whose thread stays
    testing::UnitTest::GetInstance()->listeners().Append(new Census);
    return RUN_ALL_TESTS();
}
