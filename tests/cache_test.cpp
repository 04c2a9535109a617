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
    for (const bool persistent : {false, true}) {
        auto last = add({named("net"), persistent, TechType::TECH_3GPP, false});
        auto second = cache.filter({}).front();
        const auto witness = std::make_shared<int>();
        for (auto* const key : {&second, &last}) {
            cache.registerExpirationListener([witness] {}, *key, (*key)->getToken());
            key->reset();
            EXPECT_EQ(witness.use_count(), 1) << persistent;
        }
    }
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
