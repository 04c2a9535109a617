#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zem/ProfileParams.h>

#include <sstream>

#include "CallbackRequest.h"
#include "ClientRequest.h"
#include "ClientResponse.h"
#include "ProfileChangedInd.h"
#include "ProfileKey.h"

namespace zem {
namespace {

struct DumpCase {
    const char* name;
    std::string (*dump)();
    const char* expected;
};

template <size_t N>
void expectDumps(const DumpCase (&cases)[N]) {
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.dump(), c.expected);
    }
}

ProfileParams ims() {
    ProfileParams params;
    params.setApnName("ims");
    return params;
}

std::string dumpOfMask(unsigned int mask) {
    ProfileParams params;
    params.setApnTypesMask(mask);
    return params.dump();
}

ProfileParams everySetting() {
    ProfileParams params;
    params.setApnName("Internet");
    params.setUserName("me");
    params.setPassword("secret");
    params.setAuthType(AuthType::PAP_CHAP);
    params.setHomeIPType(IPType::V6);
    params.setRoamIPType(IPType::V4);
    params.setApnTypesMask(0x41);
    params.setApnClass(ApnClass::INET);
    params.setIsClatEnabled(true);
    params.setMaxPdnsConnPerBlock(1);
    params.setMaxPdnConnTimer(2);
    params.setPdnReqWaitInterval(-3);
    params.setIsApnDisabled(false);
    params.setIsEmergencySupported(true);
    return params;
}

const DumpCase kParamsDumps[] = {
    {"nothing present", [] { return ProfileParams().dump(); }, ""},
    {"every setting, not in the order of declaration", [] { return everySetting().dump(); },
     "ApnName=Internet,UserName=me,Password=secret,AuthType=PAP_CHAP,HomeIPType=V6,RoamIPType=V4,"
     "ApnTypesMask=DEFAULT|IMS|,ApnClass=INET,IsClatEnabled=true,MaxPdnsConnPerBlock=1,"
     "MaxPdnConnTimer=2,PdnReqWaitInterval=-3,IsApnDisabled=false,IsEmergencySupported=true,"},
    {"present settings with the values of absent ones",
     [] {
         ProfileParams params;
         params.setApnName("");
         params.setAuthType(AuthType::NONE);
         params.setRoamIPType(IPType::UNKNOWN);
         params.setApnTypesMask(0);
         params.setIsClatEnabled(false);
         params.setMaxPdnConnTimer(0);
         return params.dump();
     },
     "ApnName=,AuthType=NONE,RoamIPType=UNKNOWN,ApnTypesMask=NONE,IsClatEnabled=false,"
     "MaxPdnConnTimer=0,"},
    {"the second value of a setting counts",
     [] {
         ProfileParams params = ims();
         params.setApnName("internet");
         return params.dump();
     },
     "ApnName=internet,"},
    {"all bits of a mask", [] { return dumpOfMask(0xFFFFFFFF); },
     "ApnTypesMask=DEFAULT|MMS|SUPL|DUN|HIPRI|FOTA|IMS|CBS|IA|EMERGENCY|MCX|XCAP|,"},
    {"every second bit of a mask", [] { return dumpOfMask(0x555); },
     "ApnTypesMask=DEFAULT|SUPL|HIPRI|IMS|IA|MCX|,"},
    {"only unnamed bits of a mask are not NONE", [] { return dumpOfMask(0x1000); },
     "ApnTypesMask=,"},
    {"add", [] { return AddProfileParams(true, TechType::TECH_3GPP2, false).dump(); },
     "3GPP2 persist=true: IsIAProfile=false,"},
    {"add with settings",
     [] { return AddProfileParams(ims(), false, TechType::TECH_3GPP, true).dump(); },
     "3GPP persist=false: ApnName=ims,IsIAProfile=true,"},
    {"add overrides the copied IA marker",
     [] {
         FilterProfileParams marked;
         marked.setFilterByIsIAProfile(true);
         marked.setFilterByIsZemProfile(true);
         return AddProfileParams(marked, false, TechType::TECH_3GPP, false).dump();
     },
     "3GPP persist=false: IsZemProfile=true,IsIAProfile=false,"},
    {"fresh filter", [] { return FilterProfileParams().dump(); }, "None: "},
    {"filter of both kinds of question",
     [] {
         FilterProfileParams filter(ims());
         filter.addFilterMatchCriteria(0x4);
         filter.addFilterMatchCriteria(0x10);
         filter.setFilterByProfileId(5);
         filter.setFilterByTechType(TechType::TECH_3GPP);
         return filter.dump();
     },
     "ApnNameSubset|HomeIPSuperset|: tech=3GPP,id=5,ApnName=ims,"},
    {"all criteria",
     [] {
         FilterProfileParams filter;
         filter.addFilterMatchCriteria(0xFFFFFFFF);
         return filter.dump();
     },
     "HomeIPSubset|RoamIPSubset|ApnNameSubset|ApnTypeBitmaskSubset|HomeIPSuperset|RoamIPSuperset|"
     ": "},
    {"only unnamed criteria are not None",
     [] {
         FilterProfileParams filter;
         filter.addFilterMatchCriteria(0xC3);
         filter.removeFilterMatchCriteria(0x83);
         return filter.dump();
     },
     ": "},
    {"filter made of add parameters asks for their IA marker, not for their family",
     [] {
         const AddProfileParams add(ims(), true, TechType::TECH_3GPP2, false);
         return FilterProfileParams(add).dump();
     },
     "None: ApnName=ims,IsIAProfile=false,"},
    {"settings taken from a filter leave its questions behind",
     [] {
         FilterProfileParams filter(ims());
         filter.addFilterMatchCriteria(0x4);
         filter.setFilterByProfileId(-5);
         filter.setFilterByIsZemProfile(false);
         return ModifyProfileParams(filter).dump();
     },
     "ApnName=ims,IsZemProfile=false,"},
};

TEST(ProfileParamsTest, DumpsPrintWhatIsPresent) {
    expectDumps(kParamsDumps);
}

TEST(ProfileParamsTest, EnumeratorsPrintTheirNamesAndOtherValuesTheirNumbers) {
    const struct {
        uint32_t value;
        const char *tech, *ip, *auth, *apnClass;
    } cases[] = {
        {0, "3GPP", "UNKNOWN", "NONE", "0"},
        {1, "3GPP2", "V4", "PAP", "IMS"},
        {2, "2", "V6", "CHAP", "ADMN"},
        {3, "3", "V4V6", "PAP_CHAP", "INET"},
        {4, "4", "4", "4", "APP"},
        {5, "5", "5", "5", "5"},
        {0xFFFFFFFF, "4294967295", "4294967295", "4294967295", "4294967295"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value);
        ProfileParams params;
        params.setAuthType(AuthType(c.value));
        params.setHomeIPType(IPType(c.value));
        params.setRoamIPType(IPType(c.value));
        params.setApnClass(ApnClass(c.value));
        EXPECT_EQ(params.dump(), std::string("AuthType=") + c.auth + ",HomeIPType=" + c.ip +
                                     ",RoamIPType=" + c.ip + ",ApnClass=" + c.apnClass + ",");
        EXPECT_EQ(AddProfileParams(true, TechType(c.value), true).dump(),
                  std::string(c.tech) + " persist=true: IsIAProfile=true,");
    }
}

TEST(ProfileParamsTest, EachSetterMarksItsOwnSettingAlone) {
    const struct {
        const char* name;
        bool (ProfileParams::*has)() const;
        void (*set)(ProfileParams&);
    } settings[] = {
        {"ApnName", &ProfileParams::hasApnName, [](auto& p) { p.setApnName(""); }},
        {"UserName", &ProfileParams::hasUserName, [](auto& p) { p.setUserName(""); }},
        {"Password", &ProfileParams::hasPassword, [](auto& p) { p.setPassword(""); }},
        {"AuthType", &ProfileParams::hasAuthType, [](auto& p) { p.setAuthType(AuthType::NONE); }},
        {"HomeIPType", &ProfileParams::hasHomeIPType,
         [](auto& p) { p.setHomeIPType(IPType::UNKNOWN); }},
        {"RoamIPType", &ProfileParams::hasRoamIPType,
         [](auto& p) { p.setRoamIPType(IPType::UNKNOWN); }},
        {"ApnTypesMask", &ProfileParams::hasApnTypesMask, [](auto& p) { p.setApnTypesMask(0); }},
        {"ApnClass", &ProfileParams::hasApnClass, [](auto& p) { p.setApnClass(ApnClass(0)); }},
        {"IsClatEnabled", &ProfileParams::hasIsClatEnabled,
         [](auto& p) { p.setIsClatEnabled(false); }},
        {"MaxPdnsConnPerBlock", &ProfileParams::hasMaxPdnsConnPerBlock,
         [](auto& p) { p.setMaxPdnsConnPerBlock(0); }},
        {"MaxPdnConnTimer", &ProfileParams::hasMaxPdnConnTimer,
         [](auto& p) { p.setMaxPdnConnTimer(0); }},
        {"PdnReqWaitInterval", &ProfileParams::hasPdnReqWaitInterval,
         [](auto& p) { p.setPdnReqWaitInterval(0); }},
        {"IsApnDisabled", &ProfileParams::hasIsApnDisabled,
         [](auto& p) { p.setIsApnDisabled(false); }},
        {"IsEmergencySupported", &ProfileParams::hasIsEmergencySupported,
         [](auto& p) { p.setIsEmergencySupported(false); }},
    };
    for (const auto& changed : settings) {
        SCOPED_TRACE(changed.name);
        ProfileParams params;
        changed.set(params);
        EXPECT_EQ(params.dump().rfind(std::string(changed.name) + "=", 0), 0u);
        for (const auto& setting : settings) {
            SCOPED_TRACE(setting.name);
            EXPECT_EQ((params.*setting.has)(), setting.has == changed.has);
        }
    }
}

TEST(ProfileParamsTest, GettersReturnWhatWasSetAndZeroBefore) {
    const ProfileParams none;
    const ProfileParams all = everySetting();

    EXPECT_EQ(none.getApnName() + none.getUserName() + none.getPassword(), "");
    EXPECT_EQ(none.getHomeIPType(), IPType::UNKNOWN);
    EXPECT_EQ(none.getApnTypesMask(), 0u);
    EXPECT_FALSE(none.getIsClatEnabled());
    EXPECT_EQ(all.getApnName(), "Internet");
    EXPECT_EQ(all.getUserName(), "me");
    EXPECT_EQ(all.getPassword(), "secret");
    EXPECT_EQ(all.getAuthType(), AuthType::PAP_CHAP);
    EXPECT_EQ(all.getHomeIPType(), IPType::V6);
    EXPECT_EQ(all.getRoamIPType(), IPType::V4);
    EXPECT_EQ(all.getApnTypesMask(), 0x41u);
    EXPECT_EQ(all.getApnClass(), ApnClass::INET);
    EXPECT_TRUE(all.getIsClatEnabled());
    EXPECT_EQ(all.getMaxPdnsConnPerBlock(), 1);
    EXPECT_EQ(all.getMaxPdnConnTimer(), 2);
    EXPECT_EQ(all.getPdnReqWaitInterval(), -3);
    EXPECT_FALSE(all.getIsApnDisabled());
    EXPECT_TRUE(all.getIsEmergencySupported());
}

TEST(ProfileParamsTest, MarkersAreTrueOnlyWhenPresentAndTrue) {
    FilterProfileParams filter;
    EXPECT_FALSE(filter.hasFilterByIsZemProfile());
    EXPECT_FALSE(filter.hasFilterByIsIAProfile());
    EXPECT_FALSE(filter.getIsZemProfile());
    EXPECT_FALSE(filter.getIsIAProfile());

    filter.setFilterByIsZemProfile(true);
    filter.setFilterByIsIAProfile(false);

    EXPECT_TRUE(filter.hasFilterByIsZemProfile());
    EXPECT_TRUE(filter.hasFilterByIsIAProfile());
    EXPECT_TRUE(filter.getIsZemProfile());
    EXPECT_FALSE(filter.getIsIAProfile());
}

// A key whose release nobody hears of.
std::shared_ptr<IProfileKey> key() {
    return std::make_shared<ProfileKey>(TechType::TECH_3GPP, 2, 7,
                                        [](const auto&) { return nullptr; });
}

FilterProfileParams imsFilter() {
    return FilterProfileParams(ims());
}

ModifyProfileParams imsChange() {
    return ModifyProfileParams(ims());
}

struct UnheardOfResponse : ClientResponse {
    UnheardOfResponse() : ClientResponse(Status(7), ReqRespType(8)) {}
};

const DumpCase kEnvelopeDumps[] = {
    {"add", [] { return AddRequest(AddProfileParams(true, TechType::TECH_3GPP, false)).dump(); },
     "Add 3GPP persist=true: IsIAProfile=false,"},
    {"modify", [] { return ModifyRequest(imsChange(), key()).dump(); },
     "Modify 3GPP:2 token=7 ApnName=ims,"},
    {"modify without key", [] { return ModifyRequest(imsChange(), nullptr).dump(); },
     "Modify  ApnName=ims,"},
    {"delete", [] { return DeleteRequest(key()).dump(); }, "Delete 3GPP:2 token=7"},
    {"delete without key", [] { return DeleteRequest(nullptr).dump(); }, "Delete "},
    {"filter", [] { return FilterRequest(imsFilter()).dump(); },
     "Filter params: None: ApnName=ims,"},
    {"match", [] { return MatchRequest(imsFilter(), key()).dump(); },
     "Match 3GPP:2 token=7 None: ApnName=ims,"},
    {"match without key", [] { return MatchRequest(imsFilter(), nullptr).dump(); },
     "Match  None: ApnName=ims,"},
    {"get", [] { return GetRequest(key()).dump(); }, "Get 3GPP:2 token=7"},
    {"get without key", [] { return GetRequest(nullptr).dump(); }, "Get "},
    {"refresh keeps its end to itself", [] { return RefreshRequest(COMPLETE).dump(); }, "Refresh "},
    {"unheard-of request", [] { return ClientRequest(ReqRespType(8)).dump(); }, "8 "},
    {"empty callback", [] { return CallbackRequest().dump(); }, "Callback "},
    {"release",
     [] {
         CallbackRequest request;
         request.setReleaseToken(0xFFFFFFFFFFFFFFFF);
         return request.dump();
     },
     "Callback Release 18446744073709551615"},
    {"registration, its token without a gap",
     [] {
         const auto held = key();
         CallbackRequest request;
         request.setExpirationInfo([] {}, held, 7);
         return request.dump();
     },
     "Callback Register 3GPP:2 token=77"},
    {"registration of an expired key",
     [] {
         CallbackRequest request;
         request.setExpirationInfo([] {}, {}, 7);
         return request.dump();
     },
     "Callback Register null7"},

    {"key added", [] { return AddResponse(SUCCESS, key()).dump(); }, "Add Success 3GPP:2 token=7"},
    {"no key added", [] { return AddResponse(FAILURE, nullptr).dump(); }, "Add Failure "},
    {"modified", [] { return ModifyResponse(SUCCESS).dump(); }, "Modify Success"},
    {"not deleted", [] { return DeleteResponse(FAILURE).dump(); }, "Delete Failure"},
    {"nothing found", [] { return FilterResponse(SUCCESS, {}).dump(); }, "Filter Success "},
    {"keys found, a null one among them",
     [] {
         return FilterResponse(SUCCESS, {key(), nullptr, key()}).dump();
     },
     "Filter Success 3GPP:2 token=7,null,3GPP:2 token=7,"},
    {"match answered", [] { return MatchResponse(SUCCESS, true).dump(); }, "Match Success true"},
    {"match refused", [] { return MatchResponse(FAILURE, false).dump(); }, "Match Failure false"},
    {"settings got", [] { return GetResponse(SUCCESS, ims()).dump(); }, "Get Success ApnName=ims,"},
    {"no settings got", [] { return GetResponse(FAILURE, std::nullopt).dump(); }, "Get Failure "},
    {"called back", [] { return CallbackResponse(SUCCESS).dump(); }, "Callback Success"},
    {"refreshed", [] { return RefreshResponse(SUCCESS).dump(); }, "Refresh Success"},
    {"unheard-of response", [] { return UnheardOfResponse().dump(); }, "8 7"},

    {"modem change",
     [] {
         return ProfileChangedInd{TechType::TECH_3GPP2, 3, ProfileChangedEvent::SubscriptionChange}
             .dump();
     },
     "3GPP2:3 SubscriptionChange"},
};

TEST(EnvelopesTest, DumpsPrintTypeThenContent) {
    expectDumps(kEnvelopeDumps);
}

TEST(EnvelopesTest, TypeGoesToAStreamByNameOrNumber) {
    std::ostringstream out;

    out << CALLBACK << ' ' << REFRESH << ' ' << ReqRespType(8) << ' ' << ReqRespType(0xFFFFFFFF);

    EXPECT_EQ(out.str(), "Callback Refresh 8 4294967295");
}

TEST(EnvelopesTest, ExpirationInfoIsCompleteOrNotThere) {
    CallbackRequest request;
    EXPECT_FALSE(request.hasExpirationInfo());
    EXPECT_FALSE(request.hasReleaseToken());

    request.setExpirationInfo(nullptr, {}, 0);

    EXPECT_TRUE(request.hasExpirationInfo());
    EXPECT_FALSE(request.getExpirationCb());
    EXPECT_FALSE(request.hasReleaseToken());
}

}  // namespace
}  // namespace zem
