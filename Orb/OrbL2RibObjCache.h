// Which hosts depend on which L2 RIB objects, so that a change of a
// destination, a load-balance group or an object's hardware id reviews only
// the hosts that use it rather than the whole table.
//
// A host of the L2 RIB points to one object (a destination or a
// load-balance group); a load-balance group depends on its member
// destinations. The cache also remembers, per host, the object and the
// hardware id it was last programmed with.
#pragma once

#include "platform/model/MacTypes.h"
#include "platform/vex/Entity.h"

#include <optional>
#include <vector>

namespace Orb {

class L2RibObjCache {
 public:
  using Hosts = Vex::HashSet<Bridging::MacVlanPair>;

  // The object a host of the L2 RIB points to; none when it left the L2
  // RIB or points to no object.
  void hostIs(const Bridging::MacVlanPair& host, std::optional<L2Rib::ObjTuple> tuple);
  // A load-balance group and its members; no members when it is gone.
  void lbIs(const L2Rib::ObjTuple& lb, const std::vector<L2Rib::ObjTuple>& members);

  // What the host was last programmed with.
  void programmedIs(const Bridging::MacVlanPair& host, const L2Rib::ObjTuple& tuple, std::uint64_t hwId);
  void programmedDel(const Bridging::MacVlanPair& host);
  std::optional<std::uint64_t> programmedHwId(const Bridging::MacVlanPair& host) const;

  // The hosts that use `tuple`, directly or through a group it is a member of.
  std::vector<Bridging::MacVlanPair> dependantHosts(const L2Rib::ObjTuple& tuple) const;

  // The caches, by their names.
  const Vex::HashMap<Bridging::MacVlanPair, L2Rib::ObjTuple>& hostToObjTupleCache() const { return hostToObjTuple_; }
  const Vex::HashMap<Bridging::MacVlanPair, L2Rib::ObjTuple>& hostToObjTupleProgrammedCache() const {
    return hostToObjTupleProgrammed_;
  }
  const Vex::HashMap<Bridging::MacVlanPair, std::uint64_t>& hostToHwIdProgrammedCache() const {
    return hostToHwIdProgrammed_;
  }
  const Vex::HashMap<L2Rib::ObjTuple, Vex::HashSet<L2Rib::ObjTuple>>& lbToObjTupleSetCache() const {
    return lbToObjTupleSet_;
  }
  const Vex::HashMap<L2Rib::ObjTuple, Hosts>& l2RibObjTupleToDependantHosts() const { return dependantHosts_; }
  const Vex::HashMap<L2Rib::ObjTuple, Vex::HashSet<L2Rib::ObjTuple>>& l2RibObjTupleToDependantObjTuples() const {
    return dependantTuples_;
  }

 private:
  Vex::HashMap<Bridging::MacVlanPair, L2Rib::ObjTuple> hostToObjTuple_;
  Vex::HashMap<Bridging::MacVlanPair, L2Rib::ObjTuple> hostToObjTupleProgrammed_;
  Vex::HashMap<Bridging::MacVlanPair, std::uint64_t> hostToHwIdProgrammed_;
  Vex::HashMap<L2Rib::ObjTuple, Vex::HashSet<L2Rib::ObjTuple>> lbToObjTupleSet_;
  Vex::HashMap<L2Rib::ObjTuple, Hosts> dependantHosts_;
  Vex::HashMap<L2Rib::ObjTuple, Vex::HashSet<L2Rib::ObjTuple>> dependantTuples_;
};

}  // namespace Orb
