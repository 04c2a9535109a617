// Many threads at once: callers that take turns, keys dropped elsewhere, the modem and the dump
// meanwhile; callers that overlap against the rule; and the process's exit in the midst of it.

#include <android/log.h>
#include <poll.h>
#include <unistd.h>
#include <zem/Util.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <list>
#include <mutex>
#include <random>
#include <thread>

#include "Handoff.h"
#include "ProfileBuilders.h"
#include "TestPhone.h"

namespace zem {
namespace {

using Key = std::shared_ptr<IProfileKey>;

// Changes the modem behind the library's back, in one of many ways.
void disturb(SoftModem& modem, std::minstd_rand& dice) {
    const auto tech = Tech(dice() % 2);
    const auto index = static_cast<unsigned>(dice() % 8);
    switch (dice() % 8) {
        case 0:
            modem.restart();
            break;
        case 1:
            modem.createProfile({tech, 0, {{"persistent", dice() % 2}}});
            break;
        case 2:
            modem.deleteProfile(tech, index);
            break;
        case 3:
            modem.indicate(static_cast<uint32_t>(tech), index, static_cast<uint32_t>(dice() % 7));
            break;
        default:
            modem.modifyProfile({tech, index, {{"apn_type_mask", dice() % 8}}});
    }
}

class ThreadsTest : public ManagedPhoneTest {
  protected:
    ThreadsTest() {
        init();
        recorder.reset();  // the record would be long
    }
};

TEST_F(ThreadsTest, CallersTakeTurnsWhileTheModemChangesAndOthersDump) {
    constexpr int kCallers = 4, kRounds = 150;
    std::mutex turn;  // as callers must have one
    std::atomic<int> callers{kCallers};
    std::atomic<int> fired{0}, firedTwice{0}, added{0};
    std::deque<Key> handedOn;

    const auto call = [&](unsigned seed) {
        std::minstd_rand dice(seed);
        for (int round = 0; round < kRounds; ++round) {
            Key key, other;
            {
                const std::lock_guard lock(turn);
                const auto tech = TechType(dice() % 2);
                key = manager.addProfile({named("a"), dice() % 2 == 0, tech, false});
                if (!key) continue;
                ++added;
                key->registerExpirationListener([&, done = std::make_shared<bool>(false)] {
                    *done ? ++firedTwice : ++fired;
                    *done = true;
                });
                manager.modifyProfile(with<ModifyProfileParams>(user("b")), key);
            }
            const std::lock_guard lock(turn);
            manager.match({}, key);
            manager.getProfile(key);
            const auto keys = manager.filter(with<FilterProfileParams>(techIs(key->getTechType())));
            if (!keys.empty()) handedOn.push_back(keys.back());
            handedOn.push_back(key);
            if (dice() % 3 == 0) manager.deleteProfile(key);
            key.reset();
            if (handedOn.size() > 10) {  // dropped here, wherever they were had
                other = handedOn.front();
                handedOn.pop_front();
                other.reset();
            }
            if (dice() % 16 == 0) manager.refresh(COMPLETE);
        }
        --callers;
    };
    std::vector<std::thread> threads;
    for (unsigned i = 1; i <= kCallers; ++i) threads.emplace_back(call, i);
    threads.emplace_back([&] {
        std::minstd_rand dice(99);
        for (; callers > 0; std::this_thread::yield()) disturb(modem, dice);
    });
    size_t lines = 0;
    threads.emplace_back([&] {
        for (; callers > 0; std::this_thread::yield()) lines += manager.dump().size();
    });
    for (auto& thread : threads) thread.join();

    EXPECT_GT(added, kCallers);
    EXPECT_GT(lines, 0u);
    recorder = std::make_unique<RecordedLog>();
    settle();
    modem.restart();
    settle();
    std::vector<std::string> names[2];
    for (const auto& [name, text] : stored()) names[0].push_back(name);
    for (const auto& [name, text] : cached()) names[1].push_back(name);
    EXPECT_EQ(names[0], names[1]);
    // All are expired, and each listener whose key was still held has been told, once.
    const int before = fired;
    handedOn.clear();
    EXPECT_EQ(fired, before);
    EXPECT_GT(fired, 0);
    EXPECT_EQ(firedTwice, 0);
}

TEST_F(ThreadsTest, EngineIsReplacedWhileKeysOfTheFirstAreHeldAndThenDropped) {
    std::mutex turn;
    std::atomic<bool> stop{false};
    std::thread network([&] {
        std::minstd_rand dice(7);
        for (; !stop; std::this_thread::yield()) disturb(modem, dice);
    });
    for (int round = 0; round < 20; ++round) {
        std::vector<Key> keys;
        std::atomic<int> expired{0};
        for (int i = 0; i < 10; ++i) {
            auto key = manager.addProfile(transient("old"));
            if (key) key->registerExpirationListener([&expired] { ++expired; });
            keys.push_back(std::move(key));
        }
        manager.init(0, true);
        LogWrapper::getInstance().setLogWriter(nullptr);
        const int atEnd = expired;
        std::thread dropper([&] {
            for (auto& key : keys) {
                const std::lock_guard lock(turn);
                key.reset();
            }
        });
        for (int i = 0; i < 10; ++i) {
            const std::lock_guard lock(turn);
            manager.addProfile(transient("new"));
        }
        dropper.join();
        EXPECT_EQ(expired, atEnd);
    }
    stop = true;
    network.join();
}

// --- Callers that overlap ---

std::atomic<int> liveKeys{0};
std::atomic<int> displacedKeys{0};
thread_local bool isCaller = false;

std::shared_ptr<ClientRequest> requestThatOwnsAKey(const std::shared_ptr<Handoff>& handoff) {
    ++liveKeys;
    return std::make_shared<DeleteRequest>(
        Key(new ProfileKey(TechType::TECH_3GPP, 1, 1,
                           [handoff](const auto& request) { return handoff->call(request); }),
            [maker = std::this_thread::get_id()](ProfileKey* key) {
                if (isCaller && std::this_thread::get_id() != maker) ++displacedKeys;
                delete key;
                --liveKeys;
            }));
}

// Each takes what answer it finds. One that found another's leaves its request behind, which the
// next displaces, and a key with it; the one who waits is freed by the next answer or the end.
TEST(OverlappingCallersTest, AreAllFreedAndSoAreTheirKeys) {
    RecordedLog log;
    EventManager noLoop;  // the test looks for requests itself
    displacedKeys = 0;
    const std::string line = "calls overlap: Delete 3GPP:1 token=1 finds ";
    const auto allMet = [&] {
        return displacedKeys > 0 && log.count(LOG_ERROR, line + "Delete 3GPP:1 token=1") > 0 &&
               log.count(LOG_ERROR, line + "Get Failure ") > 0;
    };
    for (int round = 0; round < 50 || (round < 5000 && !allMet()); ++round) {
        const auto handoff = std::make_shared<Handoff>();
        pollfd requests = {handoff->open(), POLLIN, 0};
        std::atomic<int> answers{0};
        std::vector<std::thread> threads;
        threads.emplace_back([&] {
            handoff->enterEngine();
            while (answers < 30) {
                if (poll(&requests, 1, 10) != 1) continue;
                handoff->answer(requests.fd, [&](const ClientRequest&) {
                    ++answers;
                    return std::make_shared<GetResponse>(FAILURE, std::nullopt);
                });
            }
        });
        for (int i = 0; i < 6; ++i) {
            threads.emplace_back([&] {
                isCaller = true;
                while (answers < 30) handoff->call(requestThatOwnsAKey(handoff));
            });
        }
        threads.front().join();  // what is asked from now on is never heard
        EXPECT_EQ(handoff->close(noLoop).get(), -1);
        close(requests.fd);
        for (size_t i = 1; i < threads.size(); ++i) threads[i].join();
        ASSERT_EQ(liveKeys, 0);
    }
    EXPECT_TRUE(allMet());
}

TEST(OverlappingCallersTest, RequestThatIsNeverHeardGoesWithTheEngineAndItsKeyToo) {
    auto handoff = std::make_shared<Handoff>();
    EventManager noLoop;
    pollfd requests = {handoff->open(), POLLIN, 0};
    std::thread caller([&] { EXPECT_EQ(handoff->call(requestThatOwnsAKey(handoff)), nullptr); });
    ASSERT_EQ(poll(&requests, 1, 10000), 1);
    EXPECT_EQ(handoff->close(noLoop).get(), -1);
    close(requests.fd);
    caller.join();
    EXPECT_EQ(liveKeys, 0);
}

// --- The process's exit ---

Key keyInAGlobal;  // goes after the manager

TEST(ExitDeathTest, ProcessEndsInTheMidstOfItAllWithoutComplaint) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const struct {
        const char* name;
        void (*end)();
    } cases[] = {
        {"exit", [] { exit(0); }},
        {"exit on another thread",
         [] {
             std::thread([] { exit(0); }).detach();
             for (;;) pause();
         }},
        {"quick_exit", [] { quick_exit(0); }},
        {"_exit", [] { _exit(0); }},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const auto live = [&each] {
            auto& manager = Manager::getInstance();
            manager.init(0, false);
            while (!keyInAGlobal) keyInAGlobal = manager.addProfile(transient("a"));
            static auto& keysOnTheHeap = *new std::list<Key>;
            keysOnTheHeap = manager.filter({});
            // Goes before the manager, and is counted out.
            static const Key keyInALocalStatic = manager.addProfile(transient("b"));
            for (const auto& key : {keyInAGlobal, keyInALocalStatic})
                if (key) key->registerExpirationListener([] {});
            std::thread([] {
                std::minstd_rand dice(3);
                for (;;) disturb(SoftModem::instance(), dice);
            }).detach();
            std::thread([&manager] {
                for (int i = 0; i < 100; ++i) manager.dump();
            }).join();
            each.end();
        };
        EXPECT_EXIT(live(), testing::ExitedWithCode(0), "");
    }
}

bool callsAtExit = false;

// Destroyed after the manager, which is made in main.
const struct CallerInAGlobal {
    ~CallerInAGlobal() {
        if (!callsAtExit) return;
        Manager& manager = Manager::getInstance();
        const bool refused = !manager.addProfile(transient("a")) && manager.filter({}).empty() &&
                             !Util().findOrCreateProfileForEmergencyDataCall(named("sos"));
        if (refused) fprintf(stderr, "last: %s\n", manager.dump().back().c_str());
    }
} callerInAGlobal;

TEST(ExitDeathTest, CallsAfterTheManagersEndFindNoEngine) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto live = [] {
        Manager::getInstance().init(0, false);
        callsAtExit = true;
        exit(0);
    };
    EXPECT_EXIT(live(), testing::ExitedWithCode(0),
                "last: .*zem findOrCreateProfileForEmergencyDataCall < ");
}

TEST(ExitDeathTest, LogHearsOfTheEnginesEnd) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto live = [] {
        __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
        Manager::getInstance().init(0, true);
        exit(0);
    };
    EXPECT_EXIT(live(), testing::ExitedWithCode(0), "zem::ClientRequestManager: destructor");
}

}  // namespace
}  // namespace zem
