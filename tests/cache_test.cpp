// The cache in front of the software modem, its loop stepped by hand: its listeners and its tokens.

#include <atomic>
#include <set>
#include <thread>

#include "CallbackRequest.h"
#include "TestPhone.h"

namespace zem {
namespace {

class CacheTest : public PhoneTest {
  protected:
    CacheTest()
        : cache(stepped.loop, 0,
                [this](std::shared_ptr<ClientRequest> request) { return answer(*request); }) {
        settle();
    }

    // Key calls, made on the engine's thread here, go straight to the cache.
    std::shared_ptr<ClientResponse> answer(const ClientRequest& request) {
        const auto& callback = dynamic_cast<const CallbackRequest&>(request);
        cache.releaseProfile(callback.getReleaseToken());
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

    SteppedLoop stepped;
    ProfileCache cache;
};

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
