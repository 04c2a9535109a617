// ModemProfile: the library's copy of one data profile as the modem stores it.
//
// Engine thread only. Listeners run on the thread that drops the last owner.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <zem/IProfileKey.h>
#include <zem/ProfileParams.h>

#include "wds_service_v01.h"

namespace zem {

using ExpirationListener = std::pair<std::function<void()>, std::weak_ptr<IProfileKey>>;

// Whether the listener's key has gone. Never lock() a key to find out: the engine might become its
// last owner, and a key destroyed on the engine thread waits for the engine.
bool expired(const ExpirationListener& listener);

// The profile names that the library gives, and knows its own 3GPP profiles by.
inline constexpr char kZemProfileName[] = "zem_profile";
inline constexpr char kZemIAProfileName[] = "zem_profile_ia";

// The accessors of an optional setting: the setter marks it present, and nothing clears it.
#define ZEM_ACCESSORS(Type, Name, member) \
    bool has##Name() const {              \
        return member.has_value();        \
    }                                     \
    Type get##Name() const {              \
        return member.value_or(Type{});   \
    }                                     \
    void set##Name(Type value) {          \
        member = std::move(value);        \
    }

// A caller's filter made ready to be held against many profiles. Refers to the filter, which must
// outlive it.
struct ProfileQuery {
    ProfileQuery(const FilterProfileParams& params);  // NOLINT: a filter is a query

    const FilterProfileParams& params;
    std::optional<std::string> apnName;    // as profiles hold theirs: cut, in lower case
    std::optional<uint64_t> apnTypesMask;  // in the modem's bit layout
    // Most filters ask for few settings; whole groups that none is asked of are passed over.
    bool asksCommon = false;
    bool asksKindOrIP = false;
    bool asks3gpp = false;
};

class ModemProfile {
  public:
    virtual ~ModemProfile() noexcept(false);
    ModemProfile(const ModemProfile&) = delete;
    ModemProfile& operator=(const ModemProfile&) = delete;

    // Whether every setting that the filter asks for agrees.
    bool match(const ProfileQuery& query) const {
        return matchIdentity(query) && (!query.asksCommon || matchCommon(query)) && matchOwn(query);
    }

    // Takes over the settings that are present in other; null changes nothing.
    virtual void apply(const std::shared_ptr<ModemProfile>& other);

    // A profile that holds only what must change to satisfy params, or null when nothing must.
    virtual std::shared_ptr<ModemProfile> diff(const ModifyProfileParams& params) const = 0;

    virtual ProfileParams get() const = 0;

    virtual wds_create_profile_req_msg_v01 constructAddRequest() const = 0;
    virtual wds_modify_profile_settings_req_msg_v01 constructModifyRequest() const = 0;

    // One line for the log; the password is in the clear.
    virtual std::string dump() const;

    TechType getTechType() const { return techType; }

    // -1 until the modem has assigned one.
    int getProfileId() const { return profileId; }
    void setProfileId(int id) { profileId = id; }

    bool getIsPersistent() const { return isPersistent; }
    void setIsPersistent(bool value) { isPersistent = value; }

    // Whether this process created it; the name alone does not tell.
    bool getIsZemCreated() const { return isZemCreated; }
    void setIsZemCreated(bool value) { isZemCreated = value; }

    // Keys handed out. Overflow aborts the process; a count below zero is allowed.
    int getRefCount() const { return refCount; }
    void incRefCount() { addToRefCount(1); }
    void decRefCount() { addToRefCount(-1); }

    ZEM_ACCESSORS(std::string, ApnName, apnName)
    ZEM_ACCESSORS(uint64_t, ApnTypesMask, apnTypesMask)
    ZEM_ACCESSORS(IPType, CommonIPType, commonIPType)
    ZEM_ACCESSORS(std::string, UserName, userName)
    ZEM_ACCESSORS(std::string, Password, password)
    ZEM_ACCESSORS(AuthType, AuthType, authType)
    ZEM_ACCESSORS(ApnClass, ApnClass, apnClass)
    ZEM_ACCESSORS(bool, IsClatEnabled, isClatEnabled)

    uint64_t constructProfileIdentifier() const;

    // The callback runs when this profile is destroyed, in the order of registration, unless its
    // key has gone by then.
    void registerExpirationListener(std::function<void()> callback, std::weak_ptr<IProfileKey> key);
    void clearExpiredListeners();

    // ApnTypes against the mask, whether or not the profile has one.
    bool matchSubsetApnTypesMask(unsigned int apnTypes) const;
    bool matchExactApnTypesMask(unsigned int apnTypes) const;

    // The parts of diff, get and the messages that both technologies share.
    void updateDiffParameters(const ModifyProfileParams& params, ProfileParams& delta,
                              bool& changed) const;
    void updateGetParameters(FilterProfileParams& out) const;
    void updateAddParameters(wds_create_profile_req_msg_v01& message) const;
    void updateModifyParameters(wds_modify_profile_settings_req_msg_v01& message) const;

  protected:
    ModemProfile(TechType techType, const ProfileParams& params);
    ModemProfile(TechType techType, int profileId,
                 const wds_get_profile_settings_resp_msg_v01& response);

    // Whether the filter's type agrees with the profile's, both read as sets of V4 and V6.
    static bool matchIPType(IPType held, IPType asked, bool subset, bool superset);

    // Texts, which filters take longest to compare, stand first.
    std::optional<std::string> apnName;  // in lower case
    std::optional<std::string> userName;
    std::optional<std::string> password;
    std::optional<uint64_t> apnTypesMask;  // in the modem's bit layout
    std::optional<IPType> commonIPType;    // the PDP/PDN type; 3GPP: on the home network
    std::optional<AuthType> authType;
    std::optional<ApnClass> apnClass;
    std::optional<bool> isClatEnabled;

  private:
    // The settings that only one technology has, or reads in its own way.
    virtual bool matchOwn(const ProfileQuery& query) const = 0;

    bool matchIdentity(const ProfileQuery& query) const {
        const FilterProfileParams& params = query.params;
        if (params.filterByTechType && *params.filterByTechType != techType) return false;
        if (params.filterByProfileId && *params.filterByProfileId != profileId) return false;
        return !query.apnName || matchApnName(query);
    }
    bool matchApnName(const ProfileQuery& query) const;
    bool matchCommon(const ProfileQuery& query) const;

    template <class Message>
    void fillCommon(Message& message) const;
    void addToRefCount(int change);

    const TechType techType;
    int profileId = -1;
    bool isPersistent = false;
    bool isZemCreated = false;
    int refCount = 0;
    std::list<ExpirationListener> listeners;
};

}  // namespace zem
