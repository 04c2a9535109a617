// The cache in front of the software modem, its loop stepped by hand.

#include <algorithm>
#include <atomic>
#include <cstring>
#include <set>
#include <thread>

#include "CallbackRequest.h"
#include "TestPhone.h"

namespace zem {
namespace {

constexpr char kExpired[] = "ProfileCache: token is not present or expired";

class CacheTest : public PhoneTest {
  protected:
    CacheTest()
        : cache(stepped.loop, 0,
                [this](std::shared_ptr<ClientRequest> request) { return answer(*request); }) {
        settle();
        log.clear();
        modem.clearRequests();
    }
    ~CacheTest() override { modem.clearFaults(); }

    // Key calls, made on the engine's thread here, go straight to the cache.
    std::shared_ptr<ClientResponse> answer(const ClientRequest& request) {
        const auto& callback = dynamic_cast<const CallbackRequest&>(request);
        if (callback.hasReleaseToken()) {
            released = cache.releaseProfile(callback.getReleaseToken());
        } else {
            cache.registerExpirationListener(callback.getExpirationCb(),
                                             callback.getExpirationKey(),
                                             callback.getExpirationToken());
        }
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

    std::shared_ptr<ProfileKey> onlyKey() {
        auto keys = cache.filter({});
        EXPECT_EQ(keys.size(), 1u);
        return keys.empty() ? nullptr : keys.front();
    }

    // What is between "Cache:" and "Pending:", without the tokens, in order of the text; then the
    // rest.
    std::vector<std::string> cached() { return section(false); }
    std::vector<std::string> pending() { return section(true); }
    std::vector<std::string> section(bool wantPending) {
        std::vector<std::string> lines;
        bool isPending = false;
        for (const auto& line : cache.dump()) {
            if (line == "Cache:" || line == "Pending:") {
                isPending = line == "Pending:";
            } else if (isPending == wantPending) {
                lines.push_back(isPending ? line.substr(2) : line.substr(line.find(": ") + 2));
            }
        }
        if (!wantPending) std::sort(lines.begin(), lines.end());
        return lines;
    }

    softmodem::Fields stored(Tech tech, unsigned index) {
        const auto profile = modem.profile(tech, index);
        return profile ? profile->fields : softmodem::Fields();
    }

    SteppedLoop stepped;
    ProfileCache cache;
    bool released = false;
};

using Lines = std::vector<std::string>;

TEST_F(CacheTest, AddedProfileIsNamedCountedAndItsEchoesAbsorbed) {
    const struct {
        AddProfileParams params;
        Tech tech;
        const char* name;
        bool persistent;
    } cases[] = {
        {{named("Net"), false, TechType::TECH_3GPP, false}, Tech::k3gpp, "zem_profile", false},
        {{named("Net"), true, TechType::TECH_3GPP, true}, Tech::k3gpp, "zem_profile_ia", true},
        {{named("Net"), true, TechType::TECH_3GPP2, true}, Tech::k3gpp2, nullptr, true},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.params.dump());
        log.clear();
        auto key = cache.add(each.params);
        ASSERT_NE(key, nullptr);
        const std::string id =
            (each.tech == Tech::k3gpp ? "3GPP:" : "3GPP2:") + std::to_string(key->getProfileId());
        EXPECT_EQ(pending(), (Lines{id + " Create", id + " Modify"}));
        ASSERT_EQ(cached().size(), 1u);
        EXPECT_TRUE(log.contains("Added: " + cached()[0]));

        const auto before = cache.dump().at(1);
        settle();
        EXPECT_EQ(pending(), Lines{});
        EXPECT_EQ(cache.dump().at(1), before);
        EXPECT_EQ(log.count(LOG_API, "ProfileCache: pending transaction confirmed"), 2u);

        const auto fields = stored(each.tech, static_cast<unsigned>(key->getProfileId()));
        EXPECT_EQ(fields.at("persistent"), softmodem::Value(uint64_t{each.persistent}));
        EXPECT_EQ(fields.count("profile_name"), each.name ? 1u : 0u);
        if (each.name) {
            EXPECT_EQ(fields.at("profile_name"), softmodem::Value(each.name));
        }
        EXPECT_TRUE(cache.remove(key));
        key.reset();
        settle();
    }
}

TEST_F(CacheTest, FailedAddConsumesATokenAndChangesNothing) {
    const auto first = add(transient("a"));
    modem.addFault({FaultKind::kRefuse, 0x0027});
    EXPECT_EQ(cache.add(transient("b")), nullptr);
    EXPECT_EQ(cache.add(transient("b", TechType(2))), nullptr);
    EXPECT_EQ(log.count(LOG_ERROR, "ProfileCache: failed to create profile"), 1u);
    EXPECT_EQ(cached().size(), 1u);
    EXPECT_EQ(pending(), Lines{});
    const auto next = add(transient("c"));
    EXPECT_EQ(next->getToken(), first->getToken() + 3);
}

TEST_F(CacheTest, ModifySendsTheDifferenceAndNothingElse) {
    auto params = transient("net");
    params.setUserName("me");
    params.setHomeIPType(IPType::V4);
    const auto key = add(params);

    ModifyProfileParams same{params};
    same.setApnName("NET");
    EXPECT_TRUE(cache.modify(same, key));
    EXPECT_EQ(log.count(LOG_API, "ProfileCache: profile is unchanged"), 1u);
    EXPECT_EQ(sent(0x0028).size(), 0u);
    EXPECT_EQ(pending(), Lines{});

    ModifyProfileParams changes{params};
    changes.setUserName("you");
    EXPECT_TRUE(cache.modify(changes, key));
    EXPECT_EQ(pending(), Lines{key->dump().substr(0, key->dump().find(' ')) + " Modify"});
    ASSERT_EQ(sent(0x0028).size(), 1u);
    auto bytes = sent(0x0028)[0];
    const std::string user("\1you", 4);
    EXPECT_EQ(memcmp(&bytes[404], user.data(), user.size()), 0);
    std::fill_n(&bytes[404], user.size(), uint8_t{0});
    bytes[4] = 0;  // the index
    EXPECT_EQ(bytes, std::vector<uint8_t>(3256));
    EXPECT_EQ(log.count(LOG_API, "Diff: TechType=3GPP,ProfileId=-1,UserName=you,"), 1u);
    settle();
    EXPECT_EQ(cache.get(key)->getUserName(), "you");
    EXPECT_EQ(pending(), Lines{});
}

TEST_F(CacheTest, RefusedModifyAnswersTrueAndChangesNothing) {
    const auto key = add(transient("net"));
    const auto before = cached();
    modem.addFault({FaultKind::kRefuse, 0x0028});
    EXPECT_TRUE(cache.modify(ModifyProfileParams(named("other")), key));
    EXPECT_EQ(log.count(LOG_ERROR, "ProfileCache: failed to modify modem profile"), 1u);
    EXPECT_EQ(cached(), before);
    EXPECT_EQ(pending(), Lines{});
}

TEST_F(CacheTest, RemoveDeletesWhateverTheCountAndExpiresAllKeys) {
    auto key = add(transient("net"));
    auto other = onlyKey();
    modem.addFault({FaultKind::kRefuse, 0x0029});
    EXPECT_FALSE(cache.remove(key));
    EXPECT_EQ(log.count(LOG_ERROR, "ProfileCache: Failed to remove profile"), 1u);
    EXPECT_EQ(cached().size(), 1u);

    EXPECT_TRUE(cache.remove(key));
    EXPECT_EQ(pending().size(), 1u);
    settle();
    EXPECT_EQ(pending(), Lines{});
    EXPECT_EQ(modem.profiles().size(), 0u);

    // An expired key sends nothing: its index may be another profile's by now.
    modem.clearRequests();
    const struct {
        LogLevel level;
        std::function<bool()> call;
    } cases[] = {
        {LOG_API, [&] { return cache.modify(ModifyProfileParams(named("x")), other); }},
        {LOG_ERROR, [&] { return cache.remove(other); }},
        {LOG_ERROR, [&] { return cache.match({}, other); }},
        {LOG_ERROR, [&] { return cache.get(other).has_value(); }},
        {LOG_ERROR,
         [&] {
             other.reset();
             return released;
         }},
    };
    for (const auto& each : cases) {
        log.clear();
        released = true;
        EXPECT_FALSE(each.call());
        EXPECT_EQ(log.count(each.level, kExpired), 1u);
        EXPECT_EQ(log.count(kExpired), 1u);
    }
    EXPECT_EQ(modem.counters().requestsTotal, 0u);
    log.clear();
    EXPECT_FALSE(cache.modify({}, nullptr) || cache.remove(nullptr) || cache.match({}, nullptr) ||
                 cache.get(nullptr));
    EXPECT_EQ(log.lines().size(), 0u);
}

TEST_F(CacheTest, LastKeyTakesOnlyATransientProfileOfTheLibrarysOwn) {
    modem.createProfile(
        {Tech::k3gpp, 0, {{"apn_name", "factory"}, {"profile_name", "zem_profile"}}});
    settle();
    const auto ignored = "ProfileCache: ignoring non-persistent or non-zem created";
    const struct {
        const char* name;
        std::function<std::shared_ptr<ProfileKey>()> makeKey;
        bool deleted;
    } cases[] = {
        {"transient", [&] { return add(transient("mine")); }, true},
        {"persistent",
         [&] {
             return add({named("kept"), true, TechType::TECH_3GPP, false});
         },
         false},
        {"of the modem, though it bears the library's name",
         [&] { return cache.filter(FilterProfileParams(named("factory"))).front(); }, false},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        auto key = each.makeKey();
        const auto id = static_cast<unsigned>(key->getProfileId());
        log.clear();
        key.reset();
        EXPECT_TRUE(released);
        EXPECT_EQ(pending().size(), each.deleted ? 1u : 0u);
        EXPECT_EQ(modem.profile(Tech::k3gpp, id).has_value(), !each.deleted);
        EXPECT_EQ(log.count(LOG_API, "Released profile " + std::to_string(id)),
                  each.deleted ? 1u : 0u);
        EXPECT_EQ(log.count(LOG_API, ignored), each.deleted ? 0u : 1u);
        settle();
        EXPECT_EQ(pending(), Lines{});
    }
}

TEST_F(CacheTest, EachFilterCountsItsKeysAndTheLastReleaseDeletes) {
    auto key = add(transient("net"));
    auto second = onlyKey();
    auto third = onlyKey();
    key.reset();
    second.reset();
    EXPECT_EQ(modem.profiles().size(), 1u);
    modem.addFault({FaultKind::kRefuse, 0x0029});
    const unsigned long token = third->getToken();
    third.reset();
    EXPECT_FALSE(released);
    EXPECT_EQ(log.count(LOG_ERROR, "ProfileCache: failed to release profile"), 1u);
    EXPECT_EQ(cached().size(), 1u);
    EXPECT_TRUE(cache.releaseProfile(token));
    EXPECT_EQ(modem.profiles().size(), 0u);
    EXPECT_EQ(cached(), Lines{});
}

TEST_F(CacheTest, ListenersRunWhenTheProfileObjectGoes) {
    const struct {
        const char* name;
        std::function<void(std::shared_ptr<ProfileKey>& other)> act;
        bool runs;
    } cases[] = {
        {"removed", [&](auto& other) { cache.remove(other); }, true},
        {"deleted by the network",
         [&](auto& other) {
             modem.deleteProfile(Tech::k3gpp, static_cast<unsigned>(other->getProfileId()));
         },
         true},
        {"modified by the network",
         [&](auto& other) {
             modem.modifyProfile({Tech::k3gpp,
                                  static_cast<unsigned>(other->getProfileId()),
                                  {{"apn_name", "changed"}}});
         },
         true},
        {"refreshed", [&](auto&) { cache.refresh(); }, true},
        {"modified by the library",
         [&](auto& other) { cache.modify(ModifyProfileParams(named("x")), other); }, false},
        {"another key dropped", [&](auto& other) { other.reset(); }, false},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        auto key = add(transient("net"));
        auto other = onlyKey();
        auto gone = onlyKey();
        int live = 0;
        int dead = 0;
        key->registerExpirationListener([&live] { ++live; });
        const auto owned = std::make_shared<int>();
        gone->registerExpirationListener([&dead, owned] { ++dead; });
        gone.reset();
        EXPECT_EQ(owned.use_count(), 1);  // the listener goes with its key's release
        each.act(other);
        settle();
        EXPECT_EQ(live, each.runs ? 1 : 0);
        EXPECT_EQ(dead, 0);
        cache.remove(key);
        settle();
        key.reset();
        other.reset();
        for (const auto& profile : modem.profiles())
            modem.deleteProfile(profile.tech, profile.index);
        settle();
        EXPECT_EQ(cached(), Lines{});
    }
}

TEST_F(CacheTest, ModifiedByTheNetworkKeepsKeysValid) {
    const auto key = add(transient("net"));
    modem.modifyProfile(
        {Tech::k3gpp, static_cast<unsigned>(key->getProfileId()), {{"apn_name", "Changed"}}});
    settle();
    EXPECT_EQ(cache.get(key)->getApnName(), "changed");
}

TEST_F(CacheTest, CreatedBehindItsBackIsEnteredEvenUnread) {
    modem.addFault({FaultKind::kRefuse, 0x002B, 2});
    modem.createProfileAt({Tech::k3gpp, 7, {{"apn_name", "seven"}}});
    settle();
    // Unread at the create; the modify that follows it does not touch an entry without a profile.
    EXPECT_EQ(cached(), Lines{"null"});
    EXPECT_EQ(cache.filter({}).size(), 0u);
    EXPECT_EQ(log.count(LOG_ERROR, "ProfileCache: null profile"), 1u);
    modem.clearFaults();
    modem.deleteProfile(Tech::k3gpp, 7);
    settle();
    EXPECT_EQ(cached(), Lines{"null"});

    modem.createProfileAt({Tech::k3gpp, 8, {{"apn_name", "eight"}}});
    modem.indicate(0, 8, 1);
    settle();
    EXPECT_EQ(cached(), (Lines{"TechType=3GPP,ProfileId=8,ApnName=eight,",
                               "TechType=3GPP,ProfileId=8,ApnName=eight,", "null"}));
    modem.deleteProfile(Tech::k3gpp, 8);
    settle();
    EXPECT_EQ(cached(), Lines{"null"});
    cache.refresh();
    EXPECT_EQ(cached(), Lines{});
}

TEST_F(CacheTest, KeysToAnEntryWithoutAProfile) {
    auto key = add(transient("net"));
    modem.addFault({FaultKind::kRefuse, 0x002B});
    modem.modifyProfile({Tech::k3gpp, static_cast<unsigned>(key->getProfileId()), {}});
    settle();
    ASSERT_EQ(cached(), Lines{"null"});
    log.clear();
    EXPECT_TRUE(cache.modify(ModifyProfileParams(named("x")), key));
    EXPECT_FALSE(cache.match({}, key));
    EXPECT_FALSE(cache.get(key));
    key->registerExpirationListener([] {});
    EXPECT_FALSE(cache.releaseProfile(key->getToken()));
    EXPECT_EQ(log.count(kExpired), 0u);
    EXPECT_TRUE(cache.remove(key));
    EXPECT_EQ(cached(), Lines{});
    EXPECT_EQ(pending(), Lines{"3GPP:" + std::to_string(key->getProfileId()) + " Delete"});
    EXPECT_EQ(modem.profiles().size(), 0u);
}

TEST_F(CacheTest, EqualPendingTransactionsAreConsumedOnePerIndication) {
    const auto key = add(transient("net"));
    const auto id = key->getProfileId();
    cache.modify(ModifyProfileParams(named("a")), key);
    cache.modify(ModifyProfileParams(named("b")), key);
    EXPECT_EQ(pending().size(), 2u);
    cache.onIndication({TechType::TECH_3GPP, id, ProfileChangedEvent::Modify});
    EXPECT_EQ(pending().size(), 1u);
    cache.onIndication({TechType::TECH_3GPP2, id, ProfileChangedEvent::Modify});
    EXPECT_EQ(pending().size(), 1u);
    cache.refresh();
    EXPECT_EQ(pending().size(), 1u);
    settle();
}

TEST_F(CacheTest, UnknownEventIsLogged) {
    cache.onIndication({TechType::TECH_3GPP, 1, ProfileChangedEvent(7)});
    EXPECT_EQ(log.count(LOG_API, "ProfileCache: onIndication < 3GPP:1 7"), 1u);
    EXPECT_EQ(log.count(LOG_ERROR, "Invalid ProfileChangedEvent"), 1u);
}

TEST_F(CacheTest, RefreshClearsFirstAndTakesNewTokens) {
    modem.createProfileAt({Tech::k3gpp, 3, {{"apn_name", "a"}}});
    modem.createProfileAt({Tech::k3gpp2, 3, {{"apn_string_3gpp2", "b"}}});
    settle();
    auto key = cache.filter(FilterProfileParams(named("a"))).front();
    modem.clearRequests();
    size_t requestsBefore = 1;
    key->registerExpirationListener([&] { requestsBefore = modem.requests().size(); });
    log.clear();
    EXPECT_TRUE(cache.refresh());
    EXPECT_EQ(requestsBefore, 0u);
    EXPECT_EQ(log.count(LOG_API, "Refreshed Profiles:"), 1u);
    EXPECT_EQ(log.count(LOG_API, "TechType=3GPP2,ProfileId=3,ApnName=b,"), 1u);
    EXPECT_FALSE(cache.get(key));
    const auto renewed = cache.filter(FilterProfileParams(named("a"))).front();
    EXPECT_GT(renewed->getToken(), key->getToken());
    modem.addFault({FaultKind::kRefuse, 0x002A});
    EXPECT_TRUE(cache.refresh());
    EXPECT_EQ(cached(), Lines{});
}

TEST_F(CacheTest, RestartAndSubscriptionChangeReadTheOtherStore) {
    modem.createProfileAt({Tech::k3gpp, 1, {{"apn_name", "sim a"}}}, 0);
    modem.createProfileAt({Tech::k3gpp, 1, {{"apn_name", "sim b"}, {"persistent", 1u}}}, 1);
    settle();
    modem.swapSubscriptions(0, 1);
    settle();
    EXPECT_EQ(cached(), Lines{"TechType=3GPP,ProfileId=1,ApnName=sim b,"});
    add(transient("lost"));
    modem.restart();
    settle();
    EXPECT_EQ(cached(), Lines{"TechType=3GPP,ProfileId=1,ApnName=sim b,"});
}

TEST_F(CacheTest, HostileResponsesAreReadWithinTheirFields) {
    softmodem::Fields fields = {{"apn_name", "a"}, {"username", "u"}, {"pdp_type", 1u}};
    modem.addFault({FaultKind::kUnterminatedStrings, 0x002B, 1});
    modem.createProfileAt({Tech::k3gpp, 1, fields});
    settle();
    const auto key = onlyKey();
    ASSERT_NE(key, nullptr);
    modem.addFault({FaultKind::kUnterminatedStrings, 0x002B, 1});
    cache.onIndication({TechType::TECH_3GPP, 1, ProfileChangedEvent::Modify});
    EXPECT_EQ(cache.get(key)->getApnName().size(), 151u);
    EXPECT_EQ(cache.get(key)->getUserName().size(), 128u);
    modem.addFault({FaultKind::kUnknownEnums, 0x002B, 1});
    cache.onIndication({TechType::TECH_3GPP, 1, ProfileChangedEvent::Modify});
    EXPECT_EQ(cache.get(key)->getHomeIPType(), IPType::UNKNOWN);
}

TEST_F(CacheTest, TokensAreUniqueAcrossThreads) {
    constexpr int kThreads = 4;
    constexpr int kEach = 20000;
    std::vector<std::vector<uint64_t>> taken(kThreads);
    std::vector<std::thread> threads;
    std::atomic<int> ready{0};
    for (auto& tokens : taken) {
        threads.emplace_back([&] {
            for (++ready; ready < kThreads;) std::this_thread::yield();  // all at once
            for (int i = 0; i < kEach; ++i) tokens.push_back(ProfileCache::generateToken());
        });
    }
    std::set<uint64_t> all;
    for (int i = 0; i < kThreads; ++i) {
        threads[i].join();
        all.insert(taken[i].begin(), taken[i].end());
    }
    EXPECT_EQ(all.size(), size_t{kThreads} * kEach);
}

TEST_F(CacheTest, DumpFromAnotherThreadSeesWholeProfiles) {
    const auto key = add(transient("net"));
    std::atomic<bool> done{false};
    std::thread dumper([&] {
        while (!done) {
            const auto lines = cache.dump();
            EXPECT_EQ(lines.front(), "Cache:");
        }
    });
    for (int i = 0; i < 200; ++i) {
        cache.modify(ModifyProfileParams(named(std::string(100, static_cast<char>('a' + i % 26)))),
                     key);
        if (i % 10 == 0) settle();
        if (i % 50 == 0) cache.add(transient("more"));
    }
    done = true;
    dumper.join();
    settle();
}

}  // namespace
}  // namespace zem
