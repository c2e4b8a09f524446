// Watched prefixes: clients ask the layer to follow what a prefix (or a
// host address) resolves to, some also to monitor the next hop's MAC or to
// resolve it by ARP ahead of traffic. Several clients may watch one prefix
// with different options, so watches are reference-counted and an option
// stays on while any watcher of its address still wants it.
//
// Every IPv4 type has an IPv6 twin with the same behaviour; both are one
// template over the address family.
#pragma once

#include "Orb/OrbCommonTypes.h"
#include "Orb/OrbNexthopTypes.h"
#include "Orb/OrbPrefixTrie.h"
#include "platform/vex/Entity.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Orb {

struct WatchPrefixConfig {
  VrfAndPrefix key;
  std::uint32_t refCount = 0;
  bool monitorNhMac = false;
  bool proactiveArp = false;
  auto operator<=>(const WatchPrefixConfig&) const = default;
};
VEX_VALUE(WatchPrefixConfig, "Orb::WatchPrefixConfig", (key, refCount, monitorNhMac, proactiveArp))

struct WatchPrefix6Config {
  VrfAndIp6Prefix key;
  std::uint32_t refCount = 0;
  bool monitorNhMac = false;
  bool proactiveArp = false;
  auto operator<=>(const WatchPrefix6Config&) const = default;
};
VEX_VALUE(WatchPrefix6Config, "Orb::WatchPrefix6Config", (key, refCount, monitorNhMac, proactiveArp))

struct Ip4Family {
  using Prefix = Nexo::Prefix;
  using Addr = Nexo::IpAddr;
  using VrfPrefix = VrfAndPrefix;
  using VrfAddr = VrfAndIpAddr;
  using WatchConfig = WatchPrefixConfig;
  using Trie = Routing::Trie;
  static constexpr unsigned hostLen = 32;
};

struct Ip6Family {
  using Prefix = Nexo::Ip6Prefix;
  using Addr = Nexo::Ip6Addr;
  using VrfPrefix = VrfAndIp6Prefix;
  using VrfAddr = VrfAndIp6Addr;
  using WatchConfig = WatchPrefix6Config;
  using Trie = Routing6::Trie;
  static constexpr unsigned hostLen = 128;
};

template <class F>
class RouteReactorConfigT : public Vex::Entity {
 public:
  using VrfPrefix = typename F::VrfPrefix;
  using VrfAddr = typename F::VrfAddr;
  using WatchConfig = typename F::WatchConfig;

  class Notifiee : public Vex::BaseNotifiee<RouteReactorConfigT> {
   public:
    using Vex::BaseNotifiee<RouteReactorConfigT>::BaseNotifiee;
    VEX_KEY_HANDLER(WatchedPrefix, VrfPrefix)
    VEX_KEY_HANDLER(MonitorNhMacCount, VrfAddr)
    VEX_KEY_HANDLER(ProactiveArpCount, VrfAddr)
  };
  using Entity::Entity;

  VEX_COLLECTION(VrfPrefix, WatchConfig, watchedPrefix, WatchedPrefix)
  VEX_KEYED_COUNTER(VrfAddr, std::uint32_t, monitorNhMacCount, MonitorNhMacCount)
  VEX_KEYED_COUNTER(VrfAddr, std::uint32_t, proactiveArpCount, ProactiveArpCount)

 protected:
  void addWatched(const VrfPrefix& vp, bool monitorNhMac, bool proactiveArp) {
    WatchConfig config = watchedPrefix(vp);
    config.key = vp;
    ++config.refCount;
    VrfAddr addr(vp);
    if (monitorNhMac) {
      monitorNhMacCountInc(addr);
      if (monitorNhMacCount(addr) == 1) config.monitorNhMac = true;
    }
    if (proactiveArp) {
      proactiveArpCountInc(addr);
      if (proactiveArpCount(addr) == 1) config.proactiveArp = true;
    }
    watchedPrefixIs(vp, config);
  }

  void removeWatched(const VrfPrefix& vp, bool monitorNhMac, bool proactiveArp) {
    auto it = watchedPrefix().find(vp);
    if (it == watchedPrefix().end()) return;
    WatchConfig config = it->second;
    if (--config.refCount == 0) {
      watchedPrefixDel(vp);
    } else {
      watchedPrefixIs(vp, config);
    }
    VrfAddr addr(vp);
    // The last watcher of the address that wanted an option takes it off.
    if (monitorNhMac && monitorNhMacCount(addr) != 0) {
      if (monitorNhMacCount(addr) == 1 && watchedPrefixHas(vp)) optionOff(vp, &WatchConfig::monitorNhMac);
      monitorNhMacCountDec(addr);
    }
    if (proactiveArp && proactiveArpCount(addr) != 0) {
      if (proactiveArpCount(addr) == 1 && watchedPrefixHas(vp)) optionOff(vp, &WatchConfig::proactiveArp);
      proactiveArpCountDec(addr);
    }
  }

  // A host is watched as its full-length prefix, always with proactive ARP.
  static VrfPrefix hostPrefix(const VrfAddr& va) {
    return VrfPrefix{va.vrfId, typename F::Prefix(va.addr, F::hostLen)};
  }

 private:
  void optionOff(const VrfPrefix& vp, bool WatchConfig::*option) {
    WatchConfig config = watchedPrefix(vp);
    config.*option = false;
    watchedPrefixIs(vp, config);
  }
};

class RouteReactorConfig : public RouteReactorConfigT<Ip4Family> {
 public:
  explicit RouteReactorConfig(std::string name) : RouteReactorConfigT(std::move(name)) {}
  void addWatchedPrefix(const VrfAndPrefix& vp, bool monitorNhMac, bool proactiveArp) {
    addWatched(vp, monitorNhMac, proactiveArp);
  }
  void removeWatchedPrefix(const VrfAndPrefix& vp, bool monitorNhMac, bool proactiveArp) {
    removeWatched(vp, monitorNhMac, proactiveArp);
  }
  void addWatchedAddr(const VrfAndIpAddr& va, bool monitorNhMac) { addWatched(hostPrefix(va), monitorNhMac, true); }
  void removeWatchedAddr(const VrfAndIpAddr& va, bool monitorNhMac) {
    removeWatched(hostPrefix(va), monitorNhMac, true);
  }
};

class Route6ReactorConfig : public RouteReactorConfigT<Ip6Family> {
 public:
  explicit Route6ReactorConfig(std::string name) : RouteReactorConfigT(std::move(name)) {}
  void addWatchedIp6Prefix(const VrfAndIp6Prefix& vp, bool monitorNhMac, bool proactiveArp) {
    addWatched(vp, monitorNhMac, proactiveArp);
  }
  void removeWatchedIp6Prefix(const VrfAndIp6Prefix& vp, bool monitorNhMac, bool proactiveArp) {
    removeWatched(vp, monitorNhMac, proactiveArp);
  }
  void addWatchedIp6Addr(const VrfAndIp6Addr& va, bool monitorNhMac) { addWatched(hostPrefix(va), monitorNhMac, true); }
  void removeWatchedIp6Addr(const VrfAndIp6Addr& va, bool monitorNhMac) {
    removeWatched(hostPrefix(va), monitorNhMac, true);
  }
};

Vex::Ptr<RouteReactorConfig> routeReactorConfigFactory(const std::string& name);
Vex::Ptr<Route6ReactorConfig> route6ReactorConfigFactory(const std::string& name);

// The per-VRF lookup tries over the watched prefixes, kept by whoever
// follows the watch list; a trie goes with its VRF's last prefix.
template <class F>
class RouteReactorStatusT : public Vex::Entity {
 public:
  using VrfPrefix = typename F::VrfPrefix;
  using Trie = typename F::Trie;

  class Notifiee : public Vex::BaseNotifiee<RouteReactorStatusT> {
   public:
    using Vex::BaseNotifiee<RouteReactorStatusT>::BaseNotifiee;
    VEX_KEY_HANDLER(ResolvedPrefix, VrfAndIpGenPrefix)
    VEX_KEY_HANDLER(VrfTrie, VrfId)
  };
  using Entity::Entity;

  // The next hops each watched prefix resolves to now.
  VEX_COLLECTION(VrfAndIpGenPrefix, Vex::Ptr<NextHopEntryList>, resolvedPrefix, ResolvedPrefix)
  VEX_COLLECTION(VrfId, Vex::Ptr<Trie>, vrfTrie, VrfTrie)

  // Adds the prefix to its VRF's trie; true when it was not there.
  bool triePrefixIs(const VrfPrefix& vp) {
    Vex::Ptr<Trie> trie = vrfTrie(vp.vrfId);
    if (!trie) {
      trie = Vex::make<Trie>();
      vrfTrieIs(vp.vrfId, trie);
    }
    return trie->insert(vp.prefix);
  }
  bool triePrefixDel(const VrfPrefix& vp) {
    Vex::Ptr<Trie> trie = vrfTrie(vp.vrfId);
    if (!trie || !trie->erase(vp.prefix)) return false;
    if (trie->size() == 0) vrfTrieDel(vp.vrfId);
    return true;
  }
  // The most specific watched prefix of the VRF that covers `prefix`.
  std::optional<typename F::Prefix> longestWatchedPrefix(const VrfPrefix& vp) const {
    const Vex::Ptr<Trie>& trie = vrfTrie(vp.vrfId);
    if (!trie) return std::nullopt;
    return trie->longestMatch(vp.prefix);
  }
};

using RouteReactorStatus = RouteReactorStatusT<Ip4Family>;
using Route6ReactorStatus = RouteReactorStatusT<Ip6Family>;

Vex::Ptr<RouteReactorStatus> routeReactorStatusFactory(const std::string& name);
Vex::Ptr<Route6ReactorStatus> route6ReactorStatusFactory(const std::string& name);

}  // namespace Orb
