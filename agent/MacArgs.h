// Arguments of the MAC commands as a person types them: addresses, VLANs,
// interfaces, entry types and trailing "keyword value" options. Each
// parser throws CommandError with a one-line reason.
#pragma once

#include "agent/CommandShell.h"
#include "platform/model/MacModels.h"

#include <map>
#include <set>
#include <string>

namespace Agent {

Nexo::EthAddr macArg(const std::string& text);
Bridging::VlanId vlanArg(const std::string& text);
// One interface, not a range.
Nexo::IntfId oneIntf(const std::string& text);
// "MAC vlan V" at args[at].
Bridging::MacVlanPair keyArgs(const Args& args, std::size_t at, const std::string& usage);
// An entry type by its word, blanks written as dashes ("peer-static-remote").
Bridging::EntryType entryTypeArg(const std::string& text);
// The word of an entry type, "other" for a value outside the table.
const char* entryTypeText(Bridging::EntryType type);
// "a-b" or "a" lists separated by commas: "10,20-22".
std::vector<Bridging::VlanId> vlanListArg(const std::string& text);
bool onOffArg(const std::string& text);

// Trailing "keyword value" pairs from args[at]: each keyword at most once,
// only the allowed ones.
using KeywordArgs = std::map<std::string, std::string>;
KeywordArgs keywordArgs(const Args& args, std::size_t at, const std::set<std::string>& allowed,
                        const std::string& usage);

// Applies the entry options "type", "moves", "time" and "preference" that
// `options` holds.
void applyEntryOptions(const KeywordArgs& options, OrbTypes::RemoteMacAddressTableEntry& entry);
void applyEntryOptions(const KeywordArgs& options, OrbTypes::MacAddressTableEntry& entry);

}  // namespace Agent
