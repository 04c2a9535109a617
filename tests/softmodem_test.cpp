// The software modem as its clients meet it, through the client library's own calls.
#include <gtest/gtest.h>
#include <softmodem/SoftModem.h>
#include <sys/resource.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <mutex>
#include <sstream>
#include <thread>

#include "diag_channel.h"
#include "wds_service_v01.h"

namespace softmodem {
namespace {

using Bytes = std::vector<uint8_t>;
using Result = std::pair<int, uint32_t>;  // what the send returned, and the error answered

constexpr unsigned kSlowTimeoutMs = 600000;  // one that a test would notice

zap_service_object wds() {
    return wds_get_service_object_v01(1, 241, 6);
}

Result failed(CallError error) {
    return {static_cast<int>(error), 0};
}
Result refused(ErrorCode error) {
    return {0, static_cast<uint32_t>(error)};
}
const Result kDone = {0, 0};

// A client of the modem, and what it was called for.
class Client {
  public:
    explicit Client(const zap_service_info& info = currentService()) {
        auto service = info;
        EXPECT_EQ(zap_client_init(&service, wds(), onIndication, this, nullptr, &handle), 0);
    }
    ~Client() { release(); }

    static zap_service_info currentService() {
        zap_service_info info = {};
        EXPECT_EQ(zap_client_get_any_service(wds(), &info), 0);
        return info;
    }

    void release() {
        if (handle) zap_client_release(handle);
        handle = nullptr;
    }

    void watchErrors() { EXPECT_EQ(zap_client_register_error_cb(handle, onError, this), 0); }

    Result sendBytes(unsigned id, Bytes request, size_t responseSize, Bytes* response = nullptr,
                     unsigned timeoutMs = kSlowTimeoutMs) {
        Bytes answer(responseSize);
        const int sent = zap_client_send_msg_sync(
            handle, id, request.data(), static_cast<unsigned>(request.size()), answer.data(),
            static_cast<unsigned>(answer.size()), timeoutMs);
        uint32_t result[2] = {0, 0};
        if (answer.size() >= sizeof result) memcpy(result, answer.data(), sizeof result);
        EXPECT_EQ(result[0] != 0, result[1] != 0);
        if (response) *response = std::move(answer);
        return {sent, result[1]};
    }

    template <class Response = wds_result_resp_msg_v01, class Message>
    Result send(unsigned id, const Message& request, Response* response = nullptr) {
        Bytes bytes(sizeof request), answer;
        memcpy(bytes.data(), &request, sizeof request);
        const Result result = sendBytes(id, bytes, sizeof(Response), &answer);
        if (response) memcpy(response, answer.data(), sizeof *response);
        return result;
    }

    Result bind(uint32_t subscription) {
        return send(ZAP_WDS_BIND_SUBSCRIPTION_REQ_V01,
                    wds_bind_subscription_req_msg_v01{subscription});
    }
    Result listen() {
        wds_indication_register_req_msg_v01 request = {};
        request.report_profile_changes_valid = request.report_profile_changes = 1;
        return send(ZAP_WDS_INDICATION_REGISTER_REQ_V01, request);
    }
    Result choose(uint32_t type = 0xFF, uint8_t index = 0xFF, bool own = true) {
        wds_configure_profile_event_list_req_msg_v01 request = {};
        request.events_valid = 1;
        request.events_len = 1;
        request.events[0].profile_type = static_cast<wds_profile_type_enum_v01>(type);
        request.events[0].profile_index = index;
        request.report_own_changes_valid = 1;
        request.report_own_changes = own;
        return send(ZAP_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01, request);
    }
    // Ends with the ProfileReady that follows delivered and forgotten.
    void registerAll(uint32_t subscription = 0, uint32_t type = 0xFF, uint8_t index = 0xFF,
                     bool own = true) {
        EXPECT_EQ(bind(subscription), kDone);
        EXPECT_EQ(listen(), kDone);
        EXPECT_EQ(choose(type, index, own), kDone);
        EXPECT_EQ(takeEvents(), "3gpp:0 5");
    }

    // "3gpp:1 1" for each indication since the last time, as far as it can be read.
    std::string takeEvents() {
        EXPECT_TRUE(SoftModem::instance().waitUntilIdle());
        const std::lock_guard<std::mutex> lock(mutex);
        return std::exchange(events, {});
    }

    zap_client_handle handle = nullptr;
    std::function<void()> inCallback;
    std::atomic<int> errors{0};

  private:
    static void onIndication(zap_client_handle from, unsigned id, unsigned char* bytes,
                             unsigned size, void* user) {
        auto& self = *static_cast<Client*>(user);
        wds_profile_changed_ind_msg_v01 message = {};
        std::ostringstream text;
        if (size == 0) {
            text << "empty";
        } else if (zap_client_message_decode(from, ZAP_MESSAGE_INDICATION, id, bytes, size,
                                             &message, sizeof message) != 0) {
            text << "undecodable";
        } else if (!message.profile_changed_valid) {
            text << "invalid";
        } else {
            const auto& change = message.profile_changed;
            text << (change.profile_type == 0   ? "3gpp"
                     : change.profile_type == 1 ? "3gpp2"
                                                : std::to_string(change.profile_type))
                 << ":" << +change.profile_index << " " << change.event;
        }
        {
            const std::lock_guard<std::mutex> lock(self.mutex);
            if (!self.events.empty()) self.events += ", ";
            self.events += text.str();
        }
        if (self.inCallback) self.inCallback();
    }
    static void onError(zap_client_handle, int error, void* user) {
        EXPECT_EQ(error, static_cast<int>(CallError::kServiceGone));
        ++static_cast<Client*>(user)->errors;
    }

    std::mutex mutex;
    std::string events;
};

wds_profile_identifier_type_v01 profileId(Tech tech, unsigned index) {
    wds_profile_identifier_type_v01 id = {};
    id.profile_type = static_cast<wds_profile_type_enum_v01>(tech);
    id.profile_index = static_cast<uint8_t>(index);
    return id;
}

class SoftModemTest : public testing::Test {
  protected:
    SoftModemTest() : modem(SoftModem::instance()) { modem.reset(); }
    ~SoftModemTest() override {
        EXPECT_EQ(modem.counters().openClients, 0u);
        EXPECT_EQ(modem.counters().openNotifiers, 0u);
    }

    static Profile named(const std::string& apn) {
        return {Tech::k3gpp, 0, {{"apn_name", apn}, {"persistent", uint64_t{1}}}};
    }

    SoftModem& modem;
};

// Where each field stands in each message; 0: nowhere.
struct Place {
    const char* name;
    bool is3gpp, is3gpp2;
    bool isText;
    size_t size;
    size_t create[2], modify[2], settings[2];
};

const Place kPlaces[] = {
    {"profile_name", true, false, true, 51, {4, 5}, {8, 9}, {8, 9}},
    {"pdp_type", true, false, false, 4, {56, 60}, {60, 64}, {60, 64}},
    {"apn_name", true, false, true, 151, {80, 81}, {84, 85}, {84, 85}},
    {"username", true, false, true, 128, {400, 401}, {404, 405}, {404, 405}},
    {"password", true, false, true, 128, {529, 530}, {533, 534}, {533, 534}},
    {"authentication_preference", true, false, false, 1, {658, 659}, {662, 663}, {662, 663}},
    {"apn_disabled", true, false, false, 1, {980, 981}, {984, 985}, {984, 985}},
    {"apn_class", true, false, false, 1, {988, 989}, {992, 993}, {992, 993}},
    {"supports_emergency_calls", true, false, false, 1, {1000, 1001}, {1008, 1009}, {1008, 1009}},
    {"max_pdn_conn_per_block", true, false, false, 2, {1016, 1018}, {1024, 1026}, {1024, 1026}},
    {"max_pdn_conn_timer", true, false, false, 2, {1020, 1022}, {1028, 1030}, {1028, 1030}},
    {"pdn_req_wait_interval", true, false, false, 2, {1024, 1026}, {1032, 1034}, {1032, 1034}},
    {"lte_roaming_pdp_type", true, false, false, 4, {1042, 1044}, {1050, 1052}, {1050, 1052}},
    {"umts_roaming_pdp_type", true, false, false, 4, {1048, 1052}, {1056, 1060}, {1056, 1060}},
    {"override_home_pdp_type", true, false, false, 4, {1104, 1108}, {1112, 1116}, {1112, 1116}},
    {"persistent", true, true, false, 1, {2176, 2177}, {0, 0}, {2184, 2185}},
    {"auth_protocol_3gpp2", false, true, false, 4, {2216, 2220}, {2220, 2224}, {2224, 2228}},
    {"user_id_3gpp2", false, true, true, 128, {2224, 2225}, {2228, 2229}, {2232, 2233}},
    {"password_3gpp2", false, true, true, 128, {2353, 2354}, {2357, 2358}, {0, 0}},
    {"apn_string_3gpp2", false, true, true, 151, {2506, 2507}, {2510, 2511}, {2514, 2515}},
    {"pdn_type_3gpp2", false, true, false, 4, {2658, 2660}, {2662, 2664}, {2666, 2668}},
    {"apn_class_3gpp2", false, true, false, 1, {2728, 2729}, {2732, 2733}, {2736, 2737}},
    {"pdn_level_auth_protocol_3gpp2", false, true, false, 4, {2730, 2732}, {2734, 2736}, {0, 0}},
    {"pdn_level_user_id_3gpp2", false, true, true, 128, {2736, 2737}, {2740, 2741}, {0, 0}},
    {"pdn_level_password_3gpp2", false, true, true, 128, {2865, 2866}, {2869, 2870}, {0, 0}},
    {"apn_type_mask", true, true, false, 8, {3228, 3232}, {3232, 3240}, {3236, 3240}},
    {"clat_enabled", true, true, false, 1, {3240, 3241}, {3248, 3249}, {3248, 3249}},
};

// The largest value a field holds, counting down.
Value valueFor(const Place& place, unsigned less) {
    if (place.isText) return std::string(place.size - 1 - less, '\xE9');
    return UINT64_MAX >> (64 - 8 * place.size) & ~uint64_t{less};
}

void put(const Place& place, const size_t (&at)[2], const Value& value, Bytes& message) {
    message.at(at[0]) = 1;
    if (const auto* text = std::get_if<std::string>(&value))
        memcpy(&message.at(at[1]), text->data(), text->size());
    else
        memcpy(&message.at(at[1]), &std::get<uint64_t>(value), place.size);
}

TEST_F(SoftModemTest, KeepsAndReturnsEveryFieldByteForByte) {
    Client client;
    ASSERT_EQ(client.bind(3), kDone);
    for (const Tech tech : {Tech::k3gpp, Tech::k3gpp2}) {
        std::vector<std::string> names;
        for (const Place& place : kPlaces) {
            if (!(tech == Tech::k3gpp ? place.is3gpp : place.is3gpp2)) continue;
            SCOPED_TRACE(place.name);
            names.emplace_back(place.name);

            Bytes create(3248), response, settings, expected(3264);
            create[0] = static_cast<uint8_t>(tech);
            put(place, place.create, valueFor(place, 0), create);
            ASSERT_EQ(client.sendBytes(0x0027, create, 16, &response), kDone);
            const uint8_t index = response[12];
            EXPECT_EQ(modem.profile(tech, index, 3)->fields,
                      (Fields{{place.name, valueFor(place, 0)}}));
            if (place.settings[1]) put(place, place.settings, valueFor(place, 0), expected);
            const Bytes identifier = {static_cast<uint8_t>(tech), 0, 0, 0, index, 0, 0, 0};
            ASSERT_EQ(client.sendBytes(0x002B, identifier, 3264, &settings), kDone);
            EXPECT_EQ(settings, expected);
            if (!place.modify[1]) continue;

            Bytes modify(3256), changed(3264);
            memcpy(modify.data(), identifier.data(), identifier.size());
            put(place, place.modify, valueFor(place, 1), modify);
            ASSERT_EQ(client.sendBytes(0x0028, modify, 8), kDone);
            EXPECT_EQ(modem.profile(tech, index, 3)->fields,
                      (Fields{{place.name, valueFor(place, 1)}}));
            if (place.settings[1]) put(place, place.settings, valueFor(place, 1), changed);
            ASSERT_EQ(client.sendBytes(0x002B, identifier, 3264, &settings), kDone);
            EXPECT_EQ(settings, changed);
        }
        EXPECT_EQ(fieldNames(tech), names);
    }
}

TEST_F(SoftModemTest, RefusesWhatAModemRefuses) {
    modem.createProfile(named("internet"));
    Bytes unterminated(3248), otherTech(3248), unknownType(3248), longList(2052), oddList(2052);
    unterminated[80] = 1;
    std::fill_n(&unterminated[81], 151, 'x');
    otherTech[2506] = 1;
    unknownType[0] = 2;
    longList[0] = longList[5] = 1;
    oddList[0] = oddList[4] = 1;
    oddList[8] = 2;
    const Bytes type7 = {7, 0, 0, 0, 1, 0, 0, 0}, listOf7 = {1, 0, 0, 0, 7, 0, 0, 0};
    const Bytes first3gpp2 = {1, 0, 0, 0, 1, 0, 0, 0};
    using E = ErrorCode;
    const struct {
        const char* what;
        bool bound;
        unsigned id;
        Bytes request;
        size_t responseSize;
        ErrorCode error;
    } cases[] = {
        {"before bind", false, 0x002A, Bytes(8), 14292, E::kNotBound},
        {"registering before bind", false, 0x0003, Bytes(398), 8, E::kNotBound},
        {"subscription 16", false, 0x00AF, {16, 0, 0, 0}, 8, E::kInvalidArgument},
        {"unknown message", true, 0x0999, Bytes(4), 8, E::kUnknownMessage},
        {"indication as request", true, 0x00A8, Bytes(16), 8, E::kUnknownMessage},
        {"short create", true, 0x0027, Bytes(3247), 16, E::kMalformedLength},
        {"modify of create's size", true, 0x0028, Bytes(3248), 8, E::kMalformedLength},
        {"short response", true, 0x002B, Bytes(8), 3263, E::kMalformedLength},
        {"long response", true, 0x002A, Bytes(8), 14293, E::kMalformedLength},
        {"text without end", true, 0x0027, unterminated, 16, E::kInvalidArgument},
        {"other technology", true, 0x0027, otherTech, 16, E::kInvalidArgument},
        {"create of type 2", true, 0x0027, unknownType, 16, E::kInvalidProfileType},
        {"delete of type 7", true, 0x0029, type7, 8, E::kInvalidProfileType},
        {"list of type 7", true, 0x002A, listOf7, 14292, E::kInvalidProfileType},
        {"settings of index 0", true, 0x002B, Bytes(8), 3264, E::kInvalidIndex},
        {"delete in other store", true, 0x0029, first3gpp2, 8, E::kInvalidIndex},
        {"256 events", true, 0x00A7, longList, 8, E::kMalformedLength},
        {"event of type 2", true, 0x00A7, oddList, 8, E::kInvalidProfileType},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        Client client;
        if (each.bound) {
            ASSERT_EQ(client.bind(0), kDone);
        }
        EXPECT_EQ(client.sendBytes(each.id, each.request, each.responseSize), refused(each.error));
        EXPECT_EQ(modem.requests().back().error, static_cast<uint32_t>(each.error));
    }
    EXPECT_EQ(modem.profiles().size(), 1u);
}

TEST_F(SoftModemTest, StoreHolds255AndFillsTheLowestGap) {
    Client client;
    ASSERT_EQ(client.bind(0), kDone);
    for (const Tech tech : {Tech::k3gpp, Tech::k3gpp2}) {
        const unsigned first = tech == Tech::k3gpp ? 1 : 0;
        for (unsigned i = 0; i < 255; ++i) ASSERT_EQ(modem.createProfile({tech}), first + i);
        EXPECT_EQ(modem.createProfile({tech}), std::nullopt);
        wds_create_profile_req_msg_v01 create = {};
        create.profile_type = static_cast<wds_profile_type_enum_v01>(tech);
        wds_create_profile_resp_msg_v01 created;
        EXPECT_EQ(client.send(0x0027, create, &created), refused(ErrorCode::kFull));

        const wds_delete_profile_req_msg_v01 remove = {profileId(tech, 77)};
        ASSERT_EQ(client.send(0x0029, remove), kDone);
        EXPECT_EQ(client.send(0x0029, remove), refused(ErrorCode::kInvalidIndex));
        ASSERT_EQ(client.send(0x0027, create, &created), kDone);
        EXPECT_EQ(created.profile.profile_index, 77);

        wds_get_profile_list_req_msg_v01 request = {1, create.profile_type};
        wds_get_profile_list_resp_msg_v01 list;
        ASSERT_EQ(client.send(0x002A, request, &list), kDone);
        ASSERT_EQ(list.profile_list_len, 255u);
        for (unsigned i = 0; i < 255; ++i) {
            EXPECT_EQ(list.profile_list[i].profile_type, create.profile_type);
            EXPECT_EQ(list.profile_list[i].profile_index, first + i);
        }
    }
}

TEST_F(SoftModemTest, AnswersAndCountsBadHandles) {
    Client released;
    auto* stale = released.handle;
    released.release();
    zap_client_handle notifier = nullptr;
    ASSERT_EQ(zap_client_notifier_init(wds(), nullptr, &notifier), 0);
    const auto ignoreError = [](zap_client_handle, int, void*) {};
    unsigned bad = 0;
    uint8_t bytes[8] = {};
    for (auto* handle : {zap_client_handle{}, stale, reinterpret_cast<zap_client_handle>(bytes)}) {
        EXPECT_NE(zap_client_send_msg_sync(handle, 0x00AF, bytes, 4, bytes, 8, 1000), 0);
        EXPECT_NE(
            zap_client_message_decode(handle, ZAP_MESSAGE_INDICATION, 0x00A8, bytes, 8, bytes, 8),
            0);
        EXPECT_NE(zap_client_register_error_cb(handle, ignoreError, nullptr), 0);
        EXPECT_NE(zap_client_release(handle), 0);
        EXPECT_EQ(modem.counters().badHandles, bad += 4);
    }
    EXPECT_NE(zap_client_send_msg_sync(notifier, 0x00AF, bytes, 4, bytes, 8, 1000), 0);
    Client next;
    EXPECT_NE(next.handle, stale);
    EXPECT_EQ(zap_client_release(notifier), 0);
    EXPECT_EQ(wds_get_service_object_v01(1, 242, 6), nullptr);
}

TEST_F(SoftModemTest, EchoesEachChangeOfAClient) {
    Client client;
    client.registerAll();
    ASSERT_EQ(client.sendBytes(0x0027, Bytes(3248), 16), kDone);
    EXPECT_EQ(client.takeEvents(), "3gpp:1 1, 3gpp:1 3");
    const wds_delete_profile_req_msg_v01 id = {profileId(Tech::k3gpp, 1)};
    wds_modify_profile_settings_req_msg_v01 modify = {};
    modify.profile = id.profile;
    ASSERT_EQ(client.send(0x0028, modify), kDone);
    EXPECT_EQ(client.takeEvents(), "3gpp:1 3");
    ASSERT_EQ(client.send(0x0029, id), kDone);
    EXPECT_EQ(client.takeEvents(), "3gpp:1 2");
    EXPECT_NE(client.send(0x0029, id), kDone);
    EXPECT_EQ(client.takeEvents(), "");
}

TEST_F(SoftModemTest, IndicatesToThoseWhoWantItAndToNoOther) {
    Client every, first3gpp, all3gpp2, elsewhere, notOwn, unbound, deaf, listless;
    every.registerAll();
    first3gpp.registerAll(0, 0, 1);
    all3gpp2.registerAll(0, 1);
    elsewhere.registerAll(1);
    notOwn.registerAll(0, 0xFF, 0xFF, false);
    ASSERT_EQ(deaf.bind(0), kDone);
    ASSERT_EQ(deaf.choose(), kDone);
    ASSERT_EQ(listless.bind(0), kDone);
    ASSERT_EQ(listless.listen(), kDone);

    Bytes create3gpp2(3248);
    create3gpp2[0] = 1;
    ASSERT_EQ(modem.createProfile(named("behind its back")), 1u);
    ASSERT_EQ(modem.createProfileAt({Tech::k3gpp, 9}), 9u);
    ASSERT_EQ(notOwn.sendBytes(0x0027, create3gpp2, 16), kDone);
    ASSERT_EQ(modem.createProfile({Tech::k3gpp2}, 1), 0u);
    modem.indicate(7, 255, 0);

    const std::string first = "3gpp:1 1, 3gpp:1 3", ninth = "3gpp:9 1, 3gpp:9 3",
                      other = "3gpp2:0 1, 3gpp2:0 3", odd = "7:255 0";
    EXPECT_EQ(every.takeEvents(), first + ", " + ninth + ", " + other + ", " + odd);
    EXPECT_EQ(first3gpp.takeEvents(), first + ", " + odd);
    EXPECT_EQ(all3gpp2.takeEvents(), other + ", " + odd);
    EXPECT_EQ(elsewhere.takeEvents(), other);
    EXPECT_EQ(notOwn.takeEvents(), first + ", " + ninth + ", " + odd);
    for (Client* silent : {&unbound, &deaf, &listless}) EXPECT_EQ(silent->takeEvents(), "");
}

TEST_F(SoftModemTest, SwapsSubscriptionsAndTellsBoth) {
    Client zero, two, three;
    zero.registerAll(0);
    two.registerAll(2);
    three.registerAll(3);
    modem.createProfile(named("zero"));
    modem.createProfile({Tech::k3gpp2}, 2);
    for (Client* each : {&zero, &two}) each->takeEvents();
    modem.swapSubscriptions(0, 2);
    EXPECT_EQ(zero.takeEvents(), "3gpp:0 4");
    EXPECT_EQ(two.takeEvents(), "3gpp:0 4");
    EXPECT_EQ(three.takeEvents(), "");
    EXPECT_TRUE(modem.profile(Tech::k3gpp2, 0, 0));
    EXPECT_TRUE(modem.profile(Tech::k3gpp, 1, 2));
    EXPECT_THROW(modem.swapSubscriptions(0, 16), std::out_of_range);
}

TEST_F(SoftModemTest, RestartForgetsTransientProfilesAndOldClients) {
    Client client;
    client.registerAll();
    client.watchErrors();
    modem.createProfile({Tech::k3gpp});
    modem.createProfile(named("kept"));
    client.takeEvents();
    static std::vector<zap_service_event> heard;
    heard.clear();
    zap_client_handle notifier = nullptr;
    ASSERT_EQ(zap_client_notifier_init(wds(), nullptr, &notifier), 0);
    ASSERT_EQ(zap_client_register_notify_cb(
                  notifier, [](auto, auto, auto event, auto) { heard.push_back(event); }, nullptr),
              0);
    const zap_service_info before = Client::currentService();

    modem.goDown();
    EXPECT_EQ(client.sendBytes(0x002A, Bytes(8), 14292), failed(CallError::kServiceGone));
    zap_service_info none;
    EXPECT_NE(zap_client_get_any_service(wds(), &none), 0);
    modem.comeUp();
    ASSERT_TRUE(modem.waitUntilIdle());
    EXPECT_EQ(client.errors, 1);
    EXPECT_EQ(heard, (std::vector{ZAP_SERVICE_UP, ZAP_SERVICE_DOWN, ZAP_SERVICE_UP}));
    ASSERT_EQ(modem.profiles().size(), 1u);
    EXPECT_EQ(modem.profiles()[0].index, 2u);

    EXPECT_EQ(client.bind(0), failed(CallError::kServiceGone));
    Client next;
    next.registerAll();
    modem.deleteProfile(Tech::k3gpp, 2);
    EXPECT_EQ(next.takeEvents(), "3gpp:2 2");
    EXPECT_EQ(client.takeEvents(), "");
    EXPECT_EQ(zap_client_release(notifier), 0);

    // Opened between a service found and a service lost: told as soon as it can be.
    Client late(before);
    EXPECT_EQ(late.bind(0), failed(CallError::kServiceGone));
    late.watchErrors();
    ASSERT_TRUE(modem.waitUntilIdle());
    EXPECT_EQ(late.errors, 1);
}

TEST_F(SoftModemTest, ReleaseWaitsForTheCallbackThatRuns) {
    Client client;
    client.registerAll();
    std::promise<void> entered, leave;
    std::atomic<bool> left{false};
    client.inCallback = [&] {
        entered.set_value();
        leave.get_future().wait();
        left = true;
    };
    modem.indicate(0, 1, 3);
    modem.indicate(0, 1, 3);
    entered.get_future().wait();
    EXPECT_EQ(client.sendBytes(0x002A, Bytes(8), 14292), kDone);  // the modem goes on meanwhile
    auto released = std::async(std::launch::async, [&] {
        client.release();
        return left.load();
    });
    while (modem.counters().openClients > 0) std::this_thread::yield();
    EXPECT_FALSE(modem.waitUntilIdle(std::chrono::milliseconds(0)));
    leave.set_value();
    EXPECT_TRUE(released.get());
    EXPECT_EQ(client.takeEvents(), "3gpp:1 3");
}

TEST_F(SoftModemTest, ClientMayReleaseItselfAndSendInsideItsCallback) {
    Client client;
    client.registerAll();
    client.inCallback = [&] {
        EXPECT_EQ(client.sendBytes(0x002A, Bytes(8), 14292), kDone);
        client.release();
    };
    modem.createProfile(named("internet"));
    EXPECT_EQ(client.takeEvents(), "3gpp:1 1");
}

TEST_F(SoftModemTest, FaultsSpoilTheIndicationsOfOneRequest) {
    const struct {
        FaultKind kind;
        const char* events;
    } cases[] = {
        {FaultKind::kLoseIndication, ""},
        {FaultKind::kRepeatIndication, "3gpp:1 1, 3gpp:1 1, 3gpp:1 3, 3gpp:1 3"},
        {FaultKind::kReorderIndications, "3gpp:1 3, 3gpp:1 1"},
        {FaultKind::kUndecodableIndication, "undecodable, undecodable"},
        {FaultKind::kEmptyIndication, "empty, empty"},
        {FaultKind::kInvalidIndication, "invalid, invalid"},
        {FaultKind::kDelayIndication, ""},
    };
    for (const auto& each : cases) {
        modem.reset();
        Client client;
        client.registerAll();
        modem.addFault({each.kind, 0x0027});
        ASSERT_EQ(client.sendBytes(0x0027, Bytes(3248), 16), kDone);
        EXPECT_EQ(client.takeEvents(), each.events);
        ASSERT_EQ(client.sendBytes(0x0027, Bytes(3248), 16), kDone);
        EXPECT_EQ(client.takeEvents(), "3gpp:2 1, 3gpp:2 3");
        modem.releaseIndications();
        EXPECT_EQ(client.takeEvents(),
                  each.kind == FaultKind::kDelayIndication ? "3gpp:1 1, 3gpp:1 3" : "");
    }
    Client client;
    client.registerAll();
    modem.addFault({FaultKind::kLoseIndication, 0x00A8});
    modem.indicate(0, 1, 3);
    modem.indicateRaw(0x00A8, {0x10, 0xFF, 0xFF});
    modem.indicateRaw(0x0001, {1});
    EXPECT_EQ(client.takeEvents(), "undecodable, undecodable");
}

TEST_F(SoftModemTest, FaultsStrikeTheRequestsThatTheyAreMeantFor) {
    modem.setHurry(true);
    Client client;
    ASSERT_EQ(client.bind(0), kDone);
    const auto create = [&] { return client.sendBytes(0x0027, Bytes(3248), 16); };
    modem.addFault({FaultKind::kRefuse, 0x0027, 2, 1, 77});
    modem.addFault({FaultKind::kRefuse});
    EXPECT_EQ(create(), refused(ErrorCode::kInternal));
    EXPECT_EQ(create(), Result(0, 77));
    EXPECT_EQ(create(), Result(0, 77));
    EXPECT_EQ(create(), kDone);

    modem.addFault({FaultKind::kTimeOut, 0x0027});
    EXPECT_EQ(create(), failed(CallError::kTimedOut));
    EXPECT_EQ(modem.profiles().size(), 1u);
    modem.addFault({FaultKind::kSendError, 0x0027});
    EXPECT_EQ(create(), failed(CallError::kSendFailed));
    EXPECT_EQ(modem.profiles().size(), 2u);
    modem.addFault({FaultKind::kGoDown, 0x0027});
    EXPECT_EQ(create(), failed(CallError::kServiceGone));
    EXPECT_FALSE(modem.isUp());
}

TEST_F(SoftModemTest, FaultsSpoilResponses) {
    modem.createProfile({Tech::k3gpp,
                         0,
                         {{"profile_name", "name"},
                          {"apn_name", ""},
                          {"pdp_type", uint64_t{3}},
                          {"apn_class", uint64_t{1}}}});
    Client client;
    ASSERT_EQ(client.bind(0), kDone);
    const unsigned get = 0x002B, getList = 0x002A;
    const wds_get_profile_settings_req_msg_v01 id = {profileId(Tech::k3gpp, 1)};
    wds_get_profile_settings_resp_msg_v01 settings;
    wds_get_profile_list_resp_msg_v01 list;
    modem.addFault({FaultKind::kUnterminatedStrings, 0, 2});
    ASSERT_EQ(client.send(get, id, &settings), kDone);
    EXPECT_EQ(strnlen(settings.profile_name, 51), 51u);
    EXPECT_EQ(strnlen(settings.apn_name, 151), 151u);
    EXPECT_EQ(memcmp(settings.profile_name, "name", 4), 0);
    EXPECT_FALSE(settings.username_valid);
    ASSERT_EQ(client.send(getList, wds_get_profile_list_req_msg_v01{}, &list), kDone);
    EXPECT_EQ(strnlen(list.profile_list[0].profile_name, 51), 51u);

    modem.addFault({FaultKind::kUnknownEnums, get, 1, 0, 0xFFFFFFFF});
    ASSERT_EQ(client.send(get, id, &settings), kDone);
    EXPECT_EQ(settings.pdp_type, 0xFFFFFFFF);
    EXPECT_EQ(settings.apn_class, 0xFF);
    EXPECT_FALSE(settings.lte_roaming_pdp_type_valid);

    modem.addFault({FaultKind::kListCount, getList, 1, 0, 256});
    ASSERT_EQ(client.send(getList, wds_get_profile_list_req_msg_v01{}, &list), kDone);
    EXPECT_EQ(list.profile_list_len, 256u);
    ASSERT_EQ(client.send(getList, wds_get_profile_list_req_msg_v01{}, &list), kDone);
    EXPECT_EQ(list.profile_list_len, 1u);
}

// Each of them ends a wait of ten minutes.
TEST_F(SoftModemTest, RequestThatWaitsEndsAtOnceWhenThingsChange) {
    const struct {
        bool slow;
        void (*change)(SoftModem&, Client&);
        CallError error;
    } cases[] = {
        {false, [](SoftModem& m, Client&) { m.goDown(); }, CallError::kServiceGone},
        {false, [](SoftModem& m, Client&) { m.restart(); }, CallError::kServiceGone},
        {false, [](SoftModem& m, Client&) { m.setHurry(true); }, CallError::kTimedOut},
        {true, [](SoftModem& m, Client&) { m.restart(); }, CallError::kServiceGone},
        {true, [](SoftModem& m, Client&) { m.setHurry(true); }, CallError::kTimedOut},
        {false, [](SoftModem&, Client& c) { zap_client_release(c.handle); },
         CallError::kServiceGone},
    };
    for (const auto& each : cases) {
        modem.reset();
        Client client;
        if (each.slow)
            modem.setLatency(std::chrono::hours(1));
        else
            modem.addFault({FaultKind::kTimeOut});
        std::promise<void> asked;
        modem.setRequestHook([&](const Request& request) {
            EXPECT_EQ(request.name, "bind subscription");
            EXPECT_TRUE(modem.isUp());
            asked.set_value();
        });
        auto result = std::async(std::launch::async, [&] { return client.bind(0); });
        asked.get_future().wait();
        each.change(modem, client);
        EXPECT_EQ(result.get(), failed(each.error));
    }
}

TEST_F(SoftModemTest, ShowsRequestsFieldByField) {
    Client client;
    ASSERT_EQ(client.bind(2), kDone);
    wds_create_profile_req_msg_v01 create = {};
    create.apn_name_valid = create.pdp_type_valid = create.apn_type_mask_valid = 1;
    memcpy(create.apn_name, "a\n\"b", 5);
    create.pdp_type = WDS_PDP_TYPE_IPV4V6_V01;
    create.apn_type_mask = uint64_t{1} << 63;
    wds_create_profile_resp_msg_v01 created;
    ASSERT_EQ(client.send(0x0027, create, &created), kDone);
    const auto requests = modem.requests();
    EXPECT_EQ(requests[1].subscription, 2u);
    EXPECT_EQ(
        describe(requests[1]),
        (std::vector<std::string>{"profile_type=3gpp", "pdp_type=ipv4v6", "apn_name=a\\x0a\\\"b",
                                  "apn_type_mask=0x8000000000000000"}));
    client.choose(1, 255);
    EXPECT_EQ(
        describe(modem.requests().back()),
        (std::vector<std::string>{"events_len=1", "event=3gpp2:any", "report_own_changes=1"}));
    EXPECT_EQ(messageName(0x0999), "0x0999");
    EXPECT_EQ(modem.counters().requests.at(0x0027), 1u);
}

TEST_F(SoftModemTest, DiagChannelCountsItsOpeningsAndTrustsNoFormat) {
    const diag_message message = {116, 63, 4, "|%s| %d %s %s", "file"};
    diag_emit(&message, "lost", "line");
    diag_open(0);
    diag_open(0);
    diag_close();
    diag_emit(&message, "ZEM", "100%n");
    EXPECT_TRUE(modem.counters().diagOpen);
    diag_close();
    EXPECT_FALSE(modem.counters().diagOpen);
    ASSERT_EQ(modem.diagLines().size(), 1u);
    EXPECT_EQ(modem.diagLines()[0].text, "|ZEM| %d 100%n %s");
    EXPECT_EQ(modem.diagLines()[0].line, 116u);
}

class StoreFileTest : public SoftModemTest {
  protected:
    StoreFileTest() { std::filesystem::create_directory(folder); }
    ~StoreFileTest() override { std::filesystem::remove_all(folder); }

    std::string contents() const {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    size_t filesInFolder() const {
        const std::filesystem::directory_iterator files(folder);
        return static_cast<size_t>(std::distance(begin(files), end(files)));
    }

    const std::string folder = testing::TempDir() + "softmodem_test." + std::to_string(getpid());
    const std::string path = folder + "/store";
};

TEST_F(StoreFileTest, EveryByteSurvives) {
    std::string nasty;
    for (int byte = 1; byte < 256; ++byte) nasty += static_cast<char>(byte);
    unsigned next = 0;
    for (const char* name : {"", " ", "# no comment", "[x]", "a = b", "\"", "\\", "\\x41", "\r\n"})
        ASSERT_TRUE(modem.createProfile({Tech::k3gpp, 0, {{"apn_name", name}}}, next++));
    ASSERT_TRUE(modem.createProfile({Tech::k3gpp2,
                                     0,
                                     {{"pdn_level_password_3gpp2", nasty.substr(0, 127)},
                                      {"user_id_3gpp2", nasty.substr(127, 127)},
                                      {"pdn_type_3gpp2", uint64_t{0xFFFFFFFF}},
                                      {"apn_type_mask", UINT64_MAX}}},
                                    15));
    modem.save(path);
    std::vector<std::vector<std::string>> before, after;
    for (unsigned i = 0; i < 16; ++i)
        for (const Profile& profile : modem.profiles(i)) before.push_back(describe(profile));
    modem.reset();
    Client client;
    client.registerAll(15);
    modem.load(path);
    EXPECT_EQ(client.takeEvents(), "3gpp:0 5");
    for (unsigned i = 0; i < 16; ++i)
        for (const Profile& profile : modem.profiles(i)) after.push_back(describe(profile));
    EXPECT_EQ(after, before);
    EXPECT_EQ(after.size(), 10u);
}

TEST_F(StoreFileTest, ReadsWhatAPersonWrites) {
    std::ofstream(path) << "# mine\r\n\n softmodem-profiles 1\n[ subscription 1  3gpp 0x10 ]\n"
                           "\tapn_name=internet\npdp_type = ipv4v6\nlte_roaming_pdp_type = 255\n"
                           "username = \"a\\tb\"\n[subscription 0 3gpp2 0]";
    modem.load(path);
    EXPECT_EQ(modem.profile(Tech::k3gpp, 16, 1)->fields,
              (Fields{{"apn_name", "internet"},
                      {"pdp_type", uint64_t{3}},
                      {"lte_roaming_pdp_type", uint64_t{255}},
                      {"username", "a\tb"}}));
    EXPECT_TRUE(modem.profile(Tech::k3gpp2, 0));
}

TEST_F(StoreFileTest, RefusesABrokenFileByItsLineAndChangesNothing) {
    const std::string head = "softmodem-profiles 1\n[subscription 0 3gpp 1]\n";
    const std::pair<std::string, const char*> cases[] = {
        {"", ":1: no \"softmodem-profiles 1\" line"},
        {"softmodem-profiles 2\n", ":1: expected"},
        {"softmodem-profiles 1\npdp_type = 1\n", ":2: field in front"},
        {head + "nonsense = 1\n", ":3: unknown field"},
        {head + "\n# x\nuser_id_3gpp2 = \"x\"\n", ":5: user_id_3gpp2 is no field of 3gpp"},
        {head + "apn_class = 256\n", ":3: apn_class: number out of range"},
        {head + "max_pdn_conn_timer = 65536\n", ":3: max_pdn_conn_timer: number out"},
        {head + "apn_type_mask = 0x10000000000000000\n", ":3: apn_type_mask: "},
        {head + "apn_class = -1\n", ":3: apn_class: \"-1\""},
        {head + "pdp_type = v4\n", ":3: pdp_type: \"v4\""},
        {head + "pdp_type =\n", ":3: pdp_type: "},
        {head + "pdp_type = 0x\n", ":3: pdp_type: "},
        {head + "pdp_type\n", ":3: neither"},
        {head + "apn_name = \"" + std::string(151, 'x') + "\"\n", ":3: apn_name: text of 151"},
        {head + "apn_name = \"x\n", ":3: apn_name: bad escape or quote"},
        {head + "apn_name = \"x\\", ":3: apn_name: bad escape or quote"},
        {head + "apn_name = \"x\" y\n", ":3: apn_name: bad escape or quote"},
        {head + "apn_name = \"\\x4\"\n", ":3: apn_name: bad escape or quote"},
        {head + "apn_name = \"\\x00\"\n", ":3: apn_name: text holds a zero"},
        {head + "apn_name = a\\b\n", ":3: apn_name: text needs quotes"},
        {head + "pdp_type = 1\npdp_type = 1\n", ":4: pdp_type given twice"},
        {head + "[subscription 0 3gpp 1]\n", ":3: profile given twice"},
        {head + "[subscription 0 3gpp 0]\n", ":3: index \"0\""},
        {head + "[subscription 0 3gpp2 255]\n", ":3: index \"255\""},
        {head + "[subscription 0 3gpp 4294967297]\n", ":3: index"},
        {head + "[subscription 16 3gpp 1]\n", ":3: subscription \"16\""},
        {head + "[subscription 0 4gpp 1]\n", ":3: technology \"4gpp\""},
        {head + "[subscription 0 3gpp]\n", ":3: index \"\""},
        {head + "[subscription 0 3gpp 2 3]\n", ":3: \"3\" behind"},
        {head + "[", ":3: section without"},
    };
    modem.createProfile(named("here before"));
    for (const auto& [text, message] : cases) {
        SCOPED_TRACE(text);
        std::ofstream(path) << text;
        try {
            modem.load(path);
            ADD_FAILURE() << "accepted";
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(std::string(error.what()).rfind(path + message, 0), 0u) << error.what();
        }
    }
    EXPECT_THROW(modem.load(folder), std::runtime_error);
    EXPECT_THROW(modem.load(path + ".none"), std::runtime_error);
    ASSERT_EQ(modem.profiles().size(), 1u);
}

TEST_F(StoreFileTest, FailedSaveLeavesTheOldFileAlone) {
    modem.createProfile(named("old"));
    modem.save(path);
    const std::string old = contents();
    while (modem.createProfile(named(std::string(150, 'x')))) {
    }
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit small = {4096, limit.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    std::string message;
    try {
        modem.save(path);
    } catch (const std::runtime_error& error) {
        message = error.what();
    }
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(message.rfind(path + ": cannot write", 0), 0u) << message;
    EXPECT_EQ(contents(), old);
    EXPECT_EQ(filesInFolder(), 1u);
    EXPECT_THROW(modem.save(folder + "/none/store"), std::runtime_error);
}

TEST_F(StoreFileTest, ReaderOfAFileBeingSavedSeesOneWholeStore) {
    while (modem.createProfile(named("internet"))) {
    }
    modem.save(path);
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        while (!stop) modem.save(path);
    });
    const std::string first = contents();
    for (int i = 0; i < 200; ++i) ASSERT_EQ(contents(), first);
    stop = true;
    writer.join();
    EXPECT_EQ(filesInFolder(), 1u);
}

TEST_F(SoftModemTest, StandsRestartsUnderManyThreads) {
    std::atomic<bool> stop{false};
    std::thread threads[3];
    for (std::thread& thread : threads) {
        thread = std::thread([&] {
            while (!stop) {
                zap_service_info info = {};
                if (zap_client_get_any_service(wds(), &info) != 0) continue;
                Client client(info);
                client.watchErrors();
                client.bind(0);
                client.listen();
                client.choose();
                client.sendBytes(0x0027, Bytes(3248), 16);
                client.sendBytes(0x0029, {0, 0, 0, 0, 1, 0, 0, 0}, 8);
            }
        });
    }
    for (int i = 0; i < 300; ++i) {
        modem.restart();
        modem.createProfile(named("internet"));
        modem.swapSubscriptions(0, 1);
    }
    stop = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(modem.waitUntilIdle());
    EXPECT_EQ(modem.counters().badHandles, 0u);
}

}  // namespace
}  // namespace softmodem
