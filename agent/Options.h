// Command-line options every orb-agent mode shares.
#pragma once

#include "agent/Agent.h"

#include <CLI/App.hpp>

#include <string>
#include <vector>

namespace Agent {

struct CommandLine {
  Options agent;
  bool realTime = false;
  std::vector<std::string> traces;  // MODULE=LEVEL
};

void addCommonOptions(CLI::App& app, CommandLine& options);
// Applies what needs the agent to exist (trace levels). Throws CommandError
// on a malformed option.
void applyCommonOptions(Agent& agent, const CommandLine& options);

}  // namespace Agent
