// Tunnel and label encapsulations as the tunnel and MPLS agents publish them,
// with only the fields the forwarding layer uses.
#pragma once

#include "platform/types/Nexo.h"
#include "platform/vex/Value.h"

#include <boost/describe/enum.hpp>

#include <cstdint>
#include <vector>

namespace Nexo {

// Which key a GRE tunnel puts in its header.
enum class GreKeyType : std::uint8_t { greKeyNone, greKeyIngressIntf, greKeyConfigured };
BOOST_DESCRIBE_ENUM(GreKeyType, greKeyNone, greKeyIngressIntf, greKeyConfigured)

enum class MplsOperation : std::uint8_t { mplsNone, mplsPush, mplsSwap, mplsPop };
BOOST_DESCRIBE_ENUM(MplsOperation, mplsNone, mplsPush, mplsSwap, mplsPop)

// What a next hop does to the label stack; labels outermost first.
struct MplsLabelOperation {
  MplsOperation operation = MplsOperation::mplsNone;
  std::vector<std::uint32_t> labelStack;
  auto operator<=>(const MplsLabelOperation&) const = default;
};
VEX_VALUE(MplsLabelOperation, "Nexo::MplsLabelOperation", (operation, labelStack))

}  // namespace Nexo

namespace Tunnel {

struct GreTunnelInfo {
  Nexo::IpGenAddr src;
  Nexo::IpGenAddr dst;
  std::uint32_t key = 0;
  std::uint8_t ttl = 0;
  std::uint8_t tos = 0;
  auto operator<=>(const GreTunnelInfo&) const = default;
};
VEX_VALUE(GreTunnelInfo, "Tunnel::GreTunnelInfo", (src, dst, key, ttl, tos))

// An IPsec virtual tunnel interface as the tunnel agent configures it.
struct IpsecVtiTunnelInfo {
  Nexo::IpGenAddr src;
  Nexo::IpGenAddr dst;
  std::uint32_t spi = 0;
  auto operator<=>(const IpsecVtiTunnelInfo&) const = default;
};
VEX_VALUE(IpsecVtiTunnelInfo, "Tunnel::IpsecVtiTunnelInfo", (src, dst, spi))

namespace TunnelTable {

enum class EncapType : std::uint8_t { encapNone, encapGre, encapIpsec, encapMpls };
BOOST_DESCRIBE_ENUM(EncapType, encapNone, encapGre, encapIpsec, encapMpls)

// Index of a tunnel in the tunnel table; 0 is no tunnel.
using TunnelId = std::uint32_t;

}  // namespace TunnelTable

}  // namespace Tunnel
