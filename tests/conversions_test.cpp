#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include "Modem3gpp2Profile.h"
#include "ProfileConversions.h"
#include "TestLog.h"
#include "WireBytes.h"

namespace zem {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint32_t kUnknown = 0xFFFFFFFF;

using Convert = uint32_t (*)(uint32_t);

uint32_t fromProfileType(uint32_t value) {
    return static_cast<uint32_t>(convertProfileType(wds_profile_type_enum_v01(value)));
}
uint32_t fromPdn(uint32_t value) {
    return static_cast<uint32_t>(convertPdnType(wds_profile_pdn_type_enum_v01(value)));
}
uint32_t fromPdp(uint32_t value) {
    return static_cast<uint32_t>(convertPdpType(wds_pdp_type_enum_v01(value)));
}
uint32_t fromCommon(uint32_t value) {
    return static_cast<uint32_t>(convertPdpType(wds_common_pdp_type_enum_v01(value)));
}

TEST(ConversionsTest, ModemValuesBecomeTheLibrarysAndUnknownOnesAreLogged) {
    const struct {
        const char* name;
        Convert convert;
        uint32_t value, expected;
        const char* line;  // null: none
    } cases[] = {
        {"3GPP", fromProfileType, 0, 0, nullptr},
        {"3GPP2", fromProfileType, 1, 1, nullptr},
        {"profile type 2", fromProfileType, 2, 0, "Unknown tech type 2"},
        {"profile type all ones", fromProfileType, kUnknown, 0, "Unknown tech type -1"},
        {"PDN V4", fromPdn, 0, 1, nullptr},
        {"PDN V6", fromPdn, 1, 2, nullptr},
        {"PDN V4V6", fromPdn, 2, 3, nullptr},
        {"PDN unspecified", fromPdn, 3, 0, nullptr},
        {"PDN 4", fromPdn, 4, 0, "Unknown profile_pdn_type_enum 4"},
        {"PDN all ones", fromPdn, kUnknown, 0, "Unknown profile_pdn_type_enum -1"},
        {"PDP V4", fromPdp, 0, 1, nullptr},
        {"PDP PPP", fromPdp, 1, 0, "Unknown pdp_type_enum 1"},
        {"PDP V6", fromPdp, 2, 2, nullptr},
        {"PDP V4V6", fromPdp, 3, 3, nullptr},
        {"PDP 4", fromPdp, 4, 0, "Unknown pdp_type_enum 4"},
        {"PDP all ones", fromPdp, kUnknown, 0, "Unknown pdp_type_enum -1"},
        {"common V4", fromCommon, 0, 1, nullptr},
        {"common V6", fromCommon, 1, 2, nullptr},
        {"common V4V6", fromCommon, 2, 3, nullptr},
        {"common 3", fromCommon, 3, 0, "Unknown pdp_type_enum 3"},
        {"common not set", fromCommon, 255, 0, "Unknown pdp_type_enum 255"},
        {"common all ones", fromCommon, kUnknown, 0, "Unknown pdp_type_enum -1"},
    };
    RecordedLog log;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        log.clear();

        EXPECT_EQ(c.convert(c.value), c.expected);

        if (c.line) {
            EXPECT_THAT(log.lines(), ElementsAre(Line{LOG_DEBUG, c.line}));
        } else {
            EXPECT_THAT(log.lines(), IsEmpty());
        }
    }
}

TEST(ConversionsTest, IPTypesGoOutInThreeNumberingsAndUnknownOnesAsDualStack) {
    const struct {
        const char* name;
        uint32_t type, pdn, pdp, common;
    } cases[] = {{"UNKNOWN, which the common form alone can say", 0, 2, 3, 255},
                 {"V4", 1, 0, 0, 0},
                 {"V6", 2, 1, 2, 1},
                 {"V4V6", 3, 2, 3, 2},
                 {"4", 4, 2, 3, 2},
                 {"all ones", kUnknown, 2, 3, 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(uint32_t{convertToZapProfilePdnType(IPType(c.type))}, c.pdn);
        EXPECT_EQ(uint32_t{convertToZapPdpType(IPType(c.type))}, c.pdp);
        EXPECT_EQ(uint32_t{convertToZapCommonPdpType(IPType(c.type))}, c.common);
    }
}

TEST(ConversionsTest, AuthPreferenceKeepsTwoBitsAndAuthProtocolOnlyKnownValues) {
    const struct {
        uint32_t value, preference, protocol;
    } cases[] = {{0, 0, 0}, {1, 1, 1}, {2, 2, 2},   {3, 3, 3},
                 {4, 0, 0}, {5, 1, 0}, {255, 3, 0}, {kUnknown, 3, 0}};
    RecordedLog log;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value);
        EXPECT_EQ(convertToAuthType(static_cast<unsigned char>(c.value)), AuthType(c.preference));
        EXPECT_EQ(convertToZapAuthPref(AuthType(c.value)), c.preference);
        EXPECT_EQ(convertToAuthType(wds_profile_auth_protocol_enum_v01(c.value)),
                  AuthType(c.protocol));
        EXPECT_EQ(uint32_t{convertToZapAuthProtocol(AuthType(c.value))}, c.protocol);
        EXPECT_EQ(uint32_t{convertToZapPdnLevelAuthProtocol(AuthType(c.value))}, c.protocol);
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

// What each side calls its bits, from the lowest up.
constexpr std::string_view kOurBits[] = {"default", "mms", "supl", "dun",       "hipri", "fota",
                                         "ims",     "cbs", "ia",   "emergency", "mcx",   "xcap"};
constexpr std::string_view kModemBits[] = {"default", "ims", "mms", "dun",       "supl", "hipri",
                                           "fota",    "cbs", "ia",  "emergency", "xcap", "mcx"};

unsigned toModemBits(unsigned ours) {
    unsigned modems = 0;
    for (unsigned bit = 0; bit < std::size(kOurBits); ++bit) {
        if (!(ours & (1u << bit))) continue;
        const auto* const place =
            std::find(std::begin(kModemBits), std::end(kModemBits), kOurBits[bit]);
        modems |= 1u << (place - kModemBits);
    }
    return modems;
}

TEST(ConversionsTest, ApnTypeMasksMapBitByBitBothWays) {
    for (unsigned ours = 0; ours < 0x1000; ++ours) {
        const unsigned modems = toModemBits(ours);
        ASSERT_EQ(convertToZapApnTypeMask(ours), modems) << ours;
        ASSERT_EQ(convertToZapApnTypeMask(ours | 0xFFFFF000), modems) << ours;
        ASSERT_EQ(convertToCommonApnTypeMask(modems), ours) << modems;
        ASSERT_EQ(convertToCommonApnTypeMask(modems | 0xFFFFFFFFFFFFF000), ours) << modems;
    }
    EXPECT_EQ(convertToZapApnTypeMask(0x840), 0x402u);
}

TEST(ConversionsTest, SingleApnTypesMapAndAnythingElseIsZero) {
    for (unsigned value = 0; value < 0x2000; ++value) {
        const bool single = value && (value & (value - 1)) == 0 && value < 0x1000;
        ASSERT_EQ(convertToSingleZapApnType(ApnTypes(value)), single ? toModemBits(value) : 0u);
        if (single) {
            ASSERT_EQ(uint32_t{convertToSingleCommonApnType(toModemBits(value))}, value);
        } else {
            ASSERT_EQ(uint32_t{convertToSingleCommonApnType(value)}, 0u);
        }
    }
    EXPECT_EQ(uint32_t{convertToSingleCommonApnType(0x100000001)}, 0u);  // not cut to 32 bits
}

TEST(ConversionsTest, LowerCaseChangesTheCapitalsOfAsciiAlone) {
    std::string all, expected;
    for (int byte = 0; byte < 256; ++byte) {
        all += static_cast<char>(byte);
        expected += static_cast<char>(byte >= 65 && byte <= 90 ? byte + 32 : byte);
    }

    EXPECT_EQ(convertToLower(all), expected);
}

TEST(ConversionsTest, ApnNamesAreCutTo150CharactersInLowerCase) {
    for (const size_t length : {0u, 1u, 149u, 150u, 151u, 200u}) {
        SCOPED_TRACE(length);
        EXPECT_EQ(convertToApnName(std::string(length, 'Q')),
                  std::string(std::min<size_t>(length, 150), 'q'));
    }
}

TEST(ConversionsTest, IdentifierHasTypeThenIndexByteAndNoOtherBits) {
    const struct {
        const char* name;
        TechType techType;
        int profileId;
        uint64_t expected;
    } cases[] = {{"3GPP", TechType::TECH_3GPP, 5, 0x500000000},
                 {"3GPP2", TechType::TECH_3GPP2, 5, 0x500000001},
                 {"3GPP2, index 0", TechType::TECH_3GPP2, 0, 1},
                 {"last index", TechType::TECH_3GPP, 255, 0xFF00000000},
                 {"index beyond a byte", TechType::TECH_3GPP, 256, 0},
                 {"no index yet", TechType::TECH_3GPP2, -1, 0xFF00000001},
                 {"unknown type", TechType(2), 1, 0x100000000},
                 {"unknown odd type", TechType(3), 1, 0x100000000}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        wds_profile_identifier_type_v01 identifier;
        memset(&identifier, 0xAA, sizeof identifier);

        convertToProfileIdentifier(c.techType, c.profileId, identifier);

        EXPECT_EQ(convertToProfileIdentifier(c.techType, c.profileId), c.expected);
        EXPECT_EQ(bytesOf(identifier), u64(c.expected));  // the padding too
        if (c.techType == TechType::TECH_3GPP2) {
            Modem3gpp2Profile profile({});
            profile.setProfileId(c.profileId);
            EXPECT_EQ(profile.constructProfileIdentifier(), c.expected);
        }
    }
}

}  // namespace
}  // namespace zem
