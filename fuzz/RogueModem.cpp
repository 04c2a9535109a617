#include "RogueModem.h"

#include <algorithm>
#include <cstring>

#include "Wire.h"
#include "diag_channel.h"

namespace zem::fuzz {
namespace {

using ListRequest = wds_get_profile_list_req_msg_v01;
using ListResponse = wds_get_profile_list_resp_msg_v01;
using Result = wds_result_resp_msg_v01;

// Enough to fill several caches; then the modem is tired, lest one input takes minutes.
constexpr unsigned kMostRequests = 3000;
constexpr unsigned kTimeoutMs = 1000;

constexpr struct {
    unsigned id;
    size_t request, response;
} kMessages[] = {
    {ZAP_WDS_BIND_SUBSCRIPTION_REQ_V01, sizeof(wds_bind_subscription_req_msg_v01), sizeof(Result)},
    {ZAP_WDS_INDICATION_REGISTER_REQ_V01, sizeof(wds_indication_register_req_msg_v01),
     sizeof(Result)},
    {ZAP_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01,
     sizeof(wds_configure_profile_event_list_req_msg_v01), sizeof(Result)},
    {ZAP_WDS_CREATE_PROFILE_REQ_V01, sizeof(Create), sizeof(wds_create_profile_resp_msg_v01)},
    {ZAP_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01, sizeof(Modify), sizeof(Result)},
    {ZAP_WDS_DELETE_PROFILE_REQ_V01, sizeof(wds_delete_profile_req_msg_v01), sizeof(Result)},
    {ZAP_WDS_GET_PROFILE_SETTINGS_REQ_V01, sizeof(wds_get_profile_settings_req_msg_v01),
     sizeof(Settings)},
    {ZAP_WDS_GET_PROFILE_LIST_REQ_V01, sizeof(ListRequest), sizeof(ListResponse)},
};

const unsigned char kServiceObject = 0;
const auto kService = reinterpret_cast<zap_service_object>(&kServiceObject);

template <class Message>
Message copyOf(const void* bytes) {
    Message message;
    memcpy(&message, bytes, sizeof message);
    return message;
}

void check(unsigned messageId, const void* request, unsigned length, unsigned room) {
    const auto* const message = std::find_if(std::begin(kMessages), std::end(kMessages),
                                             [&](const auto& m) { return m.id == messageId; });
    require(message != std::end(kMessages), "a request has a known message id");
    require(length == message->request && room == message->response, "a request has its lengths");
    switch (messageId) {
        case ZAP_WDS_CREATE_PROFILE_REQ_V01:
            return checkRequest(copyOf<Create>(request));
        case ZAP_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01:
            return checkRequest(copyOf<Modify>(request));
        case ZAP_WDS_DELETE_PROFILE_REQ_V01:
        case ZAP_WDS_GET_PROFILE_SETTINGS_REQ_V01:
            return require((copyOf<uint64_t>(request) & ~uint64_t{0xFF00000001}) == 0,
                           "a request names a known family and an index");
        case ZAP_WDS_GET_PROFILE_LIST_REQ_V01:
            return require((copyOf<uint64_t>(request) & ~uint64_t{0x100000000}) == 1,
                           "a list is asked for of a known family");
    }
}

}  // namespace

RogueModem* RogueModem::current = nullptr;

RogueModem::~RogueModem() {
    require(handles.empty(), "every handle is given back");
    current = nullptr;
}

RogueModem& RogueModem::instance() {
    require(current != nullptr, "no call comes after the end");
    return *current;
}

RogueModem::Handle& RogueModem::known(zap_client_handle handle) {
    const auto found = handles.find(handle);
    require(found != handles.end(), "a handle in use is open");
    return found->second;
}

// A call that fails may leave anything behind.
int RogueModem::open(const Handle& handle, zap_client_handle* out) {
    require(handles.empty(), "a handle is given back before another is opened");
    const bool refused = refuses();
    *out = reinterpret_cast<zap_client_handle>(++newest);  // NOLINT(performance-no-int-to-ptr)
    if (!refused) handles.emplace(*out, handle);
    return refused ? -1 : 0;
}

int RogueModem::registerNotify(zap_client_handle notifier, zap_notify_cb callback, void* user) {
    Handle& handle = known(notifier);
    require(handle.isNotifier && callback && user, "a notifier gets its callback");
    if (refuses()) return -1;
    handle.notify = callback;
    handle.user = user;
    if (!input.flag()) callback(notifier, kService, ZAP_SERVICE_UP, user);  // it is up already
    return 0;
}

int RogueModem::registerError(zap_client_handle client, zap_error_cb callback, void* user) {
    Handle& handle = known(client);
    require(!handle.isNotifier && callback && user == handle.user, "a client gets its callback");
    if (refuses()) return -1;
    handle.fail = callback;
    return 0;
}

int RogueModem::release(zap_client_handle handle) {
    known(handle);
    handles.erase(handle);
    const auto ofIt = [handle](const auto& indication) { return indication.first == handle; };
    undecoded.erase(std::remove_if(undecoded.begin(), undecoded.end(), ofIt), undecoded.end());
    return refuses() ? -1 : 0;
}

// A copy: a callback may give the handle back. Without callbacks when there is none.
template <class Callback>
std::pair<zap_client_handle, RogueModem::Handle> RogueModem::drawHandle(
    Callback Handle::*callback) {
    std::vector<std::pair<zap_client_handle, Handle>> fit;
    std::copy_if(handles.begin(), handles.end(), std::back_inserter(fit),
                 [&](const auto& entry) { return entry.second.*callback != nullptr; });
    return fit.empty() ? std::pair(zap_client_handle(), Handle{}) : input.oneOf(fit);
}

void RogueModem::notify() {
    const auto [id, handle] = drawHandle(&Handle::notify);
    const auto event = input.rarely(8) ? ZAP_SERVICE_DOWN : ZAP_SERVICE_UP;
    if (handle.notify) handle.notify(id, kService, event, handle.user);
}

void RogueModem::fail() {
    const auto [id, handle] = drawHandle(&Handle::fail);
    if (!handle.fail) return;
    known(id).failed = true;
    handle.fail(id, static_cast<int>(input.small()), handle.user);
}

bool RogueModem::atRest() const {
    return undecoded.empty() && std::none_of(handles.begin(), handles.end(),
                                             [](const auto& entry) { return entry.second.failed; });
}

void RogueModem::indicate() {
    const auto [id, handle] = drawHandle(&Handle::indicate);
    const unsigned messageId =
        input.rarely(8) ? input.number<uint16_t>() : unsigned{ZAP_WDS_PROFILE_CHANGED_IND_V01};
    std::vector<unsigned char> bytes(input.rarely(8) ? input.number<uint8_t>() : 16);
    input.fill(bytes.data(), std::min<size_t>(bytes.size(), 4));
    const bool none = input.rarely(16);  // no buffer, whatever its length
    if (!handle.indicate) return;
    if (messageId == ZAP_WDS_PROFILE_CHANGED_IND_V01 && !bytes.empty() && !none) {
        undecoded.emplace_back(id, bytes);
    }
    handle.indicate(id, messageId, none ? nullptr : bytes.data(),
                    static_cast<unsigned>(bytes.size()), handle.user);
}

int RogueModem::send(zap_client_handle client, unsigned messageId, const void* request,
                     unsigned length, void* response, unsigned room, unsigned timeoutMs) {
    require(request && response && timeoutMs == kTimeoutMs, "a request is whole");
    check(messageId, request, length, room);
    Count& count = counts[messageId];
    ++count.sent;
    if (handles.count(client) == 0 || known(client).isNotifier || ++total > kMostRequests) {
        return -1;
    }
    if (input.rarely(8)) indicate();
    if (input.rarely(32)) fail();
    if (input.rarely(32)) notify();

    const bool lost = input.rarely(8);
    if (lost && input.flag()) return -1;  // and nothing came
    const uint32_t refused = input.rarely(8) ? input.small() : 0;
    answer(messageId, response, room);
    memcpy(response, &refused, sizeof refused);
    if (lost) return -1;
    if (refused == 0) ++count.succeeded;
    return 0;
}

void RogueModem::answer(unsigned messageId, void* response, unsigned room) {
    static ListResponse list;
    switch (messageId) {
        case ZAP_WDS_CREATE_PROFILE_REQ_V01: {
            wds_create_profile_resp_msg_v01 created = {};
            created.profile = {wds_profile_type_enum_v01(input.small()),
                               static_cast<uint8_t>(input.small())};
            memcpy(response, &created, room);
            return;
        }
        case ZAP_WDS_GET_PROFILE_SETTINGS_REQ_V01: {
            const Settings settings = drawResponse(input);
            memcpy(response, &settings, room);
            return;
        }
        case ZAP_WDS_GET_PROFILE_LIST_REQ_V01:
            memset(&list, 0, sizeof list);
            // No more than a list holds: by rule the library ends the process at the 256th entry.
            list.profile_list_len =
                input.rarely(16) ? input.number<uint8_t>() : static_cast<uint32_t>(input.upTo(6));
            for (uint32_t i = 0; i < list.profile_list_len; ++i) {
                list.profile_list[i].profile_type = wds_profile_type_enum_v01(input.small());
                list.profile_list[i].profile_index = static_cast<uint8_t>(input.small());
            }
            memcpy(response, &list, room);
            return;
        default:
            input.fill(response, room);
    }
}

int RogueModem::decode(zap_client_handle client, unsigned messageId, const void* bytes,
                       unsigned length, void* out, unsigned room) {
    wds_profile_changed_ind_msg_v01 decoded = {};
    require(messageId == ZAP_WDS_PROFILE_CHANGED_IND_V01 && room == sizeof decoded,
            "the one known indication is decoded, and has room");
    known(client);
    require(!undecoded.empty() && client == undecoded.front().first &&
                length == undecoded.front().second.size() &&
                memcmp(bytes, undecoded.front().second.data(), length) == 0,
            "indications are decoded as they came, once, oldest first");
    undecoded.pop_front();
    if (input.rarely(8)) return -1;
    decoded.profile_changed_valid = input.rarely(8) ? input.number<uint8_t>() : 1;
    decoded.profile_changed = {wds_profile_type_enum_v01(input.small()),
                               static_cast<uint8_t>(input.small()),
                               wds_profile_event_enum_v01(input.small())};
    memcpy(out, &decoded, sizeof decoded);
    return 0;
}

}  // namespace zem::fuzz

using zem::fuzz::require;
using zem::fuzz::RogueModem;

extern "C" {

zap_service_object wds_get_service_object_v01(int major, int minor, int tool) {
    require(major == 1 && minor == 241 && tool == 6, "the service has its version");
    return RogueModem::instance().refuses() ? nullptr : zem::fuzz::kService;
}

int zap_client_notifier_init(zap_service_object service, zap_os_params* params,
                             zap_client_handle* notifier) {
    require(service && params, "a notifier is asked for in full");
    return RogueModem::instance().open({true}, notifier);
}

int zap_client_register_notify_cb(zap_client_handle notifier, zap_notify_cb callback, void* user) {
    return RogueModem::instance().registerNotify(notifier, callback, user);
}

int zap_client_get_any_service(zap_service_object service, zap_service_info* info) {
    require(service && info, "a service is asked for in full");
    return RogueModem::instance().refuses() ? -1 : 0;
}

int zap_client_init(zap_service_info* info, zap_service_object service, zap_ind_cb callback,
                    void* user, zap_os_params* params, zap_client_handle* client) {
    require(info && service && callback && user && params, "a client is asked for in full");
    return RogueModem::instance().open({false, nullptr, callback, nullptr, user}, client);
}

int zap_client_register_error_cb(zap_client_handle client, zap_error_cb callback, void* user) {
    return RogueModem::instance().registerError(client, callback, user);
}

int zap_client_send_msg_sync(zap_client_handle client, unsigned int id, void* request,
                             unsigned int length, void* response, unsigned int room,
                             unsigned int timeoutMs) {
    return RogueModem::instance().send(client, id, request, length, response, room, timeoutMs);
}

int zap_client_message_decode(zap_client_handle client, zap_message_kind kind, unsigned int id,
                              const void* bytes, unsigned int length, void* out,
                              unsigned int room) {
    require(kind == ZAP_MESSAGE_INDICATION, "indications are what is decoded");
    return RogueModem::instance().decode(client, id, bytes, length, out, room);
}

int zap_client_release(zap_client_handle handle) {
    return RogueModem::instance().release(handle);
}

// The library's writers are not under test here.
int diag_open(int) {
    return 0;
}
void diag_close() {}
void diag_emit(const diag_message*, const char*, const char*) {}

}  // extern "C"
