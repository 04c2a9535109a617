#include "SteppedModem.h"

#include <cstring>
#include <deque>
#include <set>

#include "Scheduler.h"
#include "diag_channel.h"
#include "wds_service_v01.h"
#include "zap_client.h"

struct zap_client {
    void* user = nullptr;
    zap_ind_cb indicate = nullptr;
    zap_error_cb fail = nullptr;
    unsigned callbacks = 0;  // that run now
    bool open = true;
};

namespace zem::schedules {
namespace {

std::deque<zap_client> handles;  // never forgotten within a run, so that a late use is noticed
std::set<uint8_t> profiles;
uint8_t newest = 0;
unsigned diagnosticChannels = 0;

zap_client& known(const char* call, zap_client_handle handle) {
    if (!handle) fail("%s without a handle", call);
    if (!handle->open) fail("%s on a handle that is released", call);
    return *handle;
}

// Of the handle that has one. A release waits until it is over.
template <class Callback, class Call>
void callBack(const char* name, Callback zap_client::*callback, const Call& call) {
    reach(name);
    for (zap_client& handle : handles) {
        if (!handle.open || !(handle.*callback)) continue;
        ++handle.callbacks;
        call(handle);
        --handle.callbacks;
        return;
    }
}

template <class Message>
Message copyOf(const void* bytes) {
    Message message;
    memcpy(&message, bytes, sizeof message);
    return message;
}

void answer(unsigned id, const void* request, void* response) {
    switch (id) {
        case ZAP_WDS_CREATE_PROFILE_REQ_V01: {
            wds_create_profile_resp_msg_v01 created = {};
            created.profile = {WDS_PROFILE_TYPE_3GPP_V01, ++newest};
            profiles.insert(newest);
            memcpy(response, &created, sizeof created);
            break;
        }
        case ZAP_WDS_DELETE_PROFILE_REQ_V01: {
            const auto deleted = copyOf<wds_delete_profile_req_msg_v01>(request).profile;
            const uint32_t result = profiles.erase(deleted.profile_index) ? 0 : 1;
            memcpy(response, &result, sizeof result);
            break;
        }
        case ZAP_WDS_GET_PROFILE_SETTINGS_REQ_V01: {
            const auto read = copyOf<wds_get_profile_settings_req_msg_v01>(request).profile;
            const uint32_t result = profiles.count(read.profile_index) ? 0 : 1;
            memcpy(response, &result, sizeof result);
            break;
        }
        case ZAP_WDS_GET_PROFILE_LIST_REQ_V01: {
            wds_get_profile_list_resp_msg_v01 list = {};
            const auto type = copyOf<wds_get_profile_list_req_msg_v01>(request).profile_type;
            if (type == WDS_PROFILE_TYPE_3GPP_V01) {
                for (const uint8_t profile : profiles)
                    list.profile_list[list.profile_list_len++] = {type, profile, ""};
            }
            memcpy(response, &list, sizeof list);
            break;
        }
        default:
            break;
    }
}

}  // namespace

void indicate(uint32_t event, uint8_t profile) {
    wds_profile_changed_ind_msg_v01 message = {};
    message.profile_changed_valid = 1;
    message.profile_changed = {WDS_PROFILE_TYPE_3GPP_V01, profile,
                               wds_profile_event_enum_v01(event)};
    callBack("an indication", &zap_client::indicate, [&message](zap_client& client) {
        client.indicate(&client, ZAP_WDS_PROFILE_CHANGED_IND_V01,
                        reinterpret_cast<unsigned char*>(&message), sizeof message, client.user);
    });
}

void restart() {
    callBack("a restart", &zap_client::fail,
             [](zap_client& client) { client.fail(&client, 1, client.user); });
}

void removeByNetwork(uint8_t profile) {
    profiles.erase(profile);
    indicate(WDS_PROFILE_EVENT_DELETE_V01, profile);
}

unsigned profilesStored() {
    return static_cast<unsigned>(profiles.size());
}

void endModem() {
    for (const zap_client& handle : handles) require(!handle.open, "every handle is released");
    require(diagnosticChannels == 0, "a replaced writer closes its diagnostic channel");
    handles.clear();
    profiles.clear();
    newest = 0;
}

}  // namespace zem::schedules

using namespace zem::schedules;

extern "C" {

zap_service_object wds_get_service_object_v01(int, int, int) {
    static const unsigned char object = 0;
    return reinterpret_cast<zap_service_object>(&object);
}

int zap_client_notifier_init(zap_service_object, zap_os_params*, zap_client_handle* notifier) {
    *notifier = &handles.emplace_back();
    return 0;
}

int zap_client_register_notify_cb(zap_client_handle notifier, zap_notify_cb callback, void* user) {
    known("zap_client_register_notify_cb", notifier);
    callback(notifier, nullptr, ZAP_SERVICE_UP, user);  // it is always up
    return 0;
}

int zap_client_get_any_service(zap_service_object, zap_service_info*) {
    return 0;
}

int zap_client_init(zap_service_info*, zap_service_object, zap_ind_cb callback, void* user,
                    zap_os_params*, zap_client_handle* client) {
    zap_client& handle = handles.emplace_back();
    handle.user = user;
    handle.indicate = callback;
    *client = &handle;
    return 0;
}

int zap_client_register_error_cb(zap_client_handle client, zap_error_cb callback, void*) {
    known("zap_client_register_error_cb", client).fail = callback;
    return 0;
}

int zap_client_send_msg_sync(zap_client_handle client, unsigned int id, void* request, unsigned int,
                             void* response, unsigned int size, unsigned int) {
    reach("zap_client_send_msg_sync");
    if (!client) return -1;
    known("zap_client_send_msg_sync", client);
    memset(response, 0, size);
    answer(id, request, response);
    return 0;
}

int zap_client_message_decode(zap_client_handle client, zap_message_kind, unsigned int,
                              const void* bytes, unsigned int length, void* out, unsigned int) {
    known("zap_client_message_decode", client);
    memcpy(out, bytes, length);
    return 0;
}

int zap_client_release(zap_client_handle handle) {
    zap_client& releasing = known("zap_client_release", handle);
    releasing.open = false;  // no callback starts from now on
    reach("zap_client_release", [&releasing] { return releasing.callbacks == 0; });
    return 0;
}

int diag_open(int) {
    ++diagnosticChannels;
    return 0;
}

void diag_close() {
    --diagnosticChannels;
}

void diag_emit(const diag_message*, const char*, const char*) {}

}  // extern "C"
