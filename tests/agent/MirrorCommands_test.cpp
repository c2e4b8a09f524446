// Mirroring commands of orb-agent: sessions round-trip through `show
// monitor session`, bad input is refused with a reason and changes
// nothing, and the chip's knobs reach the mirror table.
#include "agent/Agent.h"
#include "tests/agent/AgentCommandRun.h"

#include <gtest/gtest.h>

namespace {

using AgentTest::error;
using AgentTest::run;

class MirrorCommandsTest : public ::testing::Test {
 protected:
  Agent::Agent agent{Agent::Options{}};
  std::string state() { return run(agent, "show monitor session json") + agent.chip().json(); }
};

TEST_F(MirrorCommandsTest, SessionsPrintAsWritten) {
  run(agent, "monitor session s1 source Ethernet1-2 rx");
  run(agent, "monitor session s1 source Ethernet3 acl web");
  run(agent, "monitor session s1 destination Ethernet9");
  const std::string shown = run(agent, "show monitor session");
  EXPECT_NE(shown.find("Session s1\n  mirror group: 0 (programmed)"), std::string::npos) << shown;
  EXPECT_NE(shown.find("    Ethernet1 rx active\n    Ethernet2 rx active\n    Ethernet3 both acl web no acl"),
            std::string::npos)
      << shown;
  EXPECT_NE(shown.find("    Ethernet9 active"), std::string::npos) << shown;
  EXPECT_NE(run(agent, "show monitor session s1 json").find("\"mirrorGroup\": 0"), std::string::npos);
  EXPECT_EQ(error(agent, "show monitor session nope"), "no monitor session nope");
  run(agent, "no monitor session s1 source Ethernet2");
  EXPECT_EQ(run(agent, "show monitor session").find("Ethernet2"), std::string::npos);
  run(agent, "no monitor session s1 destination Ethernet9");
  EXPECT_NE(run(agent, "show monitor session").find("not programmed: no usable destination"), std::string::npos);
  run(agent, "no monitor session s1");
  EXPECT_EQ(run(agent, "show monitor session"), "");
  EXPECT_EQ(agent.chip().tableNamed("mirror").size(), 0u);
}

TEST_F(MirrorCommandsTest, BadInputIsRefusedAndChangesNothing) {
  run(agent, "monitor session s1 source Ethernet1");
  const std::string before = state();
  EXPECT_EQ(error(agent, "monitor session s1 source Ethernet2 sideways"),
            "usage: monitor session NAME source INTFS [rx|tx|both] [acl NAME]");
  EXPECT_EQ(error(agent, "monitor session s1 source Ethernet2 rx acl"),
            "usage: monitor session NAME source INTFS [rx|tx|both] [acl NAME]");
  EXPECT_EQ(error(agent, "monitor session s1 source Vlan10"),
            "a mirror source is a port or a port-channel, not Vlan10");
  EXPECT_EQ(error(agent, "monitor session s1 destination Vlan10"),
            "a mirror destination is a port, a port-channel, a tunnel or the CPU, not Vlan10");
  EXPECT_EQ(error(agent, "monitor session s1 destination Ethernet1-2"), "one interface, not a range: 'Ethernet1-2'");
  EXPECT_EQ(
      error(agent, "monitor session s1 target Ethernet2"),
      "usage: monitor session NAME source|destination|truncation|header remove|sample|rate-limit|gre payload ...");
  EXPECT_EQ(error(agent, "monitor session " + std::string(101, 'x') + " source Ethernet1"),
            "a session name is 1 to 100 characters");
  EXPECT_EQ(error(agent, "no monitor session s2"), "no monitor session s2");
  EXPECT_EQ(error(agent, "no monitor session s2 source Ethernet1"), "no monitor session s2");
  EXPECT_EQ(error(agent, "mirror tunnel Ethernet1 id 5 via Vlan10 Ethernet2"), "not a tunnel: Ethernet1");
  EXPECT_EQ(error(agent, "mirror tunnel Tunnel1 id 5"),
            "usage: mirror tunnel TUNNEL id N via L3INTF L2INTF [via L3INTF L2INTF]...");
  EXPECT_EQ(error(agent, "mirror tunnel Tunnel1 id 5 via Vlan10 Vlan11"),
            "a next hop leaves by a port or a port-channel, not Vlan11");
  EXPECT_NE(error(agent, "chip mirror sources rx 2"), "");
  EXPECT_EQ(error(agent, "mirroring restart now"), "usage: mirroring restart [keep-leftovers]");
  EXPECT_EQ(error(agent, "mirroring start"), "mirroring runs already");
  EXPECT_EQ(state(), before);
}

TEST_F(MirrorCommandsTest, BadSessionAttributesAreRefusedAndChangeNothing) {
  run(agent, "monitor session s1 source Ethernet1");
  run(agent, "monitor session s1 truncation 128");
  const std::string before = state();
  const std::string usage =
      "usage: monitor session NAME truncation BYTES | header remove BYTES | sample RATE | rate-limit BPS | gre "
      "payload full-packet|inner-packet";
  EXPECT_NE(error(agent, "monitor session s1 truncation 63"), "");
  EXPECT_NE(error(agent, "monitor session s1 truncation 9217"), "");
  EXPECT_NE(error(agent, "monitor session s1 truncation lots"), "");
  EXPECT_EQ(error(agent, "monitor session s1 truncation"), usage);
  EXPECT_EQ(error(agent, "monitor session s1 header 14"), usage);
  EXPECT_NE(error(agent, "monitor session s1 header remove 0"), "");
  EXPECT_NE(error(agent, "monitor session s1 sample 0"), "");
  EXPECT_NE(error(agent, "monitor session s1 rate-limit -5"), "");
  EXPECT_EQ(error(agent, "monitor session s1 sample 10 20"), usage);
  EXPECT_EQ(error(agent, "monitor session s1 gre payload ip-only"),
            "a GRE payload is full-packet or inner-packet, not ip-only");
  EXPECT_EQ(error(agent, "monitor session s1 gre inner-packet"), usage);
  EXPECT_EQ(error(agent, "monitor session s1 gre payload"), usage);
  // A bad value names no new session either.
  EXPECT_NE(error(agent, "monitor session s2 sample 0"), "");
  EXPECT_EQ(error(agent, "no monitor session s1 truncation 128"),
            "usage: no monitor session NAME truncation | header remove | sample | rate-limit | gre payload");
  EXPECT_EQ(error(agent, "no monitor session s2 sample"), "no monitor session s2");
  EXPECT_EQ(state(), before);
}

TEST_F(MirrorCommandsTest, ChipKnobsReachTheMirrorTable) {
  run(agent, "chip mirror sources rx 1 tx 1");
  run(agent, "monitor session s1 destination Ethernet9");
  run(agent, "monitor session s1 source Ethernet1-2 rx");
  EXPECT_NE(run(agent, "show monitor session").find("Ethernet2 rx overflowed"), std::string::npos);
  run(agent, "chip mirror fail next 1");
  run(agent, "monitor session s1 source Ethernet3 tx");
  EXPECT_NE(run(agent, "show monitor session").find("Ethernet3 tx failed"), std::string::npos);
  run(agent, "advance 2");
  EXPECT_NE(run(agent, "show monitor session").find("Ethernet3 tx active"), std::string::npos);
  run(agent, "chip mirror cut-through on");
  EXPECT_NE(run(agent, "show monitor session").find("cut-through"), std::string::npos);
  EXPECT_NE(run(agent, "show logging").find("DATAPLANE_MIRROR_INVALID_SESSION_IN_CUT_THROUGH"), std::string::npos);
}

}  // namespace
