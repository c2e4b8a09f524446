#include "platform/model/Acl.h"

namespace Acl {

void checkMacFilter(const MacFilter& filter) {
  constexpr std::int64_t maxLabel = 0xFFFFF;
  if (filter.mplsLabel < 0 || filter.mplsLabel > maxLabel) {
    throw Vex::RangeError("MacFilter::mplsLabel < 0 or > 0xFFFFF not allowed");
  }
  if (filter.mplsInnerLabel < 0 || filter.mplsInnerLabel > maxLabel) {
    throw Vex::RangeError("MacFilter::mplsInnerLabel < 0 or > 0xFFFFF not allowed");
  }
}

const char* aclTypeName(AclType type) {
  switch (type) {
    case AclType::aclTypeIp:
      return "ip";
    case AclType::aclTypeIpv6:
      return "ipv6";
    case AclType::aclTypeMac:
      return "mac";
  }
  return "unknown";
}

const char* aclDirectionName(AclDirection direction) {
  switch (direction) {
    case AclDirection::aclIn:
      return "in";
    case AclDirection::aclOut:
      return "out";
  }
  return "unknown";
}

}  // namespace Acl
