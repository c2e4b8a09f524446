#include "platform/types/Bridging.h"

#include <fmt/format.h>

#include <limits>

namespace Bridging {

VlanId::VlanId(std::uint32_t value) {
  if (value < 1 || value > 4094) throw Vex::RangeError("VlanId::value < 1 or > 4094 not allowed");
  value_ = static_cast<std::uint16_t>(value);
}

VlanIdOrNone::VlanIdOrNone(std::uint32_t value) {
  if (value > 4094) throw Vex::RangeError("VlanIdOrNone::value > 4094 not allowed");
  value_ = static_cast<std::uint16_t>(value);
}

std::string MacVlanPair::stringValue() const { return fmt::format("{} vlan {}", addr.stringValue(), vlanId.value()); }

Fid Fid::fromVexRep(std::uint32_t value) {
  if (value > std::numeric_limits<std::uint16_t>::max()) throw Vex::RangeError("Fid::value > 65535 not allowed");
  return Fid(static_cast<std::uint16_t>(value));
}

namespace {

struct Word {
  EntryType type;
  const char* word;
};

constexpr Word words[] = {
    {EntryType::entryDynamic, "dynamic"},
    {EntryType::entryConfiguredDynamic, "configured dynamic"},
    {EntryType::entryStatic, "static"},
    {EntryType::entryPeerDynamic, "peer dynamic"},
    {EntryType::entryPeerStatic, "peer static"},
    {EntryType::entryLearnedRemote, "learned remote"},
    {EntryType::entryStaticRemote, "static remote"},
    {EntryType::entryReceivedRemote, "received remote"},
    {EntryType::entryPeerDynamicRemote, "peer dynamic remote"},
    {EntryType::entryPeerStaticRemote, "peer static remote"},
    {EntryType::entryPeerReceivedRemote, "peer received remote"},
    {EntryType::entryEvpnDynamicRemote, "evpn dynamic remote"},
    {EntryType::entryEvpnStaticRemote, "evpn static remote"},
    {EntryType::entryPeerEvpnRemote, "peer evpn remote"},
    {EntryType::entryAuthenticated, "authenticated"},
    {EntryType::entryPeerAuthenticated, "peer authenticated"},
};

}  // namespace

const char* entryTypeWord(EntryType type) {
  for (const auto& w : words) {
    if (w.type == type) return w.word;
  }
  return nullptr;
}

bool entryTypeFromWord(std::string_view word, EntryType& type) {
  for (const auto& w : words) {
    if (word == w.word) {
      type = w.type;
      return true;
    }
  }
  return false;
}

}  // namespace Bridging
