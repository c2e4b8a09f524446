// orb-agent: the forwarding agent on the soft chip.
//
//   orb-agent                 reads commands from standard input on real time
//                             until end of input or a signal
//   orb-agent shell           interactive shell (simulated time)
//   orb-agent run FILE        runs a scenario file (simulated time)
//   orb-agent fecd            the soft chip's hardware FEC allocator alone:
//                             answers the FEC requests of agents started
//                             with --external-fecd and the same
//                             --pond-prefix, until a signal
//
// With --mac-store PATH the learned MAC table is restored from PATH at start
// and saved there when the agent ends cleanly.
#include "agent/Agent.h"
#include "agent/Options.h"
#include "platform/vex/FdWatch.h"
#include "platform/vex/Memory.h"

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <csignal>
#include <iostream>

namespace {

volatile std::sig_atomic_t stopRequested = 0;
void requestStop(int) { stopRequested = 1; }

// The plain mode: commands from standard input, clocks on real time, until
// end of input or SIGINT/SIGTERM. The loop waits on standard input and the
// clocks together and runs commands between clock batches.
int runDaemon(Agent::Agent& agent) {
  std::signal(SIGINT, requestStop);
  std::signal(SIGTERM, requestStop);
  std::string pending;
  bool inputEnded = false;
  Vex::Ptr<Vex::FdWatch> input;
  input = Vex::fdWatchFactory(STDIN_FILENO, Vex::FdEvent::readable, [&](unsigned events) {
    char buffer[4096];
    // A hang-up or error without data is the end of input, as a read of 0 is.
    ssize_t n = (events & Vex::FdEvent::readable) ? ::read(STDIN_FILENO, buffer, sizeof buffer) : 0;
    if (n <= 0) {
      inputEnded = true;
      input->interestIs(Vex::FdEvent::none);
      return;
    }
    pending.append(buffer, static_cast<std::size_t>(n));
    if (pending.size() > 65536 && pending.find('\n') == std::string::npos) {
      std::cerr << "% line too long, dropped\n";
      pending.clear();
    }
    for (auto end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
      std::string line = pending.substr(0, end);
      pending.erase(0, end + 1);
      try {
        agent.execute(line, std::cout);
      } catch (const std::exception& e) {
        std::cerr << "% " << e.what() << "\n";
      }
      std::cout.flush();
    }
  });
  // The wait is capped so that a signal landing just before it is seen
  // within a second.
  while (!stopRequested && !agent.shell().quitRequested() && !inputEnded) agent.loop().runOnce(1.0);
  return 0;
}

// The allocator alone on real time, serving every source, until SIGINT or
// SIGTERM. The signal is seen within the loop's capped wait.
int runFecAllocator(const std::string& pondPrefix, std::size_t capacity) {
  std::signal(SIGINT, requestStop);
  std::signal(SIGTERM, requestStop);
  Vex::EventLoop loop{std::make_unique<Vex::MonotonicTimeSource>()};
  loop.makeCurrent();
  auto chip = SoftChip::softChipFactory();
  auto allocator = Vex::make<SoftChip::SoftFecAllocator>(chip, pondPrefix, capacity);
  for (auto source : Orb::allFecRequestSources()) allocator->serve(source);
  std::cout << "orb-agent fecd: answering hardware FEC requests under '" << pondPrefix << "'" << std::endl;
  while (!stopRequested) loop.runOnce(0.2);
  std::cout << "orb-agent fecd: " << allocator->answers() << " answers, " << allocator->grants().size()
            << " hardware FECs held" << std::endl;
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"orb-agent: the libOrb forwarding agent on the soft chip"};
  app.set_version_flag("--version", std::string("orb-agent ") + ORB_VERSION);
  Agent::CommandLine options;
  Agent::addCommonOptions(app, options);

  auto* shell = app.add_subcommand("shell", "interactive shell");
  auto* run = app.add_subcommand("run", "run a scenario file");
  std::string scenario;
  run->add_option("FILE", scenario, "scenario file: one command a line, # comments")->required();
  auto* fecd = app.add_subcommand("fecd", "the soft chip's hardware FEC allocator alone, until a signal");
  std::size_t fecdCapacity = 65536;
  fecd->add_option("--answers", fecdCapacity, "answers each source's response table holds")
      ->check(CLI::Range(1, 1 << 24));
  app.require_subcommand(0, 1);
  CLI11_PARSE(app, argc, argv);
  Vex::keepFreedMemory();

  try {
    if (fecd->parsed()) {
      if (options.agent.pondPrefix.empty()) throw std::invalid_argument("fecd needs the agents' --pond-prefix");
      return runFecAllocator(options.agent.pondPrefix, fecdCapacity);
    }
    if (shell->parsed() || run->parsed())
      options.agent.realTime = options.realTime;
    else
      options.agent.realTime = true;
    Agent::Agent agent(options.agent);
    Agent::applyCommonOptions(agent, options);
    int status = 0;
    if (run->parsed()) {
      status = agent.runScenario(scenario, std::cout, std::cerr);
    } else if (shell->parsed()) {
      status = agent.runShell(std::cin, std::cout, std::cerr, ::isatty(STDIN_FILENO));
    } else {
      status = runDaemon(agent);
    }
    agent.shutdown();
    return status;
  } catch (const std::exception& e) {
    std::cerr << "orb-agent: " << e.what() << "\n";
    return 1;
  }
}
