// Steps of the library on the benchmark's own thread, without the hand-off that would hide them.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "CountingWriter.h"
#include "FilledModem.h"
#include "LoggedText.h"
#include "Modem3gppProfile.h"
#include "ProfileBuilders.h"
#include "ProfileCache.h"
#include "SteppedLoop.h"
#include "Variadic.h"

namespace {

using benchmark::RegisterBenchmark;
using softmodem::SoftModem;
using softmodem::Tech;
using zem::FilterProfileParams;
using zem::kFull;
using zem::with;

void keptLine(benchmark::State& state, const char* zone) {
    zem::setTimeZone(zone);
    zem::CountingWriter::install();
    for (auto _ : state) {
        zem::LogWrapper::getInstance().log(zem::LOG_API, zem::kLogTag, "Manager::match > %s",
                                           zem::kLoggedText);
    }
}
BENCHMARK_CAPTURE(keptLine, TZ, "UTC")->UseRealTime();
BENCHMARK_CAPTURE(keptLine, noTZ, nullptr)->UseRealTime();

void formatLine(benchmark::State& state) {
    char text[512];
    for (auto _ : state) {
        zem::formatInto(text, sizeof text, "Manager::match > %s", zem::kLoggedText);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(formatLine)->UseRealTime();

void droppedLineByMacro(benchmark::State& state) {
    zem::LogWrapper::getInstance().setLogWriter(nullptr);
    for (auto _ : state) ZEM_LOG(LOG_DEBUG, "%s", zem::kLoggedText);
}
BENCHMARK(droppedLineByMacro)->UseRealTime();

void droppedLineByCall(benchmark::State& state) {
    zem::LogWrapper::getInstance().setLogWriter(nullptr);
    zem::LogWrapper& log = zem::LogWrapper::getInstance();
    for (auto _ : state) log.log(zem::LOG_DEBUG, zem::kLogTag, "%s", zem::kLoggedText);
}
BENCHMARK(droppedLineByCall)->UseRealTime();

void emptyCall(benchmark::State& state) {
    for (auto _ : state) zem::doNothing(zem::LOG_DEBUG, zem::kLogTag, "%s", zem::kLoggedText);
}
BENCHMARK(emptyCall)->UseRealTime();

std::shared_ptr<zem::Modem3gppProfile> fullProfile() {
    auto profile = std::make_shared<zem::Modem3gppProfile>(zem::everySetting());
    profile->setProfileName("zem_profile");
    profile->setProfileId(1);
    return profile;
}

void dump(benchmark::State& state) {
    const auto profile = fullProfile();
    for (auto _ : state) benchmark::DoNotOptimize(profile->dump());
}
BENCHMARK(dump)->UseRealTime();

void appendPieces(benchmark::State& state) {
    const std::string text = fullProfile()->dump();
    // "Label=", "value" and "," by turns.
    std::vector<std::string_view> pieces;
    for (std::string_view rest = text; !rest.empty();) {
        const size_t label = rest.find('=') + 1, item = rest.find(',');
        for (const auto& piece :
             {rest.substr(0, label), rest.substr(label, item - label), rest.substr(item, 1)}) {
            pieces.push_back(piece);
        }
        rest.remove_prefix(item + 1);
    }
    for (auto _ : state) {
        std::string copy;
        for (const auto& piece : pieces) copy.append(piece);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(appendPieces)->UseRealTime();

// A cache that has read all that the modem stores. Nobody hears of its keys' end.
class OwnCache {
  public:
    OwnCache() : cache(stepped.loop, 0, [](const auto&) { return nullptr; }) {
        zem::CountingWriter::install();
        // That the service is up, and then that the profiles are ready.
        for (int step = 0; step < 2; ++step) {
            SoftModem::instance().waitUntilIdle();
            stepped.pass();
        }
        if (cache.filter({}).size() != SoftModem::instance().profiles().size()) abort();
    }

    zem::SteppedLoop stepped;
    zem::ProfileCache cache;
};

// The asked differ from the stored as late as they can.
const char* const kStoredName = "internet.operator.examplea";
const char* const kAskedName = "internet.operator.exampleb";

void fillWithEverySetting() {
    zem::filledModem({0, 0});
    const softmodem::Fields fields = {{"profile_name", "another's"},
                                      {"apn_name", kStoredName},
                                      {"username", "subscriber-a"},
                                      {"password", "long-secret-a"},
                                      {"authentication_preference", 1u},
                                      {"pdp_type", 0u},
                                      {"lte_roaming_pdp_type", 0u},
                                      {"umts_roaming_pdp_type", 0u},
                                      {"override_home_pdp_type", 0u},
                                      {"apn_type_mask", 1u},
                                      {"apn_class", 3u},
                                      {"clat_enabled", 0u},
                                      {"max_pdn_conn_per_block", 1u},
                                      {"max_pdn_conn_timer", 1u},
                                      {"pdn_req_wait_interval", 1u},
                                      {"apn_disabled", 0u},
                                      {"supports_emergency_calls", 0u}};
    for (size_t i = 0; i < kFull; ++i) zem::store({Tech::k3gpp, 0, fields});
}

const struct Criterion {
    const char* name;
    FilterProfileParams filter;
} kCriteria[] = {
    {"apnEqual/lower", with<FilterProfileParams>(zem::apn(kAskedName))},
    {"apnEqual/upper", with<FilterProfileParams>(zem::apn("INTERNET.OPERATOR.EXAMPLEB"))},
    {"apnSubset",
     with<FilterProfileParams>(zem::apn(kAskedName), zem::criteria(zem::MATCH_APN_NAME_SUBSET))},
    {"other/user name", with<FilterProfileParams>(zem::user("subscriber-b"))},
    {"other/password", with<FilterProfileParams>(zem::password("long-secret-b"))},
    {"other/auth type", with<FilterProfileParams>(zem::auth(zem::AuthType::CHAP))},
    {"other/home IP", with<FilterProfileParams>(zem::home(zem::V6))},
    {"other/home IP subset",
     with<FilterProfileParams>(zem::home(zem::V6), zem::criteria(zem::MATCH_HOME_IP_SUBSET))},
    {"other/home IP superset",
     with<FilterProfileParams>(zem::home(zem::V6), zem::criteria(zem::MATCH_HOME_IP_SUPERSET))},
    {"other/roam IP", with<FilterProfileParams>(zem::roam(zem::V6))},
    {"other/roam IP subset",
     with<FilterProfileParams>(zem::roam(zem::V6), zem::criteria(zem::MATCH_ROAM_IP_SUBSET))},
    {"other/roam IP superset",
     with<FilterProfileParams>(zem::roam(zem::V6), zem::criteria(zem::MATCH_ROAM_IP_SUPERSET))},
    {"other/APN types", with<FilterProfileParams>(zem::apnTypes(0xFFEu))},
    {"other/APN types subset",
     with<FilterProfileParams>(zem::apnTypes(0xFFEu), zem::criteria(zem::MATCH_APN_TYPES_SUBSET))},
    {"other/APN class", with<FilterProfileParams>(zem::apnClass(zem::ApnClass::IMS))},
    {"other/CLAT", with<FilterProfileParams>(zem::clat(true))},
    {"other/profile id", with<FilterProfileParams>(zem::idIs(256))},
    {"other/tech type", with<FilterProfileParams>(zem::techIs(zem::TechType::TECH_3GPP2))},
    {"other/zem profile", with<FilterProfileParams>(zem::isZem(true))},
    {"other/IA profile", with<FilterProfileParams>(zem::isIA(true))},
    {"other/max PDNs", with<FilterProfileParams>(zem::maxPdns(2))},
    {"other/max timer", with<FilterProfileParams>(zem::maxTimer(2))},
    {"other/wait interval", with<FilterProfileParams>(zem::interval(2))},
    {"other/APN disabled", with<FilterProfileParams>(zem::disabled(true))},
    {"other/emergency", with<FilterProfileParams>(zem::emergency(true))},
};

void filterBy(benchmark::State& state, const FilterProfileParams& filter) {
    fillWithEverySetting();
    OwnCache own;
    if (!own.cache.filter(filter).empty()) state.SkipWithError("a hit");
    for (auto _ : state) benchmark::DoNotOptimize(own.cache.filter(filter));
}

void compareNames(benchmark::State& state) {
    std::vector<size_t> order(kFull);
    for (size_t i = 0; i < kFull; ++i) order[i] = i;
    std::shuffle(order.begin(), order.end(), std::mt19937(1));
    std::vector<std::string> stored(kFull);
    for (const size_t i : order) stored[i] = kStoredName;
    const std::string asked = kAskedName;
    for (auto _ : state) {
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(std::count(stored.begin(), stored.end(), asked));
    }
}

const bool registered = [] {
    RegisterBenchmark("compareNames", compareNames)->UseRealTime();
    for (const auto& criterion : kCriteria) {
        RegisterBenchmark((std::string("filter/") + criterion.name).c_str(), filterBy,
                          criterion.filter)
            ->UseRealTime();
    }
    return true;
}();

// Among the profiles of both technologies, as many of each.
void fillHalves(const benchmark::State& state) {
    const auto half = static_cast<size_t>(state.range(0)) / 2;
    zem::filledModem({half, half});
}

void filterGrowth(benchmark::State& state) {
    fillHalves(state);
    OwnCache own;
    const auto filter = with<FilterProfileParams>(zem::apn(zem::apnNameOf(kFull)));
    for (auto _ : state) benchmark::DoNotOptimize(own.cache.filter(filter));
}
BENCHMARK(filterGrowth)->Arg(8)->Arg(32)->Arg(128)->Arg(2 * kFull)->UseRealTime();

// A change behind the library's back, from the change to the end of the turn that absorbs it.
void indicationGrowth(benchmark::State& state) {
    fillHalves(state);
    OwnCache own;
    zem::UserNames userNames;
    for (auto _ : state) {
        SoftModem::instance().modifyProfile({Tech::k3gpp, 1, {{"username", userNames.next()}}});
        own.stepped.loop.processEvents();
    }
}
BENCHMARK(indicationGrowth)->Arg(8)->Arg(32)->Arg(128)->Arg(2 * kFull)->UseRealTime();

}  // namespace
