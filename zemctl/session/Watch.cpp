#include "session/Watch.h"

#include <vector>

#include <nlohmann/json.hpp>

#include "output/Text.h"
#include "session/Session.h"

namespace zemctl {

namespace {

const char* causeText(Cause cause) {
    switch (cause) {
        case Cause::kClient:
            return "this client";
        case Cause::kRefresh:
            return "a refresh by this client";
        case Cause::kNetwork:
            return "the network";
        case Cause::kRestart:
            return "a restart";
        case Cause::kSubscription:
            return "another subscription";
        case Cause::kFile:
            return "the modem's file";
    }
    return "";
}

// The profiles alone: what the modem owes and what was logged changes with every request.
std::string cacheOf(const std::vector<std::string>& dump) {
    std::string text;
    for (const std::string& line : dump) {
        if (line == "Pending:") {
            break;
        }
        text += line + '\n';
    }
    return text;
}

}  // namespace

Watch::Watch(Session& owner)
    : session(owner), cacheText(cacheOf(zem::Manager::getInstance().dump())), known(read()) {}

Watch::Profiles Watch::read() const {
    zem::Manager& manager = zem::Manager::getInstance();
    Profiles profiles;
    for (const auto& key : manager.filter({})) {
        if (const auto params = manager.getProfile(key)) {
            profiles.emplace(idOf(key), seen(key, *params, session.keys));
        }
    }
    return profiles;
}

void Watch::look(Cause cause) {
    std::string text = cacheOf(zem::Manager::getInstance().dump());
    if (text == cacheText || session.refreshing) {
        return;
    }
    cacheText = std::move(text);
    const Profiles before = std::move(known);
    known = read();
    // All profiles under new tokens: the modem has come back.
    for (const auto& [id, profile] : known) {
        const auto old = before.find(id);
        const bool anew = old != before.end() && old->second.token != profile.token;
        if (anew && (cause == Cause::kClient || cause == Cause::kNetwork)) {
            cause = Cause::kRestart;
        }
    }
    const std::string by = causeText(cause);
    for (const auto& [id, profile] : before) {
        if (known.count(id) == 0) {
            tell(profile, "gone", by, before);
        }
    }
    for (const auto& [id, profile] : known) {
        const auto old = before.find(id);
        if (old == before.end()) {
            tell(profile, "new", by, before);
        } else if (!settingChanges(old->second.params, profile.params).empty()) {
            tell(profile, "changed", by, before);
        } else if (old->second.token != profile.token) {
            tell(profile, "read anew", by, before);
        }
    }
}

void Watch::tell(const SeenProfile& profile, const char* event, const std::string& cause,
                 const Profiles& before) {
    ++changes;
    const std::string time = timeOfDay();
    session.report.line(time + "  " + profileName(profile.id) + ' ' + event + ", by " + cause);
    if (event == std::string("changed")) {
        session.report.table(settingChanges(before.at(profile.id).params, profile.params));
    }
    Json object = {{"time", time}, {"event", event}, {"cause", cause}};
    object.update(toJson(profile));
    session.output.object(object);
    session.output.flush();
}

}  // namespace zemctl
