#include "verbs/ToolVerbs.h"

#include <nlohmann/json.hpp>

#include "command/Completion.h"
#include "command/Help.h"
#include "command/ManPage.h"
#include "command/Values.h"
#include "output/Settings.h"
#include "output/Text.h"
#include "session/Session.h"
#include "shell/Script.h"
#include "shell/Shell.h"

namespace zemctl {

namespace {

Step prepareFields(const Given& /*given*/) {
    return [](Session& session) {
        Table table({"OPTION", "VALUES", "DEFAULT", "FAMILY", "SETTING", "MEANING"});
        for (const Setting& setting : kSettings) {
            const std::vector<std::string> names =
                setting.candidates ? setting.candidates({}) : std::vector<std::string>();
            const std::string values = names.empty() ? setting.values : join(names, " ");
            const char* const family = setting.only3gpp ? "3GPP" : "both";
            table.row({setting.option, values, setting.unset, family, setting.name, setting.help});
            session.output.object({{"option", setting.option},
                                   {"setting", setting.name},
                                   {"type", setting.type},
                                   {"values", names.empty() ? Json(setting.values) : Json(names)},
                                   {"default", nullptr},
                                   {"only3gpp", setting.only3gpp},
                                   {"help", setting.help}});
        }
        session.report.table(table);
        return kDone;
    };
}

Step prepareHelp(const Given& given) {
    const std::string name = join(given.all("VERB"), " ");
    bool known = name.empty() || findVerb(name);
    for (const std::string& candidate : verbNames(false)) {
        known = known || candidate.rfind(name + ' ', 0) == 0;
    }
    if (!known) {
        throw UsageError("no verb '" + name + '\'' + suggestion(name, verbNames(false)));
    }
    return helpStep(name);
}

Step prepareMan(const Given& /*given*/) {
    return [](Session& session) {
        session.output.page() << manPage();
        return kDone;
    };
}

}  // namespace

VerbGroup toolVerbs() {
    return {
        "The tool",
        {
            {"run",
             "Play a script: commands in a file, with what each has to answer",
             "Lines are commands as in the shell, in one session, so keys are held from line to "
             "line; '#' begins a comment. 'help expect' says how answers are checked. Stops at "
             "the "
             "first difference, with the file's name and the line; what is still held then goes. "
             "--record plays to the end and prints the script with the answers that it got; a "
             "lone 'expect' below a command is enough to have all of its answer recorded.",
             "run examples/01-first-steps.zem",
             {{"FILE", "", "The script; - is standard input", Arity::kRequired, fileNames},
              {"--quiet", "", "Say only how it ended", Arity::kSwitch},
              {"--record", "", "Print the script anew, with the answers of now", Arity::kSwitch}},
             Where::kCommandLine,
             prepareRun},
            {"expect",
             "In a script: a line that the command above has to print",
             "The 'expect' lines below a command stand for all that it prints, line by line; a "
             "command without them may print what it likes. Blanks at the ends do not count, and "
             "several count as one. '*' stands for any characters, 'expect ...' for any number of "
             "lines, and 'expect status N' says the exit status, which is 0 unless said "
             "otherwise.",
             "expect 3GPP:1 *internet*",
             {{"TEXT", "", "The line, without quotes", Arity::kAny}},
             Where::kAnywhere,
             prepareExpect,
             true},
            {"fields",
             "Show each setting of a profile with its values and its default",
             "",
             "fields",
             {},
             Where::kAnywhere,
             prepareFields},
            {"help",
             "Show all verbs, or one with its options and an example",
             "",
             "help add",
             {{"VERB", "", "The verb to show", Arity::kAny,
               [](const Typing& typing) { return verbNames(typing.session != nullptr); }}},
             Where::kAnywhere,
             prepareHelp,
             true},
            {"shell",
             "Begin a session: type verbs, or pipe them in, line by line, against one modem",
             "Tab completes; --json and --show-secrets in a line hold for that line. Ctrl-C ends "
             "what runs, or discards what is typed; with nothing typed it ends the session. The "
             "exit status is 0, and with input that no terminal gives that of the last line.",
             "--modem modem.txt shell",
             {},
             Where::kCommandLine,
             prepareShell},
            {"quit",
             "End the session: release the keys and save the modem's profiles",
             "",
             "quit",
             {},
             Where::kSession,
             prepareQuit},
            {"exit", "The same as quit", "", "exit", {}, Where::kSession, prepareQuit},
            {"man",
             "Print this tool's manual page, for man -l",
             "",
             "man | man -l -",
             {},
             Where::kCommandLine,
             prepareMan},
            {"completion",
             "Print a script that lets bash or zsh complete the tool's command lines",
             "For bash: eval \"$(zemctl completion bash)\"; for zsh, behind compinit: "
             "source <(zemctl completion zsh).",
             "completion bash",
             {completionArgument()},
             Where::kCommandLine,
             prepareCompletion},
            {"complete",
             "Say what the last word may become, one candidate a line",
             "A line ':files' stands for names of files; ':open' says that the word may go on.",
             "complete -- list --home ''",
             {{"WORD", "", "The words of a command line, behind --", Arity::kAny}},
             Where::kCommandLine,
             prepareComplete,
             true,
             true},
        },
    };
}

}  // namespace zemctl
