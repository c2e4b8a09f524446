// Addresses that must never age, gathered from several owners.
//
// Each owner publishes a NonAgingConfig (enabled, and its entries); the
// NonAgingConfigDirSm folds them into one NonAgingStatus, counting how many
// owners hold each key so that a key stays while any owner still wants it.
// The MAC address machine treats the status's entries as configured
// entries that do not age.
#pragma once

#include "Orb/OrbBaseHelper.h"
#include "Orb/OrbCommon.h"
#include "platform/model/MacTypes.h"
#include "platform/vex/Entity.h"

#include <map>
#include <memory>

namespace Orb {

class NonAgingConfig : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<NonAgingConfig> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(Enabled)
    VEX_KEY_HANDLER(MacEntries, Bridging::MacVlanPair)
  };
  using Entity::Entity;
  VEX_ATTR(bool, enabled, Enabled, true)
  VEX_COLLECTION(Bridging::MacVlanPair, OrbTypes::MacAddressTableEntry, macEntries, MacEntries)
};

class NonAgingConfigDir : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<NonAgingConfigDir> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Config, std::string)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(std::string, Vex::Ptr<NonAgingConfig>, config, Config)
  VEX_OWNED_MEMBERS(std::string, NonAgingConfig, config)
};

class NonAgingStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<NonAgingStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(Enabled)
    VEX_KEY_HANDLER(MacEntries, Bridging::MacVlanPair)
  };
  using Entity::Entity;
  VEX_ATTR(bool, enabled, Enabled, false)
  VEX_COLLECTION(Bridging::MacVlanPair, OrbTypes::MacAddressTableEntry, macEntries, MacEntries)
};

class NonAgingConfigDirSm;

// One owner's config, written through its parent into the status.
class NonAgingConfigSm : public OrbBaseSm {
 public:
  NonAgingConfigSm(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<NonAgingConfig>& config,
                   NonAgingConfigDirSm* configDirSm);
  ~NonAgingConfigSm() override;
  const char* fwkType() const override { return "Orb::NonAgingConfigSm"; }

  const Vex::Ptr<NonAgingConfig>& config() const { return reactor_.notifier(); }
  void handleInitialized() override;
  void handleEnable();
  void handleMacEntries(const Bridging::MacVlanPair& key);
  // Releases every key this owner added.
  void doCleanUp();

 private:
  class ConfigReactor : public Vex::Reactor<NonAgingConfig, NonAgingConfigSm> {
   public:
    using Reactor::Reactor;
    VEX_REACT(Enabled, handleEnable)
    VEX_REACT_KEY(MacEntries, Bridging::MacVlanPair, handleMacEntries)
  };

  NonAgingConfigDirSm* configDirSm_;
  std::map<Bridging::MacVlanPair, bool> added_;  // keys this owner holds
  ConfigReactor reactor_{this};
};

class NonAgingConfigDirSm : public OrbBaseSm {
 public:
  NonAgingConfigDirSm(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<NonAgingConfigDir>& configDir,
                      const Vex::Ptr<NonAgingStatus>& status);
  ~NonAgingConfigDirSm() override;
  const char* fwkType() const override { return "Orb::NonAgingConfigDirSm"; }

  const Vex::Ptr<NonAgingStatus>& status() const { return status_; }
  std::uint32_t macEntriesRef(const Bridging::MacVlanPair& key) const;
  const std::map<std::string, Vex::Ptr<NonAgingConfigSm>>& configSm() const { return configSm_; }

  void handleInitialized() override;
  void handleConfig(const std::string& name);
  void addNonAgingEntry(const OrbTypes::MacAddressTableEntry& entry);
  void delNonAgingEntry(const Bridging::MacVlanPair& key);
  void macEntriesRefInc(const Bridging::MacVlanPair& key, std::uint32_t n);
  void macEntriesRefDec(const Bridging::MacVlanPair& key, std::uint32_t n);

 private:
  class DirReactor : public Vex::Reactor<NonAgingConfigDir, NonAgingConfigDirSm> {
   public:
    using Reactor::Reactor;
    VEX_REACT_KEY(Config, std::string, handleConfig)
  };

  Vex::Ptr<NonAgingConfigDir> configDir_;
  Vex::Ptr<NonAgingStatus> status_;
  std::map<Bridging::MacVlanPair, std::uint32_t> macEntriesRef_;
  std::map<std::string, Vex::Ptr<NonAgingConfigSm>> configSm_;
  DirReactor reactor_{this};
};

Vex::Ptr<NonAgingConfigDirSm> nonAgingConfigDirSmFactory(const Vex::Ptr<OrbCommonSmData>& ocsd,
                                                         const Vex::Ptr<NonAgingConfigDir>& configDir,
                                                         const Vex::Ptr<NonAgingStatus>& status);

}  // namespace Orb
