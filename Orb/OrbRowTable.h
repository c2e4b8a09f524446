// A keyed table of fixed-layout rows as another process would read them
// from shared memory, held in process until such tables exist here: the
// rows, what the table is bound to, and the notices its readers follow
// (per key, mount status, quiescence).
//
// Inside an entity whose Notifiee declares
//   VEX_KEY_HANDLER(Name, Key) VEX_HANDLER(NameMountStatus) VEX_HANDLER(NameQuiesced)
// ORB_ROW_TABLE(Key, Row, name, Name) declares, for rows keyed by `row.key`:
//   name(key) (the row, or an empty row), nameHas(key), nameSize(), name()
//   nameIs(row), nameDel(key), nameDelAll(), nameCommit(row)
//   nameNotify(key), nameNotifyMountStatus(), nameNotifyQuiesced(bool)
//   nameControlIs(control), nameControl(), nameMounted(), nameQuiesced()
#pragma once

#include "platform/vex/Entity.h"
#include "platform/vex/Value.h"

#include <string>
#include <type_traits>

namespace Orb {

// What binds a table to its segment: the path it is published under.
struct OrbRowTableControl {
  std::string path;
  auto operator<=>(const OrbRowTableControl&) const = default;
};
VEX_VALUE(OrbRowTableControl, "Orb::OrbRowTableControl", (path))

}  // namespace Orb

#define ORB_ROW_TABLE(Key, Row, name, Name)                                              \
  static_assert(std::is_trivially_copyable_v<Row>, #Row " must be a fixed-layout row");  \
                                                                                         \
 private:                                                                                \
  ::Vex::HashMap<Key, Row> name##_;                                                      \
  ::Orb::OrbRowTableControl name##Control_;                                              \
  bool name##Quiesced_ = false;                                                          \
                                                                                         \
 public:                                                                                 \
  const ::Vex::HashMap<Key, Row>& name() const { return name##_; }                       \
  const Row& name(const Key& key) const {                                                \
    auto it = name##_.find(key);                                                         \
    return it == name##_.end() ? ::Vex::emptyValue<Row>() : it->second;                  \
  }                                                                                      \
  bool name##Has(const Key& key) const { return name##_.contains(key); }                 \
  std::size_t name##Size() const { return name##_.size(); }                              \
  void name##Is(const Row& row) {                                                        \
    auto [it, inserted] = name##_.try_emplace(row.key, row);                             \
    if (!inserted) {                                                                     \
      if (it->second == row) return;                                                     \
      it->second = row;                                                                  \
    }                                                                                    \
    this->notify(&Notifiee::handle##Name, row.key);                                      \
  }                                                                                      \
  /* Publishes a row written in place; in process, a write. */                           \
  void name##Commit(const Row& row) { name##Is(row); }                                   \
  void name##Del(const Key& key) {                                                       \
    if (name##_.erase(key)) this->notify(&Notifiee::handle##Name, key);                  \
  }                                                                                      \
  void name##DelAll() {                                                                  \
    std::vector<Key> keys;                                                               \
    keys.reserve(name##_.size());                                                        \
    for (const auto& entry : name##_) keys.push_back(entry.first);                       \
    for (const auto& key : keys) name##Del(key);                                         \
  }                                                                                      \
  void name##Notify(const Key& key) { this->notify(&Notifiee::handle##Name, key); }      \
  void name##NotifyMountStatus() { this->notify(&Notifiee::handle##Name##MountStatus); } \
  void name##NotifyQuiesced(bool quiesced) {                                             \
    name##Quiesced_ = quiesced;                                                          \
    this->notify(&Notifiee::handle##Name##Quiesced);                                     \
  }                                                                                      \
  bool name##Quiesced() const { return name##Quiesced_; }                                \
  const ::Orb::OrbRowTableControl& name##Control() const { return name##Control_; }      \
  bool name##Mounted() const { return !name##Control_.path.empty(); }                    \
  void name##ControlIs(const ::Orb::OrbRowTableControl& control) {                       \
    if (control == name##Control_) return;                                               \
    name##Control_ = control;                                                            \
    name##NotifyMountStatus();                                                           \
  }
