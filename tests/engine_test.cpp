// The engine: its hand-off, its dispatch, its beginning and its end.

#include <fcntl.h>

#include <filesystem>
#include <future>
#include <thread>

#include "CallbackRequest.h"
#include "Census.h"
#include "TestPhone.h"

namespace zem {
namespace {

constexpr TechType k3gpp = TechType::TECH_3GPP;

// A key that the cache did not make.
class ForeignKey : public IProfileKey {
  public:
    int getProfileId() override { return 1; }
    TechType getTechType() override { return k3gpp; }
    void registerExpirationListener(std::function<void()>) override {}
    std::string dump() override { return text; }
    std::string text = "foreign";
};

class EngineTest : public PhoneTest {
  protected:
    ~EngineTest() override {
        modem.clearFaults();
        if (engine) settle();
    }

    void start(int instance = 0) {
        engine = std::make_unique<ClientRequestManager>(instance);
        settle();
    }

    // A request that is answered after all events that came before it.
    void settle() {
        PhoneTest::settle(
            log, [this] { engine->processClientRequest(std::make_shared<GetRequest>(nullptr)); });
    }

    std::string ask(const std::shared_ptr<ClientRequest>& request) {
        const auto response = engine->processClientRequest(request);
        return response ? response->dump() : "none";
    }

    std::shared_ptr<IProfileKey> add(const std::string& apn) {
        const auto response = std::dynamic_pointer_cast<AddResponse>(
            engine->processClientRequest(std::make_shared<AddRequest>(transient(apn))));
        return response ? response->getAddProfileKey() : nullptr;
    }

    std::unique_ptr<ClientRequestManager> engine;
};

TEST_F(EngineTest, DescriptorsAreClosedOnExecAndNoReadOfThemWaits) {
    const auto descriptors = [] {
        std::map<int, std::string> found;
        for (int fd = 0; fd < 1000; ++fd) {
            std::error_code closed;
            const auto name =
                std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), closed);
            if (!closed) found[fd] = name;
        }
        return found;
    };
    const auto before = descriptors();
    start();
    std::string kinds;
    for (const auto& [fd, kind] : descriptors()) {
        if (before.count(fd)) continue;
        kinds += kind + " ";
        EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC) << kind;
        EXPECT_EQ((fcntl(fd, F_GETFL) & O_NONBLOCK) != 0, kind == "anon_inode:[eventfd]") << kind;
    }
    const std::string event = "anon_inode:[eventfd] ";
    EXPECT_EQ(kinds, "anon_inode:[eventpoll] " + event + event + event + event + event);
}

TEST_F(EngineTest, RequestIsLoggedAsItIsWhenItIsHandled) {
    start();
    const auto release = std::make_shared<CallbackRequest>();
    const auto key = std::make_shared<ForeignKey>();
    const std::shared_ptr<ClientRequest> withKey[] = {
        std::make_shared<GetRequest>(key), std::make_shared<DeleteRequest>(key),
        std::make_shared<MatchRequest>(FilterProfileParams(), key),
        std::make_shared<ModifyRequest>(ModifyProfileParams(), key)};
    for (unsigned long token = 900; token < 902; ++token) {
        release->setReleaseToken(token);
        key->text = "foreign " + std::to_string(token);
        ask(release);
        EXPECT_TRUE(log.contains(LOG_INFO, "Handling Callback Release " + std::to_string(token)));
        for (const auto& request : withKey) {
            ask(request);
            EXPECT_TRUE(log.contains(LOG_INFO, "Handling " + request->dump()));
        }
    }
}

TEST_F(EngineTest, UnanswerableRequestWaitsForTheEndOfItsEngine) {
    for (const auto type : {ReqRespType(8), REFRESH}) {
        start();
        log.clear();
        auto waiter = std::async(std::launch::async, [&] {
            return engine->processClientRequest(std::make_shared<ClientRequest>(type));
        });
        ASSERT_TRUE(log.waitFor("Handling " + nameOf(type) + " "));
        engine.reset();
        EXPECT_EQ(waiter.get(), nullptr);
    }
}

TEST_F(EngineTest, KeyOutlivesItsEngine) {
    start();
    auto key = add("net");
    engine.reset();
    log.clear();
    key->registerExpirationListener([] {});
    EXPECT_TRUE(log.contains(LOG_ERROR, "error in writing rv: -1 error: Bad file descriptor"));
    key.reset();
    EXPECT_EQ(modem.profiles().size(), 1u);
}

TEST_F(EngineTest, ListenerThatOwnsItsKeyDoesNotHangTheEngine) {
    start();
    auto key = add("net");
    const auto index = static_cast<unsigned>(key->getProfileId());
    key->registerExpirationListener([owned = key] {});
    key.reset();
    modem.deleteProfile(Tech::k3gpp, index);
    settle();
    EXPECT_EQ(log.countContaining("request refused on the engine thread: Callback Release"), 1u);
    EXPECT_TRUE(log.contains(LOG_DEBUG, "~ProfileKey"));
}

// A bug report can be had while one runs, however its profile went.
TEST_F(EngineTest, DumpDoesNotWaitForAListener) {
    start();
    const struct {
        const char* name;
        std::function<void(const std::shared_ptr<IProfileKey>&, unsigned index)> end;
    } cases[] = {
        {"deleted", [&](const auto& key, auto) { ask(std::make_shared<DeleteRequest>(key)); }},
        {"refreshed", [&](const auto&, auto) { ask(std::make_shared<RefreshRequest>(COMPLETE)); }},
        {"deleted by the modem",
         [&](const auto&, auto index) { modem.deleteProfile(Tech::k3gpp, index); }},
        {"modified by the modem",
         [&](const auto&, auto index) {
             modem.modifyProfile({Tech::k3gpp, index, {}});
         }},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const auto key = add("net");
        settle();
        std::future<void> dump;  // outlives the listener, lest that wait for its end
        std::promise<std::future_status> status;
        key->registerExpirationListener([&] {
            dump = std::async(std::launch::async, [this] { engine->dump(); });
            status.set_value(dump.wait_for(std::chrono::seconds(5)));
        });
        each.end(key, static_cast<unsigned>(key->getProfileId()));
        EXPECT_EQ(status.get_future().get(), std::future_status::ready);
        settle();
    }
}

TEST_F(EngineTest, ListenersRunBeforeTheClientIsReleasedAtTheEnd) {
    start();
    const auto key = add("net");
    unsigned clients = 0;
    key->registerExpirationListener([&] { clients = modem.counters().openClients; });
    engine.reset();
    EXPECT_EQ(clients, 1u);
}

// The caller may drop a key before the engine has let go of what it used to answer.
TEST_F(EngineTest, KeysDroppedAtOnceNeverDieOnTheEngine) {
    start();
    for (int i = 0; i < 2000; ++i) {
        auto key = add("net");
        ASSERT_NE(key, nullptr);
        if (i % 2 == 0) key->registerExpirationListener([] {});
        key.reset();
    }
    settle();
    EXPECT_EQ(modem.profiles().size(), 0u);
    EXPECT_EQ(engine->dump(), (std::vector<std::string>{"Cache:", "Pending:"}));
}

TEST_F(EngineTest, RequestThatOwnsTheLastKeyMayBeHandedOver) {
    start();
    for (int i = 0; i < 200; ++i) {
        ask(std::make_shared<ModifyRequest>(ModifyProfileParams(named("x")), add("net")));
        ask(std::make_shared<DeleteRequest>(add("net")));
    }
    settle();
    EXPECT_EQ(modem.profiles().size(), 0u);
}

TEST_F(EngineTest, ThousandEnginesBuiltAndAtOnceDestroyedLeaveNothing) {
    start();
    engine.reset();
    const Census before = Census::take();
    for (int i = 0; i < 1000; ++i) ClientRequestManager(0);
    ASSERT_TRUE(modem.waitUntilIdle());
    EXPECT_EQ(Census::settled(before), before);
    for (int fd = 0; fd < 1000; ++fd) EXPECT_FALSE(EventManager::isApprovedFd(fd)) << fd;
}

TEST_F(EngineTest, EngineMayEndWhileACallIsUnderWay) {
    for (int i = 0; i < 500; ++i) {
        start();
        auto key = add("net");
        std::thread caller([&key] { key.reset(); });
        engine.reset();
        caller.join();
        modem.reset();
        modem.setHurry(true);
    }
    EXPECT_EQ(log.countContaining("Cannot remove event handler"), 0u);
    EXPECT_EQ(log.countContaining("Error while clearing the read buffer"), 0u);
}

// A modem that has more to report whenever it is asked: its reports are worked off in turns with
// requests, and the engine can still be stopped.
TEST_F(EngineTest, ModemThatNeverStopsReportingKeepsNobodyWaiting) {
    start();
    ASSERT_TRUE(modem.createProfileAt({Tech::k3gpp, 1, {}}));
    settle();
    std::atomic<bool> endless{true};
    modem.setRequestHook([&](const softmodem::Request& request) {
        if (!endless || request.messageId != 0x002B) return;
        modem.indicate(0, 1, static_cast<uint32_t>(softmodem::Event::kModify));
        modem.waitUntilIdle();  // has it queued before the answer
    });
    modem.indicate(0, 1, static_cast<uint32_t>(softmodem::Event::kModify));
    ASSERT_TRUE(modem.waitUntilIdle());
    auto caller = std::async(std::launch::async, [&] {
        ask(std::make_shared<GetRequest>(nullptr));
        engine.reset();
    });
    EXPECT_EQ(caller.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    endless = false;
    caller.wait();
    modem.setRequestHook(nullptr);
}

}  // namespace
}  // namespace zem
