// Every command against a real daemon: what it shows, what it says when it is refused, what it ends
// with. Most run the program's inside in this process, which keeps its two outputs apart.

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <rpc/pmap_clnt.h>
#include <rpc/rpc.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <initializer_list>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "cli/carry.h"
#include "cli/client.h"
#include "cli/program.h"
#include "cli/refusal.h"
#include "tests/cli/command_line.h"
#include "tests/cli/live_daemon.h"
#include "tests/support/pseudo_terminal.h"
#include "tests/system/fixture.h"

namespace cli {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;
class Protocols : public DaemonTest {};
class Profiles : public DaemonTest {};
class Attachments : public DaemonTest {};
class Statistics : public DaemonTest {};
class Feeding : public DaemonTest {};

// ---- Protocols ----

TEST_F(Protocols, AreListedInNameOrder) {
  does({{"protocol", "add", "a b", "mac", "any"},
        {"protocol", "add", "PTP", "mac", "01-80-C2-00-00-0E", "ethertype", "0x88f7", "subtype",
         "12"}});
  EXPECT_EQ(shown({"protocol", "list"}),
            "NAME         MAC                ETHERTYPE  SUBTYPE  PROTECT  RULES\n"
            "All-Bridges  01:80:c2:00:00:10  none       none     yes          0\n"
            "CDP          01:00:0c:cc:cc:cc  0x2000     none     yes          0\n"
            "E-LMI        01:80:c2:00:00:07  none       none     yes          0\n"
            "GMRP-MMRP    01:80:c2:00:00:20  none       none     yes          0\n"
            "GVRP-MVRP    01:80:c2:00:00:21  none       none     yes          0\n"
            "LACP-LAMP    01:80:c2:00:00:02  0x8809     0x01     yes          0\n"
            "LLDP         01:80:c2:00:00:0e  none       none     yes          0\n"
            "MSPP         01:80:c2:00:00:03  0x22e2     none     yes          0\n"
            "OAM-CFM      01:80:c2:00:00:30  0x8902     none     yes          0\n"
            "OAM-EFM      01:80:c2:00:00:02  0x8809     0x03     yes          0\n"
            "PNAC         01:80:c2:00:00:03  0x888e     none     yes          0\n"
            "PTP          01:80:c2:00:00:0e  0x88f7     0x0c     no           0\n"
            "Pause-Frame  01:80:c2:00:00:01  none       none     yes          0\n"
            "UDLD         01:00:0c:cc:cc:cc  0x0111     none     yes          0\n"
            "\"a b\"        any                none       none     no           0\n"
            "xSTP         01:80:c2:00:00:00  none       none     yes          0\n");
}

TEST_F(Protocols, AreShownOneByOne) {
  does({{"profile", "add", "p"}, {"profile", "rule", "add", "p", "LACP-LAMP", "peer"}});
  EXPECT_EQ(shown({"protocol", "show", "LACP-LAMP"}),
            "name       LACP-LAMP\n"
            "mac        01:80:c2:00:00:02\n"
            "ethertype  0x8809\n"
            "subtype    0x01\n"
            "protect    yes\n"
            "rules      1\n");
}

TEST_F(Protocols, AreShownToProgramsAsTheyAreToPeople) {
  does({{"protocol", "add", "a 'b", "mac", "any"},
        {"protocol", "delete", "LLDP"},
        {"profile", "add", "p"},
        {"profile", "rule", "add", "p", "xSTP", "peer"}});
  EXPECT_EQ(
      shown({"-o", "protocol", "list"}),
      "name=All-Bridges mac=01:80:c2:00:00:10 ethertype=none subtype=none protect=yes rules=0\n"
      "name=CDP mac=01:00:0c:cc:cc:cc ethertype=0x2000 subtype=none protect=yes rules=0\n"
      "name=E-LMI mac=01:80:c2:00:00:07 ethertype=none subtype=none protect=yes rules=0\n"
      "name=GMRP-MMRP mac=01:80:c2:00:00:20 ethertype=none subtype=none protect=yes rules=0\n"
      "name=GVRP-MVRP mac=01:80:c2:00:00:21 ethertype=none subtype=none protect=yes rules=0\n"
      "name=LACP-LAMP mac=01:80:c2:00:00:02 ethertype=0x8809 subtype=0x01 protect=yes rules=0\n"
      "name=MSPP mac=01:80:c2:00:00:03 ethertype=0x22e2 subtype=none protect=yes rules=0\n"
      "name=OAM-CFM mac=01:80:c2:00:00:30 ethertype=0x8902 subtype=none protect=yes rules=0\n"
      "name=OAM-EFM mac=01:80:c2:00:00:02 ethertype=0x8809 subtype=0x03 protect=yes rules=0\n"
      "name=PNAC mac=01:80:c2:00:00:03 ethertype=0x888e subtype=none protect=yes rules=0\n"
      "name=Pause-Frame mac=01:80:c2:00:00:01 ethertype=none subtype=none protect=yes rules=0\n"
      "name=UDLD mac=01:00:0c:cc:cc:cc ethertype=0x0111 subtype=none protect=yes rules=0\n"
      "name='a '\\''b' mac=any ethertype=none subtype=none protect=no rules=0\n"
      "name=xSTP mac=01:80:c2:00:00:00 ethertype=none subtype=none protect=yes rules=1\n");
  EXPECT_EQ(
      shown({"-j", "protocol", "list"}),
      R"([{"name":"All-Bridges","mac":"01:80:c2:00:00:10","ethertype":null,"subtype":null,"protect":true,"rules":0},)"
      R"({"name":"CDP","mac":"01:00:0c:cc:cc:cc","ethertype":8192,"subtype":null,"protect":true,"rules":0},)"
      R"({"name":"E-LMI","mac":"01:80:c2:00:00:07","ethertype":null,"subtype":null,"protect":true,"rules":0},)"
      R"({"name":"GMRP-MMRP","mac":"01:80:c2:00:00:20","ethertype":null,"subtype":null,"protect":true,"rules":0},)"
      R"({"name":"GVRP-MVRP","mac":"01:80:c2:00:00:21","ethertype":null,"subtype":null,"protect":true,"rules":0},)"
      R"({"name":"LACP-LAMP","mac":"01:80:c2:00:00:02","ethertype":34825,"subtype":1,"protect":true,"rules":0},)"
      R"({"name":"MSPP","mac":"01:80:c2:00:00:03","ethertype":8930,"subtype":null,"protect":true,"rules":0},)"
      R"({"name":"OAM-CFM","mac":"01:80:c2:00:00:30","ethertype":35074,"subtype":null,"protect":true,"rules":0},)"
      R"({"name":"OAM-EFM","mac":"01:80:c2:00:00:02","ethertype":34825,"subtype":3,"protect":true,"rules":0},)"
      R"({"name":"PNAC","mac":"01:80:c2:00:00:03","ethertype":34958,"subtype":null,"protect":true,"rules":0},)"
      R"({"name":"Pause-Frame","mac":"01:80:c2:00:00:01","ethertype":null,"subtype":null,"protect":true,"rules":0},)"
      R"({"name":"UDLD","mac":"01:00:0c:cc:cc:cc","ethertype":273,"subtype":null,"protect":true,"rules":0},)"
      R"({"name":"a 'b","mac":null,"ethertype":null,"subtype":null,"protect":false,"rules":0},)"
      R"({"name":"xSTP","mac":"01:80:c2:00:00:00","ethertype":null,"subtype":null,"protect":true,"rules":1}])"
      "\n");
  EXPECT_EQ(shown({"-o", "protocol", "show", "LACP-LAMP"}),
            "name=LACP-LAMP mac=01:80:c2:00:00:02 ethertype=0x8809 subtype=0x01 protect=yes "
            "rules=0\n");
  EXPECT_EQ(shown({"-j", "protocol", "show", "LACP-LAMP"}),
            R"({"name":"LACP-LAMP","mac":"01:80:c2:00:00:02","ethertype":34825,"subtype":1,)"
            R"("protect":true,"rules":0})"
            "\n");
}

TEST_F(Protocols, AreFoundByTheirPosition) {
  EXPECT_EQ(shown({"protocol", "show", "position", "13"}), shown({"protocol", "show", "xSTP"}));
  EXPECT_EQ(refused({"protocol", "show", "position", "14"}),
            "l2cpctl: error: FAILED: there are no more protocols than this; positions count from "
            "0\n");
  does({{"protocol", "add", "position", "mac", "any"}});
  EXPECT_THAT(shown({"protocol", "show", "position"}),
              testing::StartsWith("name       position\n"));
}

TEST_F(Protocols, AreChangedOneThingAtATime) {
  does({{"protocol", "add", "x", "protect", "subtype", "1", "mac", "any"},
        {"protocol", "set", "x", "mac", "0180.c200.00ff"},
        {"protocol", "set", "x", "ethertype", "35020"},
        {"protocol", "set", "x", "subtype", "0"},
        {"protocol", "set", "x", "protect", "off"}});
  EXPECT_EQ(shown({"protocol", "show", "x"}),
            "name       x\n"
            "mac        01:80:c2:00:00:ff\n"
            "ethertype  0x88cc\n"
            "subtype    0x00\n"
            "protect    no\n"
            "rules      0\n");
  does({{"protocol", "set", "x", "mac", "any"},
        {"protocol", "set", "x", "ethertype", "none"},
        {"protocol", "set", "x", "subtype", "none"},
        {"protocol", "set", "x", "protect", "on"}});
  EXPECT_EQ(shown({"protocol", "show", "x"}),
            "name       x\n"
            "mac        any\n"
            "ethertype  none\n"
            "subtype    none\n"
            "protect    yes\n"
            "rules      0\n");
}

TEST_F(Protocols, AreRenamedOntoOthersAndDeleted) {
  does({{"protocol", "add", "old", "mac", "any", "ethertype", "1"},
        {"protocol", "add", "new", "mac", "any", "ethertype", "2"},
        {"protocol", "rename", "old", "new"}});
  EXPECT_THAT(shown({"protocol", "show", "new"}), HasSubstr("ethertype  0x0001\n"));
  does({{"protocol", "delete", "new"}});
  EXPECT_EQ(
      refused({"protocol", "show", "old"}),
      "l2cpctl: error: PROTO_NOT_FOUND: there is no protocol of this name; \"l2cpctl protocol "
      "list\" shows those there are\n");
}

TEST_F(Protocols, RefusalsSayWhatToDo) {
  constexpr const char* notFound =
      "l2cpctl: error: PROTO_NOT_FOUND: there is no protocol of this name; \"l2cpctl protocol "
      "list\" shows those there are\n";
  EXPECT_EQ(refused({"protocol", "delete", "x"}), notFound);
  EXPECT_EQ(refused({"protocol", "set", "x", "protect", "on"}), notFound);
  EXPECT_EQ(refused({"protocol", "set", "x", "mac", "any"}), notFound);
  EXPECT_EQ(refused({"protocol", "set", "x", "ethertype", "none"}), notFound);
  EXPECT_EQ(refused({"protocol", "set", "x", "subtype", "none"}), notFound);
  EXPECT_EQ(refused({"protocol", "statistics", "x"}), notFound);
  EXPECT_EQ(refused({"protocol", "rename", "x", "LLDP"}),
            "l2cpctl: error: PROTO_NOT_FOUND: there is no protocol of the old name; \"l2cpctl "
            "protocol list\" shows those there are\n");
  EXPECT_EQ(
      refused({"protocol", "rename", "LLDP", "x"}),
      "l2cpctl: error: PROTO_IN_USE: there is no protocol of the new name to be replaced; add "
      "one with \"l2cpctl protocol add\" first\n");
  EXPECT_EQ(refused({"protocol", "add", "LLDP", "mac", "any"}),
            "l2cpctl: error: PROTO_EXISTS: there is a protocol of this name; choose another name, "
            "or change that one with \"l2cpctl protocol set\"\n");
  EXPECT_EQ(
      refused({"protocol", "add", std::string(31, 'x'), "mac", "any"}),
      "l2cpctl: error: INVALID: the name is too long for the module; 30 bytes are the most\n");
  does({{"profile", "add", "p"}, {"profile", "rule", "add", "p", "LLDP", "peer"}});
  EXPECT_EQ(refused({"protocol", "delete", "LLDP"}),
            "l2cpctl: error: PROTO_IN_USE: rules of profiles refer to the protocol; delete them "
            "first with \"l2cpctl profile rule delete\"\n");
}

TEST_F(Protocols, NamesAreShownSoThatTheyCannotHarmATerminal) {
  Client client({});
  for (std::string name : {"\x1b]0;owned\a", "caf\xc3\xa9", "\xff", "line\nline"}) {
    rpc_l2cp_proto proto{};
    proto.name = wireText(name);
    accept(client.module<rpc_l2cp_proto_add_1>(proto));
  }
  const std::string list = shown({"protocol", "list"});
  EXPECT_THAT(list, HasSubstr("\n\\x1b]0;owned\\x07  any                0x0000     0x00     no"));
  EXPECT_THAT(list, HasSubstr("\ncaf\xc3\xa9              any                0x0000     0x00  "));
  EXPECT_THAT(list, HasSubstr("\n\\xff              any                0x0000     0x00     no "));
  EXPECT_THAT(list, HasSubstr("\nline\\x0aline      any                0x0000     0x00     no "));
  const std::string lines = shown({"-o", "protocol", "list"});
  EXPECT_THAT(lines, HasSubstr("name=$'\\033]0;owned\\007' mac=any "));
  EXPECT_THAT(lines, HasSubstr("\nname='caf\xc3\xa9' mac=any "));
  EXPECT_THAT(lines, HasSubstr("\nname=$'\\377' mac=any "));
  EXPECT_THAT(lines, HasSubstr("\nname=$'line\\012line' mac=any "));
  const std::string json = shown({"-j", "protocol", "list"});
  EXPECT_THAT(json, HasSubstr(R"({"name":"\u001b]0;owned\u0007","mac":null,)"));
  EXPECT_THAT(json, HasSubstr(R"({"name":"caf\u00e9","mac":null,)"));
  EXPECT_THAT(json, HasSubstr(R"({"name":"\\xff","mac":null,)"));
  EXPECT_THAT(json, HasSubstr(R"({"name":"line\nline","mac":null,)"));
  does({{"protocol", "delete", "caf\xc3\xa9"}, {"protocol", "delete", "\xff"}});
}

// ---- Profiles ----

TEST_F(Profiles, AreListedInNameOrder) {
  EXPECT_EQ(shown({"profile", "list"}), "NAME  PROTECT  DYNAMIC  ATTACHMENTS\n");
  does({{"profile", "add", "plain"},
        {"profile", "add", "my net", "protect"},
        {"profile", "add", "d", "dynamic"},
        {"profile", "add", "both", "dynamic", "protect"},
        {"attach", "plain", "port", "1"},
        {"attach", "plain", "port", "2", "vlan", "7"}});
  EXPECT_EQ(shown({"profile", "list"}),
            "NAME      PROTECT  DYNAMIC  ATTACHMENTS\n"
            "both      yes      yes                0\n"
            "d         no       yes                0\n"
            "\"my net\"  yes      no                 0\n"
            "plain     no       no                 2\n");
}

TEST_F(Profiles, AreShownWithTheirRules) {
  does({{"profile", "add", "my net"},
        {"profile", "rule", "add", "my net", "xSTP", "peer"},
        {"profile", "rule", "add", "my net", "LLDP", "discard"},
        {"profile", "rule", "add", "my net", "CDP", "tunnel"}});
  constexpr const char* rules =
      "PROTOCOL  RULE\n"
      "CDP       tunnel\n"
      "LLDP      discard\n"
      "xSTP      peer\n";
  EXPECT_EQ(shown({"profile", "show", "my net"}), std::string("name         \"my net\"\n"
                                                              "protect      no\n"
                                                              "dynamic      no\n"
                                                              "attachments  0\n"
                                                              "\n") +
                                                      rules);
  EXPECT_EQ(shown({"profile", "rule", "list", "my net"}), rules);
}

TEST_F(Profiles, AreShownToProgramsAsTheyAreToPeople) {
  EXPECT_EQ(shown({"-o", "profile", "list"}), "");
  EXPECT_EQ(shown({"-j", "profile", "list"}), "[]\n");
  does({{"profile", "add", "my net", "dynamic"}});
  EXPECT_EQ(shown({"-j", "profile", "rule", "list", "my net"}), "[]\n");
  EXPECT_EQ(shown({"-j", "profile", "show", "my net"}),
            R"({"name":"my net","protect":false,"dynamic":true,"attachments":0,"rules":[]})"
            "\n");
  does({{"profile", "rule", "add", "my net", "xSTP", "peer"},
        {"profile", "rule", "add", "my net", "CDP", "tunnel"}});
  EXPECT_EQ(shown({"-o", "profile", "list"}),
            "name='my net' protect=no dynamic=yes attachments=0\n");
  EXPECT_EQ(shown({"-j", "profile", "list"}),
            R"([{"name":"my net","protect":false,"dynamic":true,"attachments":0}])"
            "\n");
  EXPECT_EQ(shown({"-o", "profile", "show", "my net"}),
            "kind=profile name='my net' protect=no dynamic=yes attachments=0\n"
            "kind=rule protocol=CDP rule=tunnel\n"
            "kind=rule protocol=xSTP rule=peer\n");
  EXPECT_EQ(shown({"-p", "profile", "show", "my net"}),
            "{\n"
            "  \"name\": \"my net\",\n"
            "  \"protect\": false,\n"
            "  \"dynamic\": true,\n"
            "  \"attachments\": 0,\n"
            "  \"rules\": [\n"
            "    {\n"
            "      \"protocol\": \"CDP\",\n"
            "      \"rule\": \"tunnel\"\n"
            "    },\n"
            "    {\n"
            "      \"protocol\": \"xSTP\",\n"
            "      \"rule\": \"peer\"\n"
            "    }\n"
            "  ]\n"
            "}\n");
  EXPECT_EQ(shown({"-o", "profile", "rule", "list", "my net"}),
            "protocol=CDP rule=tunnel\nprotocol=xSTP rule=peer\n");
  EXPECT_EQ(shown({"-j", "profile", "rule", "list", "my net"}),
            R"([{"protocol":"CDP","rule":"tunnel"},{"protocol":"xSTP","rule":"peer"}])"
            "\n");
  EXPECT_EQ(shown({"-o", "profile", "status", "my net"}), "name='my net' status=changeable\n");
  EXPECT_EQ(shown({"-j", "profile", "status", "my net"}),
            R"({"name":"my net","status":"changeable"})"
            "\n");
}

TEST_F(Profiles, AreFoundByTheirPosition) {
  does({{"profile", "add", "b"}, {"profile", "add", "a"}});
  EXPECT_EQ(shown({"profile", "show", "position", "1"}), shown({"profile", "show", "b"}));
  EXPECT_EQ(shown({"-o", "profile", "show", "position", "1"}),
            shown({"-o", "profile", "show", "b"}));
  EXPECT_EQ(shown({"-j", "profile", "show", "position", "1"}),
            shown({"-j", "profile", "show", "b"}));
  EXPECT_EQ(refused({"profile", "show", "position", "2"}),
            "l2cpctl: error: PROFILE_NOT_FOUND: there are no more profiles than this; positions "
            "count from 0\n");
}

TEST_F(Profiles, RulesAreShownOneByOne) {
  does({{"profile", "add", "p"},
        {"profile", "rule", "add", "p", "LLDP", "discard"},
        {"profile", "rule", "add", "p", "CDP", "peer"}});
  EXPECT_EQ(shown({"profile", "rule", "show", "p", "LLDP"}), "protocol  LLDP\nrule      discard\n");
  EXPECT_EQ(shown({"-o", "profile", "rule", "show", "p", "CDP"}), "protocol=CDP rule=peer\n");
  EXPECT_EQ(shown({"-j", "profile", "rule", "show", "p", "CDP"}),
            R"({"protocol":"CDP","rule":"peer"})"
            "\n");
  // The module's order is that of addresses in its memory.
  EXPECT_THAT(
      (std::vector{shown({"-o", "profile", "rule", "show", "p", "position", "0"}),
                   shown({"-o", "profile", "rule", "show", "p", "position", "1"})}),
      testing::UnorderedElementsAre("protocol=CDP rule=peer\n", "protocol=LLDP rule=discard\n"));
  EXPECT_EQ(refused({"profile", "rule", "show", "p", "position", "2"}),
            "l2cpctl: error: PROTO_NOT_FOUND: the profile has no more rules than this; positions "
            "count from 0\n");
  EXPECT_EQ(refused({"profile", "rule", "show", "p", "xSTP"}),
            "l2cpctl: error: PROTO_NOT_IN_PROFILE: the profile has no rule for this protocol; add "
            "one with \"l2cpctl profile rule add\"\n");
}

TEST_F(Profiles, AreRenamed) {
  does({{"profile", "add", "old", "protect"}, {"profile", "rename", "old", "new"}});
  EXPECT_EQ(shown({"-o", "profile", "list"}), "name=new protect=no dynamic=no attachments=0\n");
  does({{"profile", "add", "other"}});
  EXPECT_EQ(refused({"profile", "rename", "new", "other"}),
            "l2cpctl: error: PROFILE_EXISTS: there is a profile of the new name; choose another\n");
}

TEST_F(Profiles, AreCopiedWithTheirRules) {
  does({{"profile", "add", "p"},
        {"profile", "rule", "add", "p", "LLDP", "peer"},
        {"profile", "copy", "p", "q"}});
  EXPECT_EQ(shown({"-o", "profile", "rule", "list", "q"}), "protocol=LLDP rule=peer\n");
  EXPECT_EQ(refused({"profile", "copy", "p", "q"}),
            "l2cpctl: error: FAILED: there is a profile of the new name; choose another\n");
  EXPECT_EQ(refused({"profile", "copy", "x", "y"}),
            "l2cpctl: error: PROTO_NOT_FOUND: there is no profile of this name to copy; \"l2cpctl "
            "profile list\" shows those there are\n");
}

TEST_F(Profiles, AreEditedAsCopies) {
  does({{"profile", "add", "p"}, {"profile", "rule", "add", "p", "LLDP", "peer"}});
  EXPECT_EQ(shown({"profile", "edit", "p"}), "profile  p\ncopy     temp_l2cp_prof_1\n");
  EXPECT_EQ(shown({"-o", "profile", "edit", "p"}), "profile=p copy=temp_l2cp_prof_2\n");
  EXPECT_EQ(shown({"-j", "profile", "edit", "p"}), R"({"profile":"p","copy":"temp_l2cp_prof_3"})"
                                                   "\n");
  does({{"profile", "rule", "add", "temp_l2cp_prof_2", "CDP", "tunnel"},
        {"profile", "commit", "p", "temp_l2cp_prof_2"}});
  EXPECT_EQ(shown({"-o", "profile", "rule", "list", "p"}),
            "protocol=CDP rule=tunnel\nprotocol=LLDP rule=peer\n");
  EXPECT_EQ(
      refused({"profile", "edit", "x"}),
      "l2cpctl: error: FAILED: there is no profile of this name; \"l2cpctl profile list\" shows "
      "those there are\n");
}

TEST_F(Profiles, KeepTheirRulesIfOnlyThoseDifferInTheCopy) {
  does({{"profile", "add", "p"}, {"profile", "rule", "add", "p", "LLDP", "peer"}});
  shown({"profile", "edit", "p"});
  does({{"profile", "rule", "set", "temp_l2cp_prof_1", "LLDP", "tunnel"}});
  EXPECT_EQ(
      refused({"profile", "commit", "p", "temp_l2cp_prof_1"}),
      "l2cpctl: error: EDIT_UNCHANGED: the copy has the same protocols, so the module discarded "
      "it without a look at their rules; to change rules alone, detach the profile and use "
      "\"l2cpctl profile rule set\"\n");
  EXPECT_EQ(shown({"-o", "profile", "rule", "list", "p"}), "protocol=LLDP rule=peer\n");
}

TEST_F(Profiles, ThatAreProtectedAreNotReplaced) {
  does({{"profile", "add", "p"},
        {"profile", "copy", "p", "temp_l2cp_prof_1"},
        {"profile", "rule", "add", "temp_l2cp_prof_1", "LLDP", "peer"},
        {"profile", "set", "p", "protect", "on"}});
  EXPECT_EQ(refused({"profile", "commit", "p", "temp_l2cp_prof_1"}),
            "l2cpctl: error: EDIT_FAILED: the copy could not take the profile's place, or only "
            "part-way: the profile is protected, or attached other than by service profiles; look "
            "at both with \"l2cpctl profile show\"\n");
}

TEST_F(Profiles, ThatDoNotExistAreNotMadeByCommitting) {
  does({{"profile", "add", "p"}});
  constexpr const char* notFound =
      "l2cpctl: error: PROFILE_NOT_FOUND: there is no profile of this name; \"l2cpctl profile "
      "list\" shows those there are\n";
  EXPECT_EQ(refused({"profile", "commit", "p", "x"}), notFound);
  EXPECT_EQ(refused({"profile", "commit", "x", "p"}), notFound);
  EXPECT_EQ(shown({"-o", "profile", "list"}), "name=p protect=no dynamic=no attachments=0\n");
}

TEST_F(Profiles, AreNotReplacedByThemselvesOrByOthersThatAreNoCopies) {
  does({{"profile", "add", "p"}, {"profile", "add", "q"}, {"profile", "add", "temp_l2cp_prof_1"}});
  const std::string before = shown({"profile", "list"});
  for (const auto& [profile, copy] :
       {std::pair("p", "p"), {"p", "q"}, {"temp_l2cp_prof_1", "temp_l2cp_prof_1"}}) {
    const auto [status, out, err] = outcome({"profile", "commit", profile, copy});
    EXPECT_EQ(status, 1);
    EXPECT_EQ(err, "l2cpctl: error: \"" + std::string(copy) +
                       "\" is no copy that \"l2cpctl profile edit\" has made of the profile; "
                       "nothing was done\n");
  }
  EXPECT_EQ(shown({"profile", "list"}), before);
}

// Scripts and other clients give names that commands would not give.
TEST_F(Profiles, AreTakenByTheNamesThatTheyHave) {
  Client client({});
  for (const std::string name : {"", "a\tb", "\xc2\x9b", "a\" b", "\x1b[2J"}) {
    SCOPED_TRACE(name);
    for (const script::Command& command : std::initializer_list<script::Command>{
             script::Protocol{name}, script::L2cpProfile{name},
             script::Entry{name, name, script::Rule::peer}, script::Attach{name, 1}}) {
      carry(command, client);
    }
    EXPECT_THAT(shown({"-o", "profile", "show", name}), HasSubstr(" attachments=1\n"));
    EXPECT_THAT(shown({"-o", "protocol", "show", name}), HasSubstr(" rules=1\n"));
    EXPECT_THAT(shown({"-o", "profile", "rule", "show", name, name}), HasSubstr(" rule=peer\n"));
    does({{"detach", name, "port", "1"},
          {"profile", "rule", "set", name, name, "tunnel"},
          {"profile", "rule", "delete", name, name},
          {"profile", "rename", name, "p"},
          {"profile", "delete", "p"},
          {"protocol", "add", "other", "mac", "any", "ethertype", "1"},
          {"protocol", "rename", "other", name},
          {"protocol", "delete", name}});
  }
  EXPECT_EQ(shown({"-o", "profile", "list"}), "");
}

TEST_F(Profiles, AreGivenNamesThatScriptsCanSay) {
  for (const std::string name : {"a\tb", "\xc2\x9b"}) {
    does({{"profile", "add", name}, {"profile", "rule", "add", name, "LLDP", "peer"}});
  }
  const std::string script = outcome({"running-config", "show"}, {.answers = Sink::file}).out;
  does({{"running-config", "defaults"}, {"load", support::World::file("names.l2cp", script)}});
  EXPECT_EQ(shown({"-j", "profile", "rule", "list", "a\tb"}),
            R"([{"protocol":"LLDP","rule":"peer"}])"
            "\n");
}

TEST_F(Profiles, RulesAreChangedDeletedAndCleared) {
  does({{"profile", "add", "p"},
        {"profile", "rule", "add", "p", "LLDP", "discard"},
        {"profile", "rule", "add", "p", "CDP", "tunnel"},
        {"profile", "rule", "add", "p", "UDLD", "tunnel"},
        {"profile", "rule", "set", "p", "LLDP", "peer"},
        {"profile", "rule", "delete", "p", "CDP"}});
  EXPECT_EQ(shown({"profile", "rule", "list", "p"}),
            "PROTOCOL  RULE\n"
            "LLDP      peer\n"
            "UDLD      tunnel\n");
  does({{"profile", "rule", "clear", "p"}});
  EXPECT_EQ(shown({"profile", "rule", "list", "p"}), "PROTOCOL  RULE\n");
}

TEST_F(Profiles, FlagsGoTogether) {
  does({{"profile", "add", "p"}, {"profile", "set", "p", "dynamic", "on"}});
  EXPECT_THAT(shown({"profile", "show", "p"}), HasSubstr("protect      yes\ndynamic      yes\n"));
  does({{"profile", "set", "p", "protect", "off"}});
  EXPECT_THAT(shown({"profile", "show", "p"}), HasSubstr("protect      no\ndynamic      no\n"));
  does({{"profile", "set", "p", "protect", "on"}, {"profile", "set", "p", "dynamic", "off"}});
  EXPECT_THAT(shown({"profile", "show", "p"}), HasSubstr("protect      yes\ndynamic      no\n"));
}

TEST_F(Profiles, StatusSaysWhetherTheyMayBeChanged) {
  does({{"profile", "add", "p"}});
  EXPECT_EQ(shown({"profile", "status", "p"}), "name    p\nstatus  changeable\n");
  does({{"attach", "p", "port", "1"}});
  EXPECT_EQ(shown({"profile", "status", "p"}), "name    p\nstatus  attached\n");
  does({{"profile", "set", "p", "protect", "on"}});
  EXPECT_EQ(shown({"profile", "status", "p"}), "name    p\nstatus  protected\n");
  EXPECT_EQ(
      refused({"profile", "status", "q"}),
      "l2cpctl: error: PROFILE_NOT_FOUND: there is no profile of this name; \"l2cpctl profile "
      "list\" shows those there are\n");
}

TEST_F(Profiles, AreDeletedWhenNothingHoldsThem) {
  does({{"profile", "add", "p"}, {"profile", "delete", "p"}});
  EXPECT_EQ(shown({"profile", "list"}), "NAME  PROTECT  DYNAMIC  ATTACHMENTS\n");
}

TEST_F(Profiles, ThatDoNotExistAreSaidToBeMissing) {
  for (const CommandLine& line :
       std::initializer_list<CommandLine>{{"profile", "show", "x"},
                                          {"profile", "delete", "x"},
                                          {"profile", "set", "x", "protect", "on"},
                                          {"profile", "set", "x", "dynamic", "on"},
                                          {"profile", "statistics", "x"},
                                          {"profile", "rename", "x", "y"},
                                          {"profile", "ports", "x"},
                                          {"profile", "uses", "x"},
                                          {"profile", "rule", "show", "x", "LLDP"},
                                          {"profile", "rule", "show", "x", "position", "0"},
                                          {"profile", "rule", "add", "x", "LLDP", "peer"},
                                          {"profile", "rule", "set", "x", "LLDP", "peer"},
                                          {"profile", "rule", "delete", "x", "LLDP"},
                                          {"profile", "rule", "clear", "x"},
                                          {"profile", "rule", "list", "x"},
                                          {"attach", "x", "port", "1"},
                                          {"detach", "x", "port", "1"}}) {
    EXPECT_EQ(refused(line),
              "l2cpctl: error: PROFILE_NOT_FOUND: there is no profile of this name; \"l2cpctl "
              "profile list\" shows those there are\n");
  }
}

TEST_F(Profiles, RefusalsSayWhatToDo) {
  does({{"profile", "add", "p"}, {"profile", "rule", "add", "p", "LLDP", "peer"}});
  EXPECT_EQ(refused({"profile", "add", "p"}),
            "l2cpctl: error: PROFILE_EXISTS: there is a profile of this name; choose another name, "
            "or change that one with \"l2cpctl profile set\"\n");
  EXPECT_EQ(
      refused({"profile", "rule", "add", "p", "LLDP", "tunnel"}),
      "l2cpctl: error: PROTO_IN_USE: the profile has a rule for this protocol; change it with "
      "\"l2cpctl profile rule set\"\n");
  EXPECT_EQ(refused({"profile", "rule", "set", "p", "CDP", "tunnel"}),
            "l2cpctl: error: PROTO_NOT_IN_PROFILE: the profile has no rule for this protocol; add "
            "one with \"l2cpctl profile rule add\"\n");
  EXPECT_EQ(refused({"profile", "rule", "delete", "p", "CDP"}),
            "l2cpctl: error: PROTO_NOT_IN_PROFILE: the profile has no rule for this protocol; "
            "\"l2cpctl profile rule list\" shows those there are\n");
  for (const char* verb : {"add", "set"}) {
    EXPECT_EQ(refused({"profile", "rule", verb, "p", "x", "peer"}),
              "l2cpctl: error: PROTO_NOT_FOUND: there is no protocol of this name; \"l2cpctl "
              "protocol list\" shows those there are\n");
  }
}

TEST_F(Profiles, ThatAreProtectedAreNotChanged) {
  does({{"profile", "add", "p", "protect"}});
  for (const CommandLine& line :
       std::initializer_list<CommandLine>{{"profile", "delete", "p"},
                                          {"profile", "rule", "add", "p", "LLDP", "peer"},
                                          {"profile", "rule", "set", "p", "LLDP", "peer"},
                                          {"profile", "rule", "delete", "p", "LLDP"},
                                          {"profile", "rule", "clear", "p"}}) {
    EXPECT_EQ(refused(line),
              "l2cpctl: error: PROFILE_PROTECTED: the profile is protected; switch that off first "
              "with \"l2cpctl profile set NAME protect off\"\n");
  }
}

TEST_F(Profiles, ThatAreAttachedAreNotChanged) {
  does({{"profile", "add", "p"}, {"attach", "p", "port", "1"}});
  for (const CommandLine& line :
       std::initializer_list<CommandLine>{{"profile", "rule", "add", "p", "LLDP", "peer"},
                                          {"profile", "rule", "set", "p", "LLDP", "peer"},
                                          {"profile", "rule", "delete", "p", "LLDP"},
                                          {"profile", "rule", "clear", "p"}}) {
    EXPECT_EQ(refused(line),
              "l2cpctl: error: PROFILE_IN_USE: the profile is in force somewhere; detach it "
              "everywhere first with \"l2cpctl detach\"\n");
  }
  EXPECT_EQ(refused({"profile", "delete", "p"}),
            "l2cpctl: error: PROFILE_IN_USE: the profile is attached, or a service profile names "
            "it; detach it everywhere first with \"l2cpctl detach\"\n");
}

// ---- Attachments ----

TEST_F(Attachments, AreShownByPort) {
  does({{"profile", "add", "p"},
        {"profile", "add", "my net"},
        {"attach", "my net", "port", "4294967295"},
        {"attach", "p", "port", "0xffffffff", "vlan", "100"},
        {"attach", "my net", "port", "4294967295", "vlan", "0x7"},
        {"attach", "p", "port", "1"}});
  EXPECT_EQ(shown({"port", "show", "4294967295"}),
            "VLAN  PROFILE\n"
            "   7  \"my net\"\n"
            " 100  p\n"
            " all  \"my net\"\n");
  does({{"detach", "my net", "port", "4294967295"},
        {"detach", "p", "port", "4294967295", "vlan", "100"}});
  EXPECT_EQ(shown({"port", "show", "4294967295"}),
            "VLAN  PROFILE\n"
            "   7  \"my net\"\n");
}

TEST_F(Attachments, OfAPortWithoutAnyAreAnEmptyList) {
  EXPECT_EQ(shown({"port", "show", "0"}), "VLAN  PROFILE\n");
  EXPECT_EQ(shown({"-o", "port", "show", "0"}), "");
  EXPECT_EQ(shown({"-j", "port", "show", "0"}), "[]\n");
  EXPECT_EQ(shown({"-j", "port", "profiles", "0"}), "[]\n");
  EXPECT_EQ(shown({"port", "list"}), "PORT  NAME  VLAN  PROFILE\n");
}

TEST_F(Attachments, AreShownByProfileAndAllTogether) {
  does({{"profile", "add", "p"},
        {"profile", "add", "my net"},
        {"attach", "my net", "port", "10"},
        {"attach", "p", "port", "9", "vlan", "all"},
        {"attach", "p", "port", "10", "vlan", "7"},
        {"attach", "p", "port", "10", "vlan", "8"}});
  EXPECT_EQ(shown({"profile", "ports", "p"}),
            "PORT  VLAN\n"
            "   9   all\n"
            "  10     7\n"
            "  10     8\n");
  EXPECT_EQ(shown({"-o", "profile", "ports", "p"}),
            "port=9 vlan=all\nport=10 vlan=7\n"
            "port=10 vlan=8\n");
  EXPECT_EQ(shown({"-j", "profile", "ports", "p"}),
            R"([{"port":9,"vlan":null},{"port":10,"vlan":7},{"port":10,"vlan":8}])"
            "\n");
  EXPECT_EQ(shown({"port", "list"}),
            "PORT  NAME  VLAN  PROFILE\n"
            "   9  -      all  p\n"
            "  10  -        7  p\n"
            "  10  -        8  p\n"
            "  10  -      all  \"my net\"\n");
  EXPECT_EQ(shown({"port", "profiles", "10"}),
            "NAME      PROTECT  DYNAMIC  ATTACHMENTS\n"
            "p         no       no                 3\n"
            "\"my net\"  no       no                 1\n");
  EXPECT_EQ(shown({"-o", "port", "profiles", "10"}),
            "name=p protect=no dynamic=no attachments=3\n"
            "name='my net' protect=no dynamic=no attachments=1\n");
  EXPECT_EQ(shown({"-o", "port", "show", "10"}),
            "vlan=7 profile=p\nvlan=8 profile=p\nvlan=all profile='my net'\n");
  EXPECT_EQ(shown({"-j", "port", "show", "9"}), R"([{"vlan":null,"profile":"p"}])"
                                                "\n");
}

TEST_F(Attachments, WithoutVlanAreThoseOfTheWholePort) {
  does({{"profile", "add", "p"}, {"attach", "p", "port", "1"}});
  EXPECT_EQ(refused({"attach", "p", "port", "1", "vlan", "4095"}),
            "l2cpctl: error: FAILED: the profile is attached there already; \"l2cpctl port show\" "
            "lists what is\n");
  does({{"detach", "p", "port", "1", "vlan", "4095"}});
}

TEST_F(Attachments, RefusalsSayWhatToDo) {
  does({{"profile", "add", "p"}, {"profile", "add", "q"}});
  EXPECT_EQ(refused({"detach", "p", "port", "1"}),
            "l2cpctl: error: PROTO_NOT_FOUND: nothing is attached to the port; \"l2cpctl profile "
            "list\" counts attachments\n");
  does({{"attach", "p", "port", "1", "vlan", "5"}});
  EXPECT_EQ(refused({"detach", "p", "port", "1"}),
            "l2cpctl: error: DETACH_REFUSED: nothing is attached to the port on this VLAN; "
            "\"l2cpctl port show\" lists what is\n");
  EXPECT_EQ(refused({"detach", "q", "port", "1", "vlan", "5"}),
            "l2cpctl: error: NOT_ATTACHED: other profiles are attached there, but not this one; "
            "\"l2cpctl port show\" lists them\n");
}

// ---- Statistics ----

TEST_F(Statistics, CountFramesByPortAndVlan) {
  does({{"profile", "add", "p"},
        {"profile", "rule", "add", "p", "LLDP", "discard"},
        {"profile", "rule", "add", "p", "CDP", "tunnel"},
        {"profile", "rule", "add", "p", "xSTP", "peer"},
        {"attach", "p", "port", "3"}});
  shown({"feed", "-q", "3", frames("mixed.pcap")});
  constexpr const char* counters =
      "discard  1\n"
      "peer     2\n"
      "tunnel   1\n"
      "total    4\n";
  EXPECT_EQ(shown({"port", "statistics", "3"}), std::string("port     3\n") + counters);
  EXPECT_EQ(shown({"vlan", "statistics", "4095"}), std::string("vlan     all\n") + counters);
  EXPECT_EQ(shown({"vlan", "statistics", "all"}), shown({"vlan", "statistics", "4095"}));
  EXPECT_EQ(shown({"-o", "vlan", "statistics", "4095"}),
            "vlan=all discard=1 peer=2 tunnel=1 total=4\n");
  EXPECT_EQ(shown({"-o", "port", "statistics", "3"}), "port=3 discard=1 peer=2 tunnel=1 total=4\n");
  EXPECT_EQ(shown({"-j", "port", "statistics", "3"}),
            R"({"port":3,"discard":1,"peer":2,"tunnel":1,"total":4})"
            "\n");
  EXPECT_EQ(shown({"-j", "vlan", "statistics", "4095"}),
            R"({"vlan":null,"discard":1,"peer":2,"tunnel":1,"total":4})"
            "\n");
}

TEST_F(Statistics, OfPlacesWithoutAttachmentsDoNotExist) {
  EXPECT_EQ(
      refused({"port", "statistics", "3"}),
      "l2cpctl: error: NO_COUNTERS: the port has no counters yet; they come into being when a "
      "profile is attached to it with \"l2cpctl attach\"\n");
  EXPECT_EQ(
      refused({"vlan", "statistics", "0"}),
      "l2cpctl: error: NO_COUNTERS: the VLAN has no counters yet; they come into being when a "
      "profile is attached to it with \"l2cpctl attach\"\n");
}

TEST_F(Statistics, OfProtocolsAndProfilesAreToBeReadElsewhere) {
  does({{"profile", "add", "p"},
        {"profile", "rule", "add", "p", "LLDP", "peer"},
        {"attach", "p", "port", "1"}});
  for (const CommandLine& line : std::initializer_list<CommandLine>{
           {"profile", "statistics", "p"}, {"protocol", "statistics", "LLDP"}}) {
    EXPECT_EQ(refused(line),
              "l2cpctl: error: NO_COUNTERS: the module never has counters of protocols and "
              "profiles; read those of ports and VLANs with \"l2cpctl port statistics\" and "
              "\"l2cpctl vlan statistics\"\n");
  }
}

// ---- Feeding ----

TEST_F(Feeding, ShowsWhatBecomesOfEachFrame) {
  does({{"profile", "add", "p"},
        {"profile", "add", "v"},
        {"profile", "rule", "add", "p", "LLDP", "discard"},
        {"attach", "p", "port", "3"},
        {"profile", "rule", "add", "v", "OAM-CFM", "tunnel"},
        {"attach", "v", "port", "3", "vlan", "100"}});
  constexpr const char* expected =
      " FRAME  LENGTH  DESTINATION        VLAN  TYPE              FATE       ENTRY\n"
      "     1      52  01:80:c2:00:00:00     -  LLC 42 STP        untouched    299\n"
      "     2     124  01:80:c2:00:00:02     -  0x8809 LACP       untouched    299\n"
      "     3      18  01:80:c2:00:00:03     -  0x888e EAPOL      untouched    299\n"
      "     4      23  01:80:c2:00:00:03     -  0x888e EAPOL      untouched    299\n"
      "     5     112  01:80:c2:00:00:0e     -  0x88cc LLDP       discard      200\n"
      "     6      99  01:00:0c:cc:cc:cc     -  SNAP 0x2000 CDP   untouched    299\n"
      "     7      84  01:00:0c:cc:cc:cc     -  SNAP 0x0111 UDLD  untouched    299\n"
      "     8      60  01:80:c2:00:00:02     -  0x8809 OAM        untouched    299\n"
      "     9      60  01:80:c2:00:00:07     -  0x88ee E-LMI      untouched    299\n"
      "    10      21  01:80:c2:00:00:00     -  LLC 42 STP        untouched    299\n"
      "    11      60  01:80:c2:00:00:21     -  0x88f5 MVRP       untouched    299\n"
      "    12      97  01:80:c2:00:00:33     -  0x8902 CFM        untouched    299\n"
      "    13     101  01:80:c2:00:00:33   100  0x8902 CFM        tunnel       201\n"
      "    14      60  01:00:0c:cc:cc:cc     -  SNAP 0x2004       untouched    299\n"
      "    15      60  ff:ff:ff:ff:ff:ff     -  0x0806 ARP        untouched    299\n"
      "    16      62  02:00:00:00:01:01   100  0x0800 IPv4       untouched    299\n"
      "    17      60  01:80:c2:00:00:01     -  0x8808 PAUSE      untouched    299\n"
      "\n"
      "discard    1\n"
      "peer       0\n"
      "tunnel     1\n"
      "untouched  15\n"
      "total      17\n";
  EXPECT_EQ(shown({"feed", "3", frames("mixed.pcap")}), expected);
  EXPECT_EQ(shown({"feed", "3", frames("mixed.pcapng")}), expected);
}

TEST_F(Feeding, QuietlyShowsTheSummaryAlone) {
  EXPECT_EQ(shown({"feed", "3", frames("lldp.pcap"), "--quiet"}),
            "discard    0\n"
            "peer       0\n"
            "tunnel     0\n"
            "untouched  4\n"
            "total      4\n");
}

TEST_F(Feeding, ShowsFramesThatMeetNothing) {
  EXPECT_EQ(shown({"feed", "3", frames("mspp.pcap")}),
            " FRAME  LENGTH  DESTINATION        VLAN  TYPE              FATE       ENTRY\n"
            "     1      60  01:80:c2:00:00:03     -  0x22e2            untouched      -\n"
            "     2      60  01:80:c2:00:00:03   100  0x22e2            untouched      -\n"
            "\n"
            "discard    0\n"
            "peer       0\n"
            "tunnel     0\n"
            "untouched  2\n"
            "total      2\n");
}

TEST_F(Feeding, IsShownToProgramsAsItIsToPeople) {
  EXPECT_EQ(shown({"-o", "feed", "3", frames("mspp.pcap")}),
            "kind=frame frame=1 length=60 destination=01:80:c2:00:00:03 vlan='' type=0x22e2 "
            "fate=untouched entry=''\n"
            "kind=frame frame=2 length=60 destination=01:80:c2:00:00:03 vlan=100 type=0x22e2 "
            "fate=untouched entry=''\n"
            "kind=summary discard=0 peer=0 tunnel=0 untouched=2 total=2\n");
  EXPECT_EQ(shown({"-j", "feed", "3", frames("mspp.pcap")}),
            R"({"frames":[{"frame":1,"length":60,"destination":"01:80:c2:00:00:03","vlan":null,)"
            R"("type":"0x22e2","fate":"untouched","entry":null},)"
            R"({"frame":2,"length":60,"destination":"01:80:c2:00:00:03","vlan":100,)"
            R"("type":"0x22e2","fate":"untouched","entry":null}],)"
            R"("summary":{"discard":0,"peer":0,"tunnel":0,"untouched":2,"total":2}})"
            "\n");
  EXPECT_EQ(shown({"-j", "-q", "feed", "3", frames("mspp.pcap")}),
            R"({"discard":0,"peer":0,"tunnel":0,"untouched":2,"total":2})"
            "\n");
}

std::string untouched(int number) {
  const std::string frames = std::to_string(number);
  return "discard    0\npeer       0\ntunnel     0\nuntouched  " + frames + "\ntotal      " +
         frames + "\n";
}

TEST_F(Feeding, SendsAnyNumberOfFrames) {
  CaptureFile capture;
  for (int i = 0; i < 2500; ++i) capture.frame(60, 'x');
  const std::string path = support::World::file("many.pcap", capture.bytes());
  EXPECT_EQ(shown({"feed", "3", path, "-q"}), untouched(2500));
  const std::string lines = shown({"feed", "3", path});
  EXPECT_THAT(lines, HasSubstr("\n  1024      60  78:78:78:78:78:78     -  0x7878            "
                               "untouched      -\n  1025 "));
  EXPECT_THAT(lines, HasSubstr("\n  2500      60  "));
}

TEST_F(Feeding, SendsFramesOfAnySizeThatARequestCarries) {
  CaptureFile capture;
  capture.frame(0, 'x').frame(1, 'x');
  for (int i = 0; i < 20; ++i) capture.frame(CONTROL_FRAME_MAX, 'x');
  EXPECT_EQ(shown({"feed", "3", support::World::file("big.pcap", capture.bytes()), "-q"}),
            untouched(22));
}

TEST_F(Feeding, StopsAtAFrameThatNoRequestCarries) {
  const std::string path = support::World::file(
      "huge.pcap", CaptureFile().frame(60, 'x').frame(CONTROL_FRAME_MAX + 1, 'x').bytes());
  const auto [status, out, err] = outcome({"feed", "3", path, "-q"});
  EXPECT_EQ(status, 1);
  EXPECT_EQ(err, "l2cpctl: error: frame 2 has 64001 bytes; 64000 is the most that can be sent\n");
}

TEST_F(Feeding, SaysWhatIsWrongWithAFile) {
  const auto [status, out, err] = outcome({"feed", "3", "/run/no\x1bsuch"});
  EXPECT_EQ(status, 1);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "l2cpctl: error: /run/no\\x1bsuch: No such file or directory\n");
  const std::string text = support::World::file("text", "this is no capture at all, is it?");
  EXPECT_THAT(outcome({"feed", "3", text}).err,
              HasSubstr("l2cpctl: error: /run/text: cannot be read as a capture: "));
}

TEST_F(Feeding, ShowsTheFramesBeforeAFilesDamage) {
  std::string bytes = CaptureFile().frame(60, 'x').frame(60, 'x').bytes();
  bytes.pop_back();
  const auto [status, out, err] =
      outcome({"feed", "3", support::World::file("cut.pcap", bytes), "-q"});
  EXPECT_EQ(status, 1);
  EXPECT_EQ(out, untouched(1));
  EXPECT_THAT(err, HasSubstr("l2cpctl: error: /run/cut.pcap: frame 2: "));
}

// ---- The daemon ----

class NamedPorts : public DaemonTest {
 protected:
  std::vector<std::string> arguments() override {
    return {"-c", support::World::file("l2cpd.toml",
                                       "bridge = \"br7\"\n"
                                       "[[port]]\nnumber = 7\nname = \"ce 1\"\n"
                                       "[[port]]\nnumber = 3\nname = \"uplink\"\n")};
  }
};

const std::string anyTime = "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z";

// What follows the daemon itself in its state, in each form.
const std::string entities =
    "\n\n"
    "ENTITY       STATE\n"
    "Interfaces   running\n"
    "vlanprofile  running\n"
    "servprofile  running\n"
    "l2cp         running\n";
const std::string entityLines =
    "\n"
    "kind=entity entity=Interfaces state=running\n"
    "kind=entity entity=vlanprofile state=running\n"
    "kind=entity entity=servprofile state=running\n"
    "kind=entity entity=l2cp state=running\n";
const std::string entityObjects = R"(","entities":\[)"
                                  R"(\{"entity":"Interfaces","state":"running"\},)"
                                  R"(\{"entity":"vlanprofile","state":"running"\},)"
                                  R"(\{"entity":"servprofile","state":"running"\},)"
                                  R"(\{"entity":"l2cp","state":"running"\}\],)";

TEST_F(NamedPorts, AreShownWithTheDaemonsState) {
  EXPECT_THAT(shown({"daemon", "status"}), MatchesRegex("release     [0-9]+\\.[0-9]+\\.[0-9]+\n"
                                                        "bridge      br7\n"
                                                        "classifier  software\n"
                                                        "process     " +
                                                        std::to_string(world().daemon().id()) +
                                                        "\n"
                                                        "uptime      00:00:[0-9][0-9]\n"
                                                        "counting    since " +
                                                        anyTime + entities +
                                                        "\n"
                                                        "PORT  NAME\n"
                                                        "   3  uplink\n"
                                                        "   7  \"ce 1\"\n"));
}

TEST_F(NamedPorts, AreShownToProgramsWithTheDaemonsState) {
  EXPECT_THAT(shown({"-o", "daemon", "status"}),
              MatchesRegex("kind=daemon release=[0-9.]+ bridge=br7 classifier=software "
                           "process=[0-9]+ uptime=[0-9]+ counting=" +
                           anyTime + entityLines +
                           "kind=port port=3 name=uplink\n"
                           "kind=port port=7 name='ce 1'\n"));
  EXPECT_THAT(shown({"-j", "daemon", "status"}),
              MatchesRegex(R"(\{"release":"[0-9.]+","bridge":"br7","classifier":"software",)"
                           R"("process":[0-9]+,"uptime":[0-9]+,"counting":")" +
                           anyTime + entityObjects +
                           R"("ports":\[\{"port":3,"name":"uplink"\},\{"port":7,"name":"ce 1"\}\],)"
                           R"("interfaces":\[\]\})"
                           "\n"));
}

TEST_F(LiveDaemon, ShowsTheInterfacesOfItsPortsWithItsState) {
  EXPECT_THAT(shown({"daemon", "status"}),
              MatchesRegex("release     [0-9]+\\.[0-9]+\\.[0-9]+\n"
                           "bridge      br0\n"
                           "classifier  xdp\n"
                           "process     [0-9]+\n"
                           "uptime      00:00:[0-9][0-9]\n"
                           "counting    since " +
                           anyTime + entities +
                           "\n"
                           "PORT  NAME\n"
                           "   1  uplink\n"
                           "   2  missing0\n"
                           "   3  spare\n"
                           "\n"
                           "PORT  INTERFACE  FRAMES\n"
                           "   1  p1         generic\n"
                           "   2  missing0   there is no such interface\n"));
}

TEST_F(LiveDaemon, ShowsTheInterfacesOfItsPortsToPrograms) {
  EXPECT_THAT(
      shown({"-o", "daemon", "status"}),
      MatchesRegex(
          "kind=daemon release=[0-9.]+ bridge=br0 classifier=xdp process=[0-9]+ "
          "uptime=[0-9]+ counting=" +
          anyTime + entityLines +
          "kind=port port=1 name=uplink\n"
          "kind=port port=2 name=missing0\n"
          "kind=port port=3 name=spare\n"
          "kind=interface port=1 interface=p1 frames=generic\n"
          "kind=interface port=2 interface=missing0 frames='there is no such interface'\n"));
  EXPECT_THAT(shown({"-j", "daemon", "status"}),
              MatchesRegex(R"(\{"release":"[0-9.]+","bridge":"br0","classifier":"xdp",)"
                           R"("process":[0-9]+,"uptime":[0-9]+,"counting":")" +
                           anyTime + entityObjects +
                           R"("ports":\[)"
                           R"(\{"port":1,"name":"uplink"\},\{"port":2,"name":"missing0"\},)"
                           R"(\{"port":3,"name":"spare"\}\],"interfaces":\[)"
                           R"(\{"port":1,"interface":"p1","frames":"generic"\},)"
                           R"(\{"port":2,"interface":"missing0",)"
                           R"("frames":"there is no such interface"\}\]\})"
                           "\n"));
}

TEST_F(NamedPorts, AreShownInTheListOfAttachments) {
  does({{"profile", "add", "p"},
        {"attach", "p", "port", "ce 1"},
        {"attach", "p", "port", "5", "vlan", "9"}});
  EXPECT_EQ(shown({"port", "list"}),
            "PORT  NAME    VLAN  PROFILE\n"
            "   5  -          9  p\n"
            "   7  \"ce 1\"   all  p\n");
  EXPECT_EQ(shown({"-o", "port", "list"}),
            "port=5 name='' vlan=9 profile=p\nport=7 name='ce 1' vlan=all profile=p\n");
  EXPECT_EQ(shown({"-j", "port", "list"}), R"([{"port":5,"name":null,"vlan":9,"profile":"p"},)"
                                           R"({"port":7,"name":"ce 1","vlan":null,"profile":"p"}])"
                                           "\n");
}

TEST_F(NamedPorts, CanStandForInterfaces) {
  does({{"vlan-profile", "add", "v"},
        {"vlan-profile", "set", "v", "interface", "uplink", "svid", "100"}});
  EXPECT_EQ(shown({"-o", "vlan-profile", "list"}), "name=v interfaces=3\n");
}

TEST_F(NamedPorts, CanStandForNumbersEverywhere) {
  does({{"profile", "add", "p"},
        {"profile", "rule", "add", "p", "LLDP", "peer"},
        {"attach", "p", "port", "uplink"},
        {"attach", "p", "port", "ce 1", "vlan", "5"}});
  EXPECT_EQ(shown({"port", "show", "3"}), "VLAN  PROFILE\n all  p\n");
  EXPECT_EQ(shown({"port", "show", "ce 1"}), "VLAN  PROFILE\n   5  p\n");
  EXPECT_THAT(shown({"feed", "uplink", frames("lldp.pcap"), "-q"}), HasSubstr("peer       4\n"));
  EXPECT_THAT(shown({"port", "statistics", "uplink"}), HasSubstr("peer     4\n"));
  does({{"detach", "p", "port", "uplink"}});
  EXPECT_EQ(shown({"port", "show", "3"}), "VLAN  PROFILE\n");
}

TEST_F(NamedPorts, ThatAreNotConfiguredAreSaidToBeMissing) {
  const auto [status, out, err] = outcome({"port", "show", "downlink"});
  EXPECT_EQ(status, 1);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err,
            "l2cpctl: error: the daemon's configuration has no port \"downlink\"; it has: uplink, "
            "\"ce 1\"\n");
}

class Daemon : public DaemonTest {};

TEST_F(Daemon, WithoutPortNamesSaysSo) {
  EXPECT_THAT(shown({"daemon", "status"}), testing::EndsWith("\nPORT  NAME\n"));
  EXPECT_EQ(outcome({"port", "show", "uplink"}).err,
            "l2cpctl: error: the daemon's configuration has no port \"uplink\"; it names no ports "
            "at all\n");
}

TEST_F(Daemon, ShowsTheRunningConfiguration) {
  does({{"profile", "add", "my net"},
        {"profile", "rule", "add", "my net", "LLDP", "tunnel"},
        {"protocol", "add", "PTP", "mac", "any", "ethertype", "0x88f7"},
        {"profile", "add", "d", "dynamic"},
        {"profile", "rule", "add", "d", "CDP", "peer"}});
  EXPECT_EQ(shown({"running-config", "show"}),
            "l2protocol \"PTP\" mac any ethertype 0x88f7\n"
            "\n"
            "l2cp-profile \"my net\"\n"
            " protocol \"LLDP\" rule tunnel\n"
            "exit\n");
  EXPECT_THAT(shown({"running-config", "show", "all"}),
              HasSubstr("l2protocol \"LLDP\" mac 01:80:c2:00:00:0e\n"));
  EXPECT_EQ(shown({"running-config", "show", "dynamic"}),
            "l2cp-profile d\n"
            " protocol \"CDP\" rule peer\n"
            "exit\n");
}

TEST_F(Daemon, ShowsTheRunningConfigurationToPrograms) {
  EXPECT_EQ(shown({"-j", "running-config", "show", "dynamic"}), "{\"lines\":[]}\n");
  does({{"profile", "add", "d", "dynamic"}, {"profile", "rule", "add", "d", "CDP", "peer"}});
  EXPECT_EQ(shown({"-o", "running-config", "show", "dynamic"}),
            "line='l2cp-profile d'\nline=' protocol \"CDP\" rule peer'\nline=exit\n");
  EXPECT_EQ(shown({"-j", "running-config", "show", "dynamic"}),
            R"({"lines":["l2cp-profile d"," protocol \"CDP\" rule peer","exit"]})"
            "\n");
}

TEST_F(Daemon, SavesTheRunningConfiguration) {
  constexpr const char* script = "/var/lib/l2cpd/startup.l2cp";
  EXPECT_EQ(shown({"running-config", "save"}), std::string("saved  ") + script + "\n");
  EXPECT_EQ(shown({"-o", "running-config", "save"}), std::string("saved=") + script + "\n");
  EXPECT_EQ(shown({"-j", "running-config", "save"}),
            std::string("{\"saved\":\"") + script + "\"}\n");
  EXPECT_EQ(access(script, F_OK), 0);
}

TEST_F(Daemon, TellsWhatCannotBeSaved) {
  Client client({});
  for (std::string name : {"a\" b", "empty"}) {
    rpc_l2cp_profile profile{};
    profile.name = wireText(name);
    accept(client.module<rpc_l2cp_profile_add_1>(profile));
  }
  does({{"profile", "rule", "add", "a\" b", "LLDP", "peer"}, {"attach", "empty", "port", "3"}});
  const auto [status, out, err] = outcome({"running-config", "save"});
  EXPECT_EQ(status, 0);
  EXPECT_EQ(out, "saved  /var/lib/l2cpd/startup.l2cp\n");
  EXPECT_THAT(err,
              testing::MatchesRegex(
                  "l2cpctl: left out \\([^\n]*\\): l2cp-profile \"a\" b\"\n"
                  "l2cpctl: left out \\(this script does not make the profile\\): attach empty "
                  "port 3\n"));
}

TEST_F(Daemon, SaysWhyTheRunningConfigurationCannotBeSaved) {
  std::filesystem::remove_all("/var/lib/l2cpd");
  EXPECT_EQ(
      refused({"running-config", "save"}),
      "l2cpctl: error: FAILED: cannot create /var/lib/l2cpd/startup.l2cp.new: No such file or "
      "directory; \"startup\" in l2cpd.toml(5) tells the daemon where to save\n");
}

class DaemonWithoutScript : public DaemonTest {
 protected:
  std::vector<std::string> arguments() override {
    return {"-c", support::World::file("l2cpd.toml", "startup = \"\"\n")};
  }
};

TEST_F(DaemonWithoutScript, ReadsItsConfigurationFileAgain) {
  support::World::file("l2cpd.toml", "startup = \"\"\n[[port]]\nnumber = 7\nname = \"uplink\"\n");
  EXPECT_EQ(shown({"daemon", "reload"}), "");
  EXPECT_THAT(shown({"-o", "daemon", "status"}), HasSubstr("port=7 name=uplink\n"));
}

TEST_F(DaemonWithoutScript, TellsWhatOfItsConfigurationFileIsNotInForce) {
  support::World::file("l2cpd.toml", "bridge = \"br1\"\nstartup = \"/run/s\"\n");
  EXPECT_EQ(refused({"daemon", "reload"}),
            "l2cpctl: error: FAILED; \"bridge\" stays \"br0\" until the daemon is started again; "
            "\"startup\" stays \"\" until the daemon is started again\n");
  support::World::file("l2cpd.toml", "bridge = 1\n");
  EXPECT_EQ(refused({"daemon", "reload"}),
            "l2cpctl: error: FAILED; /run/l2cpd.toml:1: \"bridge\" is not a text\n");
}

TEST_F(DaemonWithoutScript, SavesNothing) {
  EXPECT_EQ(refused({"running-config", "save"}),
            "l2cpctl: error: FAILED: the configuration names no startup script; \"startup\" in "
            "l2cpd.toml(5) tells the daemon where to save\n");
}

TEST_F(Daemon, AppliesTheFactoryConfiguration) {
  does({{"protocol", "add", "x", "mac", "any"},
        {"protocol", "delete", "LLDP"},
        {"profile", "add", "p"},
        {"attach", "p", "port", "1"},
        {"running-config", "defaults"}});
  EXPECT_EQ(shown({"profile", "list"}), "NAME  PROTECT  DYNAMIC  ATTACHMENTS\n");
  EXPECT_THAT(shown({"protocol", "list"}), testing::Not(HasSubstr("\nx ")));
  EXPECT_THAT(shown({"protocol", "list"}), HasSubstr("\nLLDP "));
}

TEST_F(Daemon, PassesMessagesOn) {
  does({{"daemon", "message", "l2cp_debug", "1"}, {"protocol", "delete", "LLDP"}});
  EXPECT_TRUE(world().systemLog().waitFor("protoDel(protoName=\"LLDP\")"));
  does({{"daemon", "message", "l2cp_dump"}, {"daemon", "message", "nobody knows", "this\n"}});
  EXPECT_TRUE(world().systemLog().waitFor("Use Len Short name    Name"));
  EXPECT_EQ(shown({"-o", "daemon", "message", "l2cp_debug", "0"}), "");
  EXPECT_EQ(shown({"-j", "daemon", "message", "l2cp_debug", "0"}), "{\"lines\":[]}\n");
}

TEST_F(Daemon, TakesMessagesOfTheGreatestLength) {
  does({{"daemon", "message", std::string(CONTROL_TEXT_MAX, 'c'),
         std::string(CONTROL_TEXT_MAX, 'a')}});
}

// ---- Service profiles and VLAN profiles ----

class ServiceProfiles : public DaemonTest {
 protected:
  // "gold" in force on VLAN 100 of port 5, through "biz" and "metro".
  static void applyGold() {
    does({{"profile", "add", "gold"},
          {"vlan-profile", "add", "metro"},
          {"vlan-profile", "set", "metro", "interface", "5", "svid", "100"},
          {"service-profile", "add", "biz"},
          {"service-profile", "set", "biz", "vlan-profile", "metro"},
          {"service-profile", "set", "biz", "l2cp-profile", "gold"},
          {"service-profile", "attach", "biz", "interface", "5"}});
  }
};

TEST_F(ServiceProfiles, PutL2cpProfilesInForce) {
  EXPECT_EQ(shown({"service-profile", "list"}), "NAME  VLAN-PROFILE  L2CP-PROFILE  INTERFACES\n");
  EXPECT_EQ(shown({"-j", "service-profile", "list"}), "[]\n");
  applyGold();
  does({{"service-profile", "add", "my service"}});
  EXPECT_EQ(shown({"service-profile", "list"}),
            "NAME          VLAN-PROFILE  L2CP-PROFILE  INTERFACES\n"
            "biz           metro         gold          5\n"
            "\"my service\"  -             -             -\n");
  EXPECT_EQ(shown({"-o", "service-profile", "list"}),
            "name=biz vlan_profile=metro l2cp_profile=gold interfaces=5\n"
            "name='my service' vlan_profile='' l2cp_profile='' interfaces=''\n");
  EXPECT_EQ(shown({"-j", "service-profile", "list"}),
            R"([{"name":"biz","vlan_profile":"metro","l2cp_profile":"gold","interfaces":[5]},)"
            R"({"name":"my service","vlan_profile":null,"l2cp_profile":null,"interfaces":[]}])"
            "\n");
  EXPECT_EQ(shown({"service-profile", "show", "biz"}),
            "name          biz\n"
            "vlan-profile  metro\n"
            "l2cp-profile  gold\n"
            "interfaces    5\n");
  EXPECT_EQ(shown({"-j", "service-profile", "show", "biz"}),
            R"({"name":"biz","vlan_profile":"metro","l2cp_profile":"gold","interfaces":[5]})"
            "\n");
  EXPECT_EQ(shown({"-o", "port", "list"}), "port=5 name='' vlan=100 profile=gold\n");
  EXPECT_EQ(shown({"profile", "uses", "gold"}), "SERVICE-PROFILE\nbiz\n");
  EXPECT_EQ(shown({"-o", "profile", "uses", "gold"}), "service_profile=biz\n");
  EXPECT_EQ(shown({"-j", "profile", "uses", "gold"}), R"([{"service_profile":"biz"}])"
                                                      "\n");
  does({{"service-profile", "detach", "biz", "interface", "5"},
        {"service-profile", "unset", "biz", "l2cp-profile"},
        {"service-profile", "unset", "biz", "vlan-profile"},
        {"service-profile", "delete", "my service"}});
  EXPECT_EQ(shown({"-o", "service-profile", "list"}),
            "name=biz vlan_profile='' l2cp_profile='' interfaces=''\n");
  EXPECT_EQ(shown({"-o", "port", "list"}), "");
}

TEST_F(ServiceProfiles, FollowAProfileThatIsRenamedOrReplaced) {
  applyGold();
  does({{"profile", "rename", "gold", "silver"}});
  EXPECT_EQ(shown({"-o", "service-profile", "list"}),
            "name=biz vlan_profile=metro l2cp_profile=silver interfaces=5\n");
  shown({"profile", "edit", "silver"});
  does({{"profile", "rule", "add", "temp_l2cp_prof_1", "LLDP", "peer"},
        {"profile", "commit", "silver", "temp_l2cp_prof_1"}});
  EXPECT_EQ(shown({"-o", "profile", "show", "silver"}),
            "kind=profile name=silver protect=no dynamic=no attachments=1\n"
            "kind=rule protocol=LLDP rule=peer\n");
}

TEST_F(ServiceProfiles, ThatDoNotExistAreSaidToBeMissing) {
  for (const CommandLine& line :
       std::initializer_list<CommandLine>{{"service-profile", "show", "x"},
                                          {"service-profile", "delete", "x"},
                                          {"service-profile", "set", "x", "l2cp-profile", "p"},
                                          {"service-profile", "unset", "x", "l2cp-profile"}}) {
    EXPECT_EQ(refused(line),
              "l2cpctl: error: NOT_FOUND: there is no service profile of this name; \"l2cpctl "
              "service-profile list\" shows those there are\n");
  }
  for (const char* verb : {"attach", "detach"}) {
    EXPECT_EQ(
        refused({"service-profile", verb, "x", "interface", "5"}),
        "l2cpctl: error: NOT_FOUND: there is no such service profile, or the L2CP profile that "
        "it names does not exist; look at \"l2cpctl service-profile list\" and \"l2cpctl "
        "profile list\"\n");
  }
  does({{"service-profile", "add", "biz"}});
  EXPECT_EQ(
      refused({"service-profile", "set", "biz", "vlan-profile", "x"}),
      "l2cpctl: error: NOT_FOUND: there is no service profile or no VLAN profile of this name; "
      "\"l2cpctl service-profile list\" and \"l2cpctl vlan-profile list\" show those there "
      "are\n");
}

TEST_F(ServiceProfiles, AreNotChangedWhileTheyAreApplied) {
  applyGold();
  for (const CommandLine& line :
       std::initializer_list<CommandLine>{{"service-profile", "delete", "biz"},
                                          {"service-profile", "set", "biz", "l2cp-profile", "p"},
                                          {"service-profile", "unset", "biz", "vlan-profile"}}) {
    EXPECT_EQ(refused(line),
              "l2cpctl: error: IN_USE: the profile is applied on an interface; take it off with "
              "\"l2cpctl service-profile detach\" first\n");
  }
}

TEST_F(ServiceProfiles, RefusalsOfApplyingThemSayWhatToDo) {
  applyGold();
  EXPECT_EQ(refused({"service-profile", "add", "biz"}),
            "l2cpctl: error: EXISTS: there is a profile of this name; choose another name\n");
  EXPECT_EQ(refused({"service-profile", "attach", "biz", "interface", "5"}),
            "l2cpctl: error: EXISTS: the service profile is applied on this interface already\n");
  EXPECT_EQ(refused({"service-profile", "attach", "biz", "interface", "6"}),
            "l2cpctl: error: NO_SVID: the VLAN profile has no S-VID for the interface; give it one "
            "with \"l2cpctl vlan-profile set\"\n");
  does({{"service-profile", "add", "other"},
        {"service-profile", "set", "other", "l2cp-profile", "gold"}});
  EXPECT_EQ(refused({"service-profile", "attach", "other", "interface", "5"}),
            "l2cpctl: error: NOTHING_THERE: the service profile has no VLAN profile; give it one "
            "with \"l2cpctl service-profile set NAME vlan-profile\"\n");
  does({{"service-profile", "set", "other", "vlan-profile", "metro"}});
  EXPECT_EQ(refused({"service-profile", "attach", "other", "interface", "5"}),
            "l2cpctl: error: IN_USE: the L2CP profile is attached to this port and S-VID already; "
            "\"l2cpctl port show\" lists what is\n");
}

TEST_F(ServiceProfiles, RefusalsOfTakingThemOffSayWhatToDo) {
  applyGold();
  constexpr const char* notAttached =
      "the L2CP profile is not attached there any more; put it back with \"l2cpctl attach\" "
      "first\n";
  constexpr const char* notApplied =
      "l2cpctl: error: NOT_APPLIED: the service profile is not applied there, or its L2CP profile "
      "not attached there any more; look at \"l2cpctl service-profile show\" and \"l2cpctl port "
      "show\"\n";
  const CommandLine detach{"service-profile", "detach", "biz", "interface", "5"};
  EXPECT_EQ(refused({"service-profile", "detach", "biz", "interface", "6"}), notApplied);
  does({{"profile", "add", "other"}, {"detach", "gold", "port", "5", "vlan", "100"}});
  EXPECT_EQ(refused(detach), std::string("l2cpctl: error: NOTHING_THERE: ") + notAttached);
  does({{"attach", "other", "port", "5", "vlan", "7"}});
  EXPECT_EQ(refused(detach), std::string("l2cpctl: error: NOTHING_ON_VLAN: ") + notAttached);
  does({{"attach", "other", "port", "5", "vlan", "100"}});
  EXPECT_EQ(refused(detach), notApplied);
  EXPECT_EQ(
      refused({"profile", "rename", "gold", "silver"}),
      "l2cpctl: error: FAILED: the service profiles that use the profile could not all be moved "
      "to the new name; look at them with \"l2cpctl service-profile list\" and at both profiles "
      "with \"l2cpctl profile show\"\n");
  does({{"attach", "gold", "port", "5", "vlan", "100"}, detach});
}

class VlanProfiles : public DaemonTest {};

TEST_F(VlanProfiles, HaveAnSvidForEachInterface) {
  EXPECT_EQ(shown({"vlan-profile", "list"}), "NAME  INTERFACES\n");
  does({{"vlan-profile", "add", "metro"},
        {"vlan-profile", "add", "my vlans"},
        {"vlan-profile", "set", "metro", "interface", "12", "svid", "4094"},
        {"vlan-profile", "set", "metro", "interface", "5", "svid", "1"}});
  EXPECT_EQ(shown({"vlan-profile", "list"}),
            "NAME        INTERFACES\n"
            "metro       5, 12\n"
            "\"my vlans\"  -\n");
  EXPECT_EQ(shown({"-o", "vlan-profile", "list"}),
            "name=metro interfaces='5 12'\nname='my vlans' interfaces=''\n");
  EXPECT_EQ(shown({"-j", "vlan-profile", "list"}),
            R"([{"name":"metro","interfaces":[5,12]},{"name":"my vlans","interfaces":[]}])"
            "\n");
  EXPECT_EQ(shown({"vlan-profile", "show", "metro"}),
            "name        metro\n"
            "interfaces  5, 12\n"
            "\n"
            "INTERFACE  SVID\n"
            "        5     1\n"
            "       12  4094\n");
  EXPECT_EQ(shown({"-o", "vlan-profile", "show", "metro"}),
            "kind=vlan_profile name=metro interfaces='5 12'\n"
            "kind=svid interface=5 svid=1\n"
            "kind=svid interface=12 svid=4094\n");
  EXPECT_EQ(shown({"-j", "vlan-profile", "show", "metro"}),
            R"({"name":"metro","interfaces":[5,12],)"
            R"("svids":[{"interface":5,"svid":1},{"interface":12,"svid":4094}]})"
            "\n");
  does({{"vlan-profile", "unset", "metro", "interface", "5"},
        {"vlan-profile", "delete", "my vlans"}});
  EXPECT_EQ(shown({"-o", "vlan-profile", "list"}), "name=metro interfaces=12\n");
}

TEST_F(VlanProfiles, RefusalsSayWhatToDo) {
  for (const CommandLine& line : std::initializer_list<CommandLine>{
           {"vlan-profile", "show", "x"},
           {"vlan-profile", "delete", "x"},
           {"vlan-profile", "set", "x", "interface", "1", "svid", "1"},
           {"vlan-profile", "unset", "x", "interface", "1"}}) {
    EXPECT_EQ(refused(line),
              "l2cpctl: error: NOT_FOUND: there is no VLAN profile of this name; \"l2cpctl "
              "vlan-profile list\" shows those there are\n");
  }
  does({{"vlan-profile", "add", "v"},
        {"vlan-profile", "set", "v", "interface", "1", "svid", "1"},
        {"profile", "add", "p"},
        {"service-profile", "add", "s"},
        {"service-profile", "set", "s", "vlan-profile", "v"},
        {"service-profile", "set", "s", "l2cp-profile", "p"},
        {"service-profile", "attach", "s", "interface", "1"}});
  EXPECT_EQ(refused({"vlan-profile", "add", "v"}),
            "l2cpctl: error: EXISTS: there is a profile of this name; choose another name\n");
  EXPECT_EQ(
      refused({"vlan-profile", "delete", "v"}),
      "l2cpctl: error: IN_USE: a service profile names the VLAN profile; change that first with "
      "\"l2cpctl service-profile unset\"\n");
  for (const CommandLine& line : std::initializer_list<CommandLine>{
           {"vlan-profile", "set", "v", "interface", "1", "svid", "2"},
           {"vlan-profile", "unset", "v", "interface", "1"}}) {
    EXPECT_EQ(
        refused(line),
        "l2cpctl: error: IN_USE: a service profile that names the VLAN profile is applied on an "
        "interface; take it off with \"l2cpctl service-profile detach\" first\n");
  }
}

// ---- Colours ----

class Colour : public DaemonTest {
 protected:
  // What the program shows of the profiles if its output is a terminal.
  std::string onTerminal(const std::string& environment) {
    const support::Run run = support::run({"/bin/sh", "-c",
                                           environment + " " L2CPCTL_PROGRAM " profile list >&" +
                                               std::to_string(terminal_.number())});
    EXPECT_EQ(run.status, 0) << run.output;
    return terminal_.until("\n");
  }

  support::PseudoTerminal terminal_;
};

TEST_F(Colour, IsForTerminalsUnlessItIsNotWanted) {
  const CommandLine list{"profile", "list"};
  constexpr const char* plain = "NAME  PROTECT  DYNAMIC  ATTACHMENTS\n";
  const auto with = [](CommandLine line, const char* when) {
    line.insert(line.begin(), {"--color", when});
    return line;
  };
  const Surroundings terminal{.answers = Sink::terminal, .plainWanted = false};
  const Surroundings plainWanted{.answers = Sink::terminal, .plainWanted = true};
  EXPECT_EQ(outcome(list).out, plain);
  EXPECT_EQ(outcome(list, plainWanted).out, plain);
  EXPECT_EQ(outcome(with(list, "never"), terminal).out, plain);
  const std::string coloured = outcome(list, terminal).out;
  EXPECT_THAT(coloured, testing::StartsWith("\x1b[1mNAME\x1b[0m  "));
  EXPECT_EQ(outcome(with(list, "auto"), terminal).out, coloured);
  EXPECT_EQ(outcome(with(list, "always")).out, coloured);
  EXPECT_EQ(outcome(with(list, "always"), plainWanted).out, coloured);
}

TEST_F(Colour, DependsOnTheProgramsTerminalAndEnvironment) {
  if (!terminal_.isThere()) GTEST_SKIP() << "no terminals here";
  EXPECT_THAT(onTerminal("TERM=xterm"), testing::StartsWith("\x1b[1mNAME"));
  EXPECT_THAT(onTerminal("TERM=xterm NO_COLOR="), testing::StartsWith("\x1b[1mNAME"));
  EXPECT_THAT(onTerminal("TERM=xterm NO_COLOR=1"), testing::StartsWith("NAME"));
  EXPECT_THAT(onTerminal("TERM=dumb"), testing::StartsWith("NAME"));
}

// ---- Not reached ----

class Unreached : public WorldTest {};

/// Listens on a TCP port of the loopback addresses.
support::Descriptor listener(in_port_t port, int backlog) {
  support::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int on = 1;
  setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the interface of sockets
  EXPECT_EQ(bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  EXPECT_EQ(listen(socket.get(), backlog), 0);
  return socket;
}

constexpr in_port_t portMapperPort = 111;
constexpr in_port_t someonesPort = 4711;
constexpr const char* nowhere =
    "l2cpctl: error: l2cpd not reached at 127.0.0.1 (program 0x2000001d, version 1, TCP): ";

TEST_F(Unreached, BecauseThereIsNoPortMapper) {
  world().stopPortMapper();
  EXPECT_EQ(notReached({"protocol", "list"}),
            std::string(nowhere) + "the port mapper did not answer (Connection refused)\n");
  EXPECT_EQ(
      notReached({"daemon", "status"}),
      "l2cpctl: error: l2cpd not reached at 127.0.0.1 (program 0x20000100, version 1, TCP): the "
      "port mapper did not answer (Connection refused)\n");
}

TEST_F(Unreached, BecauseThereIsNoDaemon) {
  EXPECT_EQ(notReached({"protocol", "list"}),
            std::string(nowhere) +
                "the port mapper answered that nobody serves the program; is l2cpd running?\n");
}

TEST_F(Unreached, IsTriedAgainWhileADaemonStarts) {
  world().stopPortMapper();
  std::string answer;
  std::thread client([&] { answer = shown({"--wait", "30", "profile", "list"}); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  world().startPortMapper();
  world().startDaemon();
  client.join();
  EXPECT_EQ(answer, "NAME  PROTECT  DYNAMIC  ATTACHMENTS\n");
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
}

TEST_F(Unreached, IsGivenUpWhenTheWaitIsOver) {
  EXPECT_EQ(notReached({"--wait", "1", "protocol", "list"}),
            std::string(nowhere) +
                "the port mapper answered that nobody serves the program; is l2cpd running?\n");
}

TEST_F(Unreached, BecauseTheDaemonDied) {
  world().startDaemon();
  EXPECT_EQ(shown({"profile", "list"}), "NAME  PROTECT  DYNAMIC  ATTACHMENTS\n");
  world().stopDaemon(SIGKILL);
  EXPECT_THAT(notReached({"protocol", "list"}),
              testing::AllOf(testing::StartsWith(nowhere),
                             ContainsRegex("the port mapper answered with port [0-9]+, but the "
                                           "daemon there did not answer \\(Connection refused\\); "
                                           "is it running\\?\n$")));
}

TEST_F(Unreached, BecauseTheDaemonHasStoppedInAnOrderlyWay) {
  world().startDaemon();
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
  EXPECT_EQ(notReached({"protocol", "list"}),
            std::string(nowhere) +
                "the port mapper answered that nobody serves the program; is l2cpd running?\n");
}

TEST_F(Unreached, BecauseTheDaemonTakesConnectionsAndNeverAnswers) {
  world().startDaemon();
  world().daemon().signal(SIGSTOP);
  EXPECT_EQ(notReached({"-t", "1", "protocol", "list"}),
            std::string(nowhere) +
                "the port mapper answered, but the daemon did not answer within 1 s\n");
  world().daemon().signal(SIGCONT);
  EXPECT_EQ(world().stopDaemon(SIGTERM), 0);
}

TEST_F(Unreached, BecauseThePortMapperTakesConnectionsAndNeverAnswers) {
  world().stopPortMapper();
  const auto silent = listener(portMapperPort, 8);
  EXPECT_EQ(notReached({"protocol", "list", "-t1"}),
            std::string(nowhere) + "the port mapper did not answer within 1 s\n");
}

TEST_F(Unreached, BecauseNobodyTakesTheConnection) {
  world().stopPortMapper();
  const auto busy = listener(portMapperPort, 0);
  // With its queue full, the system drops what else arrives.
  std::vector<support::Descriptor> queue;
  for (int i = 0; i < 4; ++i) {
    queue.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(portMapperPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the interface of sockets
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    static_cast<void>(connect(queue.back().get(), generic, sizeof(address)));
  }
  EXPECT_EQ(notReached({"protocol", "list", "-t1"}),
            std::string(nowhere) + "the port mapper did not answer within 1 s\n");
}

TEST_F(Unreached, BecauseTheConnectionIsClosed) {
  const auto socket = listener(someonesPort, 8);
  ASSERT_TRUE(pmap_set(L2CP_PROGRAM, L2CP_VERSION, IPPROTO_TCP, someonesPort));
  std::thread closer([&] { support::Descriptor(accept4(socket.get(), nullptr, nullptr, 0)); });
  EXPECT_EQ(notReached({"protocol", "list"}),
            std::string(nowhere) +
                "the port mapper answered, but the daemon did not answer (Connection reset by "
                "peer)\n");
  closer.join();
}

TEST_F(Unreached, BecauseAnotherProgramIsServedThere) {
  ASSERT_TRUE(pmap_set(L2CP_PROGRAM, L2CP_VERSION, IPPROTO_TCP, portMapperPort));
  EXPECT_EQ(notReached({"protocol", "list"}),
            std::string(nowhere) +
                "the port mapper answered, but the daemon did not understand (RPC: Program "
                "unavailable)\n");
}

TEST_F(Unreached, BecauseTheAddressLeadsNowhere) {
  EXPECT_EQ(
      notReached({"-s", "192.0.2.1", "protocol", "list"}),
      "l2cpctl: error: l2cpd not reached at 192.0.2.1 (program 0x2000001d, version 1, TCP): the "
      "port mapper did not answer (Network is unreachable)\n");
  for (const char* address : {"", "::1", "127.0.0.1:80", "no\x1b.such.name."}) {
    EXPECT_THAT(notReached({"-s", address, "protocol", "list"}),
                HasSubstr("): no IPv4 address, nor a name that leads to one ("))
        << address;
  }
  EXPECT_THAT(notReached({"-s", "no\x1b.such.name.", "protocol", "list"}),
              HasSubstr("not reached at no\\x1b.such.name. ("));
}

// ---- The program itself ----

class Program : public DaemonTest {};

TEST_F(Program, EndsWithTheStatusOfItsCommand) {
  const auto status = [](const CommandLine& line) {
    CommandLine command{L2CPCTL_PROGRAM};
    command.insert(command.end(), line.begin(), line.end());
    return support::run(command).status;
  };
  EXPECT_EQ(status({"protocol", "list"}), 0);
  EXPECT_EQ(status({"--help"}), 0);
  EXPECT_EQ(status({"protocol"}), 1);
  EXPECT_EQ(status({"protocol", "delete", "x"}), 2);
  EXPECT_EQ(status({"-s", "192.0.2.1", "protocol", "list"}), 3);
}

TEST_F(Program, WritesAnswersToStandardOutputAndProblemsToStandardError) {
  const auto shell = [](const std::string& line) {
    return support::run({"/bin/sh", "-c", "p=\"$0\"; " + line, L2CPCTL_PROGRAM}).output;
  };
  EXPECT_EQ(shell("\"$p\" profile list 2>/dev/null"), "NAME  PROTECT  DYNAMIC  ATTACHMENTS\n");
  EXPECT_EQ(shell("\"$p\" profile delete x 2>/dev/null"), "");
  EXPECT_THAT(shell("\"$p\" profile delete x >/dev/null"),
              testing::StartsWith("l2cpctl: error: PROFILE_NOT_FOUND: "));
}

TEST_F(Program, SaysThatItsOutputCannotBeWritten) {
  const support::Run full =
      support::run({"/bin/sh", "-c", "\"$0\" protocol list >/dev/full", L2CPCTL_PROGRAM});
  EXPECT_EQ(full.status, 1);
  EXPECT_EQ(full.output, "l2cpctl: error: the output cannot be written\n");
}

// What is written to it must not reach the daemon, whose connections would have its number.
TEST_F(Program, SaysThatAClosedOutputCannotBeWritten) {
  for (const char* command : {"protocol list", "running-config show all"}) {
    const support::Run closed =
        support::run({"/bin/sh", "-c", L2CPCTL_PROGRAM " " + std::string(command) + " >&-"});
    EXPECT_EQ(closed.status, 1);
    EXPECT_EQ(closed.output, "l2cpctl: error: the output cannot be written\n");
  }
}

TEST_F(Program, SurvivesAReaderThatGoesAway) {
  int pipe[2];
  ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
  support::Descriptor reading(pipe[0]);
  const support::Descriptor writing(pipe[1]);
  reading.close();
  const pid_t program = fork();
  if (program == 0) {
    dup2(writing.get(), STDOUT_FILENO);
    execl(L2CPCTL_PROGRAM, L2CPCTL_PROGRAM, "protocol", "list", nullptr);
    _exit(127);
  }
  int status = 0;
  ASSERT_EQ(waitpid(program, &status, 0), program);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
}

}  // namespace
}  // namespace cli
