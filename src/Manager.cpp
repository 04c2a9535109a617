#include <zem/Manager.h>

#include <exception>
#include <utility>

#include "AdbWriter.h"
#include "ClientRequest.h"
#include "ClientRequestManager.h"
#include "ClientResponse.h"
#include "DiagWriter.h"
#include "LocalLogBuffer.h"
#include "LogWrapper.h"

namespace zem {
namespace {

// The answer to a request, or null. The caller owns the request until it has the answer, so that no
// key in it can die on the engine thread.
template <class Response, class Request>
std::shared_ptr<Response> ask(ClientRequestManager& engine, const char* operation,
                              const std::shared_ptr<Request>& request, const char* failure) {
    ZEM_LOG(LOG_API, "Manager::%s > %s", operation, request->text().c_str());
    const auto response = engine.processClientRequest(request);
    ZEM_LOG(LOG_API, "Manager::%s < %s", operation, response ? response->dump().c_str() : "");
    auto answer = std::dynamic_pointer_cast<Response>(response);
    if (!answer) ZEM_LOG(LOG_ERROR, "%s", failure);
    return answer;
}

}  // namespace

Manager& Manager::getInstance() {
    // Never destroyed, for the sake of globals that call it in their destructors: they find no
    // engine any more.
    static Manager& instance = *new Manager;
    static const struct AtExit {
        // In this order: a caller that still waits has read the pointer, and is freed by the
        // engine's end.
        ~AtExit() {
            delete instance.engine.get();
            static_cast<void>(instance.engine.release());
        }
    } atExit;
    return instance;
}

Manager::Manager() {
    ZEM_LOG(LOG_DEBUG, "zem::Manager: constructor");
}

Manager::~Manager() = default;

void Manager::init(int instance, bool useAndroidLog) {
    std::unique_ptr<LogWriter> writer;
    if (useAndroidLog) {
        writer = std::make_unique<AdbWriter>();
    } else {
        writer = std::make_unique<DiagWriter>();
    }
    LogWrapper::getInstance().setLogWriter(std::move(writer));
    ZEM_LOG(LOG_API, "Manager::init(%d)", instance);
    try {
        auto next = std::make_unique<ClientRequestManager>(instance);
        engine.swap(next);  // the one before stops here, after the new one is in place
    } catch (const std::exception& error) {
        ZEM_LOG(LOG_ERROR, "Manager::init(%d) failed: %s", instance, error.what());
    }
}

bool Manager::initialized() const {
    if (!engine) ZEM_LOG(LOG_ERROR, "Manager not initialized!");
    return engine != nullptr;
}

std::shared_ptr<IProfileKey> Manager::addProfile(const AddProfileParams& params) {
    if (!initialized()) return nullptr;
    const auto response =
        ask<AddResponse>(*engine, "addProfile", std::make_shared<AddRequest>(params),
                         "Unable to cast to AddResponse");
    return response ? response->getAddProfileKey() : nullptr;
}

bool Manager::modifyProfile(const ModifyProfileParams& params, std::shared_ptr<IProfileKey> key) {
    if (!initialized()) return false;
    const auto response = ask<ModifyResponse>(
        *engine, "modifyProfile", std::make_shared<ModifyRequest>(params, std::move(key)),
        "Unable to cast to ModifyResponse");
    return response && response->getStatus() == SUCCESS;
}

bool Manager::deleteProfile(std::shared_ptr<IProfileKey> key) {
    if (!initialized()) return false;
    const auto response = ask<DeleteResponse>(*engine, "deleteProfile",
                                              std::make_shared<DeleteRequest>(std::move(key)),
                                              "Unable to cast to DeleteResponse");
    return response && response->getStatus() == SUCCESS;
}

std::list<std::shared_ptr<IProfileKey>> Manager::filter(const FilterProfileParams& params) {
    if (!initialized()) return {};
    const auto response =
        ask<FilterResponse>(*engine, "filter", std::make_shared<FilterRequest>(params),
                            "Unable to cast to FilterResponse");
    if (!response) return {};
    return response->getFilterResult();
}

std::optional<ProfileParams> Manager::getProfile(std::shared_ptr<IProfileKey> key) {
    if (!initialized()) return std::nullopt;
    const auto response = ask<GetResponse>(
        *engine, "getProfile", std::make_shared<GetRequest>(std::move(key)), "Error in getProfile");
    if (!response || response->getStatus() != SUCCESS) return std::nullopt;
    return response->getParams();
}

bool Manager::match(const FilterProfileParams& params, std::shared_ptr<IProfileKey> key) {
    if (!initialized()) return false;
    const auto response =
        ask<MatchResponse>(*engine, "match", std::make_shared<MatchRequest>(params, std::move(key)),
                           "Unable to cast to MatchResponse");
    return response && response->getMatchResult();
}

void Manager::refresh(PDCRefreshStatus status) {
    if (!initialized()) return;
    const auto response =
        ask<RefreshResponse>(*engine, "refresh", std::make_shared<RefreshRequest>(status),
                             "Unable to cast to RefreshResponse");
    if (!response) return;
    if (status == START) {
        ZEM_LOG(LOG_INFO, "ZEM refresh started");
    } else {
        ZEM_LOG(LOG_INFO, "ZEM refresh completed");
    }
}

std::vector<std::string> Manager::dump() {
    std::vector<std::string> lines;
    if (engine) lines = engine->dump();
    lines.emplace_back();
    lines.emplace_back("Logs:");
    for (auto& line : LocalLogBuffer::getInstance().getLogs()) lines.push_back(std::move(line));
    return lines;
}

}  // namespace zem
