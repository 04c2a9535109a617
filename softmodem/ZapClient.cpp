// The symbols of the ZAP client library and of the WDS service.
#include "zap_client.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "IndicationCodec.h"
#include "ModemState.h"
#include "WdsRequests.h"

struct zap_service {
    int major, minor, tool;
};

namespace softmodem {

namespace {

constexpr zap_service kWds = {WDS_SERVICE_MAJOR_V01, WDS_SERVICE_MINOR_V01, WDS_SERVICE_TOOL_V01};
constexpr unsigned kServiceInfoMark = 0x57445331;  // in front of the service run it was given for
constexpr size_t kLoggedBytes = 65536;
constexpr size_t kKeptRequests = 4096;

using Lock = std::unique_lock<std::mutex>;

constexpr int failure(CallError error) {
    return static_cast<int>(error);
}

struct Send {
    ClientId client;
    unsigned messageId;
    const void* request;
    size_t requestSize;
    void* response;
    size_t responseSize;
    std::chrono::microseconds timeout;
};

// False when the client has lost its service or was released meanwhile.
bool stillServed(ModemState& modem, ClientId id) {
    const auto entry = modem.clients.find(id);
    return entry != modem.clients.end() && !modem.gone(entry->second);
}

// False when the service is lost first.
bool pass(ModemState& modem, Lock& lock, ClientId id, std::chrono::microseconds time,
          bool mayHurry) {
    modem.changed.wait_for(lock, time,
                           [&] { return !stillServed(modem, id) || (mayHurry && modem.hurry); });
    return stillServed(modem, id);
}

int process(ModemState& modem, Lock& lock, const Send& send, Request& log) {
    if (!stillServed(modem, send.client)) return failure(CallError::kServiceGone);
    const bool tooSlow = modem.latency > send.timeout;
    const std::chrono::microseconds delay = std::min(modem.latency, send.timeout);
    if (delay.count() > 0 && !pass(modem, lock, send.client, delay, tooSlow))
        return failure(CallError::kServiceGone);
    if (tooSlow) return failure(CallError::kTimedOut);

    const MetFaults met = modem.meetFaults(send.messageId);
    if (met.find(FaultKind::kGoDown)) {
        modem.goDown();
        return failure(CallError::kServiceGone);
    }
    if (met.find(FaultKind::kTimeOut))
        return pass(modem, lock, send.client, send.timeout, true)
                   ? failure(CallError::kTimedOut)
                   : failure(CallError::kServiceGone);

    Outcome outcome;
    if (const Fault* refuse = met.find(FaultKind::kRefuse)) {
        outcome.error =
            refuse->value ? static_cast<ErrorCode>(refuse->value) : ErrorCode::kInternal;
        writeResult(send.response, outcome.error);
    } else {
        outcome = carryOut(modem, send.client, send.messageId, send.request, send.requestSize,
                           send.response, send.responseSize);
    }
    log.result = outcome.error == ErrorCode::kNone ? 0 : 1;
    log.error = static_cast<uint32_t>(outcome.error);
    if (outcome.error == ErrorCode::kNone) {
        const Client& client = modem.clients.at(send.client);
        if (!outcome.changes.empty())
            modem.indicate(outcome.changes, {*client.subscription}, met, send.client);
        if (outcome.nowRegistered) modem.indicateReady(send.client, met);
        spoilResponse(send.messageId, send.response, met);
    }
    return met.find(FaultKind::kSendError) ? failure(CallError::kSendFailed) : 0;
}

int sendRequest(const Send& send) {
    ModemState& modem = ModemState::instance();
    Lock lock(modem.mutex);
    const Client* client = modem.find(send.client);
    if (!client) return failure(CallError::kBadHandle);
    if (client->isNotifier) {
        ++modem.counters.badHandles;
        return failure(CallError::kBadHandle);
    }
    if ((!send.request && send.requestSize > 0) || !send.response ||
        send.responseSize < sizeof(zap_response_type_v01))
        return failure(CallError::kBadArgument);

    Request log;
    log.messageId = send.messageId;
    log.name = messageName(send.messageId);
    log.subscription = client->subscription.value_or(0);
    const auto* bytes = static_cast<const uint8_t*>(send.request);
    log.bytes.assign(bytes, bytes + std::min(send.requestSize, kLoggedBytes));
    ++modem.counters.requests[send.messageId];
    ++modem.counters.requestsTotal;

    if (const auto hook = modem.hook) {
        lock.unlock();
        hook(log);
        lock.lock();
    }
    log.sendResult = process(modem, lock, send, log);
    const int result = log.sendResult;
    modem.requests.push_back(std::move(log));
    if (modem.requests.size() > kKeptRequests) modem.requests.pop_front();
    return result;
}

int releaseHandle(zap_client_handle handle) {
    ModemState& modem = ModemState::instance();
    Lock lock(modem.mutex);
    return modem.release(lock, idOf(handle)) ? 0 : failure(CallError::kBadHandle);
}

int getService(zap_service_object service, zap_service_info* info) {
    if (service != &kWds || !info) return failure(CallError::kBadArgument);
    ModemState& modem = ModemState::instance();
    const Lock lock(modem.mutex);
    if (!modem.up) return failure(CallError::kServiceGone);
    *info = {};
    info->words[0] = kServiceInfoMark;
    memcpy(&info->words[2], &modem.serviceRun, sizeof modem.serviceRun);
    return 0;
}

int openNotifier(zap_service_object service, zap_client_handle* notifier) {
    if (service != &kWds || !notifier) return failure(CallError::kBadArgument);
    ModemState& modem = ModemState::instance();
    const Lock lock(modem.mutex);
    Client client;
    client.isNotifier = true;
    *notifier = handleOf(modem.open(client));
    return 0;
}

// Succeeds for a service that has gone since it was found: the client learns it by its error
// callback, as any other, whose chance to come would be missed otherwise.
int openClient(const zap_service_info* info, zap_service_object service, zap_ind_cb callback,
               void* user, zap_client_handle* handle) {
    if (service != &kWds || !info || info->words[0] != kServiceInfoMark || !handle)
        return failure(CallError::kBadArgument);
    ModemState& modem = ModemState::instance();
    const Lock lock(modem.mutex);
    Client client;
    memcpy(&client.serviceRun, &info->words[2], sizeof client.serviceRun);
    client.indicate = callback;
    client.indicateUser = user;
    *handle = handleOf(modem.open(client));
    return 0;
}

// Both kinds of registration announce at once what has happened already.
int registerNotify(zap_client_handle handle, zap_notify_cb callback, void* user) {
    ModemState& modem = ModemState::instance();
    const Lock lock(modem.mutex);
    Client* client = modem.find(idOf(handle));
    if (!client) return failure(CallError::kBadHandle);
    if (!client->isNotifier || !callback) return failure(CallError::kBadArgument);
    client->notify = callback;
    client->notifyUser = user;
    if (modem.up) modem.deliver({Delivery::Kind::kServiceUp, idOf(handle)});
    return 0;
}

int registerError(zap_client_handle handle, zap_error_cb callback, void* user) {
    ModemState& modem = ModemState::instance();
    const Lock lock(modem.mutex);
    Client* client = modem.find(idOf(handle));
    if (!client) return failure(CallError::kBadHandle);
    if (client->isNotifier || !callback) return failure(CallError::kBadArgument);
    client->fail = callback;
    client->failUser = user;
    if (modem.gone(*client)) modem.deliver({Delivery::Kind::kError, idOf(handle)});
    return 0;
}

int decode(zap_client_handle handle, zap_message_kind kind, unsigned messageId, const void* bytes,
           size_t length, void* out, size_t outSize) {
    {
        ModemState& modem = ModemState::instance();
        const Lock lock(modem.mutex);
        // A callback may decode to its end, though another thread has begun to release its client.
        const bool inCallback = modem.onModemThread() && modem.beingCalled == idOf(handle);
        if (!inCallback && !modem.find(idOf(handle))) return failure(CallError::kBadHandle);
    }
    if (kind != ZAP_MESSAGE_INDICATION || messageId != ZAP_WDS_PROFILE_CHANGED_IND_V01 || !bytes ||
        !out || outSize != sizeof(wds_profile_changed_ind_msg_v01))
        return failure(CallError::kBadArgument);
    const auto message = decodeIndication(static_cast<const uint8_t*>(bytes), length);
    if (!message) return failure(CallError::kUndecodable);
    memcpy(out, &*message, sizeof *message);
    return 0;
}

}  // namespace

}  // namespace softmodem

extern "C" {

SOFTMODEM_API zap_service_object wds_get_service_object_v01(int major, int minor, int tool) {
    using softmodem::kWds;
    return major == kWds.major && minor == kWds.minor && tool == kWds.tool ? &kWds : nullptr;
}

SOFTMODEM_API int zap_client_notifier_init(zap_service_object service, zap_os_params*,
                                           zap_client_handle* notifier) {
    return softmodem::openNotifier(service, notifier);
}

SOFTMODEM_API int zap_client_register_notify_cb(zap_client_handle notifier, zap_notify_cb callback,
                                                void* user) {
    return softmodem::registerNotify(notifier, callback, user);
}

SOFTMODEM_API int zap_client_get_any_service(zap_service_object service, zap_service_info* info) {
    return softmodem::getService(service, info);
}

SOFTMODEM_API int zap_client_init(zap_service_info* info, zap_service_object service,
                                  zap_ind_cb callback, void* user, zap_os_params*,
                                  zap_client_handle* client) {
    return softmodem::openClient(info, service, callback, user, client);
}

SOFTMODEM_API int zap_client_register_error_cb(zap_client_handle client, zap_error_cb callback,
                                               void* user) {
    return softmodem::registerError(client, callback, user);
}

SOFTMODEM_API int zap_client_send_msg_sync(zap_client_handle client, unsigned int msg_id, void* req,
                                           unsigned int req_len, void* resp, unsigned int resp_len,
                                           unsigned int timeout_ms) {
    return softmodem::sendRequest({softmodem::idOf(client), msg_id, req, req_len, resp, resp_len,
                                   std::chrono::milliseconds(timeout_ms)});
}

SOFTMODEM_API int zap_client_message_decode(zap_client_handle client, zap_message_kind kind,
                                            unsigned int msg_id, const void* buf, unsigned int len,
                                            void* out, unsigned int out_len) {
    return softmodem::decode(client, kind, msg_id, buf, len, out, out_len);
}

SOFTMODEM_API int zap_client_release(zap_client_handle client) {
    return softmodem::releaseHandle(client);
}

}  // extern "C"
