// Parameter records, filters, envelopes and log lines, with any values and texts in them.
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <softmodem/SoftModem.h>

#include "AdbWriter.h"
#include "CallbackRequest.h"
#include "ClientRequest.h"
#include "ClientResponse.h"
#include "DiagWriter.h"
#include "Input.h"
#include "LocalLogBuffer.h"
#include "LogWrapper.h"
#include "ProfileKey.h"
#include "Records.h"

namespace zem::fuzz {
namespace {

constexpr size_t kLongestLine = 511;

size_t countOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

bool same(const ProfileParams& a, const ProfileParams& b) {
    return std::all_of(std::begin(kSettings), std::end(kSettings),
                       [&](const Setting& setting) { return setting.text(a) == setting.text(b); });
}

// Labels are looked for behind these texts, so they hold none.
void plainTexts(ProfileParams& params) {
    const auto plain = [](std::string text) {
        std::replace(text.begin(), text.end(), '=', '-');
        return text;
    };
    if (params.hasApnName()) params.setApnName(plain(params.getApnName()));
    if (params.hasUserName()) params.setUserName(plain(params.getUserName()));
    if (params.hasPassword()) params.setPassword(plain(params.getPassword()));
}

void checkDump(const ProfileParams& params) {
    const std::string dump = params.dump();
    for (const Setting& setting : kSettings) {
        const auto text = setting.text(params);
        require(countOf(dump, setting.label) == (text ? 1 : 0), "each setting is dumped once",
                dump);
    }
    require(!params.hasPassword() || contains(dump, "Password=" + params.getPassword() + ','),
            "a text is dumped as it stands", dump);
}

void tryRecords(Input& input) {
    auto params = drawRecord<ProfileParams>(input);
    plainTexts(params);
    checkDump(params);
    ProfileParams copy = params;
    require(same(copy, params) && copy.dump() == params.dump(), "a copy is the same");
    const ProfileParams moved = std::move(copy);
    require(same(moved, params), "what was moved is the same");

    const bool isPersistent = input.flag();
    const bool isIA = input.flag();
    const auto tech = TechType(input.small());
    const AddProfileParams add(params, isPersistent, tech, isIA);
    require(same(add, params) && add.getIsPersistent() == isPersistent &&
                add.getTechType() == tech && add.getIsIAProfile() == isIA,
            "an addition holds what it was made of");
    checkDump(add);
    require(same(ModifyProfileParams(add), params), "a change holds what it was made of");

    FilterProfileParams filter(add);
    require(same(filter, params) && filter.hasFilterByIsIAProfile() &&
                !filter.hasFilterByIsZemProfile() && filter.getFilterMatchCriteria() == 0,
            "a filter holds what it was made of, and no criteria");
    checkDump(filter);
    require(filter.dump().rfind("None: ", 0) == 0, "no criteria are dumped as none", filter.dump());
    drawSettings(input, params);  // a record may be filled in any number of goes
    ProfileParams assigned;
    assigned = params;
    require(same(assigned, params), "what was assigned is the same");
}

void tryCriteria(Input& input) {
    FilterProfileParams filter = drawFilter(input);
    unsigned int bits = filter.getFilterMatchCriteria();
    for (size_t count = input.upTo(8); count > 0; --count) {
        const auto change = input.number<uint32_t>();
        if (input.flag()) {
            filter.addFilterMatchCriteria(change);
            bits |= change;
        } else {
            filter.removeFilterMatchCriteria(change);
            bits &= ~change;
        }
        require(filter.getFilterMatchCriteria() == bits, "criteria are bits");
    }
    const std::string dump = filter.dump();
    const std::string names = dump.substr(0, dump.find(": "));
    for (const auto& [bit, name] : kMatchCriteriaNames) {
        require(contains(names, std::string(name) + '|') == ((bits & bit) != 0),
                "each criterion is dumped by name", dump);
    }
    require(FilterProfileParams(filter).dump() == dump, "a copy of a filter is dumped the same");
}

std::shared_ptr<IProfileKey> drawKey(Input& input, unsigned& released) {
    if (input.rarely(4)) return nullptr;
    const auto token = input.number<uint64_t>();
    return std::make_shared<ProfileKey>(
        TechType(input.small()), static_cast<int>(input.small()), token,
        [&released, token](const std::shared_ptr<ClientRequest>& request) {
            const auto* callback = dynamic_cast<const CallbackRequest*>(request.get());
            require(callback && callback->getReleaseToken() == token, "a key names its token");
            require(contains(request->dump(), "Release " + std::to_string(token)),
                    "a release is dumped", request->dump());
            ++released;
            return nullptr;
        });
}

void tryEnvelopes(Input& input) {
    unsigned released = 0;
    unsigned made = 0;
    const auto key = [&] {
        auto drawn = drawKey(input, released);
        made += drawn ? 1 : 0;
        return drawn;
    };
    const auto checkRequest = [&](const ClientRequest& request, const ProfileParams& params) {
        require(contains(request.dump(), params.dump()), "a request dumps its record",
                request.dump());
    };
    {
        const auto status = Status(input.small());
        const AddProfileParams add(drawRecord<ProfileParams>(input), input.flag(),
                                   TechType(input.small()), input.flag());
        const auto modify = drawRecord<ModifyProfileParams>(input);
        const FilterProfileParams filter = drawFilter(input);
        checkRequest(AddRequest(add), add);
        checkRequest(ModifyRequest(modify, key()), modify);
        checkRequest(FilterRequest(filter), filter);
        checkRequest(MatchRequest(filter, key()), filter);
        const auto shared = key();
        const std::string name = shared ? shared->dump() : "";
        require(contains(DeleteRequest(shared).dump(), name), "a request dumps its key");
        require(contains(GetRequest(shared).dump(), name), "a request dumps its key");
        require(!shared || contains(AddResponse(status, shared).dump(), name),
                "a response dumps its key");
        const GetResponse got(status, input.flag() ? std::optional(add) : std::nullopt);
        require(!got.getParams() || contains(got.dump(), got.getParams()->dump()),
                "a response dumps its record", got.dump());
        std::list<std::shared_ptr<IProfileKey>> keys;
        for (size_t count = input.upTo(4); count > 0; --count) keys.push_back(key());
        const FilterResponse filtered(status, keys);
        require(filtered.getFilterResult() == keys, "a response holds its keys");
        require(countOf(filtered.dump(), ",") == keys.size(), "a response dumps each key",
                filtered.dump());
        const MatchResponse match(status, input.flag());
        require(contains(match.dump(), match.getMatchResult() ? "true" : "false"),
                "a response dumps its answer", match.dump());
        require(!nameOf(ReqRespType(input.small())).empty(), "every type has a name or a number");
    }
    require(released == made, "every key is given back once");
}

struct WrittenLine {
    LogLevel level;
    std::string tag, message;
};

class Writer : public LogWriter {
  public:
    explicit Writer(std::vector<WrittenLine>& lines) : lines(lines) {}
    void write(LogLevel level, std::string tag, std::string message) override {
        lines.push_back({level, std::move(tag), std::move(message)});
    }
    int convertPrio(LogLevel level) override { return static_cast<int>(level); }

  private:
    std::vector<WrittenLine>& lines;
};

void tryLogLines(Input& input) {
    const auto level = LogLevel(input.small());
    const std::string tag = input.text().c_str();
    const std::string text = input.text();
    std::vector<WrittenLine> lines;
    LocalLogBuffer& kept = LocalLogBuffer::getInstance();
    kept.flush();
    LogWrapper& log = LogWrapper::getInstance();
    log.setLogWriter(std::make_unique<Writer>(lines));
    log.log(level, tag.c_str(), "%s", text.c_str());
    log.setLogWriter(nullptr);
    const std::string expected = std::string(text.c_str()).substr(0, kLongestLine);
    require(lines.size() == 1 && lines[0].level == level && lines[0].tag == tag &&
                lines[0].message == expected,
            "a line is written as it stands, up to its longest", text);
    const bool important = level == LOG_API || level == LOG_ERROR;
    const auto memory = kept.getLogs();
    require(memory.size() == (important ? 1 : 0), "important lines alone are kept");
    require(!important || contains(memory[0], " [ZEM]" + expected), "a line is kept as it stands");
}

void tryLogBuffer(Input& input) {
    const size_t capacity = input.upTo(8);
    const std::string name = input.text();
    LocalLogBuffer buffer(name, static_cast<int>(capacity));
    std::vector<std::string> all;
    for (size_t count = input.upTo(20); count > 0; --count) {
        if (input.rarely(16)) {
            buffer.flush();
            all.clear();
        }
        all.push_back(input.text());
        buffer.addLogWithTimestamp(all.back());
        const auto kept = buffer.getLogs();
        require(kept.size() == std::min(all.size(), capacity + 1), "the newest lines are kept");
        for (size_t i = 0; i < kept.size(); ++i) {
            const std::string end = '[' + name + ']' + all[all.size() - kept.size() + i];
            require(kept[i].size() > end.size() &&
                        kept[i].compare(kept[i].size() - end.size(), end.size(), end) == 0,
                    "lines are kept as they stand, oldest first", kept[i]);
        }
    }
    require(buffer.getName() == name, "a buffer knows its name");
}

void tryWriters(Input& input) {
    auto& modem = softmodem::SoftModem::instance();  // the other end of the diagnostic channel
    const auto level = LogLevel(input.small());
    const int android = AdbWriter().convertPrio(level);
    require(android >= 2 && android <= 7, "every level has a priority");
    modem.reset();
    DiagWriter writer;
    const int mask = writer.convertPrio(level);
    require(mask == 1 || mask == 4 || mask == 16, "every level has a mask");
    const std::string tag = input.text().c_str();
    const std::string text = input.text().c_str();
    writer.write(level, tag, text);
    const auto lines = modem.diagLines();
    require(lines.size() == 1 && lines[0].text == '|' + tag + "| " + text,
            "the diagnostic channel gets a line as it stands", text);
}

constexpr void (*kOperations[])(Input&) = {tryRecords,  tryCriteria,  tryEnvelopes,
                                           tryLogLines, tryLogBuffer, tryWriters};

}  // namespace
}  // namespace zem::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace zem::fuzz;
    constexpr int kMostOperations = 32;
    Input input(data, size);
    for (int i = 0; i < kMostOperations && !input.empty(); ++i) input.oneOf(kOperations)(input);
    return 0;
}
