#include "ClientResponse.h"

#include "DumpText.h"

namespace zem {
namespace {

constexpr NamedValue<Status> kStatusNames[] = {{SUCCESS, "Success"}, {FAILURE, "Failure"}};

}  // namespace

ClientResponse::~ClientResponse() = default;

std::string ClientResponse::dump() const {
    return nameOf(type) + " " + nameOf(kStatusNames, status);
}

std::string AddResponse::dump() const {
    return ClientResponse::dump() + " " + (key ? key->dump() : "");
}

std::string FilterResponse::dump() const {
    std::string text = ClientResponse::dump() + " ";
    for (const auto& key : keys) text.append(key ? key->dump() : "null") += ',';
    return text;
}

std::string MatchResponse::dump() const {
    return ClientResponse::dump() + " " + nameOf(matches);
}

std::string GetResponse::dump() const {
    return ClientResponse::dump() + " " + (params ? params->dump() : "");
}

}  // namespace zem
