// Scripts: commands with the answers that they have to give, played and recorded by the tool.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "ToolRunner.h"
#include "output/Secrets.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using zemctl::Outcome;

// The script is what comes from standard input.
Outcome run(const std::string& script, const std::string& options = {},
            const std::string& file = "-") {
    return zemctl::runAfresh("run " + file + ' ' + options, script);
}

const std::string kNoKey = "keys\nexpect no key is held\n";
const std::string kAdd = "add --apn a\nexpect k1 holds 3GPP:5, transient\n";

TEST(ZemctlScript, StopsAtTheFirstDifference) {
    const std::string gone = "get 3gpp:9\n";
    const std::string two = "keys add --apn a\n";  // prints two lines
    const std::string first = "expect no key is held\n", second = "expect k1 holds *\n";
    const struct {
        std::string script;
        int status;
        std::string message;  // all of it but the tool's name; empty: none
    } cases[] = {
        {kNoKey, 0, ""},
        {"# nothing but a comment\n", 0, ""},
        {"keys\nexpect \t no   key  is held \r\n", 0, ""},
        {"keys # a comment\n\n# one more\n  expect no key is held", 0, ""},
        {"keys\nexpect no keys\nadd --apn b\nexpect nothing\n", 1,
         "stdin:2: wanted \"no keys\", got \"no key is held\""},
        // stars within a line
        {"keys\nexpect *key*\n", 0, ""},
        {"keys\nexpect no * is*held*\n", 0, ""},
        {"keys\nexpect *no*no*\n", 1, "stdin:2: wanted \"*no*no*\", got \"no key is held\""},
        {"keys\nexpect * held*d\n", 1, "stdin:2: wanted \"* held*d\", got \"no key is held\""},
        {"keys\nexpect no key is hel\n", 1,
         "stdin:2: wanted \"no key is hel\", got \"no key is held\""},
        // lines in order, none left out, none left over
        {two + first + second, 0, ""},
        {two + second + first, 1, "stdin:2: wanted \"k1 holds *\", got \"no key is held\""},
        {two + first, 1, "stdin:2: wanted nothing more, got \"k1 holds 3GPP:5, transient\""},
        {two + second, 1, "stdin:2: wanted \"k1 holds *\", got \"no key is held\""},
        {kNoKey + "expect and more\n", 1, "stdin:3: wanted \"and more\", got nothing more"},
        {kNoKey + "expect\n", 1, "stdin:3: wanted \"\", got nothing more"},
        // any number of lines
        {two + "expect ...\n", 0, ""},
        {two + "expect ...\n" + second, 0, ""},
        {two + "expect ...\n" + first + "expect ...\n" + second + "expect ...\n", 0, ""},
        {two + first + "expect ...\nexpect k2*\n", 1,
         "stdin:4: wanted \"k2*\", got \"k1 holds 3GPP:5, transient\""},
        {two + "expect ...\n" + first, 1,
         "stdin:3: wanted \"no key is held\", got \"k1 holds 3GPP:5, transient\""},
        // statuses
        {gone, 1, "stdin:1: wanted status 0, got status 4: no profile 3GPP:9"},
        {gone + "expect no profile 3GPP:9\nexpect status 4\n" + kNoKey, 0, ""},
        {gone + "expect status 3\n", 1,
         "stdin:2: wanted status 3, got status 4: no profile 3GPP:9"},
        {"updates on\nexpect status 1\n", 1,
         "stdin:2: wanted status 1, got status 0: Updates of profiles that are found: on"},
        {gone + "expect status four\n", 2, "stdin:2: 'expect status' takes a number from 0 to 255"},
        {"keys\nquit\nget 3gpp:9\n", 0, ""},
        {"match 3gpp:1 --apn no\nexpect no\nexpect status 1\n", 0, ""},
        // a usage error is found before anything is played, unless it is what is to be shown
        {gone + "lst\n", 2, "stdin:2: no verb 'lst'; did you mean 'list'? ('help' shows how)"},
        {"lst\nexpect no verb 'lst'*\nexpect status 2\n" + kNoKey, 0, ""},
        {kAdd + "add --apn b --as k1\nexpect a key 'k1' is held already\nexpect status 2\n", 0, ""},
        {"list --factory none\n", 2,
         "stdin:1: --factory belongs to the line that starts zemctl ('help' shows how)"},
        {"\nadd --apn 'a\n", 2, "stdin:2: a quote ' is not closed"},
        {"\nexpect x\nkeys\n", 2, "stdin:2: 'expect' belongs below a command"},
        {gone + "expect status 4\nexpect status 4\n", 2,
         "stdin:3: the command has a status already"},
    };
    for (const auto& [script, status, message] : cases) {
        const Outcome outcome = run(script, "--quiet");
        EXPECT_EQ(outcome.status, status) << script << outcome.out;
        EXPECT_EQ(outcome.err, message.empty() ? "" : "zemctl: " + message + '\n') << script;
        EXPECT_EQ(outcome.out.empty(), status != 0) << script << outcome.out;
    }
}

TEST(ZemctlScript, ShowsWhatItPlays) {
    const std::string script = "#!/usr/bin/env -S zemctl run\n\n# Nobody has a key.\n" + kNoKey;
    EXPECT_EQ(run(script).out,
              "# Nobody has a key.\n> keys\n    no key is held\n\n"
              "stdin: 1 command, 1 line as expected\n");
    EXPECT_EQ(run(script, "--quiet").out, "stdin: 1 command, 1 line as expected\n");
    // For one line, or for all; texts are no answers then.
    const std::string match = "{\"profile\":\"3GPP:1\",\"matches\":true}\n";
    const Outcome one = run("match 3gpp:1 --json\nexpect " + match + kNoKey);
    EXPECT_EQ(one.status, 0) << one.err;
    const Outcome all = run("match 3gpp:1\nexpect " + match + "keys\n", "--json");
    EXPECT_EQ(all.status, 0) << all.err;
    EXPECT_EQ(all.out, match);
}

TEST(ZemctlScript, KeysEndWithTheScript) {
    for (const std::string& end : {std::string(), std::string("expect and more\n")}) {
        const Outcome outcome = run(kAdd + end);
        EXPECT_THAT(outcome.out, Not(HasSubstr("Release")));
        EXPECT_EQ(softmodem::SoftModem::instance().profiles(0).size(), 5u) << end;
    }
    EXPECT_THAT(run("watch on\nadd --apn a\n").out, EndsWith("as expected\n"));
    // A check of a step that was to fail is no failure of the script.
    EXPECT_EQ(run("modify 3gpp:1 --apn b\nmatch-attach --id 9\nexpect status 1\n").status, 0);
}

TEST(ZemctlScript, RecordsTheAnswersOfNow) {
    const std::string two = "keys add --apn a\n";
    const struct {
        std::string script, recorded;
    } cases[] = {
        {"# x\n\n" + kNoKey, "# x\n\n" + kNoKey},
        {"keys\n", "keys\n"},
        {"keys\nexpect\n# behind\n\nkeys", kNoKey + "# behind\n\nkeys\n"},
        {"keys\n# between\nexpect any\n", "keys\n# between\nexpect no key is held\n"},
        // what still fits stays
        {two + "expect nothing\nexpect k1 * transient\n",
         two + "expect no key is held\nexpect k1 * transient\n"},
        {two + "expect k1 *\n", two + "expect no key is held\nexpect k1 *\n"},
        {"keys\nexpect first\nexpect ...\nexpect no *\n", "keys\nexpect ...\nexpect no *\n"},
        {two + "expect no *\nexpect ...\n", two + "expect no *\nexpect ...\n"},
        {two + "expect no keys\nexpect ...\n", two + "expect no key is held\nexpect ...\n"},
        // statuses
        {"get 3gpp:9\n", "get 3gpp:9\nexpect status 4\n"},
        {"get 3gpp:9\nexpect status 1\nexpect\n",
         "get 3gpp:9\nexpect no profile 3GPP:9\nexpect status 4\n"},
        {"keys\nexpect status 3\n", "keys\n"},
    };
    for (const auto& [script, recorded] : cases) {
        const Outcome outcome = run(script, "--record");
        EXPECT_EQ(outcome.status, 0) << script << outcome.err;
        EXPECT_EQ(outcome.out, recorded) << script;
        EXPECT_EQ(run(recorded).status, 0) << recorded;
        EXPECT_EQ(run(recorded, "--record").out, recorded);
    }
}

TEST(ZemctlScript, NeedsAFileThatItCanRead) {
    const Outcome missing = run("", "", "/nonexistent.zem");
    EXPECT_EQ(missing.status, 2);
    EXPECT_EQ(missing.err, "zemctl: /nonexistent.zem: cannot open: No such file or directory\n");
    EXPECT_THAT(run("", "", testing::TempDir()).err, HasSubstr("cannot read: Is a directory"));
    const std::string path = testing::TempDir() + "zemctl_script_test.zem";
    std::ofstream(path) << "\n\nlist --hom v4\n";
    EXPECT_THAT(run("", "", path).err, StartsWith("zemctl: " + path + ":3: 'list' has no option"));
    std::ofstream(path) << kNoKey;
    EXPECT_THAT(run("", "", path).out, EndsWith(path + ": 1 command, 1 line as expected\n"));
}

TEST(ZemctlText, EscapedWordIsReadAsItWas) {
    for (const std::string& word : {std::string(), std::string("a b"), std::string("#a#"),
                                    std::string("it's \"\\\""), std::string("a\0b", 3)}) {
        EXPECT_EQ(zemctl::splitWords("add " + zemctl::escaped(word)),
                  (std::vector<std::string>{"add", word}));
    }
}

TEST(ZemctlText, LineIsShownWithAllItsWordsButNoPassword) {
    const struct {
        std::string typed, shown;
    } cases[] = {
        {"add --apn '' --password x", "add --apn '' --password (hidden)"},
        {"add --password --password x", "add --password (hidden) (hidden)"},
        {"modem create 3gpp 'a b.password=x y'", "modem create 3gpp a\\ b.password=(hidden)"},
    };
    for (const auto& [typed, shown] : cases) EXPECT_EQ(zemctl::withoutSecretWords(typed), shown);
}

}  // namespace
