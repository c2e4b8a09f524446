// Running one command line on an in-process agent, for the agent's tests.
#pragma once

#include "agent/Agent.h"

#include <sstream>
#include <string>

namespace AgentTest {

// What the line printed.
inline std::string run(Agent::Agent& agent, const std::string& line) {
  std::ostringstream out;
  agent.execute(line, out);
  return out.str();
}

// The reason the line was refused; empty when it ran.
inline std::string error(Agent::Agent& agent, const std::string& line) {
  try {
    run(agent, line);
  } catch (const Agent::CommandError& e) {
    return e.what();
  }
  return "";
}

}  // namespace AgentTest
