// The policies, from Util through manager and engine to the modem: the questions that they ask, in
// order, and what they log on the way.

#include <zem/Util.h>

#include <cstdlib>
#include <regex>

#include "ProfileBuilders.h"
#include "TestPhone.h"
#include "verbs/CarrierList.h"

namespace zem {
namespace {

using softmodem::Profile;
using softmodem::Value;
using Profiles = std::vector<Profile>;

constexpr auto k3gpp = TechType::TECH_3GPP;

constexpr auto asking = [](const auto&... set) { return with<ProfileParams>(set...); };

Profile gsm(unsigned index, const char* apn, softmodem::Fields fields = {}) {
    fields["apn_name"] = apn;
    return {Tech::k3gpp, index, std::move(fields)};
}
Profile cdma(unsigned index, const char* apn, softmodem::Fields fields = {}) {
    fields["apn_string_3gpp2"] = apn;
    return {Tech::k3gpp2, index, std::move(fields)};
}
template <class... Each>
Profiles holds(const Each&... profiles) {
    return {profiles...};
}

class UtilTest : public ManagedPhoneTest {
  protected:
    // A phone whose modem holds these profiles, and nothing asked of it yet.
    void boot(const Profiles& held, bool allowed = false) {
        modem.reset();
        modem.setHurry(true);
        for (const auto& profile : held) ASSERT_TRUE(modem.createProfileAt(profile));
        init();
        util.setProfileUpdateAllowed(allowed);
        modem.clearRequests();
        recorder->clear();
    }

    // The policies' own lines, and the manager's questions as "filter > None: tech=3GPP,".
    std::string journal() {
        static const std::regex question("Manager::(\\w+) > (?:\\w+ )?(?:params: )?(.*)");
        static const std::regex policy(
            "(zem |found |Modifying |setupDataCall |emergency |It is |Profile id ).*");
        std::string lines;
        for (const auto& line : recorder->lines()) {
            std::smatch parts;
            const auto text = std::regex_replace(line.text, std::regex(" token=\\d+"), "");
            if (std::regex_match(text, parts, question)) {
                lines += parts[1].str() + " > " + parts[2].str() + "\n";
            } else if (line.level >= LOG_ERROR && std::regex_match(text, policy)) {
                lines += text + "\n";
            }
        }
        return lines;
    }

    struct Case {
        const char* name;
        bool allowed;
        Profiles held;
        ProfileParams asked;
        std::string lines;  // between the first and the last
        std::string answer;
    };

    template <class Policy>
    void check(const std::string& operation, const std::vector<Case>& cases, const Policy& policy) {
        for (const auto& each : cases) {
            SCOPED_TRACE(each.name);
            boot(each.held, each.allowed);
            if (each.answer.empty()) modem.addFault({FaultKind::kRefuse, 0x0027});
            const auto key = policy(each.asked);
            EXPECT_EQ(journal(), "zem " + operation + " > " + each.asked.dump() + "\n" +
                                     each.lines + "zem " + operation + " < " + each.answer + "\n");
            EXPECT_EQ(key != nullptr, !each.answer.empty());
            modem.clearFaults();
        }
    }

    Util util;
};

const Profile kNet4 = gsm(1, "net", {{"pdp_type", 0u}}), kNet6 = gsm(1, "net", {{"pdp_type", 2u}}),
              kNet46 = gsm(1, "net", {{"pdp_type", 3u}});

Profile ofZem(Profile profile, const char* name) {
    profile.fields["profile_name"] = name;
    return profile;
}

TEST_F(UtilTest, SetupDataCall) {
    const std::string operation = "findOrCreateProfileForSetupDataCall";
    const std::string exact = "filter > None: tech=3GPP,ApnName=net,HomeIPType=V4,\n",
                      loose =
                          "filter > HomeIPSubset|HomeIPSuperset|: tech=3GPP,ApnName=net,"
                          "HomeIPType=V4,\n",
                      byName = "filter > None: tech=3GPP,ApnName=net,\n",
                      found = "found existing setupDataCall profile\n",
                      added = "setupDataCall profile added\n",
                      add = "addProfile > 3GPP persist=false: ApnName=net,",
                      modified =
                          "Modifying profile with input parameters\n"
                          "modifyProfile > 3GPP:1 ApnName=net,HomeIPType=V4,\n";
    const auto net = asking(apn("net")), net4 = asking(apn("net"), home(V4));
    const auto everything = asking(apn("net"), home(V4), user("me"), apnTypes(1), roam(V6));
    check(operation,
          {
              {"exact: by name and home type alone", false, holds(kNet4), everything, exact + found,
               "3GPP:1"},
              {"second chance: a home type that contains the asked one", false, holds(kNet46), net4,
               exact + loose + found, "3GPP:1"},
              {"created when no home type fits", false, holds(kNet6), net4,
               exact + loose + add + "HomeIPType=V4,IsIAProfile=false,\n" + added, "3GPP:2"},
              {"no APN name: any profile", false, holds(kNet6), asking(),
               "filter > None: tech=3GPP,\n" + found, "3GPP:1"},
              {"updates allowed: found by name alone and rewritten", true, holds(kNet6), net4,
               byName + found + modified, "3GPP:1"},
              {"updates allowed: said to be added without a second search, and refused",
               true,
               {},
               net,
               byName + add + "IsIAProfile=false,\n" + added,
               ""},
          },
          [this](const auto& params) {
              return util.findOrCreateProfileForSetupDataCall(k3gpp, params);
          });
    check(operation,
          {{"3GPP2: the user name must agree", false,
            holds(cdma(0, "net"), cdma(1, "net", {{"user_id_3gpp2", "me"}})),
            asking(apn("net"), user("me")),
            "filter > None: tech=3GPP2,ApnName=net,UserName=me,\n" + found, "3GPP2:1"}},
          [this](const auto& params) {
              return util.findOrCreateProfileForSetupDataCall(TechType::TECH_3GPP2, params);
          });
}

TEST_F(UtilTest, EmergencyDataCall) {
    const std::string any = "filter > None: tech=3GPP,IsEmergencySupported=true,\n",
                      byName = "filter > None: tech=3GPP,ApnName=sos,IsEmergencySupported=true,\n",
                      add =
                          "addProfile > 3GPP persist=true: ApnName=sos,"
                          "ApnTypesMask=EMERGENCY|,IsEmergencySupported=true,"
                          "IsIAProfile=false,\nemergency profile created\n";
    const auto net = gsm(1, "net", {{"supports_emergency_calls", 1u}}),
               sos = gsm(2, "sos", {{"supports_emergency_calls", 1u}});
    const auto asked = asking(apn("sos"), apnTypes(0x41));
    check("findOrCreateProfileForEmergencyDataCall",
          {
              {"by name", false, holds(net, sos), asked,
               byName + "found an emergency profile by name\n", "3GPP:2"},
              {"by capability", false, holds(net, gsm(2, "sos")), asked,
               byName + any + "found a profile that supports emergency calls\n", "3GPP:1"},
              {"created persistent, its types replaced", false, holds(cdma(1, "sos")), asked,
               byName + any + add, "3GPP:1"},
          },
          [this](const auto& params) {
              return util.findOrCreateProfileForEmergencyDataCall(params);
          });
}

TEST_F(UtilTest, LteAttach) {
    const std::string
        exact = "filter > None: tech=3GPP,ApnName=net,HomeIPType=V4,\n",
        loose =
            "filter > HomeIPSubset|HomeIPSuperset|: tech=3GPP,ApnName=net,"
            "HomeIPType=V4,IsZemProfile=false,\n",
        byName = "filter > None: tech=3GPP,ApnName=net,\n",
        own = "filter > None: tech=3GPP,ApnName=net,IsZemProfile=true,IsIAProfile=true,\n",
        anyOwn = "filter > None: tech=3GPP,IsZemProfile=true,IsIAProfile=true,\n",
        get = "getProfile > 3GPP:1\n",
        looselyFound = "zem Found a loose match profile for attach\n" + get,
        fits = "It is ZEM_IA profile or modem profile.\n",
        ownFound = "zem Found a ZEM IA profile that matches APN name for attach\n",
        change = "modifyProfile > 3GPP:1 ", change4 = change + "HomeIPType=V4,\n",
        modified = "zem Modifying profile identified for IA\n",
        created =
            "addProfile > 3GPP persist=true: ApnName=net,HomeIPType=V4,IsIAProfile=true,\n"
            "zem ZEM IA profile created for attach\n";
    const auto net4 = asking(apn("net"), home(V4));
    const auto everything =
        asking(apn("net"), home(V4), user("me"), password("pw"), auth(AuthType::PAP),
               apnTypes(0x100), maxPdns(3), maxTimer(4), interval(5), clat(true));
    const auto forAttach = ofZem(kNet6, "zem_profile_ia");
    check(
        "findOrCreateProfileForLteAttach",
        {
            {"exact: gets credentials, types and throttling, not the IP types", false, holds(kNet4),
             everything,
             exact + get + "zem Found an exact match modem or ZEM IA profile for attach\n" +
                 change + "UserName=me,Password=pw,AuthType=PAP,ApnTypesMask=IA|," +
                 "MaxPdnsConnPerBlock=3,MaxPdnConnTimer=4,PdnReqWaitInterval=5,\n" + modified,
             "3GPP:1"},
            {"exact but of the library's own for another purpose: a new one", false,
             holds(ofZem(kNet4, "zem_profile")), net4, exact + get + loose + own + anyOwn + created,
             "3GPP:2"},
            {"loose, the IP types stay", false, holds(kNet46), net4,
             exact + loose + looselyFound + fits + change + "\n" + modified, "3GPP:1"},
            {"loose in both types", false, holds(kNet46), asking(home(V4), roam(V6)),
             "zem NULL apn scenario\nfilter > None: tech=3GPP,HomeIPType=V4,RoamIPType=V6,\n"
             "filter > HomeIPSubset|RoamIPSubset|HomeIPSuperset|RoamIPSuperset|: tech=3GPP,"
             "HomeIPType=V4,RoamIPType=V6,IsZemProfile=false,\n" +
                 looselyFound + fits + change + "\n" + modified,
             "3GPP:1"},
            {"updates allowed: loose by name, the IP types rewritten", true, holds(kNet6), net4,
             exact + byName + looselyFound + fits + change4 + modified, "3GPP:1"},
            {"updates allowed: loose but of the library's own for another purpose", true,
             holds(ofZem(kNet6, "zem_profile")), net4,
             exact + byName + looselyFound + "It is not a ZEM_IA profile. so skipping it.\n" + own +
                 anyOwn + created,
             "3GPP:2"},
            {"the library's own for the attach, by name, IP types rewritten", false,
             holds(forAttach), net4, exact + loose + own + ownFound + change4 + modified, "3GPP:1"},
            {"any of the library's own for the attach takes the name", false,
             holds(ofZem(gsm(1, "old"), "zem_profile_ia")), net4,
             exact + loose + own + anyOwn + "zem Found any ZEM IA profile for attach\n" + change +
                 "ApnName=net,HomeIPType=V4,\n" + modified,
             "3GPP:1"},
            {"no name: searched without, and the name stays", false, holds(forAttach),
             asking(home(V4)),
             "zem NULL apn scenario\nfilter > None: tech=3GPP,HomeIPType=V4,\n"
             "filter > HomeIPSubset|HomeIPSuperset|: tech=3GPP,HomeIPType=V4,"
             "IsZemProfile=false,\n" +
                 anyOwn + ownFound + change4 + modified,
             "3GPP:1"},
        },
        [this](const auto& params) { return util.findOrCreateProfileForLteAttach(params); });
}

TEST_F(UtilTest, MatchLteAttachProfileId) {
    const auto profiles =
        holds(kNet46, ofZem(gsm(2, "net"), "zem_profile"),
              ofZem(gsm(3, "net", {{"pdp_type", 3u}}), "zem_profile_ia"), cdma(4, "net"));
    const std::string failed = "zem matchLteAttachProfileId < did not match input params\n";
    const struct {
        const char* name;
        bool allowed;
        int id;
        ProfileParams asked;
        std::string lines;
    } cases[] = {
        {"a modem's profile may be wider", false, 1, asking(apn("net"), home(V4), apnTypes(1)),
         "getProfile > 3GPP:1\nmatch > 3GPP:1 HomeIPSubset|RoamIPSubset|HomeIPSuperset|"
         "RoamIPSuperset|: ApnName=net,HomeIPType=V4,\nzem matchLteAttachList < 1\n"},
        {"unless updates are allowed", true, 1, asking(home(V4), user("me")),
         "getProfile > 3GPP:1\nmatch > 3GPP:1 None: UserName=me,HomeIPType=V4,\n" + failed},
        {"the library's own for the attach may not", false, 3, asking(roam(V4)),
         "getProfile > 3GPP:3\nmatch > 3GPP:3 None: RoamIPType=V4,\n" + failed},
        {"the library's own for another purpose", false, 2, asking(apn("net")),
         "getProfile > 3GPP:2\nProfile id 2 is a ZEM profile which is not an IA profile, cannot be "
         "used for attach\n"},
        {"of the other technology", false, 4, asking(apn("net")), failed},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        boot(profiles, each.allowed);
        const auto id = std::to_string(each.id);
        EXPECT_EQ(util.matchLteAttachProfileId(each.id, each.asked), each.id == 1 && !each.allowed);
        EXPECT_EQ(journal(), "zem matchLteAttachProfileId > Profile id = " + id +
                                 " Input Params = " + each.asked.dump() +
                                 "\nfilter > None: tech=3GPP,id=" + id + ",\n" + each.lines);
    }
}

// Each goes to the profile of its IP type, else to the dual-stack one, else to all that there are.
TEST_F(UtilTest, MasksFindAHomeForEveryBit) {
    const auto v4 = gsm(1, "net", {{"pdp_type", 0u}}), v6 = gsm(2, "net", {{"pdp_type", 2u}}),
               dual = gsm(3, "net", {{"pdp_type", 3u}});
    const struct {
        Profiles held;
        unsigned ofDual;
        std::vector<uint64_t> masks;
    } cases[] = {
        {holds(v4), 0x80, {0x89}},           {holds(v4), 0, {0x9}},
        {holds(v6), 0x80, {0x89}},           {holds(v6), 0, {0x9}},
        {holds(v4, v6), 0x80, {0x81, 0x88}}, {holds(v4, v6), 0, {0x1, 0x8}},
        {holds(dual), 0x80, {0x89}},         {holds(v4, dual), 0x80, {0x1, 0x88}},
        {holds(v6, dual), 0, {0x8, 0x1}},    {holds(v4, v6, dual), 0x80, {0x1, 0x8, 0x80}},
    };
    for (const auto& each : cases) {
        boot(each.held);
        util.updateAPNTypeBitmaskOnModemProfile({asking(apn("NET"), home(V4), apnTypes(0x1)),
                                                 asking(apn("net"), home(V6), apnTypes(0x8)),
                                                 asking(apn("Net"), apnTypes(each.ofDual))});
        for (size_t i = 0; i < each.held.size(); ++i) {
            const auto profile = modem.profile(Tech::k3gpp, each.held[i].index);
            EXPECT_EQ(profile->fields.at("apn_type_mask"), Value(each.masks[i])) << i;
        }
    }
}

TEST_F(UtilTest, UpdatesSayWhatTheyDo) {
    boot(holds(gsm(1, "net", {{"apn_class", 3u}, {"pdp_type", 0u}}), cdma(1, "net")));
    util.setProfileUpdateAllowed(false);
    util.updateModemProfileByApnClass({asking(apn("net"), apnClass(ApnClass::INET)), asking()},
                                      {asking(apnClass(ApnClass::APP))});
    const auto entries = {asking(apn("Net"), home(V4), apnTypes(0x1)),
                          asking(apn("nEt"), apnTypes(0x2)), asking(apnTypes(0x40), home(V6))};
    util.updateAPNTypeBitmaskOnModemProfile(entries);
    util.setProfileUpdateAllowed(true);
    util.updateAPNTypeBitmaskOnModemProfile(entries);
    const struct {
        LogLevel level;
        const char* line;
        size_t times;
    } cases[] = {
        {LOG_API, "zem::Util: profileUpdateAllowed false", 1},
        {LOG_API, "zem::Util: profileUpdateAllowed true", 1},
        {LOG_API, "zem updateModemProfileByApnClass > ", 1},
        {LOG_API, "  3gpp2:", 1},
        {LOG_API, "    ApnName=net,ApnClass=INET,", 1},
        {LOG_API, "    ApnClass=APP,", 1},
        {LOG_DEBUG, "zem update 3gpp modem profile by APN class for ApnName=net,ApnClass=INET,", 1},
        {LOG_DEBUG, "zem update 3gpp2 modem profile by APN class for ApnClass=APP,", 1},
        {LOG_DEBUG, "zem either tech type or apn class is missing", 1},
        {LOG_DEBUG, "Found a match for APN class and tech type, modify the profile", 1},
        {LOG_DEBUG, "Did not find a match for APN class and tech type, create a persistent profile",
         1},
        {LOG_API, "zem updateModemProfileByApnClass < OK", 1},
        {LOG_API, "zem updateAPNTypeBitmaskOnModemProfile > ", 2},
        {LOG_API,
         "zem update APN type bitmask on modem profile for "
         "ApnName=nEt,ApnTypesMask=MMS|,",
         2},
        {LOG_DEBUG, "zem processing APN name net, V4 mask:0x1, v6 mask0x0:, v4v6 mask:0x2", 2},
        {LOG_DEBUG, "zem updating profile id:1, tech type:0, with mask0x1:", 1},
        {LOG_DEBUG, "zem no match found for apn name:net, ip type:2, tech type:1", 1},
        {LOG_DEBUG, "zem updating profile id:1, tech type:0, with combined mask0x3:", 1},
        {LOG_DEBUG, "zem updating profile id:1, tech type:1, with combined mask0x3:", 1},
        {LOG_API, "zem updateAPNTypeBitmaskOnModemProfile < OK", 2},
    };
    for (const auto& each : cases)
        EXPECT_EQ(recorder->count(each.level, each.line), each.times) << each.line;
}

// Every operator of the carrier list that ZEM_CARRIER_LIST names, or of the example, on a fresh
// modem.
TEST_F(UtilTest, EveryOperatorsListIsAppliedOnceAndForAll) {
    const char* const own = getenv("ZEM_CARRIER_LIST");
    const auto file =
        zemctl::CarrierFile::read(own ? own : ZEM_SOURCE_DIR "/examples/carriers.xml");
    for (const auto& plmn : file.operators()) {
        SCOPED_TRACE(plmn.digits());
        std::list<ProfileParams> list;
        for (const auto& entry : file.select(plmn).usable) list.push_back(entry.params);
        boot({});
        const auto apply = [&] {
            util.updateModemProfileByApnClass(list, list);
            util.updateAPNTypeBitmaskOnModemProfile(list);
            return stored();
        };
        const auto once = apply();
        EXPECT_EQ(apply(), once);
        EXPECT_EQ(once.empty(), list.empty());
        for (const auto& request : modem.requests()) EXPECT_EQ(request.result, 0u) << request.name;
    }
}

}  // namespace
}  // namespace zem
