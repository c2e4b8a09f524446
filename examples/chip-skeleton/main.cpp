// A chip layer's first program: libOrb's MAC, VLAN and LAG machines on the
// skeleton helpers, with the state database in this process and time
// simulated. It writes configuration as the other agents would, lets the
// machines react, and prints what the chip layer was asked to do. Exits 0
// when the chip was asked for every VLAN member, LAG member and static
// address of the scenario.
#include "Orb/OrbCommon.h"
#include "Orb/OrbLagSm.h"
#include "Orb/OrbMacAddrSm.h"
#include "Orb/OrbVlanPhyIntfSm.h"
#include "SkeletonChip.h"
#include "platform/hive/Hive.h"
#include "platform/model/LagStatus.h"
#include "platform/vex/EventLoop.h"

#include <fmt/format.h>

#include <iostream>

namespace {

// State-database paths of the machines' inputs and outputs.
namespace Paths {
constexpr const char* bridgingConfig = Orb::MacAddrSmMounter::bridgingConfigPath;
constexpr const char* vlanPhyIntfStatus = "bridging/vlan/phyIntfStatus";
constexpr const char* dynamicExpVlan = "bridging/vlan/dynamicExpVlan";
}  // namespace Paths

struct Helpers {
  Vex::Ptr<Skeleton::VlanHelper> vlan;
  Vex::Ptr<Skeleton::LagHelper> lag;
  Vex::Ptr<Skeleton::MacHelper> mac;
};

struct Machines {
  Vex::Ptr<Orb::VlanPhyIntfSm> vlan;
  Vex::Ptr<Orb::LagSm> lag;
  Vex::Ptr<Orb::MacAddrSm> mac;
};

// Start-up in the agent's order: the shared context is there already
// and the helpers are made; then the VLAN machine, the LAG machine (its
// mounter finds its own inputs) and the MAC machine, which is given the
// VLAN helper to know VLAN membership. Inputs nobody writes in this program
// are mounted empty, as a switch with those features idle has them.
Machines startMachines(const Vex::Ptr<Hive::Root>& hive, const Vex::Ptr<Orb::OrbCommonSmData>& ocsd,
                       const Helpers& helpers) {
  Machines machines;
  auto config = hive->mount<Bridging::Config>(Paths::bridgingConfig);
  machines.vlan = Orb::vlanPhyIntfSmFactory(
      ocsd, helpers.vlan, config, hive->mount<VlanPhyIntfStatusLib::VlanPhyIntfStatusDir>(Paths::vlanPhyIntfStatus),
      hive->mount<Orb::DynamicExpVlanDir>(Paths::dynamicExpVlan));
  Orb::LagMounter lagMounter(hive, ocsd, helpers.lag);
  lagMounter.doMounts();
  machines.lag = lagMounter.doMountsComplete();
  Orb::MacAddrSmMounter macMounter(hive, ocsd, helpers.mac, helpers.vlan);
  macMounter.doMounts();
  machines.mac = macMounter.doMountsComplete();
  return machines;
}

int run() {
  Vex::EventLoop loop;  // simulated time
  loop.makeCurrent();
  Skeleton::Transcript chipLog;

  auto hive = Hive::rootFactory();
  auto ocsd = Orb::orbCommonSmDataFactory("ocsd");
  for (unsigned port = 1; port <= 8; ++port) ocsd->intfIs(Nexo::IntfId(fmt::format("Ethernet{}", port)), true);
  ocsd->cpuIntfIs(Nexo::IntfId("Cpu"), true);

  Helpers helpers{Vex::make<Skeleton::VlanHelper>(chipLog), Vex::make<Skeleton::LagHelper>(chipLog),
                  Vex::make<Skeleton::MacHelper>(chipLog)};
  ocsd->vlanHelperIs(helpers.vlan);
  chipLog.line("== start the VLAN, LAG and MAC machines");
  Machines machines = startMachines(hive, ocsd, helpers);
  loop.runUntilIdle();

  // The scenario, as the configuration agents would write it.
  chipLog.line("== vlan 10: Ethernet1-2 access, Ethernet3 trunk");
  auto vlans = hive->lookup<VlanPhyIntfStatusLib::VlanPhyIntfStatusDir>(Paths::vlanPhyIntfStatus);
  auto vlan10 = vlans->vlanPhyIntfStatusIs(Bridging::VlanId(10));
  vlan10->intfIs(Nexo::IntfId("Ethernet1"), VlanPhyIntfStatusLib::VlanPhyIntfEntry{});
  vlan10->intfIs(Nexo::IntfId("Ethernet2"), VlanPhyIntfStatusLib::VlanPhyIntfEntry{});
  vlan10->intfIs(Nexo::IntfId("Ethernet3"), VlanPhyIntfStatusLib::VlanPhyIntfEntry{.tagged = true});
  loop.advance(1);

  chipLog.line("== Port-Channel1 bundles Ethernet5-6");
  auto lags = hive->lookup<Interface::EthLagIntfStatusDir>(Orb::LagMounter::ethLagIntfStatusPath);
  auto lag1 = lags->intfStatusIs(Nexo::IntfId("Port-Channel1"));
  lag1->memberIs(Nexo::IntfId("Ethernet5"));
  lag1->memberIs(Nexo::IntfId("Ethernet6"));
  loop.advance(1);

  chipLog.line("== static 00:1c:73:00:00:01 on Ethernet1 in vlan 10");
  Bridging::MacVlanPair key{Nexo::EthAddr("00:1c:73:00:00:01"), Bridging::VlanId(10)};
  hive->lookup<Bridging::Config>(Paths::bridgingConfig)
      ->fdbConfigIs(key, OrbTypes::MacAddressTableEntry{
                             key, Nexo::IntfId("Ethernet1"), Bridging::EntryType::entryStatic, {}, 0.0});
  loop.advance(1);

  // Machines go before their helpers; the shared context outlives them all.
  machines = Machines{};
  ocsd->vlanHelperIs(nullptr);
  helpers = Helpers{};
  ocsd.reset();
  hive.reset();

  const char* expected[] = {
      "chip: update vlan 10 untagged Ethernet1,Ethernet2 tagged Ethernet3 remove -",
      "chip: lag Port-Channel1 members Ethernet5,Ethernet6",
      "chip: add mac 00:1c:73:00:00:01 vlan 10 Ethernet1 entryStatic",
  };
  int missing = 0;
  for (const char* line : expected) {
    if (!chipLog.has(line)) {
      std::cerr << "chip-skeleton: the chip was never asked: " << line << "\n";
      ++missing;
    }
  }
  if (missing) return 1;
  std::cout << "chip-skeleton: ok\n";
  return 0;
}

}  // namespace

int main() {
  try {
    return run();
  } catch (const std::exception& e) {
    std::cerr << "chip-skeleton: " << e.what() << "\n";
    return 1;
  }
}
