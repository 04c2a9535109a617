#include "ClientResponse.h"

#include "DumpText.h"

namespace zem {
namespace {

constexpr NamedValue<Status> kStatusNames[] = {{SUCCESS, "Success"}, {FAILURE, "Failure"}};

}  // namespace

ClientResponse::~ClientResponse() = default;

std::string ClientResponse::dump() const {
    std::string text = nameOf(type) + " ";
    append(text, kStatusNames, status);
    return text;
}

std::string AddResponse::dump() const {
    return ClientResponse::dump() + " " + (key ? key->dump() : "");
}

std::string FilterResponse::dump() const {
    std::string text = ClientResponse::dump() + " ";
    text.reserve(text.size() + keys.size() * sizeof "3GPP:255 token=12345,");
    for (const auto& key : keys) text.append(key ? key->dump() : "null") += ',';
    return text;
}

std::string MatchResponse::dump() const {
    std::string text = ClientResponse::dump() + " ";
    append(text, matches);
    return text;
}

std::string GetResponse::dump() const {
    std::string text = ClientResponse::dump() + " ";
    if (params) {
        text.reserve(kUsualLine);
        appendDump(text, *params);
    }
    return text;
}

}  // namespace zem
