#include "ClientRequest.h"

#include <typeinfo>

#include "DumpText.h"
#include "ProfileKey.h"

namespace zem {
namespace {

constexpr NamedValue<ReqRespType> kReqRespTypeNames[] = {
    {ADD, "Add"},     {MODIFY, "Modify"}, {DELETE, "Delete"},     {FILTER, "Filter"},
    {MATCH, "Match"}, {GET, "Get"},       {CALLBACK, "Callback"}, {REFRESH, "Refresh"},
};

void append(std::string& text, const std::shared_ptr<IProfileKey>& key) {
    if (key) text += key->dump();
}

// The library's own keys never change. Compared exactly: a class derived from theirs may.
bool mayDumpOtherwise(const IProfileKey& key) {
    return typeid(key) != typeid(ProfileKey);
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

ClientRequest::ClientRequest(ReqRespType type, const std::shared_ptr<IProfileKey>& key)
    : type(type), mayChange(key && mayDumpOtherwise(*key)) {}

const std::string& ClientRequest::text() const {
    if (!rendered || mayChange) rendered = dump();
    return *rendered;
}

std::string ClientRequest::dump() const {
    std::string text;
    text.reserve(kUsualLine);
    append(text, kReqRespTypeNames, type);
    text += ' ';
    return text;
}

std::string AddRequest::dump() const {
    std::string text = ClientRequest::dump();
    appendDump(text, params);
    return text;
}

std::string ModifyRequest::dump() const {
    std::string text = ClientRequest::dump();
    append(text, key);
    text += ' ';
    appendDump(text, params);
    return text;
}

std::string DeleteRequest::dump() const {
    std::string text = ClientRequest::dump();
    append(text, key);
    return text;
}

std::string FilterRequest::dump() const {
    std::string text = ClientRequest::dump();
    text += "params: ";
    appendDump(text, params);
    return text;
}

std::string MatchRequest::dump() const {
    std::string text = ClientRequest::dump();
    append(text, key);
    text += ' ';
    appendDump(text, params);
    return text;
}

std::string GetRequest::dump() const {
    std::string text = ClientRequest::dump();
    append(text, key);
    return text;
}

}  // namespace zem
