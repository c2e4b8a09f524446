// The soft chip's forwarding database behind the MAC helper.
//
// Entries live in a table of capacity("fdb") rows. Adds answer 0 (success),
// 1 (busy) or 2 (full) as the fault plan and the capacity say; a planned
// "failed" answers 3. The chip learns on its own: learn() is a frame from
// an unknown source arriving on a port, and writes the learned entry into
// the MAC table the forwarding layer watches (moving it if the address sat
// on another port). An aging sweep takes out dynamic entries idle for the
// configured aging time, from both tables.
//
// In software learning mode the chip, like those that send learns to the
// CPU, only reports a learn (the MAC table row) and the entry goes into its
// table when the forwarding layer programs it; a full table then refuses
// the add, and the learn waits in the forwarding layer's queue instead of
// being dropped by the chip.
#pragma once

#include "Orb/OrbChipProgrammer.h"
#include "Orb/OrbHelper.h"
#include "chip/softchip/SoftChip.h"
#include "platform/model/MacModels.h"

namespace SoftChip {

// The table's key in one word: the address's 48 bits above the VLAN's 16.
// The table holds an entry for every address the switch knows, and the
// two-word key would be a third of each slot. It converts to and from the
// key every MAC table uses, and orders as that key does.
class SoftFdbKey {
 public:
  SoftFdbKey(const Bridging::MacVlanPair& key) : bits_(key.addr.value() << 16 | key.vlanId.value()) {}
  operator Bridging::MacVlanPair() const { return key(); }
  Bridging::MacVlanPair key() const {
    return {Nexo::EthAddr(bits_ >> 16), Bridging::VlanId::fromVexRep(bits_ & 0xffff)};
  }
  auto operator<=>(const SoftFdbKey&) const = default;
  friend std::size_t hash_value(const SoftFdbKey& key) { return boost::hash<std::uint64_t>()(key.bits_); }

 private:
  std::uint64_t bits_;
};

// An entry of the chip's table. A remote entry's next hop is kept beside
// the table (SoftFdbTable::nextHopOf): few entries are remote, and a next
// hop in every entry would take a quarter of its slot.
struct HwFdbEntry {
  Nexo::IntfId intf;
  Vex::Seconds lastSeen = 0;
  Bridging::EntryType entryType = Bridging::EntryType::entryDynamic;
  bool remote = false;
  bool learned = false;  // learned by the chip, not yet programmed by software
};

class SoftFdbHelper;
class SoftVlanTable;
class SoftLagTable;
class SoftTopologyTable;

class SoftFdbTable : public SoftTableOf<SoftFdbKey, HwFdbEntry, Vex::HashMap<SoftFdbKey, HwFdbEntry>> {
 public:
  static constexpr const char* tableName = "fdb";
  SoftFdbTable(SoftChip& chip, SoftFdbHelper& helper) : SoftTableOf(chip, tableName), helper_(helper) {}
  const HwFdbEntry* entry(const Bridging::MacVlanPair& key) const { return find(key); }
  // The helper that learns into this table: frames learn through it.
  SoftFdbHelper& helper() const { return helper_; }
  // The next hop of the key's remote entry; 0 for any other.
  std::uint64_t nextHopOf(const Bridging::MacVlanPair& key) const {
    if (nextHops_.empty()) return 0;
    auto it = nextHops_.find(key);
    return it == nextHops_.end() ? 0 : it->second;
  }
  // The key's entry is remote, through `nextHop`; or no longer remote.
  void nextHopIs(const Bridging::MacVlanPair& key, std::uint64_t nextHop) { nextHops_[key] = nextHop; }
  void nextHopDel(const Bridging::MacVlanPair& key) {
    if (!nextHops_.empty()) nextHops_.erase(key);
  }

 protected:
  // An array of rows in key order, so that dumps compare.
  void dumpEntries(JsonWriter& writer) const override;

 private:
  SoftFdbHelper& helper_;
  Vex::HashMap<SoftFdbKey, std::uint64_t> nextHops_;
};

// Indirect access: commands complete after the chip's acknowledgement delay
// for "fdb", busy when the fault plan says so, full when the table is. The
// outcome of each add that is still its key's last command goes back to
// the MAC machine; one that found the table full waits in the pipeline's
// overflow and is retried there. Flushes are commands too, carried out in
// their place among the others.
class SoftMacProgrammer : public Orb::OrbMacProgrammer {
 public:
  explicit SoftMacProgrammer(SoftFdbHelper* fdb) : fdb_(fdb) {}
  std::uint32_t writeToHw(const CmdPtr& cmd) override;
  void handleCmdDone(const CmdPtr& cmd) override;
  // The helper goes: answers still on their way find nobody to apply them.
  void detach() { fdb_ = nullptr; }

 private:
  void answer();

  SoftFdbHelper* fdb_;
  std::vector<CmdPtr> answering_;  // written, to be answered together
  std::vector<CmdPtr> answered_;   // the batch being answered; its memory kept
};

class SoftFdbHelper : public OrbHelper::OrbHelperMacAddrSm {
 public:
  // Direct: each add or remove is done when the call returns. Indirect: it
  // is a command through the MAC command pipeline; adds answer "accepted"
  // (addAccepted) and the outcome comes later, through hostOutcome.
  enum class Mode { direct, indirect };
  Mode mode() const { return mode_; }
  void modeIs(Mode mode) { mode_ = mode; }
  SoftMacProgrammer& programmer() { return *programmer_; }
  // Who puts a learned address into the table: the chip itself, or the
  // forwarding layer when it programs the reported learn.
  enum class Learning { hardware, software };
  Learning learning() const { return learning_; }
  void learningIs(Learning learning) { learning_ = learning; }
  // Learns reported in software learning mode and not programmed yet; they
  // age and flush like table entries.
  const Vex::HashMap<Bridging::MacVlanPair, HwFdbEntry>& reportedLearns() const { return reported_; }

  SoftFdbHelper(const Vex::Ptr<SoftChip>& chip, const Vex::Ptr<OrbTypes::MacTable>& macTable);
  ~SoftFdbHelper() override;

  const SoftFdbTable& table() const { return table_; }
  SoftFdbTable& table() { return table_; }
  std::uint32_t agingTime() const { return agingTime_; }
  bool learningOn(const Nexo::IntfId& intf) const { return !learningOffPort_.contains(intf); }
  bool learningOn(Bridging::VlanId vlanId) const { return !learningOffVlan_.contains(vlanId); }
  const Vex::HashSet<Nexo::IntfId>& learningOffPorts() const { return learningOffPort_; }
  const Vex::HashSet<Bridging::VlanId>& learningOffVlans() const { return learningOffVlan_; }
  std::uint64_t operations() const { return operations_; }
  // Room for `entries` in the table, and in the command pipeline when
  // commands go through it.
  void reserve(std::size_t entries) {
    table_.entries.reserve(entries);
    if (mode_ == Mode::indirect) programmer_->reserve(entries);
  }

  // A frame from `key.addr` arrived on `intf`: learn it (or refresh it).
  // False when the chip did not learn it (learning off, the port not a
  // member of the VLAN or blocking in its topology, or no room). In
  // software learning mode true means reported.
  bool learn(const Bridging::MacVlanPair& key, const Nexo::IntfId& intf);
  // An address the chip learned before and kept across a restart of the
  // agent, whatever its VLAN table holds now.
  bool holdLearn(const Bridging::MacVlanPair& key, const Nexo::IntfId& intf);
  // Traffic from a known address keeps it from aging.
  // `entry`, when the caller holds it, is the table's entry for `key`.
  void touch(const Bridging::MacVlanPair& key, HwFdbEntry* entry = nullptr);
  // Takes out dynamic entries idle for the aging time; returns how many.
  std::size_t ageSweep();

  std::uint32_t addHost(const Bridging::MacVlanPair& key, const Nexo::IntfId& intf, std::uint32_t tunnelId, bool flag,
                        Bridging::EntryType entryType) override;
  std::uint32_t addLearntLocalAndRemoveRemoteHost(const Bridging::MacVlanPair& key, const Nexo::IntfId& intf,
                                                  Bridging::EntryType entryType) override;
  std::uint32_t removeHost(const Bridging::MacVlanPair& key, Bridging::EntryType entryType) override;
  std::uint32_t addRemoteHost(const Bridging::MacVlanPair& key, const Nexo::IntfId& intf, std::uint64_t nextHopId,
                              std::uint32_t tunnelId, bool flag, Bridging::EntryType entryType, bool mpls) override;
  void flushVlanPort(int vlan, const Nexo::IntfId& intf) override;
  void flushVlan(Bridging::VlanId vlanId) override;
  void flushVlanLag(int vlan, const Nexo::IntfId& lag) override;
  void flushAll() override;
  void removeLag(const Nexo::IntfId& lag) override;
  void configureAgingTime(std::uint32_t seconds) override;
  void enableLearning(const Nexo::IntfId& intf, bool enable) override;
  void enableLearningOnVlan(Bridging::VlanId vlanId, bool enable) override;
  // A deleted VLAN's learned entries go, as a flush of the VLAN takes them.
  void handleVlanDelete(Bridging::VlanId vlanId) override { flushVlan(vlanId); }
  void showL2TableAll(unsigned) override {}
  void handleVerify() override {}
  void verifyLearning(const Nexo::IntfId&, bool) override {}
  void verifyLearningOnVlan(Bridging::VlanId, bool) override {}
  // The soft chip has no source-MAC check to switch.
  void configureSourceCheckCPUMac(bool) override {}
  void verifyRemoteHost(const Bridging::MacVlanPair&, std::uint64_t) override {}
  void verifyNumRemoteHost(std::uint32_t) override {}
  std::uint32_t getMaxRemoteMacs() override;
  void lookAheadAtHost(const Bridging::MacVlanPair& key) const override { Vex::lookAhead(table_.entries, key); }

  // Carries out an address command of the pipeline; its outcome.
  Orb::MacProgramStatus applyCommand(const Orb::IndirectAccessMacCmd& cmd, Vex::Seconds now);
  // Starts looking up the entry a command will be applied to.
  void lookAhead(const Orb::IndirectAccessMacCmd& cmd) const { Vex::lookAhead(table_.entries, cmd.key().key); }

 private:
  using FdbEntries = Vex::HashMap<SoftFdbKey, HwFdbEntry>;
  // The answer to one add: a planned fault, or full when it adds a key to a
  // table with no room.
  std::uint32_t addStatus(bool addsEntry);
  // Removes dynamic entries matching `match` from the table and the MAC table.
  template <class Match>
  std::size_t flushDynamic(Match match);
  // In indirect mode, queues the flush as a command and says so.
  bool queueFlush(Orb::IndirectAccessMacCmdType type, const Nexo::IntfId& intf, int vlan);
  // Flushes dynamic entries: all, of a VLAN, or of a port (on a VLAN, or on
  // every VLAN when `vlan` is negative).
  void flushNow(Orb::IndirectAccessMacCmdType type, const Nexo::IntfId& intf, std::int64_t vlan);
  void armAging();
  // Whether the chip's VLAN table lets a frame of the VLAN in on the port
  // (or on the LAG the port belongs to), and its topology lets the port
  // learn; a chip with no VLAN table lets every frame in.
  bool takesFrame(Bridging::VlanId vlanId, const Nexo::IntfId& intf) const;
  // The chip's VLAN, LAG and topology tables (null when it has none), found
  // again only once the chip's set of tables changed: every learn reads them.
  struct ChipTables {
    std::uint64_t generation = 0;
    const SoftVlanTable* vlans = nullptr;
    const SoftLagTable* lags = nullptr;
    const SoftTopologyTable* topologies = nullptr;
  };
  const ChipTables& chipTables() const;
  // `it` is the key's table entry, or the table's end.
  bool reportLearn(FdbEntries::iterator it, const Bridging::MacVlanPair& key, const Nexo::IntfId& intf);

  Vex::Ptr<SoftChip> chip_;
  mutable ChipTables chipTables_;
  Vex::Ptr<OrbTypes::MacTable> macTable_;
  SoftFdbTable table_;
  std::uint32_t agingTime_ = 0;
  Vex::HashSet<Nexo::IntfId> learningOffPort_;
  Vex::HashSet<Bridging::VlanId> learningOffVlan_;
  Vex::Ptr<Vex::Clock> agingClock_;
  std::uint64_t operations_ = 0;
  Mode mode_ = Mode::direct;
  Learning learning_ = Learning::hardware;
  Vex::HashMap<Bridging::MacVlanPair, HwFdbEntry> reported_;
  Vex::Ptr<SoftMacProgrammer> programmer_;
};

}  // namespace SoftChip
