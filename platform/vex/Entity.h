// Entities: named, counted objects whose writers notify their notifiees.
//
// The declaration vocabulary. Inside an entity class, after its nested
// `Notifiee`, each attribute is declared once with one of:
//
//   VEX_ATTR(Type, name, Name, default)        scalar: name(), nameIs(v)
//   VEX_COUNTER(Type, name, Name)              scalar plus nameInc(), nameDec()
//   VEX_COLLECTION(Key, Value, name, Name)     hash map (boost::unordered_flat_map)
//   VEX_SET(Key, name, Name)                   hash set: name(key) tells membership,
//                                              nameIs(key) adds (and tells whether
//                                              the key was new)
//   VEX_SET_OF(SetType, Key, name, Name)       the same over another set type,
//                                              such as Vex::SmallSet
//   VEX_ORDERED_COLLECTION(Key, Value, name, Name)
//                                              std::map: iteration in key order,
//                                              and a bookmark key survives any
//                                              insert or erase, so time-sliced
//                                              walks resume with lower_bound
//   VEX_KEYED_COUNTER(Key, Type, name, Name)   hash map of unsigned counts plus
//                                              nameInc(key), nameDec(key)
//
// Collections offer name(key) (the stored value, or the value type's empty
// value when missing; never creates; the reference is valid until the next
// write), nameIs(key, v), nameDel(key), nameDelAll(), nameHas(key),
// nameSize(), and name() (the whole map, for iteration). nameDelIf(pred)
// erases the entries `pred` holds for in one walk over the table (pred sees
// each entry once) and notifies their keys after the walk. Hash collections
// add nameReserve(n): room for n entries up front, so that a large table
// does not rehash in the middle of a time slice.
//
// A keyed counter holds no zeros: nameInc(key) starts a missing key at 1,
// and nameDec(key) erases the entry when its count reaches zero (or is zero
// already), notifying the key as nameDel(key) would; decrementing a missing
// key does nothing and notifies nobody. So name(key) reads 0 and
// nameHas(key) is false exactly when nothing holds a count on the key.
//
// VEX_OWNED_MEMBERS(Key, Type, name) adds nameIs(key), get-or-create, to a
// collection of entities made from their key.
//
// Writers notify `Notifiee::handleName()` / `handleName(key)`, which the
// entity's Notifiee must declare (VEX_HANDLER / VEX_KEY_HANDLER). A writer
// that stores the value already held notifies nobody.
#pragma once

#include "platform/vex/Notifiee.h"
#include "platform/vex/Ptr.h"

#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Vex {

class Entity : public PtrInterface {
 public:
  explicit Entity(std::string name = {}) : name_(std::move(name)) {}

  const std::string& name() const { return name_; }
  NotifieeList& notifieeList() { return notifiees_; }

 protected:
  template <class N, class... P, class... A>
  void notify(void (N::*handler)(P...), A&&... args) {
    notifiees_.notify(handler, std::forward<A>(args)...);
  }

 private:
  std::string name_;
  NotifieeList notifiees_;
};

// The empty value a collection reader returns for a missing key.
template <class T>
const T& emptyValue() {
  static const T empty{};
  return empty;
}

template <class K, class V>
using HashMap = boost::unordered_flat_map<K, V>;
template <class K>
using HashSet = boost::unordered_flat_set<K>;

}  // namespace Vex

#define VEX_HANDLER(Name) \
  virtual void handle##Name() {}
#define VEX_KEY_HANDLER(Name, Key) \
  virtual void handle##Name(const Key&) {}

#define VEX_ATTR(Type, name, Name, ...)        \
 private:                                      \
  Type name##_ = Type{__VA_ARGS__};            \
                                               \
 public:                                       \
  const Type& name() const { return name##_; } \
  void name##Is(const Type& value) {           \
    if (name##_ == value) return;              \
    name##_ = value;                           \
    this->notify(&Notifiee::handle##Name);     \
  }

#define VEX_COUNTER(Type, name, Name)                            \
  VEX_ATTR(Type, name, Name, 0)                                  \
  void name##Inc() { name##Is(static_cast<Type>(name##_ + 1)); } \
  void name##Dec() { name##Is(static_cast<Type>(name##_ - 1)); }

#define VEX_COLLECTION_BODY(MapType, Key, Value, name, Name)                          \
 private:                                                                             \
  MapType name##_;                                                                    \
                                                                                      \
 public:                                                                              \
  const MapType& name() const { return name##_; }                                     \
  const Value& name(const Key& key) const {                                           \
    auto it = name##_.find(key);                                                      \
    return it == name##_.end() ? ::Vex::emptyValue<Value>() : it->second;             \
  }                                                                                   \
  bool name##Has(const Key& key) const { return name##_.find(key) != name##_.end(); } \
  std::size_t name##Size() const { return name##_.size(); }                           \
  void name##Is(const Key& key, const Value& value) {                                 \
    auto [it, inserted] = name##_.try_emplace(key, value);                            \
    if (!inserted) {                                                                  \
      if (it->second == value) return;                                                \
      it->second = value;                                                             \
    }                                                                                 \
    this->notify(&Notifiee::handle##Name, key);                                       \
  }                                                                                   \
  /* nameIs in one look-up, returning the value it replaced (none if new). */         \
  std::optional<Value> name##Exchange(const Key& key, const Value& value) {           \
    auto [it, inserted] = name##_.try_emplace(key, value);                            \
    if (inserted) {                                                                   \
      this->notify(&Notifiee::handle##Name, key);                                     \
      return std::nullopt;                                                            \
    }                                                                                 \
    std::optional<Value> old(it->second);                                             \
    if (!(it->second == value)) {                                                     \
      it->second = value;                                                             \
      this->notify(&Notifiee::handle##Name, key);                                     \
    }                                                                                 \
    return old;                                                                       \
  }                                                                                   \
  void name##Del(const Key& key) {                                                    \
    if (name##_.erase(key)) this->notify(&Notifiee::handle##Name, key);               \
  }                                                                                   \
  void name##DelAll() {                                                               \
    std::vector<Key> keys;                                                            \
    keys.reserve(name##_.size());                                                     \
    for (const auto& entry : name##_) keys.push_back(entry.first);                    \
    for (const auto& key : keys) name##Del(key);                                      \
  }                                                                                   \
  template <class Pred>                                                               \
  std::size_t name##DelIf(Pred pred) {                                                \
    std::vector<Key> gone;                                                            \
    for (auto it = name##_.begin(); it != name##_.end();) {                           \
      auto at = it++; /* erasing leaves the other iterators valid */                  \
      if (!pred(*at)) continue;                                                       \
      gone.push_back(at->first);                                                      \
      name##_.erase(at);                                                              \
    }                                                                                 \
    for (const auto& key : gone) this->notify(&Notifiee::handle##Name, key);          \
    return gone.size();                                                               \
  }

#define VEX_SET(Key, name, Name) VEX_SET_OF(::Vex::HashSet<Key>, Key, name, Name)
#define VEX_SET_OF(SetType, Key, name, Name)                             \
 private:                                                                \
  SetType name##_;                                                       \
                                                                         \
 public:                                                                 \
  const SetType& name() const { return name##_; }                        \
  bool name(const Key& key) const { return name##_.contains(key); }      \
  bool name##Has(const Key& key) const { return name##_.contains(key); } \
  std::size_t name##Size() const { return name##_.size(); }              \
  /* Adds `key`; tells whether it was new. */                            \
  bool name##Is(const Key& key) {                                        \
    if (!name##_.insert(key).second) return false;                       \
    this->notify(&Notifiee::handle##Name, key);                          \
    return true;                                                         \
  }                                                                      \
  void name##Del(const Key& key) {                                       \
    if (name##_.erase(key)) this->notify(&Notifiee::handle##Name, key);  \
  }                                                                      \
  void name##DelAll() {                                                  \
    std::vector<Key> keys(name##_.begin(), name##_.end());               \
    for (const auto& key : keys) name##Del(key);                         \
  }

#define VEX_COLLECTION(Key, Value, name, Name)                                         \
  VEX_COLLECTION_BODY(VEX_PROTECT(::Vex::HashMap<Key, Value>), Key, Value, name, Name) \
  void name##Reserve(std::size_t count) { name##_.reserve(count); }
#define VEX_ORDERED_COLLECTION(Key, Value, name, Name) \
  VEX_COLLECTION_BODY(VEX_PROTECT(std::map<Key, Value>), Key, Value, name, Name)
#define VEX_PROTECT(...) __VA_ARGS__

#define VEX_KEYED_COUNTER(Key, Type, name, Name)                                      \
  VEX_COLLECTION(Key, Type, name, Name)                                               \
  void name##Inc(const Key& key) { name##Is(key, static_cast<Type>(name(key) + 1)); } \
  void name##Dec(const Key& key) {                                                    \
    Type count = name(key);                                                           \
    if (count <= 1) {                                                                 \
      name##Del(key);                                                                 \
    } else {                                                                          \
      name##Is(key, static_cast<Type>(count - 1));                                    \
    }                                                                                 \
  }

// For a collection of owned entities (Vex::Ptr<Type>, each made from its
// key): nameIs(key) returns the key's entity, making it when absent.
#define VEX_OWNED_MEMBERS(Key, Type, name)          \
  ::Vex::Ptr<Type> name##Is(const Key& key) {       \
    if (auto existing = name(key)) return existing; \
    auto created = ::Vex::make<Type>(key);          \
    name##Is(key, created);                         \
    return created;                                 \
  }
