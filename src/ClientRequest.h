// ClientRequest and its family: what a caller's call looks like on its way to the engine.
//
// Made and owned by the caller's thread; the engine only looks at it. CallbackRequest has a header
// of its own.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include <zem/IProfileKey.h>
#include <zem/PDCRefreshStatus.h>
#include <zem/ProfileParams.h>

namespace zem {

enum ReqRespType : uint32_t {
    ADD = 0,
    MODIFY = 1,
    DELETE = 2,
    FILTER = 3,
    MATCH = 4,
    GET = 5,
    CALLBACK = 6,
    REFRESH = 7,
};

std::string nameOf(ReqRespType type);
std::ostream& operator<<(std::ostream& out, ReqRespType type);

class ClientRequest {
  public:
    explicit ClientRequest(ReqRespType type) : type(type) {}
    virtual ~ClientRequest() = default;
    ClientRequest(const ClientRequest&) = delete;
    ClientRequest& operator=(const ClientRequest&) = delete;

    // One line for the log: the type's name, a blank, and what the subclass adds.
    virtual std::string dump() const;
    ReqRespType getRequestType() const { return type; }

    // What dump() returned when it was first asked for. The caller's thread before the request is
    // handed over, the engine's after.
    const std::string& text() const;

  private:
    const ReqRespType type;
    mutable std::optional<std::string> rendered;
};

class AddRequest : public ClientRequest {
  public:
    explicit AddRequest(const AddProfileParams& params) : ClientRequest(ADD), params(params) {}
    std::string dump() const override;
    const AddProfileParams& getAddProfileParams() const { return params; }

  private:
    const AddProfileParams params;
};

class ModifyRequest : public ClientRequest {
  public:
    ModifyRequest(const ModifyProfileParams& params, std::shared_ptr<IProfileKey> key)
        : ClientRequest(MODIFY), params(params), key(std::move(key)) {}
    std::string dump() const override;
    const ModifyProfileParams& getModifyProfileParams() const { return params; }
    const std::shared_ptr<IProfileKey>& getModifyProfileKey() const { return key; }

  private:
    const ModifyProfileParams params;
    const std::shared_ptr<IProfileKey> key;
};

class DeleteRequest : public ClientRequest {
  public:
    explicit DeleteRequest(std::shared_ptr<IProfileKey> key)
        : ClientRequest(DELETE), key(std::move(key)) {}
    std::string dump() const override;
    const std::shared_ptr<IProfileKey>& getDeleteProfileKey() const { return key; }

  private:
    const std::shared_ptr<IProfileKey> key;
};

class FilterRequest : public ClientRequest {
  public:
    explicit FilterRequest(const FilterProfileParams& params)
        : ClientRequest(FILTER), params(params) {}
    std::string dump() const override;
    const FilterProfileParams& getFilterParams() const { return params; }

  private:
    const FilterProfileParams params;
};

class MatchRequest : public ClientRequest {
  public:
    MatchRequest(const FilterProfileParams& params, std::shared_ptr<IProfileKey> key)
        : ClientRequest(MATCH), params(params), key(std::move(key)) {}
    std::string dump() const override;
    const FilterProfileParams& getMatchParams() const { return params; }
    const std::shared_ptr<IProfileKey>& getMatchKey() const { return key; }

  private:
    const FilterProfileParams params;
    const std::shared_ptr<IProfileKey> key;
};

class GetRequest : public ClientRequest {
  public:
    explicit GetRequest(std::shared_ptr<IProfileKey> key)
        : ClientRequest(GET), key(std::move(key)) {}
    std::string dump() const override;
    const std::shared_ptr<IProfileKey>& getProfileKey() const { return key; }

  private:
    const std::shared_ptr<IProfileKey> key;
};

class RefreshRequest : public ClientRequest {
  public:
    explicit RefreshRequest(PDCRefreshStatus status) : ClientRequest(REFRESH), status(status) {}

    const PDCRefreshStatus status;
};

}  // namespace zem
