// ClientResponse and its family: the engine's answers.
//
// Made on the engine thread and moved to the caller's, which alone may drop the keys in them.
// Accessors return copies, so that their results may outlive the response.
#pragma once

#include <list>
#include <memory>
#include <optional>
#include <string>

#include <zem/IProfileKey.h>
#include <zem/ProfileParams.h>

#include "ClientRequest.h"

namespace zem {

enum Status : uint32_t { SUCCESS = 0, FAILURE = 1 };

class ClientResponse {
  public:
    ClientResponse(Status status, ReqRespType type) : status(status), type(type) {}
    virtual ~ClientResponse() = 0;
    ClientResponse(const ClientResponse&) = delete;
    ClientResponse& operator=(const ClientResponse&) = delete;

    // One line for the log: the type's name, a blank, the status, and what the subclass adds.
    virtual std::string dump() const;
    ReqRespType getResponseType() const { return type; }
    Status getStatus() const { return status; }

  private:
    const Status status;
    const ReqRespType type;
};

class AddResponse : public ClientResponse {
  public:
    // The key may be null.
    AddResponse(Status status, std::shared_ptr<IProfileKey> key)
        : ClientResponse(status, ADD), key(std::move(key)) {}
    std::string dump() const override;
    std::shared_ptr<IProfileKey> getAddProfileKey() const { return key; }

  private:
    const std::shared_ptr<IProfileKey> key;
};

class ModifyResponse : public ClientResponse {
  public:
    explicit ModifyResponse(Status status) : ClientResponse(status, MODIFY) {}
};

class DeleteResponse : public ClientResponse {
  public:
    explicit DeleteResponse(Status status) : ClientResponse(status, DELETE) {}
};

class FilterResponse : public ClientResponse {
  public:
    // Keys may be null.
    FilterResponse(Status status, std::list<std::shared_ptr<IProfileKey>> keys)
        : ClientResponse(status, FILTER), keys(std::move(keys)) {}
    std::string dump() const override;
    std::list<std::shared_ptr<IProfileKey>> getFilterResult() const { return keys; }

  private:
    const std::list<std::shared_ptr<IProfileKey>> keys;
};

class MatchResponse : public ClientResponse {
  public:
    MatchResponse(Status status, bool matches) : ClientResponse(status, MATCH), matches(matches) {}
    std::string dump() const override;
    bool getMatchResult() const { return matches; }

  private:
    const bool matches;
};

class GetResponse : public ClientResponse {
  public:
    GetResponse(Status status, std::optional<ProfileParams> params)
        : ClientResponse(status, GET), params(std::move(params)) {}
    std::string dump() const override;
    std::optional<ProfileParams> getParams() const { return params; }

  private:
    const std::optional<ProfileParams> params;
};

class CallbackResponse : public ClientResponse {
  public:
    explicit CallbackResponse(Status status) : ClientResponse(status, CALLBACK) {}
};

class RefreshResponse : public ClientResponse {
  public:
    explicit RefreshResponse(Status status) : ClientResponse(status, REFRESH) {}
};

}  // namespace zem
