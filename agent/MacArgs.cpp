#include "agent/MacArgs.h"

#include "agent/IntfRange.h"

#include <algorithm>

namespace Agent {

Nexo::EthAddr macArg(const std::string& text) {
  try {
    return Nexo::EthAddr(text);
  } catch (const std::exception&) {
    throw CommandError("bad MAC address '" + text + "'");
  }
}

Bridging::VlanId vlanArg(const std::string& text) {
  return Bridging::VlanId(static_cast<std::uint32_t>(parseInteger(text, 1, 4094)));
}

Nexo::IntfId oneIntf(const std::string& text) {
  auto ids = parseIntfRange(text);
  if (ids.size() != 1) throw CommandError("one interface expected, not '" + text + "'");
  return ids[0];
}

Bridging::MacVlanPair keyArgs(const Args& args, std::size_t at, const std::string& usage) {
  if (args.size() < at + 3 || args[at + 1] != "vlan") throw CommandError("usage: " + usage);
  return Bridging::MacVlanPair{macArg(args[at]), vlanArg(args[at + 2])};
}

Bridging::EntryType entryTypeArg(const std::string& text) {
  std::string word = text;
  std::replace(word.begin(), word.end(), '-', ' ');
  Bridging::EntryType type;
  if (!Bridging::entryTypeFromWord(word, type)) {
    throw CommandError("unknown entry type '" + text + "' (dynamic, static, peer-dynamic, evpn-dynamic-remote...)");
  }
  return type;
}

const char* entryTypeText(Bridging::EntryType type) {
  const char* word = Bridging::entryTypeWord(type);
  return word ? word : "other";
}

std::vector<Bridging::VlanId> vlanListArg(const std::string& text) {
  std::vector<Bridging::VlanId> vlans;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t comma = text.find(',', start);
    std::string item = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    start = comma == std::string::npos ? text.size() + 1 : comma + 1;
    std::size_t dash = item.find('-');
    long first = parseInteger(item.substr(0, dash), 1, 4094);
    long last = dash == std::string::npos ? first : parseInteger(item.substr(dash + 1), 1, 4094);
    if (last < first) throw CommandError("bad VLAN range '" + item + "'");
    for (long v = first; v <= last; ++v) vlans.emplace_back(static_cast<std::uint32_t>(v));
  }
  return vlans;
}

bool onOffArg(const std::string& text) {
  if (text == "on") return true;
  if (text == "off") return false;
  throw CommandError("on or off expected, not '" + text + "'");
}

KeywordArgs keywordArgs(const Args& args, std::size_t at, const std::set<std::string>& allowed,
                        const std::string& usage) {
  KeywordArgs options;
  for (std::size_t i = at; i < args.size(); i += 2) {
    if (!allowed.count(args[i])) throw CommandError("unknown option '" + args[i] + "'; usage: " + usage);
    if (i + 1 >= args.size()) throw CommandError("option '" + args[i] + "' needs a value");
    if (!options.emplace(args[i], args[i + 1]).second) throw CommandError("option '" + args[i] + "' given twice");
  }
  return options;
}

namespace {

template <class Entry>
void applyCommonOptions(const KeywordArgs& options, Entry& entry) {
  if (auto it = options.find("type"); it != options.end()) entry.entryType = entryTypeArg(it->second);
  if (auto it = options.find("moves"); it != options.end()) {
    entry.moves = Keel::Seqno32(static_cast<std::uint32_t>(parseInteger(it->second, 0, 0xffffffffL)));
  }
  if (auto it = options.find("time"); it != options.end()) entry.lastMoveTime = parseSeconds(it->second);
}

}  // namespace

void applyEntryOptions(const KeywordArgs& options, OrbTypes::RemoteMacAddressTableEntry& entry) {
  applyCommonOptions(options, entry);
  if (auto it = options.find("preference"); it != options.end()) {
    entry.preference = static_cast<std::uint8_t>(parseInteger(it->second, 0, 255));
  }
}

void applyEntryOptions(const KeywordArgs& options, OrbTypes::MacAddressTableEntry& entry) {
  applyCommonOptions(options, entry);
}

}  // namespace Agent
