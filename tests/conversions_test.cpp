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
uint32_t fromAuthProtocol(uint32_t value) {
    return static_cast<uint32_t>(convertToAuthType(wds_profile_auth_protocol_enum_v01(value)));
}
uint32_t fromCommon(uint32_t value) {
    return static_cast<uint32_t>(convertPdpType(wds_common_pdp_type_enum_v01(value)));
}

TEST(ConversionsTest, ValuesThatNobodyDefinedAreLogged) {
    const struct {
        Convert convert;
        uint32_t value;
        const char* line;
    } cases[] = {
        {fromProfileType, 2, "Unknown tech type 2"},
        {fromProfileType, kUnknown, "Unknown tech type -1"},
        {fromPdn, 4, "Unknown profile_pdn_type_enum 4"},
        {fromPdn, kUnknown, "Unknown profile_pdn_type_enum -1"},
        {fromPdp, WDS_PDP_TYPE_PPP_V01, "Unknown pdp_type_enum 1"},
        {fromPdp, kUnknown, "Unknown pdp_type_enum -1"},
        {fromCommon, 3, "Unknown pdp_type_enum 3"},
        {fromCommon, 255, "Unknown pdp_type_enum 255"},
        {fromAuthProtocol, 4, "Unknown auth_protocol_enum 4"},
        {fromAuthProtocol, kUnknown, "Unknown auth_protocol_enum -1"},
    };
    RecordedLog log;
    for (const auto& c : cases) {
        log.clear();
        EXPECT_EQ(c.convert(c.value), 0u) << c.line;
        EXPECT_THAT(log.lines(), ElementsAre(Line{LOG_DEBUG, c.line}));
    }
    log.clear();
    EXPECT_EQ(fromPdn(WDS_PROFILE_PDN_TYPE_UNSPECIFIED_V01), 0u);
    for (uint32_t protocol = 0; protocol <= 3; ++protocol) {
        EXPECT_EQ(fromAuthProtocol(protocol), protocol);
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
