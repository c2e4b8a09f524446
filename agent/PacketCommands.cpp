// `chip send`: a frame into the soft chip's forwarding model, and where it
// goes out, as a person reads it or as JSON.
#include "agent/CoreFeature.h"
#include "agent/IntfRange.h"
#include "agent/JsonOutput.h"
#include "chip/softchip/SoftForwarding.h"

#include <fmt/format.h>

namespace Agent {

namespace {

// " tagged V[ inner W][ by SUBINTF]" of a copy that carries tags.
std::string tagsText(const SoftChip::FrameEgress& egress) {
  std::string text = fmt::format(" tagged {}", egress.vlan);
  if (egress.innerVlan) text += fmt::format(" inner {}", egress.innerVlan);
  if (!egress.subIntf.empty()) text += " by " + egress.subIntf.stringValue();
  return text;
}

// "mirror s1 rx Ethernet1 to Ethernet7 (Port-Channel2) untagged"
std::string mirrorCopyText(const SoftChip::MirrorCopy& copy) {
  std::string text = fmt::format("mirror {} {} {} to {}", copy.session, copy.ingress ? "rx" : "tx",
                                 copy.source.stringValue(), copy.port.stringValue());
  if (!copy.lag.empty()) text += " (" + copy.lag.stringValue() + ")";
  if (copy.tunnelId) text += fmt::format(" gre tunnel {}{}", copy.tunnelId, copy.innerPacket ? " inner-packet" : "");
  text += copy.tagged ? fmt::format(" tagged {}", copy.vlan) : " untagged";
  return text;
}

void printResult(std::ostream& out, const SoftChip::ForwardResult& result) {
  if (!result.subIntf.empty()) out << "in by sub-interface " << result.subIntf.stringValue() << "\n";
  if (result.routed) {
    out << fmt::format("routed in vrf {} by fec {}{}\n", result.vrf, result.fec,
                       result.slot ? fmt::format(" slot {}", *result.slot) : "");
    for (const auto& egress : result.egress) {
      out << egress.port.stringValue();
      if (!egress.lag.empty()) out << " (" << egress.lag.stringValue() << ")";
      if (egress.tagged) out << tagsText(egress);
      out << fmt::format(" src {} dst {} ttl {}\n", egress.srcMac.stringValue(), egress.dstMac.stringValue(),
                         egress.ttl);
    }
  } else if (!result.egress.empty()) {
    out << fmt::format("vlan {} {} to {} port{}\n", result.vlan, result.flooded ? "flooded" : "forwarded",
                       result.egress.size(), result.egress.size() == 1 ? "" : "s");
  }
  for (const auto& egress : result.egress) {
    if (result.routed) break;
    out << egress.port.stringValue() << (egress.tagged ? tagsText(egress) : " untagged");
    if (!egress.lag.empty()) out << " (" << egress.lag.stringValue() << ")";
    out << "\n";
  }
  if (result.learned) out << "source learned\n";
  if (result.moved) out << "source moved\n";
  for (const auto& acl : result.acls) out << acl << "\n";
  for (const auto& copy : result.mirrors) out << mirrorCopyText(copy) << "\n";
  if (result.dropped()) out << "dropped: " << result.drop << "\n";
}

void resultJson(JsonWriter& w, const SoftChip::ForwardResult& result) {
  auto mirrors = [&w, &result] {
    w.Key("mirrors");
    w.StartArray();
    for (const auto& copy : result.mirrors) w.String(mirrorCopyText(copy).c_str());
    w.EndArray();
  };
  auto optionalString = [&w](const char* key, const std::string& value) {
    w.Key(key);
    if (value.empty()) {
      w.Null();
    } else {
      w.String(value.c_str());
    }
  };
  w.StartObject();
  w.Key("vlan");
  if (result.vlan) {
    w.Uint(result.vlan);
  } else {
    w.Null();
  }
  w.Key("flooded");
  w.Bool(result.flooded);
  w.Key("acls");
  w.StartArray();
  for (const auto& acl : result.acls) w.String(acl.c_str());
  w.EndArray();
  w.Key("egress");
  w.StartArray();
  for (const auto& egress : result.egress) {
    w.StartObject();
    w.Key("port");
    w.String(egress.port.stringValue().c_str());
    optionalString("lag", egress.lag.empty() ? "" : egress.lag.stringValue());
    w.Key("tagged");
    w.Bool(egress.tagged);
    w.Key("vlan");
    if (egress.tagged) {
      w.Uint(egress.vlan);
    } else {
      w.Null();
    }
    if (egress.innerVlan) {
      w.Key("innerVlan");
      w.Uint(egress.innerVlan);
    }
    if (!egress.subIntf.empty()) optionalString("subIntf", egress.subIntf.stringValue());
    if (result.routed) {
      w.Key("srcMac");
      w.String(egress.srcMac.stringValue().c_str());
      w.Key("dstMac");
      w.String(egress.dstMac.stringValue().c_str());
      w.Key("ttl");
      w.Uint(egress.ttl);
    }
    w.EndObject();
  }
  w.EndArray();
  if (!result.subIntf.empty()) optionalString("subIntf", result.subIntf.stringValue());
  w.Key("routed");
  w.Bool(result.routed);
  if (result.routed || result.fec) {
    w.Key("vrf");
    w.Uint(result.vrf);
    w.Key("fec");
    w.Uint64(result.fec);
    w.Key("slot");
    if (result.slot) {
      w.Uint(*result.slot);
    } else {
      w.Null();
    }
  }
  w.Key("learned");
  w.Bool(result.learned);
  w.Key("moved");
  w.Bool(result.moved);
  optionalString("drop", result.drop);
  if (!result.mirrors.empty()) mirrors();
  w.EndObject();
}

}  // namespace

void CoreFeature::registerPacketCommands() {
  shell_.commandIs(
      "chip send", "INTF FRAME [json]",
      "a frame into the chip on a port; prints each port it leaves by (and its tag), what was learned, or why "
      "it was dropped. FRAME: src MAC dst MAC [vlan V [pri P]] [type 0xNNNN] [ip SRC DST [ttl N] [tcp|udp SPORT "
      "DPORT [flags F,..]] [fragment]]",
      [this](Args args, std::ostream& out) {
        const std::string usage =
            "chip send INTF src MAC dst MAC [vlan V [pri P]] [type 0xNNNN] "
            "[ip SRC DST [ttl N] [tcp|udp SPORT DPORT [flags F,..]] [fragment]] [json]";
        bool json = takeJsonFlag(args);
        if (args.size() < 2) throw CommandError("usage: " + usage);
        auto ports = parseIntfRange(args[0]);
        if (ports.size() != 1) throw CommandError("one interface, not a range: '" + args[0] + "'");
        std::string text;
        for (std::size_t i = 1; i < args.size(); ++i) text += (i > 1 ? " " : "") + args[i];
        SoftChip::Frame frame;
        try {
          frame = SoftChip::frameFromText(text);
        } catch (const SoftChip::FrameSyntaxError& e) {
          throw CommandError(e.what());
        }
        auto result = SoftChip::forwardFrame(*chip_, ports.front(), frame);
        if (json) {
          printJson(out, [&](JsonWriter& w) { resultJson(w, result); });
        } else {
          printResult(out, result);
        }
      });
}

}  // namespace Agent
