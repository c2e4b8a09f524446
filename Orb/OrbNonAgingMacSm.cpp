#include "Orb/OrbNonAgingMacSm.h"

#include "Orb/OrbTrace.h"

namespace Orb {

namespace {

Blip::Handle& trace() {
  static Blip::Handle& handle = orbTraceHandle("OrbNonAgingMacSm");
  return handle;
}

}  // namespace

NonAgingConfigSm::NonAgingConfigSm(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<NonAgingConfig>& config,
                                   NonAgingConfigDirSm* configDirSm)
    : OrbBaseSm(ocsd), configDirSm_(configDirSm) {
  reactor_.notifierIs(config);
  initializedIs(true);
}

NonAgingConfigSm::~NonAgingConfigSm() {
  vexDoZombieReactors(true);
  doCleanUp();
  reactor_.notifierIs(nullptr);
}

void NonAgingConfigSm::handleInitialized() { handleEnable(); }

void NonAgingConfigSm::handleEnable() {
  configDirSm_->status()->enabledIs(config()->enabled());
  std::vector<Bridging::MacVlanPair> keys;
  for (const auto& [key, entry] : config()->macEntries()) keys.push_back(key);
  for (const auto& [key, held] : added_) keys.push_back(key);
  for (const auto& key : keys) handleMacEntries(key);
}

void NonAgingConfigSm::handleMacEntries(const Bridging::MacVlanPair& key) {
  bool wanted = config()->enabled() && config()->macEntriesHas(key);
  if (wanted) {
    const auto& entry = config()->macEntries(key);
    BLIP(trace(), 5, "Adding New Entry Key :{}, IntfName :{}, entryType :{}", Vex::toStrep(key),
         entry.intf.stringValue(), Vex::valueToStrep(entry.entryType));
    if (added_.emplace(key, true).second) {
      configDirSm_->addNonAgingEntry(entry);
    } else {
      configDirSm_->status()->macEntriesIs(key, entry);  // changed in place
    }
    return;
  }
  if (!added_.erase(key)) return;
  BLIP(trace(), 5, "{}, Deleting NonAging Entry from configDirSmstatus Key:{}", config()->name(), Vex::toStrep(key));
  configDirSm_->delNonAgingEntry(key);
}

void NonAgingConfigSm::doCleanUp() {
  for (const auto& [key, held] : added_) configDirSm_->delNonAgingEntry(key);
  added_.clear();
}

NonAgingConfigDirSm::NonAgingConfigDirSm(const Vex::Ptr<OrbCommonSmData>& ocsd,
                                         const Vex::Ptr<NonAgingConfigDir>& configDir,
                                         const Vex::Ptr<NonAgingStatus>& status)
    : OrbBaseSm(ocsd), configDir_(configDir), status_(status) {
  reactor_.notifierIs(configDir);
  initializedIs(true);
}

NonAgingConfigDirSm::~NonAgingConfigDirSm() {
  vexDoZombieReactors(true);
  configSm_.clear();  // each releases its keys
  reactor_.notifierIs(nullptr);
}

void NonAgingConfigDirSm::handleInitialized() {
  for (const auto& [name, config] : configDir_->config()) handleConfig(name);
}

void NonAgingConfigDirSm::handleConfig(const std::string& name) {
  auto config = configDir_->config(name);
  auto it = configSm_.find(name);
  if (config && (it == configSm_.end() || it->second->config() != config)) {
    BLIP(trace(), 5, "Creating ConfigSm for config:{}", name);
    configSm_[name] = Vex::make<NonAgingConfigSm>(ocsd(), config, this);
  } else if (!config && it != configSm_.end()) {
    BLIP(trace(), 5, "Deleting ConfigSm for config:{}", name);
    configSm_.erase(it);
  }
}

std::uint32_t NonAgingConfigDirSm::macEntriesRef(const Bridging::MacVlanPair& key) const {
  auto it = macEntriesRef_.find(key);
  return it == macEntriesRef_.end() ? 0 : it->second;
}

void NonAgingConfigDirSm::addNonAgingEntry(const OrbTypes::MacAddressTableEntry& entry) {
  status_->macEntriesIs(entry.macVlanPair, entry);
  macEntriesRefInc(entry.macVlanPair, 1);
}

void NonAgingConfigDirSm::delNonAgingEntry(const Bridging::MacVlanPair& key) {
  macEntriesRefDec(key, 1);
  std::uint32_t count = macEntriesRef(key);
  if (count > 0) {
    BLIP(trace(), 5, "Not deleting entry with key: {} Still has a reference count of {}", Vex::toStrep(key), count);
    return;
  }
  macEntriesRef_.erase(key);
  status_->macEntriesDel(key);
}

void NonAgingConfigDirSm::macEntriesRefInc(const Bridging::MacVlanPair& key, std::uint32_t n) {
  macEntriesRef_[key] += n;
}

void NonAgingConfigDirSm::macEntriesRefDec(const Bridging::MacVlanPair& key, std::uint32_t n) {
  ORB_ASSERT_AT("/src/Orb/OrbNonAgingMacSm", macEntriesRef(key) >= n, "macEntriesRef( key )");
  macEntriesRef_[key] -= n;
}

Vex::Ptr<NonAgingConfigDirSm> nonAgingConfigDirSmFactory(const Vex::Ptr<OrbCommonSmData>& ocsd,
                                                         const Vex::Ptr<NonAgingConfigDir>& configDir,
                                                         const Vex::Ptr<NonAgingStatus>& status) {
  return Vex::make<NonAgingConfigDirSm>(ocsd, configDir, status);
}

}  // namespace Orb
