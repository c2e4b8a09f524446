// Runs the soak: the generator's commands through an in-process agent on
// the soft chip and through the reference model side by side; at every
// quiescent point the chip's tables must equal the model's. A difference
// stops the run; its command list is shrunk to a short one that still
// differs and written as a scenario that `orb-agent run FILE` replays.
#pragma once

#include "platform/vex/TimeSlice.h"
#include "tests/soak/SoakForwarder.h"
#include "tests/soak/SoakModel.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Agent {
class Agent;
}

namespace Soak {

// A frame put to the chip's forwarding model and to the reference forwarder.
struct Probe {
  Intf ingress;
  RefFrame frame;
};

// Where the chip and the model part: one line per differing entry or frame,
// the scenario checks (expect lines) that fail on the chip as it is, and the
// frames forwarded differently (for replays to send again).
struct Difference {
  std::vector<std::string> lines;
  std::vector<std::string> expects;
  std::vector<Probe> frames;
};

// The chip's tables as the model states them. Members of a VLAN are read
// from its tagged and untagged sets; addresses with their type word.
ChipView readChip(Agent::Agent& agent);

// What differs between `want` (the model) and `have` (the chip). Addresses
// in `skip` (the model is unsure whether they aged) are not compared. The
// chip's forwarding database is never filled to capacity by the soak, so
// "equal" is plain equality, entry for entry.
std::optional<Difference> compare(const ChipView& want, const ChipView& have, const std::set<MacKey>& skip);

struct RunOptions {
  std::uint64_t seed = 1;
  std::uint64_t ops = 10000;  // commands from the generator, settling not counted
  double shrinkSeconds = 60;  // time the shrinking may take
  std::string scenarioDir = ".";
  bool learning = true;  // learns and flushes among the commands
  unsigned frames = 8;   // frames compared at each quiescent point
};

struct RunResult {
  std::uint64_t ops = 0;                                 // commands run
  std::uint64_t settles = 0;                             // quiescent points checked
  std::uint64_t frames = 0;                              // frames compared
  std::uint64_t routedFrames = 0;                        // of which into routed ports
  std::uint64_t routedOut = 0;                           // of which routed out
  double maxCommandMs = 0;                               // longest single command, wall clock
  std::map<std::string, Vex::TimeSlice::Record> slices;  // the walks' time slices, by walk
  std::optional<Difference> difference;
  std::vector<std::string> shrunk;  // the short command list that still differs
  std::string scenarioPath;         // where it was written
  bool replayFails = false;         // the written scenario fails through orb-agent's runner
};

RunResult run(const RunOptions& options);

// Replays `lines` in a fresh agent and model, lets the switch settle, and
// returns the difference in the tables or in forwarding `frames`, if any;
// nothing when a line is refused.
std::optional<Difference> replay(const std::vector<std::string>& lines, const std::vector<Probe>& frames = {});

// The frames a scenario's `chip send` checks put to the chip, so that a
// replay of its commands compares their forwarding again.
std::vector<Probe> probesOf(const std::vector<std::string>& scenario);

// The kind of a difference: the first word of its first line ("fdb",
// "vlan", "routed", "vlan-translation", ...).
std::string kindOf(const Difference& difference);

// Delta debugging over the command list: a shortest list (1-minimal within
// the time budget) for which replay() still finds a difference of the same
// kind as `difference`, so that shrinking does not wander off to another
// fault. The first `head` lines (the run's prologue) are kept while the
// difference is looked for in ever longer tails of the rest, before delta
// debugging.
std::vector<std::string> shrink(std::vector<std::string> lines, double seconds, const Difference& difference,
                                const std::vector<Probe>& frames = {}, std::size_t head = 0);

}  // namespace Soak
