// The facade that callers hold: what it logs, and what it answers before its beginning.

#include <zem/Manager.h>

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
    manager.init(0, false);
    EXPECT_TRUE(modem.counters().diagOpen);
    manager.init(1, true);
    EXPECT_FALSE(modem.counters().diagOpen);
    waitForIndications();
    const auto key = manager.addProfile(transient("a"));
    EXPECT_EQ(modem.profiles(1).size(), 1u);
}

}  // namespace
}  // namespace zem
