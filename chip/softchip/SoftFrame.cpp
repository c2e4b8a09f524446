#include "chip/softchip/SoftFrame.h"

#include <fmt/format.h>

#include <array>

#include <charconv>
#include <cstring>
#include <vector>

namespace SoftChip {

namespace {

std::vector<std::string_view> tokens(std::string_view text) {
  std::vector<std::string_view> words;
  std::size_t at = 0;
  while (at < text.size()) {
    while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at]))) ++at;
    std::size_t start = at;
    while (at < text.size() && !std::isspace(static_cast<unsigned char>(text[at]))) ++at;
    if (at > start) words.push_back(text.substr(start, at - start));
  }
  return words;
}

[[noreturn]] void bad(std::string_view token, std::string_view expected) {
  throw FrameSyntaxError(fmt::format("bad frame token '{}': expected {}", token, expected));
}

constexpr std::array<const char*, 6> tcpFlagNames{"fin", "syn", "rst", "psh", "ack", "urg"};

// "ack,rst": each name once, any order.
std::uint8_t tcpFlagsFromText(std::string_view text) {
  std::uint8_t flags = 0;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = text.find(',', start);
    if (end == std::string_view::npos) end = text.size();
    const std::string_view name = text.substr(start, end - start);
    std::uint8_t bit = 0;
    for (std::size_t i = 0; i < tcpFlagNames.size(); ++i) {
      if (name == tcpFlagNames[i]) bit = static_cast<std::uint8_t>(1u << i);
    }
    if (!bit || (flags & bit)) bad(text, "TCP flags: fin, syn, rst, psh, ack, urg, each once, joined by ','");
    flags |= bit;
    start = end + 1;
  }
  return flags;
}

std::string tcpFlagsText(std::uint8_t flags) {
  std::string text;
  for (std::size_t i = 0; i < tcpFlagNames.size(); ++i) {
    if (!(flags & (1u << i))) continue;
    if (!text.empty()) text += ',';
    text += tcpFlagNames[i];
  }
  return text;
}

// Walks the tokens; each take names what it expected when it finds
// something else, or the end of the text.
class Reader {
 public:
  explicit Reader(std::string_view text) : words_(tokens(text)) {}
  bool done() const { return at_ == words_.size(); }
  std::string_view peek() const { return done() ? std::string_view() : words_[at_]; }
  std::string_view take(std::string_view expected) {
    if (done()) throw FrameSyntaxError(fmt::format("frame ends early: expected {}", expected));
    return words_[at_++];
  }
  void keyword(std::string_view word) {
    auto token = take(fmt::format("'{}'", word));
    if (token != word) bad(token, fmt::format("'{}'", word));
  }
  std::uint32_t number(std::string_view expected, std::uint32_t max, int base = 10) {
    auto token = take(expected);
    auto digits = token;
    if (base == 16) {
      if (!digits.starts_with("0x") && !digits.starts_with("0X")) bad(token, expected);
      digits.remove_prefix(2);
    }
    std::uint32_t value = 0;
    auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
    if (digits.empty() || ec != std::errc() || end != digits.data() + digits.size() || value > max) {
      bad(token, expected);
    }
    return value;
  }
  Nexo::EthAddr mac(std::string_view expected) {
    auto token = take(expected);
    try {
      return Nexo::EthAddr(token);
    } catch (const std::exception&) {
      bad(token, expected);
    }
  }
  Nexo::IpGenAddr ip(std::string_view expected) {
    auto token = take(expected);
    try {
      return Nexo::IpGenAddr(token);
    } catch (const std::exception&) {
      bad(token, expected);
    }
  }

 private:
  std::vector<std::string_view> words_;
  std::size_t at_ = 0;
};

}  // namespace

Frame frameFromText(std::string_view text) {
  Reader reader(text);
  Frame frame;
  reader.keyword("src");
  frame.src = reader.mac("a source MAC (aa:bb:cc:dd:ee:ff)");
  reader.keyword("dst");
  frame.dst = reader.mac("a destination MAC (aa:bb:cc:dd:ee:ff)");
  if (reader.peek() == "vlan") {
    reader.take("'vlan'");
    FrameTag tag;
    tag.vlan = static_cast<std::uint16_t>(reader.number("a VLAN 0-4094", 4094));
    if (reader.peek() == "pri") {
      reader.take("'pri'");
      tag.priority = static_cast<std::uint8_t>(reader.number("a priority 0-7", 7));
    }
    frame.tag = tag;
    if (reader.peek() == "inner") {
      reader.take("'inner'");
      frame.innerTag = FrameTag{static_cast<std::uint16_t>(reader.number("an inner VLAN 1-4094", 4094)), 0};
      if (frame.innerTag->vlan == 0) bad("0", "an inner VLAN 1-4094");
    }
  }
  std::optional<std::uint16_t> etherType;
  if (reader.peek() == "type") {
    reader.take("'type'");
    etherType = static_cast<std::uint16_t>(reader.number("an ethertype 0x0000-0xffff", 0xffff, 16));
  }
  if (reader.peek() == "ip") {
    reader.take("'ip'");
    frame.ipSrc = reader.ip("a source IPv4 or IPv6 address");
    auto dstToken = reader.peek();
    frame.ipDst = reader.ip("a destination IPv4 or IPv6 address");
    if (frame.ipDst->isV6() != frame.ipSrc->isV6()) bad(dstToken, "an address of the source's family");
    frame.etherType = frame.ipSrc->isV6() ? Frame::etherTypeIpv6 : Frame::etherTypeIpv4;
    if (reader.peek() == "ttl") {
      reader.take("'ttl'");
      frame.ttl = static_cast<std::uint8_t>(reader.number("a TTL 0-255", 255));
    }
    if (reader.peek() == "tcp" || reader.peek() == "udp") {
      frame.l4 = reader.take("'tcp' or 'udp'") == "tcp" ? L4Protocol::tcp : L4Protocol::udp;
      frame.srcPort = static_cast<std::uint16_t>(reader.number("a source port 0-65535", 65535));
      frame.dstPort = static_cast<std::uint16_t>(reader.number("a destination port 0-65535", 65535));
      if (frame.l4 == L4Protocol::tcp && reader.peek() == "flags") {
        reader.take("'flags'");
        frame.tcpFlags = tcpFlagsFromText(reader.take("TCP flags (ack,rst,...)"));
      }
    }
    if (reader.peek() == "fragment") {
      reader.take("'fragment'");
      frame.fragment = true;
    }
  }
  if (etherType) frame.etherType = *etherType;
  if (!reader.done()) {
    auto token = reader.take("");
    bad(token, frame.ipSrc ? "the end of the frame" : "'vlan', 'type', 'ip' or the end of the frame");
  }
  return frame;
}

std::string frameText(const Frame& frame) {
  std::string text = fmt::format("src {} dst {}", frame.src.stringValue(), frame.dst.stringValue());
  if (frame.tag) {
    text += fmt::format(" vlan {}", frame.tag->vlan);
    if (frame.tag->priority) text += fmt::format(" pri {}", frame.tag->priority);
    if (frame.innerTag) text += fmt::format(" inner {}", frame.innerTag->vlan);
  }
  std::uint16_t implied = !frame.ipSrc          ? Frame::etherTypeLocal
                          : frame.ipSrc->isV6() ? Frame::etherTypeIpv6
                                                : Frame::etherTypeIpv4;
  if (frame.etherType != implied) text += fmt::format(" type 0x{:04x}", frame.etherType);
  if (frame.ipSrc && frame.ipDst) {
    text += fmt::format(" ip {} {}", frame.ipSrc->stringValue(), frame.ipDst->stringValue());
    if (frame.ttl != Frame::defaultTtl) text += fmt::format(" ttl {}", frame.ttl);
    if (frame.l4 != L4Protocol::none) {
      text += fmt::format(" {} {} {}", frame.l4 == L4Protocol::tcp ? "tcp" : "udp", frame.srcPort, frame.dstPort);
      if (frame.l4 == L4Protocol::tcp && frame.tcpFlags) text += " flags " + tcpFlagsText(frame.tcpFlags);
    }
    if (frame.fragment) text += " fragment";
  }
  return text;
}

namespace {

// One round of a 64-bit mixer (splitmix64's finaliser): cheap, and every
// input bit reaches every output bit, so nearby flows land apart.
std::uint64_t mix(std::uint64_t seed, std::uint64_t value) {
  std::uint64_t x = seed ^ (value + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2));
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
  return x ^ (x >> 31);
}

std::uint64_t ipWord(const Nexo::IpGenAddr& addr) {
  if (!addr.isV6()) return addr.v4Addr().value();
  std::uint64_t high = 0;
  std::uint64_t low = 0;
  std::memcpy(&high, addr.v6Addr().bytes().data(), 8);
  std::memcpy(&low, addr.v6Addr().bytes().data() + 8, 8);
  return mix(high, low);
}

}  // namespace

std::uint64_t frameFlowHash(const Frame& frame) {
  std::uint64_t hash = mix(frame.src.value(), frame.dst.value());
  hash = mix(hash, frame.etherType);
  if (frame.ipSrc && frame.ipDst) {
    hash = mix(hash, ipWord(*frame.ipSrc));
    hash = mix(hash, ipWord(*frame.ipDst));
    hash = mix(hash, (std::uint64_t(frame.l4) << 32) | (std::uint64_t(frame.srcPort) << 16) | frame.dstPort);
  }
  return hash;
}

}  // namespace SoftChip
