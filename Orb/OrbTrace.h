// Trace handles of the library's state machines.
#pragma once

#include "platform/blip/Blip.h"

#include <optional>
#include <string>
#include <string_view>

namespace Orb {

class OrbCommonSmData;
struct BlipLevels;

// The trace handle of a module ("OrbVlanHelper").
Blip::Handle& orbTraceHandle(const std::string& module);

// Registers the handle of every module of the library, so that trace levels
// can be set before a machine first writes.
void registerOrbTraceModules();

// Opens the trace handle of a layer-3 state machine: `name` is the module,
// `size` the number of lines its file keeps and `flag` whether it writes to a
// file of its own (otherwise to the shared trace sink).
void initializeOrbL3BlipHandle(Blip::Handle*& handle, const std::string& name, std::size_t size, bool flag);
// The same, with a file name unique per process: the name, "-", then
// AGENT_PROCESS_NAME or, when that is unset, the process id.
void initializeOrbL3BlipHandleUniqueName(Blip::Handle*& handle, const std::string& name, std::size_t size, bool flag);
// The file name the unique variant uses.
std::string orbL3BlipUniqueName(const std::string& name);

// The level the layer-3 machine of a module writes at, as `levels` (the
// shared context's `blipLevels`) gives it: "OrbSubIntfSm" takes
// `orbSubIntfSm`, and a per-process handle ("OrbArpSm-Orb-Agent") its
// machine's level. None for a module that is not a layer-3 machine.
std::optional<unsigned> orbL3BlipLevel(const BlipLevels& levels, std::string_view module);
// Every open layer-3 handle takes its level from the shared context; other
// handles keep theirs.
void orbL3BlipLevelsIs(const OrbCommonSmData& ocsd);

}  // namespace Orb
