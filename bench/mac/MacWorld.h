// The MAC benchmarks' world: everything the agent holds for MAC learning,
// on real time with the soft chip answering at once, and the 262,144 keys
// (across 4,094 VLANs) they work on.
#pragma once

#include "Orb/OrbMacAddrSm.h"
#include "chip/softchip/SoftFdb.h"
#include "platform/vex/EventLoop.h"

#include <fmt/format.h>

#include <fstream>
#include <vector>

namespace MacBench {

constexpr std::uint32_t entries = 262144;
constexpr unsigned ports = 48;

inline Bridging::MacVlanPair keyOf(std::uint32_t i) {
  return {Nexo::EthAddr(0x020000000000ULL + i * 2654435761ULL % 0xffffffffULL), Bridging::VlanId(1 + i % 4094)};
}

inline long residentBytes() {
  std::ifstream statm("/proc/self/statm");
  long size = 0, resident = 0;
  statm >> size >> resident;
  return resident * 4096;
}

// Everything the agent holds for MAC learning.
struct World {
  Vex::EventLoop loop{std::make_unique<Vex::MonotonicTimeSource>()};
  Vex::Ptr<Orb::OrbCommonSmData> ocsd = Orb::orbCommonSmDataFactory("ocsd");
  Vex::Ptr<SoftChip::SoftChip> chip = SoftChip::softChipFactory();
  Vex::Ptr<OrbTypes::MacTable> macTable = Vex::make<OrbTypes::MacTable>("macTable");
  Vex::Ptr<Bridging::Status> status = Vex::make<Bridging::Status>("status");
  Vex::Ptr<L2Rib::HostInput> l2RibInput = Vex::make<L2Rib::HostInput>("l2RibInput");
  Vex::Ptr<Bridging::HostTableFlushRequestDir> flushRequests = Vex::make<Bridging::HostTableFlushRequestDir>("fq");
  Vex::Ptr<Bridging::HostTableFlushReplyDir> flushReplies = Vex::make<Bridging::HostTableFlushReplyDir>("fr");
  Vex::Ptr<SoftChip::SoftFdbHelper> fdb;
  Vex::Ptr<Orb::MacAddrSm> sm;
  std::vector<Nexo::IntfId> intfs;

  World() {
    loop.makeCurrent();
    for (unsigned p = 1; p <= ports; ++p) {
      intfs.emplace_back(fmt::format("Ethernet{}", p));
      ocsd->intfIs(intfs.back(), true);
    }
    fdb = Vex::make<SoftChip::SoftFdbHelper>(chip, macTable);
    // Sized for the chip's table, as an agent that knows its chip would be.
    macTable->macEntryReserve(entries);
    l2RibInput->hostReserve(entries);
    fdb->reserve(entries);
    auto in = Orb::macAddrSmInputsFactory(ocsd, fdb, nullptr);
    in.macTable = macTable;
    in.bridgingStatus = status;
    in.l2RibInput = l2RibInput;
    in.flushRequestDir = flushRequests;
    in.flushReplyDir = flushReplies;
    in.bridgingConfig->hostAgingTimeIs(0);
    sm = Orb::macAddrSmFactory(in);
  }

  // Learns every address on port `shift` onwards and waits for the machine.
  void learnAll(unsigned shift) {
    for (std::uint32_t i = 0; i < entries; ++i) fdb->learn(keyOf(i), intfs[(i + shift) % ports]);
    while (sm->updateListSize() || sm->macTableUpdateListSize()) loop.runUntilIdle();
  }
};

}  // namespace MacBench
