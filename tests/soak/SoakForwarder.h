// The soak's reference forwarder: where a layer-2 switch sends a frame,
// stated plainly over the tables the reference model derives (ChipView),
// with nothing taken from the forwarding layer or the soft chip.
//
// What it holds is the model's view and nothing else: each VLAN's members
// in hardware with their tagging (configured members, less the ports
// spanning tree blocks in the VLAN's topology and Port-Channels the switch
// does not know yet), each LAG's active members, the forwarding database,
// and the addresses whose aging the model cannot pin down. The rules:
//  - a frame arriving on a LAG member arrives on its LAG;
//  - its VLAN is its tag's, or for an untagged or priority-tagged frame a
//    VLAN the port is configured untagged in, blocked there or not (when
//    there are several, the chip's choice among them is taken: switches
//    differ in which one wins). Not while spanning tree holds the port out
//    of a VLAN: the chip keeps such a port's tagging as it was when it
//    went, and a change meanwhile reaches it only when the port forwards
//    again, so its untagged frames are left out;
//  - the port must be a member of that VLAN in hardware (ingress filtering;
//    a blocked port is not), and a multicast source is dropped;
//  - an IPv4 frame meets the port's inbound list: its first matching rule
//    decides, and a frame no rule matches is denied;
//  - a known unicast destination leaves by its entry's port or LAG, if that
//    is a member and not where the frame came from;
//  - unknown unicast, broadcast and multicast flood to every member but the
//    ingress port or LAG;
//  - each copy is tagged as its egress member is in the VLAN; a LAG gets one
//    copy, by one of its members, none when it has no members.
// It never learns: frames asked about must leave the state as it was.
#pragma once

#include "tests/soak/SoakModel.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>

namespace Soak {

// A frame in the soft chip's text form's terms, MACs as "00:00:00:00:00:01".
struct RefFrame {
  std::string src;
  std::string dst;
  std::optional<int> tag;  // VLAN of the 802.1Q tag; 0 priority-tagged
  bool ip = false;         // IPv4 and TCP fields (they only feed a LAG's hash)
  int ipSeed = 0;

  // "src ... dst ... [vlan V] [ip A B tcp P Q]", as `chip send` reads it.
  std::string text() const;
  // The frame text() printed; nothing for any other text.
  static std::optional<RefFrame> parse(const std::string& text);
  // The IPv4 and TCP fields `ipSeed` makes.
  std::uint32_t ipSrc() const;
  std::uint32_t ipDst() const;
  unsigned srcPort() const { return 1024 + static_cast<unsigned>(ipSeed); }
  unsigned dstPort() const { return 80 + static_cast<unsigned>(ipSeed % 3); }
  static bool multicast(const std::string& mac);
};

// One copy leaving the switch: by a port, or by a LAG (whichever member).
struct RefEgress {
  Intf intf;
  bool tagged = false;
  auto operator<=>(const RefEgress&) const = default;
};

class Forwarder {
 public:
  Forwarder(const ChipView& view, const std::set<MacKey>& uncertain) : view_(view), uncertain_(uncertain) {}

  // The interface a frame arriving on `port` arrives on: its LAG, or itself.
  Intf logical(const Intf& port) const;
  // The VLANs the frame may belong to (empty when it is dropped before), or
  // nothing when the model cannot tell.
  std::optional<std::set<int>> classify(const Intf& ingress, const RefFrame& frame) const;
  // Where a frame of `vlan` goes (empty: dropped), or nothing when the
  // model cannot tell (its destination may have aged).
  std::optional<std::set<RefEgress>> forward(const Intf& ingress, const RefFrame& frame, int vlan) const;

 private:
  // The member's tagging in the VLAN, when it is a member in hardware.
  std::optional<bool> tagging(int vlan, const Intf& intf) const;
  void addEgress(int vlan, const Intf& member, const Intf& to, std::set<RefEgress>& out) const;

  const ChipView& view_;
  const std::set<MacKey>& uncertain_;
};

}  // namespace Soak
