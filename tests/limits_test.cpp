// As much as there can be of everything: profiles, keys, indications, characters, and values at the
// ends of their ranges.

#include <dirent.h>
#include <malloc.h>
#include <zem/Util.h>

#include <climits>

#include "AdbWriter.h"
#include "CapturedStream.h"
#include "DiagWriter.h"
#include "LocalLogBuffer.h"
#include "ProfileBuilders.h"
#include "TestPhone.h"
#include "WireBytes.h"
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#define ZEM_SANITIZED 1
#else
#define ZEM_SANITIZED 0
#endif

namespace zem {
namespace {

using Key = std::shared_ptr<IProfileKey>;
using Setting = std::function<void(ProfileParams&)>;

constexpr auto k3gpp = TechType::TECH_3GPP, k3gpp2 = TechType::TECH_3GPP2;

size_t bytesInUse() {
#if ZEM_SANITIZED
    return __sanitizer_get_current_allocated_bytes();
#else
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
#endif
}

size_t openDescriptors() {
    size_t entries = 0;
    DIR* const dir = opendir("/proc/self/fd");
    while (readdir(dir)) ++entries;
    closedir(dir);
    return entries;
}

class LimitsTest : public ManagedPhoneTest {
  protected:
    LimitsTest() {
        init();
        recorder.reset();  // the record would be long
    }

    std::list<Key> fill() {
        std::list<Key> keys;
        for (const auto tech : {k3gpp, k3gpp2}) {
            while (auto key = manager.addProfile(transient("full", tech))) keys.push_back(key);
        }
        return keys;
    }
};

TEST_F(LimitsTest, BothStoresAreFilledReadAndEmptied) {
    auto keys = fill();
    ASSERT_EQ(keys.size(), 510u);
    EXPECT_EQ(sent(0x0027).size(), 512u);  // the 256th of each is refused
    EXPECT_EQ(modem.profiles().size(), 510u);
    waitForIndications();
    EXPECT_EQ(cached().size(), 510u);
    EXPECT_EQ(pending().size(), 0u);
    for (const auto tech : {k3gpp, k3gpp2}) {
        auto filtered = manager.filter(with<FilterProfileParams>(techIs(tech), apn("full")));
        EXPECT_EQ(filtered.size(), 255u);
    }
    keys.clear();
    EXPECT_EQ(modem.profiles().size(), 0u);
    waitForIndications();
    EXPECT_EQ(cached().size(), 0u);

    keys = fill();
    waitForIndications();
    const auto before = cached();
    manager.refresh(COMPLETE);
    EXPECT_EQ(cached(), before);
    keys = manager.filter({});  // nobody's transient profiles any more
    EXPECT_EQ(keys.size(), 510u);
    for (const auto& key : keys) EXPECT_TRUE(manager.deleteProfile(key));
    EXPECT_EQ(modem.profiles().size(), 0u);
}

TEST_F(LimitsTest, ThousandsOfKeysAreCountedAndTheLastOfEachProfileDeletesIt) {
    const struct {
        bool full;
        size_t profiles;
        int times;
    } cases[] = {{false, 1, 10000}, {true, 510, 20}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.profiles);
        auto own = each.full ? fill() : std::list<Key>{manager.addProfile(transient("one"))};
        ASSERT_EQ(own.size(), each.profiles);
        std::list<Key> keys;
        for (int i = 0; i < each.times; ++i) keys.splice(keys.end(), manager.filter({}));
        EXPECT_EQ(keys.size(), each.profiles * static_cast<size_t>(each.times));
        own.clear();
        while (keys.size() > each.profiles) keys.pop_front();  // a full round is left
        EXPECT_EQ(modem.profiles().size(), each.profiles);
        keys.clear();
        EXPECT_EQ(modem.profiles().size(), 0u);
    }
}

TEST_F(LimitsTest, BurstOfIndicationsIsWorkedOffAndLeavesNothing) {
    constexpr unsigned kBurst = ZEM_SANITIZED ? 20000 : 100000, kProfiles = 20;
    for (unsigned i = 1; i <= kProfiles; ++i)
        ASSERT_TRUE(modem.createProfileAt({Tech::k3gpp, i, {}}));
    waitForIndications();
    const auto burst = [this] {
        const auto target = modem.counters().indicationsSent + kBurst;
        for (unsigned i = 0; modem.counters().indicationsSent < target; ++i) {
            const unsigned index = 1 + i % kProfiles;
            for (unsigned j = 0; j < 100; ++j)
                modem.modifyProfile({Tech::k3gpp, 1 + j % kProfiles, {{"apn_type_mask", i}}});
            modem.deleteProfile(Tech::k3gpp, index);
            modem.createProfileAt({Tech::k3gpp, index, {{"apn_name", std::to_string(i)}}});
            modem.waitUntilIdle();
        }
    };
    size_t memory = 0, descriptors = 0;
    for (const bool warm : {false, true}) {
        // All of it comes while the engine waits for one answer.
        bool done = false;
        modem.setRequestHook([&](const softmodem::Request&) {
            if (std::exchange(done, true)) return;
            burst();
        });
        auto key = manager.addProfile(transient("asks"));
        waitForIndications();
        modem.setRequestHook(nullptr);
        key.reset();
        waitForIndications();
        EXPECT_GT(modem.counters().requests[0x002B], kBurst / 2);
        modem.clearRequests();
        if (!warm) {  // all that is kept anyway is there
            memory = bytesInUse();
            descriptors = openDescriptors();
        }
    }
    EXPECT_LT(bytesInUse(), memory + 500000);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(pending().size(), 0u);
    const auto now = cached();
    EXPECT_EQ(now.size(), kProfiles);
    manager.refresh(COMPLETE);
    EXPECT_EQ(cached(), now);
}

TEST_F(LimitsTest, ApnNameOf150CharactersIsTheLongestOnTheWire) {
    for (const size_t length : {149u, 150u, 151u, 300u}) {
        SCOPED_TRACE(length);
        std::string name(length, 'A');
        name.back() = 'Z';
        const std::string cut =
            length > 150 ? std::string(150, 'a') : std::string(length - 1, 'a') + 'z';
        modem.clearRequests();
        const auto key = manager.addProfile(transient(name));
        const auto other = manager.addProfile(transient("x"));
        EXPECT_TRUE(manager.modifyProfile(ModifyProfileParams(named(name)), other));
        for (const auto& [message, at] : {std::pair{0x0027u, 80u}, std::pair{0x0028u, 84u}}) {
            Bytes field(152);
            field[0] = 1;
            std::copy(cut.begin(), cut.end(), field.begin() + 1);
            const auto bytes = sent(message).at(0);
            EXPECT_EQ(Bytes(&bytes[at], &bytes[at] + field.size()), field);
        }
        for (const auto& asked : {name, cut}) {
            EXPECT_EQ(manager.filter(FilterProfileParams(named(asked))).size(), 2u);
            EXPECT_TRUE(manager.match(FilterProfileParams(named(asked)), key));
            modem.clearRequests();
            manager.modifyProfile(ModifyProfileParams(named(asked)), key);
            EXPECT_EQ(modem.counters().requestsTotal, 0u);  // no difference
        }
        EXPECT_FALSE(manager.match(FilterProfileParams(named(cut.substr(1))), key));
    }
}

// Through add and through modify to the modem, from the cache and, after a refresh, from the modem.
TEST_F(LimitsTest, SettingsAtTheEndsOfTheirRangesGoOutAndComeBack) {
    const auto x = [](size_t length) { return std::string(length, 'x'); };
    const std::string
        x127 = x(127),
        every = "ApnTypesMask=DEFAULT|MMS|SUPL|DUN|HIPRI|FOTA|IMS|CBS|IA|EMERGENCY|MCX|XCAP|";
    const struct {
        TechType tech;
        Setting setting;
        std::string sent, held, read;
    } cases[] = {
        {k3gpp, maxPdns(INT_MAX), "max_pdn_conn_per_block=65535", "MaxPdnsConnPerBlock=2147483647",
         "MaxPdnsConnPerBlock=65535"},
        {k3gpp, maxTimer(INT_MIN), "max_pdn_conn_timer=0", "MaxPdnConnTimer=-2147483648",
         "MaxPdnConnTimer=0"},
        {k3gpp, maxTimer(INT_MAX), "max_pdn_conn_timer=65535", "MaxPdnConnTimer=2147483647",
         "MaxPdnConnTimer=65535"},
        {k3gpp, interval(INT_MIN), "pdn_req_wait_interval=0", "PdnReqWaitInterval=-2147483648",
         "PdnReqWaitInterval=0"},
        {k3gpp, interval(-1), "pdn_req_wait_interval=65535", "PdnReqWaitInterval=-1",
         "PdnReqWaitInterval=65535"},
        {k3gpp, apnTypes(0u), "apn_type_mask=0x0", "ApnTypesMask=NONE", "ApnTypesMask=NONE"},
        {k3gpp, apnTypes(~0u), "apn_type_mask=0xfff", every, every},
        {k3gpp, apnClass(ApnClass(0)), "apn_class=0", "ApnClass=0", "ApnClass=0"},
        {k3gpp, apnClass(ApnClass(256)), "apn_class=0", "ApnClass=256", "ApnClass=0"},
        {k3gpp, apnClass(ApnClass(~0u)), "apn_class=255", "ApnClass=4294967295", "ApnClass=255"},
        {k3gpp, auth(AuthType(~0u)), "authentication_preference=pap_chap", "AuthType=4294967295",
         "AuthType=PAP_CHAP"},
        {k3gpp, home(UNKNOWN), "pdp_type=ipv4v6", "HomeIPType=UNKNOWN", "HomeIPType=V4V6"},
        {k3gpp, home(IPType(~0u)), "pdp_type=ipv4v6", "HomeIPType=4294967295", "HomeIPType=V4V6"},
        {k3gpp, roam(IPType(4)), "lte_roaming_pdp_type=ipv4v6,umts_roaming_pdp_type=ipv4v6",
         "RoamIPType=4", "RoamIPType=V4V6"},
        {k3gpp, roam(UNKNOWN), "lte_roaming_pdp_type=not_set,umts_roaming_pdp_type=not_set",
         "RoamIPType=UNKNOWN", ""},
        {k3gpp, user(""), "username=", "UserName=", "UserName="},
        {k3gpp, user(x127), "username=" + x127, "UserName=" + x127, "UserName=" + x127},
        {k3gpp, user(x(128)), "username=" + x127, "UserName=" + x(128), "UserName=" + x127},
        {k3gpp, password(x(1000)), "password=" + x127, "Password=" + x(1000), "Password=" + x127},
        {k3gpp, apn(""), "apn_name=", "ApnName=", "ApnName="},
        {k3gpp2, user(x(128)), "user_id_3gpp2=" + x127 + ",pdn_level_user_id_3gpp2=" + x127,
         "UserName=" + x(128), "UserName=" + x127},
        {k3gpp2, password(x127), "password_3gpp2=" + x127 + ",pdn_level_password_3gpp2=" + x127,
         "Password=" + x127, ""},
        {k3gpp2, auth(AuthType(4)), "auth_protocol_3gpp2=none,pdn_level_auth_protocol_3gpp2=none",
         "AuthType=4", "AuthType=NONE"},
        {k3gpp2, home(UNKNOWN), "pdn_type_3gpp2=ipv4v6", "HomeIPType=UNKNOWN", "HomeIPType=V4V6"},
        {k3gpp2, apnClass(ApnClass(511)), "apn_class_3gpp2=255", "ApnClass=511", "ApnClass=255"},
        {k3gpp2, apn(x(151)), "apn_string_3gpp2=" + x(150), "ApnName=" + x(150),
         "ApnName=" + x(150)},
        {k3gpp2, maxPdns(INT_MAX), "", "", ""},
    };
    for (const auto& each : cases) {
        for (const bool modifies : {false, true}) {
            SCOPED_TRACE(each.held.substr(0, 40) + (modifies ? " modified" : " added"));
            ProfileParams params;
            each.setting(params);
            Key key =
                manager.addProfile({modifies ? ProfileParams() : params, false, each.tech, false});
            ASSERT_NE(key, nullptr);
            if (modifies) {
                EXPECT_TRUE(manager.modifyProfile(ModifyProfileParams(params), key));
            }
            auto sent = stored().begin()->second;
            for (const char* own : {"persistent=0,", "profile_name=zem_profile,"}) {
                if (const auto at = sent.find(own); at != std::string::npos)
                    sent.erase(at, strlen(own));
            }
            EXPECT_EQ(sent, each.sent.empty() ? "" : each.sent + ",");
            const auto settings = [&] {
                const auto text = manager.getProfile(key)->dump();
                return text.substr(0, text.find("IsZemProfile"));
            };
            EXPECT_EQ(settings(), each.held.empty() ? "" : each.held + ",");
            manager.refresh(COMPLETE);
            key = manager.filter({}).front();
            EXPECT_EQ(settings(), each.read.empty() ? "" : each.read + ",");
            EXPECT_TRUE(manager.deleteProfile(key));
            waitForIndications();
        }
    }
}

TEST_F(LimitsTest, OnlyWholeProfileIdsAreFound) {
    for (const unsigned index : {4u, 255u}) modem.createProfileAt({Tech::k3gpp, index, {}});
    for (const unsigned index : {0u, 254u}) modem.createProfileAt({Tech::k3gpp2, index, {}});
    modem.modifyProfile({Tech::k3gpp, 255, {{"apn_name", "last"}}});
    waitForIndications();
    const struct {
        int id;
        size_t found, of3gpp2;
    } cases[] = {{0, 0, 1},   {254, 0, 1}, {255, 1, 0},     {256, 0, 0},
                 {260, 0, 0}, {-1, 0, 0},  {INT_MIN, 0, 0}, {4, 1, 0}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.id);
        const auto found = [&](TechType tech) {
            return manager.filter(with<FilterProfileParams>(techIs(tech), idIs(each.id))).size();
        };
        EXPECT_EQ(found(k3gpp), each.found);
        EXPECT_EQ(found(k3gpp2), each.of3gpp2);
        EXPECT_EQ(Util().matchLteAttachProfileId(each.id, {}), each.found == 1);
    }
    EXPECT_EQ(manager.filter(FilterProfileParams(named("last"))).size(), 1u);
}

TEST(LogLimitsTest, LineOf511CharactersIsTheLongestThroughEitherWriter) {
    auto& modem = SoftModem::instance();
    modem.reset();
    for (const size_t length : {510u, 511u, 512u, 5000u}) {
        SCOPED_TRACE(length);
        std::string line(length, '%');
        line.back() = 'z';
        const std::string cut = length > 511 ? std::string(511, '%') : line;
        LocalLogBuffer::getInstance().flush();
        LogWrapper::getInstance().setLogWriter(std::make_unique<DiagWriter>());
        ZEM_LOG(LOG_API, "%s", line.c_str());
        EXPECT_EQ(modem.diagLines().back().text, "|ZEM| " + cut);
        LogWrapper::getInstance().setLogWriter(std::make_unique<AdbWriter>());
        const CapturedStream captured(STDERR_FILENO);
        ZEM_LOG(LOG_ERROR, "%s", line.c_str());
        LogWrapper::getInstance().setLogWriter(nullptr);
        const auto text = captured.text();
        EXPECT_EQ(text.substr(text.find('%')), cut + "\n");
        for (const auto& kept : LocalLogBuffer::getInstance().getLogs())
            EXPECT_EQ(kept.substr(kept.find(']') + 1), cut);
    }
}

}  // namespace
}  // namespace zem
