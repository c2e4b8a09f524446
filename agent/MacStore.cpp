// The learned MAC table across restarts: saved on a clean shutdown to the
// store given with --mac-store, restored at start, and a restart of the MAC
// agent within the process that shows both.
#include "Orb/OrbMacAddrSmPStoreHelper.h"
#include "agent/JsonOutput.h"
#include "agent/MacFeature.h"
#include "agent/MacPaths.h"
#include "platform/hotup/HotupPStoreHelper.h"

#include <fmt/format.h>

namespace Agent {

std::size_t MacFeature::restoreMacTable(const std::string& document, bool chipKeptTable) {
  auto status = hive_->mount<Bridging::Status>(MacPaths::bridgingStatus);
  Orb::macAddrSmPStoreHelperFactory(status)->restore(document);
  if (chipKeptTable) {
    status->forEachLearnedHost([&](const Bridging::MacVlanPair& key, const Bridging::LearnedHost& host) {
      fdbHelper_->holdLearn(key, host.intf);
    });
  }
  return status->learnedHostCount();
}

void MacFeature::shutdown() {
  if (macStorePath_.empty()) return;
  Hotup::writeStoreFile(macStorePath_,
                        Orb::macAddrSmPStoreDocument(*hive_->mount<Bridging::Status>(MacPaths::bridgingStatus)));
}

std::size_t MacFeature::restartMac(bool hitless) {
  auto status = hive_->mount<Bridging::Status>(MacPaths::bridgingStatus);
  std::string document = Orb::macAddrSmPStoreDocument(*status);
  if (!macStorePath_.empty()) Hotup::writeStoreFile(macStorePath_, document);
  macAddrSm_.reset();
  nonAgingSm_.reset();
  // What the MAC agent owns goes with it; the chip and its learned table
  // stay. A hitless restart keeps the remote rows, whose entries the chip
  // still holds, for the new machine to recover from; the remote reference
  // counts are rebuilt either way, from the recovered rows or as entries
  // are programmed again.
  status->fdbStatusDelAll();
  if (!hitless) status->remoteStatusTableDelAll();
  auto rmacInfo = hive_->mount<Orb::VXLAN::RemoteMacInfoDir>(MacPaths::remoteMacInfo);
  rmacInfo->nextHopRefCountDelAll();
  rmacInfo->vlanRefCountDelAll();
  hive_->mount<L2Rib::HostInput>(MacPaths::l2RibHostInput)->hostDelAll();
  std::size_t restored = restoreMacTable(document, false);
  ocsd_->operationalModeIs(hitless ? Orb::HwOperationalMode::hwModeHitlessRestart
                                   : Orb::HwOperationalMode::hwModeNormal);
  // The control plane sends every remote host again after a hitless
  // restart, and says so (`evpn remote-macs-ready`).
  if (hitless) hive_->mount<Bridging::RemoteMacTable>(MacPaths::remoteMacTable)->remoteMacsReadyIs(false);
  startMacAddrSm();
  return restored;
}

void MacFeature::registerMacStoreCommands() {
  shell_.commandIs("show mac store", "[json]", "the learned MAC table as a restart would save it (a JSON document)",
                   [this](Args args, std::ostream& out) {
                     // The saved document is JSON already: `json` changes nothing.
                     takeJsonFlag(args);
                     expectArgs(args, 0, 0, "show mac store [json]");
                     out << Orb::macAddrSmPStoreDocument(*hive_->mount<Bridging::Status>(MacPaths::bridgingStatus))
                         << "\n";
                   });
  shell_.commandIs("restart mac", "[hitless]",
                   "restart the MAC agent: save the learned table, start again from it while the chip forwards; "
                   "hitless keeps the remote entries until the control plane has sent them again",
                   [this](const Args& args, std::ostream& out) {
                     expectArgs(args, 0, 1, "restart mac [hitless]");
                     if (args.size() == 1 && args[0] != "hitless") throw CommandError("usage: restart mac [hitless]");
                     bool hitless = args.size() == 1;
                     std::size_t restored = restartMac(hitless);
                     out << fmt::format("MAC agent restarted{}: {} learned hosts restored{}\n",
                                        hitless ? " hitless" : "", restored,
                                        macStorePath_.empty() ? "" : " from " + macStorePath_);
                   });
}

}  // namespace Agent
