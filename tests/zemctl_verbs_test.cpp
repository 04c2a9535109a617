// The tool's verbs as an engineer and a program use them: answers, statuses, objects, the modem's
// file, secrets, and an end at any time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "ToolRunner.h"

namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using zemctl::Outcome;
using zemctl::runShell;
constexpr auto zemctl = [](const std::string& line) { return zemctl::runAfresh(line); };

std::vector<nlohmann::json> objectsOf(const std::string& text) {
    std::vector<nlohmann::json> objects;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        objects.push_back(nlohmann::json::parse(line));
    return objects;
}

class ModemFile : public testing::Test {
  protected:
    ModemFile() {
        char name[] = "/tmp/zemctl_verbs_XXXXXX";
        folder = mkdtemp(name);
        path = folder + "/modem";
    }
    ~ModemFile() override { std::filesystem::remove_all(folder); }

    Outcome withFile(const std::string& line) const {
        return zemctl("--modem " + path + ' ' + line);
    }
    std::string contents() const {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }
    void write(const std::string& text) const { std::ofstream(path) << text; }
    // The tool's program in the background of a shell that has set FILE.
    Outcome program(const std::string& script) const {
        return runShell("FILE='" + path + "'; Z='" ZEMCTL_PROGRAM "'; " + script);
    }

    std::string folder, path;
};

// --- Answers and statuses ---

TEST(ZemctlVerbs, AnswerAndStatus) {
    const struct {
        std::string line;
        int status;
        std::string seen;  // on either stream
    } cases[] = {
        {"list --apn INTERNET --tech 3gpp", 0, "3GPP:1 +internet +V4V6 .*DEFAULT.SUPL.IA +INET"},
        {"list --home v4 --subset home,types --types ia,default", 0, "^[^:]*3GPP:1 [^:]*$"},
        {"list --home v4", 0, "3GPP:4"},
        {"list --apn inter --subset apn --tech 3gpp2", 0, "3GPP2:0"},
        {"list --home v4v6 --superset home --id 4", 0, "3GPP:4"},
        {"list --zem on", 0, "no profile matches"},
        {"add --ia list --ia on", 0, "3GPP:5 .*zem attach, k1"},
        {"get 3gpp2:0", 0, "HomeIPType +V4V6"},
        {"get 3gpp:99", 4, "^zemctl: no profile 3GPP:99\n$"},
        {"get k1", 4, "no key 'k1' is held"},
        {"add --as mine get mnie", 4, "did you mean 'mine'"},
        {"add --as k2 add --as k3 add", 0, "k1 holds 3GPP:7"},
        {"add --as x add --as x", 2, "a key 'x' is held already"},
        {"modify 3gpp:1 --auth chap", 0, "AuthType +- +CHAP"},
        {"modify 3gpp:1 --apn internet", 0, "3GPP:1 is as before"},
        {"modem fail modify-profile refuse modify 3gpp:1 --auth chap", 1,
         "not made the change: AuthType: asked for CHAP, read nothing"},
        {"modem fail create-profile refuse add", 1, "not created"},
        {"modem fail delete-profile refuse delete 3gpp:1", 1, "not deleted 3GPP:1"},
        {"list --id 1 --tech 3gpp --hold delete k1 keys", 0, "k1 +3GPP:1 .*expired"},
        {"delete 3gpp:1 get 3gpp:1", 4, "no profile 3GPP:1"},
        {"match 3gpp:1 --apn inter --subset apn", 0, "yes"},
        {"match 3gpp:1 --apn inter", 1, "no"},
        {"add refresh start list", 1, "a refresh is under way"},
        {"add refresh start refresh complete keys", 0, "k1 +3GPP:5 .*expired"},
        {"refresh complete dump", 0, "Cache:\n.*TechType=3GPP,ProfileId=1,"},
        {"add --apn x list --apn x --hold keys", 0,
         "k1 +3GPP:5 +[0-9]+ +2 .*\n.*k2 +3GPP:5 +[0-9]+ +2 "},
        {"add release all keys", 0, "3GPP:5 +add +transient +gone(.*\n)*.*no key is held"},
        {"add --persistent release k1 modem show 3gpp:5", 0, "3GPP:5 +profile_name=zem_profile"},
        {"release k1", 4, "no key 'k1'"},
        // a name that is free again, and one that was taken over
        {"add modem delete 3gpp:5 add release k2", 0, "k2 +3GPP:5 +add +transient +gone"},
        {"add modem delete 3gpp:5 modem create 3gpp:5 persistent=1 list --hold release all", 0,
         "3GPP:5 +list +stays +on the modem"},
        {"add refresh start", 0, "the refresh is completed.*\n(.*\n)*.*k1 +3GPP:5 +add +expired"},
        {"delete 3gpp:1 get --help", 0, "^usage: zemctl get PROFILE"},
        {"modem down list", 3, "the modem is down"},
        {"modem down modem boot list --tech 3gpp2", 0, "3GPP2:0"},
        {"list modem fail any go-down --count 1 add list", 1, "not created"},
        {"add modem restart keys modem show", 0, "expired"},
        {"modem create 3gpp:9 apn_name=new persistent=1 list --apn new", 0, "3GPP:9"},
        {"modem create 3gpp:1", 1, "3GPP:1 is taken"},
        {"list modem modify 3gpp:1 apn_name=web list --apn web", 0, "3GPP:1 +web"},
        {"list modem delete 3gpp:1 get 3gpp:1", 4, "no profile 3GPP:1"},
        {"modem modify 3gpp:77 apn_name=x", 4, "no profile 3GPP:77"},
        {"modem subscription 0 1 list", 0, "no profile matches"},
        {"--subscription 1 --factory none modem subscription 0 1 list", 0, "no profile matches"},
        {"watch on modem modify 3gpp:1 apn_name=web", 0, "3GPP:1 changed, by the network"},
        {"watch on add --apn x", 0, "3GPP:5 new, by this client"},
        {"add watch on release k1", 0, "3GPP:5 gone, by this client"},
        {"watch on modem restart", 0, "3GPP:1 read anew, by a restart"},
        {"watch on refresh complete", 0, "3GPP:1 read anew, by a refresh"},
        {"watch on watch off modem modify 3gpp:1 apn_name=web", 0, "not shown any more"},
        {"modem latency 1 add --apn secret --user u modem log", 0,
         "create profile, done\n.*apn_name=secret"},
        {"--version list", 0, "^zemctl [0-9.]+\n$"},
        {"fields", 0, "--home +v4 v6 v4v6 +not set +both +HomeIPType"},
        {"help modem fail", 0, "usage: zemctl modem fail MESSAGE KIND .OPTIONS"},
    };
    for (const auto& [line, status, seen] : cases) {
        const Outcome outcome = zemctl(line);
        EXPECT_EQ(outcome.status, status) << line << '\n' << outcome.out << outcome.err;
        EXPECT_THAT(outcome.err + outcome.out, ContainsRegex(seen)) << line;
    }
}

TEST(ZemctlVerbs, WrongWordNamesTheNearestAndNothingRuns) {
    const std::pair<const char*, const char*> cases[] = {
        {"lsit", "no verb 'lsit'; did you mean 'list'?"},
        {"modem shwo", "no verb 'modem shwo'; did you mean 'modem show'?"},
        {"list --rome v4", "'list' has no option '--rome'; did you mean '--home'?"},
        {"--jsno list", "no option '--jsno'; did you mean '--json'?"},
        {"add list --home v7", "--home takes one of v4, v6, v4v6, not 'v7'; did you mean 'v4'?"},
        {"list --types default,msm", "not 'msm'; did you mean 'mms'?"},
        {"list --subset hoem", "did you mean 'home'?"},
        {"get 3gp:1", "did you mean '3gpp'?"},
        {"get 3gpp:256", "a number from 0 to 255, not '256'"},
        {"get", "PROFILE is required"},
        {"modify 3gpp:1", "at least one setting"},
        {"modify 3gpp2:0 --roam v4", "3GPP2 profiles have no RoamIPType"},
        {"refresh strat", "did you mean 'start'?"},
        {"modem modify 3gpp:1 apn_nmae=x", "no field 'apn_nmae'; did you mean 'apn_name'?"},
        {"modem modify 3gpp:1 pdp_type=ipv5", "ipv4, ppp, ipv6, ipv4v6; did you mean 'ipv4'?"},
        {"modem modify 3gpp2:0 apn_name=x", "no field 'apn_name'"},
        {"modem fail create refuse", "did you mean 'create-profile'?"},
        {"modem fail any refuze", "did you mean 'refuse'?"},
        {"add --as 3gpp:1", "--as takes a letter"},
        {"add --as list", "--as: 'list' is a verb"},
        {"--json=false list", "--json takes no value"},
        {"story --plmn 31026 --modem f /dev/null", "not an XML file"},
        {"get 3gpp:1 --home", "has no option '--home'"},
        {"list --home", "--home takes a value"},
        {"list --apn a --apn b", "--apn is given more than once"},
        {"add --pass geheim", "did you mean '--password'?"},
        {"modem subscription 1 1", "takes two that differ"},
        {"--modem /dev/zero list", "/dev/zero: not a regular file"},
        {"add --persistant", "did you mean '--persistent'?"},
        {"--log laud list", "--log takes one of"},
        {"--subscription 16 list", "0 to 15"},
        {"--modem '' list", "--modem takes the name of a file"},
        {"help lst", "did you mean 'list'?"},
    };
    for (const auto& [line, message] : cases) {
        const Outcome outcome = zemctl(line);
        EXPECT_EQ(outcome.status, 2) << line;
        EXPECT_EQ(outcome.out, "") << line;
        EXPECT_THAT(outcome.err, HasSubstr(message));
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    }
}

// --- For programs ---

TEST(ZemctlVerbs, ObjectsHaveRealTypesAndAlwaysTheSameKeys) {
    const Outcome outcome = zemctl(
        "--json add --apn a --max-conns 7 --clat off --types mms,ims --password geheim "
        "list match k1 --apn b");
    EXPECT_EQ(outcome.status, 1);  // no match
    const auto objects = objectsOf(outcome.out);
    ASSERT_EQ(objects.size(), 8u) << outcome.out;
    const auto& added = objects[0];
    EXPECT_EQ(added["profile"], "3GPP:5");
    EXPECT_EQ(added["profileId"], 5);
    EXPECT_EQ(added["maxPdnsConnPerBlock"], 7);
    EXPECT_EQ(added["isClatEnabled"], false);
    EXPECT_EQ(added["apnTypes"], nlohmann::json({"mms", "ims"}));
    EXPECT_EQ(added["apnTypesMask"], 0x42);
    EXPECT_EQ(added["password"], "(hidden)");
    EXPECT_EQ(added["keys"], nlohmann::json({"k1"}));
    EXPECT_TRUE(added["userName"].is_null() && added["isApnDisabled"].is_null());
    for (size_t i = 1; i < 7; ++i) {
        EXPECT_EQ(objects[i].size(), added.size());
        for (const auto& [name, value] : added.items()) EXPECT_TRUE(objects[i].contains(name));
    }
    EXPECT_EQ(objects[7], nlohmann::json({{"profile", "3GPP:5"}, {"matches", false}}));
    EXPECT_EQ(outcome.err, "");
    const Outcome program = runShell("'" ZEMCTL_PROGRAM "' --json --log verbose list --tech 3gpp2");
    EXPECT_EQ(objectsOf(program.out).size(), 1u);
    EXPECT_THAT(program.err, HasSubstr("Manager::filter > "));
}

TEST(ZemctlVerbs, EachObjectVerbGivesObjectsOnly) {
    for (const char* line : {"keys", "fields", "dump", "modem show", "modem log", "get 3gpp:1",
                             "delete 3gpp:1", "modify 3gpp:1 --user u", "attach --apn internet",
                             "match-attach --id 1", "watch on add", "list --hold keys release all"})
        EXPECT_NO_THROW(objectsOf(zemctl(std::string("--json ") + line).out)) << line;
}

TEST(ZemctlVerbs, PasswordsAreMaskedUnlessAskedFor) {
    const std::string lines =
        "add --user u --password 'ge,heim' get k1 list setup-call --password 'ge,heim' "
        "modify k1 --password 'ge,AuthType=PAP,heim2' modem show modem log dump --log verbose";
    for (const char* option : {"", "--json "}) {
        const zem::CapturedStream log(STDERR_FILENO);
        const Outcome masked = zemctl(option + lines);
        EXPECT_EQ(masked.status, 0) << masked.err;
        EXPECT_THAT(masked.out + masked.err + log.text(),
                    AllOf(HasSubstr("(hidden)"), Not(HasSubstr("heim"))));
        EXPECT_THAT(zemctl("--show-secrets " + (option + lines)).out,
                    HasSubstr("ge,AuthType=PAP,heim2"));
    }
}

TEST(ZemctlVerbs, WhatIsPrintedCannotMoveTheCursor) {
    const Outcome outcome = zemctl("add --apn 'a\xc2\x9b\x1b[2J'");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(zemctl("add --apn 'a\xc2\x9b\x1b[2J' get k1").out,
                HasSubstr("a\\xc2\\x9b\\x1b[2j"));
}

// --- The modem's file ---

TEST_F(ModemFile, KeepsWhatIsPersistentBetweenCalls) {
    EXPECT_EQ(withFile("add --apn gone add --apn stays --persistent").status, 0);
    EXPECT_EQ(contents().find("gone"), std::string::npos);
    EXPECT_EQ(withFile("add --apn gone modem subscription 0 3").status, 0);
    EXPECT_EQ(withFile("modem subscription 0 3 add --apn gone refresh start").status, 0);
    EXPECT_EQ(contents().find("gone"), std::string::npos);
    EXPECT_EQ(withFile("add --apn gone delete k1 modem create 3gpp:5 apn_name=net").status, 0);
    EXPECT_THAT(withFile("modem show 3gpp:5 modem delete 3gpp:5").out, HasSubstr("=net"));
    EXPECT_THAT(withFile("list --apn stays").out, HasSubstr("3GPP:6"));
    EXPECT_THAT(withFile("modem delete 3gpp:6 modem show").out, Not(HasSubstr("stays")));
    EXPECT_EQ(contents().find("stays"), std::string::npos);
    // A text that a person has written stays as it is until something changes.
    const std::string own = "# mine\nsoftmodem-profiles 1\n[subscription 0 3gpp 3]\napn_name = a\n";
    write(own);
    EXPECT_THAT(withFile("list").out, HasSubstr("3GPP:3"));
    EXPECT_EQ(contents(), own);
}

TEST_F(ModemFile, UnusableFileIsNamedWithItsLine) {
    const std::pair<const char*, const char*> cases[] = {
        {"softmodem-profiles 2\n", ":1: expected \"softmodem-profiles 1\""},
        {"", ":1: no \"softmodem-profiles 1\" line"},
        {"softmodem-profiles 1\n[subscription 0 3gpp 1]\nfrob = 1\n", ":3: unknown field \"frob\""},
    };
    for (const auto& [text, message] : cases) {
        write(text);
        const Outcome outcome = withFile("list");
        EXPECT_EQ(outcome.status, 2);
        EXPECT_THAT(outcome.err, HasSubstr(path + message));
        EXPECT_EQ(contents(), text);
    }
    // Gone meanwhile, it is written anew.
    EXPECT_EQ(program("rm $FILE; printf 'add --persistent --apn a\n' | $Z --modem $FILE shell; "
                      "printf 'list\n' | $Z --modem $FILE shell; ! grep -q geheim $FILE")
                  .status,
              0);
    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    EXPECT_EQ(zemctl("--modem /nonexistent/modem list").status, 1);
    for (const std::string end : {"", "/"})
        EXPECT_EQ(zemctl("--modem " + folder + end + " list").status, 2);
    // Through a link to what is not there yet.
    std::filesystem::create_symlink("behind", folder + "/link");
    EXPECT_EQ(zemctl("--modem " + folder + "/link list").status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(folder + "/link") &&
                std::filesystem::exists(folder + "/behind"));
}

TEST_F(ModemFile, IsReadAnewWhenSomebodyElseHasWrittenIt) {
    const Outcome outcome = program(
        "$Z --modem $FILE watch --count 1 --for 60 & "
        "while kill -0 $! 2>/dev/null; do "
        "$Z --modem $FILE modem modify 3gpp:1 apn_name=web$((++n)) >/dev/null; done; wait $!");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, ContainsRegex("3GPP:1 (changed|read anew), by the modem's file"));
}

TEST_F(ModemFile, LosesNothingOfTwoThatWriteIt) {
    const Outcome outcome = program(
        "add() { for i in {1..15}; do $Z --modem $FILE add --persistent --apn $1$i >/dev/null || "
        "echo refused; done; }; add a & add b & wait; grep -c 'apn_name = \"[ab][0-9]' $FILE");
    EXPECT_EQ(outcome.out, "30\n");
    EXPECT_EQ(outcome.err, "");
}

// --- An end at any time ---

TEST_F(ModemFile, InterruptedWorkLeavesItWhole) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        std::filesystem::remove(path);
        const Outcome outcome = program(
            "set -m; mkfifo $FILE.out; $Z --modem $FILE add --apn gone add --apn stays "
            "--persistent "
            "modem latency 100 watch --for 60 >$FILE.out 2>/dev/null & "
            "while read -r line; do case $line in *'takes 100 ms') kill -" +
            std::to_string(number) + " $!;; esac; done <$FILE.out; wait $!; echo $?; rm $FILE.out");
        EXPECT_EQ(outcome.out, std::to_string(128 + number) + '\n');
        EXPECT_THAT(contents(), AllOf(HasSubstr("stays"), Not(HasSubstr("gone"))));
    }
    const std::filesystem::directory_iterator files(folder);
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);  // and nothing temporary
}

TEST_F(ModemFile, ReaderThatHasEnoughEndsItQuietly) {
    const Outcome outcome = program(
        "set -o pipefail; for i in 1 2 3; do $Z --modem $FILE --factory none add --apn gone "
        "$(printf 'list %.0s' {1..2000}) | head -1; echo ${PIPESTATUS[0]}; done");
    EXPECT_THAT(outcome.out, HasSubstr("141\n"));
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(contents().find("gone"), std::string::npos);
}

}  // namespace
