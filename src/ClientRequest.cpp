#include "ClientRequest.h"

#include "DumpText.h"

namespace zem {
namespace {

constexpr NamedValue<ReqRespType> kReqRespTypeNames[] = {
    {ADD, "Add"},     {MODIFY, "Modify"}, {DELETE, "Delete"},     {FILTER, "Filter"},
    {MATCH, "Match"}, {GET, "Get"},       {CALLBACK, "Callback"}, {REFRESH, "Refresh"},
};

std::string dumpOf(const std::shared_ptr<IProfileKey>& key) {
    return key ? key->dump() : "";
}

}  // namespace

std::string nameOf(ReqRespType type) {
    std::string name;
    append(name, kReqRespTypeNames, type);
    return name;
}

std::ostream& operator<<(std::ostream& out, ReqRespType type) {
    return out << nameOf(type);
}

const std::string& ClientRequest::text() const {
    if (!rendered) rendered = dump();
    return *rendered;
}

std::string ClientRequest::dump() const {
    return nameOf(type) + " ";
}

std::string AddRequest::dump() const {
    return ClientRequest::dump() + params.dump();
}

std::string ModifyRequest::dump() const {
    return ClientRequest::dump() + dumpOf(key) + " " + params.dump();
}

std::string DeleteRequest::dump() const {
    return ClientRequest::dump() + dumpOf(key);
}

std::string FilterRequest::dump() const {
    return ClientRequest::dump() + "params: " + params.dump();
}

std::string MatchRequest::dump() const {
    return ClientRequest::dump() + dumpOf(key) + " " + params.dump();
}

std::string GetRequest::dump() const {
    return ClientRequest::dump() + dumpOf(key);
}

}  // namespace zem
