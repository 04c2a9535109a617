// The facade that callers hold, from end to end, and the process's exit with keys still held.

#include <zem/Manager.h>

#include <gmock/gmock.h>

#include <cctype>
#include <cstdlib>
#include <future>

#include "LocalLogBuffer.h"
#include "TestPhone.h"

namespace zem {
namespace {

class ManagerTest : public PhoneTest {
  protected:
    void init(int instance = 0) {
        manager.init(instance, true);
        recorder = std::make_unique<RecordedLog>();  // init installed a writer of its own
        settle();
        recorder->clear();
    }
    ~ManagerTest() override {
        modem.clearFaults();
        modem.comeUp();
    }

    void settle() {
        PhoneTest::settle(*recorder, [this] { manager.getProfile(nullptr); });
    }

    Manager manager;
    std::unique_ptr<RecordedLog> recorder;
};

std::vector<std::string> apiLines(const RecordedLog& log) {
    std::vector<std::string> texts;
    for (const auto& line : log.lines()) {
        if (line.text.rfind("Manager::", 0) == 0) texts.push_back(line.text);
    }
    return texts;
}

TEST_F(ManagerTest, EveryOperationFailsBeforeInit) {
    log.clear();
    EXPECT_EQ(manager.addProfile(transient("a")), nullptr);
    EXPECT_FALSE(manager.modifyProfile({}, nullptr));
    EXPECT_FALSE(manager.deleteProfile(nullptr));
    EXPECT_TRUE(manager.filter({}).empty());
    EXPECT_FALSE(manager.getProfile(nullptr));
    EXPECT_FALSE(manager.match({}, nullptr));
    manager.refresh(START);
    EXPECT_EQ(log.lines(), (std::vector<Line>(7, {LOG_ERROR, "Manager not initialized!"})));
    const auto lines = manager.dump();
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
}

TEST_F(ManagerTest, OperationsLogTheirQuestionAndAnswer) {
    init();
    auto key = manager.addProfile(transient("Net"));
    ASSERT_NE(key, nullptr);
    const std::string id = key->dump();
    settle();
    recorder->clear();
    EXPECT_TRUE(manager.modifyProfile(ModifyProfileParams(named("web")), key));
    EXPECT_TRUE(manager.match(FilterProfileParams(named("WEB")), key));
    EXPECT_EQ(manager.getProfile(key)->getApnName(), "web");
    EXPECT_EQ(manager.filter({}).size(), 1u);
    manager.refresh(START);
    EXPECT_FALSE(manager.deleteProfile(key));
    manager.refresh(COMPLETE);
    EXPECT_FALSE(manager.deleteProfile(key));
    EXPECT_EQ(
        apiLines(*recorder),
        (std::vector<std::string>{
            "Manager::modifyProfile > Modify " + id + " ApnName=web,",
            "Manager::modifyProfile < Modify Success",
            "Manager::match > Match " + id + " None: ApnName=WEB,",
            "Manager::match < Match Success true",
            "Manager::getProfile > Get " + id,
            "Manager::getProfile < Get Success ApnName=web,IsZemProfile=true,IsIAProfile=false,",
            "Manager::filter > Filter params: None: ",
            "Manager::filter < Filter Success " + id + ",",
            "Manager::refresh > Refresh ",
            "Manager::refresh < Refresh Success",
            "Manager::deleteProfile > Delete " + id,
            "Manager::deleteProfile < Delete Failure",
            "Manager::refresh > Refresh ",
            "Manager::refresh < Refresh Success",
            "Manager::deleteProfile > Delete " + id,
            "Manager::deleteProfile < Delete Failure",
        }));
    std::vector<std::string> refreshes;
    for (const auto& line : recorder->lines()) {
        if (line.level == LOG_INFO && line.text.find("ZEM") == 0) refreshes.push_back(line.text);
    }
    EXPECT_EQ(refreshes,
              (std::vector<std::string>{"ZEM refresh started", "ZEM refresh completed"}));
}

TEST_F(ManagerTest, LastKeyMayBeMovedIntoACall) {
    init();
    EXPECT_TRUE(manager.deleteProfile(manager.addProfile(transient("a"))));
    EXPECT_TRUE(
        manager.modifyProfile(ModifyProfileParams(named("b")), manager.addProfile(transient("a"))));
    manager.addProfile(transient("a"));
    settle();
    EXPECT_EQ(modem.profiles().size(), 0u);
}

TEST_F(ManagerTest, EveryOperationGivesItsFailureValueWhileTheModemIsDown) {
    init();
    auto key = manager.addProfile({named("a"), true, TechType::TECH_3GPP, false});
    modem.goDown();
    EXPECT_EQ(manager.addProfile(transient("b")), nullptr);
    EXPECT_TRUE(manager.modifyProfile(ModifyProfileParams(named("b")), key));
    EXPECT_FALSE(manager.deleteProfile(key));
    EXPECT_EQ(manager.getProfile(key)->getApnName(), "a");
    manager.refresh(COMPLETE);
    EXPECT_TRUE(manager.filter({}).empty());
    modem.comeUp();
    settle();
    EXPECT_EQ(manager.filter({}).size(), 1u);
}

TEST_F(ManagerTest, FullModemRefusesTheNextAdd) {
    init();
    for (int i = 0; i < 255; ++i) modem.createProfile({Tech::k3gpp, 0, {}});
    settle();
    EXPECT_EQ(manager.addProfile(transient("a")), nullptr);
    EXPECT_NE(manager.addProfile(transient("a", TechType::TECH_3GPP2)), nullptr);
    manager.refresh(COMPLETE);
    EXPECT_EQ(manager.filter({}).size(), 255u);
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
    init(1);
    EXPECT_FALSE(modem.counters().diagOpen);
    auto key = manager.addProfile(transient("a"));
    EXPECT_EQ(modem.profiles(1).size(), 1u);
    EXPECT_EQ(modem.profiles(0).size(), 0u);
}

std::shared_ptr<IProfileKey> keyInAGlobal;
std::shared_ptr<IProfileKey> listeningKey;

TEST(ManagerDeathTest, ProcessExitsWithEngineRunningAndKeysHeld) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto liveAndExit = [] {
        auto& manager = Manager::getInstance();
        manager.init(0, false);
        keyInAGlobal = manager.addProfile(transient("a"));
        while (!keyInAGlobal) keyInAGlobal = manager.addProfile(transient("a"));
        listeningKey = manager.filter({}).front();
        listeningKey->registerExpirationListener([] { keyInAGlobal->dump(); });
        exit(0);
    };
    EXPECT_EXIT(liveAndExit(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace zem
