// The soak's seeded generator: random command lines through the agent's own
// inputs (VLAN membership and tagging, LAG members moving between LAGs,
// spanning-tree port states, learns and moves, time passing under aging,
// flushes, static and non-aging addresses, the MLAG peer link, restarts of
// the MAC agent, IPv4 ACLs and their bindings, storm-control levels and
// port speeds, sub-interfaces contending for tags, neighbours, FECs and
// routes in two VRFs) and, meanwhile, a chip that answers busy, full or
// failed.
#pragma once

#include "tests/soak/SoakModel.h"

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace Soak {

class Generator {
 public:
  // `learning` false leaves out learns and flushes: the tables the
  // configuration alone decides (VLANs, LAGs, spanning tree, static and
  // non-aging addresses), for the runs CI makes.
  explicit Generator(std::uint64_t seed, bool learning = true) : rng_(seed), seed_(seed), learning_(learning) {}

  // The lines every run starts with: the LAGs and the topology the random
  // commands use, and the chip's learning mode (software on odd seeds).
  std::vector<std::string> prologue() const;

  // The next command, or an empty line at the end of a stretch of them: the
  // runner then lets the switch settle and compares. `model` is the
  // configuration so far: commands go only where they are valid input, and
  // learns only into addresses whose state the model is sure of. After a
  // planned fault the stretch has no learns, whose outcome would depend on
  // how far the chip got.
  std::string next(const Model& model);
  // The chip still has faults planned after the switch settled (nothing
  // asked it for what they apply to yet): the next stretch has no learns
  // either, as the fault may land anywhere in it.
  void faultsLeftIs(bool left) { faulty_ = faulty_ || left; }

 private:
  std::string line(const Model& model, bool& faulty);
  std::string learn(const Model& model);
  std::string lagChange(const Model& model, std::vector<std::string>& also);
  std::string mirrorChange(const Model& model);
  // ACLs, storm control and sub-interfaces (SoakGeneratorFeatures.cpp).
  std::string featureChange(const Model& model);
  std::string aclChange(const Model& model);
  std::string aclRule();
  std::string stormChange(const Model& model);
  std::string subIntfChange(const Model& model);
  // Neighbours, FECs and routes (SoakGeneratorFeatures.cpp).
  std::string routingChange(const Model& model);
  std::string mac() { return mac(pick(16)); }
  static std::string mac(unsigned n);
  MacKey key(const std::string& dotted, int vlan) const { return {Model::macText(dotted), vlan}; }
  unsigned pick(unsigned n) { return std::uniform_int_distribution<unsigned>(0, n - 1)(rng_); }
  bool chance(double p) { return std::uniform_real_distribution<double>(0, 1)(rng_) < p; }
  int vlan() { return 10 + static_cast<int>(pick(4)); }
  std::string port() { return "Ethernet" + std::to_string(1 + pick(8)); }
  std::string lag() { return "Port-Channel" + std::to_string(1 + pick(3)); }
  std::string intf() { return chance(0.7) ? port() : lag(); }
  // VLANs and topologies name Ethernet1-4 and the LAGs; Ethernet5-8 are the
  // LAGs' member ports, which carry their LAG's VLANs and state.
  std::string vlanIntf() { return chance(0.6) ? "Ethernet" + std::to_string(1 + pick(4)) : lag(); }

  std::mt19937_64 rng_;
  std::uint64_t seed_;
  std::vector<std::string> pending_;  // the rest of a change of several lines
  unsigned left_ = 0;                 // commands left in this stretch
  bool faulty_ = false;               // a fault was planned in this stretch
  std::set<int> leftVlans_;           // VLANs members left while faults were planned
  bool learning_ = true;
};

}  // namespace Soak
