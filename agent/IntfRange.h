// Interface lists as a person types them: "Ethernet1-4,Ethernet7,Port-Channel10".
#pragma once

#include "platform/types/Nexo.h"

#include <string>
#include <vector>

namespace Agent {

// Throws CommandError on anything that is not a list of interfaces.
std::vector<Nexo::IntfId> parseIntfRange(const std::string& text);

}  // namespace Agent
