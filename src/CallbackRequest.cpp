#include "CallbackRequest.h"

#include <utility>

namespace zem {

void CallbackRequest::setExpirationInfo(std::function<void()> cb, std::weak_ptr<IProfileKey> key,
                                        unsigned long token) {
    expirationCb = std::move(cb);
    expirationKey = std::move(key);
    expirationToken = token;
}

std::string CallbackRequest::dump() const {
    std::string text = ClientRequest::dump();
    if (hasReleaseToken()) text += "Release " + std::to_string(*releaseToken);
    if (hasExpirationInfo()) {
        // Only to print it: the registering thread holds the key meanwhile, so this is never the
        // last.
        const auto key = expirationKey->lock();
        text += "Register " + (key ? key->dump() : "null") + std::to_string(*expirationToken);
    }
    return text;
}

}  // namespace zem
