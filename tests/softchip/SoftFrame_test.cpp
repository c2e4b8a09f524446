// Frames as text, and the flow hash a LAG picks its member by.
#include "chip/softchip/SoftFrame.h"
#include "chip/softchip/SoftLag.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

using SoftChip::Frame;
using SoftChip::frameFromText;
using SoftChip::FrameSyntaxError;
using SoftChip::frameText;

TEST(SoftFrame, TextFormsParseBackToTheSameFrame) {
  for (const char* text : {
           "src 00:00:00:00:00:01 dst ff:ff:ff:ff:ff:ff",
           "src 00:00:00:00:00:01 dst 00:00:00:00:00:02 vlan 10",
           "src 00:00:00:00:00:01 dst 00:00:00:00:00:02 vlan 0 pri 7",
           "src 00:00:00:00:00:01 dst 00:00:00:00:00:02 vlan 4094 pri 3 type 0x88cc",
           "src 00:00:00:00:00:01 dst 01:00:5e:00:00:01 ip 10.0.0.1 224.0.0.5",
           "src 00:00:00:00:00:01 dst 00:00:00:00:00:02 vlan 10 ip 10.0.0.1 10.0.0.2 udp 1000 2000",
           "src 00:00:00:00:00:01 dst 00:00:00:00:00:02 ip 2001:db8::1 2001:db8::2 tcp 0 65535",
           "src 00:00:00:00:00:01 dst 00:00:00:00:00:02 type 0x0806 ip 10.0.0.1 10.0.0.2",
           "src 00:00:00:00:00:01 dst 00:00:00:00:00:02 ip 10.0.0.1 10.0.0.2 ttl 1 udp 1 2",
           "src 00:00:00:00:00:01 dst 00:00:00:00:00:02 ip 2001:db8::1 2001:db8::2 ttl 0",
       }) {
    Frame frame = frameFromText(text);
    EXPECT_EQ(frameText(frame), text);
    EXPECT_EQ(frameFromText(frameText(frame)), frame) << text;
  }
}

TEST(SoftFrame, ShortFormsFillTheirDefaults) {
  Frame frame = frameFromText("  src 0000.0000.0001   dst ffff.ffff.ffff vlan 10 ip 10.0.0.1 10.0.0.2 udp 1 2 ");
  EXPECT_EQ(frame.src, Nexo::EthAddr(1));
  EXPECT_TRUE(frame.dst.isBroadcast());
  ASSERT_TRUE(frame.tag);
  EXPECT_EQ(frame.tag->vlan, 10);
  EXPECT_EQ(frame.tag->priority, 0);
  EXPECT_EQ(frame.etherType, Frame::etherTypeIpv4);
  EXPECT_EQ(frame.l4, SoftChip::L4Protocol::udp);
  EXPECT_EQ(frame.dstPort, 2);
  EXPECT_EQ(frameFromText("src 00:00:00:00:00:01 dst 00:00:00:00:00:02 ip ::1 ::2").etherType, Frame::etherTypeIpv6);
  EXPECT_EQ(frameFromText("src 00:00:00:00:00:01 dst 00:00:00:00:00:02").etherType, Frame::etherTypeLocal);
  EXPECT_FALSE(frameFromText("src 00:00:00:00:00:01 dst 00:00:00:00:00:02").tag);
  // The TTL is 64 unless given, and printed only when it is not.
  EXPECT_EQ(frame.ttl, Frame::defaultTtl);
  EXPECT_EQ(frameText(frameFromText("src 00:00:00:00:00:01 dst 00:00:00:00:00:02 ip ::1 ::2 ttl 64")),
            "src 00:00:00:00:00:01 dst 00:00:00:00:00:02 ip ::1 ::2");
  // A flow keeps its hash hop by hop.
  EXPECT_EQ(SoftChip::frameFlowHash(frameFromText("src 00:00:00:00:00:01 dst 00:00:00:00:00:02 ip ::1 ::2 ttl 3")),
            SoftChip::frameFlowHash(frameFromText("src 00:00:00:00:00:01 dst 00:00:00:00:00:02 ip ::1 ::2")));
}

// The message of the error `text` raises.
std::string errorOf(const std::string& text) {
  try {
    frameFromText(text);
  } catch (const FrameSyntaxError& e) {
    return e.what();
  }
  return "no error";
}

TEST(SoftFrame, BadTextNamesTheTokenAtFault) {
  const std::string macs = "src 00:00:00:00:00:01 dst 00:00:00:00:00:02";
  std::map<std::string, std::string> cases = {
      {"", "frame ends early: expected 'src'"},
      {"dst 00:00:00:00:00:01", "bad frame token 'dst': expected 'src'"},
      {"src 00:00:00:00:00:0g dst 00:00:00:00:00:02", "bad frame token '00:00:00:00:00:0g'"},
      {"src 00:00:00:00:00:01", "frame ends early: expected 'dst'"},
      {macs + " vlan 4095", "bad frame token '4095': expected a VLAN 0-4094"},
      {macs + " vlan ten", "bad frame token 'ten'"},
      {macs + " vlan 10 pri 8", "bad frame token '8': expected a priority 0-7"},
      {macs + " type 800", "bad frame token '800': expected an ethertype"},
      {macs + " type 0x10000", "bad frame token '0x10000'"},
      {macs + " ip 10.0.0.1", "frame ends early: expected a destination IPv4 or IPv6 address"},
      {macs + " ip 10.0.0.1 10.0.0.256", "bad frame token '10.0.0.256'"},
      {macs + " ip 10.0.0.1 ::1", "bad frame token '::1': expected an address of the source's family"},
      {macs + " ip 10.0.0.1 10.0.0.2 udp 1", "frame ends early: expected a destination port"},
      {macs + " ip 10.0.0.1 10.0.0.2 udp 1 65536", "bad frame token '65536'"},
      {macs + " udp 1 2", "bad frame token 'udp': expected 'vlan', 'type', 'ip' or the end of the frame"},
      {macs + " ip 10.0.0.1 10.0.0.2 sctp 1 2", "bad frame token 'sctp': expected the end of the frame"},
      {macs + " ip 10.0.0.1 10.0.0.2 vlan 10", "bad frame token 'vlan'"},
      {macs + " ip 10.0.0.1 10.0.0.2 ttl 256", "bad frame token '256': expected a TTL 0-255"},
      {macs + " ip 10.0.0.1 10.0.0.2 ttl", "frame ends early: expected a TTL 0-255"},
      {macs + " ttl 3", "bad frame token 'ttl'"},
  };
  for (const auto& [text, error] : cases) {
    EXPECT_NE(errorOf(text).find(error), std::string::npos) << "'" << text << "' gave: " << errorOf(text);
  }
}

Frame flow(std::uint32_t n) {
  return frameFromText("src 00:00:00:00:00:01 dst 00:00:00:00:00:02 ip 10.0.0.1 10.0.1." + std::to_string(n % 250) +
                       " tcp " + std::to_string(1000 + n) + " 80");
}

SoftChip::HwLag lagOf(std::initializer_list<const char*> names) {
  SoftChip::HwLag lag;
  for (const char* name : names) lag.members.insert(Nexo::IntfId(name));
  return lag;
}

TEST(SoftLagHash, OneFlowOneMemberWhateverItsTagOrPriority) {
  auto lag = lagOf({"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4"});
  for (std::uint32_t n = 0; n < 100; ++n) {
    Frame frame = flow(n);
    auto member = lag.memberFor(SoftChip::frameFlowHash(frame));
    frame.tag = SoftChip::FrameTag{20, 5};
    EXPECT_EQ(lag.memberFor(SoftChip::frameFlowHash(frame)), member);
  }
  EXPECT_TRUE(SoftChip::HwLag().memberFor(42).empty());
}

TEST(SoftLagHash, FlowsSpreadOverEveryMember) {
  auto lag = lagOf({"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4"});
  std::map<Nexo::IntfId, int> count;
  const int flows = 4000;
  for (std::uint32_t n = 0; n < flows; ++n) ++count[lag.memberFor(SoftChip::frameFlowHash(flow(n)))];
  ASSERT_EQ(count.size(), 4u);
  for (const auto& [member, n] : count) {
    EXPECT_GT(n, flows / 4 * 8 / 10) << member.stringValue();
    EXPECT_LT(n, flows / 4 * 12 / 10) << member.stringValue();
  }
  // Flows differing in one field only spread too: source MACs alone.
  std::map<Nexo::IntfId, int> byMac;
  for (std::uint64_t n = 1; n <= 400; ++n) {
    Frame frame;
    frame.src = Nexo::EthAddr(n);
    frame.dst = Nexo::EthAddr(0x1000);
    ++byMac[lag.memberFor(SoftChip::frameFlowHash(frame))];
  }
  EXPECT_EQ(byMac.size(), 4u);
  for (const auto& [member, n] : byMac) EXPECT_GT(n, 60) << member.stringValue();
}

TEST(SoftLagHash, AMemberGoingMovesOnlyItsFlows) {
  auto lag = lagOf({"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4"});
  auto smaller = lagOf({"Ethernet1", "Ethernet2", "Ethernet4"});
  int moved = 0;
  std::map<Nexo::IntfId, int> movedTo;
  for (std::uint32_t n = 0; n < 1000; ++n) {
    auto hash = SoftChip::frameFlowHash(flow(n));
    auto before = lag.memberFor(hash);
    auto after = smaller.memberFor(hash);
    if (before == Nexo::IntfId("Ethernet3")) {
      ++moved;
      ++movedTo[after];
      EXPECT_NE(after, before);
    } else {
      EXPECT_EQ(after, before);
    }
  }
  EXPECT_GT(moved, 0);
  // And they spread over the members that stay.
  ASSERT_EQ(movedTo.size(), 3u);
  for (const auto& [member, n] : movedTo) EXPECT_GT(n, moved / 3 / 2) << member.stringValue();
}

}  // namespace
