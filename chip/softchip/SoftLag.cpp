#include "chip/softchip/SoftLag.h"

namespace SoftChip {

void SoftLagTable::dump(JsonWriter& writer) const {
  writer.StartObject();
  for (const auto& [id, lag] : lags) {
    writer.Key(id.stringValue().c_str());
    writer.StartObject();
    writer.Key("members");
    writer.StartArray();
    for (const auto& member : lag.members) writer.String(member.stringValue().c_str());
    writer.EndArray();
    writer.Key("sharedPeerLink");
    writer.String(lag.sharedPeerLink.stringValue().c_str());
    writer.EndObject();
  }
  writer.EndObject();
}

const HwLag* SoftLagTable::lag(const Nexo::IntfId& id) const {
  auto it = lags.find(id);
  return it == lags.end() ? nullptr : &it->second;
}

SoftLagHelper::SoftLagHelper(const Vex::Ptr<SoftChip>& chip) : OrbHelperLagSm("SoftLagHelper"), chip_(chip) {
  chip_->tableIs(&table_);
}

SoftLagHelper::~SoftLagHelper() { chip_->tableDel(&table_); }

void SoftLagHelper::maybeCreateLag(const Nexo::IntfId& lag) {
  if (table_.lags.count(lag)) return;
  if (!chip_->hasRoom(SoftLagTable::tableName) || chip_->nextFault(SoftLagTable::tableName) != Fault::none) {
    ++refused_;
    return;
  }
  table_.lags[lag];
}

void SoftLagHelper::maybeDestroyLag(const Nexo::IntfId& lag) { table_.lags.erase(lag); }

void SoftLagHelper::updateLag(const Nexo::IntfId& lag, const Orb::OrbLagPortList& list) {
  auto it = table_.lags.find(lag);
  if (it == table_.lags.end()) {
    ++refused_;
    return;
  }
  it->second.members.clear();
  for (const auto& [member, state] : list.ports) {
    if (it->second.members.size() == maxMembers_) {
      ++refused_;
      continue;
    }
    if (state.collecting || state.distributing) it->second.members.insert(member);
  }
}

void SoftLagHelper::maybeShareLagMembership(const Nexo::IntfId& lag, const Nexo::IntfId& peerLink, bool share) {
  auto it = table_.lags.find(lag);
  if (it == table_.lags.end()) return;
  it->second.sharedPeerLink = share ? peerLink : Nexo::IntfId();
}

}  // namespace SoftChip
