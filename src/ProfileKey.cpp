#include "ProfileKey.h"

#include <utility>

#include "CallbackRequest.h"
#include "DumpText.h"
#include "LogWrapper.h"

namespace zem {

IProfileKey::~IProfileKey() noexcept(false) = default;

ProfileKey::ProfileKey(TechType techType, int profileId, unsigned long token,
                       RequestFunction processRequest)
    : techType(techType),
      profileId(profileId),
      token(token),
      processRequest(std::move(processRequest)) {}

ProfileKey::~ProfileKey() noexcept(false) {
    auto request = std::make_shared<CallbackRequest>();
    request->setReleaseToken(token);
    processRequest(std::move(request));
    ZEM_LOG(LOG_DEBUG, "~ProfileKey");
}

void ProfileKey::registerExpirationListener(std::function<void()> cb) {
    // Held until the engine has answered: it locks the weak key to print it, and must never be the
    // last.
    const auto self = weak_from_this().lock();
    auto request = std::make_shared<CallbackRequest>();
    request->setExpirationInfo(std::move(cb), self, token);
    processRequest(std::move(request));
}

std::string ProfileKey::dump() {
    std::string text;
    append(text, techType);
    text += ':';
    append(text, profileId);
    text += " token=";
    append(text, token);
    return text;
}

}  // namespace zem
