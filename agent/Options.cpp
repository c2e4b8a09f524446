#include "agent/Options.h"

#include <sstream>

namespace Agent {

void addCommonOptions(CLI::App& app, CommandLine& options) {
  app.add_flag("--real-time", options.realTime, "run clocks on the monotonic clock instead of simulated time");
  app.add_option("--trace", options.traces, "turn on traces: MODULE=LEVEL (repeatable)");
  app.add_option("--ports", options.agent.ports, "front-panel ports of the soft chip (Ethernet1 to EthernetN)")
      ->check(CLI::Range(1, 1024));
  app.add_option("--mac-store", options.agent.macStorePath,
                 "keep the learned MAC table in this file: restored at start, saved on a clean shutdown");
  app.add_option("--pond-prefix", options.agent.pondPrefix,
                 "begin the names of the shared-memory tables with this (default: orb-PID-)");
  app.add_flag("--external-fecd", options.agent.externalFecAllocator,
               "leave hardware FEC id requests to an `orb-agent fecd` with the same --pond-prefix");
}

void applyCommonOptions(Agent& agent, const CommandLine& options) {
  for (const auto& trace : options.traces) {
    auto eq = trace.find('=');
    if (eq == std::string::npos) throw CommandError("--trace wants MODULE=LEVEL, not '" + trace + "'");
    std::ostringstream ignored;
    agent.execute("trace " + trace.substr(0, eq) + " " + trace.substr(eq + 1), ignored);
  }
}

}  // namespace Agent
