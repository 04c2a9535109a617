// TestPhone: what the engine's tests stand on: the software modem, a record of the log, and an
// engine that can be brought to rest.
#pragma once

#include <gtest/gtest.h>
#include <softmodem/SoftModem.h>
#include <zem/Manager.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "ClientRequestManager.h"
#include "LocalLogBuffer.h"
#include "ProfileCache.h"
#include "SteppedLoop.h"
#include "TestLog.h"

namespace zem {

using softmodem::Fault;
using softmodem::FaultKind;
using softmodem::SoftModem;
using softmodem::Tech;

// Brings modem and engine to rest: until passes of the engine, each of which is to handle one event
// of its own, handle no other. Two at a time, because the first may overtake an event that is
// reported together with its own.
template <class CountHandled, class Pass>
void bringToRest(SoftModem& modem, const CountHandled& handled, const Pass& pass) {
    bool atRest = false;
    for (int tries = 0; !atRest; ++tries) {
        ASSERT_LT(tries, 100000);
        const size_t before = handled();
        for (int i = 0; i < 2; ++i) pass();  // what was being handled is now done with
        ASSERT_TRUE(modem.waitUntilIdle());
        for (int i = 0; i < 2; ++i) pass();
        atRest = handled() == before + 4;
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

// A phone with the manager of the process in it.
class ManagedPhoneTest : public PhoneTest {
  protected:
    ~ManagedPhoneTest() override {
        modem.setRequestHook(nullptr);
        modem.clearFaults();
        modem.comeUp();
        modem.reset();
    }

    void init() {
        manager.init(0, true);
        recorder.reset();  // its end would take the next one's writer along
        recorder = std::make_unique<RecordedLog>();
        settle();
    }

    void settle() {
        PhoneTest::settle(*recorder, [this] { manager.getProfile(nullptr); });
    }

    // For a phone without a record: until all indications of the modem so far have been handled.
    void waitForIndications() {
        ASSERT_TRUE(modem.waitUntilIdle(std::chrono::minutes(2)));
        const auto handled = [](const std::string& line) {
            return line.find("onIndication") != std::string::npos;
        };
        std::vector<std::string> kept;
        do {
            LocalLogBuffer::getInstance().flush();
            // The first may be answered before the indications that came with it.
            for (int pass = 0; pass < 2; ++pass) manager.getProfile(nullptr);
            kept = LocalLogBuffer::getInstance().getLogs();
        } while (std::any_of(kept.begin(), kept.end(), handled));
    }

    // What the cache holds: each profile's line without its token, by names like "3GPP:1", and
    // "null" as often as there are entries that could not be read.
    std::multimap<std::string, std::string> cached() {
        std::multimap<std::string, std::string> profiles;
        for (const auto& line : section("Cache:")) {
            const auto text = line.substr(line.find(": ") + 2);
            std::smatch id;
            const bool read =
                std::regex_search(text, id, std::regex("TechType=(.*?),ProfileId=(.*?),"));
            profiles.emplace(read ? id[1].str() + ":" + id[2].str() : "null", text);
        }
        return profiles;
    }
    std::vector<std::string> pending() { return section("Pending:"); }

    // The same of the modem: its profiles' fields.
    std::multimap<std::string, std::string> stored() const {
        std::multimap<std::string, std::string> profiles;
        for (const auto& profile : modem.profiles()) {
            auto& text = profiles.emplace(nameOf(profile.tech, profile.index), "")->second;
            for (const auto& field : describe(profile)) text += field + ",";
        }
        return profiles;
    }

    static std::string nameOf(Tech tech, unsigned index) {
        return (tech == Tech::k3gpp ? "3GPP:" : "3GPP2:") + std::to_string(index);
    }
    static std::string nameOf(const std::shared_ptr<IProfileKey>& key) {
        return key ? key->dump().substr(0, key->dump().find(' ')) : "none";
    }

    Manager& manager = Manager::getInstance();
    std::unique_ptr<RecordedLog> recorder;

  private:
    // The lines of the dump that stand indented under a title.
    std::vector<std::string> section(std::string_view title) {
        std::vector<std::string> lines;
        bool inside = false;
        for (const auto& line : manager.dump()) {
            if (line.rfind("  ", 0) != 0) {
                inside = line == title;
            } else if (inside) {
                lines.push_back(line.substr(2));
            }
        }
        return lines;
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
