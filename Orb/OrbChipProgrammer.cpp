#include "Orb/OrbChipProgrammer.h"

#include "Orb/OrbTrace.h"
#include "platform/vex/TimeSlice.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace Orb {

namespace {

Blip::Handle& trace() {
  static Blip::Handle& handle = orbTraceHandle("OrbChipProgrammer");
  return handle;
}

// Past the minimum count, a pass reads the clock every few commands only:
// a reading costs about as much as writing a command.
constexpr std::uint32_t clockReadStride = 16;
bool timeToLook(std::uint32_t handled, std::uint32_t minimum) {
  return handled >= minimum && (handled - minimum) % clockReadStride == 0;
}

std::string cmdText(const IndirectAccessMacCmd& cmd) {
  return fmt::format(" cmd entry: {} vlan {} transactionId: {} op {}", cmd.key().key.addr.stringValue(),
                     cmd.key().key.vlanId.value(), cmd.transactionId(), Vex::valueToStrep(cmd.type()));
}

// Commands' memory, carved from blocks that are never given back. Free
// slots wait in a stack of addresses rather than a list threaded through
// the slots: taking one then never waits for a slot's memory to arrive.
class CmdPool {
 public:
  void* take() {
    if (free_.empty()) grow();
    void* slot = free_.back();
    free_.pop_back();
    // The memory of the next few commands is likely cold: ask for it now.
    if (free_.size() > prefetchAhead) {
      auto* ahead = static_cast<const char*>(free_[free_.size() - prefetchAhead]);
      Vex::prefetchMemory(ahead);
      Vex::prefetchMemory(ahead + sizeof(IndirectAccessMacCmd) - 1);
    }
    return slot;
  }
  void give(void* slot) { free_.push_back(slot); }

 private:
  static constexpr std::size_t blockCmds = 4096;
  static constexpr std::size_t prefetchAhead = 8;
  void grow() {
    auto* block = static_cast<char*>(::operator new(blockCmds * sizeof(IndirectAccessMacCmd)));
    blocks_.push_back(block);
    // Stacked last first, so that commands are handed out in address order.
    for (std::size_t i = blockCmds; i-- > 0;) free_.push_back(block + i * sizeof(IndirectAccessMacCmd));
  }
  std::vector<void*> free_;
  std::vector<char*> blocks_;
};
CmdPool& cmdPool() {
  // One thread only, as every reaction; never destroyed, so that commands
  // outliving static destruction still have somewhere to go.
  static CmdPool& pool = *new CmdPool;
  return pool;
}

}  // namespace

void* IndirectAccessMacCmd::operator new(std::size_t size) {
  return size == sizeof(IndirectAccessMacCmd) ? cmdPool().take() : ::operator new(size);
}

void IndirectAccessMacCmd::operator delete(void* memory, std::size_t size) {
  if (size == sizeof(IndirectAccessMacCmd)) {
    cmdPool().give(memory);
  } else {
    ::operator delete(memory);
  }
}

Vex::Ptr<IndirectAccessMacCmd> indirectAccessMacCmdFactory(IndirectAccessMacCmdType type, const MacEntryKey& key,
                                                           const Nexo::IntfId& intf, Bridging::EntryType entryType,
                                                           std::int64_t value, std::uint64_t transactionId) {
  return Vex::make<IndirectAccessMacCmd>(type, key, intf, entryType, value, transactionId);
}

const InFlightMacCmds::CmdPtr& InFlightMacCmds::find(std::uint64_t transactionId) const {
  static const CmdPtr none;
  std::size_t at = position(transactionId);
  return at < slots_.size() && slots_[at].first == transactionId ? slots_[at].second : none;
}

const InFlightMacCmds::CmdPtr& InFlightMacCmds::back() const {
  static const CmdPtr none;
  for (auto it = slots_.rbegin(); it != slots_.rend(); ++it) {
    if (it->second) return it->second;
  }
  return none;
}

std::size_t InFlightMacCmds::position(std::uint64_t transactionId) const {
  if (slots_.empty() || transactionId <= slots_.front().first) return 0;
  // Ids in flight are mostly consecutive: try where they would be then.
  std::uint64_t guess = transactionId - slots_.front().first;
  if (guess < slots_.size() && slots_[guess].first == transactionId) return static_cast<std::size_t>(guess);
  auto it = std::lower_bound(slots_.begin(), slots_.end(), transactionId,
                             [](const auto& slot, std::uint64_t id) { return slot.first < id; });
  return static_cast<std::size_t>(it - slots_.begin());
}

void InFlightMacCmds::insert(const CmdPtr& cmd) {
  std::uint64_t id = cmd->transactionId();
  if (slots_.empty() || slots_.back().first < id) {
    slots_.emplace_back(id, cmd);
    ++count_;
    return;
  }
  std::size_t at = position(id);
  if (at < slots_.size() && slots_[at].first == id) {
    if (!slots_[at].second) ++count_;
    slots_[at].second = cmd;
    return;
  }
  slots_.emplace(slots_.begin() + static_cast<std::ptrdiff_t>(at), id, cmd);
  ++count_;
}

void InFlightMacCmds::erase(std::uint64_t transactionId) {
  std::size_t at = position(transactionId);
  if (at == slots_.size() || slots_[at].first != transactionId || !slots_[at].second) return;
  slots_[at].second.reset();
  --count_;
  while (!slots_.empty() && !slots_.back().second) slots_.pop_back();
}

void InFlightMacCmds::compact() {
  while (!slots_.empty() && !slots_.front().second) slots_.pop_front();
}

const AddrOpsByKey::CmdPtr& AddrOpsByKey::find(const MacEntryKey& key, Stage stage) const {
  static const CmdPtr none;
  auto it = ops_.find(packed(key));
  return it == ops_.end() ? none : it->second[stage];
}

AddrOpsByKey::CmdPtr AddrOpsByKey::insert(const CmdPtr& cmd, Stage stage) {
  return std::exchange(ops_[packed(cmd->key())][stage], cmd);
}

void AddrOpsByKey::supersede(const CmdPtr& cmd) {
  auto& ops = ops_[packed(cmd->key())];
  if (ops[pending]) ops[pending]->validIs(false);
  if (ops[inProg]) ops[inProg]->validIs(false);
  ops[pending] = cmd;
}

void AddrOpsByKey::start(const CmdPtr& cmd) {
  auto& ops = ops_[packed(cmd->key())];
  ops[pending].reset();
  ops[inProg] = cmd;
}

void AddrOpsByKey::erase(const MacEntryKey& key, Stage stage, const IndirectAccessMacCmd* only) {
  auto it = ops_.find(packed(key));
  if (it == ops_.end()) return;
  CmdPtr& cmd = it->second[stage];
  if (!cmd || (only && cmd.get() != only)) return;
  cmd.reset();
  if (it->second[stage == pending ? inProg : pending]) return;
  ops_.erase(it);
  if (++erasures_ >= ops_.bucket_count() / 8 && ops_.empty()) {
    ops_.clear();
    erasures_ = 0;
  }
}

OrbMacProgrammer::OrbMacProgrammer()
    : updatePendingAddressClock_(Vex::clockFactory([this] { updatePendingAddresses(); })),
      pollReqClock_(Vex::clockFactory([this] { pollInProgressCmds(); })),
      updateOverflowAddressClock_(Vex::clockFactory([this] { updateOverflowAddresses(); })) {
  initializedIs(true);
}

OrbMacProgrammer::~OrbMacProgrammer() {
  vexDoZombieReactors(true);
  for (auto* clock : {&updatePendingAddressClock_, &pollReqClock_, &updateOverflowAddressClock_}) {
    (*clock)->timeMinIs(Vex::never);
  }
}

void OrbMacProgrammer::vexDoZombieReactors(bool zombie) {
  for (auto* clock : {&updatePendingAddressClock_, &pollReqClock_, &updateOverflowAddressClock_}) {
    (*clock)->vexDoZombieReactors(zombie);
  }
}

void OrbMacProgrammer::initializedIs(bool initialized) {
  if (initialized == initialized_) return;
  initialized_ = initialized;
  if (initialized_) handleInitialized();
}

void OrbMacProgrammer::suspendPendingIs(bool suspend) {
  suspendPending_ = suspend;
  if (!suspend && !pendingMacOp_.empty()) armUpdate(Vex::now());
}

void OrbMacProgrammer::suspendInProgressIs(bool suspend) {
  suspendInProgress_ = suspend;
  if (!suspend) armPoll();
}

void OrbMacProgrammer::pendingMacOpEnq(const CmdPtr& cmd) {
  fileQueued();
  queue(cmd);
}

void OrbMacProgrammer::queue(const CmdPtr& cmd) {
  pendingMacOp_.push_back(cmd);
  ++pendingMacOpMetadata_.next;
  ++pendingMacOpMetadata_.count;
}

OrbMacProgrammer::CmdPtr OrbMacProgrammer::pendingMacOpDeq() {
  if (pendingMacOp_.empty()) return nullptr;
  fileQueued();
  CmdPtr cmd = std::move(pendingMacOp_.front());
  pendingMacOp_.pop_front();
  --pendingMacOpMetadata_.count;
  ++pendingMacOpMetadata_.head;
  return cmd;
}

std::uint32_t OrbMacProgrammer::writeToHw(const CmdPtr&) {
  return unimplementedOperation("OrbMacProgrammer", "writeToHw");
}

void OrbMacProgrammer::handleAddrOp(const CmdPtr& cmd) {
  // The newer command is what the key wants now.
  if (!overflowAddrOp_.empty()) overflowAddrOpDel(cmd->key());
  queue(cmd);
  if (++unfiled_ == Vex::lookAheadDistance) fileQueued();
  armUpdateNow();
}

void OrbMacProgrammer::handleFlushOp(const CmdPtr& cmd) {
  pendingFlushOpIs(cmd->transactionId(), cmd);
  pendingMacOpEnq(cmd);
  armUpdateNow();
}

void OrbMacProgrammer::fileQueued() const {
  if (unfiled_ == 0) return;
  auto from = pendingMacOp_.end() - unfiled_;
  for (auto it = from; it != pendingMacOp_.end(); ++it) addrOps_.lookAhead((*it)->key());
  for (auto it = from; it != pendingMacOp_.end(); ++it) addrOps_.supersede(*it);
  unfiled_ = 0;
}

void OrbMacProgrammer::handleCmdResponse(std::uint64_t transactionId, std::int64_t value, MacProgramStatus status) {
  BLIP(trace(), 7, "OrbMacProgrammer::handleCmdResponse transactionId {} status {}", transactionId,
       Vex::valueToStrep(status));
  const CmdPtr& cmd = inProgMacOp_.find(transactionId);
  if (!cmd) return;
  cmd->responseValueIs(value);
  cmd->statusIs(status);
}

void OrbMacProgrammer::armUpdate(Vex::Seconds at) {
  // The writer's clock only ever moves earlier.
  if (updatePendingAddressClock_->timeMin() > at) updatePendingAddressClock_->timeMinIs(at);
}

void OrbMacProgrammer::armUpdateNow() {
  // A burst of commands reads the clock once: the writer is due already.
  if (updateArmedNow_) return;
  armUpdate(Vex::now());
  updateArmedNow_ = true;
}

void OrbMacProgrammer::armPoll() {
  if (inProgMacOp_.empty() || suspendInProgress_) return;
  Vex::Seconds at = Vex::now() + pollReqFreq_;
  if (pollReqClock_->timeMin() > at) pollReqClock_->timeMinIs(at);
}

void OrbMacProgrammer::updatePendingAddresses() {
  BLIP(trace(), 8, "updatePendingAddresses");
  updateArmedNow_ = false;
  Vex::Seconds start = Vex::now();
  Vex::Seconds deadline = start + updateQuantum_;
  Vex::TimeSlice slice("mac writing pass", updateQuantum_, updateQuantumofTimes_);
  std::uint32_t handled = 0;
  bool busy = false, blocked = false;
  fileQueued();
  std::uint32_t lookedAheadTo = pendingMacOpMetadata_.head;
  while (!pendingMacOp_.empty()) {
    if (suspendPending_) break;
    if (pendingMacOpMetadata_.head == lookedAheadTo) lookedAheadTo += lookAheadPending();
    CmdPtr cmd = pendingMacOp_.front();
    if (cmd->invalid()) {
      BLIP(trace(), 7, "{} is out-of-date, skip it", cmdText(*cmd));
      pendingMacOpDeq();
      continue;
    }
    ++handled;
    if (cmd->addrOp() && inProgAddrOpHas(cmd->key())) {
      blocked = true;
      break;
    }
    inProgMacOpIs(cmd);
    std::uint32_t result = writeToHw(cmd);
    BLIP(trace(), 8, "{} write to hardware result : {}", cmdText(*cmd), result);
    if (result == static_cast<std::uint32_t>(MacProgramStatus::macProgramSuccess)) {
      inProgMacOpDel(cmd->transactionId());
      pendingMacOpDeq();
      if (cmd->addrOp()) {
        ORB_ASSERT_AT("/src/Orb/OrbChipProgrammer", pendingAddrOpHas(cmd->key()), "pendingAddrOpHas( cmd->key() )");
        pendingAddrOpDel(cmd->key());
      } else {
        pendingFlushOpDel(cmd->transactionId());
      }
      cmd->statusIs(MacProgramStatus::macProgramSuccess);
      handleCmdDone(cmd);
    } else if (result == static_cast<std::uint32_t>(MacProgramStatus::macProgramInProgress)) {
      pendingMacOpDeq();
      if (cmd->addrOp()) {
        addrOps_.start(cmd);
      } else {
        pendingFlushOpDel(cmd->transactionId());
      }
      cmd->execStartTimeIs(start);
    } else if (result == static_cast<std::uint32_t>(MacProgramStatus::macProgramBusy)) {
      inProgMacOpDel(cmd->transactionId());
      busy = true;
      break;
    } else {
      orbAssertAt("/src/Orb/OrbChipProgrammer", __LINE__, fmt::format("unexpected write result {}", result));
    }
    slice.itemDone();
    if (timeToLook(handled, updateQuantumofTimes_) && Vex::now() > deadline) break;
  }
  Vex::Seconds now = Vex::now();
  if (blocked || suspendPending_) {
    // The head waits for its key's operation in flight (the poll that sees
    // it finish wakes the writer), or writing is suspended (resuming wakes
    // it): no point spinning meanwhile.
    updatePendingAddressClock_->timeMinIs(Vex::never);
  } else if (!pendingMacOp_.empty()) {
    BLIP(trace(), 8, "Schedule review for pending items");
    armUpdate(busy ? now + updateDelay_ : now);
  } else {
    BLIP(trace(), 8, "Nothing is pending. Stop");
    updatePendingAddressClock_->timeMinIs(Vex::never);
  }
  if (!inProgMacOp_.empty()) {
    BLIP(trace(), 8, "In-progress cmd exists. Schedule review.");
    armPoll();
  }
}

std::uint32_t OrbMacProgrammer::lookAheadPending() const {
  auto ahead = static_cast<std::uint32_t>(std::min(pendingMacOp_.size(), Vex::lookAheadDistance));
  for (std::uint32_t i = 0; i < ahead; ++i) {
    addrOps_.lookAhead(pendingMacOp_[i]->key());
  }
  // And the commands of the stretch after, whose keys the next round reads.
  for (std::size_t i = ahead; i < std::min(pendingMacOp_.size(), 2 * Vex::lookAheadDistance); ++i) {
    Vex::prefetchMemory(pendingMacOp_[i].get());
  }
  return ahead;
}

std::size_t OrbMacProgrammer::lookAheadInFlight(std::size_t from) const {
  std::size_t to = std::min(from + Vex::lookAheadDistance, inProgMacOp_.slots());
  for (std::size_t at = from; at < to; ++at) {
    if (const CmdPtr& cmd = inProgMacOp_.at(at)) addrOps_.lookAhead(cmd->key());
  }
  for (std::size_t at = to; at < std::min(to + Vex::lookAheadDistance, inProgMacOp_.slots()); ++at) {
    Vex::prefetchMemory(inProgMacOp_.at(at).get());
  }
  return to;
}

void OrbMacProgrammer::finish(const CmdPtr& cmd) {
  inProgMacOpDel(cmd->transactionId());
  if (cmd->addrOp()) addrOps_.erase(cmd->key(), AddrOpsByKey::inProg, cmd.get());
  // A newer command for the key says what it must hold: an out-of-date
  // command that found no room is not retried over it.
  if (cmd->addrOp() && cmd->status() == MacProgramStatus::macProgramFull && cmd->valid()) {
    overflowAddrOpIs(cmd);
  } else if (cmd->status() == MacProgramStatus::macProgramSuccess && overflowAddrOp_.empty()) {
    // The condition is over: log it again if it comes back, from the
    // shortest wait.
    overflowLogged_ = false;
    retried_ = false;
  }
  handleCmdDone(cmd);
}

void OrbMacProgrammer::pollInProgressCmds() {
  if (suspendInProgress_) return;
  // Commands queued since the last filing may supersede ones in flight.
  fileQueued();
  Vex::Seconds start = Vex::now();
  Vex::TimeSlice slice("mac polling pass", pollReqQuantum_, pollReqQuantumofTimes_);
  std::uint32_t handled = 0;
  std::size_t at = inProgMacOp_.position(inProgMacOpBookmark_);
  std::size_t lookedAheadTo = at;
  while (at < inProgMacOp_.slots()) {
    if (at == lookedAheadTo) lookedAheadTo = lookAheadInFlight(at);
    CmdPtr cmd = inProgMacOp_.at(at++);
    if (!cmd) continue;
    ++handled;
    if (cmd->status() != MacProgramStatus::macProgramInProgress &&
        cmd->status() != MacProgramStatus::macProgramFlushInProgress) {
      finish(cmd);
    } else if (start - cmd->execStartTime() > maxExecTime_) {
      BLIP(trace(), 3, "{} has been in flight longer than {} s: expired", cmdText(*cmd), maxExecTime_);
      cmd->statusIs(MacProgramStatus::macProgramFailed);
      finish(cmd);
    }
    slice.itemDone();
    if (timeToLook(handled, pollReqQuantumofTimes_) && at < inProgMacOp_.slots() &&
        Vex::now() - start > pollReqQuantum_) {
      inProgMacOpBookmark_ = inProgMacOp_.idAt(at);
      inProgMacOp_.compact();
      pollReqClock_->timeMinIs(Vex::now());
      return;
    }
  }
  inProgMacOpBookmark_ = 0;
  inProgMacOp_.compact();
  armPoll();
  // Keys whose operation finished may let waiting commands go.
  if (!pendingMacOp_.empty()) armUpdate(Vex::now());
}

void OrbMacProgrammer::overflowAddrOpIs(const CmdPtr& cmd) {
  overflowAddrOp_[cmd->key()] = cmd;
  if (!overflowLogged_) {
    BLIP(trace(), 1, "MAC table overflow: {} waits for room", cmdText(*cmd));
    overflowLogged_ = true;
  }
  if (updateOverflowAddressClock_->timeMin() != Vex::never) return;
  // Retried commands that overflow again wait twice as long, up to the
  // maximum; a fresh overflow waits the minimum.
  updateOverflowAddressDelay_ = retried_ ? std::min(updateOverflowAddressMaxDelay_, updateOverflowAddressDelay_ * 2)
                                         : updateOverflowAddressMinDelay_;
  retried_ = false;
  updateOverflowAddressClock_->timeMinIs(Vex::now() + updateOverflowAddressDelay_);
}

void OrbMacProgrammer::updateOverflowAddresses() {
  std::vector<CmdPtr> retry;
  for (const auto& [key, cmd] : overflowAddrOp_) retry.push_back(cmd);
  overflowAddrOp_.clear();
  overflowAddrOpBookmark_.reset();
  retried_ = !retry.empty();
  for (const auto& cmd : retry) {
    if (pendingAddrOpHas(cmd->key())) continue;  // something newer is on its way
    handleAddrOp(indirectAccessMacCmdFactory(cmd->type(), cmd->key(), cmd->intf(), cmd->entryType(), cmd->value(),
                                             nextTransactionId()));
  }
}

}  // namespace Orb
