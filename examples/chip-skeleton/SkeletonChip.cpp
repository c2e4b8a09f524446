#include "SkeletonChip.h"

#include "platform/vex/Value.h"

#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <string>

namespace Skeleton {

void Transcript::line(const std::string& text) {
  std::cout << text << std::endl;
  lines_.push_back(text);
}

bool Transcript::has(const std::string& text) const {
  return std::find(lines_.begin(), lines_.end(), text) != lines_.end();
}

namespace {

std::string intfList(const std::set<Nexo::IntfId>& intfs) {
  std::string text;
  for (const auto& intf : intfs) text += (text.empty() ? "" : ",") + intf.stringValue();
  return text.empty() ? "-" : text;
}

std::string key(const OrbHelper::OrbHelperMacAddrSm::MacVlanPair& key) {
  return fmt::format("{} vlan {}", key.addr.stringValue(), key.vlanId.value());
}

}  // namespace

VlanHelper::VlanHelper(Transcript& out)
    : Orb::VlanHelper("SkeletonVlanHelper"), out_(out), ackClock_(Vex::clockFactory([this] { acknowledge(); })) {}

VlanHelper::~VlanHelper() { ackClock_->vexDoZombieReactors(true); }

void VlanHelper::doCreateHwVlan(Bridging::VlanId vlanId) {
  out_.line(fmt::format("chip: create vlan {}", vlanId.value()));
}

void VlanHelper::doUpdateVlan(Bridging::VlanId vlanId) {
  // The request is the VLAN's entry in updateConfig: ports to add (tagged or
  // not), ports to take out, under a generation number.
  auto request = updateConfig()->vlanUpdate(vlanId);
  if (!request) return;
  std::set<Nexo::IntfId> tagged, untagged, removed;
  for (const auto& [intf, isTagged] : request->add()) (isTagged ? tagged : untagged).insert(intf);
  for (const auto& [intf, unused] : request->remove()) removed.insert(intf);
  out_.line(fmt::format("chip: update vlan {} untagged {} tagged {} remove {}", vlanId.value(), intfList(untagged),
                        intfList(tagged), intfList(removed)));
  awaitingAck_.insert(vlanId);
  ackClock_->timeMinIs(Vex::now());
}

void VlanHelper::acknowledge() {
  auto vlans = std::move(awaitingAck_);
  awaitingAck_.clear();
  for (auto vlanId : vlans) {
    auto request = updateConfig()->vlanUpdate(vlanId);
    if (!request) continue;
    out_.line(fmt::format("chip: ack vlan {} generation {}", vlanId.value(), request->genId()));
    updateVlanDone(vlanId, Orb::VlanProgrammingStatus::programmingSucceeded);
  }
}

void VlanHelper::doUpdateVlanFid(Bridging::VlanId vlanId, Bridging::Fid fid) {
  out_.line(fmt::format("chip: vlan {} fid {}", vlanId.value(), fid.value()));
}

void VlanHelper::verify() {}

void LagHelper::maybeCreateLag(const Nexo::IntfId& lag) {
  out_.line(fmt::format("chip: create lag {}", lag.stringValue()));
}

void LagHelper::maybeDestroyLag(const Nexo::IntfId& lag) {
  out_.line(fmt::format("chip: destroy lag {}", lag.stringValue()));
}

void LagHelper::updateLag(const Nexo::IntfId& lag, const Orb::OrbLagPortList& list) {
  std::set<Nexo::IntfId> members;
  for (const auto& [intf, port] : list.ports) members.insert(intf);
  out_.line(fmt::format("chip: lag {} members {}", lag.stringValue(), intfList(members)));
}

void LagHelper::maybeShareLagMembership(const Nexo::IntfId& lag, const Nexo::IntfId& peerLink, bool share) {
  out_.line(fmt::format("chip: lag {} {} peer link {}", lag.stringValue(), share ? "shares" : "stops sharing",
                        peerLink.stringValue()));
}

std::uint32_t MacHelper::addHost(const MacVlanPair& k, const Nexo::IntfId& intf, std::uint32_t, bool,
                                 EntryType entryType) {
  ++hostsAdded_;
  out_.line(fmt::format("chip: add mac {} {} {}", key(k), intf.stringValue(), Vex::valueToStrep(entryType)));
  return 0;
}

std::uint32_t MacHelper::removeHost(const MacVlanPair& k, EntryType entryType) {
  out_.line(fmt::format("chip: remove mac {} {}", key(k), Vex::valueToStrep(entryType)));
  return 0;
}

std::uint32_t MacHelper::addRemoteHost(const MacVlanPair& k, const Nexo::IntfId& intf, std::uint64_t nextHopId,
                                       std::uint32_t, bool, EntryType entryType, bool) {
  out_.line(fmt::format("chip: add remote mac {} {} next hop {} {}", key(k), intf.stringValue(), nextHopId,
                        Vex::valueToStrep(entryType)));
  return 0;
}

void MacHelper::flushVlanPort(int vlan, const Nexo::IntfId& intf) {
  out_.line(fmt::format("chip: flush vlan {} port {}", vlan, intf.stringValue()));
}

void MacHelper::flushVlan(Bridging::VlanId vlanId) { out_.line(fmt::format("chip: flush vlan {}", vlanId.value())); }

void MacHelper::flushVlanLag(int vlan, const Nexo::IntfId& lag) {
  out_.line(fmt::format("chip: flush vlan {} lag {}", vlan, lag.stringValue()));
}

void MacHelper::flushAll() { out_.line("chip: flush all"); }

void MacHelper::removeLag(const Nexo::IntfId& lag) {
  out_.line(fmt::format("chip: forget lag {} in the mac table", lag.stringValue()));
}

void MacHelper::configureAgingTime(std::uint32_t seconds) {
  out_.line(fmt::format("chip: mac aging time {}", seconds));
}

void MacHelper::configureSourceCheckCPUMac(bool enable) {
  out_.line(fmt::format("chip: source check of the cpu mac {}", enable ? "on" : "off"));
}

void MacHelper::enableLearning(const Nexo::IntfId& intf, bool enable) {
  out_.line(fmt::format("chip: learning {} on {}", enable ? "on" : "off", intf.stringValue()));
}

}  // namespace Skeleton
