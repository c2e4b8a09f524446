#include "tests/soak/SoakRunner.h"

#include "agent/Agent.h"
#include "tests/soak/SoakGenerator.h"

#include <fmt/format.h>

#include <chrono>
#include <fstream>
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

// One agent and one model fed the same lines.
class Session {
 public:
  Session() : agent_(Agent::Options{}) {}

  // False when the agent refuses the line as bad input.
  bool execute(const std::string& line) {
    auto start = Clock::now();
    try {
      agent_.execute(line, sink_);
    } catch (const Agent::CommandError&) {
      return false;
    }
    maxCommandMs_ = std::max(maxCommandMs_, secondsSince(start) * 1000);
    sink_.str({});
    model_.apply(line);
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
  std::optional<Difference> settle() {
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
                        {}};
    }
    return compare(model_.chip(), readChip(agent_), model_.uncertainKeys());
  }

  const Model& model() const { return model_; }
  const std::vector<std::string>& lines() const { return lines_; }
  double maxCommandMs() const { return maxCommandMs_; }

 private:
  Agent::Agent agent_;
  Model model_;
  std::vector<std::string> lines_;
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
  for (const auto& [key, hw] : agent.fdbHelper().table().entries) {
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
  if (d.lines.empty()) return std::nullopt;
  return d;
}

std::optional<Difference> replay(const std::vector<std::string>& lines) {
  Session session;
  for (const auto& line : lines)
    if (!session.execute(line)) return std::nullopt;
  return session.settle();
}

std::vector<std::string> shrink(std::vector<std::string> lines, double seconds) {
  auto start = Clock::now();
  std::size_t parts = 2;
  while (lines.size() >= 2 && secondsSince(start) < seconds) {
    std::size_t chunk = (lines.size() + parts - 1) / parts;
    bool reduced = false;
    for (std::size_t begin = 0; begin < lines.size() && secondsSince(start) < seconds; begin += chunk) {
      std::vector<std::string> rest(lines.begin(), lines.begin() + begin);
      rest.insert(rest.end(), lines.begin() + std::min(lines.size(), begin + chunk), lines.end());
      if (replay(rest)) {
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
  Session session;
  auto stop = [&](const Difference& difference) {
    result.difference = difference;
    result.shrunk = shrink(session.lines(), options.shrinkSeconds);
    auto shrunkDifference = replay(result.shrunk);
    result.scenarioPath = writeScenario(options, result.shrunk, shrunkDifference ? *shrunkDifference : difference);
    result.replayFails = scenarioFails(result.scenarioPath);
  };
  for (const auto& line : generator.prologue()) session.execute(line);
  while (result.ops < options.ops) {
    auto line = generator.next(session.model());
    if (line.empty()) {
      ++result.settles;
      if (auto difference = session.settle()) {
        stop(*difference);
        break;
      }
      continue;
    }
    if (!session.execute(line)) {
      // The generator's mistake, not the switch's: nothing to shrink.
      result.difference = Difference{{"the agent refused a generated command: " + line}, {}};
      result.shrunk = session.lines();
      result.shrunk.push_back(line);
      break;
    }
    ++result.ops;
  }
  if (!result.difference) {
    ++result.settles;
    if (auto difference = session.settle()) stop(*difference);
  }
  result.maxCommandMs = session.maxCommandMs();
  return result;
}

}  // namespace Soak
