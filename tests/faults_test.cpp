// Every request that an operation makes of the modem, gone wrong: what the caller is told, what is
// logged, what cache and modem hold, and that all works again once the modem does.

#include <zem/Util.h>

#include <algorithm>
#include <optional>

#include "ProfileBuilders.h"
#include "TestPhone.h"

namespace zem {
namespace {

using Profiles = std::multimap<std::string, std::string>;
using Texts = std::vector<std::string>;

constexpr unsigned kBind = 0x00AF, kRegister = 0x0003, kEvents = 0x00A7, kCreate = 0x0027,
                   kModify = 0x0028, kDelete = 0x0029, kList = 0x002A, kGet = 0x002B;
constexpr auto k3gpp = TechType::TECH_3GPP, k3gpp2 = TechType::TECH_3GPP2;

struct Operation {
    const char* name;
    std::vector<unsigned> requests;  // that it makes when nothing fails
    std::string answer, failure;     // what the caller is told then, and when any fails
    std::function<std::string()> run;
    bool fromDown = false;  // the modem is down before
};

// What is logged for a request of it that failed. Who asks to delete is told.
Texts errorsOf(const Operation& operation, unsigned messageId) {
    const std::map<unsigned, Texts> lines = {
        {kBind, {"Unable send bind req message"}},
        {kRegister, {"Unable send indication req message"}},
        {kEvents, {"Unable send config req message"}},
        {kCreate, {"Unable send ZAP_WDS_CREATE_PROFILE_REQ_V01 message"}},
        {kModify,
         {"Unable send ZAP_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01 message",
          "ProfileCache: failed to modify modem profile"}},
        {kDelete,
         {"Unable send ZAP_WDS_DELETE_PROFILE_REQ_V01 message",
          operation.answer.empty() ? "ProfileCache: failed to release profile"
                                   : "ProfileCache: Failed to remove profile"}},
        {kList, {"Unable send ZAP_WDS_GET_PROFILE_LIST_REQ_V01 message"}},
        {kGet, {"Unable send ZAP_WDS_GET_PROFILE_SETTINGS_REQ_V01 message"}},
    };
    return lines.at(messageId);
}

// How a request goes wrong; without a fault the modem restarts just before it.
struct Blow {
    const char* name;
    std::optional<FaultKind> fault;
};
constexpr Blow kBlows[] = {{"refused", FaultKind::kRefuse},
                           {"timed out", FaultKind::kTimeOut},
                           {"carried out, but not sent", FaultKind::kSendError},
                           {"modem down", FaultKind::kGoDown},
                           {"modem restarted", std::nullopt}};

// A request and the profile that it is about: "3GPP:1", "3GPP" for a list.
struct Asked {
    unsigned messageId;
    std::string about;
    bool operator==(const Asked& other) const {
        return messageId == other.messageId && about == other.about;
    }
};

struct View {
    Profiles cache, store;
};

class FaultsTest : public ManagedPhoneTest {
  protected:
    // Profiles of the modem's own and of the library's, in both technologies, and keys to them.
    void prepare(const Operation& operation) {
        own = kept = modems = last = nullptr;
        modem.reset();
        modem.setHurry(true);
        for (const softmodem::Profile& profile : std::vector<softmodem::Profile>{
                 {Tech::k3gpp, 1, {{"apn_name", "net"}, {"pdp_type", 0u}}},
                 {Tech::k3gpp, 2, {{"apn_name", "ims"}, {"apn_class", 1u}, {"pdp_type", 3u}}},
                 {Tech::k3gpp, 3, {{"apn_name", "net"}, {"pdp_type", 2u}}},
                 {Tech::k3gpp2,
                  0,
                  {{"apn_string_3gpp2", "net"}, {"apn_class_3gpp2", 1u}, {"pdn_type_3gpp2", 2u}}},
             }) {
            auto lasting = profile;
            lasting.fields["persistent"] = 1u;
            ASSERT_TRUE(modem.createProfileAt(lasting));
        }
        modem.createProfileAt({Tech::k3gpp, 4, {}});
        init();
        own = manager.addProfile(transient("own"));
        modem.deleteProfile(Tech::k3gpp, 4);  // a new profile gets this index, and never own's
        kept = manager.addProfile({named("kept"), true, k3gpp2, false});
        modems = manager.filter(with<FilterProfileParams>(techIs(k3gpp), idIs(1))).front();
        util.setProfileUpdateAllowed(false);
        settle();
        if (operation.fromDown) modem.goDown();
        settle();
        modem.clearRequests();
        recorder->clear();
    }

    View view() { return {cached(), stored()}; }

    std::vector<Asked> asked() const {
        std::vector<Asked> all;
        for (const auto& request : modem.requests()) {
            const auto& bytes = request.bytes;
            std::string about;
            const auto byteAt = [&bytes](size_t at) { return Tech(bytes.at(at)); };
            if (request.messageId == kList) {
                about = nameOf(byteAt(4), 0);
            } else if (request.messageId == kCreate) {  // the one of its technology that is new
                const auto tech = nameOf(byteAt(0), 0).substr(0, bytes.at(0) ? 6 : 5);
                for (const auto& [name, text] : after.store) {
                    if (name.rfind(tech, 0) == 0 && !before.store.count(name)) about = name;
                }
            } else if (request.messageId >= kModify && request.messageId <= kGet) {
                about = nameOf(byteAt(0), bytes.at(4));
            }
            all.push_back({request.messageId, about});
        }
        return all;
    }

    Texts errors() {
        Texts lines;
        for (const auto& line : recorder->lines()) {
            if (line.level == LOG_ERROR) lines.push_back(line.text);
        }
        std::sort(lines.begin(), lines.end());
        return lines;
    }

    void check(const Operation& operation);
    template <class Run>
    void check(const char* name, const std::vector<unsigned>& requests, const char* answer,
               const char* failure, const Run& run, bool fromDown = false) {
        check({name, requests, answer, failure, [&] { return tell(run); }, fromDown});
    }
    template <class Run>
    std::string tell(const Run& run) {
        using Result = decltype(run());
        if constexpr (std::is_same_v<Result, std::shared_ptr<IProfileKey>>) {
            return nameOf(last = run());
        } else if constexpr (std::is_same_v<Result, bool>) {
            return run() ? "true" : "false";
        } else {
            return run(), "";
        }
    }
    void strike(const Operation& operation, size_t number, const Blow& blow);
    std::vector<Asked> failuresOf(size_t number, const Blow& blow) const;
    void expectInLine();
    void expectAllWorks(bool wasUp, bool registered);

    Util util;
    std::shared_ptr<IProfileKey> own, kept, modems, last;
    // The operation without a failure.
    View before, after;
    std::vector<Asked> trace;
};

void FaultsTest::check(const Operation& operation) {
    SCOPED_TRACE(operation.name);
    ASSERT_NO_FATAL_FAILURE(prepare(operation));
    before = view();
    EXPECT_EQ(operation.run(), operation.answer);
    settle();
    after = view();
    EXPECT_EQ(errors(), Texts());
    EXPECT_EQ(pending(), Texts());
    trace = asked();
    std::vector<unsigned> ids;
    for (const auto& request : trace) ids.push_back(request.messageId);
    ASSERT_EQ(ids, operation.requests);
    for (size_t number = 0; number < trace.size(); ++number) {
        for (const auto& blow : kBlows) strike(operation, number, blow);
    }
}

// The requests that fail when that one does. A modem that is down fails all that come later; after
// some nothing is left to ask.
std::vector<Asked> FaultsTest::failuresOf(size_t number, const Blow& blow) const {
    auto done = asked();
    std::vector<Asked> failed = {done.at(number)};
    if (blow.fault != FaultKind::kGoDown) {
        const bool unbound = failed[0].messageId == kBind && blow.fault != FaultKind::kSendError;
        if (unbound) failed.insert(failed.end(), {{kRegister, ""}, {kEvents, ""}});
        return failed;
    }
    done.resize(number);
    failed.clear();
    for (const auto& request : trace) {  // in any order, where the engine chooses
        const auto same = std::find(done.begin(), done.end(), request);
        if (same != done.end()) {
            done.erase(same);
        } else if (std::find(failed.begin(), failed.end(), request) == failed.end()) {
            failed.push_back(request);
            if (request.messageId == kList || request.messageId == kEvents) break;
        }
    }
    return failed;
}

void FaultsTest::strike(const Operation& operation, size_t number, const Blow& blow) {
    SCOPED_TRACE(testing::Message() << "request " << number << " " << blow.name);
    ASSERT_NO_FATAL_FAILURE(prepare(operation));
    const bool lost = !blow.fault || blow.fault == FaultKind::kGoDown;
    size_t seen = 0;
    if (blow.fault) {
        modem.addFault({*blow.fault, 0, 1, static_cast<unsigned>(number)});
    } else {
        modem.setRequestHook([this, &seen, number](const softmodem::Request&) {
            if (seen++ == number) modem.restart();
        });
    }
    const auto told = operation.run();
    settle();
    const auto failed = failuresOf(number, blow);
    const auto is = [&failed](unsigned id) {
        return std::any_of(failed.begin(), failed.end(),
                           [id](const Asked& request) { return request.messageId == id; });
    };
    const bool registered = !is(kBind) && !is(kRegister) && !is(kEvents);
    const bool carriedOut = blow.fault == FaultKind::kSendError;

    auto logged = errors();
    Texts expected;
    for (const auto& request : failed) {
        const auto lines = errorsOf(operation, request.messageId);
        expected.insert(expected.end(), lines.begin(), lines.end());
    }
    std::sort(expected.begin(), expected.end());
    if (lost && number > 0) {  // a client takes its indications along, unread
        const auto unread =
            std::remove(logged.begin(), logged.end(), "Unable to decode the nr status ind message");
        logged.erase(unread, logged.end());
    }
    if (blow.fault) {
        EXPECT_EQ(told, operation.failure);
        EXPECT_EQ(logged, expected);
        View wanted = after;
        for (const auto& [id, about] : failed) {
            const bool change = id == kCreate || id == kModify || id == kDelete;
            if (carriedOut && (change || id == kBind || id == kRegister || id == kEvents)) continue;
            if (!registered) wanted.cache = before.cache;  // nobody says that the modem is ready
            const auto takeBack = [&about = about](Profiles& part, const Profiles& was) {
                part.erase(about);
                const auto [begin, end] = was.equal_range(about);
                part.insert(begin, end);
            };
            if (change) {
                takeBack(wanted.cache, before.cache);
                takeBack(wanted.store, before.store);
            }
            if (id == kGet && wanted.cache.erase(about)) wanted.cache.emplace("null", "null");
            for (const auto& [name, text] : after.cache) {
                const bool behind = about == "3GPP:0" || name.rfind("3GPP2:", 0) == 0;
                if (id == kList && behind) wanted.cache.erase(name);
            }
        }
        EXPECT_EQ(cached(), wanted.cache);
        EXPECT_EQ(stored(), wanted.store);
        if (!lost) {
            EXPECT_EQ(pending(), Texts());
        }
    } else {
        // What comes later meets the modem before its return or after, with keys that have expired.
        EXPECT_TRUE(told == operation.failure || told == operation.answer) << told;
        EXPECT_TRUE(std::includes(logged.begin(), logged.end(), expected.begin(), expected.end()));
        Texts allowed = {"ProfileCache: token is not present or expired",
                         "Error while modifying profile by APN class"};
        for (const auto& request : trace) {
            const auto lines = errorsOf(operation, request.messageId);
            allowed.insert(allowed.end(), lines.begin(), lines.end());
        }
        for (const auto& line : logged)
            EXPECT_GT(std::count(allowed.begin(), allowed.end(), line), 0) << line;
    }
    expectAllWorks(!lost, registered || carriedOut);
}

// Every profile of the modem is cached as it was when it last looked like this.
void FaultsTest::expectInLine() {
    Profiles wanted;
    for (const auto& [name, text] : stored()) {
        const auto now = after.store.find(name);
        const bool isAfter = now != after.store.end() && now->second == text;
        const auto& seen = isAfter ? after.cache : before.cache;
        ASSERT_EQ(seen.count(name), 1u) << name;
        wanted.insert(*seen.find(name));
    }
    EXPECT_EQ(cached(), wanted);
}

void FaultsTest::expectAllWorks(bool wasUp, bool registered) {
    modem.setRequestHook(nullptr);
    modem.clearFaults();
    recorder->clear();
    if (!wasUp) {
        modem.comeUp();
    } else if (!registered) {
        modem.restart();
    } else {
        manager.refresh(COMPLETE);
    }
    settle();
    expectInLine();
    const auto key = manager.addProfile(transient("again"));
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(manager.getProfile(key)->getApnName(), "again");
    EXPECT_TRUE(manager.match(FilterProfileParams(named("again")), key));
    EXPECT_TRUE(manager.deleteProfile(key));
    settle();
    expectInLine();
    EXPECT_EQ(errors(), Texts());
}

TEST_F(FaultsTest, EveryRequestOfEveryOperationMayFailInEveryWay) {
    const auto params = [](const auto&... settings) { return with<ProfileParams>(settings...); };
    const ModifyProfileParams change(params(apn("new"), home(V6)));
    const auto known = params(apn("ims"), user("me"));
    const std::vector<unsigned> reads = {kList, kGet, kGet, kGet, kGet, kList, kGet, kGet};

    check("add", {kCreate}, "3GPP:4", "none", [&] { return manager.addProfile(transient("a")); });
    check("add 3GPP2", {kCreate}, "3GPP2:2", "none",
          [&] { return manager.addProfile(transient("a", k3gpp2)); });
    for (auto* key : {&modems, &own, &kept}) {
        check("modify", {kModify}, "true", "true",
              [&] { return manager.modifyProfile(change, *key); });
        check("delete", {kDelete}, "true", "false", [&] { return manager.deleteProfile(*key); });
    }
    check("drop the last key", {kDelete}, "", "", [&] { own.reset(); });
    check("drop keys of others", {}, "", "", [&] { modems = kept = nullptr; });
    check("ask the cache", {}, "true", "", [&] {
        return manager.match({}, own) && manager.filter({}).size() == 6 &&
               manager.getProfile(own) && util.matchLteAttachProfileId(1, named("net"));
    });
    check("refresh", reads, "", "", [&] { manager.refresh(COMPLETE); });

    check("set up a call with a new profile", {kCreate}, "3GPP:4", "none",
          [&] { return util.findOrCreateProfileForSetupDataCall(k3gpp, named("new")); });
    check("set up a call with a known one", {kModify}, "3GPP:2", "3GPP:2", [&] {
        util.setProfileUpdateAllowed(true);
        return util.findOrCreateProfileForSetupDataCall(k3gpp, known);
    });
    check("emergency call", {kCreate}, "3GPP:4", "none",
          [&] { return util.findOrCreateProfileForEmergencyDataCall(named("sos")); });
    check("attach with a new profile", {kCreate}, "3GPP:4", "none",
          [&] { return util.findOrCreateProfileForLteAttach(named("lte")); });
    check("attach with a known one", {kModify}, "3GPP:2", "3GPP:2",
          [&] { return util.findOrCreateProfileForLteAttach(known); });
    check("bring classes in line", {kModify, kCreate, kModify, kCreate}, "", "", [&] {
        const auto ims = params(apnClass(ApnClass::IMS), user("me"));
        util.updateModemProfileByApnClass({ims, params(apnClass(ApnClass::INET), apn("inet"))},
                                          {ims, params(apnClass(ApnClass::APP), apn("app"))});
    });
    for (const bool combined : {false, true}) {
        check("bring masks in line", {kModify, kModify, kModify}, "", "", [&] {
            util.setProfileUpdateAllowed(combined);
            util.updateAPNTypeBitmaskOnModemProfile({params(apn("net"), apnTypes(0x40), home(V4)),
                                                     params(apn("net"), apnTypes(0x41), home(V6))});
        });
    }

    check(
        "service up", {kBind, kRegister, kEvents, kList, kGet, kGet, kGet, kList, kGet, kGet}, "",
        "", [&] { modem.comeUp(); }, true);
    check("modem is ready", reads, "", "",
          [&] { modem.indicate(0, 0, static_cast<uint32_t>(softmodem::Event::kProfileReady)); });
    check("modem creates", {kGet, kGet}, "", "", [&] {
        modem.createProfile({Tech::k3gpp, 0, {{"apn_name", "new"}, {"persistent", 1u}}});
    });
    check("modem modifies", {kGet}, "", "", [&] {
        modem.modifyProfile({Tech::k3gpp, 1, {{"apn_name", "new"}}});
    });
}

// The profile is then nobody's, and a later key to it is not the last.
TEST_F(FaultsTest, RefusedReleaseLeavesTheCountAsItWas) {
    prepare({});
    modem.addFault({FaultKind::kRefuse, kDelete});
    own = nullptr;
    own = manager.filter(FilterProfileParams(named("own"))).front();
    own = nullptr;
    EXPECT_EQ(sent(kDelete).size(), 1u);
}

}  // namespace
}  // namespace zem
