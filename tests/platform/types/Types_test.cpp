// Interface ids, addresses, VLAN ids and the other platform value types.
#include "platform/types/Bridging.h"
#include "platform/types/Keel.h"
#include "platform/types/L3.h"
#include "platform/types/Nexo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

using Nexo::IntfId;

template <class T>
void expectRoundTrip(const T& value) {
  EXPECT_EQ(Vex::fromStrep<T>(Vex::toStrep(value)), value) << Vex::toStrep(value);
}

template <class T>
void expectRangeError(std::uint32_t value, const char* text) {
  try {
    T t(value);
    ADD_FAILURE() << "accepted " << value;
  } catch (const Vex::RangeError& e) {
    EXPECT_STREQ(e.what(), text);
  }
}

TEST(IntfId, ParsesAndPrintsEveryKind) {
  for (const char* name : {"Ethernet1", "Ethernet1/2", "Ethernet3/1/4", "Port-Channel10", "Vlan100", "Cpu", "Loopback0",
                           "Management1", "Management1/1", "Recirc-Channel1", "Vxlan1", "Tunnel7", "Ethernet1.100",
                           "Ethernet2/1.7", "Port-Channel10.5"}) {
    IntfId id(name);
    EXPECT_EQ(id.stringValue(), name);
    expectRoundTrip(id);
  }
  IntfId empty;
  EXPECT_TRUE(empty.empty());
  EXPECT_EQ(empty.stringValue(), "");
  expectRoundTrip(empty);
}

TEST(IntfId, KindPredicates) {
  EXPECT_TRUE(IntfId("Port-Channel10").isLag());
  EXPECT_TRUE(IntfId("Port-Channel10").isSubIntfParent());
  EXPECT_TRUE(IntfId("Ethernet4").isEthernet());
  EXPECT_TRUE(IntfId("Vlan4094").isVlan());
  EXPECT_TRUE(IntfId("Cpu").isCpu());
  IntfId sub("Port-Channel10.5");
  EXPECT_TRUE(sub.isLag());
  EXPECT_TRUE(Nexo::SubIntfId::isSubIntfId(sub));
  EXPECT_FALSE(sub.isSubIntfParent());
  EXPECT_EQ(sub.subIntfNumber(), 5u);
  EXPECT_EQ(sub.parentIntfId(), IntfId("Port-Channel10"));
  EXPECT_FALSE(Nexo::SubIntfId::isSubIntfId(IntfId("Ethernet1")));
  EXPECT_FALSE(IntfId("Vlan10").isSubIntfParent());
  EXPECT_EQ(IntfId("Vlan10").number(), 10u);
}

TEST(IntfId, RejectsBadNames) {
  for (const char* name : {"Ethernet", "Eth1", "Ethernet1x", "Ethernet01", "Ethernet1/", "Ethernet1/2/3/4", "Foo1",
                           "Cpu1", "Vlan0", "Vlan4095", "Vlan10.1", "Ethernet1.0", "Ethernet1.", "ethernet1",
                           "Port-Channel1/2", "Ethernet-1", "Ethernet1 "}) {
    EXPECT_THROW(IntfId{name}, Vex::ParseError) << name;
  }
  try {
    IntfId bad("Foo1");
  } catch (const Vex::ParseError& e) {
    EXPECT_NE(std::string(e.what()).find("Nexo::IntfId from 'Foo1'"), std::string::npos);
  }
}

TEST(IntfId, OrdersNaturallyByKindThenNumber) {
  std::vector<IntfId> ids{IntfId("Port-Channel1"),
                          IntfId("Ethernet10"),
                          IntfId("Ethernet2"),
                          IntfId("Ethernet2/1"),
                          IntfId("Ethernet2.5"),
                          IntfId("Vlan5"),
                          IntfId()};
  std::sort(ids.begin(), ids.end());
  std::vector<std::string> names;
  for (const auto& id : ids) names.push_back(id.stringValue());
  EXPECT_EQ(names, (std::vector<std::string>{"", "Ethernet2", "Ethernet2.5", "Ethernet2/1", "Ethernet10",
                                             "Port-Channel1", "Vlan5"}));
}

TEST(EthAddr, ParsesBothFormsAndPrintsColons) {
  Nexo::EthAddr a("AA:bb:cc:00:11:22"), b("aabb.cc00.1122");
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.stringValue(), "aa:bb:cc:00:11:22");
  EXPECT_TRUE(a < Nexo::EthAddr("aa:bb:cc:00:11:23"));
  EXPECT_TRUE(Nexo::EthAddr("ff:ff:ff:ff:ff:ff").isBroadcast());
  EXPECT_TRUE(Nexo::EthAddr("01:00:5e:00:00:01").isMulticast());
  EXPECT_FALSE(a.isMulticast());
  expectRoundTrip(a);
  for (const char* bad : {"", "aa:bb:cc:dd:ee", "aa:bb:cc:dd:ee:gg", "aa-bb-cc-dd-ee-ff", "aabb.ccdd.eef",
                          "aa:bb:cc:dd:ee:ff:00", "aabbccddeeff"}) {
    EXPECT_THROW(Nexo::EthAddr{bad}, Vex::ParseError) << bad;
  }
  expectRoundTrip(Nexo::EthAddrWithMask{a, Nexo::EthAddr("ff:ff:ff:00:00:00")});
}

TEST(IpAddr, ParsesAndRejects) {
  Nexo::IpAddr a("10.1.2.3");
  EXPECT_EQ(a.value(), 0x0a010203u);
  EXPECT_EQ(a.stringValue(), "10.1.2.3");
  expectRoundTrip(a);
  for (const char* bad : {"10.1.2", "10.1.2.256", "10.1.2.3.4", "a.b.c.d", "10..2.3", "010.1.2.3", ""}) {
    EXPECT_THROW(Nexo::IpAddr{bad}, Vex::ParseError) << bad;
  }
}

TEST(Ip6Addr, CompressesAndRejects) {
  Nexo::Ip6Addr a("2001:0db8:0000:0000:0000:0000:0000:0001");
  EXPECT_EQ(a.stringValue(), "2001:db8::1");
  expectRoundTrip(a);
  EXPECT_THROW(Nexo::Ip6Addr{"2001:db8::1::2"}, Vex::ParseError);
  EXPECT_THROW(Nexo::Ip6Addr{"10.0.0.1"}, Vex::ParseError);
  Nexo::IpGenAddr g4("10.0.0.1"), g6("::1");
  EXPECT_FALSE(g4.isV6());
  EXPECT_TRUE(g6.isV6());
  EXPECT_LT(g4, g6);
  expectRoundTrip(g4);
  expectRoundTrip(g6);
}

TEST(Prefix, ClearsHostBitsAndBoundsTheLength) {
  Nexo::Prefix p("10.1.2.3/16");
  EXPECT_EQ(p.stringValue(), "10.1.0.0/16");
  EXPECT_TRUE(p.contains(Nexo::IpAddr("10.1.200.1")));
  EXPECT_FALSE(p.contains(Nexo::IpAddr("10.2.0.1")));
  EXPECT_EQ(Nexo::Prefix("0.0.0.0/0").stringValue(), "0.0.0.0/0");
  expectRoundTrip(p);
  EXPECT_THROW(Nexo::Prefix{"10.0.0.0/33"}, Vex::ParseError);
  EXPECT_THROW(Nexo::Prefix{"10.0.0.0"}, Vex::ParseError);
  Nexo::Ip6Prefix q("2001:db8::ff/120");
  EXPECT_EQ(q.stringValue(), "2001:db8::/120");
  expectRoundTrip(q);
  EXPECT_EQ(Nexo::Ip6Prefix("2001:db8::ffff/113").stringValue(), "2001:db8::8000/113");
  EXPECT_THROW(Nexo::Ip6Prefix{"::/129"}, Vex::ParseError);
}

TEST(VlanId, RangeErrorsSayExactlyWhat) {
  expectRangeError<Bridging::VlanId>(0, "VlanId::value < 1 or > 4094 not allowed");
  expectRangeError<Bridging::VlanId>(4095, "VlanId::value < 1 or > 4094 not allowed");
  expectRangeError<Bridging::VlanIdOrNone>(4095, "VlanIdOrNone::value > 4094 not allowed");
  EXPECT_EQ(Bridging::VlanId(1).value(), 1);
  EXPECT_EQ(Bridging::VlanId(4094).value(), 4094);
  EXPECT_TRUE(Bridging::VlanIdOrNone(0).isNone());
  EXPECT_FALSE(Bridging::VlanId().valid());
  expectRoundTrip(Bridging::VlanId(4094));
  expectRoundTrip(Bridging::VlanId());
  expectRoundTrip(Bridging::VlanIdOrNone(7));
  expectRoundTrip(Bridging::Fid(300));
  EXPECT_THROW(Vex::fromStrep<Bridging::VlanId>("Value('Bridging::VlanId', ** {'value': 4095})"), Vex::ParseError);
}

TEST(MacVlanPair, OrdersByAddressThenVlan) {
  Bridging::MacVlanPair a{Nexo::EthAddr("00:00:00:00:00:01"), Bridging::VlanId(20)};
  Bridging::MacVlanPair b{Nexo::EthAddr("00:00:00:00:00:02"), Bridging::VlanId(10)};
  Bridging::MacVlanPair c{Nexo::EthAddr("00:00:00:00:00:02"), Bridging::VlanId(11)};
  EXPECT_LT(a, b);
  EXPECT_LT(b, c);
  expectRoundTrip(c);
  EXPECT_NE(boost::hash<Bridging::MacVlanPair>()(b), boost::hash<Bridging::MacVlanPair>()(c));
}

TEST(EntryType, WordsOfTheTable) {
  EXPECT_STREQ(Bridging::entryTypeWord(Bridging::EntryType::entryDynamic), "dynamic");
  EXPECT_STREQ(Bridging::entryTypeWord(Bridging::EntryType::entryConfiguredDynamic), "configured dynamic");
  EXPECT_STREQ(Bridging::entryTypeWord(Bridging::EntryType::entryPeerEvpnRemote), "peer evpn remote");
  EXPECT_STREQ(Bridging::entryTypeWord(Bridging::EntryType::entryPeerAuthenticated), "peer authenticated");
  EXPECT_EQ(static_cast<int>(Bridging::EntryType::entryAuthenticated), 21);
  EXPECT_EQ(Bridging::entryTypeWord(static_cast<Bridging::EntryType>(3)), nullptr);
  Bridging::EntryType type{};
  ASSERT_TRUE(Bridging::entryTypeFromWord("static remote", type));
  EXPECT_EQ(type, Bridging::EntryType::entryStaticRemote);
  EXPECT_FALSE(Bridging::entryTypeFromWord("bogus", type));
}

TEST(Seqno32, ComparesInSequenceOrderAcrossTheWrap) {
  Keel::Seqno32 last(0xffffffffu), first(0), mid(5);
  EXPECT_LT(last, first);
  EXPECT_LT(first, mid);
  EXPECT_EQ(mid - last, 6);
  Keel::Seqno32 next = last;
  ++next;
  EXPECT_EQ(next, first);
  expectRoundTrip(last);
}

TEST(VrfName, DefaultsAndBoundsItsLength) {
  EXPECT_EQ(L3::VrfName().value(), "default");
  EXPECT_TRUE(L3::VrfName().isDefault());
  EXPECT_NO_THROW(L3::VrfName(std::string(100, 'v')));
  try {
    L3::VrfName(std::string(101, 'v'));
    ADD_FAILURE();
  } catch (const Vex::RangeError& e) {
    EXPECT_STREQ(e.what(), "VrfName::value::bytes > VrfName::maxLength not allowed");
  }
  expectRoundTrip(L3::VrfName("blue"));
}

}  // namespace
