#include "verbs/CarrierList.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>

#include <pugixml.hpp>

#include "output/Settings.h"
#include "output/Text.h"
#include "session/Files.h"

namespace zemctl {

namespace {

using zem::ApnClass;
using zem::AuthType;
using zem::IPType;

constexpr zem::NamedValue<IPType> kProtocols[] = {
    {IPType::V4, "IP"},
    {IPType::V6, "IPV6"},
    {IPType::V4V6, "IPV4V6"},
};
// What Android takes an absent protocol or roaming_protocol for.
constexpr const char* kDefaultProtocol = "IP";

constexpr zem::NamedValue<AuthType> kAuthTypes[] = {
    {AuthType::NONE, "0"},
    {AuthType::PAP, "1"},
    {AuthType::CHAP, "2"},
    {AuthType::PAP_CHAP, "3"},
};

// "*" and an absent type: everything that Android's wildcard reaches; emergency, mcx and xcap are
// served by name only.
constexpr unsigned int kWildcardTypes = zem::APN_TYPE_DEFAULT | zem::APN_TYPE_MMS |
                                        zem::APN_TYPE_SUPL | zem::APN_TYPE_DUN |
                                        zem::APN_TYPE_HIPRI | zem::APN_TYPE_FOTA |
                                        zem::APN_TYPE_IMS | zem::APN_TYPE_CBS | zem::APN_TYPE_IA;

// The first rule whose type is served decides; the default comes first because an access point that
// carries it is the subscriber's internet, whatever it carries besides.
constexpr struct {
    unsigned int type;
    ApnClass apnClass;
} kClassRules[] = {
    {zem::APN_TYPE_DEFAULT, ApnClass::INET},
    {zem::APN_TYPE_IMS, ApnClass::IMS},
    {zem::APN_TYPE_FOTA, ApnClass::ADMN},
};
constexpr ApnClass kOtherClass = ApnClass::APP;

// Attributes that mean something to Android but nothing to a modem profile.
constexpr const char* kIgnoredAttributes[] = {
    "always_on",
    "apn_set_id",
    "bearer",
    "bearer_bitmask",
    "carrier",
    "carrier_id",
    "edited_status",
    "esim_bootstrap_provisioning",
    "infrastructure_bitmask",
    "lingering_network_type_bitmask",
    "mcc",
    "mmsc",
    "mmsport",
    "mmsproxy",
    "mnc",
    "modem_cognitive",
    "mtu",
    "mtu_v4",
    "mtu_v6",
    "mvno_match_data",
    "mvno_type",
    "name",
    "network_type_bitmask",
    "numeric",
    "port",
    "profile_id",
    "proxy",
    "server",
    "skip_464xlat",
    "user_editable",
    "user_visible",
};

constexpr const char* kMappedAttributes[] = {
    "apn",       "authtype",         "carrier_enabled",
    "max_conns", "max_conns_time",   "password",
    "type",      "protocol",         "user",
    "wait_time", "roaming_protocol",
};

template <size_t N>
bool contains(const char* const (&names)[N], std::string_view name) {
    return std::any_of(names, names + N, [&](const char* known) { return known == name; });
}

template <class Value, size_t N>
std::optional<Value> valueOf(const zem::NamedValue<Value> (&names)[N], std::string_view name) {
    for (const auto& [value, known] : names) {
        if (known == name) {
            return value;
        }
    }
    return std::nullopt;
}

bool isDigits(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string quoted(std::string_view value) {
    return '\'' + printable(value) + '\'';
}

std::optional<Plmn> operatorOf(const pugi::xml_node& element) {
    const std::string mcc = element.attribute("mcc").value();
    const std::string mnc = element.attribute("mnc").value();
    return mcc.size() == 3 ? Plmn::parse(mcc + mnc) : std::nullopt;
}

}  // namespace

std::optional<Plmn> Plmn::parse(std::string_view digits) {
    if ((digits.size() != 5 && digits.size() != 6) || !isDigits(digits)) {
        return std::nullopt;
    }
    return Plmn{std::string(digits.substr(0, 3)), std::string(digits.substr(3))};
}

const char* skipReasonText(SkipReason reason) {
    switch (reason) {
        case SkipReason::kNotAnApn:
            return "not an apn element";
        case SkipReason::kNoApnName:
            return "no APN name";
        case SkipReason::kLongApnName:
            return "APN name too long";
        case SkipReason::kNoKnownType:
            return "no known APN type";
        case SkipReason::kSameAsEarlier:
            return "same as an earlier entry";
    }
    return "unknown";
}

// The parsed file, with the text that it was parsed from: pugixml counts bytes, people lines.
struct CarrierFile::Document {
    std::string text;
    std::vector<size_t> lineStarts;
    pugi::xml_document xml;

    unsigned lineAt(size_t offset) const {
        const auto next = std::upper_bound(lineStarts.begin(), lineStarts.end(), offset);
        return static_cast<unsigned>(next - lineStarts.begin());
    }

    unsigned line(const pugi::xml_node& element) const {
        return lineAt(static_cast<size_t>(std::max<ptrdiff_t>(0, element.offset_debug())));
    }

    unsigned line(const pugi::xml_node& element, std::string_view attribute) const;
};

// pugixml has no position for an attribute, so the element's text, known to be well formed, is
// walked once more.
unsigned CarrierFile::Document::line(const pugi::xml_node& element,
                                     std::string_view attribute) const {
    static const char kBlanks[] = " \t\r\n";
    const auto offset = static_cast<size_t>(std::max<ptrdiff_t>(0, element.offset_debug()));
    size_t at = text.find_first_of(" \t\r\n/>", offset);
    for (;;) {
        at = text.find_first_not_of(kBlanks, at);
        if (at == std::string::npos || text[at] == '/' || text[at] == '>') {
            return line(element);
        }
        const size_t nameEnd = text.find_first_of(" \t\r\n=", at);
        const size_t valueBegin = text.find_first_of("\"'", nameEnd);
        if (nameEnd == std::string::npos || valueBegin == std::string::npos) {
            return line(element);
        }
        if (std::string_view(text).substr(at, nameEnd - at) == attribute) {
            return lineAt(at);
        }
        const size_t valueEnd = text.find(text[valueBegin], valueBegin + 1);
        at = valueEnd == std::string::npos ? valueEnd : valueEnd + 1;
    }
}

namespace {

// Maps one element's attributes; what cannot be mapped becomes a warning and stays absent.
class EntryReader {
  public:
    using LineOf = std::function<unsigned(std::string_view attribute)>;

    EntryReader(const pugi::xml_node& apnElement, LineOf lineOfAttribute,
                std::vector<CarrierWarning>& warningsFound)
        : element(apnElement), lineOf(std::move(lineOfAttribute)), warnings(warningsFound) {}

    // The first reason against the entry; empty when params has become useful.
    std::optional<std::pair<SkipReason, std::string>> read(zem::ProfileParams& params);

  private:
    std::optional<std::string_view> given(const char* attribute) const;
    void warn(const char* attribute, std::string text);
    void checkNames();
    bool readTypes(zem::ProfileParams& params);
    std::optional<std::string> credential(const char* attribute);
    std::optional<IPType> protocol(const char* attribute);
    std::optional<int> number(const char* attribute);

    const pugi::xml_node& element;
    LineOf lineOf;
    std::vector<CarrierWarning>& warnings;
};

std::optional<std::string_view> EntryReader::given(const char* attribute) const {
    const pugi::xml_attribute found = element.attribute(attribute);
    return found ? std::optional<std::string_view>(found.value()) : std::nullopt;
}

void EntryReader::warn(const char* attribute, std::string text) {
    warnings.push_back({lineOf(attribute), std::move(text)});
}

// A misspelt attribute would silently leave its setting at the default, and of two of one name the
// parser silently takes the first.
void EntryReader::checkNames() {
    std::set<std::string_view> seen;
    for (const pugi::xml_attribute& attribute : element.attributes()) {
        const std::string_view name = attribute.name();
        if (!seen.insert(name).second) {
            warn(attribute.name(),
                 "attribute " + quoted(name) + " is given twice, the first counts");
        } else if (!contains(kMappedAttributes, name) && !contains(kIgnoredAttributes, name)) {
            warn(attribute.name(), "unknown attribute " + quoted(name));
        }
    }
}

bool EntryReader::readTypes(zem::ProfileParams& params) {
    const std::string_view types = given("type").value_or("");
    unsigned int mask = 0;
    if (trimmed(types).empty()) {
        mask = kWildcardTypes;
    } else {
        for (const std::string_view part : split(types, ',')) {
            const std::string_view name = trimmed(part);
            if (name.empty()) {
                continue;
            }
            if (name == "*") {
                mask |= kWildcardTypes;
            } else if (const auto bit = apnTypeFromName(name)) {
                mask |= *bit;
            } else {
                warn("type", "unknown APN type " + quoted(name));
            }
        }
    }
    if (mask == 0) {
        return false;
    }
    params.setApnTypesMask(mask);
    const auto rule =
        std::find_if(std::begin(kClassRules), std::end(kClassRules),
                     [&](const auto& candidate) { return (mask & candidate.type) != 0; });
    params.setApnClass(rule == std::end(kClassRules) ? kOtherClass : rule->apnClass);
    return true;
}

std::optional<std::string> EntryReader::credential(const char* attribute) {
    const auto text = given(attribute);
    if (!text || text->empty()) {
        return std::nullopt;
    }
    if (text->size() > kLongestCredential) {
        warn(attribute, std::string(attribute) + " is longer than " +
                            std::to_string(kLongestCredential) + " bytes");
        return std::nullopt;
    }
    return std::string(*text);
}

std::optional<IPType> EntryReader::protocol(const char* attribute) {
    const std::string_view text = given(attribute).value_or(kDefaultProtocol);
    const auto type = valueOf(kProtocols, text);
    if (!type) {
        warn(attribute, std::string("unknown ") + attribute + ' ' + quoted(text));
    }
    return type;
}

std::optional<int> EntryReader::number(const char* attribute) {
    const auto text = given(attribute);
    if (!text) {
        return std::nullopt;
    }
    const auto value = parseNumber(*text, 0, kLargestNumber);
    if (!value) {
        warn(attribute, std::string(attribute) + ' ' + quoted(*text) +
                            " is not a number from 0 to " + std::to_string(kLargestNumber));
    }
    return value;
}

std::optional<std::pair<SkipReason, std::string>> EntryReader::read(zem::ProfileParams& params) {
    checkNames();
    const std::string_view apn = trimmed(given("apn").value_or(""));
    if (apn.empty()) {
        return std::pair(SkipReason::kNoApnName, std::string());
    }
    if (apn.size() > kLongestApnName) {
        return std::pair(SkipReason::kLongApnName, std::to_string(apn.size()) + " bytes, at most " +
                                                       std::to_string(kLongestApnName));
    }
    params.setApnName(std::string(apn));
    if (!readTypes(params)) {
        return std::pair(SkipReason::kNoKnownType, quoted(element.attribute("type").value()));
    }
    if (auto user = credential("user")) {
        params.setUserName(*std::move(user));
    }
    if (auto password = credential("password")) {
        params.setPassword(*std::move(password));
    }
    if (const auto text = given("authtype")) {
        if (const auto type = valueOf(kAuthTypes, *text)) {
            params.setAuthType(*type);
        } else {
            warn("authtype", "unknown authtype " + quoted(*text));
        }
    }
    if (const auto type = protocol("protocol")) {
        params.setHomeIPType(*type);
    }
    if (const auto type = protocol("roaming_protocol")) {
        params.setRoamIPType(*type);
    }
    if (const auto value = number("max_conns")) {
        params.setMaxPdnsConnPerBlock(*value);
    }
    if (const auto value = number("max_conns_time")) {
        params.setMaxPdnConnTimer(*value);
    }
    if (const auto value = number("wait_time")) {
        params.setPdnReqWaitInterval(*value);
    }
    if (const auto text = given("carrier_enabled")) {
        const std::string enabled = lowerCase(*text);
        if (enabled == "true" || enabled == "false") {
            params.setIsApnDisabled(enabled == "false");
        } else {
            warn("carrier_enabled",
                 "carrier_enabled " + quoted(*text) + " is neither true nor false");
        }
    }
    return std::nullopt;
}

}  // namespace

CarrierFile::CarrierFile(std::unique_ptr<Document> parsed) : document(std::move(parsed)) {}
CarrierFile::~CarrierFile() = default;
CarrierFile::CarrierFile(CarrierFile&&) noexcept = default;
CarrierFile& CarrierFile::operator=(CarrierFile&&) noexcept = default;

CarrierFile CarrierFile::read(const std::string& path) {
    std::string text;
    try {
        text = readFile(path);
    } catch (const std::runtime_error& error) {
        throw CarrierFileError(error.what());
    }
    return parse(std::move(text), path);
}

CarrierFile CarrierFile::parse(std::string text, const std::string& name) {
    auto document = std::make_unique<Document>();
    document->text = std::move(text);
    document->lineStarts.push_back(0);
    for (size_t i = 0; i < document->text.size(); ++i) {
        if (document->text[i] == '\n') {
            document->lineStarts.push_back(i + 1);
        }
    }
    // The encoding is fixed because a converted text would have other offsets.
    const pugi::xml_parse_result result = document->xml.load_buffer(
        document->text.data(), document->text.size(), pugi::parse_default, pugi::encoding_utf8);
    const auto at = [&](size_t offset) {
        return printable(name) + ':' + std::to_string(document->lineAt(offset)) + ": ";
    };
    if (result.status == pugi::status_no_document_element) {
        throw CarrierFileError(printable(name) + ": not an XML file: it has no element");
    }
    if (!result) {
        std::string why = result.description();
        why[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(why[0])));
        throw CarrierFileError(at(static_cast<size_t>(result.offset)) + "not an XML file: " + why);
    }
    const pugi::xml_node root = document->xml.document_element();
    if (std::strcmp(root.name(), "apns") != 0) {
        throw CarrierFileError(at(static_cast<size_t>(root.offset_debug())) +
                               "not a carrier list: its root element is " + quoted(root.name()) +
                               ", not 'apns'");
    }
    return CarrierFile(std::move(document));
}

namespace {

template <class Visitor>
void forEachElement(const pugi::xml_document& xml, const Visitor& visit) {
    for (const pugi::xml_node& node : xml.document_element().children()) {
        if (node.type() == pugi::node_element) {
            visit(node);
        }
    }
}

}  // namespace

size_t CarrierFile::entries() const {
    size_t count = 0;
    forEachElement(document->xml, [&](const pugi::xml_node&) { ++count; });
    return count;
}

std::vector<Plmn> CarrierFile::operators() const {
    std::vector<Plmn> result;
    std::set<std::string> seen;
    forEachElement(document->xml, [&](const pugi::xml_node& element) {
        if (const auto plmn = operatorOf(element); plmn && seen.insert(plmn->digits()).second) {
            result.push_back(*plmn);
        }
    });
    return result;
}

std::vector<unsigned> CarrierFile::strayLines() const {
    std::vector<unsigned> lines;
    forEachElement(document->xml, [&](const pugi::xml_node& element) {
        if (!operatorOf(element)) {
            lines.push_back(document->line(element));
        }
    });
    return lines;
}

CarrierList CarrierFile::select(const Plmn& plmn) const {
    CarrierList list;
    std::map<std::vector<std::optional<std::string>>, unsigned> earlier;
    forEachElement(document->xml, [&](const pugi::xml_node& element) {
        if (plmn.mcc != element.attribute("mcc").value() ||
            plmn.mnc != element.attribute("mnc").value()) {
            return;
        }
        ++list.entries;
        const unsigned line = document->line(element);
        const std::string carrier = printable(element.attribute("carrier").value());
        const auto skip = [&](SkipReason reason, std::string detail) {
            list.skipped.push_back({line, carrier, reason, std::move(detail)});
        };
        if (std::strcmp(element.name(), "apn") != 0) {
            return skip(SkipReason::kNotAnApn, quoted(element.name()));
        }
        zem::ProfileParams params;
        EntryReader reader(
            element, [&](std::string_view attribute) { return document->line(element, attribute); },
            list.warnings);
        if (auto problem = reader.read(params)) {
            return skip(problem->first, std::move(problem->second));
        }
        const auto [same, isNew] = earlier.emplace(settingTexts(params), line);
        if (!isNew) {
            return skip(SkipReason::kSameAsEarlier, "line " + std::to_string(same->second));
        }
        list.usable.push_back({line, carrier, std::move(params)});
    });
    return list;
}

}  // namespace zemctl
