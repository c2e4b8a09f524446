// The learned MAC table across agent restarts: --mac-store and `restart mac`.
#include "agent/Agent.h"
#include "platform/hotup/HotupPStoreHelper.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

std::string run(Agent::Agent& agent, const std::string& line) {
  std::ostringstream out;
  agent.execute(line, out);
  return out.str();
}

class MacStoreTest : public ::testing::Test {
 protected:
  // Tests run in parallel processes: a file of each test's own.
  std::string path = ::testing::TempDir() + "orb-mac-store-" +
                     ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".json";
  void SetUp() override { std::filesystem::remove(path); }
  void TearDown() override { std::filesystem::remove(path); }
  Agent::Options options() const {
    Agent::Options options;
    options.macStorePath = path;
    return options;
  }
};

TEST_F(MacStoreTest, CleanShutdownSavesAndTheNextStartRestores) {
  {
    Agent::Agent agent(options());
    run(agent, "vlan 10 add Ethernet1-48");
    run(agent, "vlan 20 add Ethernet1-48");
    run(agent, "chip learn 00:00:00:00:00:01 vlan 10 Ethernet1");
    run(agent, "chip learn-range 00:00:00:00:10:00 50 vlan 20 Ethernet2");
    run(agent, "mac static 00:00:00:00:00:09 vlan 10 Ethernet3");
    run(agent, "advance 1");
    agent.shutdown();
  }
  Agent::Agent agent(options());
  // The VLANs come back as configuration.
  run(agent, "vlan 10 add Ethernet1-48");
  run(agent, "vlan 20 add Ethernet1-48");
  // Back before anything was learned again, in the status and in the chip
  // that kept forwarding; the static entry is configuration, not saved.
  EXPECT_EQ(run(agent, "show mac address-table count"), "Total Mac Addresses: 51\n");
  EXPECT_NE(run(agent, "show mac address-table vlan 10").find("00:00:00:00:00:01  dynamic              Ethernet1"),
            std::string::npos);
  EXPECT_TRUE(agent.fdbHelper().table().entry({Nexo::EthAddr(0x1000), Bridging::VlanId(20)}));
  // They age as any learned entry would.
  run(agent, "mac aging-time 10");
  run(agent, "advance 30");
  EXPECT_EQ(run(agent, "show mac address-table count"), "Total Mac Addresses: 0\n");
}

TEST_F(MacStoreTest, NoStoreFileIsAFirstStartAndABrokenOneStopsTheStart) {
  {
    Agent::Agent agent(options());
    EXPECT_EQ(run(agent, "show mac address-table count"), "Total Mac Addresses: 0\n");
  }
  std::ofstream(path) << "{\"fdbStatus\":";
  EXPECT_THROW(Agent::Agent agent(options()), Hotup::StoreError);
  // The broken file is left for a person to look at.
  EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(MacStoreTest, RestartOfTheMacAgentKeepsLearnedAndStaticEntries) {
  Agent::Agent agent(options());
  run(agent, "vlan 10 add Ethernet1-48");
  run(agent, "chip learn 00:00:00:00:00:01 vlan 10 Ethernet1");
  run(agent, "advance 1");
  run(agent, "chip learn 00:00:00:00:00:01 vlan 10 Ethernet2");
  run(agent, "mac static 00:00:00:00:00:09 vlan 10 Ethernet3");
  run(agent, "advance 1");
  std::string saved = run(agent, "show mac store");
  EXPECT_EQ(saved, "{\"fdbStatus\":{\"10\":[[\"0000.0000.0001\",\"Ethernet2\"]]}}\n");
  EXPECT_EQ(run(agent, "restart mac"), "MAC agent restarted: 1 learned hosts restored from " + path + "\n");
  EXPECT_TRUE(std::filesystem::exists(path));
  std::string shown = run(agent, "show mac address-table");
  EXPECT_NE(shown.find("00:00:00:00:00:01  dynamic              Ethernet2            0"), std::string::npos) << shown;
  EXPECT_NE(shown.find("00:00:00:00:00:09  static"), std::string::npos) << shown;
  // The new machine goes on from the restored entry.
  run(agent, "chip learn 00:00:00:00:00:01 vlan 10 Ethernet4");
  run(agent, "advance 1");
  EXPECT_NE(run(agent, "show mac address-table").find("Ethernet4            1"), std::string::npos);
}

TEST(MacStoreExample, BundledRestartExampleRuns) {
  Agent::Agent agent(Agent::Options{});
  std::ostringstream out, err;
  EXPECT_EQ(agent.runScenario(std::string(ORB_SOURCE_DIR) + "/examples/restart.orb", out, err), 0) << err.str();
  EXPECT_NE(out.str().find("MAC agent restarted: 4 learned hosts restored"), std::string::npos) << out.str();
}

}  // namespace
