// ProfileKey: the cache's key to one of its entries. Made by the cache on the engine thread, used
// and dropped on callers' threads, never on the engine's.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <zem/IProfileKey.h>

#include "ClientRequest.h"
#include "ClientResponse.h"

namespace zem {

// Carries a request to the engine and waits for its answer; null when there is none.
using RequestFunction =
    std::function<std::shared_ptr<ClientResponse>(std::shared_ptr<ClientRequest>)>;

class ProfileKey : public IProfileKey {
  public:
    ProfileKey(TechType techType, int profileId, unsigned long token,
               RequestFunction processRequest);
    ~ProfileKey() noexcept(false) override;

    int getProfileId() override { return profileId; }
    TechType getTechType() override { return techType; }
    void registerExpirationListener(std::function<void()> cb) override;
    std::string dump() override;

    unsigned long getToken() const { return token; }

  private:
    const TechType techType;
    const int profileId;
    const uint64_t token;
    const RequestFunction processRequest;
};

}  // namespace zem
