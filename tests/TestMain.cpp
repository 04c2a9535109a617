// Runs the tests of a program, and counts descriptors, threads and the modem's handles around each:
// a test that leaves more of them than it found has failed. The engine of the process-wide Manager
// is no leak: it stays from the first test on that starts it.

#include <gmock/gmock.h>
#include <softmodem/SoftModem.h>

#include "Census.h"

namespace {

using zem::Census;

class Warden : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override { before = Census::take(); }

    void OnTestEnd(const testing::TestInfo&) override {
        const Census after = Census::settled(before);
        const Census withEngine = {before.descriptors + 6, before.threads + 1, before.handles + 1};
        if (!managerHasEngine && after == withEngine) {
            managerHasEngine = true;
        } else {
            EXPECT_EQ(after, before) << "left by the test";
        }
    }

    Census before = {};
    bool managerHasEngine = false;
};

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    softmodem::SoftModem::instance();  // whose thread stays
    testing::UnitTest::GetInstance()->listeners().Append(new Warden);
    return RUN_ALL_TESTS();
}
