// What the tool makes of carrier lists, and what it does and says from the command line.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <regex>

#include "ToolRunner.h"
#include "verbs/CarrierList.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::ThrowsMessage;
using zemctl::CarrierFile;
using zemctl::CarrierFileError;
using zemctl::CarrierList;
using zemctl::Outcome;
using zemctl::Plmn;
using zemctl::runTool;

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

// The settings of the only entry, whose attributes these are.
std::string settingsOf(const std::string& attributes, const std::string& warning = "") {
    const CarrierList list = entriesOf(apns(apn(attributes)));
    std::string seen;
    for (const auto& [line, text] : list.warnings) seen += std::to_string(line) + ": " + text;
    EXPECT_EQ(seen, warning) << attributes;
    EXPECT_EQ(list.usable.size(), 1u) << attributes;
    return list.usable.empty() ? "" : list.usable[0].params.dump();
}

// --- Carrier lists ---

TEST(CarrierList, AttributesBecomeSettings) {
    const std::string v4 = "HomeIPType=V4,RoamIPType=V4,";
    const struct {
        std::string attributes, before, after;  // the types and the class
    } cases[] = {
        {"user='' password=''", v4, ""},
        {"user='u&amp;' password='p'", "UserName=u&,Password=p," + v4, ""},
        {"authtype='0'", "AuthType=NONE," + v4, ""},
        {"authtype='1'", "AuthType=PAP," + v4, ""},
        {"authtype='2'", "AuthType=CHAP," + v4, ""},
        {"authtype='3'", "AuthType=PAP_CHAP," + v4, ""},
        {"protocol='IPV6'", "HomeIPType=V6,RoamIPType=V4,", ""},
        {"protocol='IP' roaming_protocol='IPV4V6'", "HomeIPType=V4,RoamIPType=V4V6,", ""},
        {"max_conns='65535' max_conns_time='300' wait_time='0'", v4,
         "MaxPdnsConnPerBlock=65535,MaxPdnConnTimer=300,PdnReqWaitInterval=0,"},
        {"carrier_enabled='false'", v4, "IsApnDisabled=true,"},
        {"carrier_enabled='true'", v4, "IsApnDisabled=false,"},
        {"mmsc='http://x' bearer='14' mvno_type='gid'", v4, ""},
    };
    for (const auto& [attributes, before, after] : cases)
        EXPECT_EQ(settingsOf("apn=' a ' type='default' " + attributes),
                  "ApnName=a," + before + "ApnTypesMask=DEFAULT|,ApnClass=INET," + after);
}

TEST(CarrierList, TypesBecomeMaskAndClass) {
    const std::string all = "DEFAULT|MMS|SUPL|DUN|HIPRI|FOTA|IMS|CBS|IA|";
    const struct {
        std::string attribute, mask, apnClass;
    } cases[] = {
        {"", all, "INET"},
        {"type=' '", all, "INET"},
        {"type='*'", all, "INET"},
        {"type='emergency,*'", all + "EMERGENCY|", "INET"},
        {"type='mcx,xcap'", "MCX|XCAP|", "APP"},
        {"type='Emergency'", "EMERGENCY|", "APP"},
        {"type=' mms,\n, SUPL,'", "MMS|SUPL|", "APP"},
        {"type='ims,ia'", "IMS|IA|", "IMS"},
        {"type='fota,cbs'", "FOTA|CBS|", "ADMN"},
        {"type='fota,ims'", "FOTA|IMS|", "IMS"},
        {"type='default,ims,fota'", "DEFAULT|FOTA|IMS|", "INET"},
    };
    for (const auto& [attribute, mask, apnClass] : cases)
        EXPECT_THAT(settingsOf("apn='a' " + attribute),
                    HasSubstr("ApnTypesMask=" + mask + ",ApnClass=" + apnClass + ","));
}

TEST(CarrierList, UnknownValueIsLeftOutWithItsLine) {
    const struct {
        std::string attributes, warning, leftOut;
    } cases[] = {
        {"type='default,agps'", "2: unknown APN type 'agps'", "MMS"},
        {"\n\ntype\n=\n'default,agps'", "4: unknown APN type 'agps'", "MMS"},
        {"\r\n\r\ntype='default,agps'", "4: unknown APN type 'agps'", "MMS"},
        {"mmsc='a/>\"type=' \ntype=\"default,it's\"", "3: unknown APN type 'it's'", "MMS"},
        {"protocol='IPV4'", "2: unknown protocol 'IPV4'", "HomeIPType"},
        {"protocol='ipv6'", "2: unknown protocol 'ipv6'", "HomeIPType"},
        {"\nroaming_protocol=''", "3: unknown roaming_protocol ''", "RoamIPType"},
        {"authtype='4&#27;[31m'", "2: unknown authtype '4\\x1b[31m'", "AuthType"},
        {"max_conns='65536'", "2: max_conns '65536' is not a number from 0 to 65535", "MaxPdns"},
        {"max_conns_time='-1'", "2: max_conns_time '-1' is not a number from 0 to 65535", "Timer"},
        {"wait_time='5s'", "2: wait_time '5s' is not a number from 0 to 65535", "PdnReqWait"},
        {"wait_time=''", "2: wait_time '' is not a number from 0 to 65535", "PdnReqWait"},
        {"carrier_enabled='yes'", "2: carrier_enabled 'yes' is neither true nor false", "Disabled"},
        {"user='" + std::string(128, 'u') + "'", "2: user is longer than 127 bytes", "UserName"},
        {"protocl='IPV6'", "2: unknown attribute 'protocl'", "IPType=V6"},
        {"user='u'\nuser='v'", "2: attribute 'user' is given twice, the first counts", "=v"},
    };
    for (const auto& [attributes, warning, leftOut] : cases)
        EXPECT_THAT(settingsOf("apn='a' " + attributes, warning),
                    AllOf(HasSubstr("ApnTypesMask=DEFAULT|"), Not(HasSubstr(leftOut))));
}

TEST(CarrierList, UselessEntryIsSkippedWithItsReason) {
    const std::string name(150, 'n');
    const CarrierList list = entriesOf(apns(  // from line 2 on
        apn("apn='A' type='default'") + apn("type='default'") + apn("apn=' ' type='ia'") +
        apn("apn='b' type='agps,none'") + apn("apn='b' type=','") +
        apn("apn='a' type='agps,default'") + apn("apn='a' type='mms'") + apn("apn='" + name + "'") +
        apn("apn='" + name + "n'") +
        "<anp mcc='310' mnc='26' apn='c'/>\n<!-- <apn mcc='310' mnc='26' apn='d'/> -->\n"));
    std::vector<std::string> skipped;
    for (const auto& entry : list.skipped)
        skipped.push_back(std::to_string(entry.line) + ": " + skipReasonText(entry.reason));
    EXPECT_THAT(skipped, ElementsAre("3: no APN name", "4: no APN name", "5: no known APN type",
                                     "6: no known APN type", "7: same as an earlier entry",
                                     "10: APN name too long", "11: not an apn element"));
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
    const std::pair<const char*, const char*> cases[] = {
        {"31026", "two"}, {"310026", "three"}, {"310260", "other"}};
    for (const auto& [plmn, name] : cases) {
        const CarrierList list = entriesOf(xml, plmn);
        ASSERT_EQ(list.usable.size(), 1u) << plmn;
        EXPECT_EQ(list.usable[0].params.getApnName(), name);
    }
    EXPECT_EQ(CarrierFile::parse(xml, "list").strayLines().size(), 3u);
    for (const char* wrong : {"", "3102", "3102600", "31a26", "+31026", "310 26"})
        EXPECT_FALSE(Plmn::parse(wrong)) << wrong;
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
        {"\n<html/>", "list:2: not a carrier list: its root element is 'html'"},
    };
    for (const auto& c : cases) {
        const auto parse = [&] { CarrierFile::parse(c.text, "list"); };
        EXPECT_THAT(parse, ThrowsMessage<CarrierFileError>(HasSubstr(c.message)));
    }
}

// --- The tool ---

// Whether the summary accounts for each of so many entries.
void expectAccount(const std::string& output, size_t entries) {
    const std::regex summary(
        "(\\d+) entr.* of \\d+: (\\d+) added,( (\\d+) refused by the modem,)? (\\d+) skipped");
    std::smatch found;
    ASSERT_TRUE(std::regex_search(output, found, summary)) << output;
    EXPECT_EQ(std::stoul(found[1]), entries);
    EXPECT_EQ(std::stoul(found[2]) + std::stoul('0' + found[4].str()) + std::stoul(found[5]),
              entries);
}

void expectLoaded(const Outcome& outcome, size_t entries) {
    EXPECT_EQ(outcome.status, 0) << outcome.out;
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(outcome.out, Not(HasSubstr("WRONG")));
    expectAccount(outcome.out, entries);
}

// Of the example, or of a list of the reader's own.
TEST(Zemctl, LoadsEveryOperator) {
    const char* const own = std::getenv("ZEM_CARRIER_LIST");
    const std::string path = own ? own : kExample;
    const CarrierFile file = CarrierFile::read(path);
    size_t entries = file.strayLines().size();
    EXPECT_TRUE(own || entries == 0);
    softmodem::SoftModem::instance().reset();
    for (const Plmn& plmn : file.operators()) {
        const std::string digits = plmn.digits();
        SCOPED_TRACE(digits);
        const CarrierList list = file.select(plmn);
        entries += list.entries;
        EXPECT_EQ(list.usable.size() + list.skipped.size(), list.entries);
        expectLoaded(runTool("load --plmn " + digits + " '" + path + "'"), list.entries);
    }
    EXPECT_EQ(entries, file.entries());
    std::cout << entries << " entries of " << file.operators().size() << " operators\n";
}

TEST(Zemctl, HelpNamesVerbsAndStatuses) {
    const Outcome all = runTool("--help");
    EXPECT_EQ(all.status, 0);
    EXPECT_THAT(all.out, AllOf(HasSubstr("load"), HasSubstr("Exit status")));
    const Outcome load = runTool("load --help");
    EXPECT_EQ(load.status, 0);
    EXPECT_THAT(load.out,
                AllOf(HasSubstr("--plmn MCCMNC"), HasSubstr("FILE"), HasSubstr("example")));
}

TEST(Zemctl, ProgramLoadsAndShowsLibraryLinesOnRequestOnly) {
    const auto program = [](const std::string& arguments) {
        return zemctl::runShell("'" ZEMCTL_PROGRAM "' " + arguments + " '" + kExample + "'");
    };
    expectLoaded(program("load --plmn 26201"), 5);
    const Outcome chatty = program("load --plmn 20815 --log verbose");
    EXPECT_EQ(chatty.status, 0);
    EXPECT_THAT(chatty.err, AllOf(HasSubstr("Manager::addProfile > "), HasSubstr("~ProfileKey")));
    const Outcome errors = program("load --plmn 20815 --log error");
    EXPECT_THAT(errors.err, AllOf(HasSubstr("token is not present or expired"),
                                  Not(HasSubstr("Manager::addProfile"))));
}

TEST(Zemctl, FullDiskIsReported) {
    std::ofstream full("/dev/full");
    std::ostringstream err;
    const char* argv[] = {"zemctl", "load", "--plmn", "20815", kExample.c_str()};
    EXPECT_EQ(zemctl::runCommandLine(5, argv, {std::cin, full, err}), 1);
    EXPECT_THAT(err.str(), HasSubstr("cannot write"));
}

// A check that cannot fail is none: each of these faults must be seen by the tool itself.
TEST(Zemctl, FaultOfTheModemIsSeenAndStatusOne) {
    using softmodem::FaultKind;
    const std::pair<softmodem::Fault, const char*> cases[] = {
        {{FaultKind::kRefuse, 0x0027}, "1 refused by the modem"},
        {{FaultKind::kRefuse, 0x0028}, "WRONG  the modem has changed this profile and no other"},
        {{FaultKind::kRefuse, 0x0029}, "WRONG  what should be there is there"},
        {{FaultKind::kRefuse, 0x002A, 1, 2}, "WRONG  what should be there is there"},
        {{FaultKind::kUnknownEnums, 0x002B}, "WRONG  2 profiles left, read as before"},
    };
    for (const auto& [fault, seen] : cases) {
        softmodem::SoftModem::instance().reset();
        softmodem::SoftModem::instance().addFault(fault);
        const Outcome outcome = runTool("load --plmn 26201 FILE");
        EXPECT_EQ(outcome.status, 1) << seen;
        EXPECT_THAT(outcome.out, HasSubstr(seen));
        expectAccount(outcome.out, 5);
    }
    softmodem::SoftModem::instance().reset();
}

}  // namespace
