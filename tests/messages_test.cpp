// Every message is compared byte by byte: what no field names must be zero.

#include <gtest/gtest.h>

#include "Modem3gpp2Profile.h"
#include "Modem3gppProfile.h"
#include "WireBytes.h"

namespace zem {
namespace {

constexpr size_t kCreateSize = 3248;
constexpr size_t kModifySize = 3256;

struct Case {
    const char* name;
    Bytes message;
    size_t size;
    std::vector<Field> fields;
};

void expectMessages(const std::vector<Case>& cases) {
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Bytes expected = layOut(c.size, c.fields);
        ASSERT_EQ(c.message.size(), expected.size());
        for (size_t at = 0; at < expected.size(); ++at)
            EXPECT_EQ(unsigned{c.message[at]}, unsigned{expected[at]}) << "byte " << at;
    }
}

template <class Profile>
Bytes create(void (*set)(Profile&)) {
    Profile profile((ProfileParams()));
    set(profile);
    return bytesOf(profile.constructAddRequest());
}

template <class Profile>
Bytes modify(void (*set)(Profile&)) {
    Profile profile((ProfileParams()));
    set(profile);
    return bytesOf(profile.constructModifyRequest());
}

void setNothing(ModemProfile&) {}

void setCommon(ModemProfile& profile) {
    profile.setProfileId(0x107);
    profile.setIsPersistent(true);
    profile.setApnName("internet");
    profile.setUserName("me");
    profile.setPassword("secret");
    profile.setAuthType(AuthType::CHAP);
    profile.setApnClass(ApnClass::INET);
    profile.setApnTypesMask(0x8123456789ABCDEF);
    profile.setIsClatEnabled(true);
    profile.setCommonIPType(IPType::V6);
}

void setAll3gpp(Modem3gppProfile& profile) {
    setCommon(profile);
    profile.setProfileName("zem_profile_ia");
    profile.setIsApnDisabled(true);
    profile.setIsEmergencySupported(true);
    profile.setMaxPdnsConnPerBlock(0x0102);
    profile.setMaxPdnConnTimer(0x0304);
    profile.setPdnReqWaitInterval(0x0506);
    profile.setLteRoamIPType(IPType::V6);
    profile.setUmtsRoamIPType(IPType::V4V6);
    profile.setOverrideHomeIPType(IPType::UNKNOWN);
}

// Present settings whose values are zero on the wire: their flags alone tell.
void setZeros(Modem3gppProfile& profile) {
    profile.setApnName("");
    profile.setUserName("");
    profile.setAuthType(AuthType::NONE);
    profile.setCommonIPType(IPType::V4);
    profile.setLteRoamIPType(IPType::V4);
    profile.setApnTypesMask(0);
    profile.setIsClatEnabled(false);
    profile.setIsApnDisabled(false);
    profile.setMaxPdnConnTimer(0);
}

void setOutOfRange(Modem3gppProfile& profile) {
    profile.setAuthType(AuthType(5));
    profile.setCommonIPType(IPType::UNKNOWN);
    profile.setLteRoamIPType(IPType::UNKNOWN);
    profile.setUmtsRoamIPType(IPType(9));
    profile.setApnClass(ApnClass(0x1FF));
    profile.setMaxPdnsConnPerBlock(-1);
    profile.setMaxPdnConnTimer(65536);
    profile.setPdnReqWaitInterval(70000);
}

void setLongTexts(ModemProfile& profile) {
    profile.setApnName(std::string(200, 'a'));
    profile.setUserName(std::string(128, 'u'));
    profile.setPassword(std::string(127, 'p'));
}

void setEmbeddedEnds(ModemProfile& profile) {
    profile.setApnName(std::string("ab\0cd", 5));
    profile.setUserName(std::string("\0x", 2));
}

TEST(MessagesTest, Create3gpp) {
    const auto message = create<Modem3gppProfile>;
    const Field persistent = {2176, 2177, u8(0)};
    expectMessages({
        {"nothing present", message([](auto& p) { setNothing(p); }), kCreateSize, {persistent}},
        {"everything present",
         message(setAll3gpp),
         kCreateSize,
         {{kNoFlag, 0, u32(0)},
          {4, 5, text("zem_profile_ia")},
          {56, 60, u32(2)},
          {80, 81, text("internet")},
          {400, 401, text("me")},
          {529, 530, text("secret")},
          {658, 659, u8(2)},
          {980, 981, u8(1)},
          {988, 989, u8(3)},
          {1000, 1001, u8(1)},
          {1016, 1018, u16(0x0102)},
          {1020, 1022, u16(0x0304)},
          {1024, 1026, u16(0x0506)},
          {1042, 1044, u32(1)},
          {1048, 1052, u32(2)},
          {1104, 1108, u32(255)},
          {2176, 2177, u8(1)},
          {3228, 3232, u64(0x8123456789ABCDEF)},
          {3240, 3241, u8(1)}}},
        {"zeros",
         message(setZeros),
         kCreateSize,
         {{56, 60, u32(0)},
          {80, 81, {}},
          {400, 401, {}},
          {658, 659, u8(0)},
          {980, 981, u8(0)},
          {1020, 1022, u16(0)},
          {1042, 1044, u32(0)},
          persistent,
          {3228, 3232, u64(0)},
          {3240, 3241, u8(0)}}},
        {"values out of range",
         message(setOutOfRange),
         kCreateSize,
         {{56, 60, u32(3)},
          {658, 659, u8(1)},
          {988, 989, u8(0xFF)},
          {1016, 1018, u16(0xFFFF)},
          {1020, 1022, u16(0)},
          {1024, 1026, u16(4464)},
          {1042, 1044, u32(255)},
          {1048, 1052, u32(2)},
          persistent}},
        {"texts longer than their fields",
         message([](auto& p) {
             setLongTexts(p);
             p.setProfileName(std::string(51, 'n'));
         }),
         kCreateSize,
         {{4, 5, text(std::string(50, 'n'))},
          {80, 81, text(std::string(150, 'a'))},
          {400, 401, text(std::string(127, 'u'))},
          {529, 530, text(std::string(127, 'p'))},
          persistent}},
        {"texts with an end inside",
         message([](auto& p) { setEmbeddedEnds(p); }),
         kCreateSize,
         {{80, 81, text("ab")}, {400, 401, {}}, persistent}},
    });
}

TEST(MessagesTest, Modify3gpp) {
    const auto message = modify<Modem3gppProfile>;
    const Field noIndex = {kNoFlag, 4, u8(0xFF)};
    expectMessages({
        {"nothing present", message([](auto& p) { setNothing(p); }), kModifySize, {noIndex}},
        {"everything present",
         message(setAll3gpp),
         kModifySize,
         {{kNoFlag, 0, u32(0)},
          {kNoFlag, 4, u8(7)},
          {8, 9, text("zem_profile_ia")},
          {60, 64, u32(2)},
          {84, 85, text("internet")},
          {404, 405, text("me")},
          {533, 534, text("secret")},
          {662, 663, u8(2)},
          {984, 985, u8(1)},
          {992, 993, u8(3)},
          {1008, 1009, u8(1)},
          {1024, 1026, u16(0x0102)},
          {1028, 1030, u16(0x0304)},
          {1032, 1034, u16(0x0506)},
          {1050, 1052, u32(1)},
          {1056, 1060, u32(2)},
          {1112, 1116, u32(255)},
          {3232, 3240, u64(0x8123456789ABCDEF)},
          {3248, 3249, u8(1)}}},
        {"an override taken back",
         message([](auto& p) { p.setOverrideHomeIPType(IPType::UNKNOWN); }),
         kModifySize,
         {noIndex, {1112, 1116, u32(255)}}},
        {"texts longer than their fields",
         message([](auto& p) {
             setLongTexts(p);
             p.setProfileName(std::string(51, 'n'));
         }),
         kModifySize,
         {noIndex,
          {8, 9, text(std::string(50, 'n'))},
          {84, 85, text(std::string(150, 'a'))},
          {404, 405, text(std::string(127, 'u'))},
          {533, 534, text(std::string(127, 'p'))}}},
    });
}

TEST(MessagesTest, Create3gpp2) {
    const auto message = create<Modem3gpp2Profile>;
    const Field type = {kNoFlag, 0, u32(1)};
    const Field persistent = {2176, 2177, u8(0)};
    expectMessages({
        {"nothing present",
         message([](auto& p) { setNothing(p); }),
         kCreateSize,
         {type, persistent}},
        {"everything present",
         message([](auto& p) { setCommon(p); }),
         kCreateSize,
         {type,
          {2176, 2177, u8(1)},
          {2216, 2220, u32(2)},
          {2224, 2225, text("me")},
          {2353, 2354, text("secret")},
          {2506, 2507, text("internet")},
          {2658, 2660, u32(1)},
          {2728, 2729, u8(3)},
          {2730, 2732, u32(2)},
          {2736, 2737, text("me")},
          {2865, 2866, text("secret")},
          {3228, 3232, u64(0x8123456789ABCDEF)},
          {3240, 3241, u8(1)}}},
        {"texts longer than their fields",
         message([](auto& p) { setLongTexts(p); }),
         kCreateSize,
         {type,
          persistent,
          {2224, 2225, text(std::string(127, 'u'))},
          {2353, 2354, text(std::string(127, 'p'))},
          {2506, 2507, text(std::string(150, 'a'))},
          {2736, 2737, text(std::string(127, 'u'))},
          {2865, 2866, text(std::string(127, 'p'))}}},
        {"unknown values",
         message([](auto& p) {
             p.setAuthType(AuthType(5));
             p.setCommonIPType(IPType::UNKNOWN);
         }),
         kCreateSize,
         {type, persistent, {2216, 2220, u32(0)}, {2658, 2660, u32(2)}, {2730, 2732, u32(0)}}},
    });
}

TEST(MessagesTest, Modify3gpp2) {
    const auto message = modify<Modem3gpp2Profile>;
    const Field type = {kNoFlag, 0, u32(1)};
    const Field noIndex = {kNoFlag, 4, u8(0xFF)};
    expectMessages({
        {"nothing present", message([](auto& p) { setNothing(p); }), kModifySize, {type, noIndex}},
        {"everything present",
         message([](auto& p) { setCommon(p); }),
         kModifySize,
         {type,
          {kNoFlag, 4, u8(7)},
          {2220, 2224, u32(2)},
          {2228, 2229, text("me")},
          {2357, 2358, text("secret")},
          {2510, 2511, text("internet")},
          {2662, 2664, u32(1)},
          {2732, 2733, u8(3)},
          {2734, 2736, u32(2)},
          {2740, 2741, text("me")},
          {2869, 2870, text("secret")},
          {3232, 3240, u64(0x8123456789ABCDEF)},
          {3248, 3249, u8(1)}}},
    });
}

}  // namespace
}  // namespace zem
