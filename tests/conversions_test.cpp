#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include "ProfileConversions.h"
#include "TestLog.h"

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

}  // namespace
}  // namespace zem
