#include "session/Session.h"

#include <stdexcept>
#include <utility>

#include "command/Values.h"
#include "output/Secrets.h"
#include "output/Settings.h"
#include "output/Text.h"
#include "session/Files.h"
#include "session/Interrupt.h"
#include "session/LibraryLog.h"

namespace zemctl {

namespace {

constexpr std::chrono::milliseconds kFirstAnswer(5000);
constexpr std::chrono::milliseconds kNextAnswer(500);  // of a modem that gave none before

// Empty when there is no file yet; one that cannot be read is not to be written over.
std::optional<std::string> contentsOf(const std::string& path) {
    try {
        return readFileIfThere(path);
    } catch (const std::runtime_error& error) {
        throw UsageError(error.what());
    }
}

// What the library may print of them is to be masked.
void rememberSecrets(const ModemAccess& modem) {
    for (const StoredProfile& profile : modem.profiles()) {
        for (const auto& [name, value] : profile.fields) {
            if (isSecretField(name)) {
                rememberSecret(value);
            }
        }
    }
}

// Asks nothing that any profile could answer; handled behind all that came before it.
zem::FilterProfileParams nothing() {
    zem::FilterProfileParams filter;
    filter.setFilterByProfileId(-1);
    return filter;
}

}  // namespace

ProfileWord ProfileWord::parse(const std::string& text) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) {
        return {text, std::nullopt};
    }
    const zem::TechType tech =
        OptionText{"PROFILE", text.substr(0, colon)}.oneOf(zem::kTechTypeNames);
    const int index = OptionText{"PROFILE", text.substr(colon + 1)}.number(0, kLastProfileId);
    return {text, ProfileId(tech, index)};
}

Session::Session(const Globals& chosen, Output& where)
    : output(where), report(where), globals(chosen) {
    output.setJson(globals.json);
    showSecrets(globals.showSecrets);
}

Session::~Session() {
    keys.clear();
}

ModemAccess& Session::modem() {
    if (access) {
        return *access;
    }
    auto next = std::make_unique<ModemAccess>(globals.subscription);
    if (!globals.modemFile.empty()) {
        fileText = contentsOf(globals.modemFile);
    }
    if (fileText) {
        load(*next);
    } else if (globals.factoryProfiles) {
        next->storeFactoryProfiles();
    }
    access = std::move(next);
    if (fileText) {
        return *access;
    }
    try {
        save();  // says at once when the file cannot be written
    } catch (...) {
        access.reset();
        throw;
    }
    if (lock) {  // of the folder; from now on of the file, which somebody may have had meanwhile
        unlockFile();
        lockFile();
        reload();
    }
    return *access;
}

zem::Manager& Session::library() {
    zem::Manager& manager = zem::Manager::getInstance();
    if (!modem().isUp()) {
        throw Failure(kModemDown, "the modem is down; 'modem boot' starts it");
    }
    if (!started) {
        setLibraryLog(globals.log);
        manager.init(globals.subscription, true);
        started = true;
        waitForModem(kFirstAnswer);
    } else if (silent) {
        waitForModem(kNextAnswer);
    }
    return manager;
}

Phone& Session::phone() {
    if (!policies) {
        policies = std::make_unique<Phone>(report, modem(), keys);
    }
    return *policies;
}

std::vector<StoredProfile> Session::storedProfiles() const {
    return access ? access->profiles() : std::vector<StoredProfile>();
}

std::shared_ptr<zem::IProfileKey> Session::keyTo(const ProfileWord& word) {
    zem::Manager& manager = library();
    if (!word.id) {
        if (const HeldKey* const held = keys.find(word.text)) {
            return held->key;
        }
        throw Failure(kNoProfile, "no key '" + word.text + "' is held" +
                                      suggestion(word.text, keys.names()) +
                                      " (a profile is named like 3gpp:1)");
    }
    refuseDuringRefresh();
    zem::FilterProfileParams filter;
    filter.setFilterByTechType(word.id->first);
    filter.setFilterByProfileId(word.id->second);
    const auto found = manager.filter(filter);
    if (found.empty()) {
        throw Failure(kNoProfile, "no profile " + profileName(*word.id));
    }
    return found.front();
}

zem::ProfileParams Session::read(const std::shared_ptr<zem::IProfileKey>& key) {
    auto params = library().getProfile(key);
    if (!params) {
        refuseDuringRefresh();
        throw Failure(kNoProfile, "the key to " + key->dump() + " has expired");
    }
    return *std::move(params);
}

void Session::requireOwnModem() const {
    if (!globals.modemFile.empty() || globals.subscription != 0 || !globals.factoryProfiles) {
        throw UsageError("it has a modem of its own: no --modem, --subscription or --factory");
    }
}

void Session::refuseDuringRefresh() const {
    if (refreshing) {
        throw Failure(kRefused, "refused: a refresh is under way; 'refresh complete' ends it");
    }
}

void Session::waitForModem(std::chrono::milliseconds limit) {
    Progress progress(output, "waiting for the modem", 0);
    if (!access->waitForLibrary(zem::Manager::getInstance(), limit, [&] { progress.show(); })) {
        silent = true;
        throw Failure(kModemDown, "the modem does not answer");
    }
    silent = false;
}

void Session::settle() {
    if (!started || silent) {
        return;
    }
    if (access->inProcess() && access->isUp()) {
        waitForModem(kFirstAnswer);
    }
    zem::Manager& manager = zem::Manager::getInstance();
    manager.filter(nothing());
    manager.filter(nothing());  // the first may overtake an event that came with it
}

void Session::load(ModemAccess& modem) {
    try {
        modem.load(globals.modemFile);
    } catch (const std::runtime_error& error) {
        throw UsageError(error.what());
    }
    storeText = modem.storeText({});
    rememberSecrets(modem);
}

bool Session::reload() {
    if (globals.modemFile.empty() || !access) {
        return false;
    }
    const auto now = contentsOf(globals.modemFile);
    if (!now || now == fileText) {
        return false;
    }
    load(*access);
    fileText = now;
    transients.clear();
    for (HeldKey& each : keys) {
        each.transient = false;  // its profile is gone, and its place may be another's
    }
    settle();
    return true;
}

void Session::save() {
    if (globals.modemFile.empty() || !access) {
        return;
    }
    // Those go with this session, whatever becomes of it.
    for (const HeldKey& each : keys) {
        if (each.transient && !*each.told) {  // else its place may be another's
            transients.insert(each.id);
        }
    }
    const std::string text = access->storeText(transients);
    if (fileText && text == storeText) {
        return;
    }
    const auto now = contentsOf(globals.modemFile);
    if (now && now != fileText) {
        throw Failure(kRefused, globals.modemFile +
                                    " was changed by somebody else meanwhile, and is not written");
    }
    try {
        ModemAccess::save(globals.modemFile, text);
    } catch (const std::runtime_error& error) {
        throw Failure(kRefused, std::string(error.what()) + "; nothing is saved");
    }
    storeText = text;
    fileText = text;
}

void Session::lockFile() {
    if (!globals.modemFile.empty() && !lock) {
        lock.emplace(globals.modemFile);
    }
}

int Session::attempt(const std::function<int()>& what) const {
    try {
        return what();
    } catch (const Failure& failure) {
        output.complain(failure.what());
        return failure.status;
    } catch (const std::exception& error) {
        output.complain(error.what());
        return kRefused;
    }
}

int Session::run(const Step& step) {
    const unsigned failed = report.checksFailed();
    const int status = attempt([&] {
        lockFile();
        if (reload()) {
            report.line(globals.modemFile + " was changed by somebody else and is read anew");
            if (watch) {
                watch->look(Cause::kFile);
            }
        }
        cause = Cause::kClient;
        const int answer = step(*this);
        return answer == kDone && report.checksFailed() != failed ? kRefused : answer;
    });
    // A step that has failed may have changed something first.
    throwIfInterrupted();
    const int end = attempt([&] {
        lockFile();
        settle();
        if (watch) {
            watch->look(cause);
        }
        save();
        output.flush();
        return kDone;
    });
    unlockFile();
    report.setChecksFailed(failed);  // a step that runs others goes by their statuses
    return status != kDone ? status : end;
}

int Session::run(const ParsedCommand& command) {
    const auto show = [this](const Globals& how) {
        output.setJson(how.json);
        showSecrets(how.showSecrets);
    };
    int status = kDone;
    show(command.globals);
    try {
        for (auto step = command.steps.begin();
             step != command.steps.end() && status == kDone && !over; ++step) {
            status = run(*step);
        }
    } catch (...) {
        show(globals);
        throw;
    }
    show(globals);
    return status;
}

int Session::finish() {
    return run([](Session& session) {
        if (session.refreshing) {
            zem::Manager::getInstance().refresh(zem::COMPLETE);  // else no key would be counted
            session.refreshing = false;
            session.report.line("the refresh is completed: all keys expired");
        }
        if (!session.keys.empty()) {
            session.report.step("Release the keys, one after the other");
            session.phone().releaseKeys(session.keys.names());
        }
        return static_cast<int>(kDone);
    });
}

void Session::goOn() {
    clearInterrupt();
    if (access) {
        access->calmDown();
    }
}

void Session::abandon() {
    if (access) {
        access->hurry();
    }
    keys.clear();
    try {
        save();
    } catch (const Failure& failure) {
        output.complain(failure.what());
    }
}

}  // namespace zemctl
