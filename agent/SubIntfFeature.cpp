#include "agent/SubIntfFeature.h"

#include "agent/ChipTableArgs.h"

#include "platform/model/MacTypes.h"

#include <fmt/format.h>

namespace Agent {

SubIntfFeature::SubIntfFeature(const AgentCore& core) : Feature(core) {
  helper_ = Vex::make<SoftChip::SoftSubIntfHelper>(chip_);
  Orb::SubIntfMounter mounter(hive_, ocsd_, helper_);
  mounter.doMounts();
  configs_ = mounter.inputs().subIntfConfigDir;
  statuses_ = mounter.inputs().subIntfStatusDir;
  connectors_ = mounter.inputs().localConnectorInfoTable;
  sm_ = mounter.doMountsComplete();
}

SubIntfFeature::~SubIntfFeature() {
  sm_.reset();
  helper_.reset();
}

void SubIntfFeature::registerCommands() { registerShowCommands(); }

void SubIntfFeature::encapsulationIs(const Nexo::IntfId& intf, std::uint16_t outer, std::uint16_t inner) {
  if (!intf.isSubIntf()) throw CommandError(intf.stringValue() + " is not a sub-interface (ETH.N or Port-Channel.N)");
  if (outer < 1 || outer > 4094 || inner > 4094) throw CommandError("VLAN tags are 1 to 4094");
  // The status the interface agent publishes: routed in the tag's VLAN
  // until told otherwise, initialized and wanted in hardware.
  auto status = statuses_->intfStatusIs(intf);
  if (!forwardingGiven_.count(intf)) {
    status->forwardingModelIs(Interface::ForwardingModel::intfForwardingModelRouted);
    status->forwardingVlanIdIs(Bridging::VlanIdOrNone(outer));
  }
  status->programInHwIs(true);
  status->initializedIs(true);
  configs_->intfConfigIs(intf)->dot1qEncapIs({outer, inner});
}

void SubIntfFeature::encapsulationDel(const Nexo::IntfId& intf) {
  if (!configs_->intfConfigHas(intf)) throw CommandError(intf.stringValue() + " has no encapsulation");
  forwardingGiven_.erase(intf);
  configs_->intfConfigDel(intf);
  statuses_->intfStatusDel(intf);
}

void SubIntfFeature::forwardingIs(const Nexo::IntfId& intf, bool bridged, Bridging::VlanIdOrNone vlan) {
  if (!intf.isSubIntf()) throw CommandError(intf.stringValue() + " is not a sub-interface (ETH.N or Port-Channel.N)");
  if (bridged && vlan.isNone()) throw CommandError("a bridged sub-interface needs a VLAN");
  auto status = statuses_->intfStatusIs(intf);
  if (vlan.isNone()) {
    forwardingGiven_.erase(intf);
    auto config = configs_->intfConfig(intf);
    vlan = Bridging::VlanIdOrNone(config ? config->dot1qEncap().outerTag : 0u);
  } else {
    forwardingGiven_.insert(intf);
  }
  status->forwardingVlanIdIs(vlan);
  status->forwardingModelIs(bridged ? Interface::ForwardingModel::intfForwardingModelBridged
                                    : Interface::ForwardingModel::intfForwardingModelRouted);
}

std::string SubIntfFeature::stateText(const Nexo::IntfId& intf) const {
  if (sm_->conflictedIntf().count(intf)) return "conflict";
  const auto& hwStatus = sm_->inputs().hwStatus;
  if (hwStatus->intfIdToDot1qEncapAndVlanIdHas(intf)) {
    return tableAddStatusText(hwStatus->intfIdToDot1qEncapAndVlanId(intf).tableAddStatus);
  }
  return "pending";
}

}  // namespace Agent
