// The agent's own commands: help, time, the chip dump, traces, and the
// checks scenarios make of themselves (expect, show logging, verify), and
// frames sent into the chip (chip send), and the time slices of long walks.
#pragma once

#include "agent/Feature.h"

namespace Agent {

class CoreFeature : public Feature {
 public:
  using Feature::Feature;
  void registerCommands() override;

 private:
  void registerCoreCommands();
  void registerCheckCommands();
  void registerPacketCommands();
  void registerSliceCommands();
};

}  // namespace Agent
