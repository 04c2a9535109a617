#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <sstream>

#include "Modem3gpp2Profile.h"
#include "Modem3gppProfile.h"
#include "ProfileKey.h"
#include "TestLog.h"
#include "WireBytes.h"

namespace zem {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

// "V4 - ?" is V4, none and unknown.
std::vector<std::optional<IPType>> types(const char* text) {
    std::vector<std::optional<IPType>> all;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        all.emplace_back();
        if (word == "?") all.back() = IPType::UNKNOWN;
        for (const auto& [type, name] : kIPTypeNames) {
            if (word == name) all.back() = type;
        }
    }
    return all;
}

template <class Profile = Modem3gppProfile>
std::shared_ptr<Profile> newProfile(void (*set)(Profile&) = nullptr) {
    auto profile = std::make_shared<Profile>(ProfileParams());
    if (set) set(*profile);
    return profile;
}

// Types in the order common, override, LTE, UMTS.
std::shared_ptr<Modem3gppProfile> profileWith(const char* ipTypes) {
    auto profile = newProfile<Modem3gppProfile>();
    const auto given = types(ipTypes);
    if (given.at(0)) profile->setCommonIPType(*given[0]);
    if (given.at(1)) profile->setOverrideHomeIPType(*given[1]);
    if (given.at(2)) profile->setLteRoamIPType(*given[2]);
    if (given.at(3)) profile->setUmtsRoamIPType(*given[3]);
    return profile;
}

// Types in the order home, roam.
void setTypes(ProfileParams& params, const char* ipTypes) {
    const auto given = types(ipTypes);
    if (given.at(0)) params.setHomeIPType(*given[0]);
    if (given.at(1)) params.setRoamIPType(*given[1]);
}

// ---- Construction ----

ProfileParams everySetting() {
    ProfileParams params;
    params.setApnName("Internet");
    params.setUserName("Me");
    params.setPassword("Secret");
    params.setAuthType(AuthType::PAP_CHAP);
    params.setHomeIPType(IPType::V6);
    params.setRoamIPType(IPType::V4);
    params.setApnTypesMask(0x840);
    params.setApnClass(ApnClass::INET);
    params.setIsClatEnabled(true);
    params.setMaxPdnsConnPerBlock(1);
    params.setMaxPdnConnTimer(2);
    params.setPdnReqWaitInterval(-1);
    params.setIsApnDisabled(false);
    params.setIsEmergencySupported(true);
    return params;
}

TEST(NewProfileTest, TakesSettingsInTheModemsForm) {
    const Modem3gppProfile full(everySetting());
    const Modem3gpp2Profile full2(everySetting());

    EXPECT_EQ(full.dump(),
              "TechType=3GPP,ProfileId=-1,ApnName=internet,UserName=Me,Password=Secret,"
              "AuthType=PAP_CHAP,CommonIPType=V4V6,ApnTypesMask=1026,ApnClass=INET,"
              "IsClatEnabled=1,OverrideHomeIPType=V6,LteRoamIP=V4,UmtsRoamIP=V4,"
              "MaxPdnsConnPerBlock=1,MaxPdnConnTimer=2,PdnReqWaitInterval=-1,IsApnDisabled=0,"
              "IsEmergencySupported=1,");
    EXPECT_EQ(full2.dump(),
              "TechType=3GPP2,ProfileId=-1,ApnName=internet,UserName=Me,Password=Secret,"
              "AuthType=PAP_CHAP,CommonIPType=V6,ApnTypesMask=1026,ApnClass=INET,"
              "IsClatEnabled=1,");
    EXPECT_FALSE(full.getIsPersistent() || full.getIsZemCreated());
    EXPECT_EQ(full.getRefCount(), 0);
}

TEST(NewProfileTest, CutsOnlyTheApnName) {
    ProfileParams params;
    params.setApnName(std::string(200, 'A'));
    params.setUserName(std::string(200, 'U'));

    const Modem3gppProfile profile(params);

    EXPECT_EQ(profile.getApnName(), std::string(150, 'a'));
    EXPECT_EQ(profile.getUserName(), std::string(200, 'U'));
}

TEST(NewProfileTest, DerivesTheModemsIPTypesFromHomeAndRoam) {
    const struct {
        const char* name;
        const char *wanted, *dump, *dump3gpp2;
    } cases[] = {
        {"none", "- -", "", ""},
        {"home only", "V4 -", "CommonIPType=V4,", "CommonIPType=V4,"},
        {"roam only", "- V6", "LteRoamIP=V6,UmtsRoamIP=V6,", ""},
        {"equal", "V4 V4", "CommonIPType=V4,LteRoamIP=V4,UmtsRoamIP=V4,", "CommonIPType=V4,"},
        {"different", "V4 V6",
         "CommonIPType=V4V6,OverrideHomeIPType=V4,LteRoamIP=V6,UmtsRoamIP=V6,", "CommonIPType=V4,"},
        {"dual stack at home only", "V4V6 V4",
         "CommonIPType=V4V6,OverrideHomeIPType=V4V6,LteRoamIP=V4,UmtsRoamIP=V4,",
         "CommonIPType=V4V6,"},
        {"unknown at home", "? V6",
         "CommonIPType=V4V6,OverrideHomeIPType=UNKNOWN,LteRoamIP=V6,UmtsRoamIP=V6,",
         "CommonIPType=UNKNOWN,"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ProfileParams params;
        setTypes(params, c.wanted);

        EXPECT_EQ(Modem3gppProfile(params).dump(),
                  std::string("TechType=3GPP,ProfileId=-1,") + c.dump);
        EXPECT_EQ(Modem3gpp2Profile(params).dump(),
                  std::string("TechType=3GPP2,ProfileId=-1,") + c.dump3gpp2);
    }
}

wds_get_profile_settings_resp_msg_v01 response(const std::vector<Field>& fields) {
    const Bytes bytes = layOut(3264, fields);
    wds_get_profile_settings_resp_msg_v01 message;
    EXPECT_EQ(bytes.size(), sizeof message);
    memcpy(&message, bytes.data(), sizeof message);
    return message;
}

const std::vector<Field> kFull3gppResponse = {
    {8, 9, text("zem_profile")}, {60, 64, u32(3)},
    {84, 85, text("InterNet")},  {404, 405, text("Me")},
    {533, 534, text("Pw")},      {662, 663, u8(1)},
    {984, 985, u8(1)},           {992, 993, u8(2)},
    {1008, 1009, u8(0)},         {1024, 1026, u16(0xFFFF)},
    {1028, 1030, u16(2)},        {1032, 1034, u16(3)},
    {1050, 1052, u32(0)},        {1056, 1060, u32(1)},
    {1112, 1116, u32(2)},        {3236, 3240, u64(0x8000000000000402)},
    {3248, 3249, u8(1)},
};
const std::vector<Field> kFull3gpp2Response = {
    {2224, 2228, u32(2)}, {2232, 2233, text("Me")}, {2514, 2515, text("InterNet")},
    {2666, 2668, u32(1)}, {2736, 2737, u8(4)},
};

std::vector<Field> withoutFlags(std::vector<Field> fields) {
    for (auto& field : fields) field.validAt = kNoFlag;
    return fields;
}

TEST(ReadProfileTest, TakesValidFieldsOfItsOwnTechnology) {
    const std::string n51(51, 'N'), a151(151, 'A'), u128(128, 'U'), p128(128, 'P');
    const std::string low151(151, 'a');
    const struct {
        const char* name;
        std::vector<Field> fields;
        std::string dump, dump3gpp2;
        std::vector<std::string> lines, lines3gpp2;
    } cases[] = {
        {"3GPP, everything",
         kFull3gppResponse,
         "ApnName=internet,UserName=Me,Password=Pw,AuthType=PAP,CommonIPType=V4V6,"
         "ApnTypesMask=9223372036854776834,ApnClass=ADMN,IsClatEnabled=1,OverrideHomeIPType=V4V6,"
         "LteRoamIP=V4,UmtsRoamIP=V6,MaxPdnsConnPerBlock=65535,MaxPdnConnTimer=2,"
         "PdnReqWaitInterval=3,IsApnDisabled=1,IsEmergencySupported=0,ProfileName=zem_profile,",
         "ApnTypesMask=9223372036854776834,IsClatEnabled=1,",
         {},
         {}},
        {"3GPP2, everything",
         kFull3gpp2Response,
         "",
         "ApnName=internet,UserName=Me,AuthType=CHAP,CommonIPType=V6,ApnClass=APP,",
         {},
         {}},
        {"3GPP, nothing marked valid", withoutFlags(kFull3gppResponse), "", "", {}, {}},
        {"3GPP2, nothing marked valid", withoutFlags(kFull3gpp2Response), "", "", {}, {}},
        {"any byte but zero is true",
         {{kNoFlag, 984, u8(0x80)}, {kNoFlag, 985, u8(0x40)}, {3248, 3249, u8(0xFF)}},
         "IsClatEnabled=1,IsApnDisabled=1,",
         "IsClatEnabled=1,",
         {},
         {}},
        {"types not set: absent for roaming alone",
         {{1050, 1052, u32(255)}, {1056, 1060, u32(255)}, {1112, 1116, u32(255)}},
         "OverrideHomeIPType=UNKNOWN,",
         "",
         {"Unknown pdp_type_enum 255"},
         {}},
        {"values nobody defined",
         {{60, 64, u32(1)},
          {662, 663, u8(0xFD)},
          {992, 993, u8(200)},
          {1050, 1052, u32(3)},
          {1056, 1060, u32(0xFFFFFFFF)},
          {2224, 2228, u32(4)},
          {2666, 2668, u32(4)},
          {2736, 2737, u8(0)}},
         "AuthType=PAP,CommonIPType=UNKNOWN,ApnClass=200,LteRoamIP=UNKNOWN,UmtsRoamIP=UNKNOWN,",
         "AuthType=NONE,CommonIPType=UNKNOWN,ApnClass=0,",
         {"Unknown pdp_type_enum 1", "Unknown pdp_type_enum 3", "Unknown pdp_type_enum -1"},
         {"Unknown profile_pdn_type_enum 4"}},
        {"texts that run to the end of their fields",
         {{8, 9, text(n51)},
          {84, 85, text(a151)},
          {404, 405, text(u128)},
          {533, 534, text(p128)},
          {2232, 2233, text(u128)},
          {2514, 2515, text(a151)}},
         "ApnName=" + low151 + ",UserName=" + u128 + ",Password=" + p128 + ",ProfileName=" + n51 +
             ",",
         "ApnName=" + low151 + ",UserName=" + u128 + ",",
         {},
         {}},
        {"texts are there though empty",
         {{84, 85, {}}, {404, 405, {}}, {2514, 2515, {}}},
         "ApnName=,UserName=,",
         "ApnName=,",
         {},
         {}},
    };
    RecordedLog log;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto message = response(c.fields);
        const auto texts = [&log] {
            std::vector<std::string> all;
            for (const auto& line : log.lines()) {
                EXPECT_EQ(line.level, LOG_DEBUG);
                all.push_back(line.text);
            }
            return all;
        };

        log.clear();
        const Modem3gppProfile profile(9, message);
        EXPECT_THAT(texts(), ElementsAreArray(c.lines));
        log.clear();
        const Modem3gpp2Profile profile3gpp2(9, message);
        EXPECT_THAT(texts(), ElementsAreArray(c.lines3gpp2));

        EXPECT_EQ(profile.dump(), "TechType=3GPP,ProfileId=9," + c.dump);
        EXPECT_EQ(profile3gpp2.dump(), "TechType=3GPP2,ProfileId=9," + c.dump3gpp2);
        EXPECT_FALSE(profile.getIsPersistent() || profile.getIsZemCreated());
    }
}

TEST(ReadProfileTest, IsPersistentWhenTheModemSaysSo) {
    EXPECT_TRUE(Modem3gppProfile(1, response({{2184, 2185, u8(2)}})).getIsPersistent());
    EXPECT_FALSE(Modem3gppProfile(1, response({{2184, 2185, u8(0)}})).getIsPersistent());
    EXPECT_FALSE(Modem3gpp2Profile(1, response({{kNoFlag, 2185, u8(1)}})).getIsPersistent());
}

// ---- Matching ----

void setTypical(ModemProfile& profile) {
    profile.setProfileId(5);
    profile.setApnName("ims.operator");
    profile.setUserName("Me");
    profile.setPassword("Pw");
    profile.setAuthType(AuthType::PAP);
    profile.setApnTypesMask(0x3);  // DEFAULT and IMS
    profile.setApnClass(ApnClass::IMS);
    profile.setIsClatEnabled(true);
}

TEST(MatchTest, CommonSettings) {
    const struct {
        const char* name;
        void (*ask)(FilterProfileParams&);
        bool typical, bare;  // whether a profile with all of them matches, and one with none
    } cases[] = {
        {"nothing", [](auto&) {}, true, true},
        {"nothing, relaxed", [](auto& f) { f.addFilterMatchCriteria(0x3F); }, true, true},
        {"APN", [](auto& f) { f.setApnName("ims.operator"); }, true, false},
        {"APN in capitals", [](auto& f) { f.setApnName("IMS.Operator"); }, true, false},
        {"first label", [](auto& f) { f.setApnName("ims"); }, false, false},
        {"empty APN", [](auto& f) { f.setApnName(""); }, false, false},
        {"first label, as a part",
         [](auto& f) { f.setApnName("IMS"), f.addFilterMatchCriteria(0x4); }, true, false},
        {"middle, as a part", [](auto& f) { f.setApnName("s.op"), f.addFilterMatchCriteria(0x4); },
         true, false},
        {"empty APN, as a part", [](auto& f) { f.setApnName(""), f.addFilterMatchCriteria(0x4); },
         true, false},
        {"longer APN, as a part",
         [](auto& f) { f.setApnName("ims.operator.net"), f.addFilterMatchCriteria(0x4); }, false,
         false},
        {"first label, other things relaxed",
         [](auto& f) { f.setApnName("ims"), f.addFilterMatchCriteria(0x3B); }, false, false},
        {"user", [](auto& f) { f.setUserName("Me"); }, true, false},
        {"user in other case", [](auto& f) { f.setUserName("me"); }, false, false},
        {"empty user", [](auto& f) { f.setUserName(""); }, false, false},
        {"password", [](auto& f) { f.setPassword("Pw"); }, true, false},
        {"password in other case", [](auto& f) { f.setPassword("PW"); }, false, false},
        {"auth", [](auto& f) { f.setAuthType(AuthType::PAP); }, true, false},
        {"wider auth", [](auto& f) { f.setAuthType(AuthType::PAP_CHAP); }, false, false},
        {"no auth", [](auto& f) { f.setAuthType(AuthType::NONE); }, false, false},
        {"types", [](auto& f) { f.setApnTypesMask(0x41); }, true, false},
        {"types and a bit nobody named", [](auto& f) { f.setApnTypesMask(0x1041); }, true, false},
        {"fewer types", [](auto& f) { f.setApnTypesMask(0x1); }, false, false},
        {"no types", [](auto& f) { f.setApnTypesMask(0); }, false, false},
        {"fewer types, as a subset",
         [](auto& f) { f.setApnTypesMask(0x40), f.addFilterMatchCriteria(0x8); }, true, false},
        {"no types, as a subset",
         [](auto& f) { f.setApnTypesMask(0), f.addFilterMatchCriteria(0x8); }, true, false},
        {"more types, as a subset",
         [](auto& f) { f.setApnTypesMask(0x43), f.addFilterMatchCriteria(0x8); }, false, false},
        {"fewer types, other things relaxed",
         [](auto& f) { f.setApnTypesMask(0x40), f.addFilterMatchCriteria(0x37); }, false, false},
        {"class", [](auto& f) { f.setApnClass(ApnClass::IMS); }, true, false},
        {"other class", [](auto& f) { f.setApnClass(ApnClass::APP); }, false, false},
        {"CLAT", [](auto& f) { f.setIsClatEnabled(true); }, true, false},
        {"no CLAT", [](auto& f) { f.setIsClatEnabled(false); }, false, false},
        {"index", [](auto& f) { f.setFilterByProfileId(5); }, true, false},
        {"index of a profile that has none yet", [](auto& f) { f.setFilterByProfileId(-1); }, false,
         true},
        {"all but one agree",
         [](auto& f) {
             f.setApnName("ims.operator");
             f.setApnTypesMask(0x41);
             f.setFilterByProfileId(6);
         },
         false, false},
    };
    const auto typical = newProfile<Modem3gppProfile>([](auto& p) { setTypical(p); });
    const auto typical2 = newProfile<Modem3gpp2Profile>([](auto& p) { setTypical(p); });
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        FilterProfileParams filter;
        c.ask(filter);
        EXPECT_EQ(typical->match(filter), c.typical);
        EXPECT_EQ(typical2->match(filter), c.typical);
        EXPECT_EQ(newProfile<Modem3gppProfile>()->match(filter), c.bare);
        EXPECT_EQ(newProfile<Modem3gpp2Profile>()->match(filter), c.bare);
    }
}

TEST(MatchTest, TechnologyIsAskedByItself) {
    FilterProfileParams filter;
    filter.setFilterByTechType(TechType::TECH_3GPP);
    EXPECT_TRUE(newProfile<Modem3gppProfile>()->match(filter));
    EXPECT_FALSE(newProfile<Modem3gpp2Profile>()->match(filter));

    filter.setFilterByTechType(TechType::TECH_3GPP2);
    EXPECT_FALSE(newProfile<Modem3gppProfile>()->match(filter));
    EXPECT_TRUE(newProfile<Modem3gpp2Profile>()->match(filter));
}

TEST(MatchTest, LongApnOfTheFilterIsCutAsTheProfilesWas) {
    const auto profile = newProfile();
    profile->setApnName(std::string(150, 'a'));
    FilterProfileParams filter;
    filter.setApnName(std::string(200, 'A'));

    EXPECT_TRUE(profile->match(filter));
}

TEST(MatchTest, TypeBitOfTheModemThatNobodyNamedDefeatsOnlyTheExactMatch) {
    const auto profile = newProfile();
    profile->setApnTypesMask(0x1000000001);
    FilterProfileParams filter;
    filter.setApnTypesMask(0x1);
    EXPECT_FALSE(profile->match(filter));

    filter.addFilterMatchCriteria(0x8);
    EXPECT_TRUE(profile->match(filter));
}

// Rows: the profile's type; columns: the filter's; each from UNKNOWN, V4, V6 to V4V6.
struct IPTypeMatches {
    const char* name;
    bool subset, superset;
    const char* matches[4];
};
const IPTypeMatches kIPTypeMatches[] = {
    {"exact", false, false, {"1000", "0100", "0010", "0001"}},
    {"subset", true, false, {"1000", "1100", "1010", "1111"}},
    {"superset", false, true, {"1111", "0101", "0011", "0001"}},
    {"either", true, true, {"1111", "1101", "1011", "1111"}},
};

TEST(MatchTest, IPTypesCompareAsSetsUnderTheirOwnCriteria) {
    constexpr unsigned kHomeSubset = 0x1, kRoamSubset = 0x2, kHomeSuperset = 0x10,
                       kRoamSuperset = 0x20;
    for (const auto& c : kIPTypeMatches) {
        SCOPED_TRACE(c.name);
        // The other type's criteria are the opposite, to see that they do not count.
        const unsigned home =
            (c.subset ? kHomeSubset : kRoamSubset) | (c.superset ? kHomeSuperset : kRoamSuperset);
        const unsigned roam =
            (c.subset ? kRoamSubset : kHomeSubset) | (c.superset ? kRoamSuperset : kHomeSuperset);
        for (unsigned held = 0; held < 4; ++held) {
            for (unsigned asked = 0; asked < 4; ++asked) {
                SCOPED_TRACE(::testing::Message() << "held " << held << " asked " << asked);
                const bool expected = c.matches[held][asked] == '1';
                FilterProfileParams homeFilter;
                homeFilter.setHomeIPType(IPType(asked));
                homeFilter.addFilterMatchCriteria(home);
                FilterProfileParams roamFilter;
                roamFilter.setRoamIPType(IPType(asked));
                roamFilter.addFilterMatchCriteria(roam);
                const auto profile = newProfile<Modem3gppProfile>();
                profile->setCommonIPType(IPType(held));
                const auto profile3gpp2 = newProfile<Modem3gpp2Profile>();
                profile3gpp2->setCommonIPType(IPType(held));

                EXPECT_EQ(profile->match(homeFilter), expected);
                EXPECT_EQ(profile3gpp2->match(homeFilter), expected);
                EXPECT_EQ(profile->match(roamFilter), expected);
                profile->setCommonIPType(IPType(3 - held));
                profile->setLteRoamIPType(IPType(held));
                profile->setUmtsRoamIPType(IPType(held));
                EXPECT_EQ(profile->match(roamFilter), expected);
                profile->setOverrideHomeIPType(IPType(held));
                if (held != 0) {
                    EXPECT_EQ(profile->match(homeFilter), expected);
                }
            }
        }
    }
}

TEST(MatchTest, WhichOfTheProfilesIPTypesIsCompared) {
    const struct {
        const char* name;
        const char *held, *asked;
        unsigned criteria;
        bool matches;
    } cases[] = {
        {"override at home", "V4V6 V4 - -", "V4 -", 0, true},
        {"not the common type then", "V4V6 V4 - -", "V4V6 -", 0, false},
        {"override alone", "- V4 - -", "V4 -", 0, true},
        {"override taken back", "V6 ? - -", "V6 -", 0, true},
        {"override taken back, no common type", "- ? - -", "? -", 0x3F, false},
        {"no home type", "- - V4 V4", "V4 -", 0x3F, false},
        {"common type when roaming, not the override", "V4V6 V4 - -", "- V4V6", 0, true},
        {"no type when roaming", "- V4 - -", "- V4", 0x3F, false},
        {"both networks", "V4V6 V4 V6 V6", "- V6", 0, true},
        {"networks disagree", "V4V6 - V4 V6", "- V4", 0x3F, false},
        {"networks disagree, the other", "V4V6 - V4 V6", "- V6", 0x3F, false},
        {"LTE alone", "V4V6 - V4 -", "- V4", 0x3F, false},
        {"LTE alone and unknown", "V4V6 - ? -", "- ?", 0, true},
        {"UMTS alone", "V4V6 - - V4", "- V4", 0x3F, false},
        {"home agrees, roam does not", "V4V6 V4 V6 V6", "V4 V4", 0, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        FilterProfileParams filter;
        setTypes(filter, c.asked);
        filter.addFilterMatchCriteria(c.criteria);

        EXPECT_EQ(profileWith(c.held)->match(filter), c.matches);
    }
}

TEST(MatchTest, AbsentTypeOf3gpp2CountsAsUnknown) {
    FilterProfileParams filter;
    filter.setHomeIPType(IPType::UNKNOWN);
    EXPECT_TRUE(newProfile<Modem3gpp2Profile>()->match(filter));

    filter.setHomeIPType(IPType::V4);
    EXPECT_FALSE(newProfile<Modem3gpp2Profile>()->match(filter));
    filter.addFilterMatchCriteria(0x10);
    EXPECT_TRUE(newProfile<Modem3gpp2Profile>()->match(filter));
}

TEST(MatchTest, LibrarysOwnProfilesAreKnownByName) {
    const struct {
        const char* profileName;  // null: none
        std::optional<bool> asksIA, asksZem;
        bool matches;
    } cases[] = {
        {"zem_profile", std::nullopt, true, true},
        {"zem_profile", std::nullopt, false, false},
        {"zem_profile", true, std::nullopt, false},
        {"zem_profile", false, std::nullopt, true},
        {"zem_profile_ia", std::nullopt, true, true},
        {"zem_profile_ia", true, std::nullopt, true},
        {"zem_profile_ia", false, std::nullopt, false},
        {"zem_profile_ia", true, false, true},  // the IA question alone counts
        {"zem_profile", false, false, true},
        {"other", false, true, true},
        {"zem_profile_ia", false, true, false},
        {"ZEM_profile", std::nullopt, true, false},
        {"zem_profile_ia2", std::nullopt, true, false},
        {"", std::nullopt, false, true},
        {nullptr, std::nullopt, true, false},
        {nullptr, std::nullopt, false, true},
        {nullptr, true, std::nullopt, false},
        {nullptr, false, std::nullopt, true},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        const auto& c = cases[i];
        SCOPED_TRACE(::testing::Message() << "row " << i);
        const auto profile = newProfile();
        if (c.profileName) profile->setProfileName(c.profileName);
        FilterProfileParams filter;
        if (c.asksIA) filter.setFilterByIsIAProfile(*c.asksIA);
        if (c.asksZem) filter.setFilterByIsZemProfile(*c.asksZem);

        EXPECT_EQ(profile->match(filter), c.matches);
    }
}

TEST(MatchTest, SettingsOf3gppAloneFailEvery3gpp2Profile) {
    const struct {
        const char* name;
        void (*ask)(FilterProfileParams&);
        bool full, bare;
    } cases[] = {
        {"max", [](auto& f) { f.setMaxPdnsConnPerBlock(1); }, true, false},
        {"other max", [](auto& f) { f.setMaxPdnsConnPerBlock(0); }, false, false},
        {"timer", [](auto& f) { f.setMaxPdnConnTimer(2); }, true, false},
        {"other timer", [](auto& f) { f.setMaxPdnConnTimer(0); }, false, false},
        {"interval", [](auto& f) { f.setPdnReqWaitInterval(3); }, true, false},
        {"other interval", [](auto& f) { f.setPdnReqWaitInterval(0); }, false, false},
        {"not disabled", [](auto& f) { f.setIsApnDisabled(false); }, true, false},
        {"disabled", [](auto& f) { f.setIsApnDisabled(true); }, false, false},
        {"emergency", [](auto& f) { f.setIsEmergencySupported(true); }, true, false},
        {"no emergency", [](auto& f) { f.setIsEmergencySupported(false); }, false, false},
        {"not made by the library", [](auto& f) { f.setFilterByIsZemProfile(false); }, true, true},
        {"not for the attach", [](auto& f) { f.setFilterByIsIAProfile(false); }, true, true},
        {"roam type", [](auto& f) { f.setRoamIPType(IPType::V4); }, true, false},
    };
    const auto full = newProfile<Modem3gppProfile>([](auto& p) {
        p.setMaxPdnsConnPerBlock(1);
        p.setMaxPdnConnTimer(2);
        p.setPdnReqWaitInterval(3);
        p.setIsApnDisabled(false);
        p.setIsEmergencySupported(true);
        p.setCommonIPType(IPType::V4);
    });
    const auto full3gpp2 =
        newProfile<Modem3gpp2Profile>([](auto& p) { p.setCommonIPType(IPType::V4); });
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        FilterProfileParams filter;
        c.ask(filter);
        EXPECT_EQ(full->match(filter), c.full);
        EXPECT_EQ(newProfile()->match(filter), c.bare);
        EXPECT_FALSE(full3gpp2->match(filter));
    }
}

// ---- What a change comes to ----

struct DiffCase {
    const char* name;
    void (*held)(Modem3gppProfile&);
    void (*wanted)(ModifyProfileParams&);
    const char* difference;  // null: none
};

TEST(DiffTest, HoldsOnlyWhatMustChangeIn3gpp) {
    static const std::string longApn(150, 'a');
    static const std::string longDifference = "ApnName=" + longApn + ",";
    const DiffCase cases[] = {
        {"nothing wanted", [](auto& p) { setTypical(p); }, [](auto&) {}, nullptr},
        {"what is there already", [](auto& p) { setTypical(p); },
         [](auto& w) {
             w.setApnName("IMS.Operator");
             w.setUserName("Me");
             w.setPassword("Pw");
             w.setAuthType(AuthType::PAP);
             w.setApnTypesMask(0x41);
             w.setApnClass(ApnClass::IMS);
             w.setIsClatEnabled(true);
         },
         nullptr},
        {"one among equals", [](auto& p) { setTypical(p); },
         [](auto& w) {
             w.setApnName("ims.operator");
             w.setUserName("me");
         },
         "UserName=me,"},
        {"everything common", [](auto& p) { setTypical(p); },
         [](auto& w) {
             w.setApnName("Other");
             w.setUserName("You");
             w.setPassword("");
             w.setAuthType(AuthType::NONE);
             w.setApnTypesMask(0);
             w.setApnClass(ApnClass::APP);
             w.setIsClatEnabled(false);
         },
         "ApnName=other,UserName=You,Password=,AuthType=NONE,ApnTypesMask=0,ApnClass=APP,"
         "IsClatEnabled=0,"},
        {"absent settings, with the values of absent ones", [](auto&) {},
         [](auto& w) {
             w.setApnName("");
             w.setApnTypesMask(0);
             w.setIsClatEnabled(false);
             w.setMaxPdnsConnPerBlock(0);
             w.setMaxPdnConnTimer(0);
             w.setPdnReqWaitInterval(0);
             w.setIsApnDisabled(false);
             w.setIsEmergencySupported(false);
         },
         "ApnName=,ApnTypesMask=0,IsClatEnabled=0,MaxPdnsConnPerBlock=0,MaxPdnConnTimer=0,"
         "PdnReqWaitInterval=0,IsApnDisabled=0,IsEmergencySupported=0,"},
        {"equal settings of 3GPP",
         [](auto& p) {
             p.setMaxPdnsConnPerBlock(1);
             p.setIsApnDisabled(true);
         },
         [](auto& w) {
             w.setMaxPdnsConnPerBlock(1);
             w.setIsApnDisabled(true);
         },
         nullptr},
        {"long APN that is there already", [](auto& p) { p.setApnName(longApn); },
         [](auto& w) { w.setApnName(std::string(200, 'A')); }, nullptr},
        {"long APN", [](auto&) {}, [](auto& w) { w.setApnName(std::string(200, 'A')); },
         longDifference.c_str()},
        {"types, the modem's unnamed bits aside", [](auto& p) { p.setApnTypesMask(0x1003); },
         [](auto& w) { w.setApnTypesMask(0x41); }, nullptr},
        {"types with an unnamed bit are a change for ever", [](auto& p) { p.setApnTypesMask(0x3); },
         [](auto& w) { w.setApnTypesMask(0x1041); }, "ApnTypesMask=3,"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto profile = newProfile(c.held);
        ModifyProfileParams wanted;
        c.wanted(wanted);
        const std::string before = profile->dump();

        const auto difference = profile->diff(wanted);

        EXPECT_EQ(profile->dump(), before);
        EXPECT_EQ(
            difference ? difference->dump() : "none",
            c.difference ? std::string("TechType=3GPP,ProfileId=-1,") + c.difference : "none");
    }
}

TEST(DiffTest, WorksOutTheModemsIPTypesWhateverIsWanted) {
    const struct {
        const char* name;
        const char *held, *wanted;
        const char* difference;  // null: none
    } cases[] = {
        {"home type", "V4 - - -", "V6 -", "CommonIPType=V6,"},
        {"roam type beside a home type", "V4 - - -", "- V6",
         "CommonIPType=V4V6,OverrideHomeIPType=V4,LteRoamIP=V6,UmtsRoamIP=V6,"},
        {"home type beside a roam type", "V4V6 V4 V6 V6", "V6 -",
         "CommonIPType=V6,OverrideHomeIPType=UNKNOWN,"},
        {"types that stand already", "V4V6 V4 V6 V6", "V4 -", nullptr},
        {"override no longer needed", "V4V6 V4 V4 V4", "V4 V4",
         "CommonIPType=V4,OverrideHomeIPType=UNKNOWN,"},
        {"override taken back already", "V4 ? V4 V4", "V4 -", nullptr},
        {"inconsistent types repair themselves", "V4 - V6 V6", "- -",
         "CommonIPType=V4V6,OverrideHomeIPType=V4,"},
        {"networks that disagree", "V4 - V6 V4", "V4 -", nullptr},
        {"networks that disagree, one to change", "V4 - V6 V4", "- V4", "LteRoamIP=V4,"},
        {"one network is missing", "V4 - V4 -", "- V4", "UmtsRoamIP=V4,"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ModifyProfileParams wanted;
        setTypes(wanted, c.wanted);

        const auto difference = profileWith(c.held)->diff(wanted);

        EXPECT_EQ(
            difference ? difference->dump() : "none",
            c.difference ? std::string("TechType=3GPP,ProfileId=-1,") + c.difference : "none");
    }
}

TEST(DiffTest, Of3gpp2IgnoresWhatIts3gpp2ProfilesLack) {
    const auto profile = newProfile<Modem3gpp2Profile>([](auto& p) {
        setTypical(p);
        p.setCommonIPType(IPType::V4);
    });
    ModifyProfileParams wanted;
    wanted.setRoamIPType(IPType::V6);
    wanted.setIsEmergencySupported(true);
    wanted.setMaxPdnConnTimer(1);
    wanted.setHomeIPType(IPType::V4);
    wanted.setUserName("Me");
    EXPECT_EQ(profile->diff(wanted), nullptr);

    wanted.setHomeIPType(IPType::V4V6);
    wanted.setUserName("You");

    EXPECT_EQ(profile->diff(wanted)->dump(),
              "TechType=3GPP2,ProfileId=-1,UserName=You,CommonIPType=V4V6,");
}

TEST(ApplyTest, TakesPresentSettingsAndLeavesTheRest) {
    const auto profile = newProfile<Modem3gppProfile>([](auto& p) {
        setTypical(p);
        p.setIsPersistent(true);
        p.setProfileName("zem_profile");
        p.setLteRoamIPType(IPType::V6);
    });
    const std::string before = profile->dump();
    profile->apply(nullptr);
    EXPECT_EQ(profile->dump(), before);

    auto changes = newProfile<Modem3gppProfile>([](auto& p) {
        p.setProfileId(99);
        p.setApnName(std::string(149, 'b') + "BB");
        p.setPassword("");
        p.setApnTypesMask(0x1000);
        p.setIsClatEnabled(false);
        p.setProfileName("other");
        p.setOverrideHomeIPType(IPType::UNKNOWN);
        p.setMaxPdnConnTimer(-1);
        p.setIsApnDisabled(true);
    });
    profile->apply(changes);
    profile->apply(newProfile<Modem3gppProfile>());

    EXPECT_EQ(profile->dump(), "TechType=3GPP,ProfileId=5,ApnName=" + std::string(150, 'b') +
                                   ",UserName=Me,Password=,AuthType=PAP,ApnTypesMask=4096,"
                                   "ApnClass=IMS,IsClatEnabled=0,OverrideHomeIPType=UNKNOWN,"
                                   "LteRoamIP=V6,MaxPdnConnTimer=-1,IsApnDisabled=1,"
                                   "ProfileName=zem_profile,");
    EXPECT_TRUE(profile->getIsPersistent());
}

TEST(ApplyTest, EverySettingCanBeTaken) {
    const auto profile = newProfile<Modem3gppProfile>();
    const auto profile3gpp2 = newProfile<Modem3gpp2Profile>();
    const auto full = std::make_shared<Modem3gppProfile>(everySetting());
    const auto full3gpp2 = std::make_shared<Modem3gpp2Profile>(everySetting());

    profile->apply(full);
    profile3gpp2->apply(full3gpp2);

    EXPECT_EQ(profile->dump(), full->dump());
    EXPECT_EQ(profile3gpp2->dump(), full3gpp2->dump());
}

TEST(ApplyTest, OtherTechnologyGivesItsCommonSettingsAlone) {
    const auto profile = newProfile<Modem3gppProfile>();
    profile->setProfileId(1);

    profile->apply(std::make_shared<Modem3gpp2Profile>(everySetting()));

    EXPECT_EQ(profile->dump(),
              "TechType=3GPP,ProfileId=1,ApnName=internet,UserName=Me,Password=Secret,"
              "AuthType=PAP_CHAP,CommonIPType=V6,ApnTypesMask=1026,ApnClass=INET,"
              "IsClatEnabled=1,");
}

TEST(GetTest, ReadsBackAsParameters) {
    const struct {
        const char* name;
        void (*held)(Modem3gppProfile&);
        const char* params;
    } cases[] = {
        {"nothing", [](auto&) {}, "IsZemProfile=false,IsIAProfile=false,"},
        {"what was asked for",
         [](auto& p) { p.apply(std::make_shared<Modem3gppProfile>(everySetting())); },
         "ApnName=internet,UserName=Me,Password=Secret,AuthType=PAP_CHAP,HomeIPType=V6,"
         "RoamIPType=V4,ApnTypesMask=IMS|XCAP|,ApnClass=INET,IsClatEnabled=true,"
         "MaxPdnsConnPerBlock=1,MaxPdnConnTimer=2,PdnReqWaitInterval=-1,IsApnDisabled=false,"
         "IsEmergencySupported=true,IsZemProfile=false,IsIAProfile=false,"},
        {"library's profile", [](auto& p) { p.setProfileName("zem_profile"); },
         "IsZemProfile=true,IsIAProfile=false,"},
        {"library's profile for the attach", [](auto& p) { p.setProfileName("zem_profile_ia"); },
         "IsZemProfile=true,IsIAProfile=true,"},
        {"override taken back",
         [](auto& p) {
             p.setCommonIPType(IPType::V4);
             p.setOverrideHomeIPType(IPType::UNKNOWN);
         },
         "HomeIPType=V4,IsZemProfile=false,IsIAProfile=false,"},
        {"networks that disagree",
         [](auto& p) {
             p.setLteRoamIPType(IPType::V4);
             p.setUmtsRoamIPType(IPType::V6);
         },
         "IsZemProfile=false,IsIAProfile=false,"},
        {"one network alone", [](auto& p) { p.setLteRoamIPType(IPType::UNKNOWN); },
         "IsZemProfile=false,IsIAProfile=false,"},
        {"types that nobody named", [](auto& p) { p.setApnTypesMask(0x1000); },
         "ApnTypesMask=NONE,IsZemProfile=false,IsIAProfile=false,"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(newProfile(c.held)->get().dump(), c.params);
    }
}

TEST(GetTest, Of3gpp2HasNoMarkers) {
    EXPECT_EQ(Modem3gpp2Profile(everySetting()).get().dump(),
              "ApnName=internet,UserName=Me,Password=Secret,AuthType=PAP_CHAP,HomeIPType=V6,"
              "ApnTypesMask=IMS|XCAP|,ApnClass=INET,IsClatEnabled=true,");
}

TEST(DumpTest, UnnamedValuesAreNumbersAndTextsStandAsTheyAre) {
    const auto profile = newProfile<Modem3gppProfile>([](auto& p) {
        p.setProfileId(3);
        p.setApnName("100%s\n");
        p.setAuthType(AuthType(4));
        p.setCommonIPType(IPType(0xFFFFFFFF));
        p.setApnTypesMask(0xFFFFFFFFFFFFFFFF);
        p.setApnClass(ApnClass(0));
    });

    EXPECT_EQ(profile->dump(),
              "TechType=3GPP,ProfileId=3,ApnName=100%s\n,AuthType=4,CommonIPType=4294967295,"
              "ApnTypesMask=18446744073709551615,ApnClass=0,");
}

// ---- Keys and listeners ----

// Counting up to the end of the range, key by key, would take half a minute.
template <int ModemProfile::*member>
struct RefCountAccess {
    friend int& refCountOf(ModemProfile& profile) { return profile.*member; }
};
int& refCountOf(ModemProfile& profile);
template struct RefCountAccess<&ModemProfile::refCount>;

TEST(ReferenceCountTest, GoesBelowZeroButNotPastItsRange) {
    const auto profile = newProfile();
    profile->incRefCount();
    profile->decRefCount();
    profile->decRefCount();
    EXPECT_EQ(profile->getRefCount(), -1);

    refCountOf(*profile) = INT_MAX;
    EXPECT_DEATH(profile->incRefCount(), "");
    refCountOf(*profile) = INT_MIN;
    EXPECT_DEATH(profile->decRefCount(), "");
}

// A key whose release nobody hears of.
std::shared_ptr<IProfileKey> newKey() {
    return std::make_shared<ProfileKey>(TechType::TECH_3GPP, 1, 1,
                                        [](const auto&) { return nullptr; });
}

class ListenerTest : public ::testing::Test {
  protected:
    void listen(int number, const std::shared_ptr<IProfileKey>& key) {
        profile->registerExpirationListener([this, number] { called.push_back(number); }, key);
    }

    std::shared_ptr<Modem3gppProfile> profile = newProfile();
    std::shared_ptr<IProfileKey> held = newKey();
    std::vector<int> called;
};

TEST_F(ListenerTest, ThoseWhoseKeyIsHeldAreCalledInOrderWhenTheProfileGoes) {
    auto dropped = newKey();
    listen(1, held);
    listen(2, dropped);
    listen(3, held);
    dropped.reset();
    auto secondOwner = profile;
    RecordedLog log;

    profile.reset();
    EXPECT_THAT(called, IsEmpty());
    secondOwner.reset();

    EXPECT_THAT(called, ElementsAre(1, 3));
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{LOG_DEBUG, "~ModemProfile()"}, Line{LOG_DEBUG, "invoke callback"},
                            Line{LOG_DEBUG, "invoke callback"}));
}

TEST_F(ListenerTest, ClearingDropsTheExpiredAndKeepsTheOrder) {
    auto dropped = newKey();
    const std::weak_ptr<IProfileKey> never;
    auto witness = std::make_shared<int>();
    const std::weak_ptr<int> freed = witness;
    listen(1, held);
    profile->registerExpirationListener([witness = std::move(witness)] {}, dropped);
    profile->registerExpirationListener([] { FAIL() << "it never had a key"; }, never);
    listen(2, held);
    dropped.reset();

    profile->clearExpiredListeners();

    EXPECT_TRUE(freed.expired());
    profile.reset();
    EXPECT_THAT(called, ElementsAre(1, 2));
}

TEST_F(ListenerTest, EmptyCallbackThrowsOutOfTheDestructor) {
    EXPECT_THROW(
        {
            Modem3gppProfile shortLived((ProfileParams()));
            shortLived.registerExpirationListener(nullptr, held);
        },
        std::bad_function_call);
}

TEST(ProfileKeyTest, SaysWhatItIsAndReportsItsReleaseOnce) {
    std::vector<std::string> requests;
    auto key = std::make_shared<ProfileKey>(TechType::TECH_3GPP2, 3, 12,
                                            [&](const std::shared_ptr<ClientRequest>& request) {
                                                requests.push_back(request->dump());
                                                return nullptr;
                                            });
    EXPECT_EQ(key->dump(), "3GPP2:3 token=12");

    key->registerExpirationListener([] {});
    key.reset();

    EXPECT_THAT(requests,
                ElementsAre("Callback Register 3GPP2:3 token=1212", "Callback Release 12"));
}

}  // namespace
}  // namespace zem
