#include "command/ManPage.h"

#include <string_view>

#include "command/Globals.h"
#include "command/Help.h"
#include "command/Verb.h"
#include "output/Text.h"

namespace zemctl {

namespace {

// Text that stands for itself: a dash is to be copied as one, and no line may begin a request.
std::string plain(std::string_view text) {
    std::string result;
    if (!text.empty() && (text[0] == '.' || text[0] == '\'')) {
        result = "\\&";
    }
    for (const char c : text) {
        if (c == '\\') {
            result += "\\e";
        } else if (c == '-') {
            result += "\\-";
        } else if (c == '\'') {
            result += "\\(aq";
        } else {
            result += c;
        }
    }
    return result;
}

std::string bold(const std::string& text) {
    return "\\fB" + plain(text) + "\\fR";
}

std::string section(const std::string& title) {
    return ".SH " + title + '\n';
}

std::string paragraph(const std::string& text) {
    return ".PP\n" + plain(text) + '\n';
}

std::string tagged(const std::string& tag, const std::string& text) {
    return ".TP\n" + tag + '\n' + plain(text) + '\n';
}

std::string argumentList(const Arguments& arguments) {
    std::string page;
    for (const Argument& argument : arguments) {
        const std::string type =
            argument.type.empty() ? "" : " \\fI" + plain(argument.type) + "\\fR";
        page += tagged(bold(argument.name) + type, argument.help);
    }
    return page;
}

std::string verbSection(const Verb& verb) {
    std::string page = ".SS " + plain(usageOf(verb)) + '\n' + plain(verb.summary) + ".\n";
    if (!verb.details.empty()) {
        page += plain(verb.details) + '\n';
    }
    if (!verb.arguments.empty()) {
        page += ".RS\n" + argumentList(verb.arguments) + ".RE\n";
    }
    return page + ".PP\nExample:\n.B " + plain("zemctl " + verb.example) + '\n';
}

}  // namespace

std::string manPage() {
    std::string page = ".TH ZEMCTL 1 \"\" zem \"User commands\"\n";
    page += section("NAME") + "zemctl \\- the data profiles of a modem, through the zem library\n";
    page += section("SYNOPSIS") +
            ".B zemctl\n[\\fIOPTIONS\\fR] \\fIVERB\\fR [\\fIARGUMENTS\\fR] [\\fIVERB\\fR "
            "[\\fIARGUMENTS\\fR]]...\n";
    page += section("DESCRIPTION") +
            plain(
                "Runs the library against a software modem in the same process or, built for a "
                "device, against the device's modem.") +
            '\n' +
            paragraph(
                "Verbs run in the order given, against one modem and one library, up to the "
                "first that fails. The keys that they are given are held to the end; then they "
                "are released, and the transient profiles go with them.") +
            paragraph(
                "A profile is named by its family and its index on the modem, such as 3gpp:1 or "
                "3gpp2:0, or by the name of a key that is held, such as k1.");
    page += section("OPTIONS") + "They may stand anywhere in the line.\n" +
            argumentList(globalArguments());
    for (const VerbGroup& group : verbGroups()) {
        std::string title = group.title;
        for (char& c : title) {
            c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        }
        page += section('"' + plain(title) + '"');
        for (const Verb& verb : group.verbs) {
            page += verb.hidden ? "" : verbSection(verb);
        }
    }
    page += section("\"EXIT STATUS\"");
    for (const auto& [status, text] : kStatusTexts) {
        page += tagged(bold(std::to_string(status)), text);
    }
    page += paragraph(
        "A tool that was ended by a signal says so as usual; Ctrl-C leaves the modem's "
        "file whole and no key held.");
    page += section("ENVIRONMENT") +
            tagged(bold("NO_COLOR"), "When it is set and not empty, nothing is coloured.") +
            tagged(bold("XDG_STATE_HOME"),
                   "Where the shell keeps its history: in zemctl/history "
                   "below it, or below ~/.local/state.");
    return page;
}

}  // namespace zemctl
