#include "ClientRequestManager.h"

#include <pthread.h>
#include <sys/epoll.h>

#include <utility>

#include "CallbackRequest.h"
#include "LogWrapper.h"

namespace zem {
namespace {

template <class Request>
const Request* as(const ClientRequest& request) {
    return dynamic_cast<const Request*>(&request);
}

// Null for a key that is null or was not made by the cache.
std::shared_ptr<ProfileKey> toProfileKey(const std::shared_ptr<IProfileKey>& key) {
    return std::dynamic_pointer_cast<ProfileKey>(key);
}

Status toStatus(bool succeeded) {
    return succeeded ? SUCCESS : FAILURE;
}

}  // namespace

ClientRequestManager::ClientRequestManager(int instance)
    : cache(eventManager, instance,
            [handoff = handoff](const std::shared_ptr<ClientRequest>& request) {
                return handoff->call(request);
            }) {
    ZEM_LOG(LOG_DEBUG, "zem::ClientRequestManager: constructor");
    thread = std::thread(&ClientRequestManager::runZemThread, this);
    eventManager.addEventHandler(handoff->open(), handleClientRequest, this, nullptr, EPOLLIN);
}

ClientRequestManager::~ClientRequestManager() {
    ZEM_LOG(LOG_DEBUG, "zem::ClientRequestManager: destructor");
    {
        const EventFd requestFd = handoff->close(eventManager);
        eventManager.removeEventHandler(requestFd.get());
    }
    running = false;
    eventManager.wake();
    thread.join();
}

std::shared_ptr<ClientResponse> ClientRequestManager::processClientRequest(
    const std::shared_ptr<ClientRequest>& request) {
    // A caller that still waits when the engine goes outlives this object.
    const auto kept = handoff;
    return kept->call(request);
}

std::vector<std::string> ClientRequestManager::dump() {
    return cache.dump();
}

void ClientRequestManager::runZemThread() {
    pthread_setname_np(pthread_self(), "zem-engine");
    handoff->enterEngine();
    ZEM_LOG(LOG_API, "ZEM thread started");
    while (running) eventManager.processEvents();
    handoff->leaveEngine();
}

void ClientRequestManager::handleClientRequest(int fd, void* arg) {
    ZEM_LOG(LOG_DEBUG, ":%d:%s", 77, "handleClientRequest");
    if (!arg) {
        drain(fd, sizeof(uint64_t), LOG_ERROR);
        ZEM_LOG(LOG_ERROR, "arg is null");
        return;
    }
    auto* const manager = static_cast<ClientRequestManager*>(arg);
    manager->handoff->answer(
        fd, [manager](const ClientRequest& request) { return manager->dispatch(request); });
}

std::shared_ptr<ClientResponse> ClientRequestManager::dispatch(const ClientRequest& request) {
    const bool refused = refreshInProgress;
    switch (request.getRequestType()) {
        case ADD: {
            const auto* add = as<AddRequest>(request);
            if (!add || refused) return std::make_shared<AddResponse>(FAILURE, nullptr);
            return std::make_shared<AddResponse>(SUCCESS, cache.add(add->params));
        }
        case MODIFY: {
            const auto* modify = as<ModifyRequest>(request);
            if (!modify || refused) return std::make_shared<ModifyResponse>(FAILURE);
            const auto key = toProfileKey(modify->key);
            return std::make_shared<ModifyResponse>(toStatus(cache.modify(modify->params, key)));
        }
        case DELETE: {
            const auto* remove = as<DeleteRequest>(request);
            if (!remove || refused) return std::make_shared<DeleteResponse>(FAILURE);
            const auto key = toProfileKey(remove->key);
            return std::make_shared<DeleteResponse>(toStatus(cache.remove(key)));
        }
        case FILTER: {
            const auto* filter = as<FilterRequest>(request);
            std::list<std::shared_ptr<IProfileKey>> keys;
            if (!filter || refused) return std::make_shared<FilterResponse>(FAILURE, keys);
            for (auto& key : cache.filter(filter->params)) keys.push_back(std::move(key));
            return std::make_shared<FilterResponse>(SUCCESS, std::move(keys));
        }
        case MATCH: {
            const auto* match = as<MatchRequest>(request);
            if (!match || refused) return std::make_shared<MatchResponse>(FAILURE, false);
            const auto key = toProfileKey(match->key);
            if (!key) return std::make_shared<MatchResponse>(FAILURE, false);
            return std::make_shared<MatchResponse>(SUCCESS, cache.match(match->params, key));
        }
        case GET: {
            const auto* get = as<GetRequest>(request);
            std::optional<ProfileParams> params;
            if (get && !refused) params = cache.get(toProfileKey(get->key));
            const Status status = toStatus(params.has_value());
            return std::make_shared<GetResponse>(status, std::move(params));
        }
        case CALLBACK:
            return std::make_shared<CallbackResponse>(
                toStatus(!refused && handleCallback(request)));
        case REFRESH: {
            const auto* refresh = as<RefreshRequest>(request);
            if (!refresh) break;
            refreshInProgress = refresh->status == START;
            if (!refreshInProgress) cache.refresh();
            return std::make_shared<RefreshResponse>(SUCCESS);
        }
    }
    return nullptr;
}

bool ClientRequestManager::handleCallback(const ClientRequest& request) {
    const auto* callback = as<CallbackRequest>(request);
    if (!callback) return false;
    if (callback->hasReleaseToken()) return cache.releaseProfile(callback->getReleaseToken());
    // An empty function would end the process when its profile goes.
    if (callback->hasExpirationInfo() && callback->getExpirationCb()) {
        cache.registerExpirationListener(callback->getExpirationCb(), callback->getExpirationKey(),
                                         callback->getExpirationToken());
    }
    return false;  // a registration answers failure even when done; nobody looks at it
}

}  // namespace zem
