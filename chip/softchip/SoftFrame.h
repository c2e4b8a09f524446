// A frame as the soft chip's forwarding model sees it: the L2 header, an
// optional 802.1Q tag, and the L3/L4 fields a LAG hash reads. Nothing of
// the payload.
//
// Its text form is short to type in scenarios:
//
//   src MAC dst MAC [vlan V [pri P] [inner W]] [type ETHERTYPE]
//       [ip SRC DST [ttl N] [tcp SPORT DPORT [flags F,...] | udp SPORT DPORT] [fragment]]
//
// e.g. "src 00:00:00:00:00:01 dst ff:ff:ff:ff:ff:ff vlan 10 ip 10.0.0.1 10.0.0.2 udp 1000 2000".
// `inner W` adds a second (inner) 802.1Q tag, as a double-tagged frame
// carries it. `ip` takes two IPv4 or two IPv6 addresses. The ethertype defaults to IPv4
// (0x0800) or IPv6 (0x86dd) after `ip`, and to 0x88b5 (local experimental)
// without it. TCP flags are named (fin, syn, rst, psh, ack, urg);
// `fragment` makes the packet a non-first fragment. frameText prints the one canonical form, which parses back
// to the same frame.
#pragma once

#include "platform/types/Bridging.h"
#include "platform/types/Nexo.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace SoftChip {

struct FrameTag {
  std::uint16_t vlan = 0;  // 0: a priority-tagged frame, classified as untagged
  std::uint8_t priority = 0;
  auto operator<=>(const FrameTag&) const = default;
};

enum class L4Protocol : std::uint8_t { none, tcp, udp };

struct Frame {
  static constexpr std::uint16_t etherTypeIpv4 = 0x0800;
  static constexpr std::uint16_t etherTypeIpv6 = 0x86dd;
  static constexpr std::uint16_t etherTypeLocal = 0x88b5;
  static constexpr std::uint8_t defaultTtl = 64;

  Nexo::EthAddr src;
  Nexo::EthAddr dst;
  std::optional<FrameTag> tag;
  std::optional<FrameTag> innerTag;  // only with `tag`: a double-tagged frame
  std::uint16_t etherType = etherTypeLocal;
  // Both set, of one family, or neither.
  std::optional<Nexo::IpGenAddr> ipSrc;
  std::optional<Nexo::IpGenAddr> ipDst;
  std::uint8_t ttl = defaultTtl;  // TTL or hop limit; routing lowers it
  L4Protocol l4 = L4Protocol::none;
  std::uint16_t srcPort = 0;
  std::uint16_t dstPort = 0;
  std::uint8_t tcpFlags = 0;  // TCP only: fin 0x01, syn 0x02, rst 0x04, psh 0x08, ack 0x10, urg 0x20
  bool fragment = false;      // a non-first fragment: its L4 ports are not seen

  bool operator==(const Frame&) const = default;
};

// Bad frame text: the message names the token at fault and what was expected.
class FrameSyntaxError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// Parses the text form; throws FrameSyntaxError.
Frame frameFromText(std::string_view text);
// The canonical text form.
std::string frameText(const Frame& frame);

// The hash a LAG picks its member by: source and destination MAC, ethertype,
// IP addresses and L4 ports, so every frame of one flow takes one member.
// Not the TTL, which changes hop by hop. Not the tag: a flow keeps its member whichever VLAN it is carried in.
std::uint64_t frameFlowHash(const Frame& frame);

}  // namespace SoftChip
