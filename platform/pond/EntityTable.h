// Pond tables as attributes of an entity, in the entity vocabulary: inside
// the entity's Notifiee
//
//   POND_TABLE_HANDLERS(HwFecIdRequest, Pond::Fib::FecId)
//
// declares handleHwFecIdRequest(key), handleHwFecIdRequestMountStatus(),
// handleHwFecIdRequestQuiesced(bool) and handleHwFecIdRequestRescanned() (a
// reader fell a lap behind the change log: every present key was reported
// again, keys deleted meanwhile were not); in the entity (a Pond::TableEntity)
//
//   POND_TABLE(Orb::HwFecIdRequest, key, hwFecIdRequest, HwFecIdRequest)
//
// gives, for table `x`:
//   x(key)            the row, or an empty row when there is none
//   xFind(key)        the row, or nullopt
//   xHas(key), xSize()
//   xIs(row)          writes or replaces the row; false when the table is full
//   xCommit(row)      writes even an unchanged row and wakes readers at once
//   xDel(key), xDelAll()
//   xQuiescedIs(b)    the writer says whether it has written all it knows
//   xControlIs(c)     binds the table to its segment (Pond::TableControl); a
//                     reader then follows it from the current event loop, if
//                     there is one, or from xProcessChanges()
//   xMountStatus(), xQuiesced()
//   xNotify(key), xNotifyMountStatus(), xNotifyQuiesced(b)
//                     the notifications: writers in this process call them
//                     when they change a row; for readers, the table's
//                     change log does
// Corruption a table detects goes to the entity's corruption handler.
#pragma once

#include "platform/pond/Table.h"
#include "platform/vex/Entity.h"
#include "platform/vex/EventLoop.h"

#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Pond {

// An entity that holds Pond tables: one corruption handler for all of them,
// and a zero-reference notifiee run when the last reference goes.
class TableEntity : public Vex::Entity {
 public:
  using Vex::Entity::Entity;

  void corruptionHandlerIs(CorruptionHandler handler) { corruptionHandler_ = std::move(handler); }
  void corruptionReported(const std::string& message) const {
    if (corruptionHandler_)
      corruptionHandler_(message);
    else
      std::fprintf(stderr, "pond corruption: %s\n", message.c_str());
  }

  void onZeroReferencesIs(std::function<void()> onZeroReferences) { onZeroReferences_ = std::move(onZeroReferences); }
  void zeroReferencesIs(bool zero) override {
    if (zero && onZeroReferences_) onZeroReferences_();
    Vex::Entity::zeroReferencesIs(zero);
  }

 private:
  CorruptionHandler corruptionHandler_;
  std::function<void()> onZeroReferences_;
};

}  // namespace Pond

#define POND_TABLE_HANDLERS(Name, Key)         \
  virtual void handle##Name(const Key&) {}     \
  virtual void handle##Name##MountStatus() {}  \
  virtual void handle##Name##Quiesced(bool) {} \
  virtual void handle##Name##Rescanned() {}

#define POND_TABLE(Row, keyField, name, Name)                                                               \
 public:                                                                                                    \
  using Name##Table = ::Pond::Table<Row, &Row::keyField>;                                                   \
  using Name##Key = Name##Table::Key;                                                                       \
  Row name(const Name##Key& key) const { return name##_.get(key).value_or(Row{}); }                         \
  std::optional<Row> name##Find(const Name##Key& key) const { return name##_.get(key); }                    \
  bool name##Has(const Name##Key& key) const { return name##_.has(key); }                                   \
  std::size_t name##Size() const { return name##_.size(); }                                                 \
  bool name##Is(const Row& row) {                                                                           \
    auto held = name##_.get(Name##Table::keyOf(row));                                                       \
    if (held && std::memcmp(&*held, &row, sizeof(Row)) == 0) return true;                                   \
    if (!name##_.set(row)) return false;                                                                    \
    name##Notify(Name##Table::keyOf(row));                                                                  \
    return true;                                                                                            \
  }                                                                                                         \
  bool name##Commit(const Row& row) {                                                                       \
    if (!name##_.commit(row)) return false;                                                                 \
    name##Notify(Name##Table::keyOf(row));                                                                  \
    return true;                                                                                            \
  }                                                                                                         \
  void name##Del(const Name##Key& key) {                                                                    \
    if (name##_.del(key)) name##Notify(key);                                                                \
  }                                                                                                         \
  void name##DelAll() {                                                                                     \
    std::vector<Name##Key> keys;                                                                            \
    name##_.forEach([&](const Row& row) { keys.push_back(Name##Table::keyOf(row)); });                      \
    name##_.delAll();                                                                                       \
    for (const auto& key : keys) name##Notify(key);                                                         \
  }                                                                                                         \
  void name##QuiescedIs(bool quiesced) {                                                                    \
    if (name##_.quiesced() == quiesced) return;                                                             \
    name##_.quiescedIs(quiesced);                                                                           \
    name##NotifyQuiesced(quiesced);                                                                         \
  }                                                                                                         \
  void name##ControlIs(const ::Pond::TableControl& control) {                                               \
    name##Follower_.reset();                                                                                \
    name##_.corruptionHandlerIs([this](const std::string& message) { this->corruptionReported(message); }); \
    name##_.controlIs(control);                                                                             \
    if (control.role == ::Pond::TableControl::Role::reader && ::Vex::EventLoop::current())                  \
      name##Follower_ = name##_.follow(name##Handlers());                                                   \
    else                                                                                                    \
      name##NotifyMountStatus();                                                                            \
  }                                                                                                         \
  std::size_t name##ProcessChanges() { return name##_.processChanges(name##Handlers()); }                   \
  ::Pond::MountStatus name##MountStatus() const { return name##_.mountStatus(); }                           \
  bool name##Quiesced() const { return name##_.quiesced(); }                                                \
  void name##Notify(const Name##Key& key) { this->notify(&Notifiee::handle##Name, key); }                   \
  void name##NotifyMountStatus() { this->notify(&Notifiee::handle##Name##MountStatus); }                    \
  void name##NotifyQuiesced(bool quiesced) { this->notify(&Notifiee::handle##Name##Quiesced, quiesced); }   \
  Name##Table& name##Table() { return name##_; }                                                            \
                                                                                                            \
 private:                                                                                                   \
  Name##Table::Handlers name##Handlers() {                                                                  \
    return {.onKey = [this](const Name##Key& key) { name##Notify(key); },                                   \
            .onQuiesced = [this](bool quiesced) { name##NotifyQuiesced(quiesced); },                        \
            .onMountStatus = [this](::Pond::MountStatus) { name##NotifyMountStatus(); },                    \
            .onRescan = [this] { this->notify(&Notifiee::handle##Name##Rescanned); }};                      \
  }                                                                                                         \
  Name##Table name##_;                                                                                      \
  std::unique_ptr<::Pond::Follower> name##Follower_;                                                        \
                                                                                                            \
 public:
