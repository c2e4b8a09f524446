// MAC addresses and the MAC commands' arguments: Nexo::EthAddr in both
// spellings, the store's dotted groups, and the agent's address, VLAN,
// VLAN list, entry type and option parsers over the input's words. Bad text
// is a CommandError (or ParseError for the value type), nothing else.
#include "Orb/OrbMacAddrSmPStoreHelper.h"
#include "agent/MacArgs.h"
#include "tests/fuzz/FuzzCheck.h"

namespace {

void ethAddr(const std::string& input) {
  Nexo::EthAddr addr;
  try {
    addr = Nexo::EthAddr(input);
  } catch (const Vex::ParseError&) {
    try {
      Agent::macArg(input);
      Fuzz::fail("macArg takes what EthAddr refuses", input);
    } catch (const Agent::CommandError&) {
    }
    return;
  }
  Fuzz::check(Nexo::EthAddr(addr.stringValue()) == addr, "printed address parses to another", input);
  Fuzz::check(Agent::macArg(input) == addr, "macArg reads another address", input);
  Fuzz::checkStrepRoundTrip(addr, input);
  Nexo::EthAddr stored;
  Fuzz::check(Orb::pStoreAddrParse(Orb::pStoreAddrText(addr).c_str(), stored) && stored == addr,
              "store form does not round-trip", input);
}

void storeAddr(const std::string& input) {
  Nexo::EthAddr addr;
  if (!Orb::pStoreAddrParse(input.c_str(), addr)) return;
  Nexo::EthAddr again;
  Fuzz::check(Orb::pStoreAddrParse(Orb::pStoreAddrText(addr).c_str(), again) && again == addr,
              "store form does not round-trip", input);
}

void vlanList(const std::string& input) {
  try {
    for (auto vlan : Agent::vlanListArg(input)) {
      Fuzz::check(vlan.value() >= 1 && vlan.value() <= 4094, "VLAN list holds a VLAN out of range", input);
    }
  } catch (const Agent::CommandError&) {
  }
}

void entryType(const std::string& input) {
  Bridging::EntryType type;
  try {
    type = Agent::entryTypeArg(input);
  } catch (const Agent::CommandError&) {
    return;
  }
  std::string word = Agent::entryTypeText(type);
  std::replace(word.begin(), word.end(), ' ', '-');
  Fuzz::check(Agent::entryTypeArg(word) == type, "entry type word reads as another type: " + word, input);
}

// "MAC vlan V [option value]..." as the static and remote MAC commands take it.
void entryArgs(const Agent::Args& args) {
  try {
    auto key = Agent::keyArgs(args, 0, "MAC vlan V");
    Fuzz::check(key.vlanId.value() >= 1 && key.vlanId.value() <= 4094, "key VLAN out of range", "");
    auto options = Agent::keywordArgs(args, 3, {"type", "moves", "time", "preference"}, "options");
    OrbTypes::RemoteMacAddressTableEntry remote;
    Agent::applyEntryOptions(options, remote);
    OrbTypes::MacAddressTableEntry local;
    Agent::applyEntryOptions(options, local);
    Fuzz::checkStrepRoundTrip(remote, "");
    Fuzz::checkStrepRoundTrip(local, "");
  } catch (const Agent::CommandError&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string input = Fuzz::text(data, size);
  ethAddr(input);
  storeAddr(input);
  vlanList(input);
  entryType(input);
  entryArgs(Agent::CommandShell::split(input));
  return 0;
}
