// Mirroring commands:
//
//   monitor session NAME source INTFS [rx|tx|both] [acl NAME]
//   monitor session NAME destination INTF
//   monitor session NAME truncation BYTES | header remove BYTES | sample RATE | rate-limit BPS
//   monitor session NAME gre payload full-packet|inner-packet
//   no monitor session NAME [source INTFS | destination INTF | truncation | header remove | sample | rate-limit |
//                            gre payload]
//   mirror tunnel TUNNEL id N via L3INTF L2INTF [via ...]   (a resolved GRE tunnel)
//   no mirror tunnel TUNNEL
//   show monitor session [NAME] [json]
//   chip mirror capacity N | sources rx N tx N | acl-entries N | cut-through on|off | busy|full|fail next N
//   mirroring restart [keep-leftovers] | mirroring stop | mirroring start [keep-leftovers]
//
// A source's direction defaults to both. Each line is checked whole before
// anything is written.
#include "agent/ChipTableArgs.h"
#include "agent/IntfRange.h"
#include "agent/JsonOutput.h"
#include "agent/MirrorFeature.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace Agent {

namespace {

std::vector<Nexo::IntfId> intfsArg(const std::string& text) {
  try {
    return parseIntfRange(text);
  } catch (const CommandError&) {
    throw;
  } catch (const std::exception& e) {
    throw CommandError(e.what());
  }
}

Nexo::IntfId oneIntfArg(const std::string& text) {
  auto intfs = intfsArg(text);
  if (intfs.size() != 1) throw CommandError("one interface, not a range: '" + text + "'");
  return intfs.front();
}

void checkSessionName(const std::string& name) {
  if (name.empty() || name.size() > 100) throw CommandError("a session name is 1 to 100 characters");
}

// The attributes that are on ("  attributes: truncation 128 bytes, sample 1
// in 100") and those the chip refused, a line each; nothing when neither.
std::string attributesText(const Mirroring::Session& session, const Mirroring::SessionStatus& status) {
  std::vector<std::string> parts;
  if (session.truncationSize()) parts.push_back(fmt::format("truncation {} bytes", session.truncationSize()));
  if (session.headerRemovalSize()) parts.push_back(fmt::format("header remove {} bytes", session.headerRemovalSize()));
  if (session.rxSampleRate()) parts.push_back(fmt::format("sample 1 in {}", session.rxSampleRate()));
  if (session.rateLimit()) parts.push_back(fmt::format("rate-limit {} bps", session.rateLimit()));
  if (session.grePayloadType() != Mirroring::GrePayloadType::grePayloadFullPacket)
    parts.push_back(fmt::format("gre payload {}", Mirroring::grePayloadTypeName(session.grePayloadType())));
  std::string text;
  if (!parts.empty()) text += fmt::format("  attributes: {}\n", fmt::join(parts, ", "));
  if (!status.attributesRefused.empty())
    text += fmt::format("  refused by hardware: {}\n", fmt::join(status.attributesRefused, ", "));
  return text;
}

void attributesJson(JsonWriter& w, const Mirroring::Session& session, const Mirroring::SessionStatus& status) {
  w.Key("truncationSize");
  w.Uint(session.truncationSize());
  w.Key("headerRemovalSize");
  w.Uint(session.headerRemovalSize());
  w.Key("rxSampleRate");
  w.Uint(session.rxSampleRate());
  w.Key("rateLimit");
  w.Uint64(session.rateLimit());
  w.Key("grePayload");
  w.String(Mirroring::grePayloadTypeName(session.grePayloadType()));
  w.Key("attributesRefused");
  w.StartArray();
  for (const auto& attribute : status.attributesRefused) w.String(attribute.c_str());
  w.EndArray();
}

const char* sourceUsage = "monitor session NAME source INTFS [rx|tx|both] [acl NAME]";

}  // namespace

void MirrorFeature::sourceIs(const std::string& name, const Args& args, bool remove) {
  // args: the words after "source".
  if (args.empty()) throw CommandError(std::string("usage: ") + sourceUsage);
  const auto intfs = intfsArg(args[0]);
  for (const auto& intf : intfs) {
    if (!intf.isEthernet() && !intf.isLag())
      throw CommandError("a mirror source is a port or a port-channel, not " + intf.stringValue());
  }
  auto config = inputs_.mirroringConfig;
  if (remove) {
    expectArgs(args, 1, 1, "no monitor session NAME source INTFS");
    auto session = config->session(name);
    if (!session) throw CommandError("no monitor session " + name);
    for (const auto& intf : intfs) session->srcIntfDel(intf);
    return;
  }
  Mirroring::SourceConfig source;
  std::size_t at = 1;
  if (at < args.size() && (args[at] == "rx" || args[at] == "tx" || args[at] == "both")) {
    source.direction = args[at] == "rx"   ? Mirroring::Direction::directionRx
                       : args[at] == "tx" ? Mirroring::Direction::directionTx
                                          : Mirroring::Direction::directionBoth;
    ++at;
  }
  if (at < args.size()) {
    if (args[at] != "acl" || at + 2 != args.size()) throw CommandError(std::string("usage: ") + sourceUsage);
    source.aclName = args[at + 1];
    if (source.aclName.size() > 100) throw CommandError("an ACL name is 1 to 100 characters");
  }
  auto session = config->sessionIs(name);
  for (const auto& intf : intfs) session->srcIntfIs(intf, source);
}

void MirrorFeature::destinationIs(const std::string& name, const Args& args, bool remove) {
  expectArgs(args, 1, 1, std::string(remove ? "no " : "") + "monitor session NAME destination INTF");
  const Nexo::IntfId intf = oneIntfArg(args[0]);
  if (!intf.isEthernet() && !intf.isLag() && intf.kind() != Nexo::IntfId::Kind::tunnel && !intf.isCpu()) {
    throw CommandError("a mirror destination is a port, a port-channel, a tunnel or the CPU, not " +
                       intf.stringValue());
  }
  if (remove) {
    auto session = inputs_.mirroringConfig->session(name);
    if (!session) throw CommandError("no monitor session " + name);
    session->targetIntfDel(intf);
    return;
  }
  inputs_.mirroringConfig->sessionIs(name)->targetIntfIs(intf, true);
}

void MirrorFeature::attributeIs(const std::string& name, const Args& args, bool remove) {
  // args: the attribute's words, then its value unless removed.
  const std::string usage = std::string(remove ? "no " : "") + "monitor session NAME " +
                            (remove ? "truncation | header remove | sample | rate-limit | gre payload"
                                    : "truncation BYTES | header remove BYTES | sample RATE | rate-limit BPS | "
                                      "gre payload full-packet|inner-packet");
  const bool header = !args.empty() && args[0] == "header";
  const bool gre = !args.empty() && args[0] == "gre";
  if (header && (args.size() < 2 || args[1] != "remove")) throw CommandError("usage: " + usage);
  if (gre && (args.size() < 2 || args[1] != "payload")) throw CommandError("usage: " + usage);
  const std::size_t words = header || gre ? 2 : 1;
  if (args.size() != words + (remove ? 0 : 1)) throw CommandError("usage: " + usage);
  // Checked whole first: a bad value writes nothing.
  std::uint64_t value = 0;
  const std::string& which = args[0];
  if (!remove) {
    const std::string& text = args[words];
    if (which == "truncation") {
      value = static_cast<std::uint64_t>(parseInteger(text, 64, 9216));
    } else if (header) {
      value = static_cast<std::uint64_t>(parseInteger(text, 1, 128));
    } else if (which == "sample") {
      value = static_cast<std::uint64_t>(parseInteger(text, 1, 16777215));
    } else if (which == "rate-limit") {
      value = static_cast<std::uint64_t>(parseInteger(text, 1, 400000000000L));
    } else if (gre) {
      if (text != "full-packet" && text != "inner-packet")
        throw CommandError("a GRE payload is full-packet or inner-packet, not " + text);
      value = text == "inner-packet";
    }
  }
  if (which != "truncation" && !header && which != "sample" && which != "rate-limit" && !gre)
    throw CommandError("usage: " + usage);
  auto session = remove ? inputs_.mirroringConfig->session(name) : inputs_.mirroringConfig->sessionIs(name);
  if (!session) throw CommandError("no monitor session " + name);
  if (which == "truncation") {
    session->truncationSizeIs(static_cast<std::uint32_t>(value));
  } else if (header) {
    session->headerRemovalSizeIs(static_cast<std::uint32_t>(value));
  } else if (which == "sample") {
    session->rxSampleRateIs(static_cast<std::uint32_t>(value));
  } else if (gre) {
    session->grePayloadTypeIs(value ? Mirroring::GrePayloadType::grePayloadInnerPacket
                                    : Mirroring::GrePayloadType::grePayloadFullPacket);
  } else {
    session->rateLimitIs(value);
  }
}

void MirrorFeature::tunnelIs(const Args& args) {
  const std::string usage = "mirror tunnel TUNNEL id N via L3INTF L2INTF [via L3INTF L2INTF]...";
  if (args.size() < 3 || args[1] != "id") throw CommandError("usage: " + usage);
  const Nexo::IntfId tunnel = oneIntfArg(args[0]);
  if (tunnel.kind() != Nexo::IntfId::Kind::tunnel) throw CommandError("not a tunnel: " + args[0]);
  Mirroring::GreTunnelStatus status;
  status.tunnelId = static_cast<std::uint32_t>(parseInteger(args[2], 1, 4294967295L));
  for (std::size_t at = 3; at < args.size(); at += 3) {
    if (args[at] != "via" || at + 2 >= args.size()) throw CommandError("usage: " + usage);
    Mirroring::GreNextHop nextHop{oneIntfArg(args[at + 1]), oneIntfArg(args[at + 2])};
    if (!nextHop.l2Intf.isEthernet() && !nextHop.l2Intf.isLag())
      throw CommandError("a next hop leaves by a port or a port-channel, not " + nextHop.l2Intf.stringValue());
    status.nextHops.push_back(nextHop);
  }
  if (status.nextHops.empty()) throw CommandError("usage: " + usage);
  inputs_.greTunnelStatusDir->tunnelIs(tunnel, status);
}

void MirrorFeature::registerConfigCommands() {
  auto monitor = [this](const Args& args, bool remove) {
    const std::string usage =
        std::string(remove ? "no " : "") + "monitor session NAME " +
        (remove ? "[source INTFS | destination INTF | truncation | header remove | sample | rate-limit | gre payload]"
                : "source|destination|truncation|header remove|sample|rate-limit|gre payload ...");
    if (args.size() < (remove ? 1u : 2u)) throw CommandError("usage: " + usage);
    const std::string& name = args[0];
    checkSessionName(name);
    if (remove && args.size() == 1) {
      if (!inputs_.mirroringConfig->sessionHas(name)) throw CommandError("no monitor session " + name);
      inputs_.mirroringConfig->sessionDel(name);
      return;
    }
    const Args rest(args.begin() + 2, args.end());
    if (args[1] == "source") {
      sourceIs(name, rest, remove);
    } else if (args[1] == "destination") {
      destinationIs(name, rest, remove);
    } else if (args[1] == "truncation" || args[1] == "header" || args[1] == "sample" || args[1] == "rate-limit" ||
               args[1] == "gre") {
      attributeIs(name, Args(args.begin() + 1, args.end()), remove);
    } else {
      throw CommandError("usage: " + usage);
    }
  };
  shell_.commandIs("monitor session",
                   "NAME source INTFS [rx|tx|both] [acl NAME] | NAME destination INTF | NAME truncation BYTES | "
                   "NAME header remove BYTES | NAME sample RATE | NAME rate-limit BPS | "
                   "NAME gre payload full-packet|inner-packet",
                   "a mirror session's sources (with direction and ACL filter), destinations and attributes: copies "
                   "cut to BYTES (64-9216), BYTES (1-128) taken off their front, one received frame in RATE "
                   "copied, copies limited to BPS bits per second, what a GRE destination carries of each copy",
                   [monitor](const Args& args, std::ostream&) { monitor(args, false); });
  shell_.commandIs("no monitor session",
                   "NAME [source INTFS | destination INTF | truncation | header remove | sample | rate-limit | "
                   "gre payload]",
                   "remove a mirror session, one of its sources or destinations, or switch an attribute off",
                   [monitor](const Args& args, std::ostream&) { monitor(args, true); });
  shell_.commandIs("mirror tunnel", "TUNNEL id N via L3INTF L2INTF [via L3INTF L2INTF]...",
                   "a GRE tunnel resolved: its id and next hops (what the tunnel resolution would publish)",
                   [this](const Args& args, std::ostream&) { tunnelIs(args); });
  shell_.commandIs("no mirror tunnel", "TUNNEL", "the GRE tunnel no longer resolves",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "no mirror tunnel TUNNEL");
                     inputs_.greTunnelStatusDir->tunnelDel(oneIntfArg(args[0]));
                   });
  shell_.commandIs(
      "chip mirror", "capacity N | sources rx N tx N | acl-entries N | cut-through on|off | busy|full|fail next N",
      "the soft chip's mirror sessions: sessions, source slots per direction, source ACL entries, forwarding mode, "
      "planned faults",
      [this](const Args& args, std::ostream&) {
        const std::string usage =
            "chip mirror capacity N | sources rx N tx N | acl-entries N | cut-through on|off | busy|full|fail next N";
        if (args.size() == 5 && args[0] == "sources" && args[1] == "rx" && args[3] == "tx") {
          helper_->table().sourceSlotsIs(static_cast<std::uint32_t>(parseInteger(args[2], 0, 100000)),
                                         static_cast<std::uint32_t>(parseInteger(args[4], 0, 100000)));
        } else if (args.size() == 2 && args[0] == "acl-entries") {
          helper_->table().aclEntriesIs(static_cast<std::size_t>(parseInteger(args[1], 0, 1000000)));
        } else if (args.size() == 2 && args[0] == "cut-through" && (args[1] == "on" || args[1] == "off")) {
          inputs_.hwCapability->cutThroughModeIs(args[1] == "on");
        } else {
          applyChipTableArgs(*chip_, SoftChip::SoftMirrorTable::tableName, args, usage);
        }
      });
  shell_.commandIs("mirroring restart", "[keep-leftovers]",
                   "the mirroring machine goes and comes back (the chip keeps its sessions) and reconciles",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 0, 1, "mirroring restart [keep-leftovers]");
                     if (args.size() == 1 && args[0] != "keep-leftovers")
                       throw CommandError("usage: mirroring restart [keep-leftovers]");
                     restart(args.size() == 1);
                   });
  shell_.commandIs("mirroring stop", "", "the mirroring machine goes (the chip keeps its sessions)",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 0, 0, "mirroring stop");
                     stop();
                   });
  shell_.commandIs("mirroring start", "[keep-leftovers]",
                   "the mirroring machine starts and reconciles with what the chip holds",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 0, 1, "mirroring start [keep-leftovers]");
                     if (args.size() == 1 && args[0] != "keep-leftovers")
                       throw CommandError("usage: mirroring start [keep-leftovers]");
                     if (sm_) throw CommandError("mirroring runs already");
                     start(args.size() == 1);
                   });
}

void MirrorFeature::registerShowCommands() {
  shell_.commandIs("show monitor session", "[NAME] [json]", "mirror sessions: group, state, sources and destinations",
                   [this](const Args& given, std::ostream& out) {
                     Args args = given;
                     const bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 1, "show monitor session [NAME] [json]");
                     const auto& config = *inputs_.mirroringConfig;
                     const auto& status = *inputs_.mirroringStatus;
                     std::vector<std::string> names;
                     for (const auto& [name, session] : config.session()) {
                       if (args.empty() || args[0] == name) names.push_back(name);
                     }
                     if (!args.empty() && names.empty()) throw CommandError("no monitor session " + args[0]);
                     auto sourceText = [&](const std::string& name, const Nexo::IntfId& intf) {
                       const auto& source = config.session(name)->srcIntf(intf);
                       std::string text = Mirroring::directionName(source.direction);
                       if (!source.aclName.empty()) text += " acl " + source.aclName;
                       return text;
                     };
                     auto targetPorts = [&](const std::string& name, const Nexo::IntfId& intf) {
                       std::vector<Nexo::IntfId> ports;
                       auto* session = sm_ ? sm_->session(name) : nullptr;
                       if (!session) return ports;
                       auto it = session->targetIntf().find(intf);
                       if (it == session->targetIntf().end()) return ports;
                       ports.assign(it->second->programmedPorts().begin(), it->second->programmedPorts().end());
                       return ports;
                     };
                     if (json) {
                       printJson(out, [&](JsonWriter& w) {
                         w.StartObject();
                         w.Key("sessions");
                         w.StartObject();
                         for (const auto& name : names) {
                           const auto& st = status.sessionStatus(name);
                           w.Key(name.c_str());
                           w.StartObject();
                           w.Key("mirrorGroup");
                           if (st.mirrorGroup >= 0) {
                             w.Int(st.mirrorGroup);
                           } else {
                             w.Null();
                           }
                           w.Key("createdInHw");
                           w.Bool(st.createdInHw);
                           w.Key("reason");
                           w.String(st.reason.c_str());
                           attributesJson(w, *config.session(name), st);
                           w.Key("sources");
                           w.StartObject();
                           for (const auto& [intf, source] : config.session(name)->srcIntf()) {
                             w.Key(intf.stringValue().c_str());
                             w.StartObject();
                             w.Key("direction");
                             w.String(Mirroring::directionName(source.direction));
                             w.Key("acl");
                             w.String(source.aclName.c_str());
                             w.Key("state");
                             auto it = st.sources.find(intf);
                             w.String(it == st.sources.end() ? "inactive" : it->second.c_str());
                             w.EndObject();
                           }
                           w.EndObject();
                           w.Key("destinations");
                           w.StartObject();
                           for (const auto& [intf, present] : config.session(name)->targetIntf()) {
                             w.Key(intf.stringValue().c_str());
                             w.StartObject();
                             w.Key("state");
                             auto it = st.targets.find(intf);
                             w.String(it == st.targets.end() ? "inactive" : it->second.c_str());
                             SoftChip::dumpIntfs(w, "ports", targetPorts(name, intf));
                             w.EndObject();
                           }
                           w.EndObject();
                           w.EndObject();
                         }
                         w.EndObject();
                         w.Key("sourcesOverflowed");
                         w.Uint(status.sourcesOverflowed());
                         w.EndObject();
                       });
                       return;
                     }
                     for (const auto& name : names) {
                       const auto& st = status.sessionStatus(name);
                       out << "Session " << name << "\n";
                       out << "  mirror group: " << (st.mirrorGroup >= 0 ? std::to_string(st.mirrorGroup) : "none")
                           << (st.createdInHw ? " (programmed)" : fmt::format(" (not programmed: {})", st.reason))
                           << "\n";
                       out << attributesText(*config.session(name), st);
                       out << "  sources:\n";
                       for (const auto& [intf, source] : config.session(name)->srcIntf()) {
                         auto it = st.sources.find(intf);
                         out << fmt::format("    {} {} {}\n", intf.stringValue(), sourceText(name, intf),
                                            it == st.sources.end() ? "inactive" : it->second);
                       }
                       out << "  destinations:\n";
                       for (const auto& [intf, present] : config.session(name)->targetIntf()) {
                         auto it = st.targets.find(intf);
                         std::string ports;
                         if (intf.isLag()) {
                           for (const auto& port : targetPorts(name, intf))
                             ports += fmt::format(" {}", port.stringValue());
                           ports = fmt::format(" (ports:{})", ports.empty() ? std::string(" none") : ports);
                         }
                         out << fmt::format("    {} {}{}\n", intf.stringValue(),
                                            it == st.targets.end() ? "inactive" : it->second, ports);
                       }
                     }
                     if (status.sourcesOverflowed())
                       out << "Sources overflowed: " << status.sourcesOverflowed() << "\n";
                   });
}

}  // namespace Agent
