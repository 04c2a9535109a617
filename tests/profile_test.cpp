#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <functional>

#include "DumpText.h"
#include "Modem3gpp2Profile.h"
#include "Modem3gppProfile.h"
#include "ProfileBuilders.h"
#include "TestLog.h"
#include "WireBytes.h"

namespace zem {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

constexpr auto none = std::nullopt;

constexpr auto params = [](const auto&... set) { return with<ProfileParams>(set...); };
constexpr auto ask = [](const auto&... set) { return with<FilterProfileParams>(set...); };
constexpr auto want = [](const auto&... set) { return with<ModifyProfileParams>(set...); };
constexpr auto profile = [](const auto&... set) { return profileWith<Modem3gppProfile>(set...); };
constexpr auto profile3gpp2 = [](const auto&... set) {
    return profileWith<Modem3gpp2Profile>(set...);
};

// The modem's IP types, as a setting and as a text such as "V4V6 V4 V6 V6".
using Type = std::optional<IPType>;
auto types(Type onHome, Type override, Type lte, Type umts) {
    return [=](Modem3gppProfile& p) {
        if (onHome) p.setCommonIPType(*onHome);
        if (override) p.setOverrideHomeIPType(*override);
        if (lte) p.setLteRoamIPType(*lte);
        if (umts) p.setUmtsRoamIPType(*umts);
    };
}
std::string typesOf(const Modem3gppProfile& p) {
    const auto name = [](bool has, IPType type) { return has ? nameOf(type) : "-"; };
    return name(p.hasCommonIPType(), p.getCommonIPType()) + " " +
           name(p.hasOverrideHomeIPType(), p.getOverrideHomeIPType()) + " " +
           name(p.hasLteRoamIPType(), p.getLteRoamIPType()) + " " +
           name(p.hasUmtsRoamIPType(), p.getUmtsRoamIPType());
}

// ---- Construction ----

TEST(NewProfileTest, TakesSettingsInTheModemsForm) {
    const Modem3gppProfile full(everySetting());

    EXPECT_EQ(full.dump(),
              "TechType=3GPP,ProfileId=-1,ApnName=internet,UserName=Me,Password=Secret,"
              "AuthType=PAP_CHAP,CommonIPType=V4V6,ApnTypesMask=1026,ApnClass=INET,"
              "IsClatEnabled=1,OverrideHomeIPType=V6,LteRoamIP=V4,UmtsRoamIP=V4,"
              "MaxPdnsConnPerBlock=1,MaxPdnConnTimer=2,PdnReqWaitInterval=-3,IsApnDisabled=0,"
              "IsEmergencySupported=1,");
    EXPECT_EQ(Modem3gpp2Profile(everySetting()).dump(),
              "TechType=3GPP2,ProfileId=-1,ApnName=internet,UserName=Me,Password=Secret,"
              "AuthType=PAP_CHAP,CommonIPType=V6,ApnTypesMask=1026,ApnClass=INET,"
              "IsClatEnabled=1,");
    EXPECT_FALSE(full.getIsPersistent() || full.getIsZemCreated());
    EXPECT_EQ(full.getRefCount(), 0);
}

TEST(NewProfileTest, CutsOnlyTheApnName) {
    const Modem3gppProfile cut(params(apn(std::string(200, 'A')), user(std::string(200, 'U'))));

    EXPECT_EQ(cut.getApnName(), std::string(150, 'a'));
    EXPECT_EQ(cut.getUserName(), std::string(200, 'U'));
}

TEST(NewProfileTest, DerivesTheModemsIPTypesFromHomeAndRoam) {
    const struct {
        ProfileParams wanted;
        const char *types, *common3gpp2;
    } cases[] = {
        {params(), "- - - -", ""},
        {params(home(V4)), "V4 - - -", "CommonIPType=V4,"},
        {params(roam(V6)), "- - V6 V6", ""},
        {params(home(V4), roam(V4)), "V4 - V4 V4", "CommonIPType=V4,"},
        {params(home(V4), roam(V6)), "V4V6 V4 V6 V6", "CommonIPType=V4,"},
        {params(home(V4V6), roam(V4)), "V4V6 V4V6 V4 V4", "CommonIPType=V4V6,"},
        {params(home(UNKNOWN), roam(V6)), "V4V6 UNKNOWN V6 V6", "CommonIPType=UNKNOWN,"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.wanted.dump());
        EXPECT_EQ(typesOf(Modem3gppProfile(c.wanted)), c.types);
        EXPECT_EQ(Modem3gpp2Profile(c.wanted).dump(),
                  std::string("TechType=3GPP2,ProfileId=-1,") + c.common3gpp2);
    }
}

wds_get_profile_settings_resp_msg_v01 response(const std::vector<Field>& fields) {
    const Bytes bytes = layOut(3264, fields);
    wds_get_profile_settings_resp_msg_v01 message;
    EXPECT_EQ(bytes.size(), sizeof message);
    memcpy(&message, bytes.data(), sizeof message);
    return message;
}

const std::vector<Field> kFull3gpp = {
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
const std::vector<Field> kFull3gpp2 = {
    {2224, 2228, u32(2)}, {2232, 2233, text("Me")}, {2514, 2515, text("InterNet")},
    {2666, 2668, u32(1)}, {2736, 2737, u8(4)},
};
const std::vector<Field> kUnheardOf3gpp = {
    {60, 64, u32(1)},     {662, 663, u8(0xFD)},          {992, 993, u8(200)},
    {1050, 1052, u32(3)}, {1056, 1060, u32(0xFFFFFFFF)},
};

// What each technology makes of a response, and what it logs meanwhile.
template <class Profile>
void expectRead(const std::vector<Field>& fields, const std::string& settings,
                const std::vector<std::string>& logged = {}) {
    RecordedLog log;
    std::vector<Line> lines;
    for (const auto& line : logged) lines.push_back({LOG_DEBUG, line});

    const Profile read(9, response(fields));

    EXPECT_THAT(log.lines(), ElementsAreArray(lines)) << settings;
    EXPECT_EQ(read.dump(), "TechType=" + nameOf(read.getTechType()) + ",ProfileId=9," + settings);
    EXPECT_FALSE(read.getIsPersistent() || read.getIsZemCreated());
}

TEST(ReadProfileTest, TakesValidFieldsOfItsOwnTechnology) {
    expectRead<Modem3gppProfile>(
        kFull3gpp,
        "ApnName=internet,UserName=Me,Password=Pw,AuthType=PAP,CommonIPType=V4V6,"
        "ApnTypesMask=9223372036854776834,ApnClass=ADMN,IsClatEnabled=1,"
        "OverrideHomeIPType=V4V6,LteRoamIP=V4,UmtsRoamIP=V6,MaxPdnsConnPerBlock=65535,"
        "MaxPdnConnTimer=2,PdnReqWaitInterval=3,IsApnDisabled=1,IsEmergencySupported=0,"
        "ProfileName=zem_profile,");
    expectRead<Modem3gpp2Profile>(kFull3gpp, "ApnTypesMask=9223372036854776834,IsClatEnabled=1,");
    expectRead<Modem3gppProfile>(kFull3gpp2, "");
    expectRead<Modem3gpp2Profile>(
        kFull3gpp2, "ApnName=internet,UserName=Me,AuthType=CHAP,CommonIPType=V6,ApnClass=APP,");
}

template <class Profile>
void expectOwnFlags(const std::vector<Field>& all) {
    for (size_t flagged = 0; flagged <= all.size(); ++flagged) {
        auto fields = all;
        for (size_t i = 0; i < all.size(); ++i)
            if (i != flagged) fields[i].validAt = kNoFlag;
        const std::string read = Profile(9, response(fields)).dump();
        EXPECT_EQ(std::count(read.begin(), read.end(), ','), flagged < all.size() ? 3 : 2) << read;
    }
}

TEST(ReadProfileTest, EachFieldStandsBehindItsOwnFlag) {
    expectOwnFlags<Modem3gppProfile>(kFull3gpp);
    expectOwnFlags<Modem3gpp2Profile>(kFull3gpp2);
}

TEST(ReadProfileTest, AnyByteButZeroIsTrue) {
    expectRead<Modem3gppProfile>(
        {{kNoFlag, 984, u8(0x80)}, {kNoFlag, 985, u8(0x40)}, {3248, 3249, u8(0xFF)}},
        "IsClatEnabled=1,IsApnDisabled=1,");
}

TEST(ReadProfileTest, TypesNotSetAreAbsentForRoamingAlone) {
    expectRead<Modem3gppProfile>(
        {{1050, 1052, u32(255)}, {1056, 1060, u32(255)}, {1112, 1116, u32(255)}},
        "OverrideHomeIPType=UNKNOWN,", {"Unknown pdp_type_enum 255"});
}

TEST(ReadProfileTest, ValuesNobodyDefinedAreLoggedAsUnknownTypesOrKept) {
    expectRead<Modem3gppProfile>(
        kUnheardOf3gpp,
        "AuthType=PAP,CommonIPType=UNKNOWN,ApnClass=200,LteRoamIP=UNKNOWN,UmtsRoamIP=UNKNOWN,",
        {"Unknown pdp_type_enum 1", "Unknown pdp_type_enum 3", "Unknown pdp_type_enum -1"});
    expectRead<Modem3gpp2Profile>({{2224, 2228, u32(4)}, {2666, 2668, u32(4)}, {2736, 2737, u8(0)}},
                                  "AuthType=NONE,CommonIPType=UNKNOWN,ApnClass=0,",
                                  {"Unknown profile_pdn_type_enum 4"});
}

TEST(ReadProfileTest, TextsMayFillTheirFieldsOrBeEmpty) {
    const std::string n51(51, 'n'), a151(151, 'a'), u128(128, 'u'), p128(128, 'p');
    expectRead<Modem3gppProfile>(
        {{8, 9, text(n51)}, {84, 85, text(a151)}, {404, 405, text(u128)}, {533, 534, text(p128)}},
        "ApnName=" + a151 + ",UserName=" + u128 + ",Password=" + p128 + ",ProfileName=" + n51 +
            ",");
    expectRead<Modem3gpp2Profile>({{2232, 2233, text(u128)}, {2514, 2515, text(a151)}},
                                  "ApnName=" + a151 + ",UserName=" + u128 + ",");
    expectRead<Modem3gppProfile>({{84, 85, {}}, {404, 405, {}}}, "ApnName=,UserName=,");
    expectRead<Modem3gpp2Profile>({{2514, 2515, {}}}, "ApnName=,");
}

TEST(ReadProfileTest, IsPersistentWhenTheModemSaysSo) {
    EXPECT_TRUE(Modem3gppProfile(1, response({{2184, 2185, u8(2)}})).getIsPersistent());
    EXPECT_FALSE(Modem3gppProfile(1, response({{2184, 2185, u8(0)}})).getIsPersistent());
    EXPECT_FALSE(Modem3gpp2Profile(1, response({{kNoFlag, 2185, u8(1)}})).getIsPersistent());
}

// ---- Matching ----

// Types DEFAULT and IMS in the modem's layout.
constexpr auto typical = [](auto& p) {
    p.setProfileId(5);
    p.setApnName("ims.operator");
    p.setUserName("Me");
    p.setPassword("Pw");
    p.setAuthType(AuthType::PAP);
    p.setApnTypesMask(0x3);
    p.setApnClass(ApnClass::IMS);
    p.setIsClatEnabled(true);
};

using Held = std::shared_ptr<ModemProfile>;
using Filters = std::vector<FilterProfileParams>;

template <class... Filter>
Filters filters(const Filter&... each) {
    return {each...};
}

void expectMatches(const Held& held, const Filters& matched, const Filters& refused) {
    for (const auto& filter : matched)
        EXPECT_TRUE(held->match(filter)) << held->dump() << " asked " << filter.dump();
    for (const auto& filter : refused)
        EXPECT_FALSE(held->match(filter)) << held->dump() << " asked " << filter.dump();
}

TEST(MatchTest, CommonSettings) {
    const Filters matched = filters(
        ask(apn("ims.operator")), ask(apn("IMS.Operator")), ask(apn("IMS"), criteria(0x4)),
        ask(apn("s.op"), criteria(0x4)), ask(apn(""), criteria(0x4)), ask(user("Me")),
        ask(password("Pw")), ask(auth(AuthType::PAP)), ask(apnTypes(0x41)), ask(apnTypes(0x1041)),
        ask(apnTypes(0x40), criteria(0x8)), ask(apnTypes(0), criteria(0x8)),
        ask(apnClass(ApnClass::IMS)), ask(clat(true)), ask(idIs(5)));
    const Filters refused =
        filters(ask(apn("ims")), ask(apn("")), ask(apn("ims.operator.net"), criteria(0x4)),
                ask(apn("ims"), criteria(0x3B)), ask(user("me")), ask(user("")),
                ask(password("PW")), ask(auth(AuthType::PAP_CHAP)), ask(auth(AuthType::NONE)),
                ask(apnTypes(0x1)), ask(apnTypes(0)), ask(apnTypes(0x43), criteria(0x8)),
                ask(apnTypes(0x40), criteria(0x37)), ask(apnClass(ApnClass::APP)), ask(clat(false)),
                ask(apn("ims.operator"), apnTypes(0x41), idIs(6)));
    const Filters asksNothing = {ask(), ask(criteria(0x3F))};
    for (const Held& held : {Held(profile(typical)), Held(profile3gpp2(typical))}) {
        expectMatches(held, matched, refused);
        expectMatches(held, asksNothing, {ask(idIs(-1))});
    }
    for (const Held& bare : {Held(profile()), Held(profile3gpp2())}) {
        expectMatches(bare, asksNothing, matched);
        expectMatches(bare, {ask(idIs(-1))}, refused);
    }
}

TEST(MatchTest, TechnologyIsAskedByItself) {
    const Filters is3gpp = {ask(techIs(TechType::TECH_3GPP))},
                  is3gpp2 = {ask(techIs(TechType::TECH_3GPP2))};
    expectMatches(profile(), is3gpp, is3gpp2);
    expectMatches(profile3gpp2(), is3gpp2, is3gpp);
}

TEST(MatchTest, LongApnOfTheFilterIsCutAsTheProfilesWas) {
    expectMatches(profile(apn(std::string(150, 'a'))), {ask(apn(std::string(200, 'A')))}, {});
}

TEST(MatchTest, TypeBitOfTheModemThatNobodyNamedDefeatsOnlyTheExactMatch) {
    expectMatches(profile(apnTypes(0x1000000001)), {ask(apnTypes(0x1), criteria(0x8))},
                  {ask(apnTypes(0x1))});
}

TEST(MatchTest, IPTypesCompareAsSetsUnderTheirOwnCriteria) {
    // Rows: the profile's type; columns: the filter's; each from UNKNOWN, V4, V6 to V4V6. The other
    // type's criteria are the opposite, to see that they do not count.
    const struct {
        std::string name;
        unsigned homeCriteria, roamCriteria;
        const char* matches[4];
    } cases[] = {
        {"exact", 0x22, 0x11, {"1000", "0100", "0010", "0001"}},
        {"subset", 0x21, 0x12, {"1000", "1100", "1010", "1111"}},
        {"superset", 0x12, 0x21, {"1111", "0101", "0011", "0001"}},
        {"either", 0x11, 0x22, {"1111", "1101", "1011", "1111"}},
    };
    for (const auto& c : cases) {
        for (unsigned i = 0; i < 16; ++i) {
            const auto held = IPType(i / 4), other = IPType(3 - i / 4), asked = IPType(i % 4);
            SCOPED_TRACE(c.name + ", held " + nameOf(held) + ", asked " + nameOf(asked));
            const bool expected = c.matches[i / 4][i % 4] == '1';
            const auto askHome = ask(home(asked), criteria(c.homeCriteria));
            const auto askRoam = ask(roam(asked), criteria(c.roamCriteria));

            EXPECT_EQ(profile(common(held))->match(askHome), expected);
            EXPECT_EQ(profile3gpp2(common(held))->match(askHome), expected);
            EXPECT_EQ(profile(common(held))->match(askRoam), expected);
            EXPECT_EQ(profile(types(other, other, held, held))->match(askRoam), expected);
            if (held != UNKNOWN) {
                EXPECT_EQ(profile(types(other, held, other, other))->match(askHome), expected);
            }
        }
    }
}

TEST(MatchTest, WhichOfTheProfilesIPTypesIsCompared) {
    // An override takes the common type's place at home, unless it has been taken back; the common
    // type roams when neither network has its own, and the networks must agree.
    expectMatches(profile(types(V4V6, V4, none, none)), {ask(home(V4)), ask(roam(V4V6))},
                  {ask(home(V4V6))});
    expectMatches(profile(types(none, V4, none, none)), {ask(home(V4))},
                  {ask(roam(V4), criteria(0x3F))});
    expectMatches(profile(types(V6, UNKNOWN, none, none)), {ask(home(V6))}, {});
    expectMatches(profile(types(none, UNKNOWN, none, none)), {},
                  {ask(home(UNKNOWN), criteria(0x3F))});
    expectMatches(profile(types(none, none, V4, V4)), {}, {ask(home(V4), criteria(0x3F))});
    expectMatches(profile(types(V4V6, V4, V6, V6)), {ask(roam(V6))}, {ask(home(V4), roam(V4))});
    const Filters asks = {ask(roam(V4), criteria(0x3F)), ask(roam(V6), criteria(0x3F))};
    expectMatches(profile(types(V4V6, none, V4, V6)), {}, asks);
    expectMatches(profile(types(V4V6, none, V4, none)), {}, asks);
    expectMatches(profile(types(V4V6, none, none, V4)), {}, asks);
    expectMatches(profile(types(V4V6, none, UNKNOWN, none)), {ask(roam(UNKNOWN))}, {});
    // A 3GPP2 profile's absent type counts as unknown.
    expectMatches(profile3gpp2(), {ask(home(UNKNOWN)), ask(home(V4), criteria(0x10))},
                  {ask(home(V4))});
}

TEST(MatchTest, LibrarysOwnProfilesAreKnownByName) {
    const auto zem = ask(isZem(true)), notZem = ask(isZem(false)), ia = ask(isIA(true)),
               notIA = ask(isIA(false));
    // Asked together, the question for the attach counts alone.
    const auto notIAButZem = ask(isIA(false), isZem(true)),
               neither = ask(isIA(false), isZem(false)),
               iaButNotZem = ask(isIA(true), isZem(false));
    expectMatches(profile(profileName("zem_profile")), {zem, notIA, neither}, {notZem, ia});
    expectMatches(profile(profileName("zem_profile_ia")), {zem, ia, iaButNotZem},
                  {notIA, notIAButZem});
    for (const char* other : {"other", "ZEM_profile", "zem_profile_ia2", ""})
        expectMatches(profile(profileName(other)), {notZem, notIA, notIAButZem}, {zem, ia});
    expectMatches(profile(), {notZem, notIA}, {zem, ia});
}

TEST(MatchTest, SettingsOf3gppAloneFailEvery3gpp2Profile) {
    const Filters matched = filters(ask(maxPdns(1)), ask(maxTimer(2)), ask(interval(-3)),
                                    ask(disabled(false)), ask(emergency(true)), ask(roam(V4)));
    const Filters refused = filters(ask(maxPdns(0)), ask(maxTimer(0)), ask(interval(0)),
                                    ask(disabled(true)), ask(emergency(false)));
    const Filters markers = {ask(isZem(false)), ask(isIA(false))};
    const auto full = std::make_shared<Modem3gppProfile>(everySetting());
    const auto full3gpp2 = std::make_shared<Modem3gpp2Profile>(everySetting());

    expectMatches(full, matched, refused);
    expectMatches(full, markers, {});
    expectMatches(profile(), markers, matched);
    expectMatches(profile(), {}, refused);
    for (const auto& asked : {matched, refused, markers}) expectMatches(full3gpp2, {}, asked);
}

// ---- What a change comes to ----

TEST(DiffTest, HoldsOnlyWhatMustChangeIn3gpp) {
    const std::string a150(150, 'a'), a200(200, 'A');
    const struct {
        Held held;
        ModifyProfileParams wanted;
        std::string difference;  // empty: none
    } cases[] = {
        {profile(typical), want(), ""},
        {profile(typical),
         want(apn("IMS.Operator"), user("Me"), password("Pw"), auth(AuthType::PAP), apnTypes(0x41),
              apnClass(ApnClass::IMS), clat(true)),
         ""},
        {profile(typical), want(apn("ims.operator"), user("me")), "UserName=me,"},
        {profile(typical),
         want(apn("Other"), user("You"), password(""), auth(AuthType::NONE), apnTypes(0),
              apnClass(ApnClass::APP), clat(false)),
         "ApnName=other,UserName=You,Password=,AuthType=NONE,ApnTypesMask=0,ApnClass=APP,"
         "IsClatEnabled=0,"},
        // Absent settings, with the values of absent ones.
        {profile(),
         want(apn(""), apnTypes(0), clat(false), maxPdns(0), maxTimer(0), interval(0),
              disabled(false), emergency(false)),
         "ApnName=,ApnTypesMask=0,IsClatEnabled=0,MaxPdnsConnPerBlock=0,MaxPdnConnTimer=0,"
         "PdnReqWaitInterval=0,IsApnDisabled=0,IsEmergencySupported=0,"},
        {profile(maxPdns(1), disabled(true)), want(maxPdns(1), disabled(true)), ""},
        {profile(apn(a150)), want(apn(a200)), ""},
        {profile(), want(apn(a200)), "ApnName=" + a150 + ","},
        // The modem's unnamed bits do not count, but the caller's are a change for ever.
        {profile(apnTypes(0x1003)), want(apnTypes(0x41)), ""},
        {profile(apnTypes(0x3)), want(apnTypes(0x1041)), "ApnTypesMask=3,"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.wanted.dump());
        const std::string before = c.held->dump();

        const auto difference = c.held->diff(c.wanted);

        EXPECT_EQ(c.held->dump(), before);
        EXPECT_EQ(difference ? difference->dump() : "none",
                  c.difference.empty() ? "none" : "TechType=3GPP,ProfileId=-1," + c.difference);
    }
}

TEST(DiffTest, WorksOutTheModemsIPTypesWhateverIsWanted) {
    const struct {
        std::shared_ptr<Modem3gppProfile> held;
        ModifyProfileParams wanted;
        const char* difference;
    } cases[] = {
        {profile(types(V4, none, none, none)), want(home(V6)), "V6 - - -"},
        {profile(types(V4, none, none, none)), want(roam(V6)), "V4V6 V4 V6 V6"},
        {profile(types(V4V6, V4, V6, V6)), want(home(V6)), "V6 UNKNOWN - -"},
        {profile(types(V4V6, V4, V6, V6)), want(home(V4)), "none"},
        {profile(types(V4V6, V4, V6, V6)), want(roam(V4)), "V4 UNKNOWN V4 V4"},
        {profile(types(V4V6, V4, V4, V4)), want(home(V4), roam(V4)), "V4 UNKNOWN - -"},
        {profile(types(V4, UNKNOWN, V4, V4)), want(home(V4)), "none"},
        // Inconsistent types repair themselves.
        {profile(types(V4, none, V6, V6)), want(), "V4V6 V4 - -"},
        // Networks that disagree are left alone, unless a roam type is wanted.
        {profile(types(V4, none, V6, V4)), want(home(V4)), "none"},
        {profile(types(V4, none, V6, V4)), want(roam(V4)), "- - V4 -"},
        {profile(types(V4, none, V4, none)), want(roam(V4)), "- - - V4"},
    };
    for (const auto& c : cases) {
        const auto difference = std::dynamic_pointer_cast<Modem3gppProfile>(c.held->diff(c.wanted));
        EXPECT_EQ(difference ? typesOf(*difference) : "none", c.difference)
            << c.held->dump() << c.wanted.dump();
    }
}

TEST(DiffTest, Of3gpp2IgnoresWhatIts3gpp2ProfilesLack) {
    const auto held = profile3gpp2(typical, common(V4));
    auto wanted = want(roam(V6), emergency(true), maxTimer(1), home(V4), user("Me"));
    EXPECT_EQ(held->diff(wanted), nullptr);

    wanted.setHomeIPType(V4V6);
    wanted.setUserName("You");
    EXPECT_EQ(held->diff(wanted)->dump(),
              "TechType=3GPP2,ProfileId=-1,UserName=You,CommonIPType=V4V6,");
}

TEST(ApplyTest, TakesPresentSettingsAndLeavesTheRest) {
    const auto held = profile(typical, persistent(true), profileName("zem_profile"), lteRoam(V6));

    held->apply(nullptr);
    held->apply(profile(profileId(99), apn(std::string(149, 'b') + "BB"), password(""),
                        apnTypes(0x1000), clat(false), profileName("other"), overrideHome(UNKNOWN),
                        maxTimer(-1), disabled(true)));
    held->apply(profile());

    EXPECT_EQ(held->dump(), "TechType=3GPP,ProfileId=5,ApnName=" + std::string(150, 'b') +
                                ",UserName=Me,Password=,AuthType=PAP,ApnTypesMask=4096,"
                                "ApnClass=IMS,IsClatEnabled=0,OverrideHomeIPType=UNKNOWN,"
                                "LteRoamIP=V6,MaxPdnConnTimer=-1,IsApnDisabled=1,"
                                "ProfileName=zem_profile,");
    EXPECT_TRUE(held->getIsPersistent());
}

TEST(ApplyTest, EverySettingCanBeTakenButOtherTechnologyGivesItsCommonOnesAlone) {
    const auto full = std::make_shared<Modem3gppProfile>(everySetting());
    const auto full3gpp2 = std::make_shared<Modem3gpp2Profile>(everySetting());
    const auto same = profile(), other = profile();
    const auto same3gpp2 = profile3gpp2();

    same->apply(full);
    same3gpp2->apply(full3gpp2);
    other->apply(full3gpp2);

    EXPECT_EQ(same->dump(), full->dump());
    EXPECT_EQ(same3gpp2->dump(), full3gpp2->dump());
    EXPECT_EQ(other->dump(), "TechType=3GPP" + full3gpp2->dump().substr(14));
}

TEST(GetTest, ReadsBackAsParameters) {
    const struct {
        Held held;
        const char* params;
    } cases[] = {
        {profile(), "IsZemProfile=false,IsIAProfile=false,"},
        {std::make_shared<Modem3gppProfile>(everySetting()),
         "ApnName=internet,UserName=Me,Password=Secret,AuthType=PAP_CHAP,HomeIPType=V6,"
         "RoamIPType=V4,ApnTypesMask=IMS|XCAP|,ApnClass=INET,IsClatEnabled=true,"
         "MaxPdnsConnPerBlock=1,MaxPdnConnTimer=2,PdnReqWaitInterval=-3,IsApnDisabled=false,"
         "IsEmergencySupported=true,IsZemProfile=false,IsIAProfile=false,"},
        {std::make_shared<Modem3gpp2Profile>(everySetting()),
         "ApnName=internet,UserName=Me,Password=Secret,AuthType=PAP_CHAP,HomeIPType=V6,"
         "ApnTypesMask=IMS|XCAP|,ApnClass=INET,IsClatEnabled=true,"},
        {profile(profileName("zem_profile")), "IsZemProfile=true,IsIAProfile=false,"},
        {profile(profileName("zem_profile_ia")), "IsZemProfile=true,IsIAProfile=true,"},
        {profile(common(V4), overrideHome(UNKNOWN)),
         "HomeIPType=V4,IsZemProfile=false,IsIAProfile=false,"},
        {profile(lteRoam(V4), umtsRoam(V6)), "IsZemProfile=false,IsIAProfile=false,"},
        {profile(lteRoam(UNKNOWN)), "IsZemProfile=false,IsIAProfile=false,"},
        {profile(apnTypes(0x1000)), "ApnTypesMask=NONE,IsZemProfile=false,IsIAProfile=false,"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.held->get().dump(), c.params) << c.held->dump();
}

// ---- Keys and listeners ----

// Counting up to the end of the range, key by key, would take half a minute.
template <int ModemProfile::*member>
struct RefCountAccess {
    friend int& refCountOf(ModemProfile& counted) { return counted.*member; }
};
int& refCountOf(ModemProfile& counted);
template struct RefCountAccess<&ModemProfile::refCount>;

TEST(ReferenceCountTest, GoesBelowZeroButNotPastItsRange) {
    const auto counted = profile();
    counted->incRefCount();
    counted->decRefCount();
    counted->decRefCount();
    EXPECT_EQ(counted->getRefCount(), -1);

    refCountOf(*counted) = INT_MAX;
    EXPECT_DEATH(counted->incRefCount(), "");
    refCountOf(*counted) = INT_MIN;
    EXPECT_DEATH(counted->decRefCount(), "");
}

class ListenerTest : public ::testing::Test {
  protected:
    void listen(int number, const std::shared_ptr<IProfileKey>& key) {
        listenedTo->registerExpirationListener([this, number] { called.push_back(number); }, key);
    }

    Held listenedTo = profile();
    std::shared_ptr<IProfileKey> held = quietKey();
    std::vector<int> called;
};

TEST_F(ListenerTest, ThoseWhoseKeyIsHeldAreCalledInOrderWhenTheProfileGoes) {
    auto dropped = quietKey();
    listen(1, held);
    listen(2, dropped);
    listen(3, held);
    dropped.reset();
    auto secondOwner = listenedTo;
    RecordedLog log;

    listenedTo.reset();
    EXPECT_TRUE(called.empty());
    secondOwner.reset();

    EXPECT_THAT(called, ElementsAre(1, 3));
    EXPECT_THAT(log.lines(),
                ElementsAre(Line{LOG_DEBUG, "~ModemProfile()"}, Line{LOG_DEBUG, "invoke callback"},
                            Line{LOG_DEBUG, "invoke callback"}));
}

TEST_F(ListenerTest, ClearingDropsTheExpiredAndKeepsTheOrder) {
    auto dropped = quietKey();
    const std::weak_ptr<IProfileKey> never;
    auto witness = std::make_shared<int>();
    const std::weak_ptr<int> freed = witness;
    listen(1, held);
    listenedTo->registerExpirationListener([witness = std::move(witness)] {}, dropped);
    listenedTo->registerExpirationListener([] { FAIL() << "it never had a key"; }, never);
    listen(2, held);
    dropped.reset();

    listenedTo->clearExpiredListeners();

    EXPECT_TRUE(freed.expired());
    listenedTo.reset();
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

}  // namespace
}  // namespace zem
