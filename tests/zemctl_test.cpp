// What the tool makes of carrier lists, and what it does and says from the command line.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>

#include <softmodem/SoftModem.h>

#include "CarrierList.h"
#include "CommandLine.h"
#include "Text.h"

extern char** environ;

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using zemctl::CarrierFile;
using zemctl::CarrierList;
using zemctl::Plmn;
using zemctl::SkipReason;

const std::string kExample = ZEM_SOURCE_DIR "/examples/carriers.xml";

CarrierList entriesOf(const std::string& xml, const std::string& plmn = "31026") {
    return CarrierFile::parse(xml, "list").select(*Plmn::parse(plmn));
}

std::string apn(const std::string& attributes) {
    return "<apn carrier='C' mcc='310' mnc='26' " + attributes + "/>\n";
}

std::string apns(const std::string& entries) {
    return "<apns version='8'>\n" + entries + "</apns>\n";
}

std::vector<std::string> warningsOf(const CarrierList& list) {
    std::vector<std::string> lines;
    for (const auto& warning : list.warnings) {
        lines.push_back(std::to_string(warning.line) + ": " + warning.text);
    }
    return lines;
}

// --- Carrier lists ---

TEST(CarrierList, AttributesBecomeSettings) {
    const std::string v4 = "HomeIPType=V4,RoamIPType=V4,";
    const std::string internet = "ApnTypesMask=DEFAULT|,ApnClass=INET,";
    const struct {
        std::string attributes, settings;
    } cases[] = {
        {"apn='a' type='default'", "ApnName=a," + v4 + internet},
        {"apn='a' type='default' user='' password=''", "ApnName=a," + v4 + internet},
        {"apn=' a ' type='default' user='u&amp;' password='p'",
         "ApnName=a,UserName=u&,Password=p," + v4 + internet},
        {"apn='a' type='default' authtype='0'", "ApnName=a,AuthType=NONE," + v4 + internet},
        {"apn='a' type='default' authtype='1'", "ApnName=a,AuthType=PAP," + v4 + internet},
        {"apn='a' type='default' authtype='2'", "ApnName=a,AuthType=CHAP," + v4 + internet},
        {"apn='a' type='default' authtype='3'", "ApnName=a,AuthType=PAP_CHAP," + v4 + internet},
        {"apn='a' type='default' protocol='IPV6'",
         "ApnName=a,HomeIPType=V6,RoamIPType=V4," + internet},
        {"apn='a' type='default' protocol='IP' roaming_protocol='IPV4V6'",
         "ApnName=a,HomeIPType=V4,RoamIPType=V4V6," + internet},
        {"apn='a' type='default' max_conns='65535' max_conns_time='300' wait_time='0'",
         "ApnName=a," + v4 + internet +
             "MaxPdnsConnPerBlock=65535,MaxPdnConnTimer=300,PdnReqWaitInterval=0,"},
        {"apn='a' type='default' carrier_enabled='false'",
         "ApnName=a," + v4 + internet + "IsApnDisabled=true,"},
        {"apn='a' type='default' carrier_enabled='true'",
         "ApnName=a," + v4 + internet + "IsApnDisabled=false,"},
        {"apn='a' type='default' mmsc='http://x' bearer='14' mvno_type='gid'",
         "ApnName=a," + v4 + internet},
    };
    for (const auto& [attributes, settings] : cases) {
        const CarrierList list = entriesOf(apns(apn(attributes)));
        ASSERT_EQ(list.usable.size(), 1u) << attributes;
        EXPECT_EQ(list.usable[0].params.dump(), settings) << attributes;
        EXPECT_THAT(warningsOf(list), IsEmpty()) << attributes;
    }
}

TEST(CarrierList, TypesBecomeMaskAndClass) {
    const std::string all =
        "ApnTypesMask=DEFAULT|MMS|SUPL|DUN|HIPRI|FOTA|IMS|CBS|IA|,ApnClass=INET,";
    const struct {
        std::string attribute, settings;
    } cases[] = {
        {"", all},
        {"type=''", all},
        {"type=' '", all},
        {"type='*'", all},
        {"type='emergency,*'",
         "ApnTypesMask=DEFAULT|MMS|SUPL|DUN|HIPRI|FOTA|IMS|CBS|IA|EMERGENCY|,ApnClass=INET,"},
        {"type='mcx,xcap'", "ApnTypesMask=MCX|XCAP|,ApnClass=APP,"},
        {"type='Emergency'", "ApnTypesMask=EMERGENCY|,ApnClass=APP,"},
        {"type=' mms,\n, SUPL,'", "ApnTypesMask=MMS|SUPL|,ApnClass=APP,"},
        {"type='ims,ia'", "ApnTypesMask=IMS|IA|,ApnClass=IMS,"},
        {"type='fota,cbs'", "ApnTypesMask=FOTA|CBS|,ApnClass=ADMN,"},
        {"type='fota,ims'", "ApnTypesMask=FOTA|IMS|,ApnClass=IMS,"},
        {"type='default,ims,fota'", "ApnTypesMask=DEFAULT|FOTA|IMS|,ApnClass=INET,"},
    };
    for (const auto& [attribute, settings] : cases) {
        const CarrierList list = entriesOf(apns(apn("apn='a' " + attribute)));
        ASSERT_EQ(list.usable.size(), 1u) << attribute;
        EXPECT_THAT(list.usable[0].params.dump(), HasSubstr(settings)) << attribute;
        EXPECT_THAT(warningsOf(list), IsEmpty()) << attribute;
    }
}

TEST(CarrierList, UnknownValueIsLeftOutWithItsLine) {
    const struct {
        std::string attributes, warning, setting;
    } cases[] = {
        {"type='default,agps'", "2: unknown APN type 'agps'", ""},
        {"\n\ntype\n=\n'default,agps'", "4: unknown APN type 'agps'", ""},
        {"\r\n\r\ntype='default,agps'", "4: unknown APN type 'agps'", ""},
        {"mmsc='a/>\"type=' \ntype=\"default,it's\"", "3: unknown APN type 'it's'", ""},
        {"protocol='IPV4'", "2: unknown protocol 'IPV4'", "HomeIPType"},
        {"protocol='ipv6'", "2: unknown protocol 'ipv6'", "HomeIPType"},
        {"\nroaming_protocol=''", "3: unknown roaming_protocol ''", "RoamIPType"},
        {"authtype='4'", "2: unknown authtype '4'", "AuthType"},
        {"authtype='01'", "2: unknown authtype '01'", "AuthType"},
        {"max_conns='65536'", "2: max_conns '65536' is not a number from 0 to 65535", "MaxPdns"},
        {"max_conns_time='-1'", "2: max_conns_time '-1' is not a number from 0 to 65535",
         "MaxPdnConnTimer"},
        {"wait_time='5s'", "2: wait_time '5s' is not a number from 0 to 65535", "PdnReqWait"},
        {"wait_time=''", "2: wait_time '' is not a number from 0 to 65535", "PdnReqWait"},
        {"carrier_enabled='yes'", "2: carrier_enabled 'yes' is neither true nor false",
         "IsApnDisabled"},
        {"user='" + std::string(128, 'u') + "'", "2: user is longer than 127 bytes", "UserName"},
        {"protocl='IPV6'", "2: unknown attribute 'protocl'", ""},
        {"user='u'\nuser='v'", "2: attribute 'user' is given twice, the first counts", ""},
        {"authtype='&#27;[31m'", "2: unknown authtype '\\x1b[31m'", "AuthType"},
    };
    for (const auto& [attributes, warning, setting] : cases) {
        const bool typed =
            attributes.find("type=") == 0 || attributes.find("\ntype") != std::string::npos;
        const CarrierList list =
            entriesOf(apns(apn((typed ? "apn='a' " : "apn='a' type='default' ") + attributes)));
        EXPECT_THAT(warningsOf(list), ElementsAre(warning)) << attributes;
        ASSERT_EQ(list.usable.size(), 1u) << attributes;
        EXPECT_THAT(list.usable[0].params.dump(), HasSubstr("ApnTypesMask=DEFAULT|,"));
        if (!setting.empty()) {
            EXPECT_THAT(list.usable[0].params.dump(), Not(HasSubstr(setting))) << attributes;
        }
    }
}

TEST(CarrierList, UselessEntryIsSkippedWithItsReason) {
    const std::string name(150, 'n');
    const CarrierList list = entriesOf(apns(  // from line 2 on
        apn("apn='A' type='default'") + apn("type='default'") + apn("apn=' ' type='ia'") +
        apn("apn='b' type='agps,none'") + apn("apn='b' type=','") +
        apn("apn='a' type='agps,default'") + apn("apn='a' type='mms'") + apn("apn='" + name + "'") +
        apn("apn='" + name + "n'") +
        "<anp mcc='310' mnc='26' apn='c'/>\n<!-- <apn mcc='310' mnc='26' apn='d'/> -->\n"));
    std::vector<std::pair<unsigned, SkipReason>> skipped;
    for (const auto& entry : list.skipped) {
        skipped.emplace_back(entry.line, entry.reason);
    }
    EXPECT_THAT(skipped, ElementsAre(std::pair(3u, SkipReason::kNoApnName),
                                     std::pair(4u, SkipReason::kNoApnName),
                                     std::pair(5u, SkipReason::kNoKnownType),
                                     std::pair(6u, SkipReason::kNoKnownType),
                                     std::pair(7u, SkipReason::kSameAsEarlier),
                                     std::pair(10u, SkipReason::kLongApnName),
                                     std::pair(11u, SkipReason::kNotAnApn)));
    EXPECT_EQ(list.usable.size(), 3u);
    EXPECT_EQ(list.entries, 10u);
}

TEST(CarrierList, ZerosOfTheNetworkCodeCount) {
    const std::string xml = apns(
        "<apn mcc='310' mnc='26' apn='two'/>"
        "<apn mcc='310' mnc='026' apn='three'/>"
        "<apn mcc='310' mnc='260' apn='other'/>"
        "<apn mcc='310' mnc='6' apn='stray'/>"
        "<apn mcc='31' mnc='026' apn='stray'/>"
        "<apn apn='stray'/>");
    for (const auto& [plmn, name] : std::map<std::string, std::string>{
             {"31026", "two"}, {"310026", "three"}, {"310260", "other"}}) {
        const CarrierList list = entriesOf(xml, plmn);
        ASSERT_EQ(list.usable.size(), 1u) << plmn;
        EXPECT_EQ(list.usable[0].params.getApnName(), name);
    }
    EXPECT_EQ(CarrierFile::parse(xml, "list").strayLines().size(), 3u);
    for (const char* wrong : {"", "3102", "3102600", "31a26", "+31026", "310 26"}) {
        EXPECT_FALSE(Plmn::parse(wrong)) << wrong;
    }
}

TEST(CarrierList, UnusableFileIsRefusedWithItsLine) {
    const struct {
        std::string text, message;
    } cases[] = {
        {"", "list: not an XML file"},
        {"just words\n", "list: not an XML file"},
        {"<apns>\n<apn mcc='310'\n", "list:2: not an XML file"},
        {"<apns>\n<apn mcc=310/>\n</apns>", "list:2: not an XML file"},
        {"<apns>\n</apn>", "list:2: not an XML file"},
        {std::string("\xFF\xFE<\0a\0/\0>\0", 10), "list:1: not an XML file"},
        {"<?xml version='1.0'?>\n<html/>",
         "list:2: not a carrier list: its root element is 'html'"},
    };
    for (const auto& [text, message] : cases) {
        try {
            CarrierFile::parse(text, "list");
            ADD_FAILURE() << text;
        } catch (const zemctl::CarrierFileError& error) {
            EXPECT_THAT(error.what(), HasSubstr(message));
        }
    }
}

// --- The tool ---

struct Outcome {
    int status;
    std::string out, err;
};

std::string contents(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

Outcome zemctlProgram(std::vector<std::string> arguments) {
    const std::string base = testing::TempDir() + "zemctl_test." + std::to_string(getpid());
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_addopen(&actions, 1, (base + ".out").c_str(), kFlags, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, (base + ".err").c_str(), kFlags, 0600);
    arguments.insert(arguments.begin(), ZEMCTL_PROGRAM);
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    pid_t child = -1;
    int status = -1;
    if (posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ) == 0) {
        waitpid(child, &status, 0);
    }
    posix_spawn_file_actions_destroy(&actions);
    Outcome outcome{WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents(base + ".out"),
                    contents(base + ".err")};
    unlink((base + ".out").c_str());
    unlink((base + ".err").c_str());
    return outcome;
}

// The same in this process, whose modem a test can make fail.
Outcome zemctlHere(const std::vector<const char*>& arguments) {
    std::vector<const char*> argv{"zemctl"};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    std::ostringstream out, err;
    const int status = zemctl::runCommandLine(static_cast<int>(argv.size()), argv.data(), out, err);
    return {status, out.str(), err.str()};
}

// Entries, added, refused and skipped, as the summary says; -1 where it says nothing.
std::array<int, 4> accountIn(const std::string& output) {
    const size_t end = output.rfind(" skipped");
    const size_t begin = end == std::string::npos ? end : output.rfind('\n', end) + 1;
    const std::string line = begin == std::string::npos ? "" : output.substr(begin);
    const auto before = [&](const char* word, int otherwise) {
        const size_t at = line.find(word);
        if (at == std::string::npos) {
            return otherwise;
        }
        const size_t first = line.find_last_not_of("0123456789", at - 1) + 1;
        return std::stoi(line.substr(first, at - first));
    };
    return {before(" entr", -1), before(" added", -1), before(" refused", 0),
            before(" skipped", -1)};
}

void expectLoaded(const Outcome& outcome, size_t entries) {
    EXPECT_EQ(outcome.status, 0) << outcome.out;
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(outcome.out, Not(HasSubstr("WRONG")));
    const auto account = accountIn(outcome.out);
    EXPECT_EQ(account[0], static_cast<int>(entries));
    EXPECT_EQ(account[1] + account[2] + account[3], account[0]);
}

void expectLoadsEveryOperator(const std::string& path, const CarrierFile& file) {
    softmodem::SoftModem::instance().reset();
    for (const Plmn& plmn : file.operators()) {
        SCOPED_TRACE(plmn.digits());
        const std::string digits = plmn.digits();
        expectLoaded(zemctlHere({"load", "--plmn", digits.c_str(), path.c_str()}),
                     file.select(plmn).entries);
    }
}

TEST(Zemctl, LoadsEveryOperatorOfTheExample) {
    const CarrierFile file = CarrierFile::read(kExample);
    EXPECT_THAT(file.strayLines(), IsEmpty());
    expectLoadsEveryOperator(kExample, file);
}

TEST(Zemctl, ProgramLoads) {
    expectLoaded(zemctlProgram({"load", "--plmn", "26201", kExample}), 5);
}

TEST(Zemctl, WrongUseIsOneLineAndStatusTwo) {
    const std::string text = testing::TempDir() + "zemctl_test.words";
    std::ofstream(text) << "These are\njust words.\n";
    const struct {
        std::vector<std::string> arguments;
        std::string message;
    } cases[] = {
        {{}, "verb"},
        {{"laod"}, "laod"},
        {{"load"}, "required"},
        {{"load", kExample}, "--plmn"},
        {{"load", "--plmn", "26201"}, "FILE"},
        {{"load", "--plmn", "2620", kExample}, "'2620'"},
        {{"load", "--plmn", "262x1", kExample}, "'262x1'"},
        {{"load", "--plmn", "99999", kExample}, "no entry for operator 99999"},
        {{"load", "--plmn", "26201", "/nonexistent/list.xml"}, "No such file"},
        {{"load", "--plmn", "26201", "/"}, "Is a directory"},
        {{"load", "--plmn", "26201", text}, "not an XML file"},
        {{"load", "--plmn", "26201", "--log", "loud", kExample}, "loud"},
        {{"load", "--plmn", "26201", "--frob", kExample}, "--frob"},
    };
    for (const auto& [arguments, message] : cases) {
        const Outcome outcome = zemctlProgram(arguments);
        EXPECT_EQ(outcome.status, 2) << message;
        EXPECT_EQ(outcome.out, "") << message;
        EXPECT_THAT(outcome.err, HasSubstr(message));
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    }
    unlink(text.c_str());
}

TEST(Zemctl, HelpNamesVerbsAndStatuses) {
    const Outcome all = zemctlProgram({"--help"});
    EXPECT_EQ(all.status, 0);
    EXPECT_THAT(all.out, AllOf(HasSubstr("load"), HasSubstr("Exit status")));
    const Outcome load = zemctlProgram({"load", "--help"});
    EXPECT_EQ(load.status, 0);
    EXPECT_THAT(load.out, AllOf(HasSubstr("--plmn"), HasSubstr("--log"), HasSubstr("FILE")));
}

TEST(Zemctl, LibraryLinesComeOnRequestOnly) {
    const Outcome chatty = zemctlProgram({"load", "--plmn", "20815", "--log", "verbose", kExample});
    EXPECT_EQ(chatty.status, 0);
    EXPECT_THAT(chatty.err, AllOf(HasSubstr("Manager::addProfile > "), HasSubstr("~ProfileKey")));
    const Outcome errors = zemctlProgram({"load", "--plmn", "20815", "--log", "error", kExample});
    EXPECT_THAT(errors.err, AllOf(HasSubstr("token is not present or expired"),
                                  Not(HasSubstr("Manager::addProfile"))));
}

TEST(Zemctl, PasswordsAreMasked) {
    const Outcome outcome = zemctlProgram({"load", "--plmn", "334020", kExample});
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("webgprs"), Not(HasSubstr("webgprs2002"))));
}

TEST(Zemctl, FullDiskIsReported) {
    if (access("/dev/full", W_OK) != 0) {
        GTEST_SKIP() << "no /dev/full";
    }
    std::ofstream full("/dev/full");
    std::ostringstream err;
    const char* argv[] = {"zemctl", "load", "--plmn", "20815", kExample.c_str()};
    EXPECT_EQ(zemctl::runCommandLine(5, argv, full, err), 1);
    EXPECT_THAT(err.str(), HasSubstr("cannot write"));
}

// A check that cannot fail is none: each of these faults must be seen by the tool itself.
TEST(Zemctl, FaultOfTheModemIsSeenAndStatusOne) {
    using softmodem::FaultKind;
    const struct {
        softmodem::Fault fault;
        std::string seen;
    } cases[] = {
        {{FaultKind::kRefuse, 0x0027}, "1 refused by the modem"},
        {{FaultKind::kRefuse, 0x0028}, "WRONG  the modem has changed this profile and no other"},
        {{FaultKind::kRefuse, 0x0029}, "WRONG  what should be there is there"},
        {{FaultKind::kRefuse, 0x002A, 1, 2}, "WRONG  what should be there is there"},
        {{FaultKind::kUnknownEnums, 0x002B}, "WRONG  2 profiles left, read as before"},
    };
    auto& modem = softmodem::SoftModem::instance();
    for (const auto& [fault, seen] : cases) {
        modem.reset();
        modem.addFault(fault);
        const Outcome outcome = zemctlHere({"load", "--plmn", "26201", kExample.c_str()});
        EXPECT_EQ(outcome.status, 1) << seen;
        EXPECT_THAT(outcome.out, HasSubstr(seen));
        const auto account = accountIn(outcome.out);
        EXPECT_EQ(account[0], 5);
        EXPECT_EQ(account[1] + account[2] + account[3], account[0]);
    }
    modem.reset();
}

// --- A list of the reader's own ---

TEST(Zemctl, EveryEntryOfABigListIsAccountedFor) {
    const char* path = std::getenv("ZEM_CARRIER_LIST");
    if (path == nullptr) {
        GTEST_SKIP() << "ZEM_CARRIER_LIST names no carrier list";
    }
    const CarrierFile file = CarrierFile::read(path);
    size_t entries = file.strayLines().size(), usable = 0, warnings = 0;
    std::map<std::string, size_t> skipped;
    for (const Plmn& plmn : file.operators()) {
        const CarrierList list = file.select(plmn);
        EXPECT_EQ(list.usable.size() + list.skipped.size(), list.entries) << plmn.digits();
        entries += list.entries;
        usable += list.usable.size();
        warnings += list.warnings.size();
        for (const auto& entry : list.skipped) {
            ++skipped[zemctl::skipReasonText(entry.reason)];
        }
    }
    expectLoadsEveryOperator(path, file);
    EXPECT_EQ(entries, file.entries());
    std::cout << file.entries() << " entries of " << file.operators().size()
              << " operators: " << usable << " usable, " << file.strayLines().size()
              << " of no operator, " << warnings << " warnings\n";
    for (const auto& [reason, count] : skipped) {
        std::cout << "  skipped, " << reason << ": " << count << '\n';
    }
}

}  // namespace
