// Command lines through the agent's shell, on one agent that lives across
// inputs as an interactive session does: each input line runs as typed. A
// command refuses bad arguments with an exception and a message; anything
// else (a crash, a sanitizer report, a hang) is a finding.
#include "agent/Agent.h"
#include "tests/fuzz/FuzzCheck.h"

#include <sstream>

namespace {

Agent::Agent& agent() {
  static Agent::Agent* instance = [] {
    Agent::Options options;
    options.ports = 8;
    return new Agent::Agent(options);
  }();
  return *instance;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string input = Fuzz::text(data, size);
  std::istringstream lines(input);
  std::ostringstream out;
  for (std::string line; std::getline(lines, line);) {
    try {
      agent().execute(line, out);
    } catch (const std::exception& e) {
      Fuzz::check(*e.what() != '\0', "a refusal without a message", line);
    }
    agent().shell().quitIs(false);
    out.str("");
  }
  return 0;
}
