#include "CallbackRequest.h"

#include <utility>

#include "DumpText.h"

namespace zem {

void CallbackRequest::setExpirationInfo(std::function<void()> cb, std::weak_ptr<IProfileKey> key,
                                        unsigned long token) {
    expirationCb = std::move(cb);
    expirationKey = std::move(key);
    expirationToken = token;
}

std::string CallbackRequest::dump() const {
    std::string text = ClientRequest::dump();
    if (hasReleaseToken()) {
        text += "Release ";
        append(text, *releaseToken);
    }
    if (hasExpirationInfo()) {
        // Only to print it. The registering thread holds the key until its call returns, so this is
        // not the last reference unless calls overlap.
        const auto key = expirationKey->lock();
        text += "Register ";
        text += key ? key->dump() : "null";
        append(text, *expirationToken);
    }
    return text;
}

}  // namespace zem
