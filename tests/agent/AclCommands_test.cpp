// ACL commands of orb-agent: rules round-trip through `show access-lists`,
// bad input is refused with a reason and changes nothing, and the chip's
// knobs reach the TCAM.
#include "agent/Agent.h"
#include "tests/agent/AgentCommandRun.h"

#include <gtest/gtest.h>

namespace {

using AgentTest::error;
using AgentTest::run;

class AclCommandsTest : public ::testing::Test {
 protected:
  Agent::Agent agent{Agent::Options{}};
  std::string state() { return run(agent, "show access-lists json") + agent.chip().json(); }
};

TEST_F(AclCommandsTest, RulesPrintAsWritten) {
  run(agent, "ip access-list t 10 permit tcp host 10.0.0.1 range 1 1024 10.1.0.0/16 eq 80 established");
  run(agent, "ip access-list t 20 deny udp any any fragments");
  run(agent, "ip access-list t 30 deny 47 any any");
  run(agent, "ipv6 access-list six 10 permit icmpv6 2001:db8::/32 host 2001:db8::1");
  run(agent, "mac access-list m 10 deny 00:00:00:00:00:01/ff:ff:ff:00:00:00 any type 0x0806 mpls 16 inner 17");
  const std::string shown = run(agent, "show access-lists");
  EXPECT_NE(shown.find("10 permit tcp host 10.0.0.1 range 1 1024 10.1.0.0/16 eq 80 established"), std::string::npos);
  EXPECT_NE(shown.find("20 deny udp any any fragments"), std::string::npos);
  EXPECT_NE(shown.find("30 deny 47 any any"), std::string::npos);
  EXPECT_NE(shown.find("IPV6 Access List six"), std::string::npos);
  EXPECT_NE(shown.find("10 permit icmpv6 2001:db8::/32 host 2001:db8::1"), std::string::npos);
  EXPECT_NE(shown.find("10 deny 00:00:00:00:00:01/ff:ff:ff:00:00:00 any type 0x0806 mpls 16 inner 17"),
            std::string::npos);
  // One list by name; an unknown one is refused.
  EXPECT_EQ(run(agent, "show access-lists six").find("Access List t"), std::string::npos);
  EXPECT_EQ(error(agent, "show access-lists nope"), "no access-list nope");
  // Removing a rule, then the list.
  run(agent, "no ip access-list t 20");
  EXPECT_EQ(run(agent, "show access-lists t").find("fragments"), std::string::npos);
  run(agent, "no ip access-list t");
  EXPECT_EQ(error(agent, "show access-lists t"), "no access-list t");
}

TEST_F(AclCommandsTest, BadInputIsRefusedAndChangesNothing) {
  run(agent, "ip access-list t 10 permit ip any any");
  run(agent, "interface Ethernet1 ip access-group t in");
  const std::string before = state();
  const std::vector<std::pair<std::string, std::string>> refused = {
      {"ip access-list t 0 permit ip any any", ""},
      {"ip access-list t 10 allow ip any any", "expected permit or deny, not 'allow'"},
      {"ip access-list t 10 permit bogus any any", "bad protocol 'bogus'"},
      {"ip access-list t 10 permit ip any eq 80 any", "port matches need tcp or udp"},
      {"ip access-list t 10 permit tcp any range 9 8 any", "bad range 9 8: low above high"},
      {"ip access-list t 10 permit tcp any range 1 70000 any", ""},
      {"ip access-list t 10 permit tcp 10.0.0.1 any", "bad source '10.0.0.1'"},
      {"ip access-list t 10 permit tcp any host 2001:db8::1", "bad destination 'host'"},
      {"ip access-list t 10 permit udp any any established", "bad word 'established'"},
      {"ip access-list t 10 permit tcp any eq 80 any fragments", "fragments carry no L4 header"},
      {"ip access-list t 10 permit tcp any", "rule ends early: expected destination"},
      {"mac access-list m 10 permit any any mpls 1048576", "MacFilter::mplsLabel < 0 or > 0xFFFFF not allowed"},
      {"mac access-list m 10 permit any any mpls 5 inner -1", "MacFilter::mplsInnerLabel < 0 or > 0xFFFFF not allowed"},
      {"mac access-list m 10 permit any any type 0x1ffff", "bad ethertype '0x1ffff'"},
      {"mac access-list m 10 permit nonsense any", "bad MAC 'nonsense'"},
      {"no ip access-list nope", "no ip access-list nope"},
      {"no ip access-list t 99", "ip access-list t has no rule 99"},
      {"interface Ethernet1 ip access-group t sideways", "bad direction 'sideways': expected in or out"},
      {"chip acl mode sideways", "usage: chip acl"},
      {"hardware access-list update default-result maybe", "bad default result 'maybe'"},
      {"clear access-lists counters nosuch", "no access-list nosuch"},
      {"no hardware access-list resource sharing ipx", "bad type 'ipx': expected ip, ipv6 or mac"},
      {"hardware access-list resource sharing", "usage: hardware access-list resource sharing ip|ipv6|mac"},
      {"chip acl subintf-sharing maybe", "usage: chip acl"},
      {"interface Ethernet1 switchport mode hybrid", "bad mode 'hybrid': expected access, trunk or routed"},
      {"interface Ethernet1 switchport access vlan 5000", "out of range 1 to 4094"},
      {"interface Vlan10 switchport mode routed", "Vlan10 is not a port"},
      {"interface Ethernet1 switchport trunk", "usage: interface INTFS switchport"},
  };
  for (const auto& [line, reason] : refused) {
    const std::string got = error(agent, line);
    EXPECT_FALSE(got.empty()) << line;
    EXPECT_NE(got.find(reason), std::string::npos) << line << " -> " << got;
  }
  EXPECT_EQ(state(), before);
}

TEST_F(AclCommandsTest, ChipKnobsReachTheTcam) {
  run(agent, "chip acl capacity 1");
  run(agent, "ip access-list t 10 permit ip any any");
  run(agent, "interface Ethernet1-2 ip access-group t in");
  EXPECT_NE(run(agent, "show access-lists t").find("status in: Out of TCAM entries on Unit0"), std::string::npos);
  EXPECT_NE(run(agent, "show access-lists").find("errdisabled (acl): Ethernet2"), std::string::npos);
  run(agent, "chip acl capacity 2");
  run(agent, "ip access-list t 10 permit ip any any");  // the same rule, written again
  EXPECT_NE(run(agent, "show access-lists t").find("status in: Succeeded install on Unit0"), std::string::npos);
  // Deferred mode: the apply finishes once the chip acknowledges.
  run(agent, "chip acl mode deferred");
  run(agent, "chip acl ack-delay 1");
  run(agent, "ip access-list t 20 deny ip any any");
  EXPECT_TRUE(agent.acl().sm()->updatingAcls());
  run(agent, "advance 2");
  EXPECT_FALSE(agent.acl().sm()->updatingAcls());
  EXPECT_NE(run(agent, "show access-lists t").find("status in: Out of TCAM entries on Unit0"), std::string::npos);
}

}  // namespace
