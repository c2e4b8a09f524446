// Interface ids, addresses, VLAN ids and the other platform value types.
#include "platform/types/Bridging.h"
#include "platform/types/Keel.h"
#include "platform/types/L3.h"
#include "platform/types/Nexo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

namespace {

using Nexo::IntfId;

template <class T>
void expectRoundTrip(const T& value) {
  EXPECT_EQ(Vex::fromStrep<T>(Vex::toStrep(value)), value) << Vex::toStrep(value);
}

// Values given in ascending order: each orders before the next and
// survives printing and parsing back.
template <class T>
void expectAscendingAndRoundTrip(const std::vector<T>& values) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    expectRoundTrip(values[i]);
    if (i + 1 < values.size()) {
      EXPECT_LT(values[i], values[i + 1]) << Vex::toStrep(values[i]);
    }
  }
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
                           "Management1", "Management1/1", "Recirc-Channel1", "Vxlan1", "Tunnel7", "PeerEthernet3/1",
                           "Ethernet1.100", "Ethernet2/1.7", "Port-Channel10.5"}) {
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

TEST(IntfId, NumbersAreBounded) {
  for (const char* name :
       {"Ethernet0", "Ethernet65534", "Ethernet1/4094/4094", "Ethernet1.65534", "Vlan1", "Loopback0"}) {
    EXPECT_EQ(IntfId(name).stringValue(), name);
  }
  for (const char* name : {"Ethernet65535", "Ethernet1/4095", "Ethernet1/1/4095", "Ethernet1.65535", "Management1.1",
                           "Cpu.1", "Tunnel1/1", "Ethernet1.+1", "Ethernet+1", "Ethernet1.01"}) {
    EXPECT_THROW(IntfId{name}, Vex::ParseError) << name;
  }
  IntfId eth("Ethernet7"), sub("Ethernet7.7");
  EXPECT_EQ(eth.parentIntfId(), eth);
  EXPECT_NE(eth, sub);
  EXPECT_NE(std::hash<IntfId>()(eth), std::hash<IntfId>()(sub));
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

TEST(Ip6Addr, PrintsTheCanonicalFormAndRejects) {
  const std::pair<const char*, const char*> forms[] = {
      {"2001:0DB8:0000:0000:0000:0000:0000:0001", "2001:db8::1"},
      {"::", "::"},
      {"1::", "1::"},
      {"::1:0", "::1:0"},                      // no dotted tail unless IPv4-mapped
      {"::ffff:102:304", "::ffff:1.2.3.4"},    // IPv4-mapped
      {"1:0:2:3:4:5:6:7", "1:0:2:3:4:5:6:7"},  // a single zero group stays
      {"1:0:0:2:0:0:3:4", "1::2:0:0:3:4"},     // the first of equal runs
      {"1:0:0:2:0:0:0:4", "1:0:0:2::4"},       // the longest run
      {"fe80::1:2.3.4.5", "fe80::1:203:405"},
  };
  for (const auto& [in, out] : forms) {
    Nexo::Ip6Addr a(in);
    EXPECT_EQ(a.stringValue(), out) << in;
    EXPECT_EQ(Nexo::Ip6Addr(out), a) << out;
    expectRoundTrip(a);
  }
  for (const char* bad : {"2001:db8::1::2", "10.0.0.1", "", "1:2:3:4:5:6:7:8:9", "12345::", "g::1", ":1", "1:2"}) {
    EXPECT_THROW(Nexo::Ip6Addr{bad}, Vex::ParseError) << bad;
  }
  expectAscendingAndRoundTrip<Nexo::Ip6Addr>(
      {Nexo::Ip6Addr("::"), Nexo::Ip6Addr("::1"), Nexo::Ip6Addr("1::"), Nexo::Ip6Addr("ff02::1")});
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
  for (const char* bad : {"10.0.0/8", "10.0.0.0/", "10.0.0.0/08", "/8"}) {
    try {
      Nexo::Prefix{bad};
      ADD_FAILURE() << bad;
    } catch (const Vex::ParseError& e) {
      EXPECT_NE(std::string(e.what()).find(std::string("cannot parse Nexo::Prefix from '") + bad + "'"),
                std::string::npos)
          << e.what();
    }
  }
  try {
    Nexo::Prefix(Nexo::IpAddr("10.0.0.0"), 33);
    ADD_FAILURE();
  } catch (const Vex::RangeError& e) {
    EXPECT_STREQ(e.what(), "Prefix::len > 32 not allowed");
  }
  EXPECT_THROW(Nexo::Ip6Prefix(Nexo::Ip6Addr("::"), 129), Vex::RangeError);
  // Shorter prefixes of the same address order first.
  expectAscendingAndRoundTrip<Nexo::Prefix>({Nexo::Prefix("0.0.0.0/0"), Nexo::Prefix("10.0.0.0/8"),
                                             Nexo::Prefix("10.0.0.0/16"), Nexo::Prefix("10.1.0.0/16")});
  expectAscendingAndRoundTrip<Nexo::Ip6Prefix>(
      {Nexo::Ip6Prefix("::/0"), Nexo::Ip6Prefix("2001:db8::/32"), Nexo::Ip6Prefix("2001:db8::/64")});
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
  EXPECT_THROW(Vex::fromStrep<Bridging::VlanIdOrNone>("Value('Bridging::VlanIdOrNone', ** {'value': 4095})"),
               Vex::ParseError);
  EXPECT_THROW(Vex::fromStrep<Bridging::Fid>("Value('Bridging::Fid', ** {'value': 65536})"), Vex::ParseError);
  expectAscendingAndRoundTrip<Bridging::VlanId>(
      {Bridging::VlanId(), Bridging::VlanId(1), Bridging::VlanId(2), Bridging::VlanId(4094)});
  expectAscendingAndRoundTrip<Bridging::VlanIdOrNone>(
      {Bridging::VlanIdOrNone(), Bridging::VlanIdOrNone(Bridging::VlanId(3)), Bridging::VlanIdOrNone(4094)});
  expectAscendingAndRoundTrip<Bridging::Fid>({Bridging::Fid(0), Bridging::Fid(9), Bridging::Fid(65535)});
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
  boost::mp11::mp_for_each<boost::describe::describe_enumerators<Bridging::EntryType>>([](auto e) {
    EXPECT_NE(Bridging::entryTypeWord(e.value), nullptr) << e.name;
    EXPECT_EQ(Vex::fromStrep<Bridging::EntryType>(Vex::toStrep(e.value)), e.value);
  });
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
  expectAscendingAndRoundTrip<L3::VrfName>(
      {L3::VrfName(""), L3::VrfName("blue"), L3::VrfName("default"), L3::VrfName("it's \\ odd")});
  EXPECT_THROW(Vex::fromStrep<L3::VrfName>(Vex::toStrep(std::string(101, 'v'))), Vex::ParseError);
}

TEST(Addresses, OrderNumerically) {
  expectAscendingAndRoundTrip<Nexo::EthAddr>({Nexo::EthAddr(), Nexo::EthAddr("00:00:00:00:00:ff"),
                                              Nexo::EthAddr("00:00:00:00:01:00"), Nexo::EthAddr("ff:ff:ff:ff:ff:ff")});
  expectAscendingAndRoundTrip<Nexo::IpAddr>(
      {Nexo::IpAddr("9.255.255.255"), Nexo::IpAddr("10.0.0.0"), Nexo::IpAddr("255.255.255.255")});
  expectAscendingAndRoundTrip<Nexo::IpGenAddr>(
      {Nexo::IpGenAddr("0.0.0.1"), Nexo::IpGenAddr("255.0.0.0"), Nexo::IpGenAddr("::"), Nexo::IpGenAddr("::1")});
  Nexo::EthAddr a("00:00:00:00:00:01"), ones("ff:ff:ff:ff:ff:ff");
  expectAscendingAndRoundTrip<Nexo::EthAddrWithMask>({{a, a}, {a, ones}, {ones, a}});
}

}  // namespace
