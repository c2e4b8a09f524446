// The state-database entities the MAC address machine reads and writes,
// with the fields it uses.
#pragma once

#include "platform/model/BridgingConfig.h"
#include "platform/model/MacTypes.h"
#include "platform/model/MlagStatus.h"
#include "platform/vex/Entity.h"

#include <optional>
#include <vector>

namespace OrbTypes {

// Hardware-learned addresses (written by the chip layer) and router MACs.
class MacTable : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<MacTable> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(MacEntry, Bridging::MacVlanPair)
  };
  using Entity::Entity;
  VEX_COLLECTION(Bridging::MacVlanPair, MacAddressTableEntry, macEntry, MacEntry)
};

}  // namespace OrbTypes

namespace Bridging {

// A learned host of one filtering id: where the address is and how it got
// there. Its address is its key in `learnedHost`, not repeated here: the
// table holds one of these per host the switch knows.
struct LearnedHost {
  Nexo::IntfId intf;
  EntryType entryType = EntryType::entryDynamic;
  Keel::Seqno32 moves;
  double lastMoveTime = 0.0;
  auto operator<=>(const LearnedHost&) const = default;
};
VEX_VALUE(LearnedHost, "Bridging::LearnedHost", (intf, entryType, moves, lastMoveTime))

// The hosts the forwarding layer programmed for one filtering id. The
// forwarding layer uses the VLAN number as the filtering id.
class FdbStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<FdbStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(LearnedHost, Nexo::EthAddr)
  };
  explicit FdbStatus(Fid fid) : Entity("fdbStatus"), fid_(fid) {}
  Fid fid() const { return fid_; }
  VEX_COLLECTION(Nexo::EthAddr, LearnedHost, learnedHost, LearnedHost)

 private:
  Fid fid_;
};

// What the forwarding layer programmed: local entries in `fdbStatus`, one
// entry per filtering id, remote (tunnel) entries in `remoteStatusTable`.
class Status : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Status> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(FdbStatus, Fid)
    VEX_KEY_HANDLER(RemoteStatusTable, MacVlanPair)
  };
  using Entity::Entity;
  VEX_COLLECTION(Fid, Vex::Ptr<FdbStatus>, fdbStatus, FdbStatus)
  VEX_OWNED_MEMBERS(Fid, FdbStatus, fdbStatus)
  VEX_COLLECTION(MacVlanPair, OrbTypes::RemoteMacAddressTableEntry, remoteStatusTable, RemoteStatusTable)

  // The learned host of a key across the filtering ids, or null.
  const LearnedHost* learnedHost(const MacVlanPair& key) const {
    const auto& fdb = fdbStatus(fidOf(key));
    if (!fdb) return nullptr;
    auto it = fdb->learnedHost().find(key.addr);
    return it == fdb->learnedHost().end() ? nullptr : &it->second;
  }
  void learnedHostIs(const MacVlanPair& key, const LearnedHost& host) {
    fdbStatusIs(fidOf(key))->learnedHostIs(key.addr, host);
  }
  // learnedHostIs, returning the host it replaced (none if new).
  std::optional<LearnedHost> learnedHostExchange(const MacVlanPair& key, const LearnedHost& host) {
    return fdbStatusIs(fidOf(key))->learnedHostExchange(key.addr, host);
  }
  void learnedHostDel(const MacVlanPair& key) {
    if (const auto& fdb = fdbStatus(fidOf(key))) fdb->learnedHostDel(key.addr);
  }
  // Learned hosts of every filtering id.
  std::size_t learnedHostCount() const {
    std::size_t count = 0;
    for (const auto& [fid, fdb] : fdbStatus()) count += fdb->learnedHostSize();
    return count;
  }
  // Calls fn(key, host) for every learned host of a filtering id that names
  // a VLAN.
  template <class Fn>
  void forEachLearnedHost(Fn&& fn) const {
    for (const auto& [fid, fdb] : fdbStatus()) {
      auto vlanId = vlanOf(fid);
      if (!vlanId) continue;
      for (const auto& [addr, host] : fdb->learnedHost()) fn(MacVlanPair{addr, *vlanId}, host);
    }
  }
  static Fid fidOf(const MacVlanPair& key) { return Fid(key.vlanId.value()); }
  // The VLAN of a filtering id; none for an id outside the VLAN range (one
  // restored from a document, say), which names no VLAN.
  static std::optional<VlanId> vlanOf(Fid fid) {
    if (fid.value() < 1 || fid.value() > 4094) return std::nullopt;
    return VlanId(fid.value());
  }
};

// How many dynamic (hardware-learned) hosts the forwarding layer holds: in
// all, per interface and per VLAN. Written with `fdbStatus`.
class DynamicHostStatus : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<DynamicHostStatus> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(HostCount)
    VEX_KEY_HANDLER(HostCountOnIntf, Nexo::IntfId)
    VEX_KEY_HANDLER(HostCountInVlan, VlanId)
  };
  using Entity::Entity;
  VEX_COUNTER(std::uint32_t, hostCount, HostCount)
  VEX_COLLECTION(Nexo::IntfId, std::uint32_t, hostCountOnIntf, HostCountOnIntf)
  VEX_COLLECTION(VlanId, std::uint32_t, hostCountInVlan, HostCountInVlan)

  // `delta` dynamic hosts more (or fewer) on `intf` in `vlanId`.
  void hostCountAdd(const Nexo::IntfId& intf, VlanId vlanId, int delta) {
    hostCountIs(static_cast<std::uint32_t>(static_cast<int>(hostCount()) + delta));
    hostCountOnIntfAdd(intf, delta);
    hostCountInVlanAdd(vlanId, delta);
  }
  // The same, for the counts of one interface or of one VLAN alone.
  void hostCountOnIntfAdd(const Nexo::IntfId& intf, int delta) {
    if (auto count = static_cast<std::uint32_t>(static_cast<int>(hostCountOnIntf(intf)) + delta)) {
      hostCountOnIntfIs(intf, count);
    } else {
      hostCountOnIntfDel(intf);
    }
  }
  void hostCountInVlanAdd(VlanId vlanId, int delta) {
    if (auto count = static_cast<std::uint32_t>(static_cast<int>(hostCountInVlan(vlanId)) + delta)) {
      hostCountInVlanIs(vlanId, count);
    } else {
      hostCountInVlanDel(vlanId);
    }
  }
};

// Remote entries: configured by hand (static remote) and received from the
// control plane (EVPN).
class RemoteMacTable : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<RemoteMacTable> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(ConfiguredHost, MacVlanPair)
    VEX_KEY_HANDLER(ReceivedHost, MacVlanPair)
    VEX_HANDLER(RemoteMacsReady)
    VEX_HANDLER(TunnelLearnEvent)
  };
  using Entity::Entity;
  // After a restart, the control plane has sent every remote host again.
  VEX_ATTR(bool, remoteMacsReady, RemoteMacsReady, false)
  // Raised when the tunnels learned (or forgot) addresses in bulk.
  VEX_COUNTER(std::uint32_t, tunnelLearnEvent, TunnelLearnEvent)
  VEX_COLLECTION(MacVlanPair, OrbTypes::RemoteMacAddressTableEntry, configuredHost, ConfiguredHost)
  VEX_COLLECTION(MacVlanPair, OrbTypes::RemoteMacAddressTableEntry, receivedHost, ReceivedHost)
};

// A request to flush learned addresses: of one VLAN (0 for all), of one
// interface (empty for all), or one address (zero for all).
struct HostTableFlushRequest {
  std::uint16_t vlanId = 0;
  Nexo::IntfId intf;
  Nexo::EthAddr addr;
  auto operator<=>(const HostTableFlushRequest&) const = default;
};
VEX_VALUE(HostTableFlushRequest, "Bridging::HostTableFlushRequest", (vlanId, intf, addr))

// The answer to a request: the request it answers and when it was done.
struct HostTableFlushReply {
  HostTableFlushRequest request;
  double time = 0.0;
  auto operator<=>(const HostTableFlushReply&) const = default;
};
VEX_VALUE(HostTableFlushReply, "Bridging::HostTableFlushReply", (request, time))

// Flush requests by name; a request is pending until its reply answers it.
class HostTableFlushRequestDir : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<HostTableFlushRequestDir> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Request, std::string)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(std::string, HostTableFlushRequest, request, Request)
};

class HostTableFlushReplyDir : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<HostTableFlushReplyDir> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Reply, std::string)
  };
  using Entity::Entity;
  VEX_ORDERED_COLLECTION(std::string, HostTableFlushReply, reply, Reply)
};

}  // namespace Bridging

namespace Interface {

class EthPhyIntfConfigDir : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<EthPhyIntfConfigDir> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(MacLearningDisabled, Nexo::IntfId)
  };
  using Entity::Entity;
  // Ports whose learning is switched off.
  VEX_SET(Nexo::IntfId, macLearningDisabled, MacLearningDisabled)
};

class EthPhyIntfStatusDir : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<EthPhyIntfStatusDir> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(LinkUp, Nexo::IntfId)
    VEX_KEY_HANDLER(Speed, Nexo::IntfId)
  };
  using Entity::Entity;
  VEX_COLLECTION(Nexo::IntfId, bool, linkUp, LinkUp)
  // Operational speed in megabits per second; none (0) while unknown.
  VEX_COLLECTION(Nexo::IntfId, std::uint64_t, speed, Speed)
  std::uint64_t speedKbps(const Nexo::IntfId& intf) const { return speed(intf) * 1000; }
};

}  // namespace Interface

namespace Mlag {

// The MLAG peer's MAC entries.
class HostTable : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<HostTable> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(HostEntry, Bridging::MacVlanPair)
  };
  using Entity::Entity;
  VEX_COLLECTION(Bridging::MacVlanPair, OrbTypes::MacAddressTableEntry, hostEntry, HostEntry)
};

}  // namespace Mlag

namespace FastServerFailover {

class Status : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Status> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(FailedServer, Nexo::EthAddr)
  };
  using Entity::Entity;
  // Servers whose addresses must not be learned while they are failed over.
  VEX_SET(Nexo::EthAddr, failedServer, FailedServer)
};

}  // namespace FastServerFailover

namespace Vxlan {

class VxlanConfigDir : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<VxlanConfigDir> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(VlanToVni, Bridging::VlanId)
  };
  using Entity::Entity;
  VEX_COLLECTION(Bridging::VlanId, std::uint32_t, vlanToVni, VlanToVni)
};

}  // namespace Vxlan

namespace Orb::VXLAN {

// How many programmed remote entries use each next hop and each VLAN, and
// requests to flush remote entries (answered, by name, with the other
// flush requests' replies).
class RemoteMacInfoDir : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<RemoteMacInfoDir> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(NextHopRefCount, std::uint64_t)
    VEX_KEY_HANDLER(VlanRefCount, Bridging::VlanId)
    VEX_KEY_HANDLER(RemoteMacFlushRequest, std::string)
  };
  using Entity::Entity;
  VEX_KEYED_COUNTER(std::uint64_t, std::uint32_t, nextHopRefCount, NextHopRefCount)
  VEX_KEYED_COUNTER(Bridging::VlanId, std::uint32_t, vlanRefCount, VlanRefCount)
  VEX_ORDERED_COLLECTION(std::string, Bridging::HostTableFlushRequest, remoteMacFlushRequest, RemoteMacFlushRequest)
};

}  // namespace Orb::VXLAN

namespace Dot1x {

// Hosts authenticated by 802.1X, by address.
class HostTable : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<HostTable> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Host, Nexo::EthAddr)
  };
  using Entity::Entity;
  VEX_COLLECTION(Nexo::EthAddr, OrbTypes::MacAddressTableEntry, host, Host)
};

class Status : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Status> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(RestrictedIntf, Nexo::IntfId)
  };
  using Entity::Entity;
  // Ports that only authenticated hosts may use: nothing else is learned there.
  VEX_SET(Nexo::IntfId, restrictedIntf, RestrictedIntf)
};

}  // namespace Dot1x

namespace L2Rib {

// Hosts learned here, offered to the L2 RIB.
class HostInput : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<HostInput> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Host, Bridging::MacVlanPair)
  };
  using Entity::Entity;
  VEX_COLLECTION(Bridging::MacVlanPair, OrbTypes::MacAddressTableEntry, host, Host)
};

// The L2 RIB's chosen hosts.
class HostOutput : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<HostOutput> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Host, Bridging::MacVlanPair)
  };
  using Entity::Entity;
  VEX_COLLECTION(Bridging::MacVlanPair, OrbTypes::RemoteMacAddressTableEntry, host, Host)
};

// Load-balance groups and destinations of the L2 RIB, by object id.
class LoadBalanceOutput : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<LoadBalanceOutput> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Lb, std::uint64_t)
  };
  using Entity::Entity;
  VEX_COLLECTION(std::uint64_t, std::vector<std::uint64_t>, lb, Lb)
};

class DestOutput : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<DestOutput> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Dest, std::uint64_t)
  };
  using Entity::Entity;
  VEX_COLLECTION(std::uint64_t, Nexo::IpGenAddr, dest, Dest)
};

}  // namespace L2Rib

namespace Orb {

// Tunnel endpoints of each software tunnel group.
class SwTunnelGroupIdMap : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<SwTunnelGroupIdMap> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(Group, SwTunnelGroupId)
  };
  using Entity::Entity;
  VEX_COLLECTION(SwTunnelGroupId, std::vector<Nexo::IpGenAddr>, group, Group)
};

// The hardware id of each L2 RIB object.
class ObjTupleToHwId : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<ObjTupleToHwId> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_KEY_HANDLER(HwId, L2Rib::ObjTuple)
  };
  using Entity::Entity;
  VEX_COLLECTION(L2Rib::ObjTuple, std::uint64_t, hwId, HwId)
};

// The shared multicast context (snooping state other machines share).
class OrbCommonMulticastData : public Vex::Entity {
 public:
  using Entity::Entity;
};

}  // namespace Orb
