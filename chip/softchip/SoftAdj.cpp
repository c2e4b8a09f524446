#include "chip/softchip/SoftAdj.h"

namespace SoftChip {

void SoftAdjTable::dumpEntry(JsonWriter& writer, const HwAdj& adj) const {
  writer.StartArray();
  for (const auto& nh : adj.nextHops) {
    writer.StartObject();
    writer.Key("mac");
    writer.String(nh.mac.stringValue().c_str());
    writer.Key("l2Intf");
    writer.String(nh.l2Intf.stringValue().c_str());
    writer.Key("l3Intf");
    writer.String(nh.l3Intf.stringValue().c_str());
    writer.Key("weight");
    writer.Uint(nh.weight);
    writer.Key("resolved");
    writer.Bool(nh.resolved);
    writer.EndObject();
  }
  writer.EndArray();
}

SoftAdjHelper::SoftAdjHelper(const Vex::Ptr<SoftChip>& chip)
    : OrbHelperL2Adj("SoftAdjHelper"), chip_(chip), table_(*chip) {}

SoftAdjHelper::~SoftAdjHelper() = default;

std::uint32_t SoftAdjHelper::doAddAdjacency(const Orb::L2AdjKey& key, const Orb::NextHopCollection& nextHops) {
  switch (table_.admit(!table_.find(key))) {
    case Fault::none:
      break;
    case Fault::busy:
      ++refused_;
      return addBusy;
    case Fault::full:
      ++refused_;
      return addFull;
    case Fault::failed:
      ++refused_;
      return addFailed;
  }
  HwAdj& adj = table_.entries[key];
  adj.nextHops.clear();
  for (const auto& [nh, weight] : nextHops.nextHop()) {
    adj.nextHops.push_back(
        {nh.mac, nh.l2Intf, nh.l3Intf, weight, nh.entryType == Orb::NextHopEntryType::nextHopArpResolved});
  }
  if (written_) written_(key);
  return addSuccess;
}

void SoftAdjHelper::doRemoveAdjacency(const Orb::L2AdjKey& key) {
  if (table_.erase(key) && written_) written_(key);
}

}  // namespace SoftChip
