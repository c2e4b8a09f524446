#include "Orb/OrbTrace.h"

#include "Orb/OrbCommon.h"

#include <unistd.h>

#include <cstdlib>

namespace Orb {

Blip::Handle& orbTraceHandle(const std::string& module) { return Blip::handle(module); }

void registerOrbTraceModules() {
  for (const char* module : {"OrbCommon", "OrbVlanHelper", "OrbVlanPhyIntfSm", "OrbLagSm", "OrbStpSm", "OrbMacAddrSm",
                             "OrbNonAgingMacSm", "OrbMacAddrSmPStoreHelper", "OrbChipProgrammer", "OrbAclSm", "OrbL4",
                             "OrbStormControlSm"})
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

std::optional<unsigned> orbL3BlipLevel(const BlipLevels& levels, std::string_view module) {
  std::string_view machine = module.substr(0, module.find('-'));
  const std::pair<std::string_view, std::uint32_t> byModule[] = {
      {"OrbVrfRootSm", levels.orbVrfRootSm},
      {"OrbRoutingStatusSm", levels.orbRoutingStatusSm},
      {"OrbL3FeatureConfigSm", levels.orbL3FeatureConfigSm},
      {"OrbArpSm", levels.orbArpSm},
      {"OrbIp6NeighborSm", levels.orbIp6NeighborSm},
      {"OrbResilientEcmpSm", levels.orbResilientEcmpSm},
      {"OrbIp6ResilientEcmpSm", levels.orbIp6ResilientEcmpSm},
      {"OrbAdjDependencySm", levels.orbAdjDependencySm},
      {"OrbSubIntfSm", levels.orbSubIntfSm},
      {"OrbIntfStatusSm", levels.orbIntfStatusSm},
      {"OrbL2AdjHelper", levels.orbL2AdjHelper},
      {"OrbPwSm", levels.orbPwSm},
      {"OrbL3AdjStatusSm", levels.orbL3AdjStatusSm},
  };
  for (const auto& [name, level] : byModule) {
    if (name == machine) return level;
  }
  return std::nullopt;
}

void orbL3BlipLevelsIs(const OrbCommonSmData& ocsd) {
  for (const auto& [module, handle] : Blip::handles()) {
    if (auto level = orbL3BlipLevel(ocsd.blipLevels(), module)) handle->levelIs(*level);
  }
}

}  // namespace Orb
