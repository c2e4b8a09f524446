// Next-hop group configuration types published by the routing agents.
#pragma once

#include <boost/describe/enum.hpp>

#include <cstdint>

namespace Routing::NexthopGroup {

// How the entries of a next-hop group are counted: not at all, by one
// counter for the whole group, or by a counter per entry.
enum class EntryCounterType : std::uint8_t { entryCounterNone, entryCounterShared, entryCounterUnshared };
BOOST_DESCRIBE_ENUM(EntryCounterType, entryCounterNone, entryCounterShared, entryCounterUnshared)

// The encapsulation a configured next-hop group applies.
enum class NexthopGroupType : std::uint8_t {
  nexthopGroupTypeIp,
  nexthopGroupTypeIpInIp,
  nexthopGroupTypeGre,
  nexthopGroupTypeMpls,
  nexthopGroupTypeMplsOverGre,
  nexthopGroupTypeMplsOverUdp,
  nexthopGroupTypeVxlan,
};
BOOST_DESCRIBE_ENUM(NexthopGroupType, nexthopGroupTypeIp, nexthopGroupTypeIpInIp, nexthopGroupTypeGre,
                    nexthopGroupTypeMpls, nexthopGroupTypeMplsOverGre, nexthopGroupTypeMplsOverUdp,
                    nexthopGroupTypeVxlan)

}  // namespace Routing::NexthopGroup
