// The rule one configured row of a list stands for, before its port
// blocks, TCP flags and fragment handling: shared by every compiler of
// lists (the ACL machine's subrules, a chip's mirror filters).
#pragma once

#include "Orb/OrbAclTypes.h"

namespace Orb {

AclRule aclRuleOf(std::uint32_t seq, const Acl::IpRuleConfig& rule);
AclRule aclRuleOf(std::uint32_t seq, const Acl::Ip6RuleConfig& rule);
AclRule aclRuleOf(std::uint32_t seq, const Acl::MacRuleConfig& rule);
// The blocks of one port match: the match-any block when there is none.
AclPortMaskVector portMasks(const Acl::PortMatch& match);

}  // namespace Orb
