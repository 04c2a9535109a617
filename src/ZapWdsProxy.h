// ZapWdsProxy: the library's only client of the modem's data service.
//
// Engine thread only, but for the ZAP library's callbacks, which come on its threads, queue what
// they got, wake the engine and return. A request blocks for up to 1000 ms.
#pragma once

#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <vector>

#include <zem/EventManager.h>
#include <zem/Mutex.h>

#include "EventFd.h"
#include "ModemProfile.h"
#include "ProfileChangedInd.h"
#include "wds_service_v01.h"
#include "zap_client.h"

namespace zem {

class ZapWdsProxy {
  public:
    // Waits for the service of the modem instance to come up. Aborts the process when no eventfd
    // can be had.
    ZapWdsProxy(EventManager& eventManager, int instance);
    ~ZapWdsProxy();
    ZapWdsProxy(const ZapWdsProxy&) = delete;
    ZapWdsProxy& operator=(const ZapWdsProxy&) = delete;

    // Whom to tell of a changed profile, on the engine thread.
    void registerProfileChangedInd(std::function<void(ProfileChangedInd)> callback);

    // Each of these sends one request and is false or null when the modem refuses it, does not
    // answer in time, or is not there. add() gives the profile the index that the modem chose.
    bool add(ModemProfile& profile);
    bool modify(const ModemProfile& diff, TechType techType, int profileId);
    bool remove(TechType techType, int profileId);
    std::shared_ptr<ModemProfile> get(TechType techType, int profileId);

    // All 3GPP profiles, then all 3GPP2 ones, in the modem's order; null for one that cannot be
    // read. A list that cannot be had ends it.
    std::list<std::shared_ptr<ModemProfile>> getAllProfiles();

    // Event handlers; arg is the proxy.
    static void handleSvcUp(int fd, void* arg);
    static void handleError(int fd, void* arg);
    static void handleIndication(int fd, void* arg);

    // The ZAP library's callbacks; user is the proxy.
    static void zapNotifyCb(zap_client_handle client, zap_service_object service,
                            zap_service_event event, void* user);
    static void zapIndCb(zap_client_handle client, unsigned int messageId, unsigned char* buffer,
                         unsigned int length, void* user);
    static void zapErrorCb(zap_client_handle client, int error, void* user);

    void registerZapSvcUp();
    void registerZapIndications();
    void handleProfileChangedInd(wds_profile_changed_ind_type_v01 profile, uint32_t event);

  private:
    struct Release {
        void operator()(zap_client_handle handle) const { zap_client_release(handle); }
    };
    using Handle = std::unique_ptr<zap_client, Release>;

    // An indication as it arrived, and the client that it arrived for.
    struct IndInfo_t {
        zap_client_handle client;
        bool clientReleased;  // the handle must not be used any more
        unsigned int messageId;
        std::vector<unsigned char> message;
    };

    void initClient();
    void releaseClient();
    void restart();
    void handleQueue();
    void handleQueued(const IndInfo_t& ind);
    template <class Request, class Response>
    bool send(unsigned int messageId, Request& request, Response& response);
    template <class Request>
    void sendRegistration(unsigned int messageId, const char* name, Request& request);
    template <class Request, class Response>
    bool sendProfileRequest(unsigned int messageId, const char* name, Request& request,
                            Response& response);

    EventManager& eventManager;
    const int instance;
    const zap_service_object serviceObject;  // null when the service is not to be had
    Handle client;                           // null while none is open
    Handle notifier;                         // null while not waiting for the service
    zap_os_params osParams = {};
    Mutex queueMutex;  // never held while an indication is handled: that may need the thread it
                       // blocks
    std::deque<IndInfo_t> indQueue ZEM_GUARDED_BY(queueMutex);
    const EventFd svcUpFd;
    const EventFd errorFd;
    const EventFd indicationFd;
    std::function<void(ProfileChangedInd)> profileChangedIndCb;
};

}  // namespace zem
