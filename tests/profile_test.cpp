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

constexpr auto profile = [](const auto&... set) { return profileWith<Modem3gppProfile>(set...); };

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
template <class Profile>
void expectRead(const std::vector<Field>& fields, const std::string& settings) {
    const Profile read(9, response(fields));
    std::string expected = "TechType=";
    append(expected, read.getTechType());
    EXPECT_EQ(read.dump(), expected + ",ProfileId=9," + settings);
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

TEST(ReadProfileTest, LogsUnknownTypesInTheirOrder) {
    const RecordedLog log;
    std::vector<Line> expected;
    for (const char* const type : {"21", "22", "23", "24"})
        expected.push_back({LOG_DEBUG, std::string("Unknown pdp_type_enum ") + type});
    const Modem3gppProfile read(9, response({{60, 64, u32(21)},
                                             {1112, 1116, u32(22)},
                                             {1050, 1052, u32(23)},
                                             {1056, 1060, u32(24)}}));
    EXPECT_EQ(log.lines(), expected);
}

TEST(ReadProfileTest, IsPersistentWhenTheModemSaysSo) {
    EXPECT_TRUE(Modem3gppProfile(1, response({{2184, 2185, u8(2)}})).getIsPersistent());
    EXPECT_FALSE(Modem3gppProfile(1, response({{2184, 2185, u8(0)}})).getIsPersistent());
    EXPECT_FALSE(Modem3gpp2Profile(1, response({{kNoFlag, 2185, u8(1)}})).getIsPersistent());
}

// ---- Matching and differences ----

TEST(MatchTest, NamesAreComparedWholeAndRoamTypesByWhatTheProfileHas) {
    const auto library = [](const char* name) { return profile(profileName(name)); };
    const auto asking = [](const auto&... set) { return with<FilterProfileParams>(set...); };
    const auto me = profile(user("Me"), password("Pw"));
    const auto oneType = profile(common(V4V6));
    const auto roams4 = asking(roam(V4)), roams46 = asking(roam(V4V6));
    const struct {
        std::shared_ptr<ModemProfile> held;
        FilterProfileParams asked;
        bool matches;
    } cases[] = {
        {me, asking(user("Me"), password("Pw")), true},
        {me, asking(user("me")), false},
        {me, asking(password("pw")), false},
        {library("zem_profile"), asking(isZem(true)), true},
        {library("zem_profile"), asking(isIA(true)), false},
        {library("zem_profile_ia"), asking(isZem(true)), true},
        {library("zem_profile_ia"), asking(isIA(true)), true},
        {library("Zem_profile"), asking(isZem(true)), false},
        {library("zem_profil"), asking(isZem(true)), false},
        {library("zem_profile_"), asking(isZem(true)), false},
        {library("zem_profile_IA"), asking(isIA(true)), false},
        {library("zem_profile_ia2"), asking(isZem(true)), false},
        {library("zem_profile_ia2"), asking(isIA(true)), false},
        {oneType, roams46, true},
        {oneType, roams4, false},
        {oneType, asking(roam(V4), criteria(MATCH_ROAM_IP_SUBSET)), true},
        {oneType, asking(roam(V4), criteria(MATCH_HOME_IP_SUBSET)), false},
        {profile(), asking(roam(UNKNOWN)), false},
        {profile(common(V4), lteRoam(V4)), roams4, false},
        {profile(common(V4), umtsRoam(V4)), roams4, false},
        {profile(common(V6), lteRoam(V4), umtsRoam(V4)), roams4, true},
        {profile(common(V4), lteRoam(V4), umtsRoam(V6)), roams4, false},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(each.held->match(each.asked), each.matches)
            << each.held->dump() << " " << each.asked.dump();
    }
}

TEST(MatchTest, ApnTypesAreASubsetOrTheSame) {
    const auto holding = [](unsigned types) {
        return Modem3gppProfile(with<ProfileParams>(apnTypes(types)));
    };
    const auto both = holding(APN_TYPE_DEFAULT | APN_TYPE_MMS);
    EXPECT_TRUE(both.matchSubsetApnTypesMask(APN_TYPE_MMS));
    EXPECT_FALSE(both.matchExactApnTypesMask(APN_TYPE_MMS));
    EXPECT_TRUE(both.matchExactApnTypesMask(APN_TYPE_DEFAULT | APN_TYPE_MMS));
    EXPECT_FALSE(both.matchSubsetApnTypesMask(APN_TYPE_MMS | APN_TYPE_IMS));
    EXPECT_TRUE(profile()->matchExactApnTypesMask(0));  // without a mask none is held
}

TEST(DiffTest, CaseOfUserNamesAndPasswordsIsAChange) {
    const auto changes = [](const auto&... set) {
        const auto difference =
            profile(user("Me"), password("Pw"))->diff(with<ModifyProfileParams>(set...));
        return difference ? difference->dump() : "none";
    };
    EXPECT_EQ(changes(user("Me"), password("Pw")), "none");
    EXPECT_EQ(changes(user("me")), "TechType=3GPP,ProfileId=-1,UserName=me,");
    EXPECT_EQ(changes(password("pw")), "TechType=3GPP,ProfileId=-1,Password=pw,");
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

    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto pass = [&](int end, int change) {
        logToErrorOutput();
        refCountOf(*counted) = end;
        change > 0 ? counted->incRefCount() : counted->decRefCount();
    };
    constexpr char kLine[] = "ZEM E [^\n]* ModemProfile: reference count overflow";
    EXPECT_DEATH(pass(INT_MAX, 1), kLine);
    EXPECT_DEATH(pass(INT_MIN, -1), kLine);
}

class ListenerTest : public ::testing::Test {
  protected:
    void listen(int number, const std::shared_ptr<IProfileKey>& key) {
        listenedTo->registerExpirationListener([this, number] { called.push_back(number); }, key);
    }

    std::shared_ptr<ModemProfile> listenedTo = profile();
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
