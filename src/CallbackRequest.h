// CallbackRequest: what a profile key tells the engine: that it goes, or whom to call when its
// profile does.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "ClientRequest.h"

namespace zem {

class CallbackRequest : public ClientRequest {
  public:
    CallbackRequest() : ClientRequest(CALLBACK) {}

    void setReleaseToken(unsigned long token) { releaseToken = token; }
    bool hasReleaseToken() const { return releaseToken.has_value(); }
    unsigned long getReleaseToken() const { return releaseToken.value_or(0); }

    void setExpirationInfo(std::function<void()> cb, std::weak_ptr<IProfileKey> key,
                           unsigned long token);
    bool hasExpirationInfo() const { return expirationToken && expirationCb && expirationKey; }
    unsigned long getExpirationToken() const { return expirationToken.value_or(0); }
    std::function<void()> getExpirationCb() const { return expirationCb.value_or(nullptr); }
    std::weak_ptr<IProfileKey> getExpirationKey() const {
        return expirationKey.value_or(std::weak_ptr<IProfileKey>());
    }

    std::string dump() const override;

  private:
    std::optional<uint64_t> releaseToken;
    std::optional<uint64_t> expirationToken;
    std::optional<std::function<void()>> expirationCb;
    std::optional<std::weak_ptr<IProfileKey>> expirationKey;
};

}  // namespace zem
