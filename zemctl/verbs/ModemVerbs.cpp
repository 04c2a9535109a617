#include "verbs/ModemVerbs.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>

#include <softmodem/SoftModem.h>
#include <nlohmann/json.hpp>

#include "command/Globals.h"
#include "command/Values.h"
#include "output/Secrets.h"
#include "output/Text.h"
#include "session/ModemView.h"
#include "session/Session.h"
#include "verbs/ManagerVerbs.h"

namespace zemctl {

namespace {

using softmodem::FaultKind;
using softmodem::SoftModem;
using softmodem::Tech;

constexpr int kLongestLatency = 60'000;
constexpr int kMostFaults = 1'000'000;

constexpr unsigned kIndications = 0x00A8;

constexpr zem::NamedValue<FaultKind> kFaultNames[] = {
    {FaultKind::kRefuse, "refuse"},
    {FaultKind::kTimeOut, "timeout"},
    {FaultKind::kSendError, "send-error"},
    {FaultKind::kGoDown, "go-down"},
    {FaultKind::kLoseIndication, "lose-indication"},
    {FaultKind::kRepeatIndication, "repeat-indication"},
    {FaultKind::kDelayIndication, "delay-indication"},
    {FaultKind::kReorderIndications, "reorder-indications"},
    {FaultKind::kUndecodableIndication, "undecodable-indication"},
    {FaultKind::kEmptyIndication, "empty-indication"},
    {FaultKind::kInvalidIndication, "invalid-indication"},
    {FaultKind::kUnterminatedStrings, "unterminated-strings"},
    {FaultKind::kUnknownEnums, "unknown-enums"},
    {FaultKind::kListCount, "list-count"},
};

SoftModem& modemOf(Session& session) {
    session.modem();  // booted, with its profiles
    return SoftModem::instance();
}

Tech techOf(zem::TechType tech) {
    return tech == zem::TechType::TECH_3GPP2 ? Tech::k3gpp2 : Tech::k3gpp;
}

ProfileId idOf(const softmodem::Profile& profile) {
    const bool is3gpp2 = profile.tech == Tech::k3gpp2;
    return {is3gpp2 ? zem::TechType::TECH_3GPP2 : zem::TechType::TECH_3GPP,
            static_cast<int>(profile.index)};
}

// "3gpp:1" alone: the modem knows nothing of keys.
ProfileId profileOf(const Given& given) {
    const ProfileWord word = ProfileWord::parse(given.text("PROFILE"));
    if (!word.id) {
        throw UsageError("PROFILE takes a family and an index, such as 3gpp:1, not '" + word.text +
                         '\'');
    }
    return *word.id;
}

// FIELD=VALUE each.
softmodem::Fields fieldsOf(const Given& given, Tech tech) {
    softmodem::Fields fields;
    for (const std::string& word : given.all("FIELD=VALUE")) {
        const size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        const auto known = softmodem::fieldNames(tech);
        if (equals == std::string::npos ||
            std::find(known.begin(), known.end(), name) == known.end()) {
            throw UsageError((equals == std::string::npos ? "FIELD=VALUE is expected, not '" + word
                                                          : "no field '" + name) +
                             '\'' + suggestion(name, known));
        }
        const std::string text = word.substr(equals + 1);
        if (isSecretField(name)) {
            rememberSecret(text);
        }
        try {
            fields[name] = softmodem::parseValue(tech, name, text);
        } catch (const std::invalid_argument& error) {
            const auto values = softmodem::valueNames(name);
            throw UsageError(
                error.what() +
                (values.empty() ? "" : "; it takes a number, or " + join(values, ", ")) +
                suggestion(text, values));
        }
    }
    return fields;
}

Json toJson(const softmodem::Profile& profile) {
    Json fields = Json::object();
    for (const auto& [name, value] : profile.fields) {
        if (const auto* const text = std::get_if<std::string>(&value)) {
            fields[name] = isSecretField(name) ? secret(*text) : *text;
        } else {
            fields[name] = std::get<uint64_t>(value);
        }
    }
    return {{"profile", profileName(idOf(profile))}, {"fields", fields}};
}

std::pair<std::string, std::string> fieldOf(const std::string& line) {
    const size_t equals = line.find('=');
    return {line.substr(0, equals), equals == std::string::npos ? "" : line.substr(equals + 1)};
}

std::vector<std::string> shownFields(const std::vector<std::string>& lines) {
    std::vector<std::string> words;
    for (const std::string& line : lines) {
        const auto field = fieldOf(line);
        words.push_back(field.first + '=' + shownField(field));
    }
    return words;
}

// What a fault may meet, as it is typed.
std::vector<std::pair<std::string, unsigned>> messages() {
    std::vector<std::pair<std::string, unsigned>> result = {{"any", 0},
                                                            {"indication", kIndications}};
    for (auto [id, name] : softmodem::messageNames()) {
        std::replace(name.begin(), name.end(), ' ', '-');
        result.emplace_back(name, id);
    }
    return result;
}

std::vector<std::string> messageWords() {
    std::vector<std::string> words;
    for (const auto& [word, id] : messages()) {
        words.push_back(word);
    }
    return words;
}

// --- The verbs ---

Step prepareShow(const Given& given) {
    const bool one = given.has("PROFILE");
    const ProfileId wanted = one ? profileOf(given) : ProfileId();
    return [one, wanted](Session& session) {
        const SoftModem& modem = modemOf(session);
        bool found = false;
        if (!one) {
            session.report.line(std::string(modem.isUp() ? "up" : "down") + ", subscription " +
                                std::to_string(session.subscription()));
        }
        for (const softmodem::Profile& profile : modem.profiles(session.subscription())) {
            if (!one || idOf(profile) == wanted) {
                found = true;
                session.output.object(toJson(profile));
                session.report.paragraph(profileName(idOf(profile)),
                                         shownFields(softmodem::describe(profile)));
            }
        }
        if (one && !found) {
            throw Failure(kNoProfile, "no profile " + profileName(wanted));
        }
        return kDone;
    };
}

Step prepareBoot(const Given& /*given*/) {
    return [](Session& session) {
        session.cause = Cause::kRestart;
        const bool wasUp = modemOf(session).isUp();
        if (!wasUp) {
            session.modem().boot();
        }
        session.report.line(wasUp ? "the modem is up already" : "the modem is up");
        return kDone;
    };
}

Step prepareDown(const Given& /*given*/) {
    return [](Session& session) {
        session.cause = Cause::kRestart;
        modemOf(session).goDown();
        session.report.line("the modem is down");
        return kDone;
    };
}

Step prepareRestart(const Given& /*given*/) {
    return [](Session& session) {
        session.cause = Cause::kRestart;
        session.modem().restart();
        session.report.line("the modem is up again: transient profiles are gone, all keys expired");
        return kDone;
    };
}

Step prepareSubscription(const Given& given) {
    const auto number = [&](const char* name) {
        return static_cast<unsigned>(
            OptionText{name, given.text(name)}.number(0, kLastSubscription));
    };
    if (number("ONE") == number("OTHER")) {
        throw UsageError("modem subscription takes two that differ");
    }
    return [one = number("ONE"), other = number("OTHER")](Session& session) {
        session.cause = Cause::kSubscription;
        modemOf(session).swapSubscriptions(one, other);
        session.report.line("subscriptions " + std::to_string(one) + " and " +
                            std::to_string(other) + " have changed places");
        return kDone;
    };
}

Step prepareCreate(const Given& given) {
    const std::string place = given.text("PLACE");
    const size_t colon = place.find(':');
    zem::TechType tech = zem::TechType::TECH_3GPP;
    std::optional<ProfileId> id;
    if (colon == std::string::npos) {
        tech = OptionText{"PLACE", place}.oneOf(zem::kTechTypeNames);
    } else {
        id = ProfileWord::parse(place).id;
        tech = id->first;
    }
    const auto fields = fieldsOf(given, techOf(tech));
    return [tech, id, fields](Session& session) {
        session.cause = Cause::kNetwork;
        SoftModem& modem = modemOf(session);
        const softmodem::Profile profile{techOf(tech), id ? static_cast<unsigned>(id->second) : 0u,
                                         fields};
        const auto index = id ? modem.createProfileAt(profile, session.subscription())
                              : modem.createProfile(profile, session.subscription());
        if (!index) {
            throw Failure(kRefused, id ? profileName(*id) + " is taken, or out of range"
                                       : "the modem's store is full");
        }
        session.giveUpPlace({tech, static_cast<int>(*index)});
        const auto created = modem.profile(techOf(tech), *index, session.subscription());
        if (created) {
            session.output.object(toJson(*created));
        }
        session.report.line(profileName(tech, static_cast<int>(*index)) + " is on the modem");
        return kDone;
    };
}

Step prepareModify(const Given& given) {
    const ProfileId id = profileOf(given);
    const auto fields = fieldsOf(given, techOf(id.first));
    return [id, fields](Session& session) {
        session.cause = Cause::kNetwork;
        if (!modemOf(session).modifyProfile(
                {techOf(id.first), static_cast<unsigned>(id.second), fields},
                session.subscription())) {
            throw Failure(kNoProfile, "no profile " + profileName(id));
        }
        session.report.line(profileName(id) + " is changed");
        return kDone;
    };
}

Step prepareDelete(const Given& given) {
    return [id = profileOf(given)](Session& session) {
        session.cause = Cause::kNetwork;
        if (!modemOf(session).deleteProfile(techOf(id.first), static_cast<unsigned>(id.second),
                                            session.subscription())) {
            throw Failure(kNoProfile, "no profile " + profileName(id));
        }
        session.report.line(profileName(id) + " is gone");
        return kDone;
    };
}

Step prepareFail(const Given& given) {
    const auto number = [&](const char* name, int least, int unset) {
        return given.has(name) ? static_cast<unsigned>(
                                     OptionText{name, given.text(name)}.number(least, kMostFaults))
                               : static_cast<unsigned>(unset);
    };
    softmodem::Fault fault{OptionText{"KIND", given.text("KIND")}.oneOf(kFaultNames)};
    const auto [message, messageId] =
        messages()[OptionText{"MESSAGE", given.text("MESSAGE")}.placeIn(messageWords())];
    fault.messageId = messageId;
    fault.count = number("--count", 1, 1);
    fault.skip = number("--skip", 0, 0);
    if (given.has("--value")) {
        fault.value = static_cast<uint32_t>(OptionText{"--value", given.text("--value")}.number(
            0, std::numeric_limits<int>::max()));
    }
    return [fault, message = message](Session& session) {
        modemOf(session).addFault(fault);
        session.report.line(
            "set for " + counted(fault.count, "message", "messages") + " of kind '" + message +
            "'" + (fault.skip ? ", after " + std::to_string(fault.skip) + " others" : ""));
        return kDone;
    };
}

Step prepareHeal(const Given& /*given*/) {
    return [](Session& session) {
        SoftModem& modem = modemOf(session);
        modem.clearFaults();
        modem.releaseIndications();
        session.modem().setLatency({});
        session.cause = Cause::kNetwork;
        session.report.line("no fault is left");
        return kDone;
    };
}

Step prepareLatency(const Given& given) {
    const int milliseconds =
        OptionText{"MILLISECONDS", given.text("MILLISECONDS")}.number(0, kLongestLatency);
    return [milliseconds](Session& session) {
        session.modem().setLatency(std::chrono::milliseconds(milliseconds));
        session.report.line("each request takes " + std::to_string(milliseconds) + " ms");
        return kDone;
    };
}

Step prepareLog(const Given& given) {
    return [clear = given.has("--clear")](Session& session) {
        SoftModem& modem = modemOf(session);
        size_t number = 0;
        for (const softmodem::Request& request : modem.requests()) {
            const std::string outcome =
                request.sendResult != 0 ? "failed with " + std::to_string(request.sendResult)
                : request.result != 0   ? "refused with error " + std::to_string(request.error)
                                        : "done";
            const std::vector<std::string> fields = softmodem::describe(request);
            Json object = {{"number", ++number},
                           {"message", request.name},
                           {"messageId", request.messageId},
                           {"subscription", request.subscription},
                           {"sendResult", request.sendResult},
                           {"result", request.result},
                           {"error", request.error},
                           {"fields", Json::object()}};
            for (const std::string& line : fields) {
                const auto field = fieldOf(line);
                object["fields"][field.first] = shownField(field);
            }
            session.output.object(object);
            session.report.line(std::to_string(number) + "  " + request.name + ", " + outcome);
            if (!fields.empty()) {
                session.report.paragraph("  ", shownFields(fields));
            }
        }
        if (number == 0) {
            session.report.line("nothing was asked yet");
        }
        if (clear) {
            modem.clearRequests();
        }
        return kDone;
    };
}

// --- What may be typed ---

std::vector<std::string> storedWords(const Typing& typing) {
    std::vector<std::string> words;
    for (const std::string& word : profileWords(typing)) {
        if (word.find(':') != std::string::npos) {
            words.push_back(word);
        }
    }
    return words;
}

// Names with their "=", then the values' names.
std::vector<std::string> fieldWords(const Typing& typing) {
    const bool is3gpp2 = !typing.words.empty() && typing.words[0].rfind("3gpp2", 0) == 0;
    const size_t equals = typing.word.find('=');
    std::vector<std::string> words;
    if (equals != std::string::npos) {
        const std::string name = typing.word.substr(0, equals);
        for (const std::string& value : softmodem::valueNames(name)) {
            words.push_back(typing.word.substr(0, equals + 1).append(value));
        }
        return words;
    }
    for (const std::string& name : softmodem::fieldNames(is3gpp2 ? Tech::k3gpp2 : Tech::k3gpp)) {
        words.push_back(name + '=');
    }
    return words;
}

Argument storedProfile() {
    return {"PROFILE", "", "A family and an index, such as 3gpp:1", Arity::kRequired, storedWords};
}

Argument fields(Arity arity) {
    return {"FIELD=VALUE", "", "The modem's own fields, such as apn_name=internet", arity,
            fieldWords};
}

}  // namespace

VerbGroup modemVerbs() {
    const auto faultNames = [](const Typing&) { return namesOf(kFaultNames); };
    const auto messageNames = [](const Typing&) { return messageWords(); };
    const std::string fieldsText =
        "3GPP profiles have " + join(softmodem::fieldNames(Tech::k3gpp), ", ") +
        "; 3GPP2 profiles have " + join(softmodem::fieldNames(Tech::k3gpp2), ", ") + '.';
    Argument place = storedProfile();
    place.name = "PLACE";
    place.help = "A family, or with an index the very place: 3gpp, 3gpp:7, 3gpp2";
    place.candidates = [](const Typing&) { return namesOf(zem::kTechTypeNames); };
    Argument perhaps = storedProfile();
    perhaps.arity = Arity::kOptional;
    return {
        "The software modem, behind the library's back",
        {
            {"modem show",
             "Show what the modem stores, field by field",
             "",
             "modem show 3gpp:1",
             {perhaps},
             Where::kAnywhere,
             prepareShow},
            {"modem boot",
             "Start the modem after it went down",
             "",
             "modem boot",
             {},
             Where::kAnywhere,
             prepareBoot},
            {"modem down",
             "Let the modem go down",
             "It is down for the rest of the line, the shell or the script, or until 'modem boot'.",
             "modem down",
             {},
             Where::kAnywhere,
             prepareDown},
            {"modem restart",
             "Restart the modem: down and up",
             "",
             "modem restart",
             {},
             Where::kAnywhere,
             prepareRestart},
            {"modem subscription",
             "Swap the stores of two subscriptions, as with SIM cards",
             "",
             "modem subscription 0 1",
             {{"ONE", "", "A subscription, 0 to 15", Arity::kRequired},
              {"OTHER", "", "The other one", Arity::kRequired}},
             Where::kAnywhere,
             prepareSubscription},
            {"modem create",
             "Create a profile, as the network does",
             fieldsText,
             "modem create 3gpp apn_name=office pdp_type=ipv4v6 persistent=1",
             {place, fields(Arity::kAny)},
             Where::kAnywhere,
             prepareCreate},
            {"modem modify",
             "Change fields of a profile, as the network does",
             fieldsText,
             "modem modify 3gpp:1 apn_name=web",
             {storedProfile(), fields(Arity::kMany)},
             Where::kAnywhere,
             prepareModify},
            {"modem delete",
             "Delete a profile, as the network does",
             "",
             "modem delete 3gpp:4",
             {storedProfile()},
             Where::kAnywhere,
             prepareDelete},
            {"modem fail",
             "Let the modem fail requests, or the indications that follow them",
             "Faults last for the rest of the line, the shell or the script, until they are used "
             "up or "
             "healed. A list of more than 255 profiles ends the process, as it does on a phone.",
             "modem fail create-profile refuse --count 2",
             {{"MESSAGE", "", "The request, or any, or indication for those without a request",
               Arity::kRequired, messageNames},
              {"KIND", "", "What goes wrong: " + join(namesOf(kFaultNames), ", "), Arity::kRequired,
               faultNames},
              {"--count", "N", "How often, once unless said otherwise"},
              {"--skip", "N", "After so many others"},
              {"--value", "N", "The error code, the list's count, or what enumerations hold"}},
             Where::kAnywhere,
             prepareFail},
            {"modem heal",
             "Take all faults back, and send what was delayed",
             "",
             "modem heal",
             {},
             Where::kAnywhere,
             prepareHeal},
            {"modem latency",
             "Let each request take a while",
             "For the rest of the line, the shell or the script. The library waits 1000 ms for "
             "each.",
             "modem latency 20",
             {{"MILLISECONDS", "", "0 to 60000", Arity::kRequired}},
             Where::kAnywhere,
             prepareLatency},
            {"modem log",
             "Show the requests that the modem got, field by field",
             "Of this line, shell or script.",
             "modem log --clear",
             {{"--clear", "", "Forget them afterwards", Arity::kSwitch}},
             Where::kAnywhere,
             prepareLog},
        },
    };
}

}  // namespace zemctl
