// Every message is compared byte by byte: what no field names must be zero.

#include <gtest/gtest.h>

#include <functional>

#include "Modem3gpp2Profile.h"
#include "Modem3gppProfile.h"
#include "ProfileBuilders.h"
#include "WireBytes.h"

namespace zem {
namespace {

// Where a field's valid flag and value stand in a create, then in a modify.
struct Place {
    int createFlag;
    size_t create;
    int modifyFlag;
    size_t modify;
};

template <class Profile>
struct Row {
    std::function<void(Profile&)> set;
    std::vector<Place> places;
    Bytes value;
};

void expectBytes(const char* name, const Bytes& message, const Bytes& expected) {
    ASSERT_EQ(message.size(), expected.size());
    for (size_t at = 0; at < expected.size(); ++at)
        EXPECT_EQ(unsigned{message[at]}, unsigned{expected[at]}) << name << " byte " << at;
}

// The messages of a profile with the settings of all rows.
template <class Profile>
void expectMessages(const std::vector<Row<Profile>>& rows, bool isPersistent = false, int id = -1) {
    const auto profile = profileWith<Profile>(persistent(isPersistent), profileId(id));
    const Field type = {kNoFlag, 0, u32(profile->getTechType() == TechType::TECH_3GPP2)};
    std::vector<Field> create = {type, {2176, 2177, u8(isPersistent)}};
    std::vector<Field> modify = {type, {kNoFlag, 4, u8(static_cast<uint8_t>(id))}};
    for (const auto& row : rows) {
        row.set(*profile);
        for (const auto& place : row.places) {
            create.push_back({place.createFlag, place.create, row.value});
            modify.push_back({place.modifyFlag, place.modify, row.value});
        }
    }
    expectBytes("create", bytesOf(profile->constructAddRequest()), layOut(3248, create));
    expectBytes("modify", bytesOf(profile->constructModifyRequest()), layOut(3256, modify));
}

template <class Profile>
void expectEachRow(const std::vector<Row<Profile>>& rows) {
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(::testing::Message() << "row " << i);
        expectMessages<Profile>({rows[i]});
    }
}

constexpr Place kTypes = {3228, 3232, 3232, 3240}, kClat = {3240, 3241, 3248, 3249};

constexpr Place kName = {4, 5, 8, 9}, kPdp = {56, 60, 60, 64}, kApn = {80, 81, 84, 85},
                kUser = {400, 401, 404, 405}, kPassword = {529, 530, 533, 534},
                kAuth = {658, 659, 662, 663}, kDisabled = {980, 981, 984, 985},
                kClass = {988, 989, 992, 993}, kEmergency = {1000, 1001, 1008, 1009},
                kMaxPdns = {1016, 1018, 1024, 1026}, kTimer = {1020, 1022, 1028, 1030},
                kInterval = {1024, 1026, 1032, 1034}, kLte = {1042, 1044, 1050, 1052},
                kUmts = {1048, 1052, 1056, 1060}, kOverride = {1104, 1108, 1112, 1116};

TEST(MessagesTest, EachSettingOf3gppHasItsPlaceAndForm) {
    const std::vector<Row<Modem3gppProfile>> typical = {
        {profileName("zem_profile_ia"), {kName}, text("zem_profile_ia")},
        {common(V6), {kPdp}, u32(2)},
        {apn("internet"), {kApn}, text("internet")},
        {user("me"), {kUser}, text("me")},
        {password("secret"), {kPassword}, text("secret")},
        {auth(AuthType::CHAP), {kAuth}, u8(2)},
        {disabled(true), {kDisabled}, u8(1)},
        {apnClass(ApnClass::INET), {kClass}, u8(3)},
        {emergency(true), {kEmergency}, u8(1)},
        {maxPdns(0x0102), {kMaxPdns}, u16(0x0102)},
        {maxTimer(0x0304), {kTimer}, u16(0x0304)},
        {interval(0x0506), {kInterval}, u16(0x0506)},
        {lteRoam(V6), {kLte}, u32(1)},
        {umtsRoam(V4V6), {kUmts}, u32(2)},
        {overrideHome(UNKNOWN), {kOverride}, u32(255)},
        {apnTypes(0x8123456789ABCDEF), {kTypes}, u64(0x8123456789ABCDEF)},
        {clat(true), {kClat}, u8(1)},
    };
    expectMessages<Modem3gppProfile>({});
    expectMessages(typical, true, 0x107);
    expectEachRow(typical);
    expectEachRow<Modem3gppProfile>({
        // Zero on the wire: the flag alone tells.
        {common(V4), {kPdp}, u32(0)},
        {disabled(false), {kDisabled}, u8(0)},
        {lteRoam(V4), {kLte}, u32(0)},
        {clat(false), {kClat}, u8(0)},
        // Longer than its field, and with an end inside.
        {profileName(std::string(51, 'x')), {kName}, text(std::string(50, 'x'))},
        {apn(std::string("ab\0cd", 5)), {kApn}, text("ab")},
        {user(std::string("\0x", 2)), {kUser}, {}},
    });
}

constexpr Place kAuth2 = {2216, 2220, 2220, 2224}, kUser2 = {2224, 2225, 2228, 2229},
                kPassword2 = {2353, 2354, 2357, 2358}, kApn2 = {2506, 2507, 2510, 2511},
                kPdn2 = {2658, 2660, 2662, 2664}, kClass2 = {2728, 2729, 2732, 2733},
                kPdnAuth2 = {2730, 2732, 2734, 2736}, kPdnUser2 = {2736, 2737, 2740, 2741},
                kPdnPassword2 = {2865, 2866, 2869, 2870};

TEST(MessagesTest, EachSettingOf3gpp2HasItsPlacesAndForm) {
    const std::vector<Row<Modem3gpp2Profile>> typical = {
        {auth(AuthType::CHAP), {kAuth2, kPdnAuth2}, u32(2)},
        {user("me"), {kUser2, kPdnUser2}, text("me")},
        {password("secret"), {kPassword2, kPdnPassword2}, text("secret")},
        {apn("internet"), {kApn2}, text("internet")},
        {common(V6), {kPdn2}, u32(1)},
        {apnClass(ApnClass::INET), {kClass2}, u8(3)},
        {apnTypes(0x8123456789ABCDEF), {kTypes}, u64(0x8123456789ABCDEF)},
        {clat(true), {kClat}, u8(1)},
    };
    expectMessages<Modem3gpp2Profile>({});
    expectMessages(typical, true, 0x107);
    expectEachRow(typical);
}

}  // namespace
}  // namespace zem
