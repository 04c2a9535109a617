#include "ClientRequest.h"

#include "DumpText.h"

namespace zem {
namespace {

constexpr NamedValue<ReqRespType> kReqRespTypeNames[] = {
    {ADD, "Add"},     {MODIFY, "Modify"}, {DELETE, "Delete"},     {FILTER, "Filter"},
    {MATCH, "Match"}, {GET, "Get"},       {CALLBACK, "Callback"}, {REFRESH, "Refresh"},
};

void append(std::string& text, const std::shared_ptr<IProfileKey>& key) {
    if (key) text += key->dump();
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
