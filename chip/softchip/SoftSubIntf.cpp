#include "chip/softchip/SoftSubIntf.h"

#include "platform/model/MacTypes.h"

#include <fmt/format.h>

namespace SoftChip {

std::string softKeyText(const SoftSubIntfKey& key) {
  return fmt::format("{} {}/{}", key.parent.stringValue(), key.outerTag, key.innerTag);
}

const HwSubIntf* SoftSubIntfTable::match(const Nexo::IntfId& parent, std::uint16_t outer, std::uint16_t inner) const {
  if (const HwSubIntf* exact = find({parent, outer, inner})) return exact;
  return inner ? find({parent, outer, 0}) : nullptr;
}

const SoftSubIntfKey* SoftSubIntfTable::keyOf(const Nexo::IntfId& subIntf) const {
  auto it = keyOfSubIntf.find(subIntf);
  return it == keyOfSubIntf.end() ? nullptr : &it->second;
}

bool subIntfBridgedIn(const SoftChip& chip, Bridging::VlanId vlan, const Nexo::IntfId& subIntf) {
  const auto* table = dynamic_cast<const SoftSubIntfTable*>(chip.table(SoftSubIntfTable::tableName));
  const SoftSubIntfKey* key = table ? table->keyOf(subIntf) : nullptr;
  const HwSubIntf* entry = key ? table->find(*key) : nullptr;
  return entry && entry->isL2 && entry->subIntf == subIntf && entry->vlan == vlan.value();
}

void SoftSubIntfTable::dumpEntry(JsonWriter& writer, const HwSubIntf& entry) const {
  writer.StartObject();
  writer.Key("subIntf");
  writer.String(entry.subIntf.stringValue().c_str());
  writer.Key("vlan");
  writer.Uint(entry.vlan);
  writer.Key("l2");
  writer.Bool(entry.isL2);
  writer.EndObject();
}

SoftSubIntfHelper::SoftSubIntfHelper(const Vex::Ptr<SoftChip>& chip)
    : OrbHelperSubIntf("SoftSubIntfHelper"), chip_(chip), table_(*chip) {}

SoftSubIntfHelper::~SoftSubIntfHelper() = default;

std::uint32_t SoftSubIntfHelper::doAddDot1qEncapToVsiMap(const Nexo::IntfId& subIntf, const Nexo::IntfId& parentIntf,
                                                         Bridging::VlanIdOrNone vlan,
                                                         const Interface::SubIntfEncap& encap, bool isL2SubIntf) {
  SoftSubIntfKey key{parentIntf, encap.outerTag, encap.innerTag};
  HwSubIntf* present = table_.find(key);
  switch (table_.admit(!present)) {
    case Fault::none:
      break;
    case Fault::busy:
      ++refused_;
      return OrbTypes::tableAddBusy;
    case Fault::full:
      ++refused_;
      return OrbTypes::tableAddFull;
    case Fault::failed:
      ++refused_;
      return addFailed;
  }
  HwSubIntf entry{subIntf, vlan.value(), isL2SubIntf};
  if (present) {
    *present = entry;
  } else {
    table_.entries.emplace(key, entry);
  }
  table_.keyOfSubIntf.insert_or_assign(subIntf, key);
  return OrbTypes::tableAddSuccess;
}

void SoftSubIntfHelper::doDeleteDot1qEncapToVsiMap(const Nexo::IntfId& subIntf, const Nexo::IntfId& parentIntf,
                                                   Bridging::VlanIdOrNone, const Interface::SubIntfEncap& encap, bool) {
  SoftSubIntfKey key{parentIntf, encap.outerTag, encap.innerTag};
  const HwSubIntf* entry = table_.find(key);
  if (!entry || entry->subIntf != subIntf) return;
  table_.entries.erase(key);
  table_.keyOfSubIntf.erase(subIntf);
}

void SoftSubIntfHelper::doAddPortToLag(const Nexo::IntfId& port, const Nexo::IntfId& lag) {
  table_.lagOfPort[port] = lag;
}

void SoftSubIntfHelper::doDeletePortFromLag(const Nexo::IntfId& port) { table_.lagOfPort.erase(port); }

void SoftSubIntfHelper::doUpdateStatuses(bool anyProgrammed, bool anyConflicted) {
  table_.anyProgrammed = anyProgrammed;
  table_.anyConflicted = anyConflicted;
}

}  // namespace SoftChip
