// Plays scenarios, and compares the journal of each with the one recorded in tests/journals.
//
// journal_test [--record] [NAME...]
#include <fcntl.h>
#include <softmodem/SoftModem.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zem/Manager.h>
#include <zem/Util.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <vector>

#include "CallbackRequest.h"
#include "ClientRequestManager.h"
#include "DiagWriter.h"
#include "Journal.h"
#include "LocalLogBuffer.h"
#include "ProfileBuilders.h"
#include "ProfileCache.h"
#include "ZapWdsProxy.h"

namespace zem {
namespace {

using journal::fail;
using softmodem::FaultKind;
using softmodem::Profile;
using softmodem::SoftModem;
using softmodem::Tech;

constexpr auto k3gpp = TechType::TECH_3GPP, k3gpp2 = TechType::TECH_3GPP2;
using Key = std::shared_ptr<IProfileKey>;

// An answer as the journal has it.
template <class Answer>
std::string text(Answer&& answer) {
    using Type = std::decay_t<Answer>;
    if constexpr (std::is_same_v<Type, bool>) {
        return answer ? "true" : "false";
    } else if constexpr (std::is_arithmetic_v<Type>) {
        return std::to_string(answer);
    } else if constexpr (std::is_same_v<Type, std::string>) {
        return answer;
    } else if constexpr (std::is_class_v<Type> && std::is_constructible_v<bool, Type>) {
        return answer ? text(*answer) : "none";
    } else if constexpr (std::is_polymorphic_v<Type>) {
        return answer.dump();
    } else {
        std::string lines;
        for (const auto& each : answer) lines += (lines.empty() ? "" : "\n") + text(each);
        return lines;
    }
}

template <class Action>
void play(const char* step, const Action& action) {
    journal::heading(step);
    if constexpr (std::is_void_v<decltype(action())>) {
        action();
    } else {
        journal::record("= " + text(action()));
    }
    journal::settle();
}
// Plays one step, under its own text, until everything is at rest.
#define STEP(...) play(#__VA_ARGS__, [&]() -> decltype(auto) { return __VA_ARGS__; })

Manager& manager() {
    return Manager::getInstance();
}
SoftModem& modem() {
    return SoftModem::instance();
}

void recordLines() {
    LogWrapper::getInstance().setLogWriter(std::make_unique<journal::Writer>());
}

void init(int instance) {
    manager().init(instance, true);
    recordLines();
}

// A phone whose modem holds these profiles.
void boot(const std::vector<Profile>& held) {
    {
        const journal::Silence silence;
        modem().reset();
        modem().setHurry(true);
        for (const auto& profile : held) modem().createProfileAt(profile);
        init(0);
        journal::settle();
    }
    journal::heading("=== the modem holds" + std::string(held.empty() ? " nothing" : ""));
    for (const auto& profile : held) {
        std::string line =
            (profile.tech == Tech::k3gpp ? "3GPP:" : "3GPP2:") + std::to_string(profile.index);
        for (const auto& field : describe(profile)) line += " " + field;
        journal::as("modem", [&] { journal::record("  " + line); });
    }
}

Profile gsm(unsigned index, const char* apn, softmodem::Fields fields = {}) {
    fields["apn_name"] = apn;
    return {Tech::k3gpp, index, std::move(fields)};
}
Profile cdma(unsigned index, const char* apn, softmodem::Fields fields = {}) {
    fields["apn_string_3gpp2"] = apn;
    return {Tech::k3gpp2, index, std::move(fields)};
}
softmodem::Fields type(IPType type) {
    return {{"pdp_type", softmodem::Value(uint64_t(type == V4 ? 0 : type == V6 ? 2 : 3))}};
}
Profile named(const char* name, Profile profile) {
    profile.fields["profile_name"] = name;
    return profile;
}

template <class... Settings>
AddProfileParams adding(bool persistent, TechType tech, const Settings&... settings) {
    return {with<ProfileParams>(settings...), persistent, tech, false};
}
constexpr auto modifying = [](const auto&... set) { return with<ModifyProfileParams>(set...); };
constexpr auto filtering = [](const auto&... set) { return with<FilterProfileParams>(set...); };
constexpr auto asking = [](const auto&... set) { return with<ProfileParams>(set...); };
constexpr auto listener = [](const char* name) {
    return [name] { journal::record(std::string("* listener ") + name); };
};

// A key that the library did not make.
struct ForeignKey : IProfileKey {
    int getProfileId() override { return 1; }
    TechType getTechType() override { return k3gpp; }
    void registerExpirationListener(std::function<void()>) override {}
    std::string dump() override { return "foreign"; }
};

void everyOperation(const Key& key) {
    STEP(manager().addProfile(adding(false, k3gpp, apn("new"))));
    STEP(manager().modifyProfile(modifying(apn("b")), key));
    STEP(manager().getProfile(key));
    STEP(manager().match(filtering(apn("B")), key));
    STEP(manager().filter(filtering(apn("none"))));
    STEP(manager().deleteProfile(key));
    STEP(manager().refresh(COMPLETE));
}

void start() {
    STEP(void(manager()));
    everyOperation(nullptr);
    STEP(manager().dump());
    STEP(modem().createProfileAt(gsm(1, "One", {{"password", "pw"}})));
    STEP(modem().createProfileAt(gsm(7, "unreadable")));
    STEP(modem().createProfileAt(cdma(0, "two")));
    STEP(modem().addFault({FaultKind::kRefuse, 0x002B, 1, 1}));
    STEP(manager().init(0, true));
    recordLines();
    STEP(manager().filter({}));
    STEP(manager().dump());
    STEP(init(1));
    STEP(manager().filter({}));
    STEP(manager().dump());
}

// Set-up failures, restarts and errors.
void service() {
    const auto restart = [] { modem().restart(); };
    STEP(init(2));
    STEP(restart());
    STEP(modem().goDown());
    STEP(modem().comeUp());
    for (const char* const function :
         {"zap_client_notifier_init", "zap_client_register_notify_cb", "zap_client_get_any_service",
          "zap_client_init", "zap_client_register_error_cb"}) {
        STEP(fail(function), restart());
        STEP(restart());
        STEP(init(2));
    }
    for (const unsigned request : {0x00AFu, 0x0003u, 0x00A7u}) {
        STEP(modem().addFault({FaultKind::kRefuse, request}), restart());
        STEP(modem().addFault({FaultKind::kSendError, request}), restart());
    }
    STEP(fail("wds_get_service_object_v01"), init(2));
}

// The proxy alone, with no one to tell of changes.
void proxy() {
    EventManager loop;
    std::atomic<bool> running{true};
    std::optional<ZapWdsProxy> proxy;
    std::thread engine([&] {
        pthread_setname_np(pthread_self(), "zem-engine");
        while (running) loop.processEvents();
    });
    STEP(void(proxy.emplace(loop, 0)));
    unsigned char byte = 1;
    const EventFd fd = EventFd::create();
    const auto service = [&](zap_service_event event, void* user) {
        journal::as("modem", [&] { ZapWdsProxy::zapNotifyCb(nullptr, nullptr, event, user); });
    };
    const auto indication = [&](unsigned char* bytes, unsigned size, void* user) {
        journal::as("modem", [&] { ZapWdsProxy::zapIndCb(nullptr, 0xA8, bytes, size, user); });
    };
    const auto error = [&](void* user) {
        journal::as("modem", [&] { ZapWdsProxy::zapErrorCb(nullptr, 1, user); });
    };
    STEP(service(ZAP_SERVICE_UP, &*proxy));
    STEP(service(ZAP_SERVICE_DOWN, &*proxy));
    STEP(service(ZAP_SERVICE_UP, nullptr));
    STEP(error(nullptr));
    STEP(indication(&byte, 1, nullptr));
    STEP(indication(nullptr, 5, &*proxy));
    STEP(indication(&byte, 0, &*proxy));
    STEP(fail("write"), service(ZAP_SERVICE_UP, &*proxy));
    STEP(fail("write"), error(&*proxy));
    STEP(fail("write"), modem().indicate(0, 1, 3));
    STEP(modem().indicate(0, 2, 3));
    STEP(ZapWdsProxy::handleSvcUp(fd.get(), nullptr));
    STEP(ZapWdsProxy::handleError(fd.get(), nullptr));
    STEP(ZapWdsProxy::handleIndication(-1, nullptr));
    STEP(error(&*proxy));
    STEP(running = false, loop.wake(), engine.join(), proxy.reset());
}

void indications() {
    boot({gsm(1, "net"), cdma(1, "net")});
    Key key, other;
    STEP(key = manager().filter(filtering(techIs(k3gpp))).front());
    STEP(other = manager().filter(filtering(techIs(k3gpp2))).front());
    STEP(key->registerExpirationListener(listener("of 3GPP:1")));
    STEP(other->registerExpirationListener(listener("of 3GPP2:1")));
    STEP(modem().modifyProfile({Tech::k3gpp, 1, {{"apn_name", "Web"}}}));
    STEP(modem().deleteProfile(Tech::k3gpp2, 1));
    STEP(modem().createProfile(gsm(0, "second")));
    STEP(modem().addFault({FaultKind::kRefuse, 0x002B}), modem().modifyProfile(gsm(2, "third")));
    STEP(manager().filter({}));
    STEP(key->registerExpirationListener(listener("of 3GPP:1 as it is now")));
    for (unsigned event = 0; event <= 6; ++event) STEP(modem().indicate(0, 9, event));
    STEP(modem().indicate(1, 9, 3));
    STEP(modem().indicate(9, 9, 3));
    STEP(modem().indicateRaw(0x1234, {1, 2, 3}));
    STEP(modem().indicateRaw(0x00A8, {1, 2, 3}));
    STEP(modem().indicateRaw(0x00A8, {}));
    STEP(modem().addFault({FaultKind::kInvalidIndication, 0x00A8}), modem().indicate(0, 1, 3));
    STEP(fail("write"), modem().indicate(0, 1, 3));
    STEP(modem().indicate(0, 2, 3));
    STEP(modem().swapSubscriptions(0, 1));
    STEP(modem().restart());
    STEP(key.reset());
    STEP(other.reset());
    EventManager loop;
    ProfileCache cache(loop, 0, [](const auto&) { return nullptr; });
    STEP(cache.onIndication({k3gpp, 1, ProfileChangedEvent(7)}));
}

void operations() {
    boot({});
    Key key, second;
    STEP(key = manager().addProfile(adding(false, k3gpp, apn("Net"), user("me"))));
    STEP(key->registerExpirationListener(listener("first")));
    STEP(manager().modifyProfile(modifying(apn("NET")), key));
    STEP(manager().modifyProfile(modifying(user("you"), apn("net"), roam(V4)), key));
    STEP(manager().getProfile(key));
    STEP(manager().match(filtering(apn("NET")), key));
    STEP(manager().match(filtering(apn("other")), key));
    STEP(second = manager().filter({}).front());
    STEP(second->registerExpirationListener(listener("second")));
    STEP(modem().addFault({FaultKind::kLoseIndication, 0x0027}),
         manager().addProfile(adding(true, k3gpp2, apn("unreported"))));
    STEP(manager().dump());
    STEP(second.reset());
    STEP(manager().deleteProfile(key));
    journal::heading("=== expired, null and foreign keys");
    everyOperation(key);
    STEP(key->registerExpirationListener(listener("never")));
    STEP(key.reset());
    everyOperation(nullptr);
    everyOperation(std::make_shared<ForeignKey>());
    STEP(manager().addProfile({asking(), false, TechType(5), false}));
}

// The last key, and what becomes of the profile then.
void releases() {
    boot({gsm(1, "modem")});
    Key key;
    STEP(manager().filter({}));
    STEP(manager().addProfile(adding(false, k3gpp, apn("transient"))));
    STEP(manager().addProfile(adding(false, k3gpp2, apn("transient"))));
    STEP(manager().addProfile(adding(true, k3gpp, apn("persistent"))));
    STEP(key = manager().addProfile(adding(false, k3gpp, apn("refused"))));
    STEP(modem().addFault({FaultKind::kRefuse, 0x0029}), key.reset());
    STEP(key = manager().filter(filtering(apn("refused"))).front());
    STEP(manager().filter(filtering(apn("refused"))));
    STEP(key->registerExpirationListener(listener("whose key has gone")));
    STEP(key.reset());
    Key other;
    STEP(modem().addFault({FaultKind::kLoseIndication, 0, 5}));
    STEP(key = manager().addProfile(adding(false, k3gpp, apn("a"))));
    STEP(other = manager().addProfile(adding(false, k3gpp2, apn("b"))));
    STEP(manager().modifyProfile(modifying(apn("c")), key));
    STEP(other.reset());
    STEP(manager().deleteProfile(key));
    STEP(manager().dump());
}

void refused() {
    boot({});
    Key key;
    for (const auto kind : {FaultKind::kRefuse, FaultKind::kTimeOut}) {
        STEP(key = manager().addProfile(adding(true, k3gpp, apn("net"))));
        for (const unsigned request : {0x0027u, 0x0028u, 0x0029u, 0x002Au})
            modem().addFault({kind, request});
        everyOperation(key);
        STEP(modem().addFault({kind, 0x002B}), manager().refresh(COMPLETE));
        STEP(manager().filter({}));
    }
    STEP(modem().addFault({FaultKind::kRefuse, 0x002A, 1, 1}), manager().refresh(COMPLETE));
    STEP(manager().refresh(START));
    STEP(manager().refresh(START));
    STEP(key->registerExpirationListener(listener("never")));
    STEP(manager().addProfile(adding(false, k3gpp, apn("new"))));
    STEP(manager().modifyProfile(modifying(apn("b")), key));
    STEP(manager().getProfile(key));
    STEP(manager().match({}, key));
    STEP(manager().filter({}));
    STEP(manager().deleteProfile(key));
    STEP(key.reset());
    STEP(manager().refresh(PDCRefreshStatus(7)));
    STEP(manager().filter({}));
    journal::heading("=== an entry that could not be read");
    Key second;
    STEP(key = manager().addProfile(adding(false, k3gpp, apn("unreadable"))));
    STEP(second = manager().filter(filtering(apn("unreadable"))).front());
    STEP(modem().addFault({FaultKind::kRefuse, 0x002B}),
         modem().modifyProfile(gsm(static_cast<unsigned>(key->getProfileId()), "x")));
    STEP(key->registerExpirationListener(listener("never")));
    STEP(second.reset());
    everyOperation(key);
    STEP(key.reset());
}

// Every setting on its way to the modem and back.
void settings() {
    for (const auto tech : {k3gpp, k3gpp2}) {
        boot({});
        Key key;
        STEP(key = manager().addProfile({everySetting(), true, tech, true}));
        STEP(manager().modifyProfile(ModifyProfileParams(everySetting()), key));
        STEP(manager().getProfile(key));
        STEP(manager().modifyProfile(
            modifying(apn("Other"), user("You"), password("Changed"), auth(AuthType::PAP), home(V4),
                      roam(V4), apnTypes(APN_TYPE_MMS | APN_TYPE_MCX), apnClass(ApnClass::IMS),
                      clat(false), maxPdns(-1), maxTimer(300), interval(4), disabled(true),
                      emergency(false)),
            key));
        STEP(manager().refresh(COMPLETE));
        STEP(key = manager().filter({}).front());
        STEP(manager().getProfile(key));
        STEP(manager().modifyProfile(modifying(home(V6)), key));
        STEP(modem().addFault({FaultKind::kUnknownEnums, 0x002B, 1, 0, 9}),
             modem().modifyProfile({tech == k3gpp ? Tech::k3gpp : Tech::k3gpp2,
                                    static_cast<unsigned>(key->getProfileId()),
                                    {}}));
        STEP(manager().getProfile(key));
        for (const uint32_t type : {0u, 1u}) {
            STEP(modem().addFault({FaultKind::kUnknownEnums, 0x002A, 2, 0, type}),
                 manager().refresh(COMPLETE));
        }
    }
    STEP(manager().filter(
        filtering(criteria(~0u), apnTypes(~0u), apnClass(ApnClass::ADMN), idIs(1))));
}

// What goes wrong between a caller and the engine.
void handoff() {
    boot({});
    Key key, kept;
    STEP(kept = manager().addProfile(adding(false, k3gpp, apn("kept"))));
    STEP(init(0));
    STEP(kept->registerExpirationListener(listener("never")));
    STEP(kept.reset());
    STEP(fail("pthread_create"), init(1));
    STEP(fail("write", 7));
    everyOperation(nullptr);
    STEP(key = manager().addProfile(adding(false, k3gpp, apn("net"))));
    STEP(key->registerExpirationListener([&] { everyOperation(key); }));
    STEP(modem().deleteProfile(Tech::k3gpp, static_cast<unsigned>(key->getProfileId())));
    STEP(key.reset());
    std::optional<ClientRequestManager> engine;
    STEP(void(engine.emplace(3)));
    const EventFd fd = EventFd::create();
    STEP(ClientRequestManager::handleClientRequest(fd.get(), &*engine));
    STEP(ClientRequestManager::handleClientRequest(-1, nullptr));
    const auto ask = [&](const auto& request) { return engine->processClientRequest(request); };
    const auto add = std::make_shared<AddRequest>(adding(false, k3gpp, apn("net")));
    const auto listen = std::make_shared<CallbackRequest>();
    const auto release = std::make_shared<CallbackRequest>();
    STEP(key = std::dynamic_pointer_cast<AddResponse>(ask(add))->getAddProfileKey());
    const auto token = std::dynamic_pointer_cast<ProfileKey>(key)->getToken();
    listen->setExpirationInfo(nullptr, key, token);
    release->setReleaseToken(token);
    STEP(ask(listen));
    STEP(ask(release));
    for (const auto status : {START, COMPLETE}) {
        STEP(ask(std::make_shared<RefreshRequest>(status)));
        STEP(ask(listen));
        STEP(ask(release));
        STEP(ask(std::make_shared<CallbackRequest>()));
        for (const auto type : {ADD, MODIFY, DELETE, FILTER, MATCH, GET, CALLBACK}) {
            STEP(ask(std::make_shared<ClientRequest>(type)));
        }
    }
    STEP(engine.reset());
    STEP(key.reset());
}

void loop() {
    const auto callback = [](int, void*) { journal::record("* callback"); };
    const auto closing = [](int, void*) { journal::record("* close callback"); };
    const auto removing = [](int fd, void* loop) {
        static bool removed = false;
        if (!std::exchange(removed, true)) static_cast<EventManager*>(loop)->removeEventHandler(fd);
    };
    const EventFd fd = EventFd::create(), other = EventFd::create();
    const auto comes = [](uint32_t events, int from) {
        epoll_event event = {};
        event.events = events;
        event.data.fd = from;
        return event;
    };
    EventManager loop;
    STEP(loop.addEventHandler(fd.get(), callback, nullptr, closing, EPOLLIN | EPOLLET));
    STEP(loop.addEventHandler(fd.get(), callback, &loop, nullptr, EPOLLIN));
    STEP(loop.addEventHandler(-1, nullptr, nullptr, nullptr, EPOLLIN));
    STEP(journal::pretend({comes(EPOLLIN, fd.get()), comes(EPOLLIN | EPOLLOUT, fd.get()),
                           comes(EPOLLOUT | EPOLLPRI | EPOLLERR | EPOLLET, fd.get()),
                           comes(EPOLLERR, fd.get()), comes(0, fd.get())}),
         loop.processEvents(), loop.processEvents());
    STEP(EventManager::addApprovedFd(other.get()));
    STEP(journal::pretend({comes(EPOLLIN, other.get()), comes(EPOLLIN, -1)}), loop.processEvents());
    STEP(EventManager::isApprovedFd(other.get()));
    STEP(EventManager::remApprovedFd(other.get()));
    STEP(EventManager::remApprovedFd(other.get()));
    STEP(journal::pretend({comes(EPOLLIN | EPOLLHUP, dup(fd.get()))}), loop.processEvents());
    const int hungUp = dup(fd.get()), unapproved = dup(fd.get());
    STEP(loop.addEventHandler(hungUp, callback, nullptr, closing, EPOLLIN));
    STEP(loop.addEventHandler(unapproved, callback, nullptr, closing, EPOLLIN));
    STEP(EventManager::remApprovedFd(unapproved));
    STEP(journal::pretend({comes(EPOLLIN | EPOLLHUP, hungUp), comes(EPOLLIN, unapproved)}),
         loop.processEvents());
    STEP(fcntl(hungUp, F_GETFD));
    STEP(fcntl(unapproved, F_GETFD));
    STEP(loop.addEventHandler(other.get(), callback, &loop, removing, EPOLLIN));
    STEP(loop.removeEventHandler(other.get()));
    STEP(loop.addEventHandler(other.get(), callback, nullptr, closing, EPOLLIN));
    STEP(EventManager::remApprovedFd(other.get()));
    STEP(loop.removeEventHandler(other.get()));
    STEP(EventManager::addApprovedFd(other.get()), loop.removeEventHandler(other.get()));
    STEP(fcntl(other.get(), F_GETFD));
    STEP(loop.removeEventHandler(-1));
    STEP(loop.removeEventHandler(-1));
    STEP(loop.wake(), loop.processEvents());
    STEP(fail("write"), loop.wake());
    STEP(fail("epoll_wait"), loop.processEvents());
    STEP(EventManager::clearRead(-1, nullptr));
}

// Each in a process of its own, which it ends.
void noEpoll() {
    STEP(fail("epoll_create1"), void(EventManager()));
}
void noEventFd() {
    STEP(fail("eventfd"), void(EventManager()));
}
void noEventFdForTheProxy() {
    EventManager loop;
    STEP(fail("eventfd"), void(ZapWdsProxy(loop, 0)));
}
constexpr LogLevel kLevels[] = {LOG_VERBOSE, LOG_DEBUG, LOG_INFO,    LOG_ERROR,
                                LOG_FATAL,   LOG_API,   LogLevel(6), LogLevel(~0u)};

void log(LogLevel level, const std::string& text) {
    LogWrapper::getInstance().log(level, kLogTag, "%s", text.c_str());
}

void logEveryLevel() {
    auto& log = LogWrapper::getInstance();
    for (const auto level : kLevels) log.log(level, "RADIO", "level %u, 100%%, %s", level, "%s %n");
}

void logs() {
    STEP(LogWrapper::getInstance().setLogWriter(nullptr));
    STEP(logEveryLevel());
    STEP(manager().init(0, true));
    STEP(logEveryLevel());
    STEP(manager().init(0, false));
    STEP(logEveryLevel());
    STEP(manager().init(0, true));
    STEP(log(LOG_API, std::string(600, 'x') + "|"));
    STEP(manager().dump());
    const auto fill = [] {
        const journal::Silence silence;
        for (int i = 0; i < 250; ++i) log(LOG_ERROR, "line " + std::to_string(i));
    };
    const auto kept = [] { return LocalLogBuffer::getInstance().getLogs(); };
    STEP(fill());
    STEP(kept().size());
    STEP(std::string(kept().front()));
    STEP(std::string(kept().back()));
    STEP(LocalLogBuffer::getInstance().getName());
    STEP(LocalLogBuffer::getInstance().flush(), kept().size());
}

// The mask of the first line is that of all.
void diagnosticLogs() {
    LogWrapper::getInstance().setLogWriter(std::make_unique<DiagWriter>());
    STEP(log(LOG_DEBUG, "first"));
    STEP(logEveryLevel());
}

void dataCall() {
    Util util;
    const auto net4 = asking(apn("Net"), home(V4));
    const auto ask = [&](const ProfileParams& params) {
        return util.findOrCreateProfileForSetupDataCall(k3gpp, params);
    };
    for (const bool allowed : {false, true}) {
        STEP(util.setProfileUpdateAllowed(allowed));
        boot({gsm(1, "net", type(V4)), gsm(2, "net", type(V4))});
        STEP(ask(asking(apn("net"), home(V4), user("me"), apnTypes(1), roam(V6))));
        STEP(modem().addFault({FaultKind::kRefuse, 0x0028}), ask(asking(user("you"))));
        boot({gsm(1, "net", type(V4V6))});
        STEP(ask(net4));
        boot({gsm(1, "net", type(V6))});
        STEP(ask(net4));
        boot({});
        STEP(modem().addFault({FaultKind::kRefuse, 0x0027}), ask(net4));
        STEP(manager().refresh(START), ask(net4));
        boot({cdma(0, "net"), cdma(1, "net", {{"user_id_3gpp2", "me"}})});
        STEP(util.findOrCreateProfileForSetupDataCall(k3gpp2, asking(apn("net"), user("me"))));
    }
}

void emergencyCall() {
    Util util;
    const auto sos = asking(apn("sos"), apnTypes(0x41), roam(V6));
    const softmodem::Fields capable = {{"supports_emergency_calls", 1u}};
    const auto ask = [&](const ProfileParams& params) {
        return util.findOrCreateProfileForEmergencyDataCall(params);
    };
    boot({gsm(1, "net", capable), gsm(2, "sos", capable)});
    STEP(ask(sos));
    STEP(ask(asking(home(V4))));
    boot({gsm(1, "net", capable), gsm(2, "sos")});
    STEP(ask(sos));
    boot({cdma(1, "sos")});
    STEP(ask(sos));
    boot({});
    STEP(modem().addFault({FaultKind::kRefuse, 0x0027}), ask(sos));
}

void attach() {
    Util util;
    const auto net4 = asking(apn("Net"), home(V4));
    const auto ask = [&](const ProfileParams& params) {
        return util.findOrCreateProfileForLteAttach(params);
    };
    for (const bool allowed : {false, true}) {
        STEP(util.setProfileUpdateAllowed(allowed));
        boot({gsm(1, "net", type(V4))});
        STEP(ask(asking(apn("net"), home(V4), user("me"), password("pw"), auth(AuthType::PAP),
                        apnTypes(0x100), maxPdns(3), maxTimer(4), interval(5), clat(true))));
        STEP(modem().addFault({FaultKind::kRefuse, 0x0028}), ask(asking(user("you"))));
        STEP(fail("write", 1, 1), ask(net4));
        boot({named("zem_profile", gsm(1, "net", type(V4)))});
        STEP(ask(net4));
        boot({gsm(1, "net", type(V4V6))});
        STEP(fail("write", 1, 2), ask(net4));
        STEP(ask(net4));
        STEP(ask(asking(home(V4), roam(V6))));
        boot({named("zem_profile_ia", gsm(1, "net", type(V6)))});
        STEP(ask(asking(apn("net"), home(V4), roam(V4))));
        STEP(ask(asking(home(V6))));
        boot({named("zem_profile_ia", gsm(1, "old"))});
        STEP(ask(net4));
        boot({});
        STEP(modem().addFault({FaultKind::kRefuse, 0x0027}), ask(net4));
        STEP(ask(asking()));
        boot({gsm(1, "net", type(V4V6)), named("zem_profile", gsm(2, "net")),
              named("zem_profile_ia", gsm(3, "net", type(V4V6))), cdma(4, "net")});
        const auto all = asking(apn("net"), home(V4), roam(V4), apnTypes(1));
        for (const int id : {1, 2, 3, 4}) STEP(util.matchLteAttachProfileId(id, all));
        STEP(
            util.matchLteAttachProfileId(1, asking(user("me"), password(""), auth(AuthType::PAP))));
    }
}

void classes() {
    Util util;
    const auto ims = asking(apn("ims"), apnClass(ApnClass::IMS), apnTypes(APN_TYPE_IMS));
    const auto internet = asking(apn("web"), apnClass(ApnClass::INET), home(V6));
    const softmodem::Fields isInternet = {{"apn_class", 3u}};
    boot({gsm(1, "a", isInternet), gsm(2, "b", isInternet),
          cdma(1, "c", {{"apn_class_3gpp2", 1u}})});
    STEP(util.updateModemProfileByApnClass({internet, asking(apn("x")), ims}, {ims, internet}));
    STEP(modem().addFault({FaultKind::kRefuse, 0x0028}),
         util.updateModemProfileByApnClassAndTechType(asking(apn("y"), apnClass(ApnClass::INET)),
                                                      k3gpp));
    STEP(modem().addFault({FaultKind::kRefuse, 0x0027}),
         util.updateModemProfileByApnClassAndTechType(asking(apnClass(ApnClass::APP)), k3gpp));
    STEP(fail("write", 1, 1), util.updateModemProfileByApnClassAndTechType(internet, k3gpp));
}

void masks() {
    Util util;
    const auto v4 = gsm(1, "net", type(V4)), v6 = gsm(2, "net", type(V6)),
               dual = gsm(3, "net", type(V4V6));
    const auto cdma4 = cdma(0, "net", {{"pdn_type_3gpp2", 0u}});
    const auto update = [&](unsigned of4, unsigned of6, unsigned ofBoth) {
        util.updateAPNTypeBitmaskOnModemProfile({asking(apn("NET"), home(V4), apnTypes(of4)),
                                                 asking(apn("net"), home(V6), apnTypes(of6)),
                                                 asking(apn("Net"), home(V4V6), apnTypes(ofBoth))});
    };
    STEP(util.setProfileUpdateAllowed(true));
    boot({v4, v6, dual, cdma4});
    STEP(update(1, 8, 0x80));
    STEP(util.updateAPNTypeBitmaskOnModemProfile(
        {asking(apn("none"), apnTypes(1), home(V4)), asking(apn("Net"), roam(V4)), asking()}));
    STEP(util.setProfileUpdateAllowed(false));
    for (const auto& held :
         std::vector<std::vector<Profile>>{{v4, v6, dual, cdma4}, {v4, v6}, {v6, dual}, {v4}, {}}) {
        boot(held);
        STEP(update(1, 8, 0x80));
    }
    boot({v4, v6});
    STEP(update(1, 8, 0));
    boot({dual});
    STEP(update(1, 0, 0));
    STEP(update(0, 8, 0));
    STEP(modem().addFault({FaultKind::kRefuse, 0x0028}), update(0, 0, 0x80));
}

struct Scenario {
    const char* name;
    std::vector<void (*)()> acts;  // each played by a process of its own
};
const Scenario kScenarios[] = {
    {"start", {start}},
    {"service", {service, proxy}},
    {"indications", {indications}},
    {"operations", {operations}},
    {"releases", {releases}},
    {"refused", {refused}},
    {"settings", {settings}},
    {"handoff", {handoff}},
    {"loop", {loop}},
    {"aborts", {noEpoll, noEventFd, noEventFdForTheProxy}},
    {"logs", {logs, diagnosticLogs}},
    {"data-call", {dataCall}},
    {"emergency-call", {emergencyCall}},
    {"attach", {attach}},
    {"apn-classes", {classes}},
    {"apn-types", {masks}},
};

std::string played(void (*act)()) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) abort();
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);  // for what the library writes on the console
        setenv("TZ", "TST-05:30", 1);
        recordLines();
        journal::begin(ends[1]);
        act();
        journal::settle();
        journal::heading("the process exits");
        exit(0);
    }
    close(ends[1]);
    std::string text;
    char piece[4096];
    for (ssize_t size = 0; (size = read(ends[0], piece, sizeof piece)) > 0;)
        text.append(piece, static_cast<size_t>(size));
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) return text + "\n# " + strsignal(WTERMSIG(status)) + "\n";
    if (WEXITSTATUS(status) == 0) return text;
    return text + "\n# exit status " + std::to_string(WEXITSTATUS(status)) + "\n";
}

using Lines = std::vector<std::string>;

Lines linesOf(std::istream&& text) {
    Lines lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
}

// Whether they are equal. Where they differ first is shown with the step and the lines before.
bool same(const std::string& file, const Lines& recorded, const Lines& now) {
    if (recorded == now) return true;
    const auto first = std::mismatch(recorded.begin(), recorded.end(), now.begin(), now.end());
    const auto at = static_cast<size_t>(first.first - recorded.begin());
    const auto show = [](const char* mark, const Lines& lines, size_t from, size_t to) {
        for (; from < std::min(to, lines.size()); ++from) std::cout << mark << lines[from] << "\n";
    };
    std::cout << file << ":" << at + 1 << ": recorded (-) and now (+)\n";
    size_t step = at;
    while (step > 0 && recorded[--step].rfind("# ", 0) != 0) continue;
    if (step + 8 < at) show("  ", recorded, step, step + 1);
    show("  ", recorded, at - std::min<size_t>(at, 8), at);
    show("- ", recorded, at, at + 8);
    show("+ ", now, at, at + 8);
    return false;
}

}  // namespace
}  // namespace zem

int main(int argc, char** argv) {
    const bool record = argc > 1 && strcmp(argv[1], "--record") == 0;
    std::set<std::string> chosen;  // empty: all
    for (int i = record ? 2 : 1; i < argc; ++i) {
        if (strncmp(argv[i], "--gtest", 7) != 0) chosen.insert(argv[i]);
    }
    int failures = 0;
    for (const auto& name : chosen) {
        const auto isNamed = [&name](const auto& scenario) { return scenario.name == name; };
        if (std::any_of(std::begin(zem::kScenarios), std::end(zem::kScenarios), isNamed)) continue;
        std::cout << "no scenario '" << name << "'\n";
        ++failures;
    }
    for (const auto& [name, acts] : zem::kScenarios) {
        if (!chosen.empty() && chosen.count(name) == 0) continue;
        std::string now;
        for (const auto act : acts) now += zem::played(act);
        const std::string file = std::string("tests/journals/") + name + ".txt";
        const std::string path = std::string(ZEM_SOURCE_DIR "/") + file;
        if (record) {
            std::ofstream(path) << now;
        } else if (!zem::same(file, zem::linesOf(std::ifstream(path)),
                              zem::linesOf(std::istringstream(now)))) {
            std::cout << "If that is meant: " << argv[0] << " --record " << name << "\n";
            ++failures;
        }
    }
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
