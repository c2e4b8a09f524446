// The MAC address table: the soft chip's forwarding database behind the MAC
// helper, the MAC machine over every source of addresses, the non-aging
// machines, the table's store across restarts, and the `mac`, `chip fdb`,
// `chip learn` and input commands.
#pragma once

#include "Orb/OrbMacAddrSm.h"
#include "Orb/OrbNonAgingMacSm.h"
#include "agent/Feature.h"
#include "agent/VlanFeature.h"
#include "chip/softchip/SoftFdb.h"

#include <deque>
#include <string>

namespace Agent {

class MacFeature : public Feature {
 public:
  MacFeature(const AgentCore& core, VlanFeature& vlans);
  ~MacFeature() override;
  void registerCommands() override;

  const Vex::Ptr<SoftChip::SoftFdbHelper>& helper() const { return fdbHelper_; }
  const Vex::Ptr<Orb::MacAddrSm>& sm() const { return macAddrSm_; }

  // A clean shutdown: saves the learned MAC table to the store, if there is
  // one. Throws Hotup::StoreError when the file cannot be written.
  void shutdown();

 private:
  void startMacAddrSm();
  void registerMacCommands();
  void registerMacStoreCommands();
  void registerMacInputCommands();
  void registerMacSourceCommands();
  void registerMacRemoteCommands();
  void registerMacLearningCommands();
  void registerMacInputShowCommands();
  // Fills `fdbStatus` from a saved document. The soft chip lives in this
  // process, so it stands for a chip that kept forwarding across the
  // restart: with `chipKeptTable` it is given the restored entries as the
  // hardware would still hold them. Returns the hosts restored.
  std::size_t restoreMacTable(const std::string& document, bool chipKeptTable);
  // The MAC agent's restart: save, drop the machines and what they own,
  // restore, start again; hitless, in the hitless-restart mode with the
  // remote entries kept for recovery.
  std::size_t restartMac(bool hitless);

  Vex::Ptr<SoftChip::SoftVlanHelper> vlanHelper_;
  Vex::Ptr<SoftChip::SoftFdbHelper> fdbHelper_;
  Vex::Ptr<Orb::NonAgingConfigDirSm> nonAgingSm_;
  Vex::Ptr<Orb::MacAddrSm> macAddrSm_;
  unsigned flushRequestCount_ = 0;
  // The CLI's flush requests still published, oldest first: answered ones
  // past the last few are withdrawn, as a requester does once answered, so
  // that the requests (which the MAC machine walks at every flush) do not
  // grow with every `clear mac address-table`.
  std::deque<std::string> flushRequestNames_;
  static constexpr std::size_t answeredFlushRequestsKept = 8;
  std::string macStorePath_;
};

}  // namespace Agent
