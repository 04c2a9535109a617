#include <gtest/gtest.h>
#include <zem/ProfileParams.h>

#include <functional>
#include <sstream>

#include "CallbackRequest.h"
#include "ClientRequest.h"
#include "ClientResponse.h"
#include "ProfileBuilders.h"
#include "ProfileChangedInd.h"

namespace zem {
namespace {

const auto kIms = with<ProfileParams>(apn("ims"));
const FilterProfileParams kImsFilter(kIms);
const ModifyProfileParams kImsChange(kIms);

TEST(ProfileParamsTest, DumpPrintsWhatIsPresent) {
    EXPECT_EQ(ProfileParams().dump(), "");
    EXPECT_EQ(everySetting().dump(),
              "ApnName=Internet,UserName=Me,Password=Secret,AuthType=PAP_CHAP,HomeIPType=V6,"
              "RoamIPType=V4,ApnTypesMask=IMS|XCAP|,ApnClass=INET,IsClatEnabled=true,"
              "MaxPdnsConnPerBlock=1,MaxPdnConnTimer=2,PdnReqWaitInterval=-3,IsApnDisabled=false,"
              "IsEmergencySupported=true,");
    EXPECT_EQ(with<ProfileParams>(apn("ims"), apn("internet")).dump(), "ApnName=internet,");
}

TEST(ProfileParamsTest, DumpNamesTheBitsOfMasks) {
    const auto types = [](unsigned mask) { return with<ProfileParams>(apnTypes(mask)).dump(); };
    EXPECT_EQ(types(0xFFFFFFFF),
              "ApnTypesMask=DEFAULT|MMS|SUPL|DUN|HIPRI|FOTA|IMS|CBS|IA|EMERGENCY|MCX|XCAP|,");
    EXPECT_EQ(types(0x555), "ApnTypesMask=DEFAULT|SUPL|HIPRI|IMS|IA|MCX|,");
    EXPECT_EQ(types(1), "ApnTypesMask=DEFAULT|,");
    EXPECT_EQ(types(0), "ApnTypesMask=NONE,");
    EXPECT_EQ(types(0x1000), "ApnTypesMask=,");

    FilterProfileParams filter;
    EXPECT_EQ(filter.dump(), "None: ");
    filter.addFilterMatchCriteria(0xFFFFFFFF);
    EXPECT_EQ(filter.dump(),
              "HomeIPSubset|RoamIPSubset|ApnNameSubset|ApnTypeBitmaskSubset|HomeIPSuperset|"
              "RoamIPSuperset|: ");
    filter.removeFilterMatchCriteria(0x2B);
    EXPECT_EQ(filter.dump(), "ApnNameSubset|HomeIPSuperset|: ");
    filter.removeFilterMatchCriteria(0x14);
    EXPECT_EQ(filter.dump(), ": ");
}

TEST(ProfileParamsTest, RecordsMadeOfOthersTakeTheSettingsAndTheirOwn) {
    const auto filter =
        with<FilterProfileParams>(apn("ims"), criteria(0x4), criteria(0x10), idIs(-5),
                                  techIs(TechType::TECH_3GPP), isZem(true), isIA(true));
    const AddProfileParams add(filter, false, TechType::TECH_3GPP, false);

    EXPECT_EQ(filter.dump(),
              "ApnNameSubset|HomeIPSuperset|: tech=3GPP,id=-5,ApnName=ims,IsZemProfile=true,"
              "IsIAProfile=true,");
    EXPECT_EQ(add.dump(), "3GPP persist=false: ApnName=ims,IsZemProfile=true,IsIAProfile=false,");
    EXPECT_EQ(AddProfileParams(true, TechType::TECH_3GPP2, true).dump(),
              "3GPP2 persist=true: IsIAProfile=true,");
    EXPECT_EQ(FilterProfileParams(add).dump(),
              "None: ApnName=ims,IsZemProfile=true,IsIAProfile=false,");
    EXPECT_EQ(ModifyProfileParams(filter).dump(),
              "ApnName=ims,IsZemProfile=true,IsIAProfile=true,");
}

TEST(ProfileParamsTest, EnumeratorsPrintTheirNamesAndOtherValuesTheirNumbers) {
    const struct {
        uint32_t value;
        std::string tech, ip, auth, apnClass;
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
        const auto params = with<ProfileParams>(auth(AuthType(c.value)), home(IPType(c.value)),
                                                apnClass(ApnClass(c.value)));
        EXPECT_EQ(params.dump(),
                  "AuthType=" + c.auth + ",HomeIPType=" + c.ip + ",ApnClass=" + c.apnClass + ",");
        EXPECT_EQ(AddProfileParams(true, TechType(c.value), true).dump(),
                  c.tech + " persist=true: IsIAProfile=true,");
    }
}

TEST(ProfileParamsTest, EachSetterMarksItsOwnSettingAlone) {
    const struct {
        std::string name;
        bool (ProfileParams::*has)() const;
        std::function<void(ProfileParams&)> set;
    } settings[] = {
        {"ApnName", &ProfileParams::hasApnName, apn("")},
        {"UserName", &ProfileParams::hasUserName, user("")},
        {"Password", &ProfileParams::hasPassword, password("")},
        {"AuthType", &ProfileParams::hasAuthType, auth(AuthType::NONE)},
        {"HomeIPType", &ProfileParams::hasHomeIPType, home(UNKNOWN)},
        {"RoamIPType", &ProfileParams::hasRoamIPType, roam(UNKNOWN)},
        {"ApnTypesMask", &ProfileParams::hasApnTypesMask, apnTypes(0)},
        {"ApnClass", &ProfileParams::hasApnClass, apnClass(ApnClass(0))},
        {"IsClatEnabled", &ProfileParams::hasIsClatEnabled, clat(false)},
        {"MaxPdnsConnPerBlock", &ProfileParams::hasMaxPdnsConnPerBlock, maxPdns(0)},
        {"MaxPdnConnTimer", &ProfileParams::hasMaxPdnConnTimer, maxTimer(0)},
        {"PdnReqWaitInterval", &ProfileParams::hasPdnReqWaitInterval, interval(0)},
        {"IsApnDisabled", &ProfileParams::hasIsApnDisabled, disabled(false)},
        {"IsEmergencySupported", &ProfileParams::hasIsEmergencySupported, emergency(false)},
    };
    for (const auto& changed : settings) {
        SCOPED_TRACE(changed.name);
        ProfileParams params;
        changed.set(params);
        EXPECT_EQ(params.dump().rfind(changed.name + "=", 0), 0u);
        for (const auto& setting : settings)
            EXPECT_EQ((params.*setting.has)(), setting.has == changed.has) << setting.name;
    }
}

TEST(ProfileParamsTest, GettersReturnWhatWasSetAndZeroBefore) {
    const ProfileParams none;
    EXPECT_EQ(none.getApnName() + none.getUserName() + none.getPassword(), "");
    EXPECT_EQ(none.getHomeIPType(), UNKNOWN);
    EXPECT_EQ(none.getApnTypesMask(), 0u);
    EXPECT_FALSE(none.getIsClatEnabled());

    const ProfileParams all = everySetting();
    EXPECT_EQ(all.getApnName(), "Internet");
    EXPECT_EQ(all.getUserName(), "Me");
    EXPECT_EQ(all.getPassword(), "Secret");
    EXPECT_EQ(all.getAuthType(), AuthType::PAP_CHAP);
    EXPECT_EQ(all.getHomeIPType(), V6);
    EXPECT_EQ(all.getRoamIPType(), V4);
    EXPECT_EQ(all.getApnTypesMask(), 0x840u);
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
    EXPECT_FALSE(filter.hasFilterByIsZemProfile() || filter.hasFilterByIsIAProfile());
    EXPECT_FALSE(filter.getIsZemProfile() || filter.getIsIAProfile());

    filter.setFilterByIsZemProfile(true);
    EXPECT_TRUE(filter.hasFilterByIsZemProfile() && filter.getIsZemProfile());
    EXPECT_FALSE(filter.hasFilterByIsIAProfile());

    filter.setFilterByIsIAProfile(false);
    EXPECT_TRUE(filter.hasFilterByIsIAProfile());
    EXPECT_FALSE(filter.getIsIAProfile());
}

TEST(EnvelopesTest, RequestsPrintTypeThenContent) {
    const auto key = quietKey();
    EXPECT_EQ(AddRequest(AddProfileParams(true, TechType::TECH_3GPP, false)).dump(),
              "Add 3GPP persist=true: IsIAProfile=false,");
    EXPECT_EQ(ModifyRequest(kImsChange, key).dump(), "Modify 3GPP:2 token=7 ApnName=ims,");
    EXPECT_EQ(ModifyRequest(kImsChange, nullptr).dump(), "Modify  ApnName=ims,");
    EXPECT_EQ(DeleteRequest(key).dump(), "Delete 3GPP:2 token=7");
    EXPECT_EQ(DeleteRequest(nullptr).dump(), "Delete ");
    EXPECT_EQ(FilterRequest(kImsFilter).dump(), "Filter params: None: ApnName=ims,");
    EXPECT_EQ(MatchRequest(kImsFilter, key).dump(), "Match 3GPP:2 token=7 None: ApnName=ims,");
    EXPECT_EQ(MatchRequest(kImsFilter, nullptr).dump(), "Match  None: ApnName=ims,");
    EXPECT_EQ(GetRequest(key).dump(), "Get 3GPP:2 token=7");
    EXPECT_EQ(GetRequest(nullptr).dump(), "Get ");
    EXPECT_EQ(RefreshRequest(COMPLETE).dump(), "Refresh ");
    EXPECT_EQ(ClientRequest(ReqRespType(8)).dump(), "8 ");
}

TEST(EnvelopesTest, CallbackRequestHoldsAReleaseOrARegistration) {
    const auto key = quietKey();
    CallbackRequest empty, release, registration, ofExpired;
    release.setReleaseToken(0xFFFFFFFFFFFFFFFF);
    registration.setExpirationInfo([] {}, key, 7);
    ofExpired.setExpirationInfo(nullptr, {}, 0);

    EXPECT_EQ(empty.dump(), "Callback ");
    EXPECT_EQ(release.dump(), "Callback Release 18446744073709551615");
    EXPECT_EQ(registration.dump(), "Callback Register 3GPP:2 token=77");  // no gap
    EXPECT_EQ(ofExpired.dump(), "Callback Register null0");
    EXPECT_FALSE(empty.hasReleaseToken() || empty.hasExpirationInfo());
    EXPECT_TRUE(release.hasReleaseToken() && !release.hasExpirationInfo());
    EXPECT_TRUE(ofExpired.hasExpirationInfo() && !ofExpired.hasReleaseToken());
    EXPECT_FALSE(ofExpired.getExpirationCb());
}

// What an accessor returns, which must not be a reference: that would dangle in
// `for (auto& key : response()->getFilterResult())`.
template <class Result, class Envelope>
Result from(const Envelope& envelope, Result (Envelope::*accessor)() const) {
    static_assert(!std::is_reference_v<Result>);
    return (envelope.*accessor)();
}

TEST(EnvelopesTest, AccessorsReturnCopiesOfWhatWasGiven) {
    const auto key = quietKey();
    const std::list<std::shared_ptr<IProfileKey>> keys = {key, nullptr};
    const AddProfileParams add(kIms, true, TechType::TECH_3GPP2, true);
    const MatchRequest match(kImsFilter, key);
    const ModifyRequest modify(kImsChange, key);
    EXPECT_EQ(from(AddRequest(add), &AddRequest::getAddProfileParams).dump(), add.dump());
    EXPECT_EQ(from(modify, &ModifyRequest::getModifyProfileParams).dump(), kImsChange.dump());
    EXPECT_EQ(from(modify, &ModifyRequest::getModifyProfileKey), key);
    EXPECT_EQ(from(DeleteRequest(key), &DeleteRequest::getDeleteProfileKey), key);
    EXPECT_EQ(from(FilterRequest(kImsFilter), &FilterRequest::getFilterParams).dump(),
              kImsFilter.dump());
    EXPECT_EQ(from(match, &MatchRequest::getMatchParams).dump(), kImsFilter.dump());
    EXPECT_EQ(from(match, &MatchRequest::getMatchKey), key);
    EXPECT_EQ(from(GetRequest(key), &GetRequest::getProfileKey), key);
    EXPECT_EQ(from(AddResponse(SUCCESS, key), &AddResponse::getAddProfileKey), key);
    EXPECT_EQ(from(FilterResponse(SUCCESS, keys), &FilterResponse::getFilterResult), keys);
    EXPECT_EQ(from(GetResponse(SUCCESS, kIms), &GetResponse::getParams)->dump(), kIms.dump());
}

TEST(EnvelopesTest, ResponsesPrintTypeStatusThenContent) {
    struct UnheardOf : ClientResponse {
        UnheardOf() : ClientResponse(Status(7), ReqRespType(8)) {}
    };
    const auto key = quietKey();
    EXPECT_EQ(AddResponse(SUCCESS, key).dump(), "Add Success 3GPP:2 token=7");
    EXPECT_EQ(AddResponse(FAILURE, nullptr).dump(), "Add Failure ");
    EXPECT_EQ(ModifyResponse(SUCCESS).dump(), "Modify Success");
    EXPECT_EQ(DeleteResponse(FAILURE).dump(), "Delete Failure");
    EXPECT_EQ(FilterResponse(SUCCESS, {}).dump(), "Filter Success ");
    EXPECT_EQ(FilterResponse(SUCCESS, {key, nullptr, key}).dump(),
              "Filter Success 3GPP:2 token=7,null,3GPP:2 token=7,");
    EXPECT_EQ(MatchResponse(SUCCESS, true).dump(), "Match Success true");
    EXPECT_EQ(MatchResponse(FAILURE, false).dump(), "Match Failure false");
    EXPECT_EQ(GetResponse(SUCCESS, kIms).dump(), "Get Success ApnName=ims,");
    EXPECT_EQ(GetResponse(FAILURE, std::nullopt).dump(), "Get Failure ");
    EXPECT_EQ(CallbackResponse(SUCCESS).dump(), "Callback Success");
    EXPECT_EQ(RefreshResponse(SUCCESS).dump(), "Refresh Success");
    EXPECT_EQ(UnheardOf().dump(), "8 7");
}

TEST(EnvelopesTest, TypeGoesToAStreamByNameOrNumber) {
    std::ostringstream out;
    out << CALLBACK << ' ' << REFRESH << ' ' << ReqRespType(0xFFFFFFFF);
    EXPECT_EQ(out.str(), "Callback Refresh 4294967295");
}

TEST(EnvelopesTest, ModemChangePrintsProfileThenEvent) {
    EXPECT_EQ((ProfileChangedInd{TechType::TECH_3GPP2, 3, ProfileChangedEvent::SubscriptionChange})
                  .dump(),
              "3GPP2:3 SubscriptionChange");
}

}  // namespace
}  // namespace zem
