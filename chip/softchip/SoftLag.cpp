#include "chip/softchip/SoftLag.h"

namespace SoftChip {

void SoftLagTable::dumpEntry(JsonWriter& writer, const HwLag& lag) const {
  writer.StartObject();
  dumpIntfs(writer, "members", lag.members);
  writer.Key("sharedPeerLink");
  writer.String(lag.sharedPeerLink.stringValue().c_str());
  writer.EndObject();
}

SoftLagHelper::SoftLagHelper(const Vex::Ptr<SoftChip>& chip)
    : OrbHelperLagSm("SoftLagHelper"), chip_(chip), table_(*chip) {}

SoftLagHelper::~SoftLagHelper() = default;

void SoftLagHelper::maybeCreateLag(const Nexo::IntfId& lag) {
  if (table_.entries.count(lag)) return;
  if (table_.admit(true) != Fault::none) {
    ++refused_;
    return;
  }
  table_.entries[lag];
}

void SoftLagHelper::maybeDestroyLag(const Nexo::IntfId& lag) {
  if (HwLag* hw = table_.find(lag)) forgetMembers(lag, *hw);
  table_.entries.erase(lag);
}

void SoftLagHelper::updateLag(const Nexo::IntfId& lag, const Orb::OrbLagPortList& list) {
  HwLag* hw = table_.find(lag);
  if (!hw) {
    ++refused_;
    return;
  }
  forgetMembers(lag, *hw);
  for (const auto& [member, state] : list.ports) {
    if (hw->members.size() == maxMembers_) {
      ++refused_;
      continue;
    }
    if (state.collecting || state.distributing) {
      hw->members.insert(member);
      table_.lagOfMember[member] = lag;
    }
  }
}

void SoftLagHelper::forgetMembers(const Nexo::IntfId& lag, HwLag& hw) {
  // A port that moved on to another LAG already points there.
  for (const auto& member : hw.members) {
    auto it = table_.lagOfMember.find(member);
    if (it != table_.lagOfMember.end() && it->second == lag) table_.lagOfMember.erase(it);
  }
  hw.members.clear();
}

void SoftLagHelper::maybeShareLagMembership(const Nexo::IntfId& lag, const Nexo::IntfId& peerLink, bool share) {
  if (HwLag* hw = table_.find(lag)) hw->sharedPeerLink = share ? peerLink : Nexo::IntfId();
}

}  // namespace SoftChip
