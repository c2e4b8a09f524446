// The learned MAC table across restarts: saved on a clean shutdown to the
// store given with --mac-store, restored at start, and a restart of the MAC
// agent within the process that shows both.
#include "Orb/OrbMacAddrSmPStoreHelper.h"
#include "agent/Agent.h"
#include "agent/JsonOutput.h"
#include "agent/MacPaths.h"
#include "platform/hotup/HotupPStoreHelper.h"

#include <fmt/format.h>

namespace Agent {

std::size_t Agent::restoreMacTable(const std::string& document, bool chipKeptTable) {
  auto status = hive_->mount<Bridging::Status>(Paths::bridgingStatus);
  Orb::macAddrSmPStoreHelperFactory(status)->restore(document);
  if (chipKeptTable) {
    status->forEachLearnedHost([&](const Bridging::MacVlanPair& key, const Bridging::LearnedHost& host) {
      fdbHelper_->learn(key, host.intf);
    });
  }
  return status->learnedHostCount();
}

void Agent::shutdown() {
  if (macStorePath_.empty()) return;
  Hotup::writeStoreFile(macStorePath_,
                        Orb::macAddrSmPStoreDocument(*hive_->mount<Bridging::Status>(Paths::bridgingStatus)));
}

std::size_t Agent::restartMac() {
  auto status = hive_->mount<Bridging::Status>(Paths::bridgingStatus);
  std::string document = Orb::macAddrSmPStoreDocument(*status);
  if (!macStorePath_.empty()) Hotup::writeStoreFile(macStorePath_, document);
  macAddrSm_.reset();
  nonAgingSm_.reset();
  // What the MAC agent owns goes with it; the chip and its learned table stay.
  status->fdbStatusDelAll();
  status->remoteStatusTableDelAll();
  hive_->mount<L2Rib::HostInput>(MacPaths::l2RibHostInput)->hostDelAll();
  std::size_t restored = restoreMacTable(document, false);
  startMacAddrSm();
  return restored;
}

void Agent::registerMacStoreCommands() {
  shell_.commandIs("show mac store", "[json]", "the learned MAC table as a restart would save it (a JSON document)",
                   [this](Args args, std::ostream& out) {
                     // The saved document is JSON already: `json` changes nothing.
                     takeJsonFlag(args);
                     expectArgs(args, 0, 0, "show mac store [json]");
                     out << Orb::macAddrSmPStoreDocument(*hive_->mount<Bridging::Status>(Paths::bridgingStatus))
                         << "\n";
                   });
  shell_.commandIs("restart mac", "",
                   "restart the MAC agent: save the learned table, start again from it while the chip forwards",
                   [this](const Args& args, std::ostream& out) {
                     expectArgs(args, 0, 0, "restart mac");
                     std::size_t restored = restartMac();
                     out << fmt::format("MAC agent restarted: {} learned hosts restored{}\n", restored,
                                        macStorePath_.empty() ? "" : " from " + macStorePath_);
                   });
}

}  // namespace Agent
