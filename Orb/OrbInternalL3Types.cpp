#include "Orb/OrbInternalL3Types.h"

namespace Orb {

Vex::Ptr<OrbInternalL3Status> orbInternalL3StatusFactory(const std::string& name) {
  return Vex::make<OrbInternalL3Status>(name);
}

namespace {

// Adds or removes one member of a set-valued collection entry; an emptied
// set takes its entry with it.
template <class Status, class Key>
void setMemberIs(Status& status, const Key& key, Pond::Fib::GlobalFecId member, bool present,
                 const OrbInternalL3Status::FecIdSet& (Status::*read)(const Key&) const,
                 void (Status::*write)(const Key&, const OrbInternalL3Status::FecIdSet&),
                 void (Status::*erase)(const Key&)) {
  OrbInternalL3Status::FecIdSet members = (status.*read)(key);
  if (present ? !members.insert(member).second : !members.erase(member)) return;
  if (members.empty()) {
    (status.*erase)(key);
  } else {
    (status.*write)(key, members);
  }
}

}  // namespace

void OrbInternalL3Status::nextLevelFecIdIs(GlobalFecId fecId, GlobalFecId nextLevel) {
  using S = OrbInternalL3Status;
  setMemberIs<S, GlobalFecId>(*this, fecId, nextLevel, true, &S::nextLevelFecIdColl, &S::nextLevelFecIdCollIs,
                              &S::nextLevelFecIdCollDel);
  setMemberIs<S, GlobalFecId>(*this, nextLevel, fecId, true, &S::prevLevelFecIdColl, &S::prevLevelFecIdCollIs,
                              &S::prevLevelFecIdCollDel);
}

void OrbInternalL3Status::nextLevelFecIdDel(GlobalFecId fecId, GlobalFecId nextLevel) {
  using S = OrbInternalL3Status;
  setMemberIs<S, GlobalFecId>(*this, fecId, nextLevel, false, &S::nextLevelFecIdColl, &S::nextLevelFecIdCollIs,
                              &S::nextLevelFecIdCollDel);
  setMemberIs<S, GlobalFecId>(*this, nextLevel, fecId, false, &S::prevLevelFecIdColl, &S::prevLevelFecIdCollIs,
                              &S::prevLevelFecIdCollDel);
}

void OrbInternalL3Status::fecIdHierarchyDel(GlobalFecId fecId) {
  FecIdSet next = nextLevelFecIdColl(fecId);
  for (const auto& nextLevel : next) nextLevelFecIdDel(fecId, nextLevel);
  FecIdSet prev = prevLevelFecIdColl(fecId);
  for (const auto& prevLevel : prev) nextLevelFecIdDel(prevLevel, fecId);
}

}  // namespace Orb
