// Watched prefixes and the VRF-qualified keys, for both address families.
#include "Orb/OrbL3Watch.h"

#include <gtest/gtest.h>

namespace {

using namespace Orb;

// What the IPv4 and IPv6 forms of one test need.
struct V4 {
  using Config = RouteReactorConfig;
  using Status = RouteReactorStatus;
  using VrfPrefix = VrfAndPrefix;
  using VrfAddr = VrfAndIpAddr;
  using Prefix = Nexo::Prefix;
  using Addr = Nexo::IpAddr;
  static constexpr unsigned hostLen = 32;
  static Prefix prefix(const char* v4, const char*) { return Prefix(v4); }
  static Addr addr(const char* v4, const char*) { return Addr(v4); }
  static Vex::Ptr<Config> config() { return routeReactorConfigFactory("watch"); }
  static void add(Config& c, const VrfPrefix& vp, bool mac, bool arp) { c.addWatchedPrefix(vp, mac, arp); }
  static void remove(Config& c, const VrfPrefix& vp, bool mac, bool arp) { c.removeWatchedPrefix(vp, mac, arp); }
  static void addHost(Config& c, const VrfAddr& va, bool mac) { c.addWatchedAddr(va, mac); }
  static void removeHost(Config& c, const VrfAddr& va, bool mac) { c.removeWatchedAddr(va, mac); }
};

struct V6 {
  using Config = Route6ReactorConfig;
  using Status = Route6ReactorStatus;
  using VrfPrefix = VrfAndIp6Prefix;
  using VrfAddr = VrfAndIp6Addr;
  using Prefix = Nexo::Ip6Prefix;
  using Addr = Nexo::Ip6Addr;
  static constexpr unsigned hostLen = 128;
  static Prefix prefix(const char*, const char* v6) { return Prefix(v6); }
  static Addr addr(const char*, const char* v6) { return Addr(v6); }
  static Vex::Ptr<Config> config() { return route6ReactorConfigFactory("watch6"); }
  static void add(Config& c, const VrfPrefix& vp, bool mac, bool arp) { c.addWatchedIp6Prefix(vp, mac, arp); }
  static void remove(Config& c, const VrfPrefix& vp, bool mac, bool arp) { c.removeWatchedIp6Prefix(vp, mac, arp); }
  static void addHost(Config& c, const VrfAddr& va, bool mac) { c.addWatchedIp6Addr(va, mac); }
  static void removeHost(Config& c, const VrfAddr& va, bool mac) { c.removeWatchedIp6Addr(va, mac); }
};

template <class F>
class WatchTest : public ::testing::Test {
 protected:
  using VrfPrefix = typename F::VrfPrefix;
  using VrfAddr = typename F::VrfAddr;

  struct Counter : F::Config::Notifiee {
    using F::Config::Notifiee::Notifiee;
    int watched = 0;
    void handleWatchedPrefix(const VrfPrefix&) override { ++watched; }
  };

  Vex::Ptr<typename F::Config> config = F::config();
  Counter counter{config};
  VrfPrefix net{VrfId(1), F::prefix("10.1.0.0/16", "2001:db8:1::/48")};
  VrfAddr netAddr{net};
};

using Families = ::testing::Types<V4, V6>;
TYPED_TEST_SUITE(WatchTest, Families);

TYPED_TEST(WatchTest, OptionStaysWithTheWatcherThatWantedIt) {
  auto& c = *this->config;
  TypeParam::add(c, this->net, true, false);
  TypeParam::add(c, this->net, false, false);
  auto config = c.watchedPrefix(this->net);
  EXPECT_EQ(config.refCount, 2u);
  EXPECT_TRUE(config.monitorNhMac);
  EXPECT_FALSE(config.proactiveArp);
  EXPECT_EQ(config.key, this->net);
  EXPECT_EQ(c.monitorNhMacCount(this->netAddr), 1u);

  // The watcher with the option leaves: the prefix stays, the option goes.
  TypeParam::remove(c, this->net, true, false);
  ASSERT_TRUE(c.watchedPrefixHas(this->net));
  config = c.watchedPrefix(this->net);
  EXPECT_EQ(config.refCount, 1u);
  EXPECT_FALSE(config.monitorNhMac);
  EXPECT_FALSE(c.monitorNhMacCountHas(this->netAddr));

  TypeParam::remove(c, this->net, false, false);
  EXPECT_FALSE(c.watchedPrefixHas(this->net));
  EXPECT_EQ(c.watchedPrefixSize(), 0u);
}

TYPED_TEST(WatchTest, OptionCountsAreShared) {
  auto& c = *this->config;
  TypeParam::add(c, this->net, true, true);
  TypeParam::add(c, this->net, true, true);
  EXPECT_EQ(c.monitorNhMacCount(this->netAddr), 2u);
  EXPECT_EQ(c.proactiveArpCount(this->netAddr), 2u);
  // One of two watchers with the options leaves: they stay on.
  TypeParam::remove(c, this->net, true, true);
  EXPECT_TRUE(c.watchedPrefix(this->net).monitorNhMac);
  EXPECT_TRUE(c.watchedPrefix(this->net).proactiveArp);
  TypeParam::remove(c, this->net, true, true);
  EXPECT_FALSE(c.watchedPrefixHas(this->net));
  EXPECT_FALSE(c.monitorNhMacCountHas(this->netAddr));
  EXPECT_FALSE(c.proactiveArpCountHas(this->netAddr));
}

TYPED_TEST(WatchTest, HostIsAFullLengthPrefixWithProactiveArp) {
  auto& c = *this->config;
  typename TypeParam::VrfAddr host{VrfId(2), TypeParam::addr("10.1.2.3", "2001:db8::5")};
  TypeParam::addHost(c, host, false);
  typename TypeParam::VrfPrefix asPrefix{VrfId(2), typename TypeParam::Prefix(host.addr, TypeParam::hostLen)};
  ASSERT_TRUE(c.watchedPrefixHas(asPrefix));
  EXPECT_EQ(c.watchedPrefix(asPrefix).key.prefix.len(), TypeParam::hostLen);
  EXPECT_TRUE(c.watchedPrefix(asPrefix).proactiveArp);
  EXPECT_FALSE(c.watchedPrefix(asPrefix).monitorNhMac);
  EXPECT_EQ(c.proactiveArpCount(host), 1u);
  TypeParam::removeHost(c, host, false);
  EXPECT_EQ(c.watchedPrefixSize(), 0u);
  EXPECT_FALSE(c.proactiveArpCountHas(host));
}

TYPED_TEST(WatchTest, EveryAddNotifiesAndRemovingWhatIsNotWatchedDoesNothing) {
  auto& c = *this->config;
  TypeParam::add(c, this->net, false, false);
  TypeParam::add(c, this->net, false, false);
  EXPECT_EQ(this->counter.watched, 2);
  typename TypeParam::VrfPrefix other{VrfId(this->net.vrfId.value() + 1), this->net.prefix};
  TypeParam::remove(c, other, true, true);
  EXPECT_EQ(this->counter.watched, 2);
  EXPECT_EQ(c.watchedPrefix(this->net).refCount, 2u);
  EXPECT_FALSE(c.monitorNhMacCountHas(typename TypeParam::VrfAddr(other)));
}

TYPED_TEST(WatchTest, TrieFindsTheMostSpecificWatchedPrefix) {
  auto status = Vex::make<typename TypeParam::Status>("status");
  using VP = typename TypeParam::VrfPrefix;
  VP wide{VrfId(1), TypeParam::prefix("10.0.0.0/8", "2001:db8::/32")};
  VP narrow{VrfId(1), TypeParam::prefix("10.1.0.0/16", "2001:db8:1::/48")};
  VP host{VrfId(1), TypeParam::prefix("10.1.2.3/32", "2001:db8:1::5/128")};
  VP otherVrf{VrfId(2), TypeParam::prefix("10.1.2.3/32", "2001:db8:1::5/128")};
  EXPECT_TRUE(status->triePrefixIs(wide));
  EXPECT_TRUE(status->triePrefixIs(narrow));
  EXPECT_FALSE(status->triePrefixIs(narrow));
  EXPECT_EQ(*status->longestWatchedPrefix(host), narrow.prefix);
  EXPECT_FALSE(status->longestWatchedPrefix(otherVrf));
  EXPECT_TRUE(status->triePrefixDel(narrow));
  EXPECT_FALSE(status->triePrefixDel(narrow));
  EXPECT_EQ(*status->longestWatchedPrefix(host), wide.prefix);
  EXPECT_TRUE(status->triePrefixDel(wide));
  // The VRF's trie goes with its last prefix.
  EXPECT_FALSE(status->vrfTrieHas(VrfId(1)));
}

TEST(PrefixTrie, PrunesAndReusesNodesAndKeepsTheDefaultRoute) {
  Routing::Trie trie;
  EXPECT_FALSE(trie.longestMatch(Nexo::IpAddr("1.2.3.4")));
  trie.insert(Nexo::Prefix("0.0.0.0/0"));
  trie.insert(Nexo::Prefix("192.168.1.0/24"));
  EXPECT_EQ(*trie.longestMatch(Nexo::IpAddr("192.168.1.7")), Nexo::Prefix("192.168.1.0/24"));
  EXPECT_EQ(*trie.longestMatch(Nexo::IpAddr("192.168.2.7")), Nexo::Prefix("0.0.0.0/0"));
  EXPECT_TRUE(trie.contains(Nexo::Prefix("0.0.0.0/0")));
  EXPECT_FALSE(trie.contains(Nexo::Prefix("192.168.0.0/16")));
  EXPECT_FALSE(trie.erase(Nexo::Prefix("192.168.0.0/16")));
  EXPECT_TRUE(trie.erase(Nexo::Prefix("192.168.1.0/24")));
  EXPECT_EQ(*trie.longestMatch(Nexo::IpAddr("192.168.1.7")), Nexo::Prefix("0.0.0.0/0"));
  EXPECT_EQ(trie.size(), 1u);
  for (int round = 0; round < 3; ++round) {
    trie.insert(Nexo::Prefix("10.9.8.0/24"));
    trie.erase(Nexo::Prefix("10.9.8.0/24"));
  }
  EXPECT_FALSE(trie.contains(Nexo::Prefix("10.9.8.0/24")));
  EXPECT_EQ(trie.size(), 1u);
}

TEST(L3Keys, AHostKeyComesFromItsPrefix) {
  VrfAndPrefix vp{VrfId(3), Nexo::Prefix("10.1.2.0/24")};
  EXPECT_EQ(VrfAndIpAddr(vp), VrfAndIpAddr(VrfId(3), Nexo::IpAddr("10.1.2.0")));
  EXPECT_EQ(Vex::fromStrep<VrfAndPrefix>(Vex::toStrep(vp)), vp);
  VrfAndIp6Prefix vp6{VrfId(4), Nexo::Ip6Prefix("2001:db8::/32")};
  EXPECT_EQ(VrfAndIp6Addr(vp6), VrfAndIp6Addr(VrfId(4), Nexo::Ip6Addr("2001:db8::")));
  EXPECT_NE(std::hash<VrfAndPrefix>()(vp), std::hash<VrfAndPrefix>()(VrfAndPrefix{VrfId(4), vp.prefix}));
}

}  // namespace
