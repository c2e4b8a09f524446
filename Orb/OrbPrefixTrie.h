// A binary prefix trie for longest-prefix lookups over the prefixes a client
// watches in one VRF. Nodes live in one vector and name their children by
// index, so a trie of many prefixes costs no heap node per prefix and copies
// as a value; freed nodes are reused.
#pragma once

#include "platform/types/Nexo.h"
#include "platform/vex/Ptr.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace Orb {

// How a prefix type exposes its bits, most significant first.
template <class P>
struct PrefixBits;

template <>
struct PrefixBits<Nexo::Prefix> {
  using Addr = Nexo::IpAddr;
  static constexpr unsigned width = 32;
  static bool bit(const Addr& a, unsigned i) { return (a.value() >> (31 - i)) & 1u; }
};

template <>
struct PrefixBits<Nexo::Ip6Prefix> {
  using Addr = Nexo::Ip6Addr;
  static constexpr unsigned width = 128;
  static bool bit(const Addr& a, unsigned i) { return (a.bytes()[i / 8] >> (7 - i % 8)) & 1u; }
};

template <class P>
class PrefixTrie : public Vex::PtrInterface {
 public:
  using Bits = PrefixBits<P>;
  using Addr = typename Bits::Addr;

  std::size_t size() const { return size_; }

  // True when the prefix was not there yet.
  bool insert(const P& prefix) {
    std::uint32_t node = 0;
    for (unsigned i = 0; i < prefix.len(); ++i) {
      bool b = Bits::bit(prefix.addr(), i);
      if (!nodes_[node].child[b]) {
        std::uint32_t fresh = allocate();
        nodes_[node].child[b] = fresh;
      }
      node = nodes_[node].child[b];
    }
    if (nodes_[node].stored) return false;
    nodes_[node].stored = true;
    ++size_;
    return true;
  }

  // True when the prefix was there. Branches left empty are pruned.
  bool erase(const P& prefix) {
    std::uint32_t path[Bits::width + 1];
    path[0] = 0;
    for (unsigned i = 0; i < prefix.len(); ++i) {
      std::uint32_t next = nodes_[path[i]].child[Bits::bit(prefix.addr(), i)];
      if (!next) return false;
      path[i + 1] = next;
    }
    Node& last = nodes_[path[prefix.len()]];
    if (!last.stored) return false;
    last.stored = false;
    --size_;
    for (unsigned i = prefix.len(); i > 0; --i) {
      const Node& node = nodes_[path[i]];
      if (node.stored || node.child[0] || node.child[1]) break;
      nodes_[path[i - 1]].child[Bits::bit(prefix.addr(), i - 1)] = 0;
      free_.push_back(path[i]);
    }
    return true;
  }

  bool contains(const P& prefix) const {
    std::uint32_t node = 0;
    for (unsigned i = 0; i < prefix.len(); ++i) {
      node = nodes_[node].child[Bits::bit(prefix.addr(), i)];
      if (!node) return false;
    }
    return nodes_[node].stored;
  }

  // The longest stored prefix that covers the first `len` bits of `addr`.
  std::optional<P> longestMatch(const Addr& addr, unsigned len = Bits::width) const {
    std::optional<P> best;
    std::uint32_t node = 0;
    for (unsigned i = 0;; ++i) {
      if (nodes_[node].stored) best = P(addr, i);
      if (i == len) break;
      std::uint32_t next = nodes_[node].child[Bits::bit(addr, i)];
      if (!next) break;
      node = next;
    }
    return best;
  }
  // The longest stored prefix covering `prefix` (itself included).
  std::optional<P> longestMatch(const P& prefix) const { return longestMatch(prefix.addr(), prefix.len()); }

  bool operator==(const PrefixTrie& other) const = delete;

 private:
  struct Node {
    std::uint32_t child[2] = {0, 0};  // 0: no child (the root is nobody's child)
    bool stored = false;
  };

  std::uint32_t allocate() {
    if (!free_.empty()) {
      std::uint32_t index = free_.back();
      free_.pop_back();
      nodes_[index] = Node{};
      return index;
    }
    nodes_.emplace_back();
    return static_cast<std::uint32_t>(nodes_.size() - 1);
  }

  std::vector<Node> nodes_{1};
  std::vector<std::uint32_t> free_;
  std::size_t size_ = 0;
};

}  // namespace Orb

// The per-VRF lookup tries of the route reactors.
namespace Routing {
using Trie = Orb::PrefixTrie<Nexo::Prefix>;
}
namespace Routing6 {
using Trie = Orb::PrefixTrie<Nexo::Ip6Prefix>;
}
