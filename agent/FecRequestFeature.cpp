#include "agent/FecRequestFeature.h"

#include "agent/ChipTableArgs.h"
#include "agent/JsonOutput.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <thread>

namespace Agent {

using Orb::FecRequestSource;
using Pond::Fib::FecId;
using Role = Pond::TableControl::Role;

namespace {

// Rows a requester's tables hold. FEC rows are large (14 KB, 21 KB), so
// their tables are smaller than the request table.
constexpr std::size_t requestCapacity = 65536;
constexpr std::size_t fecRowCapacity = 1024;
// The longest `fec-request wait`, in seconds.
constexpr double maxWait = 600;

// The vias of a requested FEC: one family, each by a front-panel port.
template <class FecRow>
FecRow fecRow(FecId id, const std::vector<std::array<std::string, 3>>& vias) {
  if (vias.size() > Pond::Fib::maxVias)
    throw CommandError(fmt::format("a FEC has at most {} vias", Pond::Fib::maxVias));
  FecRow fec;
  fec.key = id;
  for (const auto& [addr, intfText, weight] : vias) {
    Nexo::IntfId intf;
    try {
      intf = Nexo::IntfId(intfText);
    } catch (const std::exception&) {
      throw CommandError("not an interface: " + intfText);
    }
    if (!intf.isEthernet() || intf.isSubIntf())
      throw CommandError("a requested FEC's via leaves by a front-panel port (EthernetN), not " + intfText);
    auto& via = fec.via[fec.viaCount++];
    via.intfNumber = intf.number();
    via.weight = static_cast<std::uint32_t>(parseInteger(weight, 1, 65535));
    try {
      if constexpr (std::is_same_v<FecRow, Pond::Fib6::Fec>) {
        auto bytes = Nexo::Ip6Addr(addr).bytes();
        std::copy(bytes.begin(), bytes.end(), via.hop);
      } else {
        via.hop = Nexo::IpAddr(addr).value();
      }
    } catch (const std::exception&) {
      throw CommandError("not an address of the FEC's family: " + addr);
    }
  }
  return fec;
}

}  // namespace

std::string processPondPrefix() {
  static unsigned agents = 0;
  return agents++ == 0 ? fmt::format("orb-{}-", ::getpid()) : fmt::format("orb-{}-{}-", ::getpid(), agents);
}

std::string fecRequestSourceWord(FecRequestSource source) {
  std::string name = Vex::valueToStrep(source).substr(std::string("fecRequest").size());
  std::string word;
  for (char c : name) {
    if (std::isupper(static_cast<unsigned char>(c))) {
      if (!word.empty()) word += '-';
      word += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    } else {
      word += c;
    }
  }
  return word;
}

FecRequestSource fecRequestSourceArg(const std::string& text) {
  std::string words;
  for (auto source : Orb::allFecRequestSources()) {
    if (fecRequestSourceWord(source) == text) return source;
    words += (words.empty() ? "" : ", ") + fecRequestSourceWord(source);
  }
  throw CommandError("not a FEC request source: '" + text + "' (one of " + words + ")");
}

FecRequestFeature::FecRequestFeature(const AgentCore& core)
    : Feature(core),
      prefix_(options_.pondPrefix),
      all_(Vex::make<Orb::AllFecIdToHwFecIdRequestResponse>("allFecIdToHwFecIdRequestResponse")) {
  if (!options_.externalFecAllocator) allocator_ = Vex::make<SoftChip::SoftFecAllocator>(chip_, prefix_);
}

Orb::FecIdToHwFecIdRequest& FecRequestFeature::requester(FecRequestSource source) {
  if (const auto& held = all_->requestCollection(source)) return *held;
  std::string name = Vex::valueToStrep(source);
  auto requests = Orb::fecIdToHwFecIdRequestFactory(name);
  requests->controlIs(Orb::fecRequestPrefix(prefix_, source, false), Role::writer, requestCapacity, fecRowCapacity);
  // This requester restores no requests when it starts: the allocator need
  // hold no hardware FECs for it.
  requests->syncRequestsReadyIs(Orb::SyncRequestsReady{Orb::ReadyBool(true)});
  all_->requestCollectionIs(source, requests);
  // The allocator makes the answer tables; this side reads them.
  if (allocator_) allocator_->serve(source);
  auto responses = Orb::fecIdToHwFecIdResponseFactory(name);
  responses->controlIs(Orb::fecRequestPrefix(prefix_, source, true), Role::reader);
  all_->responseCollectionIs(source, responses);
  return *requests;
}

Orb::PwEncapFecRequester& FecRequestFeature::pwRequester() {
  if (!pwRequester_) {
    auto source = FecRequestSource::fecRequestPwLocal;
    requester(source);
    pwRequester_ =
        std::make_unique<Orb::PwEncapFecRequester>(all_->requestCollection(source), all_->responseCollection(source));
  }
  return *pwRequester_;
}

void FecRequestFeature::pwGroupIs(const Args& args) {
  const std::string usage = "pseudowire adjacency-group G via ADDR PORT [via ADDR PORT]...";
  if (args.size() < 4 || (args.size() - 1) % 3 != 0) throw CommandError("usage: " + usage);
  Orb::PwAdjGroupId group(static_cast<std::uint32_t>(parseInteger(args[0], 1, 0xffffffffL)));
  std::vector<std::array<std::string, 3>> vias;
  for (std::size_t i = 1; i < args.size(); i += 3) {
    if (args[i] != "via") throw CommandError("usage: " + usage);
    if (args[i + 1].find(':') != std::string::npos)
      throw CommandError("a pseudowire's encapsulation goes over IPv4 next hops, not " + args[i + 1]);
    vias.push_back({args[i + 1], args[i + 2], "1"});
  }
  auto encap = Orb::EncapFecId::forGroup(group);
  auto fec = fecRow<Pond::Fib::Fec>(encap.fecId(), vias);
  auto& requester = pwRequester();
  // A group's encapsulation changed is withdrawn and requested again.
  if (pwGroups_.contains(group)) requester.deleteRequest(group, encap);
  pwGroups_.erase(group);
  if (!requester.addRequest(group, encap, fec, ++lastRequestId_))
    throw CommandError("the request tables of pw-local are full");
  pwGroups_.emplace(group, encap);
}

void FecRequestFeature::pwGroupDel(const Args& args) {
  expectArgs(args, 1, 1, "no pseudowire adjacency-group G");
  Orb::PwAdjGroupId group(static_cast<std::uint32_t>(parseInteger(args[0], 1, 0xffffffffL)));
  auto it = pwGroups_.find(group);
  if (it == pwGroups_.end()) throw CommandError("no pseudowire adjacency-group " + args[0]);
  pwRequester().deleteRequest(group, it->second);
  pwGroups_.erase(it);
}

void FecRequestFeature::showPwGroups(Args args, std::ostream& out) const {
  bool json = takeJsonFlag(args);
  expectArgs(args, 0, 0, "show pseudowire adjacency-groups [json]");
  if (json) {
    printJson(out, [&](JsonWriter& w) {
      w.StartArray();
      for (const auto& [group, encap] : pwGroups_) {
        w.StartObject();
        w.Key("group");
        w.Uint(group.value());
        w.Key("encapFecId");
        w.Uint64(encap.fecId().value());
        w.Key("hwFecId");
        w.Uint64(pwRequester_->hwFecId(encap).value());
        w.EndObject();
      }
      w.EndArray();
    });
    return;
  }
  out << fmt::format("{:>8} {:>16} {:>8}\n", "group", "encap fec", "hw fec");
  for (const auto& [group, encap] : pwGroups_) {
    auto hw = pwRequester_->hwFecId(encap).value();
    out << fmt::format("{:>8} {:>16} {:>8}\n", group.value(), encap.fecId().value(),
                       hw ? std::to_string(hw) : "waiting");
  }
}

void FecRequestFeature::requestIs(const Args& args) {
  const std::string usage = "fec-request SOURCE ID [via ADDR PORT [weight W]]... [sw-only] [adj-state]";
  if (args.size() < 2) throw CommandError("usage: " + usage);
  auto source = fecRequestSourceArg(args[0]);
  FecId id(static_cast<std::uint64_t>(parseInteger(args[1], 1, std::numeric_limits<long>::max())));
  Orb::HwFecIdRequest request;
  request.key = id;
  std::vector<std::array<std::string, 3>> vias;
  for (std::size_t i = 2; i < args.size(); ++i) {
    if (args[i] == "sw-only") {
      request.requestType = Orb::FecRequestType::swOnlyFec;
    } else if (args[i] == "adj-state") {
      request.requestAdjState = true;
    } else if (args[i] == "via" && i + 2 < args.size()) {
      std::array<std::string, 3> via{args[i + 1], args[i + 2], "1"};
      i += 2;
      if (i + 2 < args.size() && args[i + 1] == "weight") {
        via[2] = args[i + 2];
        i += 2;
      }
      vias.push_back(via);
    } else {
      throw CommandError("usage: " + usage);
    }
  }
  bool six = !vias.empty() && vias.front()[0].find(':') != std::string::npos;
  for (const auto& via : vias) {
    if ((via[0].find(':') != std::string::npos) != six)
      throw CommandError("a requested FEC's vias are all IPv4 or all IPv6");
  }
  auto& requests = requester(source);
  request.requestId = ++lastRequestId_;
  // A FEC of the other family than before goes first: one row per FEC id.
  bool stored;
  if (six) {
    requests.fecDel(id);
    stored = Orb::addFecRequest(requests, fecRow<Pond::Fib6::Fec>(id, vias), request);
  } else {
    requests.fec6Del(id);
    stored = Orb::addFecRequest(requests, fecRow<Pond::Fib::Fec>(id, vias), request);
  }
  if (!stored) throw CommandError("the request tables of " + args[0] + " are full");
}

void FecRequestFeature::requestDel(const Args& args) {
  expectArgs(args, 2, 2, "no fec-request SOURCE ID");
  auto source = fecRequestSourceArg(args[0]);
  FecId id(static_cast<std::uint64_t>(parseInteger(args[1], 1, std::numeric_limits<long>::max())));
  const auto& requests = all_->requestCollection(source);
  if (!requests || !requests->hwFecIdRequestHas(id)) throw CommandError("no fec-request " + args[0] + " " + args[1]);
  if (requests->fec6Has(id))
    Orb::withdrawFecRequest6(*requests, id);
  else
    Orb::withdrawFecRequest(*requests, id);
}

std::size_t FecRequestFeature::unanswered() const {
  std::size_t count = 0;
  for (const auto& [source, requests] : all_->requestCollection()) {
    const auto& responses = all_->responseCollection(source);
    requests->hwFecIdRequestTable().forEach([&](const Orb::HwFecIdRequest& request) {
      auto answer = responses ? responses->hwFecIdFind(request.key) : std::nullopt;
      if (!answer || answer->requestId.get() != request.requestId) ++count;
    });
  }
  return count;
}

void FecRequestFeature::waitForAnswers(const Args& args) {
  expectArgs(args, 0, 1, "fec-request wait [SECONDS]");
  double seconds = args.empty() ? 10.0 : parseSeconds(args[0]);
  if (seconds > maxWait) throw CommandError(fmt::format("fec-request wait waits at most {} s", maxWait));
  loop_->runUntilIdle();
  // This process's allocator has answered all it can by now; what is left
  // waits for the chip's next try, which comes with time (`advance`).
  if (allocator_) {
    if (std::size_t waiting = unanswered())
      throw CommandError(fmt::format("{} FEC request(s) wait for the chip's next try", waiting));
    return;
  }
  // The allocator is another process: this waits on the wall clock,
  // whatever time the loop runs on.
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  for (std::size_t waiting = unanswered(); waiting; waiting = unanswered()) {
    if (std::chrono::steady_clock::now() >= deadline)
      throw CommandError(fmt::format("{} FEC request(s) still unanswered after {} s", waiting, seconds));
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    loop_->runUntilIdle();
  }
}

void FecRequestFeature::show(Args args, std::ostream& out) const {
  bool json = takeJsonFlag(args);
  expectArgs(args, 0, 1, "show fec-requests [SOURCE] [json]");
  std::optional<FecRequestSource> only;
  if (!args.empty()) only = fecRequestSourceArg(args[0]);
  struct Line {
    FecRequestSource source;
    Orb::HwFecIdRequest request;
    std::optional<Orb::FecToHwFecId> answer;
    Nexo::IntfId l2Intf;
  };
  std::vector<Line> lines;
  for (const auto& [source, requests] : all_->requestCollection()) {
    if (only && source != *only) continue;
    const auto& responses = all_->responseCollection(source);
    std::vector<Orb::HwFecIdRequest> rows;
    requests->hwFecIdRequestTable().forEach([&](const Orb::HwFecIdRequest& request) { rows.push_back(request); });
    std::sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.key < b.key; });
    for (const auto& request : rows) {
      Line line{source, request, std::nullopt, {}};
      if (responses) {
        line.answer = responses->hwFecIdFind(request.key);
        line.l2Intf = responses->l2IntfId(request.key).l2IntfId;
      }
      lines.push_back(line);
    }
  }
  auto answered = [](const Line& line) {
    return line.answer && line.answer->requestId.get() == line.request.requestId;
  };
  if (json) {
    printJson(out, [&](JsonWriter& w) {
      w.StartArray();
      for (const auto& line : lines) {
        w.StartObject();
        w.Key("source");
        w.String(fecRequestSourceWord(line.source).c_str());
        w.Key("fec");
        w.Uint64(line.request.key.value());
        w.Key("requestId");
        w.Double(line.request.requestId);
        w.Key("swOnly");
        w.Bool(line.request.isSwOnlyFec());
        w.Key("answered");
        w.Bool(answered(line));
        if (line.answer) {
          w.Key("hwFecId");
          w.Uint64(line.answer->hwId.get().value());
          w.Key("adjState");
          w.String(Vex::valueToStrep(line.answer->adjState).c_str());
        }
        if (!line.l2Intf.empty()) {
          w.Key("l2Intf");
          w.String(line.l2Intf.stringValue().c_str());
        }
        w.EndObject();
      }
      w.EndArray();
    });
    return;
  }
  out << fmt::format("{:<20} {:>8} {:>8} {:<7} {:>7} {:<30} {}\n", "source", "fec", "request", "type", "hw fec",
                     "adjacency", "l2 interface");
  for (const auto& line : lines) {
    std::string hw = "waiting", adj = "-";
    if (answered(line)) {
      hw = std::to_string(line.answer->hwId.get().value());
      adj = Vex::valueToStrep(line.answer->adjState);
    }
    out << fmt::format("{:<20} {:>8} {:>8} {:<7} {:>7} {:<30} {}\n", fecRequestSourceWord(line.source),
                       line.request.key.value(), line.request.requestId,
                       line.request.isSwOnlyFec() ? "sw-only" : "normal", hw, adj,
                       line.l2Intf.empty() ? "-" : line.l2Intf.stringValue());
  }
}

void FecRequestFeature::registerCommands() {
  shell_.commandIs("fec-request", "SOURCE ID [via ADDR PORT [weight W]]... [sw-only] [adj-state] | wait [SECONDS]",
                   "ask the chip layer for a hardware FEC, as a pseudowire, MPLS or EVPN agent would; or wait "
                   "until every request is answered",
                   [this](const Args& args, std::ostream&) {
                     if (!args.empty() && args[0] == "wait") {
                       waitForAnswers(Args(args.begin() + 1, args.end()));
                     } else {
                       requestIs(args);
                     }
                   });
  shell_.commandIs("no fec-request", "SOURCE ID", "withdraw a hardware FEC request",
                   [this](const Args& args, std::ostream&) { requestDel(args); });
  shell_.commandIs("show fec-requests", "[SOURCE] [json]",
                   "requests by source with their answers: hardware FEC, adjacency state, layer-2 port",
                   [this](const Args& args, std::ostream& out) { show(args, out); });
  shell_.commandIs("pseudowire adjacency-group", "G via ADDR PORT [via ADDR PORT]...",
                   "the encapsulation FEC of a pseudowire adjacency group, as the pseudowire agent requests it",
                   [this](const Args& args, std::ostream&) { pwGroupIs(args); });
  shell_.commandIs("no pseudowire adjacency-group", "G", "withdraw a pseudowire adjacency group's encapsulation FEC",
                   [this](const Args& args, std::ostream&) { pwGroupDel(args); });
  shell_.commandIs("show pseudowire adjacency-groups", "[json]",
                   "pseudowire adjacency groups with their encapsulation FEC and its hardware FEC",
                   [this](const Args& args, std::ostream& out) { showPwGroups(args, out); });
  shell_.commandIs("chip fec-request", "capacity N | busy|full|fail next N",
                   "size the chip's hardware FEC allocations, or plan its next answers",
                   [this](const Args& args, std::ostream&) {
                     if (!allocator_)
                       throw CommandError("hardware FEC requests are answered by orb-agent fecd in another process");
                     applyChipTableArgs(*chip_, SoftChip::SoftFecGrantTable::tableName, args,
                                        "chip fec-request capacity N | busy|full|fail next N");
                   });
}

}  // namespace Agent
