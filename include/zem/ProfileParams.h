// ProfileParams and its family: the records that callers fill to add, modify, filter and match data
// profiles, and the enumerations in them.
//
// Every setting is optional. A setter marks it present and nothing clears it again; the getter of
// an absent setting gives its type's zero (false, 0, an empty text, the enumerator or number 0), so
// ask has<Setting> first. Nothing is checked here. Plain values: no thread rule.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include <zem/Annotations.h>

namespace zem {

// The family of modem profiles.
enum class TechType : uint32_t {
    TECH_3GPP = 0,   // GSM, UMTS, LTE and on
    TECH_3GPP2 = 1,  // CDMA and its kin
};

// PDP/PDN type, also read as a set of two bits.
enum class IPType : uint32_t {
    UNKNOWN = 0,  // no type, or none that the library knows
    V4 = 1,       // IPv4
    V6 = 2,       // IPv6
    V4V6 = 3,     // both
};

// Authentication protocols, also read as a set of two bits.
enum class AuthType : uint32_t {
    NONE = 0,      // no authentication
    PAP = 1,       // password in the clear
    CHAP = 2,      // challenge and response
    PAP_CHAP = 3,  // either
};

// APN class of the operator's policy; an absent class has no value of its own.
enum class ApnClass : uint32_t {
    IMS = 1,   // voice and messages over IP
    ADMN = 2,  // the operator's administration
    INET = 3,  // the internet
    APP = 4,   // the operator's applications
};

// APN types, as bits of a mask.
enum ApnTypes : uint32_t {
    APN_TYPE_DEFAULT = 0x1,      // ordinary data
    APN_TYPE_MMS = 0x2,          // multimedia messages
    APN_TYPE_SUPL = 0x4,         // assisted location
    APN_TYPE_DUN = 0x8,          // tethering
    APN_TYPE_HIPRI = 0x10,       // ordinary data that goes before others
    APN_TYPE_FOTA = 0x20,        // updates over the air
    APN_TYPE_IMS = 0x40,         // voice and messages over IP
    APN_TYPE_CBS = 0x80,         // the operator's own services
    APN_TYPE_IA = 0x100,         // initial attach
    APN_TYPE_EMERGENCY = 0x200,  // emergency calls
    APN_TYPE_MCX = 0x400,        // mission-critical services
    APN_TYPE_XCAP = 0x800,       // settings of supplementary services
};

// How a filter compares, as bits of a mask: without a bit the values must be equal.
enum MatchCriteria : uint32_t {
    MATCH_HOME_IP_SUBSET = 0x1,     // the filter's home IP type may be contained in the profile's
    MATCH_ROAM_IP_SUBSET = 0x2,     // the same for the roam IP type
    MATCH_APN_NAME_SUBSET = 0x4,    // the filter's APN name may be a part of the profile's
    MATCH_APN_TYPES_SUBSET = 0x8,   // the filter's APN types may be contained in the profile's
    MATCH_HOME_IP_SUPERSET = 0x10,  // the filter's home IP type may contain the profile's
    MATCH_ROAM_IP_SUPERSET = 0x20,  // the same for the roam IP type
};

// An enumerator and the name it is printed under.
template <class Value>
struct NamedValue {
    Value value;       // the enumerator
    const char* name;  // its name, which dump() prints and the tool reads
};

// The names of TechType, for every printer and reader of them; here as below, a value without a
// name prints as its decimal number.
inline constexpr NamedValue<TechType> kTechTypeNames[] = {
    {TechType::TECH_3GPP, "3GPP"},
    {TechType::TECH_3GPP2, "3GPP2"},
};

// The names of IPType.
inline constexpr NamedValue<IPType> kIPTypeNames[] = {
    {IPType::UNKNOWN, "UNKNOWN"},
    {IPType::V4, "V4"},
    {IPType::V6, "V6"},
    {IPType::V4V6, "V4V6"},
};

// The names of AuthType.
inline constexpr NamedValue<AuthType> kAuthTypeNames[] = {
    {AuthType::NONE, "NONE"},
    {AuthType::PAP, "PAP"},
    {AuthType::CHAP, "CHAP"},
    {AuthType::PAP_CHAP, "PAP_CHAP"},
};

// The names of ApnClass.
inline constexpr NamedValue<ApnClass> kApnClassNames[] = {
    {ApnClass::IMS, "IMS"},
    {ApnClass::ADMN, "ADMN"},
    {ApnClass::INET, "INET"},
    {ApnClass::APP, "APP"},
};

// The names of ApnTypes, in the order that a mask prints in; bits without a name are left out.
inline constexpr NamedValue<ApnTypes> kApnTypeNames[] = {
    {APN_TYPE_DEFAULT, "DEFAULT"}, {APN_TYPE_MMS, "MMS"},
    {APN_TYPE_SUPL, "SUPL"},       {APN_TYPE_DUN, "DUN"},
    {APN_TYPE_HIPRI, "HIPRI"},     {APN_TYPE_FOTA, "FOTA"},
    {APN_TYPE_IMS, "IMS"},         {APN_TYPE_CBS, "CBS"},
    {APN_TYPE_IA, "IA"},           {APN_TYPE_EMERGENCY, "EMERGENCY"},
    {APN_TYPE_MCX, "MCX"},         {APN_TYPE_XCAP, "XCAP"},
};

// The names of MatchCriteria; likewise.
inline constexpr NamedValue<MatchCriteria> kMatchCriteriaNames[] = {
    {MATCH_HOME_IP_SUBSET, "HomeIPSubset"},     {MATCH_ROAM_IP_SUBSET, "RoamIPSubset"},
    {MATCH_APN_NAME_SUBSET, "ApnNameSubset"},   {MATCH_APN_TYPES_SUBSET, "ApnTypeBitmaskSubset"},
    {MATCH_HOME_IP_SUPERSET, "HomeIPSuperset"}, {MATCH_ROAM_IP_SUPERSET, "RoamIPSuperset"},
};

// The settings of a data profile.
class ZEM_EXPORT ProfileParams {
  public:
    ProfileParams() = default;
    ProfileParams(const ProfileParams&) = default;
    ProfileParams(ProfileParams&&) = default;
    ProfileParams& operator=(const ProfileParams&) = default;
    ProfileParams& operator=(ProfileParams&&) = default;

    // Virtual: the records are handed round by their base.
    virtual ~ProfileParams();

    // The present settings in one line, each as "Name=value,"; the password is in the clear.
    virtual std::string dump() const;

    // Access point name; compared without regard to ASCII case, and cut to 150 characters.
    bool hasApnName() const { return apnName.has_value(); }
    std::string getApnName() const { return apnName.value_or(""); }
    void setApnName(std::string value) { apnName = std::move(value); }

    // User name for authentication; case matters. The modem gets the first 127 bytes.
    bool hasUserName() const { return userName.has_value(); }
    std::string getUserName() const { return userName.value_or(""); }
    void setUserName(std::string value) { userName = std::move(value); }

    // Password for authentication; case matters. The modem gets the first 127 bytes. Every log line
    // and dump of a record shows it.
    bool hasPassword() const { return password.has_value(); }
    std::string getPassword() const { return password.value_or(""); }
    void setPassword(std::string value) { password = std::move(value); }

    // Authentication protocols offered.
    bool hasAuthType() const { return authType.has_value(); }
    AuthType getAuthType() const { return authType.value_or(AuthType{}); }
    void setAuthType(AuthType value) { authType = value; }

    // PDP/PDN type on the home network; UNKNOWN goes to the modem as V4V6.
    bool hasHomeIPType() const { return homeIPType.has_value(); }
    IPType getHomeIPType() const { return homeIPType.value_or(IPType{}); }
    void setHomeIPType(IPType value) { homeIPType = value; }

    // PDP/PDN type when roaming; 3GPP only. UNKNOWN goes to the modem as "not set".
    bool hasRoamIPType() const { return roamIPType.has_value(); }
    IPType getRoamIPType() const { return roamIPType.value_or(IPType{}); }
    void setRoamIPType(IPType value) { roamIPType = value; }

    // APN types served: ApnTypes bits. Bits without a name do not reach the modem.
    bool hasApnTypesMask() const { return apnTypesMask.has_value(); }
    unsigned int getApnTypesMask() const { return apnTypesMask.value_or(0u); }
    void setApnTypesMask(unsigned int value) { apnTypesMask = value; }

    // APN class of the operator's policy.
    bool hasApnClass() const { return apnClass.has_value(); }
    ApnClass getApnClass() const { return apnClass.value_or(ApnClass{}); }
    void setApnClass(ApnClass value) { apnClass = value; }

    // Whether IPv4 is translated over IPv6 (464XLAT).
    bool hasIsClatEnabled() const { return isClatEnabled.has_value(); }
    bool getIsClatEnabled() const { return isClatEnabled.value_or(false); }
    void setIsClatEnabled(bool value) { isClatEnabled = value; }

    // Whether the profile may carry emergency calls; 3GPP only.
    bool hasIsEmergencySupported() const { return isEmergencySupported.has_value(); }
    bool getIsEmergencySupported() const { return isEmergencySupported.value_or(false); }
    void setIsEmergencySupported(bool value) { isEmergencySupported = value; }

    // Whether the modem must not use the profile; 3GPP only.
    bool hasIsApnDisabled() const { return isApnDisabled.has_value(); }
    bool getIsApnDisabled() const { return isApnDisabled.value_or(false); }
    void setIsApnDisabled(bool value) { isApnDisabled = value; }

    // PDN connections allowed in one time block, 0 to 65535; 3GPP only. Here as in the two below,
    // the modem gets the low 16 bits of any other number.
    bool hasMaxPdnsConnPerBlock() const { return maxPdnsConnPerBlock.has_value(); }
    int getMaxPdnsConnPerBlock() const { return maxPdnsConnPerBlock.value_or(0); }
    void setMaxPdnsConnPerBlock(int value) { maxPdnsConnPerBlock = value; }

    // Length of the time block in seconds, 0 to 65535; 3GPP only.
    bool hasMaxPdnConnTimer() const { return maxPdnConnTimer.has_value(); }
    int getMaxPdnConnTimer() const { return maxPdnConnTimer.value_or(0); }
    void setMaxPdnConnTimer(int value) { maxPdnConnTimer = value; }

    // Seconds to wait between PDN requests, 0 to 65535; 3GPP only.
    bool hasPdnReqWaitInterval() const { return pdnReqWaitInterval.has_value(); }
    int getPdnReqWaitInterval() const { return pdnReqWaitInterval.value_or(0); }
    void setPdnReqWaitInterval(int value) { pdnReqWaitInterval = value; }

    // Whether the library created the profile, going by its name on the modem; false when not
    // present.
    bool getIsZemProfile() const { return isZemProfile.value_or(false); }

    // Whether the library created the profile for the LTE initial attach; false when not present.
    bool getIsIAProfile() const { return isIAProfile.value_or(false); }

  protected:
    std::optional<bool> isZemProfile;  // the library created it; what a filter asks of it
    std::optional<bool> isIAProfile;   // for the initial attach; likewise

  private:
    friend class ModemProfile;
    friend class Modem3gppProfile;
    friend class Modem3gpp2Profile;
    friend void appendDump(std::string& text, const ProfileParams& params);

    std::optional<uint32_t> reserved;  // copied with the record; nothing reads it
    std::optional<std::string> apnName;
    std::optional<std::string> userName;
    std::optional<std::string> password;
    std::optional<AuthType> authType;
    std::optional<IPType> homeIPType;
    std::optional<IPType> roamIPType;
    std::optional<unsigned int> apnTypesMask;
    std::optional<ApnClass> apnClass;
    std::optional<bool> isClatEnabled;
    std::optional<bool> isEmergencySupported;
    std::optional<bool> isApnDisabled;
    std::optional<int> maxPdnsConnPerBlock;
    std::optional<int> maxPdnConnTimer;
    std::optional<int> pdnReqWaitInterval;
};

// The settings of a profile to create, and how.
class ZEM_EXPORT AddProfileParams : public ProfileParams {
  public:
    // No settings yet. A persistent profile stays on the modem when its last key goes; isIAProfile
    // marks the profile as made for the LTE initial attach.
    AddProfileParams(bool isPersistent, TechType techType, bool isIAProfile);

    // All settings of params; isIAProfile overrides what params says of it.
    AddProfileParams(const ProfileParams& params, bool isPersistent, TechType techType,
                     bool isIAProfile);

    // As constructed: whether the profile survives its last key.
    bool getIsPersistent() const { return isPersistent; }

    // As constructed: the family of profiles to create it in.
    TechType getTechType() const { return techType; }

    // As of any record, after "3GPP persist=false: " or the like.
    std::string dump() const override;

  private:
    bool isPersistent;
    TechType techType;
};

// A question about profiles: each present setting must agree with the profile's. The defaults ask
// nothing, so an empty filter matches every profile. A setting that is called 3GPP only is failed
// by every 3GPP2 profile.
class ZEM_EXPORT FilterProfileParams : public ProfileParams {
  public:
    FilterProfileParams() = default;

    // All settings of params are asked for, the markers of a library profile included.
    FilterProfileParams(const ProfileParams& params);

    // Index on the modem, 0 to 255; others match nothing.
    bool hasFilterByProfileId() const { return filterByProfileId.has_value(); }
    int getFilterByProfileId() const { return filterByProfileId.value_or(0); }
    void setFilterByProfileId(int id) { filterByProfileId = id; }

    // Family of profiles.
    bool hasFilterByTechType() const { return filterByTechType.has_value(); }
    TechType getFilterByTechType() const { return filterByTechType.value_or(TechType{}); }
    void setFilterByTechType(TechType tech) { filterByTechType = tech; }

    // Whether the library created the profile; asked of 3GPP profiles, and failed by every 3GPP2
    // one.
    bool hasFilterByIsZemProfile() const { return isZemProfile.has_value(); }
    void setFilterByIsZemProfile(bool value) { isZemProfile = value; }

    // Whether the library created it for the initial attach; when asked, the question before is
    // not.
    bool hasFilterByIsIAProfile() const { return isIAProfile.has_value(); }
    void setFilterByIsIAProfile(bool value) { isIAProfile = value; }

    // MatchCriteria bits, none by default; add sets those given, remove clears them.
    unsigned int getFilterMatchCriteria() const { return filterMatchCriteria; }
    void addFilterMatchCriteria(unsigned int bits) { filterMatchCriteria |= bits; }
    void removeFilterMatchCriteria(unsigned int bits) { filterMatchCriteria &= ~bits; }

    // As of any record, after the criteria ("None: " without), and "tech=" and "id=" where asked.
    std::string dump() const override;

  private:
    friend class ModemProfile;

    unsigned int filterMatchCriteria = 0;
    std::optional<int> filterByProfileId;
    std::optional<TechType> filterByTechType;
};

// The settings to change; absent ones stay as they are.
class ZEM_EXPORT ModifyProfileParams : public ProfileParams {
  public:
    ModifyProfileParams() = default;

    // All settings of params are to be set.
    explicit ModifyProfileParams(const ProfileParams& params) : ProfileParams(params) {}
};

}  // namespace zem
