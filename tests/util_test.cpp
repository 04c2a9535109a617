// The policies, from Util through manager and engine to the modem: which profile is answered, what
// the modem holds afterwards, and what was asked on the way.

#include <zem/Manager.h>
#include <zem/Util.h>

#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <map>
#include <regex>
#include <set>

#include "ProfileBuilders.h"
#include "ProfileConversions.h"
#include "TestPhone.h"
#include "verbs/CarrierList.h"

namespace zem {
namespace {

using Journal = std::vector<std::string>;
using softmodem::Profile;
using softmodem::Value;

// The modem's numbers for an IP type: its own enumeration, and the common one for the roaming
// types.
const Value kPdp4 = 0u, kPdp6 = 2u, kPdp46 = 3u, kCommon4 = 0u, kCommon46 = 2u;

Profile gsm(unsigned index, const char* apn, softmodem::Fields fields = {}) {
    if (apn) fields["apn_name"] = apn;
    return {Tech::k3gpp, index, std::move(fields)};
}

Profile cdma(unsigned index, const char* apn, softmodem::Fields fields = {}) {
    fields["apn_string_3gpp2"] = apn;
    return {Tech::k3gpp2, index, std::move(fields)};
}

class UtilTest : public PhoneTest {
  protected:
    ~UtilTest() override { modem.clearFaults(); }

    // A phone whose modem holds these profiles, and nothing asked of it yet.
    void boot(const std::vector<Profile>& held, bool allowed = false) {
        modem.reset();
        modem.setHurry(true);
        for (const auto& profile : held) ASSERT_TRUE(modem.createProfileAt(profile));
        manager.init(0, true);
        recorder.reset();  // its end would take the next one's writer along
        recorder = std::make_unique<RecordedLog>();
        settle(*recorder, [this] { manager.getProfile(nullptr); });
        util.setProfileUpdateAllowed(allowed);
        modem.clearRequests();
        recorder->clear();
    }

    // The policies' own lines, and the manager's questions as "filter > None: tech=3GPP,".
    Journal journal() {
        static const std::regex question("Manager::(\\w+) > (?:\\w+ )?(?:params: )?(.*)");
        static const std::regex policy(
            "(zem |found |Modifying |setupDataCall |emergency |It is ).*");
        Journal lines;
        for (const auto& line : recorder->lines()) {
            std::smatch parts;
            std::string text = std::regex_replace(line.text, std::regex(" token=\\d+"), "");
            if (std::regex_match(text, parts, question)) {
                lines.push_back(parts[1].str() + " > " + parts[2].str());
            } else if (line.level >= LOG_ERROR && std::regex_match(text, policy)) {
                lines.push_back(text);
            }
        }
        return lines;
    }

    // "3GPP:1 apn_name=net,pdp_type=ipv4," for each profile that the modem holds.
    Journal held() {
        Journal profiles;
        for (const auto& profile : modem.profiles()) {
            std::string text = profile.tech == Tech::k3gpp ? "3GPP:" : "3GPP2:";
            text += std::to_string(profile.index) + " ";
            for (const auto& field : describe(profile)) text += field + ",";
            profiles.push_back(text);
        }
        return profiles;
    }

    static std::string nameOf(const std::shared_ptr<IProfileKey>& key) {
        return key ? key->dump().substr(0, key->dump().find(' ')) : "none";
    }

    struct Case {
        const char* name;
        bool allowed;
        std::vector<Profile> before;
        ProfileParams asked;
        std::string answer;
        Journal lines;  // between the first and the last
        Journal after;  // empty: as before
        std::vector<Fault> faults = {};
    };

    using Policy = std::function<std::shared_ptr<IProfileKey>(const ProfileParams&)>;

    void check(const std::string& operation, const std::vector<Case>& cases, const Policy& policy) {
        for (const auto& each : cases) {
            SCOPED_TRACE(each.name);
            boot(each.before, each.allowed);
            const Journal before = held();
            for (const auto& fault : each.faults) modem.addFault(fault);
            const auto key = policy(each.asked);
            EXPECT_EQ(nameOf(key), each.answer);
            Journal expected = {"zem " + operation + " > " + each.asked.dump()};
            expected.insert(expected.end(), each.lines.begin(), each.lines.end());
            expected.push_back("zem " + operation + " < " + (key ? nameOf(key) : ""));
            EXPECT_EQ(journal(), expected);
            EXPECT_EQ(held(), each.after.empty() ? before : each.after);
            modem.clearFaults();
        }
    }

    Manager& manager = Manager::getInstance();
    Util util;
    std::unique_ptr<RecordedLog> recorder;
};

template <class... Settings>
ProfileParams asking(const Settings&... settings) {
    return with<ProfileParams>(settings...);
}

const softmodem::Fields kOfZem = {{"profile_name", "zem_profile"}};
const softmodem::Fields kOfZemForAttach = {{"profile_name", "zem_profile_ia"}};

TEST_F(UtilTest, SetupDataCall) {
    const std::string found = "found existing setupDataCall profile";
    const std::string added = "setupDataCall profile added";
    check(
        "findOrCreateProfileForSetupDataCall",
        {
            {"found by name in capitals and home type",
             false,
             {gsm(1, "net", {{"pdp_type", kPdp4}})},
             asking(apn("NET"), home(V4), user("me")),
             "3GPP:1",
             {"filter > None: tech=3GPP,ApnName=NET,HomeIPType=V4,", found},
             {}},
            {"second chance: a home type that contains the asked one",
             false,
             {gsm(1, "net", {{"pdp_type", kPdp46}})},
             asking(apn("net"), home(V4)),
             "3GPP:1",
             {"filter > None: tech=3GPP,ApnName=net,HomeIPType=V4,",
              "filter > HomeIPSubset|HomeIPSuperset|: tech=3GPP,ApnName=net,HomeIPType=V4,", found},
             {}},
            {"no home type: the same question twice",
             false,
             {},
             asking(apn("net")),
             "3GPP:1",
             {"filter > None: tech=3GPP,ApnName=net,",
              "filter > HomeIPSubset|HomeIPSuperset|: tech=3GPP,ApnName=net,",
              "addProfile > 3GPP persist=false: ApnName=net,IsIAProfile=false,", added},
             {"3GPP:1 profile_name=zem_profile,apn_name=net,persistent=0,"}},
            {"created when no home type fits",
             false,
             {gsm(1, "net", {{"pdp_type", kPdp6}})},
             asking(apn("net"), home(V4)),
             "3GPP:2",
             {"filter > None: tech=3GPP,ApnName=net,HomeIPType=V4,",
              "filter > HomeIPSubset|HomeIPSuperset|: tech=3GPP,ApnName=net,HomeIPType=V4,",
              "addProfile > 3GPP persist=false: ApnName=net,HomeIPType=V4,IsIAProfile=false,",
              added},
             {"3GPP:1 pdp_type=ipv6,apn_name=net,",
              "3GPP:2 profile_name=zem_profile,pdp_type=ipv4,apn_name=net,persistent=0,"}},
            {"no APN name: any profile",
             false,
             {gsm(1, nullptr)},
             ProfileParams(),
             "3GPP:1",
             {"filter > None: tech=3GPP,", found},
             {}},
            {"updates allowed: found by name alone and rewritten",
             true,
             {gsm(1, "net", {{"pdp_type", kPdp6}})},
             asking(apn("net"), home(V4), user("me")),
             "3GPP:1",
             {"filter > None: tech=3GPP,ApnName=net,", found,
              "Modifying profile with input parameters",
              "modifyProfile > 3GPP:1 ApnName=net,UserName=me,HomeIPType=V4,"},
             {"3GPP:1 pdp_type=ipv4,apn_name=net,username=me,"}},
            {"updates allowed: created without a second search",
             true,
             {},
             asking(apn("net")),
             "3GPP:1",
             {"filter > None: tech=3GPP,ApnName=net,",
              "addProfile > 3GPP persist=false: ApnName=net,IsIAProfile=false,", added},
             {"3GPP:1 profile_name=zem_profile,apn_name=net,persistent=0,"}},
            {"updates allowed, refused by the modem: the key all the same",
             true,
             {gsm(1, "net")},
             asking(apn("net"), user("me")),
             "3GPP:1",
             {"filter > None: tech=3GPP,ApnName=net,", found,
              "Modifying profile with input parameters",
              "modifyProfile > 3GPP:1 ApnName=net,UserName=me,"},
             {},
             {{FaultKind::kRefuse, 0x0028}}},
            {"not created by the modem: said to be added, no key",
             true,
             {},
             asking(apn("net")),
             "none",
             {"filter > None: tech=3GPP,ApnName=net,",
              "addProfile > 3GPP persist=false: ApnName=net,IsIAProfile=false,", added},
             {},
             {{FaultKind::kRefuse, 0x0027}}},
        },
        [this](const ProfileParams& params) {
            return util.findOrCreateProfileForSetupDataCall(TechType::TECH_3GPP, params);
        });
    check("findOrCreateProfileForSetupDataCall",
          {{"3GPP2: the user name must agree",
            false,
            {cdma(0, "net", {{"user_id_3gpp2", "you"}}), cdma(1, "net", {{"user_id_3gpp2", "me"}})},
            asking(apn("net"), user("me")),
            "3GPP2:1",
            {"filter > None: tech=3GPP2,ApnName=net,UserName=me,", found},
            {}}},
          [this](const ProfileParams& params) {
              return util.findOrCreateProfileForSetupDataCall(TechType::TECH_3GPP2, params);
          });
}

TEST_F(UtilTest, ProfilesThatTheModemDoesNotListAreMissed) {
    boot({gsm(1, "net")});
    modem.addFault({FaultKind::kRefuse, 0x002A});
    manager.refresh(COMPLETE);
    EXPECT_EQ(
        nameOf(util.findOrCreateProfileForSetupDataCall(TechType::TECH_3GPP, asking(apn("net")))),
        "3GPP:2");
}

TEST_F(UtilTest, EmergencyDataCall) {
    const std::string any = "filter > None: tech=3GPP,IsEmergencySupported=true,";
    const std::string named = "filter > None: tech=3GPP,ApnName=sos,IsEmergencySupported=true,";
    const softmodem::Fields emergencyYes = {{"supports_emergency_calls", 1u}};
    check("findOrCreateProfileForEmergencyDataCall",
          {
              {"by name",
               false,
               {gsm(1, "net", emergencyYes), gsm(2, "sos", emergencyYes)},
               asking(apn("SOS")),
               "3GPP:2",
               {"filter > None: tech=3GPP,ApnName=SOS,IsEmergencySupported=true,",
                "found an emergency profile by name"},
               {}},
              {"by capability",
               false,
               {gsm(1, "sos"), gsm(2, "net", emergencyYes)},
               asking(apn("sos")),
               "3GPP:2",
               {named, any, "found a profile that supports emergency calls"},
               {}},
              {"no name: by capability alone",
               false,
               {gsm(2, "net", emergencyYes)},
               ProfileParams(),
               "3GPP:2",
               {any, "found a profile that supports emergency calls"},
               {}},
              {"created persistent, its types replaced",
               false,
               {cdma(1, "sos")},
               asking(apn("sos"), apnTypes(0x41)),
               "3GPP:1",
               {named, any,
                "addProfile > 3GPP persist=true: ApnName=sos,ApnTypesMask=EMERGENCY|,"
                "IsEmergencySupported=true,IsIAProfile=false,",
                "emergency profile created"},
               {"3GPP:1 profile_name=zem_profile,apn_name=sos,supports_emergency_calls=1,"
                "persistent=1,apn_type_mask=0x200,",
                "3GPP2:1 apn_string_3gpp2=sos,"}},
              {"refused by the modem",
               false,
               {},
               ProfileParams(),
               "none",
               {any,
                "addProfile > 3GPP persist=true: ApnTypesMask=EMERGENCY|,IsEmergencySupported=true,"
                "IsIAProfile=false,",
                "emergency profile created"},
               {},
               {{FaultKind::kRefuse, 0x0027}}},
          },
          [this](const ProfileParams& params) {
              return util.findOrCreateProfileForEmergencyDataCall(params);
          });
}

TEST_F(UtilTest, LteAttach) {
    const std::string matched = "zem Found an exact match modem or ZEM IA profile for attach";
    const std::string looseFound = "zem Found a loose match profile for attach";
    const std::string fits = "It is ZEM_IA profile or modem profile.";
    const std::string modified = "zem Modifying profile identified for IA";
    const std::string created = "zem ZEM IA profile created for attach";
    const std::string byName = "zem Found a ZEM IA profile that matches APN name for attach";
    const std::string get = "getProfile > 3GPP:1";
    const std::string exact = "filter > None: tech=3GPP,ApnName=ims,HomeIPType=V4,";
    const std::string loose =
        "filter > HomeIPSubset|HomeIPSuperset|: tech=3GPP,ApnName=ims,"
        "HomeIPType=V4,IsZemProfile=false,";
    const std::string own =
        "filter > None: tech=3GPP,ApnName=ims,IsZemProfile=true,IsIAProfile=true,";
    const std::string looseRoam =
        "filter > RoamIPSubset|RoamIPSuperset|: tech=3GPP,ApnName=ims,"
        "RoamIPType=V6,IsZemProfile=false,";
    const std::string everythingElse =
        "modifyProfile > 3GPP:1 UserName=me,AuthType=PAP,ApnTypesMask=IA|,"
        "MaxPdnsConnPerBlock=3,MaxPdnConnTimer=4,PdnReqWaitInterval=5,";
    const std::string anyOwn = "filter > None: tech=3GPP,IsZemProfile=true,IsIAProfile=true,";
    const auto ims4 = asking(apn("ims"), home(V4));
    check(
        "findOrCreateProfileForLteAttach",
        {
            {"exact: gets credentials, types and throttling, not the IP types",
             false,
             {gsm(1, "ims", {{"pdp_type", kPdp4}})},
             asking(apn("ims"), home(V4), user("me"), auth(AuthType::PAP), apnTypes(0x100),
                    maxPdns(3), maxTimer(4), interval(5), clat(true)),
             "3GPP:1",
             {exact, get, matched, everythingElse, modified},
             {"3GPP:1 pdp_type=ipv4,apn_name=ims,username=me,authentication_preference=pap,"
              "max_pdn_conn_per_block=3,max_pdn_conn_timer=4,pdn_req_wait_interval=5,"
              "apn_type_mask=0x100,"}},
            {"exact, of the library's own for the attach",
             false,
             {gsm(1, "ims", {{"pdp_type", kPdp4}, {"profile_name", "zem_profile_ia"}})},
             ims4,
             "3GPP:1",
             {exact, get, matched, "modifyProfile > 3GPP:1 ", modified},
             {}},
            {"exact but of the library's own for another purpose: a new one",
             false,
             {gsm(1, "ims", {{"pdp_type", kPdp4}, {"profile_name", "zem_profile"}})},
             ims4,
             "3GPP:2",
             {exact, get, loose, own, anyOwn,
              "addProfile > 3GPP persist=true: ApnName=ims,HomeIPType=V4,IsIAProfile=true,",
              created},
             {"3GPP:1 profile_name=zem_profile,pdp_type=ipv4,apn_name=ims,",
              "3GPP:2 profile_name=zem_profile_ia,pdp_type=ipv4,apn_name=ims,persistent=1,"}},
            {"loose, the IP types stay",
             false,
             {gsm(1, "ims", {{"pdp_type", kPdp46}})},
             ims4,
             "3GPP:1",
             {exact, loose, looseFound, get, fits, "modifyProfile > 3GPP:1 ", modified},
             {}},
            {"loose in the roaming type as well",
             false,
             {gsm(1, "ims", {{"pdp_type", kPdp46}})},
             asking(apn("ims"), roam(V6)),
             "3GPP:1",
             {"filter > None: tech=3GPP,ApnName=ims,RoamIPType=V6,", looseRoam, looseFound, get,
              fits, "modifyProfile > 3GPP:1 ", modified},
             {}},
            {"updates allowed: loose by name, the IP types rewritten",
             true,
             {gsm(1, "ims", {{"pdp_type", kPdp6}})},
             ims4,
             "3GPP:1",
             {exact, "filter > None: tech=3GPP,ApnName=ims,", looseFound, get, fits,
              "modifyProfile > 3GPP:1 HomeIPType=V4,", modified},
             {"3GPP:1 pdp_type=ipv4,apn_name=ims,"}},
            {"updates allowed: loose but of the library's own for another purpose",
             true,
             {gsm(1, "ims", {{"pdp_type", kPdp6}, {"profile_name", "zem_profile"}})},
             ims4,
             "3GPP:2",
             {exact, "filter > None: tech=3GPP,ApnName=ims,", looseFound, get,
              "It is not a ZEM_IA profile. so skipping it.", own, anyOwn,
              "addProfile > 3GPP persist=true: ApnName=ims,HomeIPType=V4,IsIAProfile=true,",
              created},
             {"3GPP:1 profile_name=zem_profile,pdp_type=ipv6,apn_name=ims,",
              "3GPP:2 profile_name=zem_profile_ia,pdp_type=ipv4,apn_name=ims,persistent=1,"}},
            {"the library's own for the attach, by name, IP types rewritten",
             false,
             {gsm(1, "ims", {{"pdp_type", kPdp6}, {"profile_name", "zem_profile_ia"}})},
             ims4,
             "3GPP:1",
             {exact, loose, own, byName, "modifyProfile > 3GPP:1 HomeIPType=V4,", modified},
             {"3GPP:1 profile_name=zem_profile_ia,pdp_type=ipv4,apn_name=ims,"}},
            {"any of the library's own for the attach takes the name",
             false,
             {gsm(1, "old", kOfZemForAttach)},
             ims4,
             "3GPP:1",
             {exact, loose, own, anyOwn, "zem Found any ZEM IA profile for attach",
              "modifyProfile > 3GPP:1 ApnName=ims,HomeIPType=V4,", modified},
             {"3GPP:1 profile_name=zem_profile_ia,pdp_type=ipv4,apn_name=ims,"}},
            {"no name: searched without, and the name stays",
             false,
             {gsm(1, "old", kOfZemForAttach)},
             asking(home(V6)),
             "3GPP:1",
             {"zem NULL apn scenario", "filter > None: tech=3GPP,HomeIPType=V6,",
              "filter > HomeIPSubset|HomeIPSuperset|: tech=3GPP,HomeIPType=V6,IsZemProfile=false,",
              anyOwn, byName, "modifyProfile > 3GPP:1 HomeIPType=V6,", modified},
             {"3GPP:1 profile_name=zem_profile_ia,pdp_type=ipv6,apn_name=old,"}},
            {"refused by the modem",
             false,
             {},
             ims4,
             "none",
             {exact, loose, own, anyOwn,
              "addProfile > 3GPP persist=true: ApnName=ims,HomeIPType=V4,IsIAProfile=true,",
              created},
             {},
             {{FaultKind::kRefuse, 0x0027}}},
        },
        [this](const ProfileParams& params) {
            return util.findOrCreateProfileForLteAttach(params);
        });
}

TEST_F(UtilTest, MatchLteAttachProfileId) {
    const std::vector<Profile> profiles = {
        gsm(1, "ims", {{"pdp_type", kPdp46}, {"username", "me"}}), gsm(2, "ims", kOfZem),
        gsm(3, "ims", {{"pdp_type", kPdp46}, {"profile_name", "zem_profile_ia"}}), cdma(4, "ims")};
    const std::string failed = "zem matchLteAttachProfileId < did not match input params";
    const struct {
        const char* name;
        bool allowed;
        int id;
        ProfileParams asked;
        bool answer;
        Journal lines;
    } cases[] = {
        {"a modem's profile may be wider",
         false,
         1,
         asking(apn("ims"), home(V4), user("me")),
         true,
         {"filter > None: tech=3GPP,id=1,", "getProfile > 3GPP:1",
          "match > 3GPP:1 HomeIPSubset|RoamIPSubset|HomeIPSuperset|RoamIPSuperset|: ApnName=ims,"
          "UserName=me,HomeIPType=V4,",
          "zem matchLteAttachList < 1"}},
        {"unless updates are allowed",
         true,
         1,
         asking(home(V4)),
         false,
         {"filter > None: tech=3GPP,id=1,", "getProfile > 3GPP:1",
          "match > 3GPP:1 None: HomeIPType=V4,", failed}},
        {"the library's own for the attach may not",
         false,
         3,
         asking(roam(V4)),
         false,
         {"filter > None: tech=3GPP,id=3,", "getProfile > 3GPP:3",
          "match > 3GPP:3 None: RoamIPType=V4,", failed}},
        {"the library's own for another purpose",
         false,
         2,
         asking(apn("ims")),
         false,
         {"filter > None: tech=3GPP,id=2,", "getProfile > 3GPP:2"}},
        {"of the other technology",
         false,
         4,
         asking(apn("ims")),
         false,
         {"filter > None: tech=3GPP,id=4,", failed}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        boot(profiles, each.allowed);
        EXPECT_EQ(util.matchLteAttachProfileId(each.id, each.asked), each.answer);
        Journal expected = {"zem matchLteAttachProfileId > Profile id = " +
                            std::to_string(each.id) + " Input Params = " + each.asked.dump()};
        expected.insert(expected.end(), each.lines.begin(), each.lines.end());
        EXPECT_EQ(journal(), expected);
        EXPECT_EQ(
            recorder->count(LOG_ERROR,
                            "Profile id 2 is a ZEM profile which is not an IA profile, cannot "
                            "be used for attach"),
            each.id == 2 ? 1u : 0u);
    }
}

TEST_F(UtilTest, EveryProfileOfAClassIsBroughtInLineOrOneCreated) {
    boot({gsm(1, "a", {{"apn_class", 3u}}), gsm(2, "b", {{"apn_class", 3u}}),
          gsm(3, "c", {{"apn_class", 1u}}), gsm(4, "e", {{"apn_class", 3u}}),
          cdma(1, "d", {{"apn_class_3gpp2", 3u}})});
    modem.addFault({FaultKind::kRefuse, 0x0028, 1});
    const auto internet = asking(apn("net"), apnClass(ApnClass::INET));
    util.updateModemProfileByApnClass({internet, asking(apn("nameless class"))},
                                      {asking(apn("app"), apnClass(ApnClass::APP))});
    const Journal after = held();
    // The first change was refused; which profile that was is the cache's to choose.
    EXPECT_EQ(std::count_if(after.begin(), after.end(),
                            [](const std::string& line) {
                                return line.find("apn_name=net,apn_class=3,") != std::string::npos;
                            }),
              2);
    EXPECT_EQ(after.at(2), "3GPP:3 apn_name=c,apn_class=1,");
    EXPECT_EQ(after.back(), "3GPP2:1 apn_string_3gpp2=d,apn_class_3gpp2=3,");
    EXPECT_EQ(after.at(4), "3GPP2:0 persistent=1,apn_string_3gpp2=app,apn_class_3gpp2=4,");
    EXPECT_TRUE(recorder->contains(LOG_DEBUG, "zem either tech type or apn class is missing"));
    EXPECT_TRUE(recorder->contains(LOG_API, "zem updateModemProfileByApnClass > "));
    EXPECT_TRUE(recorder->contains(LOG_API, "    ApnName=net,ApnClass=INET,"));
    EXPECT_TRUE(recorder->contains(LOG_API, "zem updateModemProfileByApnClass < OK"));
    EXPECT_EQ(recorder->countContaining("Error while modifying profile by APN class"), 0u);
}

// Each bit of a name must end on the profile of its IP type, else on the dual-stack one, else on
// every single-stack one there is; a profile that gets none keeps its own.
TEST_F(UtilTest, MasksFindAHomeForEveryBit) {
    constexpr unsigned kOld = APN_TYPE_CBS;
    constexpr unsigned kMasks[] = {0, APN_TYPE_IMS, APN_TYPE_IMS | APN_TYPE_MMS};
    const auto zapMask = [](unsigned mask) { return uint64_t{convertToZapApnTypeMask(mask)}; };
    for (unsigned profiles = 1; profiles < 8; ++profiles) {
        const bool has4 = profiles & 1, has6 = profiles & 2, has46 = profiles & 4;
        for (const Tech tech : {Tech::k3gpp, Tech::k3gpp2}) {
            std::vector<Profile> before;
            for (unsigned type = 0; type < 3; ++type) {
                if (!(profiles & 1u << type)) continue;
                Profile profile =
                    tech == Tech::k3gpp ? gsm(type + 1, "net") : cdma(type + 1, "net");
                const Value pdp[] = {kPdp4, kPdp6, kPdp46}, pdn[] = {0u, 1u, 2u};
                if (tech == Tech::k3gpp) profile.fields["pdp_type"] = pdp[type];
                if (tech == Tech::k3gpp2) profile.fields["pdn_type_3gpp2"] = pdn[type];
                profile.fields["apn_type_mask"] = zapMask(kOld);
                before.push_back(profile);
            }
            boot(before);
            for (const unsigned a : kMasks) {
                for (const unsigned b : {0u, unsigned{APN_TYPE_DUN}}) {
                    for (const unsigned c : {0u, unsigned{APN_TYPE_DEFAULT}}) {
                        SCOPED_TRACE(testing::Message()
                                     << profiles << ' ' << a << ' ' << b << ' ' << c);
                        for (const auto& profile : before)
                            ASSERT_TRUE(modem.modifyProfile(profile));
                        manager.refresh(COMPLETE);
                        util.updateAPNTypeBitmaskOnModemProfile(
                            {asking(apn("NET"), home(V4), apnTypes(a)),
                             asking(apn("net"), home(V6), apnTypes(b)),
                             asking(apn("Net"), home(V4V6), apnTypes(c)),
                             asking(apnTypes(0xFFF), home(V4))});
                        const unsigned stray4 = has4 ? 0 : a, stray6 = has6 ? 0 : b;
                        const unsigned left = has46 ? 0 : c;
                        const unsigned wanted[] = {a | left | (has46 ? 0 : stray6),
                                                   b | left | (has46 ? 0 : stray4),
                                                   c | stray4 | stray6};
                        for (unsigned type = 0; type < 3; ++type) {
                            if (!(profiles & 1u << type)) continue;
                            const unsigned mask = wanted[type] ? wanted[type] : kOld;
                            EXPECT_EQ(modem.profile(tech, type + 1)->fields.at("apn_type_mask"),
                                      Value(zapMask(mask)));
                        }
                    }
                }
            }
        }
    }
}

TEST_F(UtilTest, CombinedMaskReplacesThatOfEveryProfileOfTheName) {
    boot({gsm(1, "net", {{"apn_type_mask", 0x200u}}), gsm(2, "net", {{"pdp_type", kPdp6}}),
          gsm(3, "", {{"apn_type_mask", 0x200u}}), cdma(1, "net")},
         true);
    util.updateAPNTypeBitmaskOnModemProfile({asking(apn("Net"), home(V4), apnTypes(0x1)),
                                             asking(apn("nEt"), apnTypes(0x2)),
                                             asking(apn("net"), home(V6)), asking(apnTypes(0x40))});
    EXPECT_EQ(held(), (Journal{"3GPP:1 apn_name=net,apn_type_mask=0x5,",
                               "3GPP:2 pdp_type=ipv6,apn_name=net,apn_type_mask=0x5,",
                               "3GPP:3 apn_name=,apn_type_mask=0x200,",
                               "3GPP2:1 apn_string_3gpp2=net,apn_type_mask=0x5,"}));
    EXPECT_EQ(recorder->count(LOG_ERROR, "zem APN type mask not present, setting to 0"), 1u);
    EXPECT_EQ(recorder->count(LOG_ERROR, "zem Home IP type not present, setting to v4v6"), 2u);
    EXPECT_TRUE(recorder->contains(
        LOG_DEBUG, "zem processing APN name net, V4 mask:0x1, v6 mask0x0:, v4v6 mask:0x2"));
    EXPECT_TRUE(recorder->contains(
        LOG_DEBUG, "zem updating profile id:1, tech type:1, with combined mask0x3:"));
    // An entry with an empty name has a name; one without has none.
    boot({gsm(3, "", {{"apn_type_mask", 0x200u}})}, true);
    util.updateAPNTypeBitmaskOnModemProfile({asking(apn(""), apnTypes(1)), asking(apnTypes(0x40))});
    EXPECT_EQ(held(), Journal{"3GPP:3 apn_name=,apn_type_mask=0x1,"});
}

TEST_F(UtilTest, SwitchAndSearchesSayWhatTheyDo) {
    boot({});
    util.setProfileUpdateAllowed(true);
    EXPECT_TRUE(recorder->contains(LOG_API, "zem::Util: profileUpdateAllowed true"));
    EXPECT_FALSE(util.updateByIpType(TechType::TECH_3GPP2, V6, 1, "net"));
    EXPECT_TRUE(recorder->contains(LOG_DEBUG,
                                   "zem no match found for apn name:net, ip type:2, tech type:1"));
}

// Every operator of the carrier list that ZEM_CARRIER_LIST names, or of the example, on a fresh
// modem.
TEST_F(UtilTest, EveryOperatorsListIsAppliedOnceAndForAll) {
    const char* const own = getenv("ZEM_CARRIER_LIST");
    const auto file =
        zemctl::CarrierFile::read(own ? own : ZEM_SOURCE_DIR "/examples/carriers.xml");
    const auto operators = file.operators();
    size_t done = 0, entries = 0, profiles = 0;
    for (const auto& plmn : operators) {
        SCOPED_TRACE(plmn.digits());
        std::list<ProfileParams> list;
        for (const auto& entry : file.select(plmn).usable) list.push_back(entry.params);
        boot({});
        const auto apply = [&] {
            util.updateModemProfileByApnClass(list, list);
            util.updateAPNTypeBitmaskOnModemProfile(list);
        };
        apply();
        const Journal once = held();
        std::map<std::pair<Tech, std::string>, unsigned> served;
        manager.refresh(COMPLETE);
        for (const auto& key : manager.filter({})) {
            const auto profile = manager.getProfile(key);
            ASSERT_TRUE(profile);
            served[{Tech(key->getTechType()), profile->getApnName()}] |= profile->getApnTypesMask();
        }
        for (const auto& params : list) {
            for (const Tech tech : {Tech::k3gpp, Tech::k3gpp2}) {
                const auto found = served.find({tech, convertToApnName(params.getApnName())});
                if (found == served.end()) continue;  // its class went to a later entry
                EXPECT_EQ(params.getApnTypesMask() & ~found->second, 0u) << params.dump();
            }
        }
        apply();
        EXPECT_EQ(held(), once);
        for (const auto& request : modem.requests()) EXPECT_EQ(request.result, 0u) << request.name;
        entries += list.size();
        profiles += once.size();
        if (++done % 16 == 0 && isatty(STDOUT_FILENO)) {
            std::cout << '\r' << std::string(50 * done / operators.size(), '#') << std::flush;
        }
    }
    std::cout << "\r" << done << " operators, " << entries << " entries, " << profiles
              << " profiles: applied twice, no request refused\n";
    EXPECT_GT(done, 0u);
}

}  // namespace
}  // namespace zem
