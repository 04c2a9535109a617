#include "ZapWdsProxy.h"

#include <sys/epoll.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <utility>

#include "LogWrapper.h"
#include "Modem3gpp2Profile.h"
#include "Modem3gppProfile.h"
#include "ProfileConversions.h"
#include "SettingRules.h"

namespace zem {
namespace {

constexpr unsigned int kTimeoutMs = 1000;
constexpr uint8_t kEveryIndex = 0xFF;
constexpr int kMostIndicationsAtOnce = 1024;  // then others have their turn
constexpr char kSourceFile[] = "src/ZapWdsProxy";

}  // namespace

ZapWdsProxy::ZapWdsProxy(EventManager& eventManager, int instance)
    : eventManager(eventManager),
      instance(instance),
      serviceObject(wds_get_service_object_v01(WDS_SERVICE_MAJOR_V01, WDS_SERVICE_MINOR_V01,
                                               WDS_SERVICE_TOOL_V01)),
      svcUpFd(EventFd::create()),
      errorFd(EventFd::create()),
      indicationFd(EventFd::create()) {
    eventManager.addEventHandler(svcUpFd.get(), handleSvcUp, this, nullptr, EPOLLIN);
    eventManager.addEventHandler(errorFd.get(), handleError, this, nullptr, EPOLLIN);
    eventManager.addEventHandler(indicationFd.get(), handleIndication, this, nullptr, EPOLLIN);
    registerZapSvcUp();
    profileChangedIndCb = [](ProfileChangedInd) {
        ZEM_LOG(LOG_DEBUG, "ZapWdsProxy::no profileChangedIndCb registered!");
    };
}

ZapWdsProxy::~ZapWdsProxy() {
    // No callback runs once the handles are released; only then may what they use go.
    notifier.reset();
    client.reset();
    for (const EventFd* fd : {&svcUpFd, &errorFd, &indicationFd}) {
        eventManager.removeEventHandler(fd->get());
    }
}

void ZapWdsProxy::registerProfileChangedInd(std::function<void(ProfileChangedInd)> callback) {
    profileChangedIndCb = std::move(callback);
}

void ZapWdsProxy::registerZapSvcUp() {
    ZEM_LOG(LOG_API, "ZapWdsProxy::registerZapSvcUp");
    if (!serviceObject) {
        ZEM_LOG(LOG_ERROR, "cannot obtain service obj, fatal error");
        return;
    }
    notifier.reset();  // one may still wait, and osParams are in use until it is released
    clear(osParams);
    zap_client_handle handle = nullptr;
    if (const int error = zap_client_notifier_init(serviceObject, &osParams, &handle)) {
        ZEM_LOG(LOG_ERROR, "zap_client_notifier_init error. ErrCode : %d", error);
        return;
    }
    notifier.reset(handle);
    if (const int error = zap_client_register_notify_cb(handle, zapNotifyCb, this)) {
        ZEM_LOG(LOG_ERROR, "zap_client_register_notify_cb error. ErrCode : %d", error);
        notifier.reset();
    }
}

void ZapWdsProxy::zapNotifyCb(zap_client_handle, zap_service_object, zap_service_event event,
                              void* user) {
    if (!user) {
        ZEM_LOG(LOG_ERROR, "ZapWdsProxy instance is null");
        return;
    }
    if (event != ZAP_SERVICE_UP) {
        ZEM_LOG(LOG_ERROR, "ZapWdsProxy notify cb: unsupported service event");
        return;
    }
    const ssize_t written = static_cast<ZapWdsProxy*>(user)->svcUpFd.signal();
    if (written != sizeof(uint64_t)) {
        ZEM_LOG(LOG_ERROR, "error in writing rv:%d, error:%s", static_cast<int>(written),
                strerror(errno));
    }
}

void ZapWdsProxy::handleSvcUp(int fd, void* arg) {
    ZEM_LOG(LOG_DEBUG, "ZapWdsProxy service is up, trying to initialize svc client");
    drain(fd, sizeof(uint64_t), LOG_ERROR);
    if (!arg) {
        ZEM_LOG(LOG_ERROR, "ZapWdsProxy instance is null");
        return;
    }
    static_cast<ZapWdsProxy*>(arg)->initClient();
}

void ZapWdsProxy::initClient() {
    zap_service_info serviceInfo = {};
    if (zap_client_get_any_service(serviceObject, &serviceInfo) != 0) {
        ZEM_LOG(LOG_ERROR, "error get service.");
        return;
    }
    notifier.reset();  // before the next test: it has done its job either way
    if (client) {
        ZEM_LOG(LOG_DEBUG,
                "ZapWdsProxy client is already present, so skipping client initialization.");
        return;
    }
    clear(osParams);
    zap_client_handle handle = nullptr;
    const int error =
        zap_client_init(&serviceInfo, serviceObject, zapIndCb, this, &osParams, &handle);
    if (error != 0) {
        ZEM_LOG(LOG_ERROR, "zap_client_init error. ErrCode : %d", error);
        return;
    }
    client.reset(handle);
    const int result = zap_client_register_error_cb(handle, zapErrorCb, this);
    ZEM_LOG(LOG_DEBUG, "zap_client_register_error_cb result: %d", result);
    registerZapIndications();
}

void ZapWdsProxy::registerZapIndications() {
    wds_bind_subscription_req_msg_v01 bind;
    clear(bind);
    bind.subscription = static_cast<uint32_t>(instance);
    sendRegistration(ZAP_WDS_BIND_SUBSCRIPTION_REQ_V01, "bind", bind);

    wds_indication_register_req_msg_v01 indications;
    clear(indications);
    indications.report_profile_changes_valid = 1;
    indications.report_profile_changes = 1;
    sendRegistration(ZAP_WDS_INDICATION_REGISTER_REQ_V01, "indication", indications);

    wds_configure_profile_event_list_req_msg_v01 config;
    clear(config);
    config.events_valid = 1;
    config.events_len = 1;
    config.events[0].profile_type = WDS_PROFILE_TYPE_ALL_V01;
    config.events[0].profile_index = kEveryIndex;
    config.report_own_changes_valid = 1;
    config.report_own_changes = 1;
    sendRegistration(ZAP_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01, "config", config);
}

void ZapWdsProxy::zapIndCb(zap_client_handle client, unsigned int messageId, unsigned char* buffer,
                           unsigned int length, void* user) {
    ZEM_LOG(LOG_VERBOSE, "%s:%d", __PRETTY_FUNCTION__, __LINE__);
    const auto refuse = [length] {
        ZEM_LOG(LOG_ERROR, "The ind_cb_data/ind_buf is null or ind_buf_len is %d",
                static_cast<int>(length));
    };
    if (length == 0 || !buffer || !user) {
        refuse();
        return;
    }
    auto* const proxy = static_cast<ZapWdsProxy*>(user);
    try {
        IndInfo_t ind = {client, false, messageId, {buffer, buffer + length}};
        const MutexLock lock(proxy->queueMutex);
        proxy->indQueue.push_back(std::move(ind));
    } catch (const std::exception&) {  // must not pass through the C library
        refuse();
        return;
    }
    // After the queue: the engine may look at once.
    const ssize_t written = proxy->indicationFd.signal();
    if (written != sizeof(uint64_t)) {
        ZEM_LOG(LOG_ERROR, "Error in writing rv: %d, error: %s", static_cast<int>(written),
                strerror(errno));
    }
}

void ZapWdsProxy::handleIndication(int fd, void* arg) {
    drain(fd, sizeof(uint64_t), LOG_ERROR);
    if (!arg) {
        ZEM_LOG(LOG_ERROR, "ZapWdsProxy nullptr in handleIndication");
        return;
    }
    static_cast<ZapWdsProxy*>(arg)->handleQueue();
}

void ZapWdsProxy::handleQueue() {
    // Callers, and the end of the engine, get their turn before a modem that never stops reporting.
    for (int turns = kMostIndicationsAtOnce;; --turns) {
        std::optional<IndInfo_t> oldest;
        size_t size = 0;
        {
            const MutexLock lock(queueMutex);
            size = indQueue.size();
            if (size > 0 && turns > 0) {
                oldest = std::move(indQueue.front());
                indQueue.pop_front();
            }
        }
        ZEM_LOG(LOG_DEBUG, "ZapWdsProxy: handleIndication indQueue.size[%d]",
                static_cast<int>(size));
        if (!oldest) {
            if (size > 0) indicationFd.signal();
            return;
        }
        handleQueued(*oldest);
    }
}

void ZapWdsProxy::handleQueued(const IndInfo_t& ind) {
    if (ind.messageId != ZAP_WDS_PROFILE_CHANGED_IND_V01) {
        ZEM_LOG(LOG_VERBOSE, "Unknown message ID %lu received",
                static_cast<unsigned long>(ind.messageId));
        return;
    }
    wds_profile_changed_ind_msg_v01 decoded = {};
    if (ind.clientReleased ||
        zap_client_message_decode(ind.client, ZAP_MESSAGE_INDICATION, ind.messageId,
                                  ind.message.data(), static_cast<unsigned>(ind.message.size()),
                                  &decoded, sizeof decoded) != 0) {
        ZEM_LOG(LOG_ERROR, "Unable to decode the nr status ind message");
        return;
    }
    if (!decoded.profile_changed_valid) {
        ZEM_LOG(LOG_ERROR, "Profile changed ind TLV is not valid");
        return;
    }
    handleProfileChangedInd(decoded.profile_changed, decoded.profile_changed.event);
}

void ZapWdsProxy::handleProfileChangedInd(wds_profile_changed_ind_type_v01 profile,
                                          uint32_t event) {
    ZEM_LOG(LOG_DEBUG, "ZapWdsProxy ProfileChangedInd received!");
    const bool known =
        event >= WDS_PROFILE_EVENT_CREATE_V01 && event <= WDS_PROFILE_EVENT_SUBSCRIPTION_CHANGE_V01;
    profileChangedIndCb(
        {convertProfileType(profile.profile_type), profile.profile_index,
         known ? ProfileChangedEvent(event - 1) : ProfileChangedEvent::ProfileReady});
}

void ZapWdsProxy::zapErrorCb(zap_client_handle, int, void* user) {
    ZEM_LOG(LOG_DEBUG, "%s:%d:%s", kSourceFile, __LINE__, "zapErrorCb");
    if (!user) {
        ZEM_LOG(LOG_ERROR, "ZapWdsProxy NULL in zapErrorCb");
        return;
    }
    const ssize_t written = static_cast<ZapWdsProxy*>(user)->errorFd.signal();
    if (written != sizeof(uint64_t)) {
        ZEM_LOG(LOG_ERROR, "error in writing rv: %d, error: %s", static_cast<int>(written),
                strerror(errno));
    }
}

void ZapWdsProxy::handleError(int fd, void* arg) {
    ZEM_LOG(LOG_DEBUG, "%s:%d:%s", kSourceFile, __LINE__, "handleError");
    drain(fd, sizeof(uint64_t), LOG_ERROR);
    if (!arg) {
        ZEM_LOG(LOG_ERROR, "arg is null");
        return;
    }
    static_cast<ZapWdsProxy*>(arg)->restart();
}

void ZapWdsProxy::releaseClient() {
    if (!client) return;
    const zap_client* const handle = client.get();
    client.reset();
    // No indication of the client arrives any more. The next client may get the same handle, so
    // those that wait are marked now.
    const MutexLock lock(queueMutex);
    for (IndInfo_t& ind : indQueue) ind.clientReleased |= ind.client == handle;
}

void ZapWdsProxy::restart() {
    releaseClient();
    ZEM_LOG(LOG_INFO, "Handling modem down");
    registerZapSvcUp();
}

template <class Request, class Response>
bool ZapWdsProxy::send(unsigned int messageId, Request& request, Response& response) {
    clear(response);
    return zap_client_send_msg_sync(client.get(), messageId, &request, sizeof request, &response,
                                    sizeof response, kTimeoutMs) == 0 &&
           response.resp.result == 0;
}

template <class Request>
void ZapWdsProxy::sendRegistration(unsigned int messageId, const char* name, Request& request) {
    wds_result_resp_msg_v01 response;
    if (send(messageId, request, response)) {
        ZEM_LOG(LOG_DEBUG, "ZapWdsProxy %s register request successful!", name);
    } else {
        ZEM_LOG(LOG_ERROR, "Unable send %s req message", name);
    }
}

template <class Request, class Response>
bool ZapWdsProxy::sendProfileRequest(unsigned int messageId, const char* name, Request& request,
                                     Response& response) {
    const bool succeeded = send(messageId, request, response);
    if (succeeded) {
        ZEM_LOG(LOG_API, "ZapWdsProxy %s request successful!", name);
    } else {
        ZEM_LOG(LOG_ERROR, "Unable send %s message", name);
    }
    return succeeded;
}

// A profile request goes by the name of its message id in the log.
#define ZEM_SEND(messageId, request, response) \
    sendProfileRequest(messageId, #messageId, request, response)

bool ZapWdsProxy::add(ModemProfile& profile) {
    auto request = profile.constructAddRequest();
    wds_create_profile_resp_msg_v01 response;
    if (!ZEM_SEND(ZAP_WDS_CREATE_PROFILE_REQ_V01, request, response)) return false;
    profile.setProfileId(response.profile.profile_index);
    return true;
}

bool ZapWdsProxy::modify(const ModemProfile& diff, TechType techType, int profileId) {
    auto request = diff.constructModifyRequest();
    convertToProfileIdentifier(techType, profileId, request.profile);
    wds_result_resp_msg_v01 response;
    return ZEM_SEND(ZAP_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01, request, response);
}

bool ZapWdsProxy::remove(TechType techType, int profileId) {
    wds_delete_profile_req_msg_v01 request;
    convertToProfileIdentifier(techType, profileId, request.profile);
    wds_result_resp_msg_v01 response;
    return ZEM_SEND(ZAP_WDS_DELETE_PROFILE_REQ_V01, request, response);
}

std::shared_ptr<ModemProfile> ZapWdsProxy::get(TechType techType, int profileId) {
    wds_get_profile_settings_req_msg_v01 request;
    convertToProfileIdentifier(techType, profileId, request.profile);
    wds_get_profile_settings_resp_msg_v01 response;
    if (!ZEM_SEND(ZAP_WDS_GET_PROFILE_SETTINGS_REQ_V01, request, response)) return nullptr;
    const int index = request.profile.profile_index;
    if (request.profile.profile_type == WDS_PROFILE_TYPE_3GPP2_V01) {
        return std::make_shared<Modem3gpp2Profile>(index, response);
    }
    return std::make_shared<Modem3gppProfile>(index, response);
}

std::list<std::shared_ptr<ModemProfile>> ZapWdsProxy::getAllProfiles() {
    std::list<std::shared_ptr<ModemProfile>> profiles;
    for (const auto type : {WDS_PROFILE_TYPE_3GPP_V01, WDS_PROFILE_TYPE_3GPP2_V01}) {
        wds_get_profile_list_req_msg_v01 request;
        clear(request);
        request.profile_type_valid = 1;
        request.profile_type = type;
        wds_get_profile_list_resp_msg_v01 response;
        if (!ZEM_SEND(ZAP_WDS_GET_PROFILE_LIST_REQ_V01, request, response)) break;
        for (uint32_t i = 0; i < response.profile_list_len; ++i) {
            if (i == WDS_PROFILE_LIST_MAX_V01) {
                ZEM_LOG(LOG_ERROR, "ZapWdsProxy: the modem lists more profiles than a list holds");
                abort();
            }
            const auto& entry = response.profile_list[i];
            profiles.push_back(get(convertProfileType(entry.profile_type), entry.profile_index));
        }
    }
    return profiles;
}

}  // namespace zem
