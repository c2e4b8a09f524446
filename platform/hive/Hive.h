// The state database, embedded: a tree of entities by path
// ("interface/status/eth/lag", "bridging/config"). Mounting a path returns
// the entity there, making an empty one when the path is still unpopulated,
// so that a state machine can hold an input that its writer fills in later.
#pragma once

#include "platform/vex/Entity.h"

#include <boost/core/demangle.hpp>

#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

namespace Hive {

class Root : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Root> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Entity, std::string)
  };
  Root() : Entity("hive") {}

  VEX_ORDERED_COLLECTION(std::string, Vex::Ptr<Vex::Entity>, entity, Entity)

  // The entity at `path`, made from `args` when there is none yet. A path
  // that holds an entity of another type is a wiring error: it throws.
  template <class T, class... Args>
  Vex::Ptr<T> mount(const std::string& path, Args&&... args) {
    if (auto existing = lookup<T>(path)) return existing;
    auto created = Vex::make<T>(std::forward<Args>(args)...);
    entityIs(path, created);
    return created;
  }

  // The entity at `path`, or null when there is none. Throws when it has
  // another type.
  template <class T>
  Vex::Ptr<T> lookup(const std::string& path) const {
    const auto& existing = entity(path);
    if (!existing) return nullptr;
    auto* typed = dynamic_cast<T*>(existing.get());
    if (!typed) {
      const Vex::Entity& held = *existing;
      throw std::logic_error("hive path " + path + " holds a " + boost::core::demangle(typeid(held).name()) +
                             ", not a " + boost::core::demangle(typeid(T).name()));
    }
    return Vex::Ptr<T>(typed);
  }

  void unmount(const std::string& path) { entityDel(path); }

  // Paths at or below `prefix`, in order.
  std::vector<std::string> paths(const std::string& prefix = "") const;
};

Vex::Ptr<Root> rootFactory();

}  // namespace Hive
