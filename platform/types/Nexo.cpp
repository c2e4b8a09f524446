#include "platform/types/Nexo.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <vector>

namespace Nexo {

namespace {

struct KindName {
  IntfId::Kind kind;
  std::string_view prefix;
  bool numbered;  // takes at least one number
  bool slashes;   // may take Ethernet1/2/3-style numbers
  bool subIntf;   // may carry sub-interfaces
};

constexpr KindName kindNames[] = {
    {IntfId::Kind::ethernet, "Ethernet", true, true, true},
    {IntfId::Kind::portChannel, "Port-Channel", true, false, true},
    {IntfId::Kind::vlan, "Vlan", true, false, false},
    {IntfId::Kind::cpu, "Cpu", false, false, false},
    {IntfId::Kind::loopback, "Loopback", true, false, false},
    {IntfId::Kind::management, "Management", true, true, false},
    {IntfId::Kind::recircChannel, "Recirc-Channel", true, false, false},
    {IntfId::Kind::vxlan, "Vxlan", true, false, false},
    {IntfId::Kind::tunnel, "Tunnel", true, false, false},
    {IntfId::Kind::peerEthernet, "PeerEthernet", true, true, false},
};

const KindName& kindName(IntfId::Kind kind) {
  for (const auto& k : kindNames) {
    if (k.kind == kind) return k;
  }
  return kindNames[0];
}

[[noreturn]] void badName(std::string_view name, const std::string& expected) {
  throw Vex::ParseError(fmt::format("cannot parse Nexo::IntfId from '{}': expected {}", name, expected));
}

// A decimal number with no sign, no leading zeros (but "0") and an upper bound.
bool parseNumber(std::string_view text, std::uint32_t max, std::uint32_t& value) {
  if (text.empty() || (text.size() > 1 && text[0] == '0')) return false;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  return ec == std::errc() && end == text.data() + text.size() && value <= max;
}

[[noreturn]] void badAddress(const char* type, std::string_view text, std::string_view expected) {
  throw Vex::ParseError(fmt::format("cannot parse {} from '{}': expected {}", type, text, expected));
}

constexpr std::string_view macForm = "a MAC address such as aa:bb:cc:dd:ee:ff or aabb.ccdd.eeff";
constexpr std::string_view ipForm = "a dotted IPv4 address such as 10.0.0.1";

}  // namespace

IntfId::IntfId(std::string_view name) {
  if (name.empty()) return;
  const KindName* match = nullptr;
  for (const auto& k : kindNames) {
    if (name.substr(0, k.prefix.size()) == k.prefix && (!match || k.prefix.size() > match->prefix.size())) match = &k;
  }
  if (!match) badName(name, "a known interface kind such as Ethernet or Port-Channel");
  std::string_view rest = name.substr(match->prefix.size());
  std::uint64_t bits = static_cast<std::uint64_t>(match->kind) << 56;
  if (!match->numbered) {
    if (!rest.empty()) badName(name, "no number after " + std::string(match->prefix));
    bits_ = bits;
    return;
  }
  std::uint32_t sub = 0;
  if (auto dot = rest.find('.'); dot != std::string_view::npos) {
    if (!match->subIntf) badName(name, "no sub-interface of " + std::string(match->prefix));
    if (!parseNumber(rest.substr(dot + 1), 65534, sub) || sub == 0) badName(name, "a sub-interface number 1 to 65534");
    rest = rest.substr(0, dot);
  }
  std::vector<std::string_view> parts;
  for (std::size_t start = 0;;) {
    auto slash = rest.find('/', start);
    parts.push_back(rest.substr(start, slash == std::string_view::npos ? std::string_view::npos : slash - start));
    if (slash == std::string_view::npos) break;
    start = slash + 1;
  }
  if (parts.size() > (match->slashes ? 3u : 1u))
    badName(name, match->slashes ? "at most three numbers" : "a single number");
  const std::uint32_t limits[] = {65534, 4094, 4094};
  const int shifts[] = {40, 28, 16};
  for (std::size_t i = 0; i < parts.size(); ++i) {
    std::uint32_t n = 0;
    if (!parseNumber(parts[i], limits[i], n)) {
      badName(name, fmt::format("a number 0 to {} without leading zeros, not '{}'", limits[i], parts[i]));
    }
    bits |= static_cast<std::uint64_t>(n + 1) << shifts[i];
  }
  bits_ = bits | sub;
  if (match->kind == Kind::vlan && (number() < 1 || number() > 4094)) badName(name, "a VLAN number 1 to 4094");
}

std::uint32_t IntfId::number() const {
  std::uint32_t n = static_cast<std::uint32_t>((bits_ >> 40) & 0xffff);
  return n ? n - 1 : 0;
}

std::string IntfId::stringValue() const {
  if (empty()) return "";
  const KindName& k = kindName(kind());
  if (!k.numbered) return std::string(k.prefix);
  // Written into one buffer and copied out once: names are made for every
  // entity keyed by an interface, thousands at a time.
  char buffer[64];
  char* at = std::copy(k.prefix.begin(), k.prefix.end(), buffer);
  char* const end = buffer + sizeof buffer;
  const int shifts[] = {40, 28, 16};
  const std::uint64_t masks[] = {0xffff, 0xfff, 0xfff};
  for (int i = 0; i < 3; ++i) {
    std::uint64_t n = (bits_ >> shifts[i]) & masks[i];
    if (!n) break;
    if (i) *at++ = '/';
    at = std::to_chars(at, end, n - 1).ptr;
  }
  if (isSubIntf()) {
    *at++ = '.';
    at = std::to_chars(at, end, subIntfNumber()).ptr;
  }
  return std::string(buffer, at);
}

IntfId IntfId::parentIntfId() const {
  IntfId parent = *this;
  parent.bits_ &= ~std::uint64_t{0xffff};
  return parent;
}

EthAddr::EthAddr(std::string_view text) {
  std::string hex;
  if (text.size() == 17) {
    for (std::size_t i = 0; i < 17; ++i) {
      if (i % 3 == 2) {
        if (text[i] != ':') badAddress("Nexo::EthAddr", text, macForm);
      } else {
        hex += text[i];
      }
    }
  } else if (text.size() == 14) {
    for (std::size_t i = 0; i < 14; ++i) {
      if (i % 5 == 4) {
        if (text[i] != '.') badAddress("Nexo::EthAddr", text, macForm);
      } else {
        hex += text[i];
      }
    }
  } else {
    badAddress("Nexo::EthAddr", text, macForm);
  }
  std::uint64_t value = 0;
  auto [end, ec] = std::from_chars(hex.data(), hex.data() + hex.size(), value, 16);
  if (ec != std::errc() || end != hex.data() + hex.size() || hex.size() != 12)
    badAddress("Nexo::EthAddr", text, macForm);
  value_ = value;
}

std::string EthAddr::stringValue() const {
  return fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", (value_ >> 40) & 0xff, (value_ >> 32) & 0xff,
                     (value_ >> 24) & 0xff, (value_ >> 16) & 0xff, (value_ >> 8) & 0xff, value_ & 0xff);
}

IpAddr::IpAddr(std::string_view text) {
  std::uint32_t value = 0;
  std::size_t start = 0;
  for (int i = 0; i < 4; ++i) {
    auto dot = text.find('.', start);
    if ((i < 3) == (dot == std::string_view::npos)) badAddress("Nexo::IpAddr", text, ipForm);
    std::uint32_t octet = 0;
    if (!parseNumber(text.substr(start, dot == std::string_view::npos ? std::string_view::npos : dot - start), 255,
                     octet)) {
      badAddress("Nexo::IpAddr", text, ipForm);
    }
    value = (value << 8) | octet;
    start = dot + 1;
  }
  value_ = value;
}

std::string IpAddr::stringValue() const {
  return fmt::format("{}.{}.{}.{}", value_ >> 24, (value_ >> 16) & 0xff, (value_ >> 8) & 0xff, value_ & 0xff);
}

Ip6Addr::Ip6Addr(std::string_view text) {
  std::string copy(text);
  if (inet_pton(AF_INET6, copy.c_str(), bytes_.data()) != 1) {
    badAddress("Nexo::Ip6Addr", text, "an IPv6 address such as 2001:db8::1");
  }
}

// RFC 5952: lower-case hex without leading zeros, the longest run of two or
// more zero groups (the first of equal runs) as "::", and the dotted tail
// for IPv4-mapped addresses only. Written out rather than left to
// inet_ntop, which also prints other addresses with a dotted tail.
std::string Ip6Addr::stringValue() const {
  std::array<std::uint16_t, 8> groups;
  for (std::size_t i = 0; i < 8; ++i) groups[i] = static_cast<std::uint16_t>(bytes_[2 * i] << 8 | bytes_[2 * i + 1]);
  if (std::all_of(groups.begin(), groups.begin() + 5, [](auto g) { return g == 0; }) && groups[5] == 0xffff) {
    return fmt::format("::ffff:{}.{}.{}.{}", bytes_[12], bytes_[13], bytes_[14], bytes_[15]);
  }
  std::size_t runStart = 8, runLen = 0;
  for (std::size_t i = 0; i < 8;) {
    std::size_t j = i;
    while (j < 8 && groups[j] == 0) ++j;
    if (j - i > runLen && j - i >= 2) {
      runStart = i;
      runLen = j - i;
    }
    i = j == i ? i + 1 : j;
  }
  std::string text;
  for (std::size_t i = 0; i < 8;) {
    if (i == runStart) {
      text += "::";
      i += runLen;
      continue;
    }
    if (!text.empty() && text.back() != ':') text += ':';
    text += fmt::format("{:x}", groups[i++]);
  }
  return text;
}

IpGenAddr::IpGenAddr(std::string_view text) {
  if (text.find(':') != std::string_view::npos) {
    v6_ = true;
    v6addr_ = Ip6Addr(text);
  } else {
    v4addr_ = IpAddr(text);
  }
}

namespace {

// "address/length", with errors that name the prefix type.
template <class Addr>
std::pair<Addr, unsigned> splitPrefix(std::string_view text, unsigned max, const char* type) {
  auto slash = text.find('/');
  if (slash == std::string_view::npos) badAddress(type, text, "an address, '/' and a prefix length");
  std::uint32_t len = 0;
  if (!parseNumber(text.substr(slash + 1), max, len)) {
    badAddress(type, text, fmt::format("a prefix length 0 to {}", max));
  }
  try {
    return {Addr(text.substr(0, slash)), len};
  } catch (const Vex::ParseError&) {
    badAddress(type, text, "an address before '/'");
  }
}

}  // namespace

Prefix::Prefix(const IpAddr& addr, unsigned len) : len_(static_cast<std::uint8_t>(len)) {
  if (len > 32) throw Vex::RangeError("Prefix::len > 32 not allowed");
  std::uint32_t mask = len == 0 ? 0 : ~std::uint32_t{0} << (32 - len);
  addr_ = IpAddr(addr.value() & mask);
}

Prefix::Prefix(std::string_view text) {
  auto [addr, len] = splitPrefix<IpAddr>(text, 32, "Nexo::Prefix");
  *this = Prefix(addr, len);
}

bool Prefix::contains(const IpAddr& a) const { return Prefix(a, len_).addr() == addr_; }

std::string Prefix::stringValue() const { return fmt::format("{}/{}", addr_.stringValue(), len_); }

Ip6Prefix::Ip6Prefix(const Ip6Addr& addr, unsigned len) : len_(static_cast<std::uint8_t>(len)) {
  if (len > 128) throw Vex::RangeError("Ip6Prefix::len > 128 not allowed");
  auto bytes = addr.bytes();
  for (unsigned i = 0; i < 16; ++i) {
    unsigned keep = len > i * 8 ? std::min(8u, len - i * 8) : 0;
    bytes[i] &= static_cast<std::uint8_t>(keep == 8 ? 0xff : (0xff00 >> keep) & 0xff);
  }
  addr_ = Ip6Addr(bytes);
}

Ip6Prefix::Ip6Prefix(std::string_view text) {
  auto [addr, len] = splitPrefix<Ip6Addr>(text, 128, "Nexo::Ip6Prefix");
  *this = Ip6Prefix(addr, len);
}

std::string Ip6Prefix::stringValue() const { return fmt::format("{}/{}", addr_.stringValue(), len_); }

}  // namespace Nexo
