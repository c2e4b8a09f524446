// `resilient-ecmp dedup`: a route asks which resilient FEC it may share,
// as the routing agent does through the deduping request table, and the
// soft chip answers; `show resilient-ecmp dedup` lists both sides.
#include "agent/JsonOutput.h"
#include "agent/L3Feature.h"

#include <fmt/format.h>

namespace Agent {

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
}

}  // namespace Agent
