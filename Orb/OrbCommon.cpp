#include "Orb/OrbCommon.h"

namespace Orb {

VlanStatus::VlanStatus(Bridging::VlanId vlanId) : Entity(std::to_string(vlanId.value())), vlanId_(vlanId) {}

Vex::Ptr<VlanStatus> vlanStatusFactory(Bridging::VlanId vlanId) { return Vex::make<VlanStatus>(vlanId); }

OrbCommonSmData::OrbCommonSmData(const std::string& name) : Entity(name) { handleInitialized(); }

OrbCommonSmData::~OrbCommonSmData() {
  intfDelAll();
  unusedIntfDelAll();
  cpuIntfDelAll();
  multiEncapIntfDelAll();
  mlagPeerLinkPortDelAll();
  mlagIntfPortDelAll();
  lagToPortConfigDelAll();
  lagToFeatureSetDelAll();
  portToLagDelAll();
  lagToPortDelAll();
  lagToLagTypeDelAll();
  internalVlanDelAll();
  vlanStatusDelAll();
  encapVlanDelAll();
  portVlanTpidDataDelAll();
  mirrorSessionNameToIdDelAll();
  parityEventDelAll();
  vlanIntfDelAll();
  verifySmIs(nullptr);
  cliConfigIs(nullptr);
  vlanHelperIs(nullptr);
  freeMirrorSessionDelAll();
}

void OrbCommonSmData::handleInitialized() {
  verifyDataIs(verifyDataFactory("verify"));
  verifyData()->verifyRequiredIs("vr", true);
  // The verification machine is kept alive here; it does not hold the
  // context in turn, or neither could ever go.
  verifySmIs(verifySmFactory(nullptr, verifyData()));
  initializedIs(true);
}

Vex::Ptr<VlanStatus> OrbCommonSmData::vlanStatusIs(Bridging::VlanId vlanId) {
  if (auto existing = vlanStatus(vlanId)) return existing;
  auto created = vlanStatusFactory(vlanId);
  vlanStatusIs(vlanId, created);
  return created;
}

std::uint8_t OrbCommonSmData::freeMirrorSession(std::uint32_t index) const {
  auto it = freeMirrorSession_.find(index);
  return it == freeMirrorSession_.end() ? 0 : it->second;
}

void OrbCommonSmData::freeMirrorSessionIs(std::uint32_t index, std::uint8_t id) {
  auto [it, inserted] = freeMirrorSession_.try_emplace(index, id);
  if (!inserted) {
    if (it->second == id) return;
    it->second = id;
  }
  notify(&Notifiee::handleFreeMirrorSession, index);
  freeMirrorSessionRecount();
}

void OrbCommonSmData::freeMirrorSessionDel(std::uint32_t index) {
  if (!freeMirrorSession_.erase(index)) return;
  notify(&Notifiee::handleFreeMirrorSession, index);
  freeMirrorSessionRecount();
}

void OrbCommonSmData::freeMirrorSessionDelAll() {
  while (!freeMirrorSession_.empty()) freeMirrorSessionDel(freeMirrorSession_.begin()->first);
}

void OrbCommonSmData::freeMirrorSessionEnq(std::uint8_t id) {
  freeMirrorSessionIs(freeMirrorSessionMetadata_.next, id);
}

std::uint8_t OrbCommonSmData::freeMirrorSessionDeq() {
  if (freeMirrorSession_.empty()) return 0;
  auto head = freeMirrorSession_.begin();
  std::uint8_t id = head->second;
  freeMirrorSessionDel(head->first);
  return id;
}

void OrbCommonSmData::freeMirrorSessionRecount() {
  FreeMirrorSessionMetadata metadata = freeMirrorSessionMetadata_;
  metadata.count = static_cast<std::uint32_t>(freeMirrorSession_.size());
  if (!freeMirrorSession_.empty()) {
    metadata.head = freeMirrorSession_.begin()->first;
    metadata.next = std::max(metadata.next, freeMirrorSession_.rbegin()->first + 1);
  } else {
    metadata.head = metadata.next;
  }
  freeMirrorSessionMetadataIs(metadata);
}

void OrbCommonSmData::freeMirrorSessionMetadataIs(const FreeMirrorSessionMetadata& metadata) {
  if (metadata == freeMirrorSessionMetadata_) return;
  freeMirrorSessionMetadata_ = metadata;
  notify(&Notifiee::handleFreeMirrorSessionMetadata);
}

Vex::Ptr<OrbCommonSmData> orbCommonSmDataFactory(const std::string& name) { return Vex::make<OrbCommonSmData>(name); }

}  // namespace Orb
