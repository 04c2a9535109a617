// The proxy in front of the software modem, its loop stepped by hand.

#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <future>

#include "Modem3gpp2Profile.h"
#include "Modem3gppProfile.h"
#include "TestPhone.h"
#include "ZapWdsProxy.h"

namespace {

// How the client library differs from the software modem's, which does the work.
struct ClientLibrary {
    bool sameHandle = false;             // every client has the handle kHandle
    zap_client_handle client = nullptr;  // the one behind kHandle
    zap_ind_cb indCb = nullptr;
    zap_client_handle notifier = nullptr;
    const zap_os_params* notifierParams = nullptr;
} library;
const auto kHandle = reinterpret_cast<zap_client_handle>(&library);

zap_client_handle real(zap_client_handle handle) {
    return handle == kHandle ? library.client : handle;
}

template <class Function>
Function* next(const char* name, Function*) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
#define NEXT(function) next(#function, &(function))

void expectCleared(const void* block, size_t size) {
    const auto* const bytes = static_cast<const unsigned char*>(block);
    EXPECT_EQ(std::count(bytes, bytes + size, 0), size);
}

// Leaves bytes for the next call's locals, which are not zero by chance then.
__attribute__((noinline)) void soilStack() {
    char bytes[40000];
    memset(bytes, 0xAA, sizeof bytes);
    __asm__ volatile("" : : "r"(bytes) : "memory");
}

}  // namespace

extern "C" {

int zap_client_notifier_init(zap_service_object service, zap_os_params* params,
                             zap_client_handle* notifier) {
    expectCleared(params, sizeof *params);
    memset(params, 0xAA, sizeof *params);
    EXPECT_EQ(softmodem::SoftModem::instance().counters().openNotifiers, 0u);
    const int result = NEXT(zap_client_notifier_init)(service, params, notifier);
    library.notifier = *notifier;
    library.notifierParams = params;
    return result;
}

int zap_client_init(zap_service_info* info, zap_service_object service, zap_ind_cb callback,
                    void* user, zap_os_params* params, zap_client_handle* client) {
    expectCleared(params, sizeof *params);
    memset(params, 0xAA, sizeof *params);
    if (!library.sameHandle)
        return NEXT(zap_client_init)(info, service, callback, user, params, client);
    library.indCb = callback;
    const auto forward = [](zap_client_handle, unsigned id, unsigned char* buffer, unsigned length,
                            void* proxy) { library.indCb(kHandle, id, buffer, length, proxy); };
    *client = kHandle;
    return NEXT(zap_client_init)(info, service, forward, user, params, &library.client);
}

int zap_client_register_error_cb(zap_client_handle client, zap_error_cb callback, void* user) {
    return NEXT(zap_client_register_error_cb)(real(client), callback, user);
}

int zap_client_send_msg_sync(zap_client_handle client, unsigned id, void* request,
                             unsigned requestLength, void* response, unsigned responseLength,
                             unsigned timeout) {
    expectCleared(response, responseLength);
    const int result = NEXT(zap_client_send_msg_sync)(real(client), id, request, requestLength,
                                                      response, responseLength, timeout);
    soilStack();
    return result;
}

int zap_client_message_decode(zap_client_handle client, zap_message_kind kind, unsigned id,
                              const void* buffer, unsigned length, void* out, unsigned outLength) {
    return NEXT(zap_client_message_decode)(real(client), kind, id, buffer, length, out, outLength);
}

int zap_client_release(zap_client_handle client) {
    if (client == library.notifier) {
        EXPECT_NE(library.notifierParams->bytes[0], 0);  // still in use
    }
    return NEXT(zap_client_release)(real(client));
}

}  // extern "C"

namespace zem {
namespace {

class ProxyTest : public PhoneTest {
  protected:
    ~ProxyTest() override {
        proxy.reset();
        library = {};
    }

    void open() {
        proxy = std::make_unique<ZapWdsProxy>(stepped.loop, 2);
        proxy->registerProfileChangedInd(
            [this](ProfileChangedInd ind) { changes.push_back(ind.dump()); });
        settle();
        changes.clear();
    }
    void settle() {
        PhoneTest::settle(log, [this] { stepped.pass(); });
    }

    SteppedLoop stepped;
    std::unique_ptr<ZapWdsProxy> proxy;
    std::vector<std::string> changes;
};

// Zeros but for the bytes named.
std::vector<uint8_t> message(size_t size, const std::vector<std::pair<size_t, uint8_t>>& bytes) {
    std::vector<uint8_t> whole(size);
    for (const auto& [offset, value] : bytes) whole[offset] = value;
    return whole;
}

TEST_F(ProxyTest, RepeatedErrorsAndServiceUpsLeakNoHandle) {
    open();
    for (int i = 0; i < 2; ++i) {
        ZapWdsProxy::zapErrorCb(nullptr, 1, proxy.get());
        stepped.pass();
        ZapWdsProxy::zapErrorCb(nullptr, 1, proxy.get());
        settle();
    }
    ZapWdsProxy::zapNotifyCb(nullptr, nullptr, ZAP_SERVICE_UP, proxy.get());
    settle();
    EXPECT_TRUE(
        log.contains("ZapWdsProxy client is already present, so skipping client initialization."));
    EXPECT_EQ(modem.counters().openClients, 1u);
    EXPECT_EQ(modem.counters().openNotifiers, 0u);
}

TEST_F(ProxyTest, IndicationsBeyond1024WaitForTheNextTurn) {
    open();
    for (unsigned i = 0; i < 1025; ++i) modem.indicate(0, 1, 3, 2);
    ASSERT_TRUE(modem.waitUntilIdle());
    stepped.pass();
    EXPECT_EQ(changes.size(), 1024u);
    stepped.pass();
    EXPECT_EQ(changes.size(), 1025u);
}

TEST_F(ProxyTest, IndicationsOfReleasedClientsAreDroppedWithoutTheirHandles) {
    const EventFd fd = EventFd::create();
    constexpr unsigned kEach = 1500;  // more than one turn of the loop handles
    for (const bool sameHandle : {false, true}) {
        SCOPED_TRACE(sameHandle);
        proxy.reset();
        library.sameHandle = sameHandle;
        open();
        log.clear();
        for (int restarts = 0; restarts < 2; ++restarts) {
            for (unsigned i = 0; i < kEach; ++i) modem.indicate(0, 1, 3, 2);
            ASSERT_TRUE(modem.waitUntilIdle());
            ZapWdsProxy::handleError(fd.get(), proxy.get());
            ZapWdsProxy::handleSvcUp(fd.get(), proxy.get());
        }
        modem.indicate(0, 2, 3, 2);
        settle();
        // The second client's own ProfileReady is among those dropped.
        EXPECT_EQ(log.count(LOG_ERROR, "Unable to decode the nr status ind message"),
                  2 * kEach + 1);
        EXPECT_EQ(changes, (std::vector<std::string>{"3GPP:0 ProfileReady", "3GPP:2 Modify"}));
        EXPECT_EQ(modem.counters().badHandles, 0u);
    }
}

// Holds the modem's thread where an indication's callback begins, and keeps the errors after it.
class HoldingWriter : public LogWriter {
  public:
    struct Hold {
        std::promise<void> entered, leave;
        std::vector<std::string> errors;
    };
    explicit HoldingWriter(Hold& hold) : hold(hold) {}

    void write(LogLevel level, std::string, std::string message) override {
        if (level == LOG_ERROR) hold.errors.push_back(message);
        if (level != LOG_VERBOSE || message.find("zapIndCb") == std::string::npos) return;
        hold.entered.set_value();
        hold.leave.get_future().wait();
    }
    int convertPrio(LogLevel) override { return 0; }

  private:
    Hold& hold;
};

TEST_F(ProxyTest, EndWaitsForACallbackThatIsUnderWay) {
    open();
    HoldingWriter::Hold hold;
    LogWrapper::getInstance().setLogWriter(std::make_unique<HoldingWriter>(hold));
    modem.indicate(0, 1, 3, 2);
    hold.entered.get_future().wait();
    auto end = std::async(std::launch::async, [this] { proxy.reset(); });
    EXPECT_EQ(end.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    hold.leave.set_value();
    end.wait();
    LogWrapper::getInstance().setLogWriter(nullptr);
    EXPECT_EQ(hold.errors, std::vector<std::string>());
}

TEST_F(ProxyTest, IdentifiersGoOutWithOneByteOfIndex) {
    open();
    static constexpr struct {
        TechType tech;
        int id;
        uint8_t type, index;
    } kCases[] = {
        {TechType::TECH_3GPP, 260, 0, 4},
        {TechType::TECH_3GPP2, 3, 1, 3},
        {TechType(9), -1, 0, 0xFF},
    };
    for (const auto& each : kCases) {
        modem.clearRequests();
        const auto bytes = message(8, {{0, each.type}, {4, each.index}});
        proxy->remove(each.tech, each.id);
        proxy->get(each.tech, each.id);
        proxy->modify(Modem3gppProfile(named("a")), each.tech, each.id);
        EXPECT_EQ(sent(0x0029), std::vector<std::vector<uint8_t>>{bytes});
        EXPECT_EQ(sent(0x002B), std::vector<std::vector<uint8_t>>{bytes});
        ASSERT_EQ(sent(0x0028).size(), 1u);
        EXPECT_EQ(memcmp(sent(0x0028)[0].data(), bytes.data(), bytes.size()), 0);
    }
    EXPECT_EQ(sent(0x002A), std::vector<std::vector<uint8_t>>{});
}

TEST_F(ProxyTest, ListOf256Aborts) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    open();
    modem.addFault({FaultKind::kListCount, 0x002A, 1, 0, 256});
    const auto list = [this] {
        logToErrorOutput();
        proxy->getAllProfiles();
    };
    EXPECT_DEATH(list(),
                 "ZEM E [^\n]* ZapWdsProxy: the modem lists more profiles than a list holds");
    proxy.reset();
}

TEST_F(ProxyTest, IndicationsDuringARequestAreOnlyQueued) {
    open();
    modem.setRequestHook([this](const softmodem::Request& request) {
        if (request.messageId == 0x0029) {
            modem.indicate(0, 1, 3, 2);
            modem.waitUntilIdle();
        }
    });
    modem.createProfileAt({Tech::k3gpp, 1, {}}, 2);
    settle();
    changes.clear();
    EXPECT_TRUE(proxy->remove(TechType::TECH_3GPP, 1));
    EXPECT_TRUE(changes.empty());
    modem.setRequestHook(nullptr);
    settle();
    EXPECT_EQ(changes, (std::vector<std::string>{"3GPP:1 Modify", "3GPP:1 Delete"}));
}

}  // namespace
}  // namespace zem
