// The software modem as its clients meet it, through the client library's own calls.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <softmodem/SoftModem.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <thread>

#include "diag_channel.h"
#include "wds_service_v01.h"

namespace softmodem {
namespace {

using namespace testing;
using E = ErrorCode;
using Bytes = std::vector<uint8_t>;
using Result = std::pair<CallError, ErrorCode>;  // what the send returned and the modem answered

const Result kDone = {};
const Result kGone = {CallError::kServiceGone, E::kNone};
const Result kTimedOut = {CallError::kTimedOut, E::kNone};

constexpr unsigned kListen = 0x03, kCreate = 0x27, kModify = 0x28, kDelete = 0x29, kList = 0x2A,
                   kGet = 0x2B, kChoose = 0xA7, kChanged = 0xA8, kBind = 0xAF;
constexpr unsigned kCreateSize = 3248, kModifySize = 3256, kGetSize = 3264, kListSize = 14292;

// Zeros but for the bytes named.
Bytes message(size_t size, std::initializer_list<std::pair<size_t, uint8_t>> bytes) {
    Bytes whole(size);
    for (const auto& [at, byte] : bytes) whole.at(at) = byte;
    return whole;
}

// A client of the modem, and what it was called for.
class Client {
  public:
    explicit Client(zap_service_info* found = nullptr) {
        zap_service_info info = {};
        EXPECT_EQ(zap_client_get_any_service(wds, &info), 0);
        EXPECT_EQ(zap_client_init(found ? found : &info, wds, onChange, this, nullptr, &handle), 0);
    }
    ~Client() { release(); }
    void release() { zap_client_release(std::exchange(handle, nullptr)); }

    // Waits so long for its answer that a test would notice.
    Result send(unsigned id, Bytes request, unsigned room = 0) {
        if (!room) room = id == kGet ? kGetSize : id == kList ? kListSize : id == kCreate ? 16 : 8;
        answer.assign(room, 0);
        const auto size = static_cast<unsigned>(request.size());
        const int sent =
            zap_client_send_msg_sync(handle, id, request.data(), size, answer.data(), room, 600000);
        EXPECT_EQ(answer[0], answer[4] ? 1 : 0);
        return {CallError{sent}, E{answer[4]}};
    }
    Result bind(uint8_t subscription) { return send(kBind, {subscription, 0, 0, 0}); }
    Result listen() { return send(kListen, message(398, {{32, 1}, {33, 1}})); }
    Result choose(uint8_t type = 0xFF, uint8_t index = 0xFF, bool own = true) {
        Bytes all = message(2052, {{0, 1}, {4, 1}, {8, type}, {12, index}, {2048, 1}, {2049, own}});
        return send(kChoose, std::move(all));
    }
    Result create(uint8_t type = 0) { return send(kCreate, message(kCreateSize, {{0, type}})); }
    // Ends with the ProfileReady that follows delivered and forgotten.
    void registerAll(uint8_t subscription = 0, uint8_t type = 0xFF, uint8_t index = 0xFF,
                     bool own = true) {
        EXPECT_EQ(bind(subscription), kDone);
        EXPECT_EQ(listen(), kDone);
        EXPECT_EQ(choose(type, index, own), kDone);
        EXPECT_THAT(takeEvents(), EndsWith("0:0 5, "));
    }
    void watchErrors() { EXPECT_EQ(zap_client_register_error_cb(handle, onError, this), 0); }

    // "TYPE:INDEX EVENT, " for each indication since the last time, as far as it can be read.
    std::string takeEvents() {
        EXPECT_TRUE(SoftModem::instance().waitUntilIdle());
        return std::exchange(events, {});
    }

    static inline const zap_service_object wds = wds_get_service_object_v01(1, 241, 6);
    zap_client_handle handle = nullptr;
    Bytes answer;
    std::function<void()> inCallback;  // before the indication is decoded
    int errors = 0;                    // their sum

  private:
    static void onChange(zap_client_handle from, unsigned id, unsigned char* bytes, unsigned size,
                         void* user) {
        auto& self = *static_cast<Client*>(user);
        if (self.inCallback) self.inCallback();
        wds_profile_changed_ind_msg_v01 decoded = {};
        const auto& change = decoded.profile_changed;
        const bool bad = zap_client_message_decode(from, ZAP_MESSAGE_INDICATION, id, bytes, size,
                                                   &decoded, sizeof decoded) != 0;
        const char* spoilt = bad ? (size ? "undecodable, " : "empty, ") : "invalid, ";
        std::ostringstream text;
        text << change.profile_type << ":" << +change.profile_index << " " << change.event << ", ";
        self.events += bad || !decoded.profile_changed_valid ? spoilt : text.str();
    }
    static void onError(zap_client_handle, int error, void* user) {
        static_cast<Client*>(user)->errors += error;
    }

    std::string events;
};

class SoftModemTest : public Test {
  protected:
    SoftModemTest() {
        client.registerAll();
        std::filesystem::create_directory(folder);
    }
    ~SoftModemTest() override {
        client.release();
        EXPECT_EQ(modem.counters().openClients + modem.counters().openNotifiers, 0u);
        modem.reset();
        std::filesystem::remove_all(folder);
    }

    static Profile named(const std::string& apn) {
        return {Tech::k3gpp, 0, {{"apn_name", apn}, {"persistent", uint64_t{1}}}};
    }

    static std::string all(std::istream&& in) { return {std::istreambuf_iterator<char>(in), {}}; }

    SoftModem& modem = SoftModem::instance();
    Client client;
    const std::string folder = TempDir() + "softmodem_test." + std::to_string(getpid());
    const std::string path = folder + "/store";
};

// Name, technologies (1: 3GPP, 2: 3GPP2, 3: both) and size (above 8: a text) of each field, and
// where create, modify and settings have its valid flag (0: nowhere); the value follows, aligned to
// its size.
const char kFields[] = R"(profile_name 1 51 4 8 8  pdp_type 1 4 56 60 60  apn_name 1 151 80 84 84
    username 1 128 400 404 404  password 1 128 529 533 533  authentication_preference 1 1 658 662 662
    apn_disabled 1 1 980 984 984  apn_class 1 1 988 992 992  persistent 3 1 2176 0 2184
    supports_emergency_calls 1 1 1000 1008 1008  max_pdn_conn_per_block 1 2 1016 1024 1024
    max_pdn_conn_timer 1 2 1020 1028 1028  pdn_req_wait_interval 1 2 1024 1032 1032
    lte_roaming_pdp_type 1 4 1042 1050 1050  umts_roaming_pdp_type 1 4 1048 1056 1056
    override_home_pdp_type 1 4 1104 1112 1112  auth_protocol_3gpp2 2 4 2216 2220 2224
    user_id_3gpp2 2 128 2224 2228 2232  password_3gpp2 2 128 2353 2357 0
    apn_string_3gpp2 2 151 2506 2510 2514  pdn_type_3gpp2 2 4 2658 2662 2666
    apn_class_3gpp2 2 1 2728 2732 2736  pdn_level_auth_protocol_3gpp2 2 4 2730 2734 0
    pdn_level_user_id_3gpp2 2 128 2736 2740 0  pdn_level_password_3gpp2 2 128 2865 2869 0
    apn_type_mask 3 8 3228 3232 3236  clat_enabled 3 1 3240 3248 3248)";

TEST_F(SoftModemTest, KeepsAndReturnsEveryFieldByteForByte) {
    ASSERT_EQ(client.bind(3), kDone);
    for (const bool is3gpp2 : {false, true}) {
        std::istringstream table(kFields);
        std::string name;
        size_t techs, size, at[3];
        while (table >> name >> techs >> size >> at[0] >> at[1] >> at[2]) {
            if ((techs & (is3gpp2 ? 2u : 1u)) == 0) continue;
            Bytes id = message(8, {{0, is3gpp2}});
            for (const bool modify : {false, true}) {
                std::string value(size > 8 ? size - 1 : size, modify ? '\xFE' : '\xFF');
                uint64_t number = 0;
                memcpy(&number, value.data(), std::min(size, sizeof number));
                Bytes request(modify ? kModifySize : kCreateSize), reply(kGetSize);
                memcpy(request.data(), id.data(), id.size());
                for (const auto& [flag, to] : {std::pair(at[modify], &request), {at[2], &reply}}) {
                    const size_t unit = size > 8 ? 1 : size;
                    if (flag == 0) continue;
                    to->at(flag) = 1;
                    memcpy(&to->at((flag / unit + 1) * unit), value.data(), value.size());
                }
                if (at[modify] == 0) continue;
                ASSERT_EQ(client.send(modify ? kModify : kCreate, request), kDone);
                if (!modify) id[4] = client.answer[12];
                EXPECT_EQ(modem.profile(Tech{is3gpp2}, id[4], 3)->fields,
                          (Fields{{name, size > 8 ? Value(value) : Value(number)}}));
                EXPECT_EQ(client.send(kGet, id), kDone);
                EXPECT_EQ(client.answer, reply);
            }
        }
    }
}

TEST_F(SoftModemTest, RefusesWhatAModemRefuses) {
    modem.createProfile(named("internet"));
    Bytes unterminated = message(kCreateSize, {{80, 1}});
    std::fill_n(&unterminated[81], 151, 'x');
    const std::tuple<E, bool, unsigned, Bytes, unsigned> cases[] = {
        {E::kNotBound, false, kList, Bytes(8), 0},
        {E::kInvalidArgument, false, kBind, {16, 0, 0, 0}, 0},
        {E::kUnknownMessage, true, kChanged, Bytes(16), 0},
        {E::kMalformedLength, true, kCreate, Bytes(kCreateSize - 1), 0},
        {E::kMalformedLength, true, kModify, Bytes(kCreateSize), 0},
        {E::kMalformedLength, true, kGet, Bytes(8), kGetSize - 1},
        {E::kMalformedLength, true, kList, Bytes(8), kListSize + 1},
        {E::kMalformedLength, true, kChoose, message(2052, {{0, 1}, {5, 1}}), 0},  // 256 events
        {E::kInvalidArgument, true, kCreate, unterminated, 0},
        {E::kInvalidArgument, true, kCreate, message(kCreateSize, {{2506, 1}}), 0},  // 3GPP2's
        {E::kInvalidProfileType, true, kCreate, message(kCreateSize, {{0, 2}}), 0},
        {E::kInvalidProfileType, true, kDelete, message(8, {{0, 7}, {4, 1}}), 0},
        {E::kInvalidProfileType, true, kList, message(8, {{0, 1}, {4, 7}}), 0},
        {E::kInvalidProfileType, true, kChoose, message(2052, {{0, 1}, {4, 1}, {8, 2}}), 0},
        {E::kInvalidIndex, true, kGet, Bytes(8), 0},
        {E::kInvalidIndex, true, kDelete, message(8, {{0, 1}, {4, 1}}), 0},
    };
    for (const auto& [error, bound, id, request, answerSize] : cases) {
        Client other;
        if (bound) other.bind(0);
        EXPECT_EQ(other.send(id, request, answerSize), Result({}, error)) << messageName(id);
        EXPECT_EQ(modem.requests().back().error, static_cast<uint32_t>(error));
    }
    EXPECT_EQ(modem.profiles().size(), 1u);
}

TEST_F(SoftModemTest, AnswersAndCountsBadHandles) {
    zap_client_handle notifier = nullptr;
    ASSERT_EQ(zap_client_notifier_init(Client::wds, nullptr, &notifier), 0);
    uint8_t raw[8] = {};
    unsigned bad = modem.counters().badHandles + 1;
    EXPECT_NE(zap_client_send_msg_sync(notifier, kBind, raw, 4, raw, 8, 1000), 0);
    EXPECT_EQ(zap_client_release(notifier), 0);
    auto* const stale = Client().handle;
    for (auto* each : {zap_client_handle{}, stale, notifier}) {
        EXPECT_NE(zap_client_send_msg_sync(each, kBind, raw, 4, raw, 8, 1000), 0);
        EXPECT_NE(zap_client_message_decode(each, ZAP_MESSAGE_INDICATION, kChanged, raw, 8, raw, 8),
                  0);
        EXPECT_NE(zap_client_register_error_cb(each, nullptr, nullptr), 0);
        EXPECT_NE(zap_client_release(each), 0);
        EXPECT_EQ(modem.counters().badHandles, bad += 4);
    }
    EXPECT_NE(Client().handle, stale);
    EXPECT_EQ(wds_get_service_object_v01(1, 242, 6), nullptr);
}

TEST_F(SoftModemTest, IndicatesToThoseWhoWantItAndToNoOther) {
    Client first3gpp, all3gpp2, elsewhere, far, notOwn, unbound, deaf, listless;
    first3gpp.registerAll(0, 0, 1);
    all3gpp2.registerAll(0, 1);
    elsewhere.registerAll(1);
    far.registerAll(2);
    notOwn.registerAll(0, 0xFF, 0xFF, false);
    for (Client* each : {&deaf, &listless}) EXPECT_EQ(each->bind(0), kDone);
    EXPECT_EQ(deaf.choose(), kDone);
    EXPECT_EQ(listless.listen(), kDone);

    EXPECT_EQ(modem.createProfile(named("behind its back")), 1u);
    EXPECT_EQ(modem.createProfileAt({Tech::k3gpp, 9}), 9u);
    EXPECT_EQ(notOwn.create(1), kDone);
    EXPECT_EQ(modem.createProfile({Tech::k3gpp2}, 1), 0u);
    EXPECT_EQ(client.send(kModify, message(kModifySize, {{4, 9}})), kDone);
    EXPECT_EQ(client.send(kDelete, message(8, {{4, 9}})), kDone);
    EXPECT_NE(client.send(kDelete, message(8, {{4, 9}})), kDone);
    modem.indicate(7, 255, 0);

    const std::string first = "0:1 1, 0:1 3, ", ninth = "0:9 1, 0:9 3, ", other = "1:0 1, 1:0 3, ",
                      last = "0:9 3, 0:9 2, ", odd = "7:255 0, ";
    EXPECT_EQ(client.takeEvents(), first + ninth + other + last + odd);
    EXPECT_EQ(first3gpp.takeEvents(), first + odd);
    EXPECT_EQ(all3gpp2.takeEvents(), other + odd);
    EXPECT_EQ(elsewhere.takeEvents(), other);
    EXPECT_EQ(notOwn.takeEvents(), first + ninth + last + odd);

    modem.swapSubscriptions(0, 1);
    for (Client* each : {&client, &elsewhere}) EXPECT_EQ(each->takeEvents(), "0:0 4, ");
    for (Client* each : {&far, &unbound, &deaf, &listless}) EXPECT_EQ(each->takeEvents(), "");
    EXPECT_TRUE(modem.profile(Tech::k3gpp, 1, 1));
    EXPECT_THROW(modem.swapSubscriptions(0, 16), std::out_of_range);
}

TEST_F(SoftModemTest, RestartForgetsTransientProfilesAndOldClients) {
    std::string heard;
    const auto hear = [](auto, auto, auto event, void* user) {
        *static_cast<std::string*>(user) += event == ZAP_SERVICE_UP ? "up " : "down ";
    };
    zap_client_handle notifier = nullptr;
    ASSERT_EQ(zap_client_notifier_init(Client::wds, nullptr, &notifier), 0);
    EXPECT_EQ(zap_client_register_notify_cb(notifier, hear, &heard), 0);
    client.watchErrors();
    modem.createProfile({Tech::k3gpp});
    modem.createProfile(named("kept"));
    client.takeEvents();
    zap_service_info before;
    EXPECT_EQ(zap_client_get_any_service(Client::wds, &before), 0);
    modem.goDown();
    EXPECT_EQ(client.send(kList, Bytes(8)), kGone);
    EXPECT_NE(zap_client_get_any_service(Client::wds, &before), 0);
    modem.comeUp();
    EXPECT_EQ(client.bind(0), kGone);
    EXPECT_FALSE(modem.profile(Tech::k3gpp, 1));

    Client next, late(&before);  // late: opened between a service found and a service lost
    next.registerAll();
    late.watchErrors();
    EXPECT_TRUE(modem.deleteProfile(Tech::k3gpp, 2));
    EXPECT_EQ(next.takeEvents(), "0:2 2, ");
    EXPECT_EQ(client.takeEvents(), "");
    EXPECT_EQ(CallError{client.errors}, CallError::kServiceGone);
    EXPECT_EQ(CallError{late.errors}, CallError::kServiceGone);
    EXPECT_EQ(zap_client_release(notifier), 0);
    EXPECT_EQ(heard, "up down up ");
}

TEST_F(SoftModemTest, ReleaseWaitsForTheCallbackThatRuns) {
    std::promise<void> entered, leave;
    bool left = false;
    client.inCallback = [&] {
        entered.set_value();
        leave.get_future().wait();
        left = true;
    };
    modem.indicate(0, 1, 3);
    modem.indicate(0, 1, 3);
    entered.get_future().wait();
    EXPECT_EQ(client.send(kList, Bytes(8)), kDone);  // the modem goes on meanwhile
    auto released = std::async(std::launch::async, [&] {
        client.release();
        return left;
    });
    while (modem.counters().openClients > 0) std::this_thread::yield();
    EXPECT_FALSE(modem.waitUntilIdle(std::chrono::milliseconds(0)));
    leave.set_value();
    EXPECT_TRUE(released.get());
    EXPECT_EQ(client.takeEvents(), "0:1 3, ");
}

TEST_F(SoftModemTest, ClientMayReleaseItselfAndSendInsideItsCallback) {
    client.inCallback = [&] {
        EXPECT_EQ(client.send(kList, Bytes(8)), kDone);
        client.release();
    };
    modem.createProfile(named("internet"));
    EXPECT_EQ(client.takeEvents(), "0:1 1, ");
}

TEST_F(SoftModemTest, FaultsSpoilTheIndicationsOfOneRequest) {
    for (const auto& [kind, events] : {
             std::pair(FaultKind::kLoseIndication, ""),
             {FaultKind::kRepeatIndication, "0:1 1, 0:1 1, 0:1 3, 0:1 3, "},
             {FaultKind::kReorderIndications, "0:1 3, 0:1 1, "},
             {FaultKind::kUndecodableIndication, "undecodable, undecodable, "},
             {FaultKind::kEmptyIndication, "empty, empty, "},
             {FaultKind::kInvalidIndication, "invalid, invalid, "},
             {FaultKind::kDelayIndication, ""},
         }) {
        modem.reset();
        client.registerAll();
        modem.addFault({kind, kCreate});
        EXPECT_EQ(client.create(), kDone);
        EXPECT_EQ(client.takeEvents(), events);
        EXPECT_EQ(client.create(), kDone);
        EXPECT_EQ(client.takeEvents(), "0:2 1, 0:2 3, ");
        modem.releaseIndications();
        EXPECT_EQ(client.takeEvents(), kind == FaultKind::kDelayIndication ? "0:1 1, 0:1 3, " : "");
    }
    modem.addFault({FaultKind::kLoseIndication, kChanged});
    modem.indicate(0, 1, 3);
    modem.indicateRaw(kChanged, {0x10, 0xFF, 0xFF});
    modem.indicateRaw(0x0001, {1});
    EXPECT_EQ(client.takeEvents(), "undecodable, undecodable, ");
}

TEST_F(SoftModemTest, FaultsStrikeTheRequestsThatTheyAreMeantFor) {
    modem.setHurry(true);
    modem.addFault({FaultKind::kRefuse, kCreate, 2, 1, 77});
    modem.addFault({FaultKind::kRefuse});
    modem.addFault({FaultKind::kTimeOut, kCreate, 1, 4});
    modem.addFault({FaultKind::kSendError, kCreate, 1, 5});
    modem.addFault({FaultKind::kGoDown, kCreate, 1, 6});
    const Result internal({}, E::kInternal), refused({}, E{77}), failed(CallError::kSendFailed, {});
    for (const auto& result : {internal, refused, refused, kDone, kTimedOut, failed, kGone}) {
        EXPECT_EQ(client.create(), result);
    }
    EXPECT_FALSE(modem.isUp());
    EXPECT_EQ(modem.profiles().size(), 2u);  // one done, one done though its send failed
}

TEST_F(SoftModemTest, FaultsSpoilResponses) {
    const Fields set = {{"apn_name", "a"}, {"pdp_type", uint64_t{3}}, {"apn_class", uint64_t{1}}};
    modem.createProfile({Tech::k3gpp, 0, set});
    const auto bytesAnswered = [&](unsigned id, uint8_t byte) {
        EXPECT_EQ(client.send(id, message(8, {{4, id == kGet}})), kDone);
        return std::count(client.answer.begin(), client.answer.end(), byte);
    };
    modem.addFault({FaultKind::kUnterminatedStrings, 0, 2});
    EXPECT_EQ(bytesAnswered(kGet, '~'), 150);
    EXPECT_EQ(client.answer[85], 'a');
    modem.addFault({FaultKind::kListCount, kList, 1, 0, 0x7E7E});  // '~' twice
    EXPECT_EQ(bytesAnswered(kList, '~'), 51 + 2);
    modem.addFault({FaultKind::kUnknownEnums, kGet, 1, 0, 0xFFFFFFFF});
    EXPECT_EQ(bytesAnswered(kGet, 0xFF), 5);
    EXPECT_EQ(client.answer[64] & client.answer[67] & client.answer[993], 0xFF);
}

// Each of them ends a wait of ten minutes.
TEST_F(SoftModemTest, RequestThatWaitsEndsAtOnceWhenThingsChange) {
    const std::tuple<bool, void (*)(SoftModem&, Client&), Result> cases[] = {
        {false, [](SoftModem& m, Client&) { m.restart(); }, kGone},
        {false, [](SoftModem& m, Client&) { m.setHurry(true); }, kTimedOut},
        {true, [](SoftModem& m, Client&) { m.restart(); }, kGone},
        {true, [](SoftModem& m, Client&) { m.setHurry(true); }, kTimedOut},
        {false, [](SoftModem&, Client& c) { zap_client_release(c.handle); }, kGone},
    };
    for (const auto& [slow, change, expected] : cases) {
        modem.reset();
        Client other;
        modem.setLatency(std::chrono::hours(slow ? 1 : 0));
        if (!slow) modem.addFault({FaultKind::kTimeOut});
        std::promise<void> asked;
        modem.setRequestHook([&](const Request&) { asked.set_value(); });
        auto result = std::async(std::launch::async, [&] { return other.bind(0); });
        asked.get_future().wait();
        change(modem, other);
        EXPECT_EQ(result.get(), expected);
    }
}

TEST_F(SoftModemTest, ShowsRequestsFieldByField) {
    EXPECT_EQ(client.bind(2), kDone);
    Bytes create = message(kCreateSize, {{56, 1}, {60, 3}, {80, 1}, {3228, 1}, {3239, 0x80}});
    memcpy(&create[81], "a\n\"b", 4);
    EXPECT_EQ(client.send(kCreate, create), kDone);
    EXPECT_EQ(modem.requests().back().subscription, 2u);
    EXPECT_THAT(describe(modem.requests().back()),
                ElementsAre("profile_type=3gpp", "pdp_type=ipv4v6", "apn_name=a\\x0a\\\"b",
                            "apn_type_mask=0x8000000000000000"));
}

TEST_F(SoftModemTest, DiagChannelTrustsNoFormat) {
    const diag_message message = {116, 63, 4, "|%s| %d %s %s", "file"};
    diag_open(0);
    diag_emit(&message, "ZEM", "100%n");
    diag_close();
    EXPECT_EQ(modem.diagLines().at(0).text, "|ZEM| %d 100%n %s");
}

TEST_F(SoftModemTest, EveryByteSurvives) {
    std::string nasty;
    for (int byte = 1; byte < 256; ++byte) nasty += static_cast<char>(byte);
    const Fields hard = {{"apn_name", " "}, {"profile_name", ""}, {"username", "#[=\"\\x41"}};
    const Fields full = {{"pdn_level_password_3gpp2", nasty.substr(0, 127)},
                         {"user_id_3gpp2", nasty.substr(127, 127)},
                         {"pdn_type_3gpp2", uint64_t{0xFFFFFFFF}},
                         {"apn_type_mask", UINT64_MAX}};
    modem.createProfile({Tech::k3gpp, 0, hard}, 14);
    modem.createProfile({Tech::k3gpp2, 0, full}, 15);
    modem.save(path);
    modem.reset();
    client.registerAll(15);
    modem.load(path);
    EXPECT_EQ(client.takeEvents(), "0:0 5, ");
    EXPECT_EQ(modem.profiles(14).at(0).fields, hard);
    EXPECT_EQ(modem.profiles(15).at(0).fields, full);
}

TEST_F(SoftModemTest, ReadsWhatAPersonWrites) {
    std::ofstream(path) << "# mine\r\n\n softmodem-profiles 1\n[ subscription 1  3gpp 0x10 ]\n"
                           "\tapn_name=internet\npdp_type = ipv4v6\nlte_roaming_pdp_type = 255\n"
                           "username = \"a\\tb\"\n[subscription 0 3gpp2 0]";
    modem.load(path);
    EXPECT_THAT(describe(modem.profile(Tech::k3gpp, 16, 1).value()),
                ElementsAre("pdp_type=ipv4v6", "apn_name=internet", "username=a\\x09b",
                            "lte_roaming_pdp_type=not_set"));
    EXPECT_TRUE(modem.profile(Tech::k3gpp2, 0));
}

TEST_F(SoftModemTest, RefusesABrokenFileByItsLastLineAndChangesNothing) {
    const std::string head = "softmodem-profiles 1\n[subscription 0 3gpp 1]\n";
    std::vector<std::string> texts = {"", "softmodem-profiles 2",
                                      "softmodem-profiles 1\npdp_type = 1"};
    std::istringstream behindHead(
        R"(nonsense = 1;user_id_3gpp2 = "x";apn_class = 256;apn_class = -1;
        max_pdn_conn_timer = 65536;apn_type_mask = 0x10000000000000000;pdp_type = v4;
        pdp_type;pdp_type =;pdp_type = 0x;pdp_type = 1
        pdp_type = 1;profile_name = 123456789012345678901234567890123456789012345678901;
        apn_name = a\b;apn_name = "x;apn_name = "x\;apn_name = "x" y;apn_name = "\x4";
        apn_name = "\x00";[subscription 0 3gpp 1];[subscription 0 3gpp 0];[subscription 0 3gpp];
        [subscription 0 3gpp2 255];[subscription 0 3gpp 4294967297];[subscription 16 3gpp 1];
        [subscription 0 4gpp 1];[subscription 0 3gpp 2 3];[)");
    for (std::string text; std::getline(behindHead, text, ';');) texts.push_back(head + text);
    modem.createProfile(named("here before"));
    for (const std::string& text : texts) {
        std::ofstream(path) << text;
        const auto line = std::to_string(1 + std::count(text.begin(), text.end(), '\n'));
        EXPECT_THAT([&] { modem.load(path); },
                    ThrowsMessage<std::runtime_error>(StartsWith(path + ":" + line + ": ")));
    }
    EXPECT_THROW(modem.load(folder), std::runtime_error);
    EXPECT_THROW(modem.load(path + ".none"), std::runtime_error);
    EXPECT_EQ(modem.profiles().size(), 1u);
}

TEST_F(SoftModemTest, SaveReplacesTheFileAsAWholeOrNotAtAll) {
    modem.save(path);
    const std::string old = all(std::ifstream(path));
    for (int i = 0; i < 99; ++i) modem.createProfile(named(std::string(150, 'x')));
    rlimit limit;
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit small = {4096, limit.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    EXPECT_THAT([&] { modem.save(path); },
                ThrowsMessage<std::runtime_error>(StartsWith(path + ": cannot write")));
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(all(std::ifstream(path)), old);
    EXPECT_THROW(modem.save(folder + "/none/store"), std::runtime_error);

    std::ifstream reader(path);  // of the old file while the new one takes its place
    modem.save(path);
    EXPECT_EQ(all(std::move(reader)), old);
    const std::filesystem::directory_iterator files(folder);
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

}  // namespace
}  // namespace softmodem
