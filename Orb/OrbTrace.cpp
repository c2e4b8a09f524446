#include "Orb/OrbTrace.h"

#include <unistd.h>

#include <cstdlib>

namespace Orb {

Blip::Handle& orbTraceHandle(const std::string& module) { return Blip::handle(module); }

void registerOrbTraceModules() {
  for (const char* module : {"OrbCommon", "OrbVlanHelper", "OrbVlanPhyIntfSm", "OrbLagSm", "OrbStpSm", "OrbMacAddrSm",
                             "OrbNonAgingMacSm", "OrbMacAddrSmPStoreHelper", "OrbChipProgrammer"})
    orbTraceHandle(module);
}

void initializeOrbL3BlipHandle(Blip::Handle*& handle, const std::string& name, std::size_t, bool) {
  handle = &Blip::handle(name);
}

std::string orbL3BlipUniqueName(const std::string& name) {
  const char* process = std::getenv("AGENT_PROCESS_NAME");
  return name + "-" + (process ? std::string(process) : fmt::format("{:d}", ::getpid()));
}

void initializeOrbL3BlipHandleUniqueName(Blip::Handle*& handle, const std::string& name, std::size_t size, bool flag) {
  initializeOrbL3BlipHandle(handle, orbL3BlipUniqueName(name), size, flag);
}

}  // namespace Orb
