#include "tests/soak/SoakRunner.h"

#include "agent/Agent.h"
#include "chip/softchip/SoftForwarding.h"
#include "platform/vex/TimeSlice.h"
#include "tests/soak/SoakGenerator.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <sstream>

namespace Soak {

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// Interfaces in the order the agent prints them: Ethernet ports, then LAGs,
// each by number.
std::string intfsText(const std::set<Intf>& tagged, const std::set<Intf>& untagged) {
  std::vector<std::pair<Intf, bool>> all;
  for (const auto& i : tagged) all.emplace_back(i, true);
  for (const auto& i : untagged) all.emplace_back(i, false);
  auto rank = [](const Intf& i) {
    auto digits = i.find_first_of("0123456789");
    return std::make_pair(i.substr(0, digits) == "Ethernet" ? 0 : 1, std::atoi(i.c_str() + digits));
  };
  std::sort(all.begin(), all.end(), [&](const auto& a, const auto& b) { return rank(a.first) < rank(b.first); });
  std::string out;
  for (const auto& [intf, isTagged] : all) out += (out.empty() ? "" : " ") + intf + (isTagged ? "(t)" : "");
  return out;
}

std::string vlanText(const HwVlanView& v) { return intfsText(v.tagged, v.untagged); }
std::string lagText(const std::set<Intf>& m) { return intfsText({}, m); }
std::string fdbText(const MacKey& key, const HwFdbView& e) {
  return fmt::format("{} {} {} {}", key.second, key.first, e.type, e.intf);
}

// Keys present on either side of two maps.
template <class Map>
std::set<typename Map::key_type> keysOf(const Map& a, const Map& b) {
  std::set<typename Map::key_type> keys;
  for (const auto& [k, v] : a) keys.insert(k);
  for (const auto& [k, v] : b) keys.insert(k);
  return keys;
}

std::string egressText(const std::set<RefEgress>& egress) {
  if (egress.empty()) return "dropped";
  std::set<Intf> tagged, untagged;
  for (const auto& e : egress) (e.tagged ? tagged : untagged).insert(e.intf);
  return intfsText(tagged, untagged);
}

// What `chip send` prints for a copy leaving by `e` in `vlan`.
std::string egressLine(const RefEgress& e, int vlan) {
  std::string tagging = e.tagged ? fmt::format("tagged {}", vlan) : "untagged";
  if (e.intf.rfind("Port-Channel", 0) == 0) return fmt::format("{} ({})", tagging, e.intf);
  return fmt::format("{} {}", e.intf, tagging);
}

// Frames to compare: from the ports the soak configures, to addresses the
// forwarding database holds and to unknown, broadcast and multicast ones,
// tagged or not (some in VLANs nobody configured), some with IP fields that
// move a LAG's hash. Their own generator, so that the commands stay as the
// seed has always made them.
class FrameSampler {
 public:
  explicit FrameSampler(std::uint64_t seed) : rng_(seed * 7919 + 17) {}

  std::vector<Probe> sample(const Model& model, unsigned count) {
    std::vector<std::string> known;
    for (const auto& [key, entry] : model.chip().fdb) known.push_back(key.first);
    std::vector<Probe> probes;
    for (unsigned i = 0; i < count; ++i) {
      Probe p;
      if (chance(0.15)) {
        // An IPv4 packet into a routed port, mostly for the router.
        const auto& ports = RouteModel::routedPorts();
        p.ingress = std::next(ports.begin(), pick(ports.size()))->first;
        p.frame.src = address(known);
        p.frame.dst = chance(0.9) ? RouteModel::routerMac : address(known);
        p.frame.ip = true;
        p.frame.ipSeed = static_cast<int>(pick(1000));
        probes.push_back(std::move(p));
        continue;
      }
      p.ingress = "Ethernet" + std::to_string(1 + pick(8));
      p.frame.src = chance(0.03) ? "01:00:5e:00:00:01" : address(known);
      unsigned roll = pick(100);
      if (roll < 55 && !known.empty()) {
        p.frame.dst = known[pick(known.size())];
      } else if (roll < 70) {
        p.frame.dst = "ff:ff:ff:ff:ff:ff";
      } else if (roll < 80) {
        p.frame.dst = fmt::format("01:00:5e:00:00:{:02x}", pick(4));
      } else {
        p.frame.dst = address(known);
      }
      if (chance(0.5)) p.frame.tag = chance(0.1) ? 0 : 10 + static_cast<int>(pick(5));
      if (chance(0.3)) {
        p.frame.ip = true;
        p.frame.ipSeed = static_cast<int>(pick(1000));
      }
      probes.push_back(std::move(p));
    }
    return probes;
  }

 private:
  // A known address, or one of the generator's, or one nobody uses.
  std::string address(const std::vector<std::string>& known) {
    if (!known.empty() && chance(0.4)) return known[pick(known.size())];
    unsigned n = pick(20);
    return fmt::format("00:00:00:{:02x}:00:{:02x}", n / 4, n);
  }
  unsigned pick(std::size_t n) { return std::uniform_int_distribution<unsigned>(0, n - 1)(rng_); }
  bool chance(double p) { return std::uniform_real_distribution<double>(0, 1)(rng_) < p; }

  std::mt19937_64 rng_;
};

// One agent and one model fed the same lines.
class Session {
 public:
  Session() : agent_(Agent::Options{}) {}

  // False when the agent refuses the line as bad input.
  bool execute(const std::string& line) {
    auto start = Clock::now();
    try {
      agent_.execute(line, sink_);
    } catch (const Agent::CommandError& e) {
      refusal_ = e.what();
      return false;
    }
    maxCommandMs_ = std::max(maxCommandMs_, secondsSince(start) * 1000);
    sink_.str({});
    model_.apply(line);
    model_.timeIs(agent_.loop().peekNow());
    lines_.push_back(line);
    return true;
  }

  bool quiet() {
    return agent_.chip().pendingAcks() == 0 && agent_.vlanHelper().vlanUpdateSize() == 0 &&
           agent_.vlanHelper().updatesInFlight() == 0 && agent_.macAddrSm()->updateListSize() == 0 &&
           agent_.macAddrSm()->macTableUpdateListSize() == 0;
  }

  // Lets simulated time pass until nothing waits, so that flush requests
  // are carried out, and at most a few minutes while
  // planned faults run out. A VLAN update the chip failed waits for the chip
  // to say it has room again, as a chip does once its fault has cleared.
  using Sampler = std::function<std::vector<Probe>(const Model&)>;
  std::optional<Difference> settle(const Sampler& frames) {
    // Two seconds at least: some reactions are clocked a second on.
    execute("advance 1");
    execute("advance 1");
    for (int i = 0; i < 300 && !quiet(); ++i) {
      bool vlanWaits = agent_.vlanHelper().vlanUpdateSize() && !agent_.vlanHelper().updatesInFlight() &&
                       !agent_.chip().pendingAcks();
      execute(vlanWaits ? "chip vlan resources-available" : "advance 1");
    }
    if (!quiet()) {
      return Difference{{fmt::format("the switch does not settle: after 300 s, {} VLAN updates pending, {} in flight, "
                                     "{} chip acknowledgements, {} MAC changes queued, {} MAC rows to review",
                                     agent_.vlanHelper().vlanUpdateSize(), agent_.vlanHelper().updatesInFlight(),
                                     agent_.chip().pendingAcks(), agent_.macAddrSm()->updateListSize(),
                                     agent_.macAddrSm()->macTableUpdateListSize())},
                        {},
                        {}};
    }
    if (auto overruns = sliceOverruns()) return overruns;
    auto want = model_.chip();
    auto uncertain = model_.uncertainKeys();
    if (auto difference = compare(want, readChip(agent_), uncertain)) return difference;
    return compareFrames(want, uncertain, frames(model_));
  }

  // Each frame through the chip's forwarding model, learning nothing, and
  // through the reference forwarder over the model's tables.
  std::optional<Difference> compareFrames(const ChipView& want, const std::set<MacKey>& uncertain,
                                          const std::vector<Probe>& probes) {
    Forwarder reference(want, uncertain);
    SoftChip::SoftForwarding chip(agent_.chip());
    chip.learningIs(false);
    Difference d;
    for (const auto& probe : probes) {
      auto text = probe.frame.text();
      auto result = chip.forward(Nexo::IntfId(probe.ingress), SoftChip::frameFromText(text));
      if (auto routed = model_.routing().route(probe.ingress, probe.frame.dst, probe.frame.ipDst())) {
        if (!probe.frame.ip) routed->nextHops.clear(), routed->mayDrop = true;
        compareRouted(probe, *routed, result, d);
        ++routedFrames_;
        routedOut_ += result.routed;
        continue;
      }
      auto vlans = reference.classify(probe.ingress, probe.frame);
      if (!vlans) continue;
      // Of several VLANs the frame may belong to, the chip's choice.
      int vlan = vlans->count(result.vlan) ? result.vlan : vlans->empty() ? 0 : *vlans->begin();
      std::optional<std::set<RefEgress>> expected = std::set<RefEgress>{};
      if (vlan) expected = reference.forward(probe.ingress, probe.frame, vlan);
      if (!expected) continue;
      std::set<RefEgress> got;
      std::string stray;
      for (const auto& out : result.egress) {
        Intf intf = out.lag.empty() ? out.port.stringValue() : out.lag.stringValue();
        got.insert(RefEgress{intf, out.tagged});
        auto lag = want.lags.find(intf);
        if (!out.lag.empty() && (lag == want.lags.end() || !lag->second.count(out.port.stringValue())))
          stray = fmt::format(" by {}, not an active member of {}", out.port.stringValue(), intf);
      }
      if (got == *expected && stray.empty()) continue;
      d.lines.push_back(fmt::format("frame on {} '{}': model [{}] chip [{}{}]", probe.ingress, text,
                                    egressText(*expected), egressText(got), stray));
      auto send = fmt::format("chip send {} {}", probe.ingress, text);
      if (expected->empty()) d.expects.push_back(fmt::format("expect {} ~ dropped:", send));
      for (const auto& e : *expected)
        if (!got.count(e)) d.expects.push_back(fmt::format("expect {} ~ {}", send, egressLine(e, vlan)));
      for (const auto& e : got)
        if (!expected->count(e)) d.expects.push_back(fmt::format("expect-not {} ~ {}", send, egressLine(e, vlan)));
      d.frames.push_back(probe);
    }
    if (d.lines.empty()) return std::nullopt;
    return d;
  }

  // A routed packet left by one of the vias the reference allows, rewritten
  // for it, or was dropped where the reference allows that.
  void compareRouted(const Probe& probe, const RoutedOutcome& want, const SoftChip::ForwardResult& result,
                     Difference& d) {
    auto text = probe.frame.text();
    auto send = fmt::format("chip send {} {}", probe.ingress, text);
    std::string allowed;
    for (const auto& [port, mac] : want.nextHops)
      allowed += fmt::format("{}{} to {}", allowed.empty() ? "" : ", ", port, mac);
    if (want.mayDrop) allowed += allowed.empty() ? "dropped" : ", or dropped";
    std::string got = "dropped";
    bool right = result.egress.empty() ? want.mayDrop : false;
    if (result.egress.size() == 1 && result.routed) {
      const auto& out = result.egress.front();
      got = fmt::format("{} to {} ttl {}", out.port.stringValue(), out.dstMac.stringValue(), out.ttl);
      right = want.nextHops.count({out.port.stringValue(), out.dstMac.stringValue()}) &&
              out.srcMac.stringValue() == RouteModel::routerMac && out.ttl + 1 == SoftChip::Frame::defaultTtl;
    } else if (!result.egress.empty()) {
      got = fmt::format("{} copies", result.egress.size());
    }
    if (right) return;
    d.lines.push_back(fmt::format("routed frame on {} (vrf {}) '{}': model [{}] chip [{}]", probe.ingress, want.vrf,
                                  text, allowed.empty() ? "dropped" : allowed, got));
    if (!want.mayDrop && result.egress.empty()) d.expects.push_back(fmt::format("expect-not {} ~ dropped:", send));
    if (want.nextHops.empty() && !result.egress.empty()) d.expects.push_back(fmt::format("expect {} ~ dropped:", send));
    if (!want.nextHops.empty() && !result.egress.empty()) {
      const auto& out = result.egress.front();
      d.expects.push_back(fmt::format("expect-not {} ~ {} src {} dst {}", send, out.port.stringValue(),
                                      out.srcMac.stringValue(), out.dstMac.stringValue()));
    }
    d.frames.push_back(probe);
  }

  // Every walk yielded within its quantum, give or take the item it was on.
  static std::optional<Difference> sliceOverruns() {
    if (!Vex::TimeSlice::overruns()) return std::nullopt;
    Difference d;
    for (const auto& [name, r] : Vex::TimeSlice::records()) {
      if (!r.overruns) continue;
      d.lines.push_back(
          fmt::format("{}: {} of {} slices overran their quantum of {} s by more than an item, the "
                      "worst by {} s",
                      name, r.overruns, r.slices, r.quantum, r.worstExcess));
    }
    d.expects.push_back("expect show slices ~ overruns 0");
    return d;
  }

  bool faultsPlanned() {
    return agent_.chip().tableNamed("vlan").plannedFaults() || agent_.chip().tableNamed("fdb").plannedFaults();
  }

  const Model& model() const { return model_; }
  // Why the agent refused the last line it refused.
  const std::string& refusal() const { return refusal_; }
  const std::vector<std::string>& lines() const { return lines_; }
  double maxCommandMs() const { return maxCommandMs_; }
  std::uint64_t routedFrames() const { return routedFrames_; }
  std::uint64_t routedOut() const { return routedOut_; }

 private:
  Agent::Agent agent_;
  Model model_;
  std::vector<std::string> lines_;
  std::string refusal_;
  std::uint64_t routedFrames_ = 0;  // frames into routed ports compared
  std::uint64_t routedOut_ = 0;     // of which the chip routed out
  std::ostringstream sink_;
  double maxCommandMs_ = 0;
};

std::string writeScenario(const RunOptions& options, const std::vector<std::string>& lines,
                          const Difference& difference) {
  std::string path = fmt::format("{}/soak-seed{}.orb", options.scenarioDir, options.seed);
  std::ofstream out(path);
  out << fmt::format("# soak seed {}: the chip parts from the reference model after these commands.\n", options.seed);
  for (const auto& line : difference.lines) out << "#   " << line << "\n";
  for (const auto& line : lines) out << line << "\n";
  for (const auto& line : difference.expects) out << line << "\n";
  return path;
}

bool scenarioFails(const std::string& path) {
  Agent::Agent agent(Agent::Options{});
  std::ostringstream out, err;
  return agent.runScenario(path, out, err) != 0;
}

// A rule of the chip's ACL table in the model's words (RefAclRule::text).
std::string aclRuleText(const Orb::AclRule& rule) {
  auto ports = [](const Acl::PortMatch& match) {
    if (match.op == Acl::PortOp::eq) return fmt::format("eq {}", match.low);
    if (match.op == Acl::PortOp::range) return fmt::format("range {} {}", match.low, match.high);
    return std::string("any");
  };
  return fmt::format("{} {} {} {} {} {} {}", rule.seq, rule.action == Acl::AclAction::permit ? "permit" : "deny",
                     rule.protocol, rule.source.stringValue(), ports(rule.sourceRange), rule.destination.stringValue(),
                     ports(rule.destinationRange));
}

// The inbound IPv4 lists, storm-control meters and VLAN-translation entries.
void readFeatures(Agent::Agent& agent, ChipView& view) {
  for (const auto& [key, hw] : agent.acl().helper()->table().entries) {
    if (key.type != Acl::ip() || key.direction != Acl::AclDirection::aclIn) continue;
    std::string text = key.name + ":";
    for (const auto& rule : hw.rules)
      if (rule.kind == Orb::AclSubruleKind::ip) text += " " + aclRuleText(rule) + ";";
    for (const auto& pair : hw.bound) {
      auto& held = view.acls[pair.intfId.stringValue()];
      held += (held.empty() ? "" : " and ") + text;
    }
  }
  for (const auto& [key, meter] : agent.stormControl().helper()->table().entries) {
    view.stormMeters[{key.port.stringValue(), Bridging::StormControl::levelTypeName(key.level)}] =
        fmt::format("{} kbps{}", meter.rateKbps, meter.lag.empty() ? "" : " " + meter.lag.stringValue());
  }
  for (const auto& [key, entry] : agent.subIntf().helper()->table().entries) {
    std::string where = fmt::format("{} {}", key.parent.stringValue(), key.outerTag);
    if (key.innerTag) where += fmt::format(" inner {}", key.innerTag);
    view.subIntfs[where] =
        fmt::format("{} vlan {}{}", entry.subIntf.stringValue(), entry.vlan, entry.isL2 ? " l2" : "");
  }
}

// Differences in a table of text values. `check` writes the scenario's
// check for a key, given the model's value (empty when it has none), or
// nothing where no show command prints the table.
template <class Key>
void compareTexts(const char* table, const std::map<Key, std::string>& want, const std::map<Key, std::string>& have,
                  const std::function<std::string(const Key&)>& keyText,
                  const std::function<std::string(const Key&, const std::string&, const std::string&)>& check,
                  Difference& d) {
  for (const auto& key : keysOf(want, have)) {
    auto w = want.find(key);
    auto h = have.find(key);
    if (w != want.end() && h != have.end() && w->second == h->second) continue;
    d.lines.push_back(fmt::format("{} {}: model [{}] chip [{}]", table, keyText(key), w == want.end() ? "-" : w->second,
                                  h == have.end() ? "-" : h->second));
    auto line = check(key, w == want.end() ? "" : w->second, h == have.end() ? "" : h->second);
    if (!line.empty()) d.expects.push_back(line);
  }
}

// `show storm-control hardware`: "PORT LEVEL RATE LAG|-".
std::string stormCheck(const std::pair<Intf, std::string>& key, const std::string& want, const std::string&) {
  std::string level = key.second == "uucast" ? "unknown-unicast" : key.second;
  if (want.empty()) return fmt::format("expect-not show storm-control hardware ~ {} {} ", key.first, level);
  auto space = want.find(' ');
  auto lag = want.find(" kbps ");
  return fmt::format("expect show storm-control hardware ~ {} {} {} {}", key.first, level, want.substr(0, space),
                     lag == std::string::npos ? "-" : want.substr(lag + 6));
}

// `show interfaces sub-interfaces`: "SUB dot1q TAG routed VLAN programmed".
std::string subIntfCheck(const std::string&, const std::string& want, const std::string& have) {
  const std::string& entry = want.empty() ? have : want;
  std::string sub = entry.substr(0, entry.find(' '));
  std::string vlan = entry.substr(entry.rfind(' ') + 1);
  return fmt::format("{} show interfaces sub-interfaces ~ {} dot1q {} routed {} programmed",
                     want.empty() ? "expect-not" : "expect", sub, vlan, vlan);
}

}  // namespace

ChipView readChip(Agent::Agent& agent) {
  ChipView view;
  for (const auto& [vlanId, hw] : agent.vlanHelper().table().entries) {
    HwVlanView v;
    for (const auto& i : hw.tagged) v.tagged.insert(i.stringValue());
    for (const auto& i : hw.untagged) v.untagged.insert(i.stringValue());
    if (!v.tagged.empty() || !v.untagged.empty()) view.vlans[vlanId.value()] = v;
  }
  for (const auto& [lag, hw] : agent.lagHelper().table().entries) {
    std::set<Intf> members;
    for (const auto& m : hw.members) members.insert(m.stringValue());
    if (!members.empty()) view.lags[lag.stringValue()] = members;
  }
  for (const auto& [group, hw] : agent.mirror().helper()->table().entries) {
    HwMirrorView mirror;
    mirror.dest = hw.destIntf.stringValue();
    for (const auto& [port, source] : hw.sources)
      mirror.sources[port.stringValue()] = Mirroring::directionName(source.direction);
    for (const auto& port : hw.targets) mirror.targets.insert(port.stringValue());
    view.mirrors[hw.name] = mirror;
  }
  readFeatures(agent, view);
  for (const auto& [packed, hw] : agent.fdbHelper().table().entries) {
    const Bridging::MacVlanPair key = packed;
    const char* word = Bridging::entryTypeWord(hw.entryType);
    view.fdb[{key.addr.stringValue(), key.vlanId.value()}] = HwFdbView{hw.intf.stringValue(), word ? word : "other"};
  }
  return view;
}

std::optional<Difference> compare(const ChipView& want, const ChipView& have, const std::set<MacKey>& skip) {
  Difference d;
  for (int vlan : keysOf(want.vlans, have.vlans)) {
    auto w = want.vlans.count(vlan) ? want.vlans.at(vlan) : HwVlanView{};
    auto h = have.vlans.count(vlan) ? have.vlans.at(vlan) : HwVlanView{};
    if (w == h) continue;
    d.lines.push_back(fmt::format("vlan {}: model [{}] chip [{}]", vlan, vlanText(w), vlanText(h)));
    d.expects.push_back(w.tagged.empty() && w.untagged.empty()
                            ? fmt::format("expect-not show vlan {} ~ hardware: {}", vlan, vlanText(h))
                            : fmt::format("expect show vlan {} ~ hardware: {}", vlan, vlanText(w)));
  }
  for (const auto& lag : keysOf(want.lags, have.lags)) {
    auto w = want.lags.count(lag) ? want.lags.at(lag) : std::set<Intf>{};
    auto h = have.lags.count(lag) ? have.lags.at(lag) : std::set<Intf>{};
    if (w == h) continue;
    d.lines.push_back(fmt::format("{}: model [{}] chip [{}]", lag, lagText(w), lagText(h)));
    auto n = lag.substr(12);
    d.expects.push_back(w.empty() ? fmt::format("expect-not show port-channel {} ~ hardware: {}", n, lagText(h))
                                  : fmt::format("expect show port-channel {} ~ hardware: {}", n, lagText(w)));
  }
  for (const auto& key : keysOf(want.fdb, have.fdb)) {
    if (skip.count(key)) continue;
    auto w = want.fdb.find(key);
    auto h = have.fdb.find(key);
    if (w != want.fdb.end() && h != have.fdb.end() && w->second == h->second) continue;
    d.lines.push_back(fmt::format("fdb {} {}: model [{}] chip [{}]", key.second, key.first,
                                  w == want.fdb.end() ? "-" : w->second.type + " " + w->second.intf,
                                  h == have.fdb.end() ? "-" : h->second.type + " " + h->second.intf));
    d.expects.push_back(w != want.fdb.end()
                            ? fmt::format("expect show mac hardware ~ {}", fdbText(key, w->second))
                            : fmt::format("expect-not show mac hardware ~ {} {} ", key.second, key.first));
  }
  for (const auto& name : keysOf(want.mirrors, have.mirrors)) {
    auto text = [](const std::map<std::string, HwMirrorView>& views, const std::string& session) {
      auto it = views.find(session);
      if (it == views.end()) return std::string("-");
      std::string out = "to " + it->second.dest + " ports";
      for (const auto& port : it->second.targets) out += " " + port;
      out += " sources";
      for (const auto& [port, direction] : it->second.sources) out += " " + port + " " + direction;
      return out;
    };
    auto w = want.mirrors.find(name);
    auto h = have.mirrors.find(name);
    if (w != want.mirrors.end() && h != have.mirrors.end() && w->second == h->second) continue;
    d.lines.push_back(
        fmt::format("mirror {}: model [{}] chip [{}]", name, text(want.mirrors, name), text(have.mirrors, name)));
    d.expects.push_back(w == want.mirrors.end() ? fmt::format("expect show monitor session {} ~ not programmed", name)
                                                : fmt::format("expect show monitor session {} ~ (programmed)", name));
  }
  // No show command prints where a list is bound: an ACL difference has
  // no check of its own (a frame difference it causes has).
  compareTexts<Intf>(
      "acl in", want.acls, have.acls, [](const Intf& port) { return port; },
      [](const Intf&, const std::string&, const std::string&) { return std::string(); }, d);
  compareTexts<std::pair<Intf, std::string>>(
      "storm-control", want.stormMeters, have.stormMeters,
      [](const std::pair<Intf, std::string>& key) { return key.first + " " + key.second; }, stormCheck, d);
  compareTexts<std::string>(
      "vlan-translation", want.subIntfs, have.subIntfs, [](const std::string& key) { return key; }, subIntfCheck, d);
  if (d.lines.empty()) return std::nullopt;
  return d;
}

std::optional<Difference> replay(const std::vector<std::string>& lines, const std::vector<Probe>& frames) {
  Session session;
  for (const auto& line : lines)
    if (!session.execute(line)) return std::nullopt;
  return session.settle([&](const Model&) { return frames; });
}

std::vector<Probe> probesOf(const std::vector<std::string>& scenario) {
  std::vector<Probe> probes;
  std::set<std::string> seen;
  for (const auto& line : scenario) {
    // "expect[-not] chip send INTF FRAME ~ TEXT"
    std::istringstream in(line);
    std::string expect, chip, send, ingress;
    if (!(in >> expect >> chip >> send >> ingress) || (expect != "expect" && expect != "expect-not") ||
        chip != "chip" || send != "send") {
      continue;
    }
    std::string rest;
    std::getline(in, rest);
    auto tilde = rest.find(" ~");
    if (tilde == std::string::npos) continue;
    auto text = rest.substr(1, tilde - 1);
    auto frame = RefFrame::parse(text);
    if (frame && seen.insert(ingress + " " + text).second) probes.push_back(Probe{ingress, *frame});
  }
  return probes;
}

// The family of a command: its first words, "no" aside ("vlan", "chip
// learn", "interface storm-control", "ip route", ...).
std::string familyOf(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> w;
  for (std::string word; in >> word && w.size() < 4;) w.push_back(word);
  if (!w.empty() && w[0] == "no") w.erase(w.begin());
  if (w.empty()) return {};
  if (w[0] == "interface" && w.size() > 2) return "interface " + w[2];
  static const std::set<std::string> twoWords = {"chip", "clear", "ip", "mac", "mlag", "monitor"};
  if (twoWords.count(w[0]) && w.size() > 1) return w[0] + " " + w[1];
  return w[0];
}

std::string kindOf(const Difference& difference) {
  if (difference.lines.empty()) return {};
  const std::string& line = difference.lines.front();
  return line.substr(0, line.find(' '));
}

std::vector<std::string> shrink(std::vector<std::string> lines, double seconds, const Difference& difference,
                                const std::vector<Probe>& frames, std::size_t head) {
  auto start = Clock::now();
  const std::string kind = kindOf(difference);
  auto differs = [&](const std::vector<std::string>& candidate) {
    auto found = replay(candidate, frames);
    return found && kindOf(*found) == kind;
  };
  head = std::min(head, lines.size());
  // Whole families of commands first (every learn, every VLAN change...):
  // a difference seldom needs more than a few of them.
  std::map<std::string, std::size_t> families;
  for (std::size_t i = head; i < lines.size(); ++i) ++families[familyOf(lines[i])];
  std::vector<std::pair<std::size_t, std::string>> bySize;
  for (const auto& [family, count] : families) bySize.emplace_back(count, family);
  std::sort(bySize.rbegin(), bySize.rend());
  for (const auto& [count, family] : bySize) {
    if (secondsSince(start) >= seconds) break;
    std::vector<std::string> candidate(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(head));
    for (std::size_t i = head; i < lines.size(); ++i)
      if (familyOf(lines[i]) != family) candidate.push_back(lines[i]);
    if (differs(candidate)) lines = std::move(candidate);
  }
  // A difference found after hundreds of thousands of commands mostly needs
  // only the last few thousand: each replay of the whole list takes long
  // enough that delta debugging alone would get nowhere.
  for (std::size_t tail = 256; tail < lines.size() - head && secondsSince(start) < seconds; tail *= 4) {
    std::vector<std::string> candidate(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(head));
    candidate.insert(candidate.end(), lines.end() - static_cast<std::ptrdiff_t>(tail), lines.end());
    if (differs(candidate)) {
      lines = std::move(candidate);
      break;
    }
  }
  std::size_t parts = 2;
  while (lines.size() >= 2 && secondsSince(start) < seconds) {
    std::size_t chunk = (lines.size() + parts - 1) / parts;
    bool reduced = false;
    for (std::size_t begin = 0; begin < lines.size() && secondsSince(start) < seconds; begin += chunk) {
      std::vector<std::string> rest(lines.begin(), lines.begin() + begin);
      rest.insert(rest.end(), lines.begin() + std::min(lines.size(), begin + chunk), lines.end());
      if (differs(rest)) {
        lines = std::move(rest);
        parts = std::max<std::size_t>(parts - 1, 2);
        reduced = true;
        break;
      }
    }
    if (reduced) continue;
    if (parts >= lines.size()) break;
    parts = std::min(lines.size(), parts * 2);
  }
  return lines;
}

RunResult run(const RunOptions& options) {
  RunResult result;
  Generator generator(options.seed, options.learning);
  FrameSampler sampler(options.seed);
  auto frames = [&](const Model& model) {
    result.frames += options.frames;
    return sampler.sample(model, options.frames);
  };
  Session session;
  auto stop = [&](const Difference& difference) {
    result.difference = difference;
    result.shrunk =
        shrink(session.lines(), options.shrinkSeconds, difference, difference.frames, generator.prologue().size());
    auto shrunkDifference = replay(result.shrunk, difference.frames);
    result.scenarioPath = writeScenario(options, result.shrunk, shrunkDifference ? *shrunkDifference : difference);
    result.replayFails = scenarioFails(result.scenarioPath);
  };
  for (const auto& line : generator.prologue()) session.execute(line);
  while (result.ops < options.ops) {
    auto line = generator.next(session.model());
    if (line.empty()) {
      ++result.settles;
      if (auto difference = session.settle(frames)) {
        stop(*difference);
        break;
      }
      generator.faultsLeftIs(session.faultsPlanned());
      continue;
    }
    if (!session.execute(line)) {
      // The generator's mistake, not the switch's: nothing to shrink.
      result.difference =
          Difference{{"the agent refused a generated command: " + line + " (" + session.refusal() + ")"}, {}, {}};
      result.shrunk = session.lines();
      result.shrunk.push_back(line);
      break;
    }
    ++result.ops;
  }
  if (!result.difference) {
    ++result.settles;
    if (auto difference = session.settle(frames)) stop(*difference);
  }
  if (!result.difference) result.slices = Vex::TimeSlice::records();
  result.maxCommandMs = session.maxCommandMs();
  result.routedFrames = session.routedFrames();
  result.routedOut = session.routedOut();
  return result;
}

}  // namespace Soak
