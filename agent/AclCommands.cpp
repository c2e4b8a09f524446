// ACL commands. There is no configuration sub-mode: each rule is one line
// naming its list,
//
//   ip access-list NAME SEQ permit|deny PROTO SRC [PORTS] DST [PORTS] [established] [fragments]
//   ipv6 access-list NAME SEQ permit|deny PROTO SRC [PORTS] DST [PORTS] [established] [fragments]
//   mac access-list NAME SEQ permit|deny SRC DST [type 0xNNNN] [mpls LABEL [inner LABEL]]
//
// with PROTO ip (ipv6) | tcp | udp | icmp | 0-255, an address `any`, `host
// ADDR` or a prefix, PORTS `eq P` or `range LOW HIGH` (TCP and UDP only), a
// MAC `any`, `MAC` or `MAC/MASK`. A line rewrites the rule of that sequence
// number; `ip access-list NAME` alone makes an empty list; `no ip
// access-list NAME [SEQ]` removes the list or one rule. Each line is one
// complete edit: the list is rebuilt once per line.
#include "agent/AclFeature.h"
#include "agent/ChipTableArgs.h"
#include "agent/IntfRange.h"
#include "agent/JsonOutput.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <optional>

namespace Agent {

namespace {

using Acl::AclType;

const char* typeWord(AclType type) { return Acl::aclTypeName(type); }

std::uint32_t seqArg(const std::string& text) { return static_cast<std::uint32_t>(parseInteger(text, 1, 4294967295L)); }

Acl::AclAction actionArg(const std::string& text) {
  if (text == "permit") return Acl::AclAction::permit;
  if (text == "deny") return Acl::AclAction::deny;
  throw CommandError("expected permit or deny, not '" + text + "'");
}

std::uint8_t protocolArg(const std::string& text, AclType type) {
  if (text == (type == Acl::ipv6() ? "ipv6" : "ip")) return 0;
  if (text == "tcp") return 6;
  if (text == "udp") return 17;
  if (text == "icmp" && type == Acl::ip()) return 1;
  if (text == "icmpv6" && type == Acl::ipv6()) return 58;
  try {
    return static_cast<std::uint8_t>(parseInteger(text, 0, 255));
  } catch (const CommandError&) {
    throw CommandError(fmt::format("bad protocol '{}': expected {}, tcp, udp, {} or 0-255", text,
                                   type == Acl::ipv6() ? "ipv6" : "ip", type == Acl::ipv6() ? "icmpv6" : "icmp"));
  }
}

// Reads the words of one rule in order.
class RuleReader {
 public:
  RuleReader(const Args& args, std::size_t at) : args_(args), at_(at) {}
  bool done() const { return at_ >= args_.size(); }
  const std::string& peek() const {
    static const std::string none;
    return done() ? none : args_[at_];
  }
  const std::string& take(const char* what) {
    if (done()) throw CommandError(fmt::format("rule ends early: expected {}", what));
    return args_[at_++];
  }

  template <class Prefix, class Addr>
  Prefix address(const char* what) {
    const std::string& word = take(what);
    try {
      if (word == "any") return Prefix();
      if (word == "host") return Prefix(Addr(take(what)), sizeof(Addr) == 4 ? 32 : 128);
      if (word.find('/') == std::string::npos) throw CommandError("");
      return Prefix(word);
    } catch (const std::exception&) {
      throw CommandError(fmt::format("bad {} '{}': expected any, host ADDR or a prefix", what, word));
    }
  }

  Acl::PortMatch ports(bool l4) {
    Acl::PortMatch match;
    if (peek() != "eq" && peek() != "range") return match;
    if (!l4) throw CommandError("port matches need tcp or udp");
    if (take("eq or range") == "eq") {
      match.op = Acl::PortOp::eq;
      match.low = static_cast<std::uint16_t>(parseInteger(take("a port"), 0, 65535));
      return match;
    }
    match.op = Acl::PortOp::range;
    match.low = static_cast<std::uint16_t>(parseInteger(take("a low port"), 0, 65535));
    match.high = static_cast<std::uint16_t>(parseInteger(take("a high port"), 0, 65535));
    if (match.low > match.high)
      throw CommandError(fmt::format("bad range {} {}: low above high", match.low, match.high));
    return match;
  }

 private:
  const Args& args_;
  std::size_t at_;
};

template <class Filter, class Prefix, class Addr>
Filter ipFilterArgs(RuleReader& reader, AclType type) {
  Filter filter;
  filter.protocol = protocolArg(reader.take("a protocol"), type);
  const bool l4 = filter.protocol == 6 || filter.protocol == 17;
  filter.source = reader.address<Prefix, Addr>("source");
  filter.sourcePort = reader.ports(l4);
  filter.destination = reader.address<Prefix, Addr>("destination");
  filter.destinationPort = reader.ports(l4);
  while (!reader.done()) {
    const std::string& word = reader.take("");
    if (word == "established" && filter.protocol == 6) {
      filter.established = true;
    } else if (word == "fragments") {
      filter.fragments = true;
    } else {
      throw CommandError(fmt::format("bad word '{}': expected established (tcp only), fragments or the end", word));
    }
  }
  if (filter.fragments && (filter.sourcePort.op != Acl::PortOp::any || filter.destinationPort.op != Acl::PortOp::any ||
                           filter.established)) {
    throw CommandError("fragments carry no L4 header: no port or established match with fragments");
  }
  return filter;
}

std::pair<Nexo::EthAddr, Nexo::EthAddr> macArg(const std::string& text) {
  try {
    if (text == "any") return {};
    auto slash = text.find('/');
    if (slash == std::string::npos) return {Nexo::EthAddr(text), Nexo::EthAddr(0xffffffffffffULL)};
    return {Nexo::EthAddr(text.substr(0, slash)), Nexo::EthAddr(text.substr(slash + 1))};
  } catch (const std::exception&) {
    throw CommandError(fmt::format("bad MAC '{}': expected any, MAC or MAC/MASK", text));
  }
}

Acl::MacFilter macFilterArgs(RuleReader& reader) {
  Acl::MacFilter filter;
  std::tie(filter.source, filter.sourceMask) = macArg(reader.take("a source MAC"));
  std::tie(filter.destination, filter.destinationMask) = macArg(reader.take("a destination MAC"));
  while (!reader.done()) {
    const std::string& word = reader.take("");
    if (word == "type") {
      const std::string& value = reader.take("an ethertype");
      std::size_t used = 0;
      unsigned long parsed = 0x10000;
      try {
        if (value.rfind("0x", 0) == 0 && value.size() > 2) parsed = std::stoul(value.substr(2), &used, 16);
      } catch (const std::exception&) {
      }
      if (used != value.size() - 2 || parsed > 0xffff) {
        throw CommandError(fmt::format("bad ethertype '{}': expected 0x0000-0xffff", value));
      }
      filter.etherType = static_cast<std::uint16_t>(parsed);
    } else if (word == "mpls") {
      filter.matchMplsLabel = true;
      filter.mplsLabel = parseInteger(reader.take("an MPLS label"), -2147483647L, 2147483647L);
      if (reader.peek() == "inner") {
        reader.take("inner");
        filter.matchMplsInnerLabel = true;
        filter.mplsInnerLabel = parseInteger(reader.take("an inner MPLS label"), -2147483647L, 2147483647L);
      }
    } else {
      throw CommandError(fmt::format("bad word '{}': expected type, mpls or the end", word));
    }
  }
  try {
    Acl::checkMacFilter(filter);
  } catch (const Vex::RangeError& e) {
    throw CommandError(e.what());
  }
  return filter;
}

std::string protocolText(std::uint8_t protocol, bool v6) {
  switch (protocol) {
    case 0:
      return v6 ? "ipv6" : "ip";
    case 6:
      return "tcp";
    case 17:
      return "udp";
    case 1:
      return v6 ? "1" : "icmp";
    case 58:
      return v6 ? "icmpv6" : "58";
  }
  return std::to_string(protocol);
}

template <class Prefix>
std::string addressText(const Prefix& prefix, unsigned hostLen) {
  if (prefix.len() == 0) return "any";
  if (prefix.len() == hostLen) return "host " + prefix.addr().stringValue();
  return prefix.stringValue();
}

std::string portText(const Acl::PortMatch& match) {
  switch (match.op) {
    case Acl::PortOp::any:
      return "";
    case Acl::PortOp::eq:
      return fmt::format(" eq {}", match.low);
    case Acl::PortOp::range:
      return fmt::format(" range {} {}", match.low, match.high);
  }
  return "";
}

template <class Rule>
std::string ipRuleText(const Rule& rule, bool v6) {
  const auto& f = rule.filter;
  std::string text =
      fmt::format("{} {} {}{} {}{}", rule.action == Acl::AclAction::permit ? "permit" : "deny",
                  protocolText(f.protocol, v6), addressText(f.source, v6 ? 128 : 32), portText(f.sourcePort),
                  addressText(f.destination, v6 ? 128 : 32), portText(f.destinationPort));
  if (f.established) text += " established";
  if (f.fragments) text += " fragments";
  return text;
}

std::string macText(const Nexo::EthAddr& addr, const Nexo::EthAddr& mask) {
  if (mask.isZero()) return "any";
  if (mask.isBroadcast()) return addr.stringValue();
  return addr.stringValue() + "/" + mask.stringValue();
}

}  // namespace

std::string aclRuleText(const Acl::IpRuleConfig& rule) { return ipRuleText(rule, false); }
std::string aclRuleText(const Acl::Ip6RuleConfig& rule) { return ipRuleText(rule, true); }
std::string aclRuleText(const Acl::MacRuleConfig& rule) {
  const auto& f = rule.filter;
  std::string text = fmt::format("{} {} {}", rule.action == Acl::AclAction::permit ? "permit" : "deny",
                                 macText(f.source, f.sourceMask), macText(f.destination, f.destinationMask));
  if (f.etherType) text += fmt::format(" type 0x{:04x}", f.etherType);
  if (f.matchMplsLabel) text += fmt::format(" mpls {}", f.mplsLabel);
  if (f.matchMplsInnerLabel) text += fmt::format(" inner {}", f.mplsInnerLabel);
  return text;
}

void AclFeature::ruleIs(AclType type, const Args& args) {
  const std::string usage = fmt::format("{} access-list NAME [SEQ permit|deny ...]", typeWord(type));
  if (args.empty()) throw CommandError("usage: " + usage);
  const std::string& name = args[0];
  if (name.empty() || name.size() > 100) throw CommandError("a list name is 1 to 100 characters");
  if (args.size() == 1) {
    config_->aclTypeConfigIs(type)->aclIs(name);
    return;
  }
  RuleReader reader(args, 1);
  const std::uint32_t seq = seqArg(reader.take("a sequence number"));
  const Acl::AclAction action = actionArg(reader.take("permit or deny"));
  // Everything is checked before anything is written.
  if (type == Acl::ip()) {
    auto filter = ipFilterArgs<Acl::IpFilter, Nexo::Prefix, Nexo::IpAddr>(reader, type);
    auto acl = config_->aclTypeConfigIs(type)->aclIs(name);
    acl->ipRuleBySequenceIs(seq, {action, filter, nextUniqueId(type, name)});
    acl->versionInc();
  } else if (type == Acl::ipv6()) {
    auto filter = ipFilterArgs<Acl::Ip6Filter, Nexo::Ip6Prefix, Nexo::Ip6Addr>(reader, type);
    auto acl = config_->aclTypeConfigIs(type)->aclIs(name);
    acl->ip6RuleBySequenceIs(seq, {action, filter, nextUniqueId(type, name)});
    acl->versionInc();
  } else {
    auto filter = macFilterArgs(reader);
    auto acl = config_->aclTypeConfigIs(type)->aclIs(name);
    acl->macRuleBySequenceIs(seq, {action, filter, nextUniqueId(type, name)});
    acl->versionInc();
  }
}

void AclFeature::ruleDel(AclType type, const Args& args) {
  expectArgs(args, 1, 2, fmt::format("no {} access-list NAME [SEQ]", typeWord(type)));
  auto typeConfig = config_->aclTypeConfig(type);
  auto acl = typeConfig ? typeConfig->acl(args[0]) : nullptr;
  if (!acl) throw CommandError(fmt::format("no {} access-list {}", typeWord(type), args[0]));
  if (args.size() == 1) {
    typeConfig->aclDel(args[0]);
    return;
  }
  const std::uint32_t seq = seqArg(args[1]);
  const bool had = acl->ipRuleBySequenceHas(seq) || acl->ip6RuleBySequenceHas(seq) || acl->macRuleBySequenceHas(seq);
  if (!had) throw CommandError(fmt::format("{} access-list {} has no rule {}", typeWord(type), args[0], seq));
  acl->ipRuleBySequenceDel(seq);
  acl->ip6RuleBySequenceDel(seq);
  acl->macRuleBySequenceDel(seq);
  acl->versionInc();
}

// interface INTFS [no] ip|ipv6|mac access-group [NAME] in|out
void AclFeature::accessGroupIs(const Args& args) {
  const std::string usage = "interface INTFS [no] ip|ipv6|mac access-group NAME in|out";
  std::size_t at = 1;
  const bool remove = args.size() > at && args[at] == "no";
  if (remove) ++at;
  if (args.size() != at + (remove ? 3 : 4)) throw CommandError("usage: " + usage);
  AclType type;
  if (args[at] == "ip") {
    type = Acl::ip();
  } else if (args[at] == "ipv6") {
    type = Acl::ipv6();
  } else if (args[at] == "mac") {
    type = Acl::mac();
  } else {
    throw CommandError("usage: " + usage);
  }
  if (args[at + 1] != "access-group") throw CommandError("usage: " + usage);
  const std::string name = remove ? "" : args[at + 2];
  const std::string& dir = args.back();
  if (dir != "in" && dir != "out") throw CommandError(fmt::format("bad direction '{}': expected in or out", dir));
  std::vector<Nexo::IntfId> intfs;
  try {
    intfs = parseIntfRange(args[0]);
  } catch (const CommandError&) {
    throw;
  } catch (const std::exception& e) {
    throw CommandError(e.what());
  }
  for (const auto& intf : intfs) {
    if (!intf.isEthernet() && !intf.isLag() && !intf.isVlan()) throw CommandError("no ACL on " + intf.stringValue());
  }
  auto intfConfig = config_->aclIntfTypeConfigIs(type);
  for (const auto& intf : intfs) {
    auto bindings = intfConfig->intf(intf);
    (dir == "in" ? bindings.in : bindings.out) = name;
    if (bindings.in.empty() && bindings.out.empty()) {
      intfConfig->intfDel(intf);
    } else {
      intfConfig->intfIs(intf, bindings);
    }
  }
}

void AclFeature::registerListCommands() {
  for (AclType type : {Acl::ip(), Acl::ipv6(), Acl::mac()}) {
    const std::string word = std::string(typeWord(type)) + " access-list";
    const std::string rule = type == Acl::mac()
                                 ? "SRC DST [type 0xNNNN] [mpls LABEL [inner LABEL]]"
                                 : "PROTO SRC [eq P|range A B] DST [eq P|range A B] [established] [fragments]";
    shell_.commandIs(word, "NAME [SEQ permit|deny " + rule + "]", "write one rule of a list (or make it empty)",
                     [this, type](const Args& args, std::ostream&) { ruleIs(type, args); });
    shell_.commandIs("no " + word, "NAME [SEQ]", "remove a list, or one rule of it",
                     [this, type](const Args& args, std::ostream&) { ruleDel(type, args); });
  }
  shell_.commandFormIs(
      "interface", "INTFS [no] ip|ipv6|mac access-group NAME in|out",
      [](const Args& args) {
        return (args.size() >= 3 && args[2] == "access-group") ||
               (args.size() >= 4 && args[1] == "no" && args[3] == "access-group");
      },
      [this](const Args& args, std::ostream&) { accessGroupIs(args); });
  shell_.commandIs("hardware access-list update default-result", "permit|deny",
                   "what interfaces do with their traffic while their ACL is replaced",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "hardware access-list update default-result permit|deny");
                     if (args[0] != "permit" && args[0] != "deny") {
                       throw CommandError(fmt::format("bad default result '{}': expected permit or deny", args[0]));
                     }
                     config_->permitDuringUpdateIs(args[0] == "permit");
                   });
  for (const bool on : {true, false}) {
    shell_.commandIs(std::string(on ? "" : "no ") + "hardware access-list resource sharing", "ip|ipv6|mac",
                     on ? "lists of the type applied on several interfaces share their TCAM entries (default)"
                        : "each interface (LAG, VLAN) applying a list of the type gets entries of its own",
                     [this, on](const Args& args, std::ostream&) {
                       const std::string usage =
                           std::string(on ? "" : "no ") + "hardware access-list resource sharing ip|ipv6|mac";
                       expectArgs(args, 1, 1, usage);
                       std::optional<AclType> type;
                       for (AclType t : {Acl::ip(), Acl::ipv6(), Acl::mac()}) {
                         if (args[0] == typeWord(t)) type = t;
                       }
                       if (!type) throw CommandError(fmt::format("bad type '{}': expected ip, ipv6 or mac", args[0]));
                       config_->aclTypeConfigIs(*type)->sharingIs(on);
                     });
  }
  shell_.commandIs("clear access-lists counters", "[NAME]", "zero the counters of every list (or of one)",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 0, 1, "clear access-lists counters [NAME]");
                     bool found = false;
                     for (const auto& [type, typeConfig] : config_->aclTypeConfig()) {
                       for (const auto& [name, acl] : typeConfig->acl()) {
                         if (!args.empty() && args[0] != name) continue;
                         acl->clearCounterInc();
                         found = true;
                       }
                     }
                     if (!args.empty() && !found) throw CommandError("no access-list " + args[0]);
                   });
  shell_.commandIs(
      "chip acl",
      "capacity N | ranges N | busy|full|fail next N | status WORD next N | mode direct|deferred | "
      "ack-delay SECONDS | subintf-sharing on|off",
      "the soft chip's ACL TCAM: entries, port-range checkers, planned faults and status words, "
      "acknowledgements, whether sub-interfaces may share an instance",
      [this](const Args& args, std::ostream&) {
        const std::string usage =
            "chip acl capacity N | ranges N | busy|full|fail next N | status WORD next N | "
            "mode direct|deferred | ack-delay SECONDS | subintf-sharing on|off";
        if (args.empty()) throw CommandError("usage: " + usage);
        if (args[0] == "ranges" && args.size() == 2) {
          helper_->table().rangeCheckersIs(static_cast<std::size_t>(parseInteger(args[1], 0, 1000000)));
        } else if (args[0] == "status" && args.size() == 4 && args[2] == "next") {
          helper_->plannedStatusIs(static_cast<std::uint32_t>(parseInteger(args[1], 0, 255)),
                                   static_cast<std::uint32_t>(parseInteger(args[3], 1, 1000000)));
        } else if (args[0] == "mode" && args.size() == 2 && (args[1] == "direct" || args[1] == "deferred")) {
          if (sm_->updatingAcls()) throw CommandError("an ACL update is under way");
          helper_->deferredIs(args[1] == "deferred");
        } else if (args[0] == "ack-delay" && args.size() == 2) {
          helper_->table().ackDelayIs(parseSeconds(args[1]));
        } else if (args[0] == "subintf-sharing" && args.size() == 2 && (args[1] == "on" || args[1] == "off")) {
          helper_->subIntfSharingIs(args[1] == "on");
        } else {
          applyChipTableArgs(*chip_, SoftChip::SoftAclTable::tableName, args, usage);
        }
      });
}

void AclFeature::registerShowCommands() {
  shell_.commandIs("show errdisable", "[json]", "interfaces taken out of service, with their cause",
                   [this](const Args& given, std::ostream& out) {
                     Args args = given;
                     const bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 0, "show errdisable [json]");
                     const std::set<Nexo::IntfId> intfs(status_->errdisabledIntf().begin(),
                                                        status_->errdisabledIntf().end());
                     if (json) {
                       printJson(out, [&](JsonWriter& w) {
                         w.StartObject();
                         w.Key("interfaces");
                         w.StartObject();
                         for (const auto& intf : intfs) {
                           w.Key(intf.stringValue().c_str());
                           w.String("acl");
                         }
                         w.EndObject();
                         w.EndObject();
                       });
                       return;
                     }
                     for (const auto& intf : intfs) out << fmt::format("{:<16} acl\n", intf.stringValue());
                   });
  shell_.commandIs(
      "show access-lists", "[NAME] [json]", "lists with their rules, counters and status",
      [this](const Args& given, std::ostream& out) {
        Args args = given;
        const bool json = takeJsonFlag(args);
        expectArgs(args, 0, 1, "show access-lists [NAME] [json]");
        struct Row {
          std::uint32_t seq;
          std::uint32_t uniqueId;
          std::string text;
        };
        struct List {
          AclType type;
          std::string name;
          std::vector<Row> rows;
          std::map<std::string, std::string> status;                  // by direction [and interface]
          std::map<std::string, std::vector<std::string>> appliedOn;  // by direction, as configured
        };
        std::vector<List> lists;
        for (const auto& [type, typeConfig] : config_->aclTypeConfig()) {
          for (const auto& [name, acl] : typeConfig->acl()) {
            if (!args.empty() && args[0] != name) continue;
            List list{type, name, {}, {}, {}};
            if (auto intfConfig = config_->aclIntfTypeConfig(type)) {
              for (const auto& [intf, bindings] : intfConfig->intf()) {
                for (auto dir : {Acl::AclDirection::aclIn, Acl::AclDirection::aclOut}) {
                  if (bindings.aclName(dir) == name)
                    list.appliedOn[Acl::aclDirectionName(dir)].push_back(intf.stringValue());
                }
              }
            }
            for (const auto& [seq, rule] : acl->ipRuleBySequence())
              list.rows.push_back({seq, rule.uniqueId, aclRuleText(rule)});
            for (const auto& [seq, rule] : acl->ip6RuleBySequence())
              list.rows.push_back({seq, rule.uniqueId, aclRuleText(rule)});
            for (const auto& [seq, rule] : acl->macRuleBySequence())
              list.rows.push_back({seq, rule.uniqueId, aclRuleText(rule)});
            if (auto st = status_->aclStatus({type, name})) {
              // An unshared instance's status names its interface.
              for (const auto& [instanceKey, instance] : st->instanceStatus()) {
                std::string where = Acl::aclDirectionName(instanceKey.direction);
                if (!instanceKey.intf.empty()) where += fmt::format(" {}", instanceKey.intf.stringValue());
                list.status[where] = instance.statusText;
              }
            }
            lists.push_back(std::move(list));
          }
        }
        if (!args.empty() && lists.empty()) throw CommandError("no access-list " + args[0]);
        // Counters come from the lists' status; asking for an update
        // first reads what the chip counted since the last poll.
        for (const auto& list : lists) config_->aclTypeConfig(list.type)->acl(list.name)->counterUpdateRequestInc();
        loop_->runUntilIdle();
        auto hits = [&](const List& list, std::uint32_t seq) -> std::uint64_t {
          auto st = status_->aclStatus({list.type, list.name});
          return st ? st->ruleStatus(seq) : 0;
        };
        if (json) {
          printJson(out, [&](JsonWriter& w) {
            w.StartObject();
            w.Key("aclList");
            w.StartArray();
            for (const auto& list : lists) {
              w.StartObject();
              w.Key("name");
              w.String(list.name.c_str());
              w.Key("type");
              w.String(typeWord(list.type));
              w.Key("rules");
              w.StartArray();
              for (const auto& row : list.rows) {
                w.StartObject();
                w.Key("seq");
                w.Uint(row.seq);
                w.Key("text");
                w.String(row.text.c_str());
                w.Key("packets");
                w.Uint64(hits(list, row.seq));
                w.EndObject();
              }
              w.EndArray();
              w.Key("implicitDenyPackets");
              w.Uint64(hits(list, Acl::finalRuleSeq));
              w.Key("status");
              w.StartObject();
              for (const auto& [dir, text] : list.status) {
                w.Key(dir.c_str());
                w.String(text.c_str());
              }
              w.EndObject();
              w.Key("appliedOn");
              w.StartObject();
              for (const auto& [dir, intfs] : list.appliedOn) {
                w.Key(dir.c_str());
                w.StartArray();
                for (const auto& intf : intfs) w.String(intf.c_str());
                w.EndArray();
              }
              w.EndObject();
              w.EndObject();
            }
            w.EndArray();
            w.Key("errdisabled");
            w.StartArray();
            for (const auto& intf :
                 std::set<Nexo::IntfId>(status_->errdisabledIntf().begin(), status_->errdisabledIntf().end())) {
              w.String(intf.stringValue().c_str());
            }
            w.EndArray();
            w.EndObject();
          });
          return;
        }
        for (const auto& list : lists) {
          const char* title = list.type == Acl::ip() ? "IP" : list.type == Acl::ipv6() ? "IPV6" : "MAC";
          out << title << " Access List " << list.name << "\n";
          auto counted = [&](std::uint64_t n) { return n ? fmt::format(" [match {} packets]", n) : std::string(); };
          for (const auto& row : list.rows) {
            out << fmt::format("        {} {}{}\n", row.seq, row.text, counted(hits(list, row.seq)));
          }
          out << fmt::format("        implicit deny{}\n", counted(hits(list, Acl::finalRuleSeq)));
          for (const auto& [dir, intfs] : list.appliedOn)
            out << fmt::format("        applied {} on {}\n", dir, fmt::join(intfs, " "));
          for (const auto& [dir, text] : list.status) out << fmt::format("        status {}: {}\n", dir, text);
        }
        std::set<Nexo::IntfId> errdisabled(status_->errdisabledIntf().begin(), status_->errdisabledIntf().end());
        for (const auto& intf : errdisabled) out << "errdisabled (acl): " << intf.stringValue() << "\n";
      });
}

}  // namespace Agent
