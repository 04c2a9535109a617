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
#include "TestLog.h"

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
    const ProfileParams copy = params;
    require(same(copy, params) && copy.dump() == params.dump(), "a copy is the same");

    const bool isPersistent = input.flag();
    const bool isIA = input.flag();
    const auto tech = TechType(input.small());
    const AddProfileParams add(params, isPersistent, tech, isIA);
    require(same(add, params) && add.getIsPersistent() == isPersistent &&
                add.getTechType() == tech && add.getIsIAProfile() == isIA,
            "an addition holds what it was made of");
    checkDump(add);
    require(same(ModifyProfileParams(add), params), "a change holds what it was made of");

    const FilterProfileParams filter(add);
    require(same(filter, params) && filter.hasFilterByIsIAProfile() &&
                !filter.hasFilterByIsZemProfile() && filter.getFilterMatchCriteria() == 0,
            "a filter holds what it was made of, and no criteria");
    checkDump(filter);
    drawSettings(input, params);  // a record may be filled in any number of goes
    plainTexts(params);
    checkDump(params);
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
    const auto tech = TechType(input.small());
    return std::make_shared<ProfileKey>(
        tech, static_cast<int>(input.small()), token,
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
    {
        const auto key = [&] {
            auto drawn = drawKey(input, released);
            made += drawn ? 1 : 0;
            return drawn;
        };
        const auto checkDumped = [](const auto& envelope, const std::string& content) {
            require(contains(envelope.dump(), content), "an envelope dumps what is in it",
                    envelope.dump());
        };
        const auto status = Status(input.small());
        const AddProfileParams add{drawRecord<ProfileParams>(input), input.flag(),
                                   TechType(input.small()), input.flag()};
        const auto modify = drawRecord<ModifyProfileParams>(input);
        const FilterProfileParams filter = drawFilter(input);
        checkDumped(AddRequest(add), add.dump());
        checkDumped(ModifyRequest(modify, key()), modify.dump());
        checkDumped(FilterRequest(filter), filter.dump());
        checkDumped(MatchRequest(filter, key()), filter.dump());
        checkDumped(GetResponse(status, add), ProfileParams(add).dump());
        checkDumped(MatchResponse(status, true), "true");
        const auto shared = key();
        const std::string name = shared ? shared->dump() : "";
        checkDumped(DeleteRequest(shared), name);
        checkDumped(GetRequest(shared), name);
        checkDumped(AddResponse(status, shared), name);
        std::list<std::shared_ptr<IProfileKey>> keys;
        for (size_t count = input.upTo(4); count > 0; --count) keys.push_back(key());
        const FilterResponse filtered(status, keys);
        require(filtered.getFilterResult() == keys && countOf(filtered.dump(), ",") == keys.size(),
                "a response holds and dumps its keys", filtered.dump());
    }
    require(released == made, "every key is given back once");
}

void tryLogLines(Input& input) {
    const auto level = LogLevel(input.small());
    const std::string text = input.text();
    LocalLogBuffer& kept = LocalLogBuffer::getInstance();
    kept.flush();
    const RecordedLog log;
    LogWrapper::getInstance().log(level, kLogTag, "%s", text.c_str());
    const std::string expected = std::string(text.c_str()).substr(0, kLongestLine);
    require(log.lines() == std::vector<Line>{{level, expected}},
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
