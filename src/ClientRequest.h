// ClientRequest and its family: what a caller's call looks like on its way to the engine.
//
// Made and owned by the caller's thread; the engine only looks at it. CallbackRequest has a header
// of its own. Accessors return copies, so that their results may outlive the request; the engine
// reads the fields in place.
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

    // What dump() returns now, rendered only once where it cannot change. The caller's thread
    // before the request is handed over, the engine's after.
    const std::string& text() const;

  protected:
    // For a request whose dump() always returns the same.
    struct Constant {};
    ClientRequest(ReqRespType type, Constant) : type(type), mayChange(false) {}
    // For one that holds a key, whose own dump() may change unless the library made the key.
    ClientRequest(ReqRespType type, const std::shared_ptr<IProfileKey>& key);

  private:
    const ReqRespType type;
    const bool mayChange = true;
    mutable std::optional<std::string> rendered;
};

class AddRequest : public ClientRequest {
  public:
    explicit AddRequest(const AddProfileParams& params)
        : ClientRequest(ADD, Constant()), params(params) {}
    std::string dump() const override;
    AddProfileParams getAddProfileParams() const { return params; }

  private:
    friend class ClientRequestManager;
    const AddProfileParams params;
};

class ModifyRequest : public ClientRequest {
  public:
    ModifyRequest(const ModifyProfileParams& params, std::shared_ptr<IProfileKey> key)
        : ClientRequest(MODIFY, key), params(params), key(std::move(key)) {}
    std::string dump() const override;
    ModifyProfileParams getModifyProfileParams() const { return params; }
    std::shared_ptr<IProfileKey> getModifyProfileKey() const { return key; }

  private:
    friend class ClientRequestManager;
    const ModifyProfileParams params;
    const std::shared_ptr<IProfileKey> key;
};

class DeleteRequest : public ClientRequest {
  public:
    explicit DeleteRequest(std::shared_ptr<IProfileKey> key)
        : ClientRequest(DELETE, key), key(std::move(key)) {}
    std::string dump() const override;
    std::shared_ptr<IProfileKey> getDeleteProfileKey() const { return key; }

  private:
    friend class ClientRequestManager;
    const std::shared_ptr<IProfileKey> key;
};

class FilterRequest : public ClientRequest {
  public:
    explicit FilterRequest(const FilterProfileParams& params)
        : ClientRequest(FILTER, Constant()), params(params) {}
    std::string dump() const override;
    FilterProfileParams getFilterParams() const { return params; }

  private:
    friend class ClientRequestManager;
    const FilterProfileParams params;
};

class MatchRequest : public ClientRequest {
  public:
    MatchRequest(const FilterProfileParams& params, std::shared_ptr<IProfileKey> key)
        : ClientRequest(MATCH, key), params(params), key(std::move(key)) {}
    std::string dump() const override;
    FilterProfileParams getMatchParams() const { return params; }
    std::shared_ptr<IProfileKey> getMatchKey() const { return key; }

  private:
    friend class ClientRequestManager;
    const FilterProfileParams params;
    const std::shared_ptr<IProfileKey> key;
};

class GetRequest : public ClientRequest {
  public:
    explicit GetRequest(std::shared_ptr<IProfileKey> key)
        : ClientRequest(GET, key), key(std::move(key)) {}
    std::string dump() const override;
    std::shared_ptr<IProfileKey> getProfileKey() const { return key; }

  private:
    friend class ClientRequestManager;
    const std::shared_ptr<IProfileKey> key;
};

class RefreshRequest : public ClientRequest {
  public:
    explicit RefreshRequest(PDCRefreshStatus status)
        : ClientRequest(REFRESH, Constant()), status(status) {}

    const PDCRefreshStatus status;
};

}  // namespace zem
