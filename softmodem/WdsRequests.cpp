#include "WdsRequests.h"

#include <cstdio>
#include <cstring>

#include "ProfileFields.h"

namespace softmodem {

namespace {

struct Call {
    ModemState& modem;
    Client& client;
    const void* request;
    void* response;
    Outcome& outcome;

    Store& store(Tech tech) const {
        return modem.stores[*client.subscription][static_cast<size_t>(tech)];
    }
};

// Callers' buffers need not be aligned for the structures.
template <class Message>
Message load(const void* bytes) {
    Message message;
    memcpy(&message, bytes, sizeof message);
    return message;
}

template <class Message>
void store(void* bytes, const Message& message) {
    memcpy(bytes, &message, sizeof message);
}

// The stored profile that an identifier names; null, with the error set, when there is none.
Fields* findProfile(const Call& call, const wds_profile_identifier_type_v01& id) {
    const std::optional<Tech> tech = techFrom(id.profile_type);
    if (!tech) {
        call.outcome.error = ErrorCode::kInvalidProfileType;
        return nullptr;
    }
    Store& profiles = call.store(*tech);
    const auto entry = profiles.find(id.profile_index);
    if (entry == profiles.end()) {
        call.outcome.error = ErrorCode::kInvalidIndex;
        return nullptr;
    }
    return &entry->second;
}

void noteChange(const Call& call, const wds_profile_identifier_type_v01& id, Event event) {
    call.outcome.changes.push_back(
        changeOf(static_cast<Tech>(uint32_t{id.profile_type}), id.profile_index, event));
}

void bindSubscription(const Call& call) {
    const auto request = load<wds_bind_subscription_req_msg_v01>(call.request);
    if (request.subscription >= kSubscriptions)
        call.outcome.error = ErrorCode::kInvalidArgument;
    else
        call.client.subscription = request.subscription;
}

void registerForIndications(const Call& call) {
    const auto request = load<wds_indication_register_req_msg_v01>(call.request);
    if (request.report_profile_changes_valid)
        call.client.reportChanges = request.report_profile_changes != 0;
}

void configureEventList(const Call& call) {
    const auto request = load<wds_configure_profile_event_list_req_msg_v01>(call.request);
    if (request.events_valid) {
        if (request.events_len > WDS_PROFILE_LIST_MAX_V01) {
            call.outcome.error = ErrorCode::kMalformedLength;
            return;
        }
        const auto* end = request.events + request.events_len;
        for (const auto* event = request.events; event != end; ++event) {
            if (event->profile_type != WDS_PROFILE_TYPE_ALL_V01 && !techFrom(event->profile_type)) {
                call.outcome.error = ErrorCode::kInvalidProfileType;
                return;
            }
        }
        call.client.events.assign(request.events, end);
    }
    if (request.report_own_changes_valid)
        call.client.reportOwnChanges = request.report_own_changes != 0;
}

void createProfile(const Call& call) {
    wds_profile_type_enum_v01 type;
    memcpy(&type, call.request, sizeof type);
    const std::optional<Tech> tech = techFrom(type);
    if (!tech) {
        call.outcome.error = ErrorCode::kInvalidProfileType;
        return;
    }
    std::optional<Fields> fields = readFields(call.request, &ProfileField::create, *tech);
    if (!fields) {
        call.outcome.error = ErrorCode::kInvalidArgument;
        return;
    }
    Store& profiles = call.store(*tech);
    const std::optional<unsigned> index = lowestFreeIndex(profiles, *tech);
    if (!index) {
        call.outcome.error = ErrorCode::kFull;
        return;
    }
    profiles.emplace(*index, std::move(*fields));

    wds_create_profile_resp_msg_v01 response = {};
    response.profile.profile_type = type;
    response.profile.profile_index = static_cast<uint8_t>(*index);
    store(call.response, response);
    noteChange(call, response.profile, Event::kCreate);
    noteChange(call, response.profile, Event::kModify);
}

void modifyProfile(const Call& call) {
    const auto id = load<wds_profile_identifier_type_v01>(call.request);
    Fields* profile = findProfile(call, id);
    if (!profile) return;
    const std::optional<Fields> changes =
        readFields(call.request, &ProfileField::modify, *techFrom(id.profile_type));
    if (!changes) {
        call.outcome.error = ErrorCode::kInvalidArgument;
        return;
    }
    for (const auto& [name, value] : *changes) profile->insert_or_assign(name, value);
    noteChange(call, id, Event::kModify);
}

void deleteProfile(const Call& call) {
    const auto id = load<wds_profile_identifier_type_v01>(call.request);
    if (!findProfile(call, id)) return;
    call.store(*techFrom(id.profile_type)).erase(id.profile_index);
    noteChange(call, id, Event::kDelete);
}

void getSettings(const Call& call) {
    const auto id = load<wds_profile_identifier_type_v01>(call.request);
    const Fields* profile = findProfile(call, id);
    if (!profile) return;
    wds_get_profile_settings_resp_msg_v01 response = {};
    writeFields(*profile, &ProfileField::settings, &response);
    store(call.response, response);
}

void getList(const Call& call) {
    const auto request = load<wds_get_profile_list_req_msg_v01>(call.request);
    const bool all =
        !request.profile_type_valid || request.profile_type == WDS_PROFILE_TYPE_ALL_V01;
    const std::optional<Tech> only = techFrom(request.profile_type);
    if (!all && !only) {
        call.outcome.error = ErrorCode::kInvalidProfileType;
        return;
    }
    wds_get_profile_list_resp_msg_v01 response = {};
    for (const Tech tech : {Tech::k3gpp, Tech::k3gpp2}) {
        if (!all && tech != only) continue;
        for (const auto& [index, fields] : call.store(tech)) {
            if (response.profile_list_len == WDS_PROFILE_LIST_MAX_V01) break;
            wds_profile_info_type_v01& info = response.profile_list[response.profile_list_len++];
            info.profile_type = static_cast<wds_profile_type_enum_v01>(tech);
            info.profile_index = static_cast<uint8_t>(index);
            if (const auto name = fields.find("profile_name"); name != fields.end()) {
                const auto& text = std::get<std::string>(name->second);
                memcpy(info.profile_name, text.c_str(), text.size() + 1);
            }
        }
    }
    store(call.response, response);
}

using Lines = std::vector<std::string>;

std::string line(const char* name, uint64_t number) {
    return std::string(name) + "=" + std::to_string(number);
}

std::string profileTypeText(uint32_t type) {
    if (type == WDS_PROFILE_TYPE_ALL_V01) return "any";
    const std::optional<Tech> tech = techFrom(type);
    return tech ? techName(*tech) : std::to_string(type);
}

std::string profileText(const wds_profile_identifier_type_v01& id) {
    return profileTypeText(id.profile_type) + ":" + std::to_string(id.profile_index);
}

void describeFields(const void* request, PlaceOf placeOf, uint32_t type, Lines& lines) {
    const std::optional<Tech> tech = techFrom(type);
    const std::optional<Fields> fields = tech ? readFields(request, placeOf, *tech) : std::nullopt;
    if (!fields) {
        lines.emplace_back("fields=invalid");
        return;
    }
    for (std::string& each : describe(Profile{*tech, 0, *fields})) lines.push_back(std::move(each));
}

void describeBind(const void* request, Lines& lines) {
    lines.push_back(
        line("subscription", load<wds_bind_subscription_req_msg_v01>(request).subscription));
}

void describeRegister(const void* bytes, Lines& lines) {
    const auto request = load<wds_indication_register_req_msg_v01>(bytes);
    if (request.report_profile_changes_valid)
        lines.push_back(line("report_profile_changes", request.report_profile_changes));
}

void describeEventList(const void* bytes, Lines& lines) {
    const auto request = load<wds_configure_profile_event_list_req_msg_v01>(bytes);
    if (request.events_valid) {
        lines.push_back(line("events_len", request.events_len));
        for (uint32_t i = 0; i < request.events_len && i < WDS_PROFILE_LIST_MAX_V01; ++i) {
            const auto& event = request.events[i];
            lines.push_back(
                "event=" + profileTypeText(event.profile_type) + ":" +
                (event.profile_index == kAnyIndex ? "any" : std::to_string(event.profile_index)));
        }
    }
    if (request.report_own_changes_valid)
        lines.push_back(line("report_own_changes", request.report_own_changes));
}

void describeCreate(const void* request, Lines& lines) {
    uint32_t type = 0;
    memcpy(&type, request, sizeof type);
    lines.push_back("profile_type=" + profileTypeText(type));
    describeFields(request, &ProfileField::create, type, lines);
}

void describeIdentifier(const void* request, Lines& lines) {
    lines.push_back("profile=" + profileText(load<wds_profile_identifier_type_v01>(request)));
}

void describeModify(const void* request, Lines& lines) {
    describeIdentifier(request, lines);
    describeFields(request, &ProfileField::modify,
                   load<wds_profile_identifier_type_v01>(request).profile_type, lines);
}

void describeListRequest(const void* bytes, Lines& lines) {
    const auto request = load<wds_get_profile_list_req_msg_v01>(bytes);
    if (request.profile_type_valid)
        lines.push_back("profile_type=" + profileTypeText(request.profile_type));
}

struct Message {
    unsigned id;
    const char* name;
    size_t requestSize, responseSize;
    void (*carryOut)(const Call&);
    void (*describe)(const void* request, Lines& lines);
};

constexpr size_t kResultSize = sizeof(wds_result_resp_msg_v01);

constexpr Message kMessages[] = {
    {ZAP_WDS_INDICATION_REGISTER_REQ_V01, "register for indications",
     sizeof(wds_indication_register_req_msg_v01), kResultSize, registerForIndications,
     describeRegister},
    {ZAP_WDS_CREATE_PROFILE_REQ_V01, "create profile", sizeof(wds_create_profile_req_msg_v01),
     sizeof(wds_create_profile_resp_msg_v01), createProfile, describeCreate},
    {ZAP_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01, "modify profile",
     sizeof(wds_modify_profile_settings_req_msg_v01), kResultSize, modifyProfile, describeModify},
    {ZAP_WDS_DELETE_PROFILE_REQ_V01, "delete profile", sizeof(wds_delete_profile_req_msg_v01),
     kResultSize, deleteProfile, describeIdentifier},
    {ZAP_WDS_GET_PROFILE_LIST_REQ_V01, "list profiles", sizeof(wds_get_profile_list_req_msg_v01),
     sizeof(wds_get_profile_list_resp_msg_v01), getList, describeListRequest},
    {ZAP_WDS_GET_PROFILE_SETTINGS_REQ_V01, "get profile settings",
     sizeof(wds_get_profile_settings_req_msg_v01), sizeof(wds_get_profile_settings_resp_msg_v01),
     getSettings, describeIdentifier},
    {ZAP_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01, "configure event list",
     sizeof(wds_configure_profile_event_list_req_msg_v01), kResultSize, configureEventList,
     describeEventList},
    {ZAP_WDS_BIND_SUBSCRIPTION_REQ_V01, "bind subscription",
     sizeof(wds_bind_subscription_req_msg_v01), kResultSize, bindSubscription, describeBind},
};

const Message* findMessage(unsigned id) {
    for (const Message& message : kMessages)
        if (message.id == id) return &message;
    return nullptr;
}

}  // namespace

void writeResult(void* response, ErrorCode error) {
    const zap_response_type_v01 result = {error == ErrorCode::kNone ? 0u : 1u,
                                          static_cast<uint32_t>(error)};
    memcpy(response, &result, sizeof result);
}

Outcome carryOut(ModemState& modem, ClientId id, unsigned messageId, const void* request,
                 size_t requestSize, void* response, size_t responseSize) {
    Outcome outcome;
    Client& client = modem.clients.at(id);
    const Message* message = findMessage(messageId);
    if (!message) {
        outcome.error = ErrorCode::kUnknownMessage;
    } else if (requestSize != message->requestSize || responseSize != message->responseSize) {
        outcome.error = ErrorCode::kMalformedLength;
    } else if (!client.subscription && messageId != ZAP_WDS_BIND_SUBSCRIPTION_REQ_V01) {
        outcome.error = ErrorCode::kNotBound;
    } else {
        const bool wasRegistered = client.registered();
        message->carryOut({modem, client, request, response, outcome});
        outcome.nowRegistered = !wasRegistered && client.registered();
    }
    writeResult(response, outcome.error);
    return outcome;
}

void spoilResponse(unsigned messageId, void* response, const MetFaults& met) {
    const Fault* unknownEnums = met.find(FaultKind::kUnknownEnums);
    const uint32_t value = unknownEnums && unknownEnums->value ? unknownEnums->value : 0xC8C8C8C8u;
    const bool unterminated = met.find(FaultKind::kUnterminatedStrings) != nullptr;
    if (messageId == ZAP_WDS_GET_PROFILE_SETTINGS_REQ_V01) {
        if (unterminated) unterminateTexts(&ProfileField::settings, response);
        if (unknownEnums) overwriteEnumerations(&ProfileField::settings, response, value);
    } else if (messageId == ZAP_WDS_CREATE_PROFILE_REQ_V01) {
        auto created = load<wds_create_profile_resp_msg_v01>(response);
        if (unknownEnums)
            created.profile.profile_type = static_cast<wds_profile_type_enum_v01>(value);
        store(response, created);
    } else if (messageId == ZAP_WDS_GET_PROFILE_LIST_REQ_V01) {
        auto list = load<wds_get_profile_list_resp_msg_v01>(response);
        for (uint32_t i = 0; i < list.profile_list_len; ++i) {
            wds_profile_info_type_v01& info = list.profile_list[i];
            if (unterminated) unterminateText(info.profile_name, sizeof info.profile_name);
            if (unknownEnums) info.profile_type = static_cast<wds_profile_type_enum_v01>(value);
        }
        if (const Fault* count = met.find(FaultKind::kListCount))
            list.profile_list_len = count->value;
        store(response, list);
    }
}

std::vector<std::string> describe(const Request& request) {
    const Message* message = findMessage(request.messageId);
    if (!message || request.bytes.size() != message->requestSize)
        return {line("unknown_bytes", request.bytes.size())};
    Lines lines;
    message->describe(request.bytes.data(), lines);
    return lines;
}

std::string messageName(unsigned messageId) {
    if (const Message* message = findMessage(messageId)) return message->name;
    char hex[11];
    snprintf(hex, sizeof hex, "0x%04x", messageId);
    return hex;
}

std::map<unsigned, std::string> messageNames() {
    std::map<unsigned, std::string> names;
    for (const Message& message : kMessages) names.emplace(message.id, message.name);
    return names;
}

}  // namespace softmodem
