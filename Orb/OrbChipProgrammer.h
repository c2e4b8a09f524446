// The MAC command pipeline for chips programmed by indirect-access commands:
// a command is written, the chip works on it, and its outcome arrives later
// under a transaction id.
//
// Commands wait first in first out (pendingMacOp). A new address command
// supersedes its key's pending one, which is then skipped as out of date,
// and its in-flight one, whose outcome then no longer counts: a superseded
// command that finds the table full is not kept for a retry, so a key
// always ends as its last command says;
// commands are filed under their keys a few at a time (before any look at
// pendingAddrOp and before every writing pass), so the older command is
// marked out of date at the latest then. A writing pass writes
// them in order, at least `updateQuantumofTimes` before it looks at the
// clock and then within `updateQuantum`; a key never has two operations in
// flight, and nothing is reordered past a key that waits. In-flight
// commands are polled every `pollReqFreq` and expire after `maxExecTime`.
// Address commands the table could not take wait in overflowAddrOp and are
// retried after a wait that doubles from the minimum to the maximum delay
// while the table stays full, and drops back once they fit. A writing pass
// whose head waits for its key, or that is suspended, leaves its clock
// unarmed: the poll that finishes the key, or resuming, wakes it.
//
// A chip layer derives from OrbMacProgrammer, supplies writeToHw (0 done,
// 2 busy, 5 accepted and in progress) and reports outcomes through
// handleCmdResponse.
#pragma once

#include "Orb/OrbBaseHelper.h"
#include "platform/types/Bridging.h"
#include "platform/vex/Clock.h"
#include "platform/vex/LookAhead.h"
#include "platform/vex/Value.h"

#include <boost/describe/enum.hpp>

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>

namespace Orb {

enum class MacHwKeyType : std::uint8_t { macHwKeyBridge, macHwKeyBridgeDwide, macHwKeyVfi };
BOOST_DESCRIBE_ENUM(MacHwKeyType, macHwKeyBridge, macHwKeyBridgeDwide, macHwKeyVfi)

// The key of one hardware MAC table slot.
struct MacEntryKey {
  Bridging::MacVlanPair key;
  MacHwKeyType macHwType = MacHwKeyType::macHwKeyBridge;
  auto operator<=>(const MacEntryKey&) const = default;
};
VEX_VALUE(MacEntryKey, "Orb::MacEntryKey", (key, macHwType))

// Write results are 0 (done), 2 (busy) and 5 (in progress); the others are
// outcomes a chip reports later.
enum class MacProgramStatus : std::uint8_t {
  macProgramSuccess = 0,
  macProgramFailed = 1,
  macProgramBusy = 2,
  macProgramFull = 3,
  macProgramFlushInProgress = 4,
  macProgramInProgress = 5,
  macProgramParityError = 6,
};
BOOST_DESCRIBE_ENUM(MacProgramStatus, macProgramSuccess, macProgramFailed, macProgramBusy, macProgramFull,
                    macProgramFlushInProgress, macProgramInProgress, macProgramParityError)

// An address operation (program or remove one key, by its value: 1 adds, 0
// removes) or a flush (all, one VLAN, one port, one VLAN on one port).
enum class IndirectAccessMacCmdType : std::uint8_t { addrOp, flushAll, flushVlan, flushPort, flushVlanPort };
BOOST_DESCRIBE_ENUM(IndirectAccessMacCmdType, addrOp, flushAll, flushVlan, flushPort, flushVlanPort)

class IndirectAccessMacCmd : public Vex::PtrInterface {
 public:
  IndirectAccessMacCmd(IndirectAccessMacCmdType type, const MacEntryKey& key, const Nexo::IntfId& intf,
                       Bridging::EntryType entryType, std::int64_t value, std::uint64_t transactionId)
      : key_(key), intf_(intf), value_(value), transactionId_(transactionId), type_(type), entryType_(entryType) {}

  IndirectAccessMacCmdType type() const { return type_; }
  const MacEntryKey& key() const { return key_; }
  const Nexo::IntfId& intf() const { return intf_; }
  Bridging::EntryType entryType() const { return entryType_; }
  std::int64_t value() const { return value_; }
  std::uint64_t transactionId() const { return transactionId_; }
  bool addrOp() const { return type_ == IndirectAccessMacCmdType::addrOp; }

  // Commands come and go by the hundred thousand: the memory of finished
  // ones is kept for the next.
  static void* operator new(std::size_t size);
  static void operator delete(void* memory, std::size_t size);

  bool valid() const { return valid_; }
  bool invalid() const { return !valid_; }
  void validIs(bool valid) { valid_ = valid; }
  MacProgramStatus status() const { return status_; }
  void statusIs(MacProgramStatus status) { status_ = status; }
  Vex::Seconds execStartTime() const { return execStartTime_; }
  void execStartTimeIs(Vex::Seconds t) { execStartTime_ = t; }
  // What the chip reported with the outcome.
  std::int64_t responseValue() const { return responseValue_; }
  void responseValueIs(std::int64_t value) { responseValue_ = value; }

 private:
  // The one-byte fields together at the end, where they share one word.
  MacEntryKey key_;
  Nexo::IntfId intf_;
  std::int64_t value_;
  std::uint64_t transactionId_;
  Vex::Seconds execStartTime_ = 0;
  std::int64_t responseValue_ = 0;
  IndirectAccessMacCmdType type_;
  Bridging::EntryType entryType_;
  bool valid_ = true;
  MacProgramStatus status_ = MacProgramStatus::macProgramInProgress;
};

Vex::Ptr<IndirectAccessMacCmd> indirectAccessMacCmdFactory(IndirectAccessMacCmdType type, const MacEntryKey& key,
                                                           const Nexo::IntfId& intf, Bridging::EntryType entryType,
                                                           std::int64_t value, std::uint64_t transactionId);

// Head index, next index and length of the pending queue.
struct PendingMacOpMetadata {
  std::uint32_t head = 0;
  std::uint32_t next = 0;
  std::uint32_t count = 0;
  auto operator<=>(const PendingMacOpMetadata&) const = default;
};
VEX_VALUE(PendingMacOpMetadata, "Orb::PendingMacOpMetadata", (head, next, count))

// Commands in flight, in transaction-id order. Commands reach the chip
// mostly in increasing id order, so this is a queue with holes: a finished
// command leaves an empty slot, dropped once it reaches either end.
class InFlightMacCmds {
 public:
  using CmdPtr = Vex::Ptr<IndirectAccessMacCmd>;

  bool empty() const { return count_ == 0; }
  std::size_t size() const { return count_; }
  std::size_t count(std::uint64_t transactionId) const { return find(transactionId) ? 1 : 0; }
  // The command in flight under this id, or null.
  const CmdPtr& find(std::uint64_t transactionId) const;
  // The command with the highest id.
  const CmdPtr& back() const;
  void insert(const CmdPtr& cmd);
  void erase(std::uint64_t transactionId);

  // Walking in id order: slots from `position(id)` (the first id at or
  // above `id`) on; an empty slot holds null. Slots leave the front only in
  // compact(), so positions stay put during a walk.
  std::size_t position(std::uint64_t transactionId) const;
  std::size_t slots() const { return slots_.size(); }
  std::uint64_t idAt(std::size_t position) const { return slots_[position].first; }
  const CmdPtr& at(std::size_t position) const { return slots_[position].second; }
  void compact();

 private:
  std::deque<std::pair<std::uint64_t, CmdPtr>> slots_;
  std::size_t count_ = 0;
};

// The address commands of each key: the one pending and the one in flight,
// side by side, so that one lookup serves both. Keys are packed into one
// word (48 address bits, 12 VLAN bits, 2 for the key type), which keeps a
// slot small and a burst of a few hundred thousand keys largely in cache.
// A burst fills the table and drains it again; erasing from a crowded hash
// table wears its room down until an insertion rebuilds it, so a table
// drained after many erasures is cleared instead: the next burst finds it
// fresh, without a rebuild, for one sweep of its metadata that those
// erasures pay for.
class AddrOpsByKey {
 public:
  using CmdPtr = Vex::Ptr<IndirectAccessMacCmd>;
  enum Stage : std::uint8_t { pending, inProg };

  // The key's command at `stage`, or null.
  const CmdPtr& find(const MacEntryKey& key, Stage stage) const;
  // Files `cmd` as its key's command at `stage`; the command it replaces.
  CmdPtr insert(const CmdPtr& cmd, Stage stage);
  // Files a newly queued `cmd` as its key's pending command; the key's
  // commands before it, pending or in flight, are out of date.
  void supersede(const CmdPtr& cmd);
  // Drops the key's command at `stage`; only if it is `only`, when given.
  void erase(const MacEntryKey& key, Stage stage, const IndirectAccessMacCmd* only = nullptr);
  // The key's pending command `cmd` goes in flight.
  void start(const CmdPtr& cmd);
  void reserve(std::size_t keys) { ops_.reserve(keys); }
  void lookAhead(const MacEntryKey& key) const { Vex::lookAhead(ops_, packed(key)); }

 private:
  static std::uint64_t packed(const MacEntryKey& key) {
    return key.key.addr.value() << 16 | std::uint64_t{key.key.vlanId.value()} << 2 |
           static_cast<std::uint64_t>(key.macHwType);
  }

  Vex::HashMap<std::uint64_t, std::array<CmdPtr, 2>> ops_;
  std::size_t erasures_ = 0;  // since the last clearing
};

class OrbMacProgrammer : public Vex::PtrInterface {
 public:
  using CmdPtr = Vex::Ptr<IndirectAccessMacCmd>;

  OrbMacProgrammer();
  ~OrbMacProgrammer() override;

  // Tunables.
  Vex::Seconds updateQuantum() const { return updateQuantum_; }
  void updateQuantumIs(Vex::Seconds s) { updateQuantum_ = s; }
  std::uint32_t updateQuantumofTimes() const { return updateQuantumofTimes_; }
  void updateQuantumofTimesIs(std::uint32_t n) { updateQuantumofTimes_ = n; }
  Vex::Seconds updateDelay() const { return updateDelay_; }
  void updateDelayIs(Vex::Seconds s) { updateDelay_ = s; }
  Vex::Seconds pollReqQuantum() const { return pollReqQuantum_; }
  void pollReqQuantumIs(Vex::Seconds s) { pollReqQuantum_ = s; }
  std::uint32_t pollReqQuantumofTimes() const { return pollReqQuantumofTimes_; }
  void pollReqQuantumofTimesIs(std::uint32_t n) { pollReqQuantumofTimes_ = n; }
  Vex::Seconds pollReqFreq() const { return pollReqFreq_; }
  void pollReqFreqIs(Vex::Seconds s) { pollReqFreq_ = s; }
  Vex::Seconds maxExecTime() const { return maxExecTime_; }
  void maxExecTimeIs(Vex::Seconds s) { maxExecTime_ = s; }
  Vex::Seconds updateOverflowAddressMinDelay() const { return updateOverflowAddressMinDelay_; }
  void updateOverflowAddressMinDelayIs(Vex::Seconds s) { updateOverflowAddressMinDelay_ = s; }
  Vex::Seconds updateOverflowAddressDelay() const { return updateOverflowAddressDelay_; }
  void updateOverflowAddressDelayIs(Vex::Seconds s) { updateOverflowAddressDelay_ = s; }
  Vex::Seconds updateOverflowAddressMaxDelay() const { return updateOverflowAddressMaxDelay_; }
  void updateOverflowAddressMaxDelayIs(Vex::Seconds s) { updateOverflowAddressMaxDelay_ = s; }
  bool overflowLogged() const { return overflowLogged_; }
  void overflowLoggedIs(bool logged) { overflowLogged_ = logged; }
  bool suspendPending() const { return suspendPending_; }
  void suspendPendingIs(bool suspend);
  bool suspendInProgress() const { return suspendInProgress_; }
  void suspendInProgressIs(bool suspend);
  bool initialized() const { return initialized_; }
  void initializedIs(bool initialized);

  // The pending queue.
  // In order; the front has index pendingMacOpMetadata().head.
  const std::deque<CmdPtr>& pendingMacOp() const { return pendingMacOp_; }
  const PendingMacOpMetadata& pendingMacOpMetadata() const { return pendingMacOpMetadata_; }
  void pendingMacOpEnq(const CmdPtr& cmd);
  CmdPtr pendingMacOpDeq();
  CmdPtr pendingAddrOp(const MacEntryKey& key) const {
    fileQueued();
    return addrOps_.find(key, AddrOpsByKey::pending);
  }
  bool pendingAddrOpHas(const MacEntryKey& key) const { return pendingAddrOp(key) != nullptr; }
  void pendingAddrOpIs(const CmdPtr& cmd) {
    fileQueued();
    addrOps_.insert(cmd, AddrOpsByKey::pending);
  }
  void pendingAddrOpDel(const MacEntryKey& key) {
    fileQueued();
    addrOps_.erase(key, AddrOpsByKey::pending);
  }
  void pendingFlushOpIs(std::uint64_t id, const CmdPtr& cmd) { pendingFlushOp_[id] = cmd; }
  void pendingFlushOpDel(std::uint64_t id) { pendingFlushOp_.erase(id); }
  std::size_t pendingFlushOpSize() const { return pendingFlushOp_.size(); }

  // In flight.
  const InFlightMacCmds& inProgMacOp() const { return inProgMacOp_; }
  void inProgMacOpIs(const CmdPtr& cmd) { inProgMacOp_.insert(cmd); }
  void inProgMacOpDel(std::uint64_t transactionId) { inProgMacOp_.erase(transactionId); }
  std::uint64_t inProgMacOpBookmark() const { return inProgMacOpBookmark_; }
  CmdPtr inProgAddrOp(const MacEntryKey& key) const { return addrOps_.find(key, AddrOpsByKey::inProg); }
  bool inProgAddrOpHas(const MacEntryKey& key) const { return addrOps_.find(key, AddrOpsByKey::inProg) != nullptr; }
  void inProgAddrOpIs(const CmdPtr& cmd) { addrOps_.insert(cmd, AddrOpsByKey::inProg); }
  void inProgAddrOpDel(const MacEntryKey& key) { addrOps_.erase(key, AddrOpsByKey::inProg); }
  // Room for this many keys with commands at once.
  void reserve(std::size_t keys) { addrOps_.reserve(keys); }

  // Address commands the table could not take.
  const std::map<MacEntryKey, CmdPtr>& overflowAddrOp() const { return overflowAddrOp_; }
  void overflowAddrOpIs(const CmdPtr& cmd);
  void overflowAddrOpDel(const MacEntryKey& key) { overflowAddrOp_.erase(key); }

  const Vex::Ptr<Vex::Clock>& updatePendingAddressClock() const { return updatePendingAddressClock_; }
  const Vex::Ptr<Vex::Clock>& pollReqClock() const { return pollReqClock_; }
  const Vex::Ptr<Vex::Clock>& updateOverflowAddressClock() const { return updateOverflowAddressClock_; }

  // A fresh transaction id for a new command.
  std::uint64_t nextTransactionId() { return ++lastTransactionId_; }

  virtual void handleInitialized() {}
  // The chip's outcome for a command in flight.
  virtual void handleCmdResponse(std::uint64_t transactionId, std::int64_t value, MacProgramStatus status);
  // Writes one command; 0 done, 2 busy, 5 in progress.
  virtual std::uint32_t writeToHw(const CmdPtr& cmd);
  virtual void writeToHwShadow(const CmdPtr&) {}
  // A new address command; it supersedes the key's pending one.
  virtual void handleAddrOp(const CmdPtr& cmd);
  virtual void handleFlushOp(const CmdPtr& cmd);
  // A finished command, for the chip layer to act on its outcome.
  virtual void handleCmdDone(const CmdPtr&) {}

  void updatePendingAddresses();
  void pollInProgressCmds();
  void updateOverflowAddresses();

 protected:
  void vexDoZombieReactors(bool zombie);

 private:
  void armUpdate(Vex::Seconds at);
  void armUpdateNow();
  void armPoll();
  void finish(const CmdPtr& cmd);
  void queue(const CmdPtr& cmd);
  // Files the commands queued since the last filing as their keys' pending
  // ones, marking the ones they supersede out of date.
  void fileQueued() const;
  // Looks up the keys of the next few commands in the queue together, so
  // that their cache misses overlap; how many.
  std::uint32_t lookAheadPending() const;
  // The same for the in-flight commands from slot `from`; where it stopped.
  std::size_t lookAheadInFlight(std::size_t from) const;

  Vex::Seconds updateQuantum_ = 0.01;
  std::uint32_t updateQuantumofTimes_ = 128;
  Vex::Seconds updateDelay_ = 0.2;
  Vex::Seconds pollReqQuantum_ = 0.01;
  std::uint32_t pollReqQuantumofTimes_ = 128;
  Vex::Seconds pollReqFreq_ = 0.1;
  Vex::Seconds maxExecTime_ = 1.0;
  Vex::Seconds updateOverflowAddressMinDelay_ = 5.0;
  Vex::Seconds updateOverflowAddressDelay_ = 5.0;
  Vex::Seconds updateOverflowAddressMaxDelay_ = 30.0;
  bool overflowLogged_ = false;
  bool suspendPending_ = false;
  bool suspendInProgress_ = false;
  bool initialized_ = false;

  std::deque<CmdPtr> pendingMacOp_;
  PendingMacOpMetadata pendingMacOpMetadata_;
  // pendingAddrOp and inProgAddrOp. Queued address commands are filed as
  // pending a stretch at a time, so that the stretch's lookups overlap: the
  // last `unfiled_` commands of the queue are not filed yet. Whatever reads
  // pendingAddrOp, or the queue's head, files them first.
  mutable AddrOpsByKey addrOps_;
  mutable std::uint32_t unfiled_ = 0;
  std::map<std::uint64_t, CmdPtr> pendingFlushOp_;
  InFlightMacCmds inProgMacOp_;
  std::uint64_t inProgMacOpBookmark_ = 0;
  std::map<MacEntryKey, CmdPtr> overflowAddrOp_;
  std::optional<MacEntryKey> overflowAddrOpBookmark_;
  bool updateArmedNow_ = false;  // the writer is due; no need to read the clock
  bool retried_ = false;         // the last overflow pass re-queued commands
  std::uint64_t lastTransactionId_ = 0;
  Vex::Ptr<Vex::Clock> updatePendingAddressClock_;
  Vex::Ptr<Vex::Clock> pollReqClock_;
  Vex::Ptr<Vex::Clock> updateOverflowAddressClock_;
};

}  // namespace Orb
