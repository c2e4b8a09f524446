#include "Orb/OrbAclTypes.h"

#include "Orb/OrbAssert.h"
#include "Orb/OrbTrace.h"

namespace Orb {

Blip::Handle& aclTrace() {
  static Blip::Handle& handle = orbTraceHandle("OrbAclSm");
  return handle;
}

std::string AclKey::stringValue() const {
  std::string text = std::string(Acl::aclTypeName(type)) + " " + name + " " + Acl::aclDirectionName(direction);
  if (!intf.empty()) {
    text += ' ';
    text += intf.stringValue();
  }
  return text;
}

std::string IntfPairKey::stringValue() const {
  if (lagIntfId.empty()) return intfId.stringValue();
  return intfId.stringValue() + "(" + lagIntfId.stringValue() + ")";
}

void checkIntfPairKey(const IntfPairKey& intfPair) {
  if (intfPair.intfId.empty() && intfPair.lagIntfId.empty()) orbAssert("Both intf and lag shouldn't be null together");
  if (intfPair.intfId.isLag() && !intfPair.intfId.isSubIntf()) orbAssert("intfPair.intfId shouldn't be a lag");
  if (!intfPair.lagIntfId.empty() && !intfPair.lagIntfId.isLag()) orbAssert("intfPair.lagIntf should be a LAG");
  const bool routedOnly =
      intfPair.intfId.isVlan() || intfPair.intfId.isSubIntf() || intfPair.intfId.kind() == Nexo::IntfId::Kind::tunnel;
  if (routedOnly && !intfPair.lagIntfId.empty()) {
    orbAssert("When intf is an SVI or SubIntf or Tunnel-Intf, lag should be null");
  }
}

}  // namespace Orb
