// The cache in front of the software modem, its loop stepped by hand: what it logs, what it sends,
// and the tokens that it gives.

#include <atomic>
#include <cstring>
#include <regex>
#include <set>
#include <thread>

#include "CallbackRequest.h"
#include "ProfileBuilders.h"
#include "TestPhone.h"

namespace zem {
namespace {

using Lines = std::vector<std::string>;

class CacheTest : public PhoneTest {
  protected:
    CacheTest()
        : cache(stepped.loop, 0,
                [this](std::shared_ptr<ClientRequest> request) { return answer(*request); }) {
        settle();
        log.clear();
        modem.clearRequests();
    }

    // Key calls, made on the engine's thread here, go straight to the cache.
    std::shared_ptr<ClientResponse> answer(const ClientRequest& request) {
        const auto& callback = dynamic_cast<const CallbackRequest&>(request);
        released = cache.releaseProfile(callback.getReleaseToken());
        return nullptr;
    }

    void settle() {
        PhoneTest::settle(log, [this] { stepped.pass(); });
    }

    std::shared_ptr<ProfileKey> add(const AddProfileParams& params) {
        auto key = cache.add(params);
        EXPECT_NE(key, nullptr);
        settle();
        return key;
    }

    // The cache's own lines since the last time, without tokens, once all is settled; errors are
    // marked.
    Lines told() {
        settle();
        Lines lines;
        for (const auto& line : log.lines()) {
            if (line.level < LOG_ERROR || line.text.rfind("ZapWdsProxy", 0) == 0) continue;
            lines.push_back(
                (line.level == LOG_ERROR ? "! " : "") +
                std::regex_replace(line.text, std::regex("^ProfileCache: |=\\d+$"), ""));
        }
        log.clear();
        return lines;
    }

    SteppedLoop stepped;
    ProfileCache cache;
    bool released = false;
};

TEST_F(CacheTest, StepsAreLoggedInTheirOrder) {
    const std::string confirmed = "pending transaction confirmed";
    const std::string mine = "TechType=3GPP,ProfileId=1,ApnName=net,UserName=me,";
    auto params = transient("Net");
    params.setUserName("me");
    auto key = add(params);
    EXPECT_EQ(told(),
              (Lines{"Added: " + mine + "ProfileName=zem_profile,", "onIndication < 3GPP:1 Create",
                     confirmed, "onIndication < 3GPP:1 Modify", confirmed}));
    cache.modify(ModifyProfileParams(named("NET")), key);
    EXPECT_EQ(told(), Lines{"profile is unchanged"});
    cache.modify(with<ModifyProfileParams>(user("you"), apn("net")), key);
    EXPECT_EQ(told(), (Lines{"Diff: TechType=3GPP,ProfileId=-1,UserName=you,",
                             "onIndication < 3GPP:1 Modify", confirmed}));
    modem.modifyProfile({Tech::k3gpp, 1, {{"username", "me"}}});
    EXPECT_EQ(told(), (Lines{"onIndication < 3GPP:1 Modify", "updating cache due to indication!"}));
    cache.refresh();
    EXPECT_EQ(told(), (Lines{"Refreshed Profiles:", mine + "ProfileName=zem_profile,"}));
    key = cache.filter({}).front();
    told();
    key.reset();
    EXPECT_TRUE(released);  // and kept: nobody's, though it bears the library's name
    EXPECT_EQ(told(),
              (Lines{"releaseProfile token", "ignoring non-persistent or non-zem created"}));
    key = add(transient("a"));
    told();
    key.reset();
    EXPECT_EQ(told(), (Lines{"releaseProfile token", "Released profile 2",
                             "onIndication < 3GPP:2 Delete", confirmed}));
    cache.onIndication({TechType::TECH_3GPP, 1, ProfileChangedEvent(7)});
    EXPECT_EQ(told(), (Lines{"onIndication < 3GPP:1 7", "updating cache due to indication!",
                             "! Invalid ProfileChangedEvent"}));
}

TEST_F(CacheTest, ModifySendsTheDifferenceAndNothingElse) {
    auto params = transient("net");
    params.setUserName("me");
    params.setHomeIPType(V4);
    params.setApnTypesMask(APN_TYPE_MMS);  // another bit on the modem
    const auto key = add(params);
    ModifyProfileParams changes{params};
    EXPECT_TRUE(cache.modify(changes, key));
    EXPECT_EQ(sent(0x0028).size(), 0u);

    changes.setUserName("you");
    EXPECT_TRUE(cache.modify(changes, key));
    ASSERT_EQ(sent(0x0028).size(), 1u);
    std::vector<uint8_t> wanted(3256);
    wanted[4] = static_cast<uint8_t>(key->getProfileId());
    memcpy(&wanted[404], "\1you", 4);
    EXPECT_EQ(sent(0x0028)[0], wanted);
}

// Its index may be another profile's by now.
TEST_F(CacheTest, ExpiredKeySendsNothing) {
    auto key = add(transient("net"));
    const auto next = add(transient("net"));
    EXPECT_TRUE(cache.remove(key));
    settle();
    modem.clearRequests();
    const struct {
        LogLevel level;
        std::function<bool()> call;
    } cases[] = {
        {LOG_API, [&] { return cache.modify(ModifyProfileParams(named("x")), key); }},
        {LOG_ERROR, [&] { return cache.remove(key); }},
        {LOG_ERROR, [&] { return cache.match({}, key); }},
        {LOG_ERROR, [&] { return cache.get(key).has_value(); }},
        {LOG_ERROR, [&] { return key.reset(), released; }},
    };
    for (const auto& each : cases) {
        log.clear();
        released = true;
        EXPECT_FALSE(each.call());
        const auto expired = "ProfileCache: token is not present or expired";
        EXPECT_EQ(log.count(each.level, expired), 1u);
        EXPECT_EQ(log.count(expired), 1u);
    }
    EXPECT_EQ(modem.counters().requestsTotal, 0u);
    log.clear();
    EXPECT_FALSE(cache.modify({}, nullptr) || cache.remove(nullptr) || cache.match({}, nullptr) ||
                 cache.get(nullptr));
    EXPECT_EQ(log.lines().size(), 0u);
}

TEST_F(CacheTest, KeyToAnEntryThatCouldNotBeRead) {
    const auto key = add(transient("net"));
    modem.addFault({FaultKind::kRefuse, 0x002B});
    modem.modifyProfile({Tech::k3gpp, static_cast<unsigned>(key->getProfileId()), {}});
    settle();
    EXPECT_TRUE(cache.modify(ModifyProfileParams(named("x")), key));
    EXPECT_FALSE(cache.match({}, key) || cache.get(key));
    cache.registerExpirationListener([] { FAIL(); }, key, key->getToken());
    EXPECT_FALSE(cache.releaseProfile(key->getToken()));
    EXPECT_TRUE(cache.remove(key));
    EXPECT_EQ(modem.profiles().size(), 0u);
}

TEST_F(CacheTest, ReleaseFreesTheListenersOfItsKey) {
    const auto key = add(transient("net"));
    auto second = cache.filter({}).front();
    const auto witness = std::make_shared<int>();
    cache.registerExpirationListener([witness] {}, second, second->getToken());
    second.reset();
    EXPECT_EQ(witness.use_count(), 1);
}

TEST_F(CacheTest, RefreshExpiresKeysBeforeItAsksTheModem) {
    const auto key = add(transient("net"));
    modem.clearRequests();
    unsigned long asked = ~0u;
    cache.registerExpirationListener([&] { asked = modem.counters().requestsTotal; }, key,
                                     key->getToken());
    cache.refresh();
    EXPECT_EQ(asked, 0u);
}

TEST_F(CacheTest, TokensAreUniqueAcrossThreads) {
    std::vector<std::vector<uint64_t>> taken(4);
    std::vector<std::thread> threads;
    std::atomic<size_t> ready{0};
    for (auto& tokens : taken) {
        threads.emplace_back([&] {
            for (++ready; ready < taken.size();) std::this_thread::yield();  // all at once
            for (int i = 0; i < 20000; ++i) tokens.push_back(ProfileCache::generateToken());
        });
    }
    for (auto& thread : threads) thread.join();
    std::set<uint64_t> all;
    for (const auto& tokens : taken) all.insert(tokens.begin(), tokens.end());
    EXPECT_EQ(all.size(), 80000u);
}

}  // namespace
}  // namespace zem
