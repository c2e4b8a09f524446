// Interface lists as a person types them: "Ethernet1-4,Ethernet7,Port-Channel10".
#pragma once

#include "platform/types/Nexo.h"

#include <set>
#include <string>
#include <vector>

namespace Agent {

// Throws CommandError on anything that is not a list of interfaces.
std::vector<Nexo::IntfId> parseIntfRange(const std::string& text);

// The interfaces in order, separated by blanks; "-" for none.
std::string intfsText(const std::set<Nexo::IntfId>& intfs);

}  // namespace Agent
