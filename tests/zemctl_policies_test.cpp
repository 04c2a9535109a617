// The tool's policies and its story, run in this process, whose modem a test can make fail.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "ToolRunner.h"
#include "verbs/CarrierList.h"

namespace {

using softmodem::FaultKind;
using softmodem::SoftModem;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

using zemctl::Outcome;
using zemctl::runAfresh;
using zemctl::runTool;

TEST(ZemctlPolicies, VerbsRunInOrderAndShowTheirAnswer) {
    const struct {
        std::string arguments;
        int status;
        std::string seen;
    } cases[] = {
        // found: exact, loose, by user name; created
        {"setup-call --apn INTERNET --home v4v6", 0, "3GPP:1, found: "},
        {"setup-call --apn internet --home v4", 0, "3GPP:1, found: .*internet V4V6"},
        {"setup-call --tech 3gpp2 --apn internet", 0, "3GPP2:0, found: "},
        {"setup-call --tech 3gpp2 --apn internet --user u", 0, "3GPP2:1, created: "},
        {"setup-call --apn a --types default,mms --class app --clat on --emergency off --disabled "
         "on --max-conns 1 --max-conns-time 2 --wait-time 3 --auth pap_chap --user u --roam v6",
         0, "3GPP:5, created: .*a -/V6 DEFAULT.MMS APP off .zem."},
        // updates count from there on, for both directions
        {"updates on setup-call --apn internet --home v4", 0, "internet V4 DEFAULT"},
        {"updates on updates off setup-call --apn internet --home v4", 0, "internet V4V6 DEFAULT"},
        // two keys to one profile: the second takes it along
        {"setup-call --apn a setup-call --apn a", 0,
         "3GPP:5 +data call +transient +on the modem\n +k2 +3GPP:5 +data call +transient +gone"},
        {"emergency-call --apn sos", 0, "3GPP:3, found: "},
        {"--help", 0, "setup-call"},
        {"emergency-call --factory none --apn sos", 0, "3GPP:1, created: .*EMERGENCY emergency"},
        {"attach --apn internet --home v4 --password p", 0, "3GPP:1, found: .*internet V4V6"},
        {"attach --apn new --home v4 attach --apn newer --home v6", 0,
         "3GPP:5, found: .*newer V6 NONE .zem attach."},
        // neither the other IP type nor a data call's profile will do
        {"setup-call --apn a --home v4 setup-call --apn a --home v6", 0, "3GPP:6, created: "},
        {"setup-call --apn a --home v4 attach --apn a --home v4", 0, "3GPP:6, created: "},
        {"match-attach --id 1 --apn internet --home v4", 0, "answered  yes"},
        {"updates on match-attach --id 1 --apn internet --home v4", 1, "answered  no"},
        {"match-attach --id 9", 1, "answered  no"},
        {"apply-apns --plmn 26202 FILE", 0, "3GPP2:0 +internet V4V6 DEFAULT INET +internet V4V6"},
        {"apply-apns --plmn 26202 --3gpp2 FILE", 0, "3GPP2:2 +- +ims V4V6 IMS IMS +new"},
    };
    for (const auto& [arguments, status, seen] : cases) {
        const Outcome outcome = runAfresh(arguments);
        EXPECT_EQ(outcome.status, status) << arguments << outcome.out;
        EXPECT_THAT(outcome.out, AllOf(ContainsRegex(seen), Not(HasSubstr("WRONG"))));
        EXPECT_EQ(outcome.err, "");
    }
}

TEST(ZemctlPolicies, WrongUseIsOneLineAndStatusTwo) {
    const std::pair<const char*, const char*> cases[] = {
        {"setup-call --auth md5", "none, pap, chap, pap_chap"},
        {"setup-call --class x", "ims, admn, inet, app"},
        {"setup-call --tech 4g", "3gpp, 3gpp2"},
        {"attach --clat maybe", "on, off"},
        {"attach --wait-time 65536", "0 to 65535"},
        {"match-attach", "--id"},
        {"updates", "required"},
        {"apply-apns FILE", "--plmn"},
        {"apply-apns --plmn 99999 FILE", "no entry for operator 99999"},
        {"attach story --plmn 26201 FILE", "stands alone"},
        {"story --plmn 26201 /nonexistent", "No such file"},
        {"", "verb"},
        {"load", "required"},
        {"load FILE", "--plmn"},
        {"load --plmn 26201", "FILE"},
        {"load --plmn 2620 FILE", "'2620'"},
        {"load --plmn 26201 /", "Is a directory"},
        {"load --plmn 26201 /dev/null", "not an XML file"},
    };
    for (const auto& [arguments, message] : cases) {
        const Outcome outcome = runTool(arguments);
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(outcome.out, "") << arguments;
        EXPECT_THAT(outcome.err, HasSubstr(message)) << arguments;
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    }
}

// Of the example, each serves the default type.
TEST(ZemctlPolicies, StoryOfEveryOperatorIsRight) {
    for (const zemctl::Plmn& plmn :
         zemctl::CarrierFile::read(ZEM_SOURCE_DIR "/examples/carriers.xml").operators()) {
        const Outcome outcome = runAfresh("story --plmn " + plmn.digits() + " FILE");
        EXPECT_EQ(outcome.status, 0) << plmn.digits() << outcome.out;
        EXPECT_THAT(outcome.out, Not(HasSubstr("WRONG")));
    }
}

TEST(ZemctlPolicies, PasswordsAreMasked) {
    for (const char* verb : {"story", "load"})
        EXPECT_THAT(runAfresh(verb + std::string(" --plmn 334020 FILE")).out,
                    AllOf(HasSubstr("webgprs"), Not(HasSubstr("webgprs2002"))));
    EXPECT_THAT(runAfresh("setup-call --password geheim").out, Not(HasSubstr("geheim")));
}

// A check that cannot fail is none: each of these faults must be seen by the tool itself.
TEST(ZemctlPolicies, FaultOfTheModemIsSeenAndStatusOne) {
    const std::string story = "story --plmn 26202 FILE";
    const struct {
        std::string arguments;
        softmodem::Fault fault;
        std::string seen;
    } cases[] = {
        {story, {FaultKind::kRefuse, 0x0027}, "WRONG  each class has its last entry's settings"},
        {story, {FaultKind::kRefuse, 0x0028}, "WRONG  each class has its last entry's settings"},
        {story, {FaultKind::kRefuse, 0x0027, 9}, "WRONG  the library has given a key"},
        {story, {FaultKind::kRefuse, 0x0029}, "WRONG  transient profiles went with their last key"},
        {story, {FaultKind::kRefuse, 0x002A}, "WRONG  the library reads what the modem stores"},
        {story, {FaultKind::kRefuse, 0x002A, 1, 2}, "WRONG  transient profiles are gone, the oth"},
        {story, {FaultKind::kUnknownEnums, 0x002B, 9}, "WRONG  "},
        // The factory profiles' indications come first.
        {story,
         {FaultKind::kLoseIndication, 0x00A8, 1, 5},
         "WRONG  the library reads the new value"},
        {"setup-call --apn a", {FaultKind::kRefuse, 0x0027}, "WRONG  the library has given a key"},
        {"setup-call --apn a", {FaultKind::kRefuse, 0x0029}, "3GPP:5 is still there"},
        {"attach --apn internet --home v4 --user u", {FaultKind::kRefuse, 0x0028}, "UserName"},
        {"updates on attach --apn internet --home v4", {FaultKind::kRefuse, 0x0028}, "HomeIPType"},
    };
    for (const auto& [arguments, fault, seen] : cases) {
        SoftModem::instance().reset();
        SoftModem::instance().addFault(fault);
        const Outcome outcome = runTool(arguments);
        EXPECT_EQ(outcome.status, 1) << seen << outcome.out;
        EXPECT_THAT(outcome.out, HasSubstr(seen));
    }
    SoftModem::instance().reset();
}

}  // namespace
