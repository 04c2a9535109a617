// What the policies leave on the modem.

#include <zem/Util.h>

#include <cstdlib>

#include "ProfileBuilders.h"
#include "TestPhone.h"
#include "verbs/CarrierList.h"

namespace zem {
namespace {

using softmodem::Profile;
using softmodem::Value;
using Profiles = std::vector<Profile>;

class UtilTest : public ManagedPhoneTest {
  protected:
    // A phone whose modem holds these profiles, and nothing asked of it yet.
    void boot(const Profiles& held) {
        modem.reset();
        modem.setHurry(true);
        for (const auto& profile : held) ASSERT_TRUE(modem.createProfileAt(profile));
        init();
        modem.clearRequests();
    }

    Util util;
};

// Each goes to the profile of its IP type, else to the dual-stack one, else to all that there are.
TEST_F(UtilTest, MasksFindAHomeForEveryBit) {
    const Profile v4 = {Tech::k3gpp, 1, {{"apn_name", "net"}, {"pdp_type", 0u}}},
                  v6 = {Tech::k3gpp, 2, {{"apn_name", "net"}, {"pdp_type", 2u}}},
                  dual = {Tech::k3gpp, 3, {{"apn_name", "net"}, {"pdp_type", 3u}}};
    constexpr auto asking = [](const auto&... set) { return with<ProfileParams>(set...); };
    const struct {
        Profiles held;
        unsigned ofDual;
        std::vector<uint64_t> masks;
    } cases[] = {
        {{v4}, 0x80, {0x89}},           {{v4}, 0, {0x9}},
        {{v6}, 0x80, {0x89}},           {{v6}, 0, {0x9}},
        {{v4, v6}, 0x80, {0x81, 0x88}}, {{v4, v6}, 0, {0x1, 0x8}},
        {{dual}, 0x80, {0x89}},         {{v4, dual}, 0x80, {0x1, 0x88}},
        {{v6, dual}, 0, {0x8, 0x1}},    {{v4, v6, dual}, 0x80, {0x1, 0x8, 0x80}},
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
