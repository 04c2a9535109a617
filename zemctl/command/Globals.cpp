#include "command/Globals.h"

#include "command/Values.h"
#include "session/LibraryLog.h"

namespace zemctl {

namespace {

const std::vector<std::string>& factoryNames() {
    static const std::vector<std::string> names = {"default", "none"};
    return names;
}

}  // namespace

const Arguments& globalArguments() {
    static const Arguments arguments = {
#ifdef ZEM_WITH_SOFTMODEM
        {"--modem", "FILE", "Keep the software modem's profiles in FILE between calls",
         Arity::kOptional, fileNames},
        {"--factory", "default|none", "What a new modem boots with: its default profiles, or none",
         Arity::kOptional, [](const Typing&) { return factoryNames(); }},
#endif
        {"--subscription", "N", "The modem's subscription, 0 (unless said otherwise) to 15"},
        {"--json", "", "One JSON object a line on standard output, and nothing else there",
         Arity::kSwitch},
        {"--show-secrets", "", "Show passwords, which are masked otherwise", Arity::kSwitch},
        {"--version", "", "Say which version this is, and nothing else", Arity::kSwitch},
        {"--log", "LEVEL", "The library's own lines on standard error, from this level on",
         Arity::kOptional, [](const Typing&) { return libraryLogLevels(); }},
    };
    return arguments;
}

const std::vector<std::string>& startOptions() {
    static const std::vector<std::string> names = {"--modem", "--factory", "--subscription",
                                                   "--log", "--version"};
    return names;
}

void takeGlobals(const Given& given, Globals& globals) {
    const auto option = [&](const char* name) { return OptionText{name, given.text(name)}; };
    if (given.has("--modem")) {
        globals.modemFile = given.text("--modem");
        if (globals.modemFile.empty()) {
            throw UsageError("--modem takes the name of a file");
        }
    }
    if (given.has("--factory")) {
        globals.factoryProfiles = option("--factory").placeIn(factoryNames()) == 0;
    }
    if (given.has("--subscription")) {
        globals.subscription = option("--subscription").number(0, kLastSubscription);
    }
    if (given.has("--log")) {
        globals.log = libraryLogLevels()[option("--log").placeIn(libraryLogLevels())];
    }
    globals.json = globals.json || given.has("--json");
    globals.showSecrets = globals.showSecrets || given.has("--show-secrets");
}

}  // namespace zemctl
