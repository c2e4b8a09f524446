// Access control lists: the configuration the ACL configuration agent
// would publish (lists of rules, interface bindings), the soft chip's TCAM
// behind the ACL helper, the ACL machines, and the commands that write
// lists, apply them, show them with their counters and status, and set the
// TCAM's size and faults.
#pragma once

#include "Orb/OrbAclSm.h"
#include "agent/Feature.h"
#include "chip/softchip/SoftAcl.h"

#include <map>
#include <string>

namespace Agent {

class AclFeature : public Feature {
 public:
  explicit AclFeature(const AgentCore& core);
  ~AclFeature() override;
  void registerCommands() override;

  const Vex::Ptr<Orb::AclSm>& sm() const { return sm_; }
  const Vex::Ptr<SoftChip::SoftAclHelper>& helper() const { return helper_; }
  const Vex::Ptr<Acl::Config>& config() const { return config_; }
  const Vex::Ptr<Acl::Status>& status() const { return status_; }

 private:
  void registerListCommands();
  void registerShowCommands();
  // Writers of what the configuration agent publishes; each checks its
  // input first and throws CommandError before changing anything.
  void ruleIs(Acl::AclType type, const Args& args);
  void ruleDel(Acl::AclType type, const Args& args);
  void accessGroupIs(const Args& args);
  std::uint32_t nextUniqueId(Acl::AclType type, const std::string& name);

  // Error-disabled interfaces go out of service on the chip, as the
  // interface agent would shut them.
  class ErrdisableWatch : public Acl::Status::Notifiee {
   public:
    ErrdisableWatch(const Vex::Ptr<Acl::Status>& status, SoftChip::SoftChip& chip) : Notifiee(status), chip_(chip) {}
    void handleErrdisabledIntf(const Nexo::IntfId& intf) override;

   private:
    SoftChip::SoftChip& chip_;
  };

  Vex::Ptr<Acl::Config> config_;
  Vex::Ptr<Acl::Status> status_;
  std::unique_ptr<ErrdisableWatch> errdisableWatch_;
  Vex::Ptr<SoftChip::SoftAclHelper> helper_;
  Vex::Ptr<Orb::AclSm> sm_;
  std::map<std::pair<Acl::AclType, std::string>, std::uint32_t> uniqueIds_;
};

// Rule texts as `show access-lists` prints them and the commands take them.
std::string aclRuleText(const Acl::IpRuleConfig& rule);
std::string aclRuleText(const Acl::Ip6RuleConfig& rule);
std::string aclRuleText(const Acl::MacRuleConfig& rule);

}  // namespace Agent
