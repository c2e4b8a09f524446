// `resilient-ecmp dedup`: a route asks which resilient FEC it may share,
// as the routing agent does through the deduping request table, and the
// soft chip answers; `show resilient-ecmp dedup` lists both sides.
// `show resilient-ecmp routes` lists the per-route rows other agents read.
#include "agent/JsonOutput.h"
#include "agent/L3Feature.h"

#include <fmt/format.h>

#include <algorithm>
#include <tuple>
#include <vector>

namespace Agent {

namespace {

std::string prefixText(const Orb::PrefixKey& key) { return key.prefix().stringValue(); }
std::string prefixText(const Nexo::Ip6Prefix& prefix) { return prefix.stringValue(); }

}  // namespace

void L3Feature::registerResilientCommands() {
  shell_.commandIs(
      "resilient-ecmp dedup", "FEC", "ask which resilient FEC a route over FEC may share; prints the request id",
      [this](const Args& args, std::ostream& out) {
        expectArgs(args, 1, 1, "resilient-ecmp dedup FEC");
        auto fec = knownFec(args[0]);
        Orb::ResilientEcmpDedupingId id;
        try {
          id = dedup_->recmpDedupingIdInc();
        } catch (const Orb::ResilientEcmpDedupingIdsExhausted& e) {
          throw CommandError(e.what());
        }
        dedup_->requestIs({id, Pond::Fib::FecId(fec.value())});
        out << fmt::format("request {} selected fec {}\n", id, dedup_->response(id).selectedResilientFecId.value());
      });
  shell_.commandIs("no resilient-ecmp dedup", "ID", "withdraw a deduping request (its answer goes with it)",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "no resilient-ecmp dedup ID");
                     auto id = static_cast<Orb::ResilientEcmpDedupingId>(parseInteger(args[0], 0, 65535));
                     if (!dedup_->requestHas(id)) throw CommandError(fmt::format("no deduping request {}", id));
                     dedup_->requestDel(id);
                   });
  shell_.commandIs(
      "show resilient-ecmp dedup", "[json]", "deduping requests and the chip's answers",
      [this](Args args, std::ostream& out) {
        bool json = takeJsonFlag(args);
        expectArgs(args, 0, 0, "show resilient-ecmp dedup [json]");
        std::map<Orb::ResilientEcmpDedupingId, Orb::ResilientEcmpDedupingRequest> requests(dedup_->request().begin(),
                                                                                           dedup_->request().end());
        if (json) {
          printJson(out, [&](JsonWriter& w) {
            w.StartObject();
            w.Key("nextId");
            w.Uint(dedup_->recmpDedupingId());
            w.Key("requests");
            w.StartArray();
            for (const auto& [id, request] : requests) {
              w.StartObject();
              w.Key("id");
              w.Uint(id);
              w.Key("oldResilientFecId");
              w.Uint64(request.oldResilientFecId.value());
              w.Key("selectedResilientFecId");
              if (dedup_->responseHas(id)) {
                w.Uint64(dedup_->response(id).selectedResilientFecId.value());
              } else {
                w.Null();
              }
              w.EndObject();
            }
            w.EndArray();
            w.EndObject();
          });
          return;
        }
        for (const auto& [id, request] : requests) {
          out << fmt::format("request {} old fec {} selected fec {}\n", id, request.oldResilientFecId.value(),
                             dedup_->responseHas(id)
                                 ? std::to_string(dedup_->response(id).selectedResilientFecId.value())
                                 : std::string("(none)"));
        }
        out << fmt::format("requests {} answers {}\n", dedup_->request().size(), dedup_->response().size());
      });
  shell_.commandIs(
      "show resilient-ecmp routes", "[json]",
      "routes over resilient FECs, as published in each VRF's shared-memory table",
      [this](Args args, std::ostream& out) {
        bool json = takeJsonFlag(args);
        expectArgs(args, 0, 0, "show resilient-ecmp routes [json]");
        struct Row {
          std::uint32_t vrf;
          std::string prefix;
          std::uint64_t adjIndex;
          std::uint64_t resilientAdjIndex;
          std::string result;
        };
        std::vector<Row> rows;
        auto add = [&rows](Orb::VrfId vrf, const auto& row) {
          rows.push_back({vrf.value(), prefixText(row.key), row.adjIndex, row.resilientAdjIndex,
                          Vex::valueToStrep(row.reviewResilientAdjResult)});
        };
        for (const auto& held : resilientStatus_)
          held.second->routePrefixToResilientEcmpInfoTable().forEach([&](const auto& row) { add(held.first, row); });
        for (const auto& held : resilientStatus6_)
          held.second->route6PrefixToResilientEcmpInfoTable().forEach([&](const auto& row) { add(held.first, row); });
        std::sort(rows.begin(), rows.end(),
                  [](const Row& a, const Row& b) { return std::tie(a.vrf, a.prefix) < std::tie(b.vrf, b.prefix); });
        if (json) {
          printJson(out, [&](JsonWriter& w) {
            w.StartObject();
            w.Key("routes");
            w.StartArray();
            for (const auto& row : rows) {
              w.StartObject();
              w.Key("vrf");
              w.Uint(row.vrf);
              w.Key("prefix");
              w.String(row.prefix.c_str());
              w.Key("adjIndex");
              w.Uint64(row.adjIndex);
              w.Key("resilientAdjIndex");
              w.Uint64(row.resilientAdjIndex);
              w.Key("result");
              w.String(row.result.c_str());
              w.EndObject();
            }
            w.EndArray();
            w.Key("refused");
            w.Uint64(resilientRowsRefused_);
            w.EndObject();
          });
          return;
        }
        for (const auto& row : rows) {
          out << fmt::format("vrf {} {} adjacency {} resilient fec {} {}\n", row.vrf, row.prefix, row.adjIndex,
                             row.resilientAdjIndex, row.result);
        }
        out << fmt::format("routes {} refused {}\n", rows.size(), resilientRowsRefused_);
      });
}

}  // namespace Agent
