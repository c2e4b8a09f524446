// MAC commands of orb-agent, end to end through the MAC machine and the soft
// chip: learning, static entries, flushes, every input of the machine, the
// software learning mode and the JSON forms of the shows.
#include "agent/Agent.h"
#include "agent/MacPaths.h"
#include "platform/json/Json.h"
#include "tests/agent/AgentCommandRun.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using AgentTest::error;
using AgentTest::run;

// Every port a member of the VLANs the tests learn in: nothing is learned
// on a port outside the frame's VLAN.
void memberOfVlans(Agent::Agent& agent) {
  run(agent, "vlan 10 add Ethernet1-48");
  run(agent, "vlan 20 add Ethernet1-48");
}

rapidjson::Document json(Agent::Agent& agent, const std::string& line) {
  std::string text = run(agent, line);
  rapidjson::Document document;
  document.Parse(text.c_str());
  EXPECT_FALSE(document.HasParseError()) << line << ": " << text;
  return document;
}

}  // namespace

namespace {

TEST(MacCommands, LearnMoveStaticAndShow) {
  Agent::Agent agent(Agent::Options{});
  memberOfVlans(agent);
  run(agent, "chip learn 00:00:00:00:00:01 vlan 10 Ethernet1");
  run(agent, "advance 2");
  run(agent, "chip learn 00:00:00:00:00:01 vlan 10 Ethernet2");
  run(agent, "mac static 00:00:00:00:00:99 vlan 10 Ethernet4");
  std::string shown = run(agent, "show mac address-table vlan 10");
  EXPECT_NE(shown.find("10    00:00:00:00:00:01  dynamic              Ethernet2            1  2.000"),
            std::string::npos)
      << shown;
  EXPECT_NE(shown.find("00:00:00:00:00:99  static"), std::string::npos);
  EXPECT_EQ(run(agent, "show mac address-table interface Ethernet4 count"), "Total Mac Addresses: 1\n");
  EXPECT_NE(run(agent, "show mac hardware").find("2 entries"), std::string::npos);
  EXPECT_EQ(run(agent, "show mac dynamic-hosts"),
            "Dynamic hosts: 1\n  interface Ethernet2        1\n  vlan 10                    1\n");
  run(agent, "mac remove static 00:00:00:00:00:99 vlan 10");
  EXPECT_EQ(run(agent, "show mac address-table count"), "Total Mac Addresses: 1\n");
}

TEST(MacCommands, FullTableRecoversAndBadInputIsRefused) {
  Agent::Agent agent(Agent::Options{});
  memberOfVlans(agent);
  run(agent, "chip fdb capacity 0");
  run(agent, "mac static 00:00:00:00:00:05 vlan 20 Ethernet1");
  EXPECT_EQ(run(agent, "show mac address-table count"), "Total Mac Addresses: 0\n");
  run(agent, "chip fdb capacity 10");
  run(agent, "advance 1");
  EXPECT_EQ(run(agent, "show mac address-table count"), "Total Mac Addresses: 1\n");
  run(agent, "chip learn-range 00:00:00:00:10:00 20 vlan 20 Ethernet2");
  EXPECT_EQ(run(agent, "show mac address-table count"), "Total Mac Addresses: 10\n");
  EXPECT_EQ(error(agent, "chip learn 00:00:00:00:00 vlan 10 Ethernet1"), "bad MAC address '00:00:00:00:00'");
  EXPECT_EQ(error(agent, "mac remove static 00:00:00:00:00:77 vlan 20"),
            "no static entry for 00:00:00:00:00:77 vlan 20");
  EXPECT_NE(error(agent, "chip fdb sleepy next 1").find("usage: chip fdb"), std::string::npos);
  EXPECT_NE(error(agent, "show mac address-table port 1").find("usage: show mac address-table"), std::string::npos);
}

}  // namespace

namespace {

// The same MAC behaviour whether the chip is programmed directly or through
// the indirect-access command pipeline.
class MacModes : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    memberOfVlans(agent);
    run(agent, std::string("chip fdb mode ") + GetParam());
  }
  Agent::Agent agent{Agent::Options{}};
};

TEST_P(MacModes, LearnMoveStaticAndRemove) {
  run(agent, "chip learn 00:00:00:00:00:01 vlan 10 Ethernet1");
  run(agent, "advance 1");
  run(agent, "chip learn 00:00:00:00:00:01 vlan 10 Ethernet2");
  run(agent, "mac static 00:00:00:00:00:09 vlan 10 Ethernet3");
  run(agent, "advance 1");
  const auto* moved = agent.fdbHelper().table().entry({Nexo::EthAddr(1), Bridging::VlanId(10)});
  ASSERT_TRUE(moved);
  EXPECT_EQ(moved->intf, Nexo::IntfId("Ethernet2"));
  EXPECT_TRUE(agent.fdbHelper().table().entry({Nexo::EthAddr(9), Bridging::VlanId(10)}));
  EXPECT_NE(run(agent, "show mac address-table").find("Ethernet2            1"), std::string::npos);
  run(agent, "mac remove static 00:00:00:00:00:09 vlan 10");
  run(agent, "advance 1");
  EXPECT_FALSE(agent.fdbHelper().table().entry({Nexo::EthAddr(9), Bridging::VlanId(10)}));
  EXPECT_EQ(run(agent, "show mac address-table count"), "Total Mac Addresses: 1\n");
}

TEST_P(MacModes, FullTableTakesTheEntryOnceThereIsRoom) {
  run(agent, "chip fdb capacity 0");
  run(agent, "mac static 00:00:00:00:00:09 vlan 10 Ethernet3");
  run(agent, "advance 1");
  EXPECT_FALSE(agent.fdbHelper().table().entry({Nexo::EthAddr(9), Bridging::VlanId(10)}));
  run(agent, "chip fdb capacity 10");
  run(agent, "advance 30");
  EXPECT_TRUE(agent.fdbHelper().table().entry({Nexo::EthAddr(9), Bridging::VlanId(10)}));
}

TEST_P(MacModes, FlushOfAVlanOnALagTakesExactlyThoseEntries) {
  run(agent, "port-channel 1 members Ethernet9-10");
  run(agent, "chip learn-range 00:00:00:00:01:00 5 vlan 10 Port-Channel1");
  run(agent, "chip learn-range 00:00:00:00:02:00 5 vlan 20 Port-Channel1");
  run(agent, "chip learn-range 00:00:00:00:03:00 5 vlan 10 Ethernet1");
  run(agent, "advance 1");
  run(agent, "clear mac address-table vlan 10 interface Port-Channel1");
  run(agent, "advance 1");
  const auto& table = agent.fdbHelper().table().entries;
  EXPECT_EQ(table.size(), 10u);
  for (const auto& [packed, entry] : table) {
    const Bridging::MacVlanPair key = packed;
    EXPECT_FALSE(key.vlanId == Bridging::VlanId(10) && entry.intf == Nexo::IntfId("Port-Channel1"))
        << key.addr.stringValue();
  }
  EXPECT_EQ(run(agent, "show mac address-table count"), "Total Mac Addresses: 10\n");
  EXPECT_EQ(run(agent, "show mac dynamic-hosts"),
            "Dynamic hosts: 10\n  interface Ethernet1        5\n  interface Port-Channel1    5\n"
            "  vlan 10                    5\n  vlan 20                    5\n");
  EXPECT_NE(run(agent, "show mac flush-requests").find("done at"), std::string::npos);
}

// Every flush is answered, and the CLI withdraws answered requests but the
// last few: the requests and replies the MAC machine walks at each flush do
// not grow with the number of flushes.
TEST_P(MacModes, AnsweredFlushRequestsDoNotPileUp) {
  for (int i = 0; i < 50; ++i) {
    run(agent, "chip learn 00:00:00:00:00:01 vlan 10 Ethernet1");
    run(agent, "advance 1");
    run(agent, "clear mac address-table vlan 10");
    run(agent, "advance 1");
    EXPECT_FALSE(agent.fdbHelper().table().entry({Nexo::EthAddr(1), Bridging::VlanId(10)})) << i;
  }
  auto requests = json(agent, "show mac flush-requests json");
  EXPECT_LE(requests.Size(), 9u);
  for (const auto& request : requests.GetArray()) EXPECT_TRUE(request["answered"].GetBool());
  EXPECT_NE(run(agent, "show mac flush-requests").find("cli-50 "), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Chip, MacModes, ::testing::Values("direct", "indirect"));

}  // namespace

namespace {

// With software learning a learn that finds the table full is not lost: it
// goes in once there is room, whether the chip is programmed directly or
// through the command pipeline (which keeps it among its overflowed
// commands).
TEST_P(MacModes, SoftwareLearningIntoAFullTableGoesInOnceThereIsRoom) {
  run(agent, "chip fdb learning software");
  run(agent, "chip fdb capacity 1");
  run(agent, "chip learn 00:00:00:00:00:01 vlan 10 Ethernet1");
  run(agent, "chip learn 00:00:00:00:00:02 vlan 10 Ethernet2");
  run(agent, "advance 5");
  EXPECT_FALSE(agent.fdbHelper().table().entry({Nexo::EthAddr(2), Bridging::VlanId(10)}));
  EXPECT_EQ(agent.fdbHelper().reportedLearns().size(), 1u);
  run(agent, "chip fdb capacity 2");
  run(agent, "advance 30");
  ASSERT_TRUE(agent.fdbHelper().table().entry({Nexo::EthAddr(2), Bridging::VlanId(10)}));
  EXPECT_EQ(agent.fdbHelper().table().entry({Nexo::EthAddr(2), Bridging::VlanId(10)})->intf, Nexo::IntfId("Ethernet2"));
  EXPECT_TRUE(agent.fdbHelper().reportedLearns().empty());
}

// Programmed directly, the waiting learn is the MAC machine's queued change,
// shown by `show mac pending` and logged once as a full table.
TEST(MacCommands, SoftwareLearningIntoAFullTableWaitsInTheQueueLoggedOnce) {
  Agent::Agent agent(Agent::Options{});
  memberOfVlans(agent);
  run(agent, "chip fdb learning software");
  run(agent, "chip fdb capacity 1");
  run(agent, "chip learn 00:00:00:00:00:01 vlan 10 Ethernet1");
  run(agent, "chip learn 00:00:00:00:00:02 vlan 10 Ethernet2");
  run(agent, "advance 5");
  std::string pending = run(agent, "show mac pending");
  EXPECT_NE(pending.find("Queued changes: 1"), std::string::npos) << pending;
  EXPECT_NE(pending.find("00:00:00:00:00:02  add"), std::string::npos) << pending;
  EXPECT_NE(pending.find("table-full-logged"), std::string::npos) << pending;
  std::string logged = run(agent, "show logging");
  EXPECT_NE(logged.find("%ETH_MACADDRBANKFULL: MAC address 00:00:00:00:00:02 on VLAN 10 (dynamic)"), std::string::npos)
      << logged;
  EXPECT_EQ(logged.find("ETH_MACADDRBANKFULL"), logged.rfind("ETH_MACADDRBANKFULL")) << logged;
  run(agent, "chip fdb capacity 2");
  run(agent, "advance 1");
  EXPECT_NE(run(agent, "show mac pending").find("Queued changes: 0"), std::string::npos);
  EXPECT_EQ(run(agent, "show mac address-table count"), "Total Mac Addresses: 2\n");
}

}  // namespace

namespace {

// Each input the machine reads, written from the shell, lands in the entity
// the machine watches.
TEST(MacInputCommands, WriteTheEntitiesTheMachineReads) {
  Agent::Agent agent(Agent::Options{});
  auto& hive = agent.hive();
  Bridging::MacVlanPair key{Nexo::EthAddr(0xa01), Bridging::VlanId(10)};
  run(agent, "mlag host 0000.0000.0a01 vlan 10 Port-Channel7 type peer-static moves 3 time 1.5");
  auto peer = hive.mount<Mlag::HostTable>(Agent::MacPaths::mlagHostTable)->hostEntry(key);
  EXPECT_EQ(peer, (OrbTypes::MacAddressTableEntry{key, Nexo::IntfId("Port-Channel7"),
                                                  Bridging::EntryType::entryPeerStatic, Keel::Seqno32(3), 1.5}));
  run(agent, "l2rib host 0000.0000.0a01 vlan 10 load-balance 4 preference 2");
  auto host = hive.mount<L2Rib::HostOutput>(Agent::MacPaths::l2RibHostOutput)->host(key);
  EXPECT_TRUE(host.hasL2RibObjTuple);
  EXPECT_EQ(host.l2RibObjTuple, (L2Rib::ObjTuple{L2Rib::objTypeLoadBalance, 4}));
  EXPECT_EQ(host.preference, 2);
  EXPECT_EQ(host.intf, Nexo::IntfId("Vxlan1"));
  run(agent, "l2rib load-balance 4 1,2");
  EXPECT_EQ(hive.mount<L2Rib::LoadBalanceOutput>(Agent::MacPaths::l2RibLbOutput)->lb(4),
            (std::vector<std::uint64_t>{1, 2}));
  run(agent, "evpn mac 0000.0000.0a01 vlan 10 tunnel-group 3 type evpn-static-remote");
  auto evpn = hive.mount<Bridging::RemoteMacTable>(Agent::MacPaths::remoteMacTable)->receivedHost(key);
  EXPECT_EQ(evpn.entryType, Bridging::EntryType::entryEvpnStaticRemote);
  EXPECT_EQ(evpn.swTunnelGroupId.value, 3u);
  run(agent, "vxlan tunnel-group 3 vteps 10.0.0.1,10.0.0.2");
  EXPECT_EQ(hive.mount<Orb::SwTunnelGroupIdMap>(Agent::MacPaths::swTunnelGroupIdMap)->group({3}).size(), 2u);
  run(agent, "dot1x host 0000.0000.0a01 vlan 10 Ethernet4");
  EXPECT_EQ(hive.mount<Dot1x::HostTable>(Agent::MacPaths::dot1xHostTable)->host(key.addr).entryType,
            Bridging::EntryType::entryAuthenticated);
  run(agent, "mac learning interface Ethernet1-2 off");
  run(agent, "mac learning vlan 20-21 off");
  EXPECT_EQ(hive.mount<Interface::EthPhyIntfConfigDir>(Agent::MacPaths::ethPhyIntfConfig)->macLearningDisabledSize(),
            2u);
  EXPECT_FALSE(agent.fdbHelper().learningOn(Nexo::IntfId("Ethernet2")));
  EXPECT_FALSE(agent.fdbHelper().learningOn(Bridging::VlanId(21)));
  run(agent, "mac learning interface Ethernet2 on");
  EXPECT_TRUE(agent.fdbHelper().learningOn(Nexo::IntfId("Ethernet2")));
  // A raw row may carry VLAN 0 and any entry type, as a chip layer may write it.
  auto macTable = hive.mount<OrbTypes::MacTable>(Agent::MacPaths::macTable);
  run(agent, "chip mac-table 0000.0000.0009 vlan 20 Ethernet3 type 3 moves 7");
  EXPECT_EQ(macTable->macEntry({Nexo::EthAddr(9), Bridging::VlanId(20)}).entryType,
            static_cast<Bridging::EntryType>(3));
  run(agent, "chip mac-table remove 0000.0000.0009 vlan 20");
  EXPECT_FALSE(macTable->macEntryHas({Nexo::EthAddr(9), Bridging::VlanId(20)}));
}

// Bad input to each command is refused with its reason, and nothing of the
// refused line reaches the state database.
TEST(MacInputCommands, BadInputIsRefusedWithAReason) {
  Agent::Agent agent(Agent::Options{});
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"mlag host 0000.0000.0001 vlan 10", "usage: mlag host MAC vlan V INTF"},
      {"mlag host 0000.0000.0001 vlan 10 Ethernet1 type sideways", "unknown entry type 'sideways'"},
      {"mlag host 0000.0000.0001 vlan 10 Ethernet1 moves", "option 'moves' needs a value"},
      {"mlag host 0000.0000.0001 vlan 10 Ethernet1 moves 1 moves 2", "option 'moves' given twice"},
      {"mlag host 0000.0000.0001 vlan 10 Ethernet1 colour red", "unknown option 'colour'"},
      {"no mlag host 0000.0000.0001 vlan 10", "no MLAG peer host 00:00:00:00:00:01 vlan 10"},
      {"l2rib host 0000.0000.0001 vlan 10 nexthop 3", "L2 RIB object is 'dest ID' or 'load-balance ID'"},
      {"l2rib host 0000.0000.0001 vlan 10 dest 0", "'0' is out of range"},
      {"l2rib dest 1 10.0.0.300", "bad IP address '10.0.0.300'"},
      {"l2rib load-balance 1 2,,3", "bad number ''"},
      {"l2rib hw-id tunnel 1 2", "L2 RIB object is"},
      {"no l2rib hw-id dest 1", "no hardware id for dest 1"},
      {"evpn mac 0000.0000.0001 vlan 10 group 5", "usage: evpn mac"},
      {"evpn mac 0000.0000.0001 vlan 4095 tunnel-group 5", "'4095' is out of range 1 to 4094"},
      {"mac remote static 0000.0000.0001 vlan 10 tunnel-group 5 type static", "unknown option 'type'"},
      {"no evpn mac 0000.0000.0001 vlan 10", "no EVPN host"},
      {"evpn remote-macs-ready maybe", "on or off expected, not 'maybe'"},
      {"vxlan vlan 10 vni 0", "'0' is out of range 1 to 16777215"},
      {"vxlan vlan 10 vin 5", "usage: vxlan vlan V vni N"},
      {"vxlan tunnel-group 1 vteps 10.0.0.1,bogus", "bad IP address 'bogus'"},
      {"no vxlan tunnel-group 1", "no tunnel group 1"},
      {"dot1x host 0000.0000.0001 vlan 10 Ethernet1-2", "one interface expected"},
      {"no dot1x host 0000.0000.0001", "no 802.1X host 00:00:00:00:00:01"},
      {"dot1x restricted-port Bogus1", "bad interface 'Bogus1'"},
      {"router-mac 0000.0000.0001 vlan", "usage: router-mac MAC vlan V [INTF]"},
      {"no router-mac 0000.0000.0001 vlan 10", "no router MAC"},
      {"fast-failover failed-server 00:00:00:00:00", "bad MAC address '00:00:00:00:00'"},
      {"no fast-failover failed-server 0000.0000.0001", "no failed server 00:00:00:00:00:01"},
      {"mac learning port Ethernet1 off", "usage: mac learning interface"},
      {"mac learning vlan 20-10 off", "bad VLAN range '20-10'"},
      {"mac learning vlan 20 of", "on or off expected, not 'of'"},
      {"mac source-check everything on", "usage: mac source-check"},
      {"interface Ethernet1 link sideways", "usage: interface INTFS link up|down"},
      {"interface Ethernet1 gone", "usage: interface INTFS link up|down | interface INTFS present|absent"},
      {"chip mac-table 0000.0000.0001 vlan 4095 Ethernet1", "a MAC table key cannot carry VLAN 4095"},
      {"chip mac-table 0000.0000.0001 vlan 10 Ethernet1 type 256", "'256' is out of range 0 to 255"},
      {"chip mac-table remove 0000.0000.0001 vlan 10", "no MAC table row for 00:00:00:00:00:01 vlan 10"},
      {"chip fdb learning sometimes", "usage: chip fdb"},
      {"show mac sources 0000.0000.0001 vlan", "usage: show mac sources"},
      {"show mac pending now", "usage: show mac pending [json]"},
      {"restart mac later", "usage: restart mac [hitless]"},
  };
  for (const auto& [line, reason] : cases) {
    std::string what = error(agent, line);
    EXPECT_NE(what.find(reason), std::string::npos) << line << " said: '" << what << "'";
  }
  auto& hive = agent.hive();
  EXPECT_TRUE(hive.mount<Mlag::HostTable>(Agent::MacPaths::mlagHostTable)->hostEntry().empty());
  EXPECT_TRUE(hive.mount<L2Rib::HostOutput>(Agent::MacPaths::l2RibHostOutput)->host().empty());
  EXPECT_TRUE(hive.mount<Bridging::RemoteMacTable>(Agent::MacPaths::remoteMacTable)->receivedHost().empty());
  EXPECT_TRUE(hive.mount<Vxlan::VxlanConfigDir>(Agent::MacPaths::vxlanConfig)->vlanToVni().empty());
  EXPECT_TRUE(hive.mount<Orb::SwTunnelGroupIdMap>(Agent::MacPaths::swTunnelGroupIdMap)->group().empty());
  EXPECT_TRUE(hive.mount<OrbTypes::MacTable>(Agent::MacPaths::macTable)->macEntry().empty());
  EXPECT_TRUE(hive.mount<Bridging::Config>(Agent::Paths::bridgingConfig)->macLearningDisabledVlan().empty());
}

// The MAC shows print one JSON document each with a trailing `json`.
TEST(MacShowCommands, JsonDocuments) {
  Agent::Agent agent(Agent::Options{});
  memberOfVlans(agent);
  run(agent, "chip learn 00:00:00:00:00:01 vlan 10 Ethernet1");
  run(agent, "vxlan vlan 10 vni 10010");
  run(agent, "evpn mac 00:00:00:00:00:02 vlan 10 tunnel-group 5");
  run(agent, "clear mac address-table vlan 20");
  run(agent, "advance 1");
  auto table = json(agent, "show mac address-table json");
  ASSERT_EQ(table["total"].GetUint(), 2u);
  EXPECT_STREQ(table["entries"][0]["interface"].GetString(), "Ethernet1");
  EXPECT_STREQ(table["entries"][1]["type"].GetString(), "evpn dynamic remote");
  EXPECT_TRUE(table["entries"][1]["remote"].GetBool());
  EXPECT_FALSE(json(agent, "show mac address-table vlan 10 count json").HasMember("entries"));
  auto hardware = json(agent, "show mac hardware json");
  EXPECT_EQ(hardware["entries"][1]["nextHop"].GetUint64(), 5u);
  EXPECT_STREQ(hardware["learning"].GetString(), "hardware");
  EXPECT_EQ(json(agent, "show mac dynamic-hosts json")["interfaces"]["Ethernet1"].GetUint(), 1u);
  EXPECT_TRUE(json(agent, "show mac flush-requests json")[0]["answered"].GetBool());
  EXPECT_EQ(json(agent, "show mac pending json")["queued"].GetUint(), 0u);
  EXPECT_EQ(json(agent, "show vxlan remote-mac-info json")["vlans"]["10"].GetUint(), 1u);
  EXPECT_EQ(json(agent, "show l2rib host-input json").Size(), 1u);
  EXPECT_EQ(json(agent, "show chip mac-table json")[0]["vlan"].GetUint(), 10u);
  EXPECT_STREQ(json(agent, "show mac learning json")["chipLearning"].GetString(), "hardware");
  auto sources = json(agent, "show mac sources 00:00:00:00:00:02 vlan 10 json");
  EXPECT_STREQ(sources["sources"][0]["source"].GetString(), "evpn");
  EXPECT_TRUE(sources["chip"]["remote"].GetBool());
  EXPECT_TRUE(json(agent, "show mac store json").HasMember("fdbStatus"));
}

}  // namespace
