// TestPhone: what the engine's tests stand on: the software modem, a record of the log, and an
// engine that can be brought to rest.
#pragma once

#include <gtest/gtest.h>
#include <softmodem/SoftModem.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ClientRequestManager.h"
#include "ProfileCache.h"
#include "SteppedLoop.h"
#include "TestLog.h"

namespace zem {

using softmodem::Fault;
using softmodem::FaultKind;
using softmodem::SoftModem;
using softmodem::Tech;

// Brings modem and engine to rest: until two passes of the engine, each of which is to handle one
// event of its own, handle no other. Two, because the first may overtake an event that is reported
// together with its own.
template <class CountHandled, class Pass>
void bringToRest(SoftModem& modem, const CountHandled& handled, const Pass& pass) {
    const auto passTwice = [&pass] {
        pass();
        pass();
    };
    passTwice();  // what was being handled is now done with
    bool atRest = false;
    for (int tries = 0; !atRest; ++tries) {
        ASSERT_LT(tries, 100000);
        const size_t before = handled();
        ASSERT_TRUE(modem.waitUntilIdle());
        passTwice();
        atRest = handled() == before + 2;
    }
}

// A modem at the beginning for each test.
class PhoneTest : public testing::Test {
  protected:
    PhoneTest() : modem(SoftModem::instance()) {
        modem.reset();
        modem.clearRequests();
        modem.setHurry(true);
    }

    // The bytes of each request of that id, oldest first.
    std::vector<std::vector<uint8_t>> sent(unsigned messageId) const {
        std::vector<std::vector<uint8_t>> found;
        for (const auto& request : modem.requests()) {
            if (request.messageId == messageId) found.push_back(request.bytes);
        }
        return found;
    }

    void settle(const RecordedLog& lines, const std::function<void()>& pass) const {
        bringToRest(
            modem, [&lines] { return lines.countContaining("is processing events"); }, pass);
    }

    SoftModem& modem;
    RecordedLog log;
};

// The same, and no handle left open at the end.
class ModemTest : public PhoneTest {
  protected:
    ~ModemTest() override {
        EXPECT_TRUE(modem.waitUntilIdle());
        const auto counters = modem.counters();
        EXPECT_EQ(counters.openClients, 0u);
        EXPECT_EQ(counters.openNotifiers, 0u);
    }
};

inline ProfileParams named(const std::string& name) {
    ProfileParams params;
    params.setApnName(name);
    return params;
}

inline AddProfileParams transient(const std::string& name, TechType tech = TechType::TECH_3GPP) {
    return {named(name), false, tech, false};
}

}  // namespace zem
