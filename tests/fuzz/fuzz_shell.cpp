// Command lines through the agent's shell, on one agent that lives across
// inputs as an interactive session does: each input line runs as typed.
// A command refuses bad arguments with an exception and a message, and a
// refused line changes nothing the shell can show; anything else (a crash,
// a sanitizer report, a hang) is a finding.
#include "agent/Agent.h"
#include "tests/fuzz/FuzzCheck.h"

#include <cctype>
#include <cstdlib>
#include <memory>
#include <optional>
#include <sstream>

namespace {

// A fresh agent now and then, so that what inputs accumulate (learned
// addresses, log events, simulated time) stays small enough to be fast; and
// after an input that made the state large (every VLAN on every port, say),
// whose every later check would dump it all again.
constexpr unsigned inputsPerAgent = 500;
// A fresh agent of 8 ports shows about 150 KB (its default topology).
constexpr std::size_t largeState = 512 * 1024;

std::unique_ptr<Agent::Agent> agent;
unsigned inputsRun = 0;
bool stateGrewLarge = false;

Agent::Agent& session() {
  if (!agent || stateGrewLarge || inputsRun++ % inputsPerAgent == 0) {
    stateGrewLarge = false;
    agent.reset();
    Agent::Options options;
    options.ports = 8;
    agent = std::make_unique<Agent::Agent>(options);
  }
  return *agent;
}

// Everything the shell shows of the agent's state, as JSON; not the log,
// which would make every line as slow as a thousand events.
std::string state(Agent::Agent& agent) {
  static const char* const shows[] = {
      "show chip",
      "show chip mac-table json",
      "show l2rib host-input json",
      "show mac address-table json",
      "show mac hardware json",
      "show mac dynamic-hosts json",
      "show mac flush-requests json",
      "show mac learning json",
      "show mac non-aging json",
      "show mac pending json",
      "show port-channel json",
      "show spanning-tree json",
      "show time json",
      "show vlan json",
      "show vxlan remote-mac-info json",
  };
  std::ostringstream out;
  for (const char* show : shows) agent.execute(show, out);
  std::string text = out.str();
  if (text.size() > largeState) stateGrewLarge = true;
  return text;
}

// Lines that check what a command printed run the command first, and fail
// after it has done its work: their failure is the check's, by design.
bool checksOutput(const std::string& line) {
  auto words = Agent::CommandShell::split(line);
  return !words.empty() && (words[0] == "expect" || words[0] == "expect-not");
}

// A raw row of the hardware-learned MAC table may carry any entry type a
// chip could write, and one outside the table of entry types is a broken
// invariant that stops the MAC machine by design: such lines are skipped.
bool stopsByDesign(const std::string& line) {
  auto words = Agent::CommandShell::split(line.substr(0, line.find('#')));
  if (words.size() < 2 || words[0] != "chip" || words[1] != "mac-table") return false;
  for (std::size_t i = 2; i + 1 < words.size(); ++i) {
    if (words[i] != "type" || words[i + 1].empty() || !std::isdigit(static_cast<unsigned char>(words[i + 1][0])))
      continue;
    long type = std::strtol(words[i + 1].c_str(), nullptr, 10);
    if (type <= 255 && !Bridging::entryTypeWord(static_cast<Bridging::EntryType>(type))) return true;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string input = Fuzz::text(data, size);
  Agent::Agent& agent = session();
  std::istringstream lines(input);
  std::ostringstream out;
  // The state is read again only after a line that ran: most fuzzed lines
  // are refused, and a refused line is checked to leave it as it was.
  std::optional<std::string> before;
  for (std::string line; std::getline(lines, line);) {
    if (stopsByDesign(line)) continue;
    if (!before) before = state(agent);
    try {
      agent.execute(line, out);
      before.reset();
    } catch (const std::exception& e) {
      Fuzz::check(*e.what() != '\0', "a refusal without a message", line);
      if (checksOutput(line)) {
        before.reset();
      } else {
        Fuzz::check(state(agent) == *before, std::string("a refused line changed the agent: ") + e.what(), line);
      }
    }
    agent.shell().quitIs(false);
    out.str("");
  }
  return 0;
}
