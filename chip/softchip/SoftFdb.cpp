#include "chip/softchip/SoftFdb.h"

#include "chip/softchip/SoftLag.h"
#include "chip/softchip/SoftStp.h"
#include "chip/softchip/SoftSubIntf.h"
#include "chip/softchip/SoftVlan.h"

#include <algorithm>
#include <vector>

namespace SoftChip {

void SoftFdbTable::dumpEntries(JsonWriter& writer) const {
  std::vector<const std::pair<const SoftFdbKey, HwFdbEntry>*> sorted;
  for (const auto& row : entries) sorted.push_back(&row);
  std::sort(sorted.begin(), sorted.end(), [](auto* a, auto* b) { return a->first < b->first; });
  writer.StartArray();
  for (const auto* row : sorted) {
    const Bridging::MacVlanPair key = row->first;
    writer.StartObject();
    writer.Key("mac");
    writer.String(key.addr.stringValue().c_str());
    writer.Key("vlan");
    writer.Uint(key.vlanId.value());
    writer.Key("intf");
    writer.String(row->second.intf.stringValue().c_str());
    writer.Key("type");
    const char* word = Bridging::entryTypeWord(row->second.entryType);
    writer.String(word ? word : "other");
    if (row->second.remote) {
      writer.Key("nextHop");
      writer.Uint64(nextHopOf(key));
    }
    writer.EndObject();
  }
  writer.EndArray();
}

SoftFdbHelper::SoftFdbHelper(const Vex::Ptr<SoftChip>& chip, const Vex::Ptr<OrbTypes::MacTable>& macTable)
    : OrbHelperMacAddrSm("SoftFdbHelper"),
      chip_(chip),
      macTable_(macTable),
      table_(*chip, *this),
      agingClock_(Vex::clockFactory([this] {
        ageSweep();
        armAging();
      })) {
  programmer_ = Vex::make<SoftMacProgrammer>(this);
}

SoftFdbHelper::~SoftFdbHelper() {
  programmer_->detach();
  agingClock_->timeMinIs(Vex::never);
}

const SoftFdbHelper::ChipTables& SoftFdbHelper::chipTables() const {
  if (chipTables_.generation == chip_->tablesGeneration()) return chipTables_;
  chipTables_.generation = chip_->tablesGeneration();
  chipTables_.vlans = dynamic_cast<const SoftVlanTable*>(chip_->table(SoftVlanTable::tableName));
  chipTables_.lags = dynamic_cast<const SoftLagTable*>(chip_->table(SoftLagTable::tableName));
  chipTables_.topologies = dynamic_cast<const SoftTopologyTable*>(chip_->table(SoftTopologyTable::tableName));
  return chipTables_;
}

bool SoftFdbHelper::takesFrame(Bridging::VlanId vlanId, const Nexo::IntfId& intf) const {
  const auto* vlans = chipTables().vlans;
  if (!vlans) return true;
  const HwVlan* vlan = vlans->vlan(vlanId);
  if (!vlan) return false;
  if (intf.isSubIntf()) return subIntfBridgedIn(*chip_, vlanId, intf);
  const auto* lags = chipTables().lags;
  const Nexo::IntfId* lagOfIntf = lags ? lags->lagOf(intf) : nullptr;
  // A blocking or disabled port learns nothing; a learning one does.
  if (const auto* topologies = chipTables().topologies) {
    if (const HwTopology* topology = topologies->topologyOf(vlanId)) {
      for (const auto& port : {intf, lagOfIntf ? *lagOfIntf : intf}) {
        auto state = topology->portState.find(port);
        if (state != topology->portState.end() && !learns(state->second)) return false;
      }
    }
  }
  auto member = [&](const Nexo::IntfId& port) { return vlan->takesIn(port); };
  if (member(intf)) return true;
  // A LAG and its member ports share their VLANs, whichever of them the
  // VLAN table names.
  if (!lags) return false;
  auto lagMember = [&](const HwLag& lag) { return std::any_of(lag.members.begin(), lag.members.end(), member); };
  if (const HwLag* lag = lags->lag(intf)) return lagMember(*lag);
  if (lagOfIntf) {
    const HwLag* lag = lags->lag(*lagOfIntf);
    return member(*lagOfIntf) || (lag && lagMember(*lag));
  }
  return false;
}

bool SoftFdbHelper::learn(const Bridging::MacVlanPair& key, const Nexo::IntfId& intf) {
  if (!learningOn(intf) || !learningOn(key.vlanId) || !takesFrame(key.vlanId, intf)) return false;
  // Learning switched off on a LAG holds for the frames of its member ports.
  const auto* lags = chipTables().lags;
  const Nexo::IntfId* lag = lags ? lags->lagOf(intf) : nullptr;
  if (lag && !learningOn(*lag)) return false;
  return holdLearn(key, intf);
}

bool SoftFdbHelper::holdLearn(const Bridging::MacVlanPair& key, const Nexo::IntfId& intf) {
  if (learning_ == Learning::software) {
    auto it = table_.entries.find(key);
    // Static and remote entries do not move on a learn.
    if (it != table_.entries.end() && (it->second.entryType != Bridging::EntryType::entryDynamic || it->second.remote))
      return false;
    return reportLearn(it, key, intf);
  }
  // One look-up finds the entry or makes its place; a place made in a full
  // table is given back.
  bool full = !table_.hasRoom();
  auto [it, added] = table_.entries.try_emplace(key);
  if (added && full) {
    table_.entries.erase(it);
    return false;
  }
  auto& entry = it->second;
  if (!added && (entry.entryType != Bridging::EntryType::entryDynamic || entry.remote)) return false;
  entry.intf = intf;
  entry.entryType = Bridging::EntryType::entryDynamic;
  entry.remote = false;
  entry.lastSeen = Vex::now();
  entry.learned = true;
  macTable_->macEntryIs(key, OrbTypes::MacAddressTableEntry{key, intf, Bridging::EntryType::entryDynamic, {}, 0.0});
  return true;
}

bool SoftFdbHelper::reportLearn(FdbEntries::iterator it, const Bridging::MacVlanPair& key, const Nexo::IntfId& intf) {
  if (it != table_.entries.end() && it->second.intf == intf) {
    // Already programmed where it is: the frame only keeps it from aging.
    it->second.lastSeen = Vex::now();
    return true;
  }
  auto& reported = reported_[key];
  reported.intf = intf;
  reported.lastSeen = Vex::now();
  reported.learned = true;
  macTable_->macEntryIs(key, OrbTypes::MacAddressTableEntry{key, intf, Bridging::EntryType::entryDynamic, {}, 0.0});
  return true;
}

void SoftFdbHelper::touch(const Bridging::MacVlanPair& key, HwFdbEntry* entry) {
  if (!entry) entry = table_.find(key);
  if (entry) entry->lastSeen = Vex::now();
  if (reported_.empty()) return;
  if (auto reported = reported_.find(key); reported != reported_.end()) reported->second.lastSeen = Vex::now();
}

std::uint32_t SoftFdbHelper::addStatus(bool addsEntry) {
  ++operations_;
  switch (table_.nextFault()) {
    case Fault::busy:
      return OrbTypes::tableAddBusy;
    case Fault::full:
      return OrbTypes::tableAddFull;
    case Fault::failed:
      return 3;
    case Fault::none:
      break;
  }
  if (addsEntry && !table_.hasRoom()) return OrbTypes::tableAddFull;
  return OrbTypes::tableAddSuccess;
}

std::uint32_t SoftFdbHelper::addHost(const Bridging::MacVlanPair& key, const Nexo::IntfId& intf, std::uint32_t, bool,
                                     Bridging::EntryType entryType) {
  if (mode_ == Mode::indirect) {
    programmer_->handleAddrOp(Orb::indirectAccessMacCmdFactory(Orb::IndirectAccessMacCmdType::addrOp, {key}, intf,
                                                               entryType, 1, programmer_->nextTransactionId()));
    return addAccepted;  // the outcome comes later
  }
  // One look-up answers the add and then makes it.
  auto it = table_.entries.find(key);
  bool adds = it == table_.entries.end();
  std::uint32_t status = addStatus(adds);
  if (status != OrbTypes::tableAddSuccess) return status;
  if (!reported_.empty()) reported_.erase(key);
  if (adds) it = table_.entries.try_emplace(key).first;
  auto& entry = it->second;
  bool moved = entry.intf != intf;
  entry.intf = intf;
  entry.entryType = entryType;
  entry.remote = false;
  entry.learned = false;
  if (moved || entry.lastSeen == 0) entry.lastSeen = Vex::now();
  return status;
}

std::uint32_t SoftFdbHelper::addLearntLocalAndRemoveRemoteHost(const Bridging::MacVlanPair& key,
                                                               const Nexo::IntfId& intf,
                                                               Bridging::EntryType entryType) {
  return addHost(key, intf, 0, false, entryType);
}

std::uint32_t SoftFdbHelper::removeHost(const Bridging::MacVlanPair& key, Bridging::EntryType entryType) {
  if (mode_ == Mode::indirect) {
    programmer_->handleAddrOp(Orb::indirectAccessMacCmdFactory(Orb::IndirectAccessMacCmdType::addrOp, {key}, {},
                                                               entryType, 0, programmer_->nextTransactionId()));
    return 0;
  }
  ++operations_;
  if (table_.nextFault() != Fault::none) return 3;
  table_.entries.erase(key);
  table_.nextHopDel(key);
  reported_.erase(key);
  // A removed entry is gone from what the chip reports too.
  macTable_->macEntryDel(key);
  return 0;
}

std::uint32_t SoftFdbHelper::addRemoteHost(const Bridging::MacVlanPair& key, const Nexo::IntfId& intf,
                                           std::uint64_t nextHopId, std::uint32_t, bool, Bridging::EntryType entryType,
                                           bool) {
  std::uint32_t status = addStatus(!table_.entries.contains(key));
  if (status != OrbTypes::tableAddSuccess) return status;
  auto& entry = table_.entries[key];
  entry.intf = intf;
  entry.entryType = entryType;
  entry.remote = true;
  table_.nextHopIs(key, nextHopId);
  entry.learned = false;
  macTable_->macEntryDel(key);
  return status;
}

template <class Match>
std::size_t SoftFdbHelper::flushDynamic(Match match) {
  // One walk over the table takes the entries out; the MAC table's copies,
  // spread over a table of their own, go a looked-up stretch at a time.
  std::vector<Bridging::MacVlanPair> gone;
  for (auto it = table_.entries.begin(); it != table_.entries.end();) {
    auto at = it++;  // erasing leaves the other iterators valid
    const Bridging::MacVlanPair key = at->first;
    const HwFdbEntry& entry = at->second;
    if (entry.entryType != Bridging::EntryType::entryDynamic || entry.remote || !match(key, entry)) continue;
    gone.push_back(key);
    table_.entries.erase(at);
    table_.nextHopDel(key);
  }
  // Reported learns not programmed yet go the same way.
  for (auto it = reported_.begin(); it != reported_.end();) {
    auto at = it++;
    if (!match(at->first, at->second)) continue;
    gone.push_back(at->first);
    reported_.erase(at);
  }
  Vex::forEachLookingAhead(
      gone, [&](const auto& key) { Vex::lookAhead(macTable_->macEntry(), key); },
      [&](const auto& key) { macTable_->macEntryDel(key); });
  return gone.size();
}

bool SoftFdbHelper::queueFlush(Orb::IndirectAccessMacCmdType type, const Nexo::IntfId& intf, int vlan) {
  // Indirect access: the flush is a command behind those already queued,
  // so that an add written before it cannot bring back what it flushed.
  if (mode_ != Mode::indirect) return false;
  programmer_->handleFlushOp(Orb::indirectAccessMacCmdFactory(type, {}, intf, Bridging::EntryType::entryDynamic, vlan,
                                                              programmer_->nextTransactionId()));
  return true;
}

void SoftFdbHelper::flushNow(Orb::IndirectAccessMacCmdType type, const Nexo::IntfId& intf, std::int64_t vlan) {
  flushDynamic([&](const auto& key, const auto& entry) {
    bool vlanMatches = vlan < 0 || key.vlanId.value() == vlan;
    switch (type) {
      case Orb::IndirectAccessMacCmdType::flushAll:
        return true;
      case Orb::IndirectAccessMacCmdType::flushVlan:
        return vlanMatches;
      default:
        return vlanMatches && entry.intf == intf;
    }
  });
}

void SoftFdbHelper::flushVlanPort(int vlan, const Nexo::IntfId& intf) {
  auto type = vlan < 0 ? Orb::IndirectAccessMacCmdType::flushPort : Orb::IndirectAccessMacCmdType::flushVlanPort;
  if (!queueFlush(type, intf, vlan)) flushNow(type, intf, vlan);
}

void SoftFdbHelper::flushVlan(Bridging::VlanId vlanId) {
  if (!queueFlush(Orb::IndirectAccessMacCmdType::flushVlan, {}, vlanId.value())) {
    flushNow(Orb::IndirectAccessMacCmdType::flushVlan, {}, vlanId.value());
  }
}

void SoftFdbHelper::flushVlanLag(int vlan, const Nexo::IntfId& lag) { flushVlanPort(vlan, lag); }

void SoftFdbHelper::flushAll() {
  if (!queueFlush(Orb::IndirectAccessMacCmdType::flushAll, {}, -1)) {
    flushNow(Orb::IndirectAccessMacCmdType::flushAll, {}, -1);
  }
}

void SoftFdbHelper::removeLag(const Nexo::IntfId& lag) {
  flushDynamic([&](const auto&, const auto& entry) { return entry.intf == lag; });
}

std::size_t SoftFdbHelper::ageSweep() {
  if (agingTime_ == 0) return 0;
  Vex::Seconds now = Vex::now();
  return flushDynamic([&](const auto&, const auto& entry) { return entry.lastSeen + agingTime_ <= now; });
}

void SoftFdbHelper::armAging() {
  // Sweep four times per aging period, so an idle entry goes within a
  // quarter period of its time.
  agingClock_->timeMinIs(agingTime_ ? Vex::now() + std::max(1u, agingTime_ / 4) : Vex::never);
}

void SoftFdbHelper::configureAgingTime(std::uint32_t seconds) {
  // The agent writes the aging time again whenever it (re)starts; the same
  // time written again leaves the sweeps on their schedule, or an agent
  // restarting more often than a sweep period would keep anything from aging.
  if (seconds == agingTime_ && agingClock_->timeMin() != Vex::never) return;
  agingTime_ = seconds;
  armAging();
}

void SoftFdbHelper::enableLearning(const Nexo::IntfId& intf, bool enable) {
  if (enable) {
    learningOffPort_.erase(intf);
  } else {
    learningOffPort_.insert(intf);
  }
}

void SoftFdbHelper::enableLearningOnVlan(Bridging::VlanId vlanId, bool enable) {
  if (enable) {
    learningOffVlan_.erase(vlanId);
  } else {
    learningOffVlan_.insert(vlanId);
  }
}

Orb::MacProgramStatus SoftFdbHelper::applyCommand(const Orb::IndirectAccessMacCmd& cmd, Vex::Seconds now) {
  ++operations_;
  if (!cmd.addrOp()) {
    flushNow(cmd.type(), cmd.intf(), cmd.value());
    return Orb::MacProgramStatus::macProgramSuccess;
  }
  const auto& key = cmd.key().key;
  if (cmd.value() == 0) {
    table_.entries.erase(key);
    table_.nextHopDel(key);
    reported_.erase(key);
    macTable_->macEntryDel(key);
    return Orb::MacProgramStatus::macProgramSuccess;
  }
  auto [it, added] = table_.entries.try_emplace(key);
  if (added && table_.entries.size() > table_.capacity()) {
    table_.entries.erase(it);
    return Orb::MacProgramStatus::macProgramFull;
  }
  reported_.erase(key);
  auto& entry = it->second;
  if (entry.intf != cmd.intf() || entry.lastSeen == 0) entry.lastSeen = now;
  entry.intf = cmd.intf();
  entry.entryType = cmd.entryType();
  entry.remote = false;
  entry.learned = false;
  return Orb::MacProgramStatus::macProgramSuccess;
}

std::uint32_t SoftMacProgrammer::writeToHw(const CmdPtr& cmd) {
  // A chip whose helper went answers nothing more.
  if (!fdb_ || fdb_->table().nextFault() == Fault::busy) {
    return static_cast<std::uint32_t>(Orb::MacProgramStatus::macProgramBusy);
  }
  // The chip takes the command; the commands of one pass are answered
  // together after the chip's acknowledgement delay.
  if (answering_.empty()) {
    Vex::Ptr<SoftMacProgrammer> self(this);
    fdb_->table().ackIs([self] { self->answer(); });
  }
  answering_.push_back(cmd);
  return static_cast<std::uint32_t>(Orb::MacProgramStatus::macProgramInProgress);
}

void SoftMacProgrammer::handleCmdDone(const CmdPtr& cmd) {
  // Removes always succeed; a superseded add's outcome no longer counts.
  if (!fdb_ || !cmd->addrOp() || cmd->value() == 0 || cmd->invalid()) return;
  std::uint32_t status = 3;  // failed, or expired in flight
  if (cmd->status() == Orb::MacProgramStatus::macProgramSuccess) {
    status = OrbTypes::tableAddSuccess;
  } else if (cmd->status() == Orb::MacProgramStatus::macProgramFull) {
    status = OrbTypes::tableAddFull;
  }
  fdb_->hostOutcome(cmd->key().key, cmd->intf(), cmd->entryType(), status);
}

void SoftMacProgrammer::answer() {
  answered_.swap(answering_);
  if (fdb_) {
    Vex::Seconds now = Vex::now();
    Vex::forEachLookingAhead(
        answered_, [&](const CmdPtr& cmd) { fdb_->lookAhead(*cmd); },
        [&](const CmdPtr& cmd) { handleCmdResponse(cmd->transactionId(), 0, fdb_->applyCommand(*cmd, now)); });
  }
  answered_.clear();
  // The chip signals that outcomes are ready, as an interrupt would: look
  // at them now rather than at the next poll.
  if (fdb_) pollInProgressCmds();
}

std::uint32_t SoftFdbHelper::getMaxRemoteMacs() {
  std::size_t capacity = table_.capacity();
  return capacity == SoftChip::unlimited ? 0xffffffffu : static_cast<std::uint32_t>(capacity);
}

}  // namespace SoftChip
