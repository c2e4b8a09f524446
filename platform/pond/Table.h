// Pond tables: keyed tables of fixed-width rows in POSIX shared memory,
// written by one process and read by any number of others.
//
//   struct Point { Pond::Fib::FecId key; std::uint32_t x; std::uint32_t y; };
//   using PointTable = Pond::Table<Point, &Point::key>;
//
//   PointTable out;                         // in the writer
//   out.controlIs({.prefix = "agent-", .name = "point", .role = Pond::TableControl::Role::writer,
//                  .capacity = 1000});
//   out.set(Point{FecId(7), 1, 2});
//
//   PointTable in;                          // in a reader
//   in.controlIs({.prefix = "agent-", .name = "point"});
//   std::optional<Point> p = in.get(FecId(7));
//   auto follower = in.follow({.onKey = [](const Pond::Fib::FecId& key) { ... }});
//                                           // or poll in.processChanges(...)
//
// A row is trivially copyable and laid out exactly as it is stored: declare
// explicit padding fields and check sizes and offsets with static_assert.
// It holds offsets, never pointers. Its key is one of its fields and
// compares by its bytes. The guarantees and the segment layout are in
// TableCore.h and Layout.h.
#pragma once

#include "platform/pond/Follower.h"
#include "platform/pond/TableCore.h"

#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

namespace Pond {

template <class Row, auto KeyField>
class Table {
 public:
  using RowType = Row;
  using Key = std::remove_cvref_t<decltype(std::declval<const Row&>().*KeyField)>;
  static_assert(std::is_trivially_copyable_v<Row> && std::is_standard_layout_v<Row>,
                "a Pond row is stored byte for byte");
  static_assert(std::is_trivially_copyable_v<Key> && std::has_unique_object_representations_v<Key>,
                "a Pond key compares by its bytes, so it may hold no padding");

  struct Handlers {
    std::function<void(const Key& key)> onKey = {};
    std::function<void(bool quiesced)> onQuiesced = {};
    std::function<void(MountStatus status)> onMountStatus = {};
    std::function<void()> onRescan = {};  // see TableCore::ChangeHandlers
  };

  Table() : core_(sizeof(Row), keyOffset(), sizeof(Key)) {}

  static const Key& keyOf(const Row& row) { return row.*KeyField; }

  // Binding (see TableControl).
  void controlIs(const TableControl& control) { core_.controlIs(control); }
  const TableControl& control() const { return core_.control(); }
  MountStatus mount() { return core_.mount(); }
  MountStatus mountStatus() const { return core_.mountStatus(); }
  void close() { core_.close(); }
  void corruptionHandlerIs(CorruptionHandler handler) { core_.corruptionHandlerIs(std::move(handler)); }

  // Writer: false when the table is full. `set` of a row equal byte for byte
  // to the one held changes and notifies nothing; `commit` always writes,
  // notifies the key and wakes waiting readers at once.
  bool set(const Row& row) { return core_.write(&row, false); }
  bool commit(const Row& row) {
    bool stored = core_.write(&row, true);
    core_.flush();
    return stored;
  }
  bool del(const Key& key) { return core_.erase(&key); }
  void delAll() { core_.eraseAll(); }
  void quiescedIs(bool quiesced) { core_.quiescedIs(quiesced); }
  void flush() { core_.flush(); }
  // Tombstones left by deletes, and how often the writer cleared them.
  std::uint64_t tombstones() const { return core_.tombstones(); }
  std::uint64_t compactions() const { return core_.compactions(); }

  // Anyone.
  std::optional<Row> get(const Key& key) const {
    Row row;
    if (!core_.read(&key, &row)) return std::nullopt;
    return row;
  }
  bool has(const Key& key) const { return get(key).has_value(); }
  std::size_t size() const { return core_.size(); }
  bool quiesced() const { return core_.quiesced(); }
  template <class F>
  void forEach(F&& each) const {
    core_.forEachRow([&](const void* bytes) {
      Row row;
      std::memcpy(&row, bytes, sizeof(Row));
      each(row);
    });
  }

  // Reader: reports the changes waiting (see TableCore::processChanges).
  int wakeFd() const { return core_.wakeFd(); }
  std::size_t processChanges(const Handlers& handlers) { return core_.processChanges(untyped(handlers)); }
  // Follows the table from the current event loop until the result goes.
  std::unique_ptr<Follower> follow(const Handlers& handlers) {
    return std::make_unique<Follower>(core_, untyped(handlers));
  }

  TableCore& core() { return core_; }

 private:
  static std::size_t keyOffset() {
    const Row row{};
    return static_cast<std::size_t>(reinterpret_cast<const unsigned char*>(&(row.*KeyField)) -
                                    reinterpret_cast<const unsigned char*>(&row));
  }

  static TableCore::ChangeHandlers untyped(const Handlers& handlers) {
    TableCore::ChangeHandlers out;
    if (handlers.onKey)
      out.onKey = [onKey = handlers.onKey](const void* bytes) {
        Key key;
        std::memcpy(&key, bytes, sizeof(Key));
        onKey(key);
      };
    out.onQuiesced = handlers.onQuiesced;
    out.onMountStatus = handlers.onMountStatus;
    out.onRescan = handlers.onRescan;
    return out;
  }

  TableCore core_;
};

}  // namespace Pond
