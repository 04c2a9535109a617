// The facade that callers hold: what it logs, and what it answers before its beginning.

#include <gmock/gmock.h>
#include <zem/Manager.h>

#include <cctype>
#include <future>

#include "TestPhone.h"

namespace zem {
namespace {

class ManagerTest : public ManagedPhoneTest {};

TEST_F(ManagerTest, EveryOperationFailsBeforeInit) {
    Manager fresh;
    log.clear();
    EXPECT_EQ(fresh.addProfile(transient("a")), nullptr);
    EXPECT_FALSE(fresh.modifyProfile({}, nullptr));
    EXPECT_FALSE(fresh.deleteProfile(nullptr));
    EXPECT_TRUE(fresh.filter({}).empty());
    EXPECT_FALSE(fresh.getProfile(nullptr));
    EXPECT_FALSE(fresh.match({}, nullptr));
    fresh.refresh(START);
    EXPECT_EQ(log.count(LOG_ERROR, "Manager not initialized!"), 7u);
    const auto lines = fresh.dump();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[0], "");
    EXPECT_EQ(lines[1], "Logs:");
    EXPECT_NE(lines.back().find("[ZEM]Manager not initialized!"), std::string::npos);
}

TEST_F(ManagerTest, OperationThatGetsNoAnswerSaysSoAndFails) {
    init();
    auto key = manager.addProfile(transient("a"));
    std::promise<bool> asked;
    key->registerExpirationListener([&] {  // on the engine's thread, where no call is answered
        recorder->clear();
        const bool failed = !manager.addProfile(transient("b")) &&
                            !manager.modifyProfile({}, key) && !manager.deleteProfile(key) &&
                            manager.filter({}).empty() && !manager.getProfile(key) &&
                            !manager.match({}, key);
        manager.refresh(COMPLETE);
        asked.set_value(failed);
    });
    modem.deleteProfile(Tech::k3gpp, static_cast<unsigned>(key->getProfileId()));
    EXPECT_TRUE(asked.get_future().get());
    settle();
    const char* const operations[] = {"addProfile", "modifyProfile", "deleteProfile", "filter",
                                      "getProfile", "match",         "refresh"};
    for (const std::string operation : operations) {
        std::string response = operation.substr(0, operation.find("Profile")) + "Response";
        response[0] = static_cast<char>(toupper(response[0]));
        EXPECT_EQ(recorder->count(LOG_API, "Manager::" + operation + " < "), 1u) << operation;
        EXPECT_EQ(
            recorder->count(LOG_ERROR, operation == "getProfile" ? "Error in getProfile"
                                                                 : "Unable to cast to " + response),
            1u)
            << operation;
    }
    EXPECT_EQ(recorder->countContaining("ZEM refresh"), 0u);
    const auto lines = recorder->lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const Line& line) { return line.level == LOG_ERROR; }),
              7);
}

TEST_F(ManagerTest, OperationsLogTheirQuestionAndAnswer) {
    init();
    auto key = manager.addProfile(transient("Net"));
    ASSERT_NE(key, nullptr);
    const std::string id = key->dump();
    settle();
    recorder->clear();
    manager.modifyProfile(ModifyProfileParams(named("web")), key);
    manager.match(FilterProfileParams(named("WEB")), key);
    manager.getProfile(key);
    manager.filter({});
    manager.refresh(START);
    manager.deleteProfile(key);
    manager.refresh(COMPLETE);
    std::vector<std::string> lines;
    for (const auto& line : recorder->lines()) {
        const bool progress = line.level == LOG_INFO && line.text.rfind("ZEM refresh", 0) == 0;
        if (line.level == LOG_API && line.text.rfind("Manager::", 0) == 0)
            lines.push_back(line.text.substr(9));
        if (progress) lines.push_back(line.text);
    }
    EXPECT_EQ(lines,
              (std::vector<std::string>{
                  "modifyProfile > Modify " + id + " ApnName=web,",
                  "modifyProfile < Modify Success",
                  "match > Match " + id + " None: ApnName=WEB,",
                  "match < Match Success true",
                  "getProfile > Get " + id,
                  "getProfile < Get Success ApnName=web,IsZemProfile=true,IsIAProfile=false,",
                  "filter > Filter params: None: ",
                  "filter < Filter Success " + id + ",",
                  "refresh > Refresh ",
                  "refresh < Refresh Success",
                  "ZEM refresh started",
                  "deleteProfile > Delete " + id,
                  "deleteProfile < Delete Failure",
                  "refresh > Refresh ",
                  "refresh < Refresh Success",
                  "ZEM refresh completed",
              }));
}

TEST_F(ManagerTest, SecondInitTakesOverAndChangesTheWriter) {
    for (int i = 0; i < 2; ++i) manager.init(0, false);
    EXPECT_TRUE(modem.counters().diagOpen);
    std::string engines;
    for (const auto& line : modem.diagLines()) {
        if (line.text.find("ClientRequestManager: ") != std::string::npos) engines += line.text;
    }
    EXPECT_THAT(engines, testing::EndsWith("ClientRequestManager: constructor"
                                           "|ZEM| zem::ClientRequestManager: destructor"));
    manager.init(1, true);
    EXPECT_FALSE(modem.counters().diagOpen);
    waitForIndications();
    const auto key = manager.addProfile(transient("a"));
    EXPECT_EQ(modem.profiles(1).size(), 1u);
}

}  // namespace
}  // namespace zem
