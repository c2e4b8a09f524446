// Hardware FEC request commands of orb-agent: bad input is refused with a
// reason and publishes nothing; a request's FEC row and request row reach
// the shared-memory tables as a requester writes them.
#include "agent/Agent.h"
#include "tests/agent/AgentCommandRun.h"

#include <gtest/gtest.h>

namespace {

using AgentTest::error;
using AgentTest::run;
using Orb::FecRequestSource;
using Pond::Fib::FecId;

class FecRequestCommandsTest : public ::testing::Test {
 protected:
  Agent::Agent agent{Agent::Options{}};
  void SetUp() override { run(agent, "fec-request mpls 10 via 10.0.0.2 Ethernet3 adj-state"); }
  std::string state() {
    return run(agent, "show fec-requests json") + run(agent, "show pseudowire adjacency-groups json") +
           agent.chip().json();
  }
};

TEST_F(FecRequestCommandsTest, BadInputIsRefusedAndChangesNothing) {
  std::string before = state();
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"fec-request bogus 1", "not a FEC request source: 'bogus' (one of cbf, evpn, link-local, mpls,"},
      {"fec-request mpls", "usage: fec-request SOURCE ID"},
      {"fec-request mpls 0", "out of range"},
      {"fec-request mpls 13 via 10.0.0.2 Port-Channel1", "front-panel port (EthernetN), not Port-Channel1"},
      {"fec-request mpls 13 via 10.0.0.2 Ethernet1.5", "front-panel port (EthernetN), not Ethernet1.5"},
      {"fec-request mpls 13 via 10.0.0.2 Bogus1", "not an interface: Bogus1"},
      {"fec-request mpls 13 via 10.0.0.300 Ethernet1", "not an address of the FEC's family: 10.0.0.300"},
      {"fec-request mpls 13 via 10.0.0.2 Ethernet1 via 2001:db8::2 Ethernet2", "all IPv4 or all IPv6"},
      {"fec-request mpls 13 via 10.0.0.2 Ethernet1 weight 0", "out of range"},
      {"fec-request mpls 13 via 10.0.0.2", "usage: fec-request SOURCE ID"},
      {"fec-request mpls 13 adj-states", "usage: fec-request SOURCE ID"},
      {"no fec-request mpls 99", "no fec-request mpls 99"},
      {"no fec-request evpn 10", "no fec-request evpn 10"},
      {"no fec-request mpls", "usage: no fec-request SOURCE ID"},
      {"show fec-requests bogus", "not a FEC request source"},
      {"fec-request wait soon", "seconds"},
      {"fec-request wait 601", "fec-request wait waits at most 600 s"},
      {"chip fec-request capacity", "usage: chip fec-request"},
      {"pseudowire adjacency-group 0 via 10.0.0.2 Ethernet1", "out of range"},
      {"pseudowire adjacency-group 5 via 2001:db8::1 Ethernet1", "IPv4 next hops, not 2001:db8::1"},
      {"pseudowire adjacency-group 5 via 10.0.0.2", "usage: pseudowire adjacency-group G via ADDR PORT"},
      {"pseudowire adjacency-group 5 via 10.0.0.2 Port-Channel2", "front-panel port (EthernetN)"},
      {"no pseudowire adjacency-group 5", "no pseudowire adjacency-group 5"},
      {"show pseudowire adjacency-groups all", "usage: show pseudowire adjacency-groups [json]"},
  };
  std::string tooMany = "pseudowire adjacency-group 5";
  for (int i = 0; i <= 600; ++i) tooMany += " via 10.0.0.2 Ethernet1";
  EXPECT_EQ(error(agent, tooMany), "a FEC has at most 600 vias");
  for (const auto& [line, reason] : cases)
    EXPECT_NE(error(agent, line).find(reason), std::string::npos) << line << " -> " << error(agent, line);
  EXPECT_EQ(state(), before);
}

TEST_F(FecRequestCommandsTest, ARequesterWritesTheFecRowBeforeTheRequestAndAFamilyChangeLeavesOneRow) {
  const auto& requests = agent.fecRequests().all()->requestCollection(FecRequestSource::fecRequestMpls);
  ASSERT_TRUE(requests);
  auto fec = requests->fec(FecId(10));
  EXPECT_EQ(fec.viaCount, 1u);
  EXPECT_EQ(fec.via[0].hop, 0x0a000002u);
  EXPECT_EQ(fec.via[0].intfNumber, 3u);
  EXPECT_TRUE(requests->hwFecIdRequest(FecId(10)).requestAdjState);

  run(agent, "fec-request mpls 10 via 2001:db8::2 Ethernet4 weight 3");
  EXPECT_FALSE(requests->fecHas(FecId(10)));
  EXPECT_EQ(requests->fec6(FecId(10)).via[0].weight, 3u);
  EXPECT_EQ(requests->hwFecIdRequest(FecId(10)).requestId, 2.0);
  EXPECT_NE(run(agent, "show fec-requests mpls"), "");

  run(agent, "no fec-request mpls 10");
  EXPECT_FALSE(requests->fec6Has(FecId(10)));
  EXPECT_FALSE(requests->hwFecIdRequestHas(FecId(10)));
  EXPECT_EQ(agent.fecRequests().allocator()->grants().size(), 0u);
}

TEST_F(FecRequestCommandsTest, AWaitWithTheChipBusySaysSoAtOnceAndTimeAnswersIt) {
  run(agent, "chip fec-request busy next 1");
  run(agent, "fec-request mpls 11");
  EXPECT_EQ(error(agent, "fec-request wait 5"), "1 FEC request(s) wait for the chip's next try");
  run(agent, "advance 1");
  EXPECT_EQ(error(agent, "fec-request wait"), "");
}

TEST(FecRequestAgents, TwoAgentsInOneProcessKeepTheirRequestsApart) {
  Agent::Agent other{Agent::Options{}};
  Agent::Agent agent{Agent::Options{}};
  EXPECT_NE(other.fecRequests().pondPrefix(), agent.fecRequests().pondPrefix());
  run(other, "fec-request mpls 1");
  run(agent, "fec-request mpls 2");
  EXPECT_EQ(run(other, "show fec-requests").find(" 2 "), std::string::npos);
  EXPECT_NE(run(agent, "show fec-requests").find("mpls                        2"), std::string::npos);
}

TEST(FecRequestExternalAllocator, ChipCommandsAreRefusedAndAWaitWithNoAllocatorTimesOut) {
  Agent::Options options;
  options.externalFecAllocator = true;
  Agent::Agent agent(options);
  EXPECT_EQ(agent.fecRequests().allocator(), nullptr);
  EXPECT_NE(error(agent, "chip fec-request capacity 4").find("orb-agent fecd in another process"), std::string::npos);
  run(agent, "fec-request mpls 1");
  EXPECT_EQ(error(agent, "fec-request wait 0.05"), "1 FEC request(s) still unanswered after 0.05 s");
  EXPECT_NE(run(agent, "show fec-requests").find("waiting"), std::string::npos);
}

}  // namespace
