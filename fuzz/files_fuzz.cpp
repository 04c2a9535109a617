// The texts that people write: carrier lists, the software modem's files, scripts and command
// lines. The first byte of an input says which; the rest is the text as it stands.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <stdexcept>
#include <string>
#include <variant>

#include <softmodem/SoftModem.h>

#include "Input.h"
#include "command/CommandParser.h"
#include "command/Completion.h"
#include "output/Secrets.h"
#include "output/Settings.h"
#include "output/Text.h"
#include "shell/Script.h"
#include "verbs/CarrierList.h"

namespace zem::fuzz {
namespace {

using softmodem::SoftModem;

unsigned linesIn(const std::string& text) {
    return 1 + static_cast<unsigned>(std::count(text.begin(), text.end(), '\n'));
}

// "NAME:LINE: what is wrong", in one line.
void checkComplaint(const std::string& said, const std::string& name, const std::string& text) {
    const size_t begin = name.size() + 1;
    const size_t end = said.find_first_not_of("0123456789", begin);
    require(said.rfind(name + ':', 0) == 0 && end != begin && end != std::string::npos &&
                said.compare(end, 2, ": ") == 0,
            "a complaint names a line", said);
    const unsigned long line = std::stoul(said.substr(begin));
    require(line > 0 && line <= linesIn(text), "the line is one of the file's", said);
    require(said.find('\n') == std::string::npos, "a complaint is one line", said);
}

void checkParams(const ProfileParams& params) {
    const size_t apn = params.getApnName().size();
    require(apn > 0 && apn <= zemctl::kLongestApnName, "a usable entry has an APN");
    require(params.getUserName().size() <= zemctl::kLongestCredential &&
                params.getPassword().size() <= zemctl::kLongestCredential,
            "a usable entry's credentials fit");
    require(params.getApnTypesMask() != 0 && params.hasApnClass(), "a usable entry has types");
    for (const int number : {params.getMaxPdnsConnPerBlock(), params.getMaxPdnConnTimer(),
                             params.getPdnReqWaitInterval()}) {
        require(number >= 0 && number <= zemctl::kLargestNumber, "a usable entry's numbers fit");
    }
}

void tryCarrierList(const std::string& text) {
    constexpr char kName[] = "carriers.xml";
    try {
        const auto file = zemctl::CarrierFile::parse(text, kName);
        const unsigned lines = linesIn(text);
        const auto stray = file.strayLines();
        size_t entries = stray.size();
        std::set<std::string> operators;
        for (const auto& plmn : file.operators()) {
            require(operators.insert(plmn.digits()).second, "an operator is named once");
            const auto list = file.select(plmn);
            require(list.entries > 0 && list.entries == list.usable.size() + list.skipped.size(),
                    "an entry is usable or skipped");
            entries += list.entries;
            const auto checkLine = [&](const auto& of) {
                require(of.line > 0 && of.line <= lines, "a line is one of the file's");
            };
            for (const auto& entry : list.usable) {
                checkLine(entry);
                checkParams(entry.params);
            }
            for (const auto& entry : list.skipped) checkLine(entry);
            for (const auto& warning : list.warnings) checkLine(warning);
        }
        require(entries == file.entries(), "an entry is an operator's or nobody's");
    } catch (const zemctl::CarrierFileError& error) {
        const std::string said = error.what();
        if (said != std::string(kName) + ": not an XML file: it has no element") {
            checkComplaint(said, kName, text);
        }
    }
}

// A file without a place on the disk; its name leads to it.
class ScratchFile {
  public:
    explicit ScratchFile(const std::string& text) : fd(memfd_create("store", MFD_CLOEXEC)) {
        require(fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()),
                "a scratch file can be had");
        name = "/proc/self/fd/" + std::to_string(fd);
    }
    ~ScratchFile() { close(fd); }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    std::string name;

  private:
    const int fd;
};

constexpr char kStore[] =
    "softmodem-profiles 1\n\n[subscription 0 3gpp 1]\npdp_type = ipv4v6\napn_name = \"ims\"\n";

void tryStore(const std::string& text) {
    SoftModem& modem = SoftModem::instance();
    modem.reset();
    modem.load(ScratchFile(kStore).name);
    const std::string before = modem.storeText();
    require(before == kStore, "a file reads as it was written", before);
    const ScratchFile file(text);
    try {
        modem.load(file.name);
    } catch (const std::runtime_error& error) {
        checkComplaint(error.what(), file.name, text);
        require(modem.storeText() == before, "a refused file changes nothing", error.what());
        return;
    }
    const std::string saved = modem.storeText();
    for (const auto& profile : modem.profiles()) {
        for (const auto& [name, value] : profile.fields) {
            const std::string said =
                softmodem::describe({profile.tech, profile.index, {{name, value}}}).at(0);
            if (std::holds_alternative<std::string>(value)) continue;  // said with escapes
            require(
                softmodem::parseValue(profile.tech, name, said.substr(name.size() + 1)) == value,
                "a value is read as it is said", said);
        }
    }
    modem.load(ScratchFile(saved).name);
    require(modem.storeText() == saved, "what was saved loads as the same store", saved);
}

void tryScript(const std::string& text) {
    constexpr char kName[] = "script.zem";
    try {
        const zemctl::Script script(kName, text, {});
    } catch (const zemctl::UsageError& error) {
        checkComplaint(error.what(), kName, text);
    }
}

template <bool inSession>
void tryLine(const std::string& line) {
    const auto unfinished = zemctl::splitUnfinished(line);
    for (const auto& offered :
         zemctl::complete(unfinished.words, unfinished.word, nullptr, {"3gpp:1"}).words) {
        require(!offered.empty() &&
                    zemctl::splitWords(zemctl::escaped(offered)) == std::vector{offered},
                "a word that is offered can be typed", offered);
    }
    std::vector<std::string> words;
    try {
        words = zemctl::splitWords(line);
    } catch (const std::invalid_argument&) {
        return;
    }
    std::string again;
    for (const auto& word : words) again += zemctl::escaped(word) + ' ';
    require(zemctl::splitWords(again) == words, "words are read as they were escaped", again);
    const auto shown = zemctl::splitWords(zemctl::withoutSecretWords(line));
    require(shown.size() == words.size(), "a line is shown with all its words", line);
    for (size_t i = 1; i < words.size(); ++i) {
        require(words[i - 1] != "--password" || shown[i].find("(hidden)") != std::string::npos,
                "a password is not shown", line);
    }
    try {
        require(!zemctl::parseCommand(words, {}, inSession).steps.empty(),
                "a command does something");
    } catch (const zemctl::UsageError& error) {
        require(error.status == zemctl::kUsage && *error.what() != '\0', "a refusal says why");
    }
}

constexpr struct {
    char letter;  // for those who read a corpus
    void (*run)(const std::string& text);
} kOperations[] = {{'X', tryCarrierList},
                   {'M', tryStore},
                   {'S', tryScript},
                   {'C', tryLine<false>},
                   {'L', tryLine<true>}};

}  // namespace
}  // namespace zem::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace zem::fuzz;
    Input input(data, size);
    const char letter = input.number<char>();
    const std::string text = input.rest();
    for (const auto& operation : kOperations) {
        if (operation.letter == letter) operation.run(text);
    }
    return 0;
}
