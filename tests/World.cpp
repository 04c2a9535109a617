#include "World.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

#include "ProfileBuilders.h"

namespace zem::model {
namespace {

using softmodem::Fields;

constexpr size_t kMostKeys = 16;
const std::string kLong(160, 'L');

const std::vector<std::string> kApns = {
    "net", "Net", "IMS", "ims.mnc", "", kLong.substr(0, 150), kLong.substr(0, 151)};
const std::vector<std::string> kUsers = {"u", "U", "", kLong.substr(0, 127), kLong.substr(0, 128)};
const std::vector<std::string> kPasswords = {"p", "%s%n", kLong.substr(0, 128)};
const std::vector<std::string> kProfileNames = {"zem_profile", "zem_profile_ia", "other", ""};
const uint64_t kMinusThree = ~uint64_t{2};
const std::map<std::string_view, std::vector<Value>> kParams = {
    {"ApnName", {kApns.begin(), kApns.end()}},
    {"UserName", {kUsers.begin(), kUsers.end()}},
    {"Password", {kPasswords.begin(), kPasswords.end()}},
    {"AuthType", {0u, 1u, 2u, 3u, 7u}},
    {"HomeIPType", {0u, 1u, 2u, 3u, 1u, 2u, 3u, 9u}},
    {"RoamIPType", {0u, 1u, 2u, 3u, 1u, 2u, 3u, 9u}},
    {"ApnTypesMask", {0u, 1u, 0x40u, 0x41u, 0x200u, 0xfffu, 0x1001u}},
    {"ApnClass", {1u, 2u, 3u, 4u, 9u, 0x101u}},
    {"IsClatEnabled", {0u, 1u}},
    {"MaxPdnsConnPerBlock", {0u, 1u, 70000u, kMinusThree}},
    {"MaxPdnConnTimer", {1u, 0xffffu, 0x7fffffffu}},
    {"PdnReqWaitInterval", {0u, 5u, kMinusThree}},
    {"IsApnDisabled", {0u, 1u}},
    {"IsEmergencySupported", {0u, 1u, 1u}},
};
const std::map<std::string_view, std::vector<Value>> kFields = {
    {"profile_name", {kProfileNames.begin(), kProfileNames.end()}},
    {"pdp_type", {0u, 1u, 2u, 3u, 3u, 7u}},
    {"apn_name", {"net", "NET", "ims", ""}},
    {"username", {"u", "V"}},
    {"password", {"p"}},
    {"authentication_preference", {0u, 1u, 3u, 6u}},
    {"apn_disabled", {0u, 1u, 2u}},
    {"apn_class", {1u, 2u, 3u, 255u}},
    {"supports_emergency_calls", {0u, 1u, 255u}},
    {"max_pdn_conn_per_block", {0u, 1u, 65535u}},
    {"max_pdn_conn_timer", {1u}},
    {"pdn_req_wait_interval", {5u, 65533u}},
    {"lte_roaming_pdp_type", {0u, 1u, 2u, 255u, 9u}},
    {"umts_roaming_pdp_type", {0u, 1u, 2u, 255u, 9u}},
    {"override_home_pdp_type", {0u, 1u, 2u, 255u, 9u}},
    {"persistent", {0u, 1u, 2u}},
    {"auth_protocol_3gpp2", {0u, 1u, 3u, 4u}},
    {"user_id_3gpp2", {"u", "V"}},
    {"password_3gpp2", {"p"}},
    {"apn_string_3gpp2", {"net", "Ims"}},
    {"pdn_type_3gpp2", {0u, 1u, 2u, 3u, 4u}},
    {"apn_class_3gpp2", {1u, 2u, 3u}},
    {"apn_type_mask", {0u, 1u, 0x403u, 0x100000001u}},
    {"clat_enabled", {0u, 1u, 3u}},
};

Settings drawParams(Dice& dice, unsigned percent = 35) {
    Settings params;
    for (const auto& [label, values] : kParams) {
        if (dice.chance(percent)) params[label] = dice.pick(values);
    }
    return params;
}

std::vector<Settings> drawEntries(Dice& dice, size_t most) {
    std::vector<Settings> entries(dice.below(most) + 1);
    for (auto& entry : entries) {
        entry = drawParams(dice);
        entry["ApnClass"] = dice.below(4) + 1;
    }
    return entries;
}

Fields drawFields(Dice& dice, Tech tech) {
    static const std::vector<std::string> names[] = {softmodem::fieldNames(Tech::k3gpp),
                                                     softmodem::fieldNames(Tech::k3gpp2)};
    Fields fields;
    for (const auto& name : names[static_cast<size_t>(tech)]) {
        const auto values = kFields.find(name);
        if (values != kFields.end() && dice.chance(35)) fields[name] = dice.pick(values->second);
    }
    return fields;
}

Tech drawTech(Dice& dice) {
    return dice.chance(70) ? Tech::k3gpp : Tech::k3gpp2;
}

Filter drawFilter(Dice& dice) {
    Filter filter;
    filter.settings = drawParams(dice, 6);
    if (dice.chance(25)) filter.tech = drawTech(dice);
    if (dice.chance(10)) filter.id = static_cast<int>(dice.below(5));
    if (dice.chance(10)) filter.isZem = dice.chance(50);
    if (dice.chance(10)) filter.isIA = dice.chance(50);
    if (dice.chance(50)) filter.criteria = dice.below(64);
    return filter;
}

TechType toTechType(Tech tech) {
    return tech == Tech::k3gpp ? TechType::TECH_3GPP : TechType::TECH_3GPP2;
}

FilterProfileParams toFilter(const Filter& filter) {
    FilterProfileParams params(toParams(filter.settings));
    if (filter.tech) params.setFilterByTechType(toTechType(*filter.tech));
    if (filter.id) params.setFilterByProfileId(*filter.id);
    if (filter.isZem) params.setFilterByIsZemProfile(*filter.isZem);
    if (filter.isIA) params.setFilterByIsIAProfile(*filter.isIA);
    params.addFilterMatchCriteria(filter.criteria);
    return params;
}

std::list<ProfileParams> toList(const std::vector<Settings>& entries) {
    std::list<ProfileParams> list;
    for (const auto& entry : entries) list.push_back(toParams(entry));
    return list;
}

std::string dumpOf(const std::shared_ptr<IProfileKey>& key) {
    return key ? key->dump() : "none";
}
std::string dumpOf(const MaybeKey& key) {
    return key ? key->dump() : "none";
}

}  // namespace

uint64_t Dice::next() {
    uint64_t mixed = state += 0x9e3779b97f4a7c15;
    mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111eb;
    return mixed ^ (mixed >> 31);
}

// What the library's threads say; outlives the world as long as one of them may.
struct World::Seen {
    class Writer : public LogWriter {
      public:
        explicit Writer(std::shared_ptr<Seen> seen) : seen(std::move(seen)) {}

        void write(LogLevel level, std::string, std::string message) override {
            if (level == LOG_VERBOSE && message.find("is processing events") != std::string::npos)
                ++seen->handled;
            if (level != LOG_ERROR) return;
            const std::lock_guard lock(seen->mutex);
            seen->errors.push_back(std::move(message));
        }
        int convertPrio(LogLevel level) override { return static_cast<int>(level); }

      private:
        const std::shared_ptr<Seen> seen;
    };

    std::atomic<size_t> handled{0};
    std::mutex mutex;
    std::vector<std::string> errors;
    std::vector<std::string> fired;
};

// One of each kind that a step may be. What it does, it does to the model first.
struct Operations {
    struct Operation {
        const char* name;
        unsigned weight;
        bool mayFail;    // with a request that goes wrong
        bool mayGoDown;  // not where the modem itself is the one to act
        void (*run)(World&, Dice&);
    };
    static const std::vector<Operation>& all();
    static constexpr unsigned kRefresh = 8;  // its place there

    static void add(World& w, Dice& dice) {
        const Settings params = drawParams(dice);
        const bool persistent = dice.chance(30);
        const unsigned tech = dice.chance(3) ? 5 : static_cast<unsigned>(drawTech(dice));
        const bool isIA = dice.chance(25);
        w.words += dumpParams(params) + (persistent ? " persistent" : "") + (isIA ? " ia" : "") +
                   " tech " + std::to_string(tech);
        const auto expected = w.model.addProfile(params, persistent, tech, isIA);
        w.take("key", expected,
               w.manager.addProfile({toParams(params), persistent, TechType(tech), isIA}));
    }

    static void modify(World& w, Dice& dice) {
        std::shared_ptr<IProfileKey> key;
        const MaybeKey modelKey = w.drawKey(dice, key);
        const Settings params = drawParams(dice, 15);
        w.words += dumpParams(params);
        const bool expected = w.model.modifyProfile(params, modelKey);
        w.compare("answer", expected,
                  w.manager.modifyProfile(ModifyProfileParams(toParams(params)), key));
    }

    static void remove(World& w, Dice& dice) {
        std::shared_ptr<IProfileKey> key;
        const bool expected = w.model.deleteProfile(w.drawKey(dice, key));
        w.compare("answer", expected, w.manager.deleteProfile(key));
    }

    static void get(World& w, Dice& dice) {
        std::shared_ptr<IProfileKey> key;
        const auto expected = w.model.getProfile(w.drawKey(dice, key));
        const auto actual = w.manager.getProfile(key);
        w.compare("profile", expected ? dumpParams(*expected) : "none",
                  actual ? actual->dump() : "none");
    }

    static void match(World& w, Dice& dice) {
        std::shared_ptr<IProfileKey> key;
        const MaybeKey modelKey = w.drawKey(dice, key);
        const Filter filter = drawFilter(dice);
        w.words += toFilter(filter).dump();
        const bool expected = w.model.match(filter, modelKey);
        w.tally["matches"] += expected;
        w.compare("answer", expected, w.manager.match(toFilter(filter), key));
    }

    static void filter(World& w, Dice& dice) {
        const Filter filter = drawFilter(dice);
        w.words += toFilter(filter).dump();
        const auto expected = w.model.filter(filter);
        auto actual = w.manager.filter(toFilter(filter));
        w.compare("number of keys", std::to_string(expected.size()), std::to_string(actual.size()));
        auto key = actual.begin();
        for (size_t i = 0; i < expected.size() && key != actual.end(); ++i, ++key)
            w.take("key", expected[i], *key);
        actual.clear();
        while (w.keys.size() > kMostKeys) w.dropKey(dice.below(w.keys.size()), false);
    }

    static void drop(World& w, Dice& dice) {
        if (!w.keys.empty()) w.dropKey(dice.below(w.keys.size()), dice.chance(10));
    }

    static void listen(World& w, Dice& dice) {
        std::shared_ptr<IProfileKey> key;
        const MaybeKey modelKey = w.drawKey(dice, key);
        if (!key) return;
        const unsigned listener = w.nextListener++;
        w.words += " listener " + std::to_string(listener);
        w.model.listen(*modelKey, listener);
        key->registerExpirationListener([seen = w.seen, listener] {
            const std::lock_guard lock(seen->mutex);
            seen->fired.push_back(std::to_string(listener));
        });
    }

    static void refresh(World& w, Dice& dice) {
        const bool start = !w.model.isRefreshing() && dice.chance(40);
        w.words += start ? "START" : "COMPLETE";
        w.model.refresh(start);
        w.manager.refresh(start ? START : COMPLETE);
    }

    static void allow(World& w, Dice& dice) {
        const bool allowed = dice.chance(50);
        w.words += allowed ? "yes" : "no";
        w.model.setProfileUpdateAllowed(allowed);
        w.util.setProfileUpdateAllowed(allowed);
    }

    static void setupDataCall(World& w, Dice& dice) {
        const Tech tech = drawTech(dice);
        const Settings params = drawParams(dice, 25);
        w.words += dumpParams(params) + " tech " + std::to_string(static_cast<unsigned>(tech));
        const auto expected = w.model.setupDataCall(tech, params);
        w.take("key", expected,
               w.util.findOrCreateProfileForSetupDataCall(toTechType(tech), toParams(params)));
    }

    static void emergencyCall(World& w, Dice& dice) {
        const Settings params = drawParams(dice, 25);
        w.words += dumpParams(params);
        const auto expected = w.model.emergencyCall(params);
        w.take("key", expected, w.util.findOrCreateProfileForEmergencyDataCall(toParams(params)));
    }

    static void lteAttach(World& w, Dice& dice) {
        const Settings params = drawParams(dice, 25);
        w.words += dumpParams(params);
        const auto expected = w.model.lteAttach(params);
        w.take("key", expected, w.util.findOrCreateProfileForLteAttach(toParams(params)));
    }

    static void matchAttach(World& w, Dice& dice) {
        const int id = static_cast<int>(dice.below(5));
        const Settings params = drawParams(dice, 8);
        w.words += std::to_string(id) + " " + dumpParams(params);
        const bool expected = w.model.matchLteAttach(id, params);
        w.tally["attach profiles that match"] += expected;
        w.compare("answer", expected, w.util.matchLteAttachProfileId(id, toParams(params)));
    }

    static void byApnClass(World& w, Dice& dice) {
        const Tech tech = drawTech(dice);
        const auto entries = drawEntries(dice, 3);
        for (const auto& entry : entries) w.words += "\n    " + dumpParams(entry);
        w.model.updateByApnClass(tech, entries);
        if (tech == Tech::k3gpp) {
            w.util.updateModemProfileByApnClass(toList(entries), {});
        } else {
            w.util.updateModemProfileByApnClass({}, toList(entries));
        }
    }

    static void apnTypes(World& w, Dice& dice) {
        const auto entries = drawEntries(dice, 4);
        for (const auto& entry : entries) w.words += "\n    " + dumpParams(entry);
        w.model.updateApnTypes(entries);
        w.util.updateAPNTypeBitmaskOnModemProfile(toList(entries));
    }

    static void modemCreate(World& w, Dice& dice) {
        const Tech tech = drawTech(dice);
        const softmodem::Profile profile = {tech, dice.below(6), drawFields(dice, tech)};
        const bool anywhere = dice.chance(50);
        w.words += inWords(profile) + (anywhere ? " anywhere" : "");
        const std::optional<unsigned> at = anywhere ? std::nullopt : std::optional(profile.index);
        const bool expected = w.model.modemCreate(tech, at, profile.fields);
        const auto actual = anywhere ? w.modem.createProfile(profile, w.model.instance())
                                     : w.modem.createProfileAt(profile, w.model.instance());
        w.compare("answer", std::to_string(expected), std::to_string(actual.has_value()));
    }

    static void modemModify(World& w, Dice& dice) {
        const Tech tech = drawTech(dice);
        const softmodem::Profile changes = {tech, dice.below(6), drawFields(dice, tech)};
        w.words += inWords(changes);
        const bool expected = w.model.modemModify(tech, changes.index, changes.fields);
        w.compare("answer", expected, w.modem.modifyProfile(changes, w.model.instance()));
    }

    static void modemDelete(World& w, Dice& dice) {
        const Tech tech = drawTech(dice);
        const unsigned index = dice.below(6);
        w.words += inWords({tech, index, {}});
        const bool expected = w.model.modemDelete(tech, index);
        w.compare("answer", expected, w.modem.deleteProfile(tech, index, w.model.instance()));
    }

    static void modemIndicate(World& w, Dice& dice) {
        const unsigned tech = dice.chance(5) ? 7 : static_cast<unsigned>(drawTech(dice));
        const unsigned index = dice.chance(5) ? 255 : dice.below(6);
        const unsigned event = dice.chance(10) ? dice.below(8) : dice.below(3) + 1;
        w.words +=
            std::to_string(tech) + ":" + std::to_string(index) + " event " + std::to_string(event);
        w.model.modemIndicate(tech, index, event);
        w.modem.indicate(tech, index, event, w.model.instance());
    }

    static void modemSwap(World& w, Dice&) {
        w.model.modemSwapSubscriptions();
        w.modem.swapSubscriptions(0, 1);
    }

    static void modemDown(World& w, Dice&) {
        w.model.modemDown();
        w.modem.goDown();
    }

    static void modemUp(World& w, Dice&) {
        w.model.modemUp();
        w.modem.comeUp();
    }

    static void modemRestart(World& w, Dice&) {
        w.model.modemDown();
        w.model.modemUp();
        w.modem.restart();
    }

    static void init(World& w, Dice& dice) {
        const unsigned instance = dice.below(2);
        w.words += std::to_string(instance);
        w.init(instance);
    }
};

const std::vector<Operations::Operation>& Operations::all() {
    static const std::vector<Operation> operations = {
        {"addProfile", 100, true, true, add},
        {"modifyProfile", 100, true, true, modify},
        {"deleteProfile", 40, true, true, remove},
        {"getProfile", 30, true, true, get},
        {"match", 30, true, true, match},
        {"filter", 80, true, true, filter},
        {"drop a key", 150, true, true, drop},
        {"registerExpirationListener", 60, true, true, listen},
        {"refresh", 15, true, true, refresh},
        {"setProfileUpdateAllowed", 20, true, true, allow},
        {"findOrCreateProfileForSetupDataCall", 60, true, true, setupDataCall},
        {"findOrCreateProfileForEmergencyDataCall", 40, true, true, emergencyCall},
        {"findOrCreateProfileForLteAttach", 60, true, true, lteAttach},
        {"matchLteAttachProfileId", 40, true, true, matchAttach},
        {"updateModemProfileByApnClass", 40, true, true, byApnClass},
        {"updateAPNTypeBitmaskOnModemProfile", 40, true, true, apnTypes},
        {"modem creates", 60, true, false, modemCreate},
        {"modem modifies", 60, true, false, modemModify},
        {"modem deletes", 40, true, false, modemDelete},
        {"modem indicates", 15, true, false, modemIndicate},
        {"modem swaps subscriptions", 3, true, false, modemSwap},
        {"modem goes down", 4, false, false, modemDown},
        {"modem comes up", 30, true, true, modemUp},
        {"modem restarts", 5, true, true, modemRestart},
        {"init", 3, false, false, init},
    };
    return operations;
}

Steps drawSteps(uint64_t seed, size_t count) {
    Dice dice(seed);
    std::vector<unsigned> lots;
    for (unsigned i = 0; i < Operations::all().size(); ++i)
        lots.insert(lots.end(), Operations::all()[i].weight, i);
    Steps steps(count);
    for (auto& step : steps) step = {dice.pick(lots), dice.next()};
    return steps;
}

World::World(Tally& tally)
    : model(ProfileCache::generateToken() + 1), seen(std::make_shared<Seen>()), tally(tally) {
    modem.reset();
    modem.setHurry(true);
    init(0);
    settle();
    model.settle();
}

World::~World() {
    modem.clearFaults();
    keys.clear();
    LogWrapper::getInstance().setLogWriter(nullptr);
}

// The library's own writer gives way at once: this step has no errors to miss.
void World::init(unsigned instance) {
    model.init(instance);
    manager.init(static_cast<int>(instance), false);
    LogWrapper::getInstance().setLogWriter(std::make_unique<Seen::Writer>(seen));
}

void World::settle() {
    bringToRest(
        modem, [this] { return seen->handled.load(); }, [this] { manager.getProfile(nullptr); });
}

std::vector<std::string> World::cacheDump() const {
    auto lines = manager.dump();
    lines.erase(std::find(lines.begin(), lines.end(), ""), lines.end());
    return lines;
}

std::string World::run(const Step& step) {
    static const FaultKind kKinds[] = {
        FaultKind::kRefuse,         FaultKind::kTimeOut,          FaultKind::kSendError,
        FaultKind::kLoseIndication, FaultKind::kRepeatIndication, FaultKind::kReorderIndications,
        FaultKind::kGoDown,
    };
    Dice dice(step.seed);
    // A refresh shuts everything out: not for too long.
    const bool goesOn = !model.isRefreshing() || dice.chance(85);
    const auto& operation = Operations::all()[goesOn ? step.operation : Operations::kRefresh];
    words = operation.name + std::string(": ");
    differences.clear();
    ++tally[operation.name];

    const bool fails = operation.mayFail && dice.chance(20);
    const FaultKind kind = dice.pick(kKinds);
    const unsigned skip = dice.chance(70) ? 0 : dice.below(4);
    const bool hit = fails && (operation.mayGoDown || kind != FaultKind::kGoDown);
    if (hit) {
        words += "(fault " + std::to_string(static_cast<int>(kind)) + " after " +
                 std::to_string(skip) + " requests) ";
        model.setFault(kind, skip);
        modem.addFault({FaultKind::kDelayIndication, 0, ~0u});
        modem.addFault({kind, 0, 1, skip});
    }
    operation.run(*this, dice);
    settle();
    if (hit) {
        if (kind == FaultKind::kGoDown) modem.clearFaults();
        modem.releaseIndications();
        settle();
        modem.clearFaults();
    }
    tally["faults met"] += hit && !model.hasFault();
    model.settle();
    if (!keys.empty()) {
        auto& [key, real] = keys[checked++ % keys.size()];
        const auto expected = model.getProfile(key);
        const auto actual = manager.getProfile(real);
        tally["keys that are good"] += expected.has_value();
        ++tally["keys looked at"];
        compare("profile of a key", expected ? dumpParams(*expected) : "none",
                actual ? actual->dump() : "none");
    }
    compareAll();
    return differences;
}

std::string World::finish() {
    while (!keys.empty() && differences.empty()) {
        words = "the last keys go: ";
        dropKey(0, false);
        settle();
        model.settle();
        compareAll();
    }
    return differences;
}

void World::compare(const char* what, bool expected, bool actual) {
    compare(what, std::to_string(expected), std::to_string(actual));
}

void World::compare(const char* what, const std::string& expected, const std::string& actual) {
    if (expected == actual) return;
    differences += std::string("  ") + what + ":\n    expected: " + expected +
                   "\n    but it is: " + actual + "\n";
}

void World::compare(const char* what, std::vector<std::string> expected,
                    std::vector<std::string> actual) {
    if (expected == actual) return;
    const bool onlyMoved =
        std::is_permutation(expected.begin(), expected.end(), actual.begin(), actual.end());
    differences += std::string("  ") + what + ":\n";
    if (onlyMoved) {
        for (const auto& line : actual) differences += "    out of order: " + line + "\n";
        return;
    }
    std::sort(expected.begin(), expected.end());
    std::sort(actual.begin(), actual.end());
    std::vector<std::string> missing;
    std::vector<std::string> extra;
    std::set_difference(expected.begin(), expected.end(), actual.begin(), actual.end(),
                        std::back_inserter(missing));
    std::set_difference(actual.begin(), actual.end(), expected.begin(), expected.end(),
                        std::back_inserter(extra));
    for (const auto& line : missing) differences += "    missing: " + line + "\n";
    for (const auto& line : extra) differences += "    extra:   " + line + "\n";
}

void World::compareAll() {
    for (const unsigned subscription : {0u, 1u}) {
        std::vector<std::string> lines;
        for (const auto& profile : modem.profiles(subscription)) lines.push_back(inWords(profile));
        compare("the modem's profiles", model.modemLines(subscription), lines);
    }
    auto lines = cacheDump();
    const auto pendingAt = std::find(lines.begin(), lines.end(), "Pending:");
    compare("the pending echoes", model.pendingLines(), {pendingAt + 1, lines.end()});
    compare("the cache", model.cacheLines(), {lines.begin() + 1, pendingAt});
    const auto counters = modem.counters();
    compare("open clients", std::to_string(model.hasClient()),
            std::to_string(counters.openClients));
    compare("open notifiers", std::to_string(!model.hasClient()),
            std::to_string(counters.openNotifiers));
    {
        const std::lock_guard lock(seen->mutex);
        compare("listeners called", model.fired, seen->fired);
        compare("error lines", model.errors, seen->errors);
        tally["listeners called"] += seen->fired.size();
        tally["error lines"] += seen->errors.size();
        seen->fired.clear();
        seen->errors.clear();
    }
    tally["unreadable profiles"] += std::count_if(lines.begin(), pendingAt, [](const auto& line) {
        return line.find(": null") != std::string::npos;
    });
    tally["echoes left"] += lines.end() - pendingAt - 1;
    model.fired.clear();
    model.errors.clear();
}

// One of those held, mostly of the newest, as older ones have often expired; or none.
MaybeKey World::drawKey(Dice& dice, std::shared_ptr<IProfileKey>& key) {
    const size_t newest = dice.chance(70) ? std::min<size_t>(keys.size(), 4) : keys.size();
    const size_t position = keys.size() - newest + dice.below(newest + 1);
    if (position == keys.size()) {
        words += "no key ";
        return std::nullopt;
    }
    key = keys[position].second;
    words += keys[position].first.dump() + " ";
    return keys[position].first;
}

void World::take(const char* what, const MaybeKey& expected,
                 const std::shared_ptr<IProfileKey>& key) {
    compare(what, dumpOf(expected), dumpOf(key));
    if (expected && key) keys.emplace_back(*expected, key);
}

void World::dropKey(size_t position, bool elsewhere) {
    auto [key, real] = std::move(keys[position]);
    keys.erase(keys.begin() + static_cast<std::ptrdiff_t>(position));
    words += key.dump() + " ";
    model.release(key);
    if (elsewhere) {
        std::thread([&real = real] { real.reset(); }).join();
    } else {
        real.reset();
    }
}

}  // namespace zem::model
