// The soak's reference model: what a layer-2 switch's chip must hold after
// a sequence of agent commands, stated as plainly as possible and written
// apart from the forwarding layer (nothing here includes it), so that the
// two can be compared.
//
// It reads the same command lines the agent runs (only the ones the soak's
// generator writes) and keeps the configuration they describe: VLAN members
// and tagging, spanning-tree port states, LAG members, the MLAG peer link,
// static and non-aging addresses, what the chip learned and when, the aging
// time and the simulated clock, IPv4 ACLs and their bindings, storm-control
// levels and port speeds, sub-interfaces by tag, and what routing needs
// (SoakRouting.h). chip() derives the tables from that.
#pragma once

#include "tests/soak/SoakRouting.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Soak {

using Intf = std::string;
using MacKey = std::pair<std::string, int>;  // "00:00:00:00:00:01", VLAN

struct HwVlanView {
  std::set<Intf> tagged;
  std::set<Intf> untagged;
  bool operator==(const HwVlanView&) const = default;
};

struct HwFdbView {
  Intf intf;
  std::string type;  // "dynamic", "static", "configured dynamic"
  bool operator==(const HwFdbView&) const = default;
};

// A mirror session as the chip holds it: the destination it was created
// with, its source ports with their directions, its destination ports.
struct HwMirrorView {
  Intf dest;
  std::map<Intf, std::string> sources;  // port -> "rx", "tx", "both"
  std::set<Intf> targets;
  bool operator==(const HwMirrorView&) const = default;
};

// An IPv4 rule as the soak writes it: protocol (0 any), addresses as
// masked prefixes, L4 ports as inclusive ranges (0-65535 when not matched).
struct RefAclRule {
  unsigned seq = 0;
  bool permit = false;
  int protocol = 0;
  std::uint32_t src = 0, dst = 0;
  int srcLen = 0, dstLen = 0;
  std::string srcPorts, dstPorts;  // "any", "eq P", "range A B" as written
  unsigned srcLow = 0, srcHigh = 65535, dstLow = 0, dstHigh = 65535;
  // "10 permit 6 10.0.0.0/16 range 1024 1500 0.0.0.0/0 eq 80", the form
  // the runner writes the chip's rules in too.
  std::string text() const;
  bool matches(int protocol, std::uint32_t src, std::uint32_t dst, unsigned srcPort, unsigned dstPort) const;
};

// The tables of a chip, as the model derives them or as read from the soft
// chip. VLANs without members and LAGs without members are left out: the
// chip may keep an empty entry or none.
struct ChipView {
  std::map<int, HwVlanView> vlans;
  std::map<Intf, std::set<Intf>> lags;
  std::map<MacKey, HwFdbView> fdb;
  // Mirror sessions in hardware, by name.
  std::map<std::string, HwMirrorView> mirrors;
  // The inbound IPv4 list each port applies: "NAME: rule; rule; ...".
  std::map<Intf, std::string> acls;
  // Storm-control meters: (port, level) -> "RATE kbps[ LAG]".
  std::map<std::pair<Intf, std::string>, std::string> stormMeters;
  // VLAN-translation entries: "PARENT TAG" -> "SUBINTF vlan V".
  std::map<std::string, std::string> subIntfs;
  // The rules behind `acls`, for the forwarder; not compared.
  std::map<Intf, std::vector<RefAclRule>> aclRules;
  // The VLANs each interface is an untagged member of, blocked there or
  // not: its untagged frames belong to one of them. Derived by the model
  // for its forwarder, not read from the chip nor compared.
  std::map<Intf, std::set<int>> untaggedIn;
  // Interfaces spanning tree holds out of a VLAN they are configured in.
  std::set<Intf> held;
};

class Model {
 public:
  // The topology the generator maps VLANs into; every other VLAN is in the
  // default topology, where every port forwards.
  static constexpr const char* topology = "MST1";

  Model();

  // Applies one command line. Lines the model has no rule for are ignored
  // (show, expect, chip fault plans).
  void apply(const std::string& line);

  double now() const { return now_; }
  // The switch's time, when it ran ahead of the lines (chip operations
  // take time): entries age by it.
  void timeIs(double time) {
    if (time > now_) ageUntil(time);
  }
  ChipView chip() const;
  // Addresses whose aging the model cannot pin down (the chip's sweep may or
  // may not have taken them yet): left out of comparisons and of new
  // commands.
  bool uncertain(const MacKey& key) const;
  std::set<MacKey> uncertainKeys() const;

  // Whether the chip takes a learn of `key` on `intf` now.
  bool learnTaken(const MacKey& key, const Intf& intf) const;

  // Routed ports, neighbours, FECs and routes.
  const RouteModel& routing() const { return routing_; }

  // For the generator: what is configured.
  bool vlanExists(int vlan) const { return vlanMembers_.count(vlan) != 0; }
  const std::map<Intf, std::set<Intf>>& lagMembers() const { return lagMembers_; }
  bool staticHas(const MacKey& key) const { return statics_.count(key) != 0; }
  bool nonAgingHas(const std::string& owner, const MacKey& key) const;
  bool lagExists(const Intf& lag) const { return lagMembers_.count(lag) != 0; }
  bool topologyHas(const Intf& intf) const { return topologyForwarding_.count(intf) != 0; }
  bool mirrorSessionHas(const std::string& name) const { return mirrors_.count(name) != 0; }
  bool aclHas(const std::string& name) const { return acls_.count(name) != 0; }
  bool aclRuleHas(const std::string& name, unsigned seq) const;
  bool aclBound(const Intf& intf) const { return aclBindings_.count(intf) != 0; }
  bool stormConfigured(const Intf& intf) const { return storm_.count(intf) != 0; }
  // The level configured on the interface, in hundredths of a percent (0: none).
  unsigned stormLevel(const Intf& intf, const std::string& type) const;
  static unsigned stormHundredths(const std::string& percent);
  bool subIntfExists(const Intf& subIntf) const;
  // Sub-interfaces configured with this tag, holder and waiting.
  std::size_t subIntfsTagged(int tag) const;
  // The tag's holder went while another waited, and no second has passed
  // since: the waiting one may or may not have been retried yet.
  bool subIntfTagVacant(int tag) const { return vacantTags_.count(tag) != 0; }

  // "0000.0000.0001" as the chip prints it, "00:00:00:00:00:01".
  static std::string macText(const std::string& dotted);

 private:
  struct Learned {
    Intf intf;
    double lastSeen = 0;
  };
  bool blocked(int vlan, const Intf& intf) const;
  bool inHwVlan(int vlan, const Intf& intf) const;
  bool learningOn(const Intf& intf) const;
  Intf lagOf(const Intf& port) const;
  void setLagMembers(const Intf& lag, const std::set<Intf>& members);
  void learn(const MacKey& key, const Intf& intf);
  void flush(std::optional<int> vlan, std::optional<Intf> intf);
  void ageUntil(double time);
  std::optional<HwFdbView> fdbEntry(const MacKey& key) const;
  // Mirroring: a port-channel stands for its members in effect.
  std::set<Intf> mirrorPorts(const Intf& intf) const;
  std::optional<HwMirrorView> mirrorSession(const std::string& name) const;
  // ACLs, storm control and sub-interfaces (SoakModelFeatures.cpp).
  bool applyFeature(const std::vector<std::string>& w);
  void featureChip(ChipView& view) const;

  double now_ = 0;
  RouteModel routing_;
  std::map<int, std::map<Intf, bool>> vlanMembers_;  // VLAN -> interface -> tagged
  std::set<int> topologyVlans_;
  std::map<Intf, bool> topologyForwarding_;    // ports the topology gives a state
  std::map<Intf, std::set<Intf>> lagStatus_;   // as the LAG statuses list them
  std::map<Intf, std::set<Intf>> lagMembers_;  // in effect: the last claim wins
  Intf peerLink_;
  bool softwareLearning_ = false;
  std::map<MacKey, Intf> statics_;
  std::map<MacKey, std::map<std::string, Intf>> nonAging_;  // by owner
  std::map<MacKey, Learned> learned_;
  std::map<MacKey, Intf> tainted_;  // aged or not, nobody can tell any more
  bool staticAddMayFail_ = false;   // a chip fault planned for the next add
  unsigned agingTime_ = 300;        // the bridging configuration's default
  double agingSince_ = 0;           // when it was last set
  struct MirrorConfig {
    std::map<Intf, std::string> sources;  // interface -> direction
    std::set<Intf> dests;
  };
  std::map<std::string, MirrorConfig> mirrors_;
  std::map<std::string, std::map<unsigned, RefAclRule>> acls_;  // name -> seq -> rule
  std::map<Intf, std::string> aclBindings_;                     // interface -> list, inbound
  std::map<Intf, std::map<std::string, unsigned>> storm_;       // interface -> level -> hundredths
  std::map<Intf, unsigned> speedMbps_;                          // ports given a speed
  // Tag -> its sub-interfaces, the holder first (a routed sub-interface
  // owns its VLAN, the tag's); the others wait for it to go.
  std::map<int, std::vector<Intf>> subIntfsByTag_;
  // Tags whose holder went while another waited, until time passes and the
  // waiting one is retried.
  std::set<int> vacantTags_;
};

}  // namespace Soak
