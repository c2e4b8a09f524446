// The printed form of a next-hop collection and its parse.
//
//   [Attached: Y ][TunnelType: <type> ][PotentialHierarchicalNextHop: Y ]Flags: <n> HierarchyHeight: <n> \n
//   <next hop>, count: <weight>\n                       one line per next hop
//   nextHopBitmap:\n
//   <next hop>, bitmap: ViaBitmap( bits set: 1 5 )\n    one line per bitmap
//   nextHopGroupEntryL2Infos:\n
//   <index>: <next hop or None>\n                       one line per index below the group size
//
// The header also names, when they differ from their defaults, the values
// that the lines above do not show (L2AdjType, GroupUnordered,
// GroupCounterType, GreKeyType, Ttl), and two more sections follow when
// they have entries (nextHopGroupEntryResolutions, nhgEntryKeyToPositions),
// so that the text gives the whole value back.
#include "Orb/OrbAdjTypes.h"
#include "Orb/OrbNexthopTypes.h"

namespace Orb {

namespace {

using Vex::detail::Parser;

template <class E>
E parseEnum(Parser& in) {
  std::string name = in.parseNumberText();
  E value{};
  if (!boost::describe::enum_from_string(name.c_str(), value)) in.fail("an enumerator, not '" + name + "'");
  return value;
}

template <class T>
T parseNumber(Parser& in) {
  T value{};
  Vex::detail::parseInteger(in, value);
  return value;
}

}  // namespace

std::string NextHopCollection::stringValue() const {
  const NextHopGroupInfo& group = nhgcRawOrDefault();
  const NextHopGroupInfo& none = Vex::emptyValue<NextHopGroupInfo>();
  std::string out;
  if (attached()) out += "Attached: Y ";
  if (tunnelType() != NextHopTunnelType::none) out += "TunnelType: " + Vex::valueToStrep(tunnelType()) + " ";
  if (potentialHierarchicalNextHop()) out += "PotentialHierarchicalNextHop: Y ";
  out += "Flags: " + std::to_string(flags()) + " ";
  out += "HierarchyHeight: " + std::to_string(hierarchyHeight()) + " ";
  if (l2AdjType() != NextHopCollection().l2AdjType()) out += "L2AdjType: " + Vex::valueToStrep(l2AdjType()) + " ";
  if (group.nextHopGroupUnordered) out += "GroupUnordered: Y ";
  if (group.nexthopGroupEntryCounterType != none.nexthopGroupEntryCounterType) {
    out += "GroupCounterType: " + Vex::valueToStrep(group.nexthopGroupEntryCounterType) + " ";
  }
  if (group.greKeyType != none.greKeyType) out += "GreKeyType: " + Vex::valueToStrep(group.greKeyType) + " ";
  if (group.ttl != none.ttl) out += "Ttl: " + std::to_string(group.ttl) + " ";
  out += "\n";
  for (const auto& [nh, weight] : nextHop()) out += Vex::toStrep(nh) + ", count: " + std::to_string(weight) + "\n";
  out += "nextHopBitmap:\n";
  for (const auto& [nh, bitmap] : nextHopBitmap()) {
    out += Vex::toStrep(nh) + ", bitmap: " + bitmap.unpack().stringValue() + "\n";
  }
  out += "nextHopGroupEntryL2Infos:\n";
  for (std::uint32_t i = 0; i < group.nextHopGroupSize; ++i) {
    auto it = group.nextHopGroupEntryL2Info.find(i);
    out += std::to_string(i) + ": " + (it == group.nextHopGroupEntryL2Info.end() ? "None" : Vex::toStrep(it->second));
    out += "\n";
  }
  if (!group.nextHopGroupEntryResolution.empty()) {
    out += "nextHopGroupEntryResolutions:\n";
    for (const auto& [index, info] : group.nextHopGroupEntryResolution) {
      out += std::to_string(index) + ": " + Vex::toStrep(info) + "\n";
    }
  }
  if (!group.nhgEntryKeyToPosition.empty()) {
    out += "nhgEntryKeyToPositions:\n";
    for (const auto& [key, position] : group.nhgEntryKeyToPosition) {
      out += Vex::toStrep(key) + ": " + Vex::toStrep(position) + "\n";
    }
  }
  return out;
}

NextHopCollection NextHopCollection::fromString(std::string_view text) {
  Parser in(text, "Orb::NextHopCollection");
  NextHopCollection c;
  if (in.consume("Attached:")) in.expect("Y");
  if (in.consume("TunnelType:")) c.tunnelTypeIs(parseEnum<NextHopTunnelType>(in));
  if (in.consume("PotentialHierarchicalNextHop:")) in.expect("Y");
  in.expect("Flags:");
  c.flagsIs(parseNumber<std::uint8_t>(in));
  in.expect("HierarchyHeight:");
  c.hierarchyHeightIs(parseNumber<std::uint8_t>(in));
  if (in.consume("L2AdjType:")) c.mutate().l2AdjType = parseEnum<L2AdjType>(in);
  if (in.consume("GroupUnordered:")) {
    in.expect("Y");
    c.nextHopGroupUnorderedIs(true);
  }
  if (in.consume("GroupCounterType:")) {
    c.nexthopGroupEntryCounterTypeIs(parseEnum<Routing::NexthopGroup::EntryCounterType>(in));
  }
  if (in.consume("GreKeyType:")) c.greKeyTypeIs(parseEnum<Nexo::GreKeyType>(in));
  if (in.consume("Ttl:")) c.ttlIs(parseNumber<std::uint32_t>(in));

  while (!in.consume("nextHopBitmap:")) {
    NextHop nh;
    Vex::detail::parse(in, nh);
    in.expect(",");
    in.expect("count:");
    c.nextHopIs(nh, parseNumber<std::uint32_t>(in));
  }
  while (!in.consume("nextHopGroupEntryL2Infos:")) {
    NextHop nh;
    Vex::detail::parse(in, nh);
    in.expect(",");
    in.expect("bitmap:");
    in.expect("ViaBitmap(");
    in.expect("bits set:");
    ViaBitmap bitmap;
    while (!in.consume(")")) {
      auto position = parseNumber<std::uint32_t>(in);
      if (position > OrbTypes::ViaBitmapRange::null) in.fail("a via position of at most 2048");
      bitmap.bitSet(OrbTypes::ViaBitmapRange(position));
    }
    c.nextHopBitmapIs(nh, bitmap);
  }
  std::uint32_t size = 0;
  bool resolutions = false;
  bool positions = false;
  while (!in.atEnd()) {
    if (!resolutions && !positions && in.consume("nextHopGroupEntryResolutions:")) {
      resolutions = true;
    } else if (!positions && in.consume("nhgEntryKeyToPositions:")) {
      positions = true;
    } else if (positions) {
      NextHopGroupEntryKey key;
      Vex::detail::parse(in, key);
      in.expect(":");
      NexthopPosition position;
      Vex::detail::parse(in, position);
      c.nhgEntryKeyToPositionIs(key, position);
    } else if (resolutions) {
      auto index = parseNumber<std::uint32_t>(in);
      in.expect(":");
      TunnelResolutionInfo info;
      Vex::detail::parse(in, info);
      c.nextHopGroupEntryResolutionIs(index, info);
    } else {
      if (parseNumber<std::uint32_t>(in) != size) in.fail("group entry index " + std::to_string(size));
      in.expect(":");
      if (!in.consume("None")) {
        NextHop nh;
        Vex::detail::parse(in, nh);
        c.nextHopGroupEntryL2InfoIs(size, nh);
      }
      ++size;
    }
  }
  if (size != 0) c.nextHopGroupSizeIs(size);
  return c;
}

}  // namespace Orb
