// The mirroring helper a chip layer implements. Every session operation
// names the session, its software id and its hardware mirror group first,
// and answers whether the chip did it. An operation the chip layer does not
// provide stops the process with an assertion naming it: mirroring has no
// quiet fallback, since a session half programmed copies the wrong traffic.
#pragma once

#include "Orb/OrbBaseHelper.h"
#include "platform/model/Acl.h"
#include "platform/model/Mirroring.h"
#include "platform/types/Nexo.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Orb {

// Stops with "false && \"Function <operation>() must be implemented by
// derived class\"".
[[noreturn]] void mirroringUnimplemented(const char* operation);

// A session the chip still holds from before an agent restart.
struct HwMirrorSession {
  std::string name;
  std::int32_t group = -1;
  Nexo::IntfId destIntf;
  bool isGre = false;
  bool dummyFwdDrop = false;  // a GRE session parked on a drop next hop
  // Source ports and their directions, and destination ports, as held.
  std::map<Nexo::IntfId, Mirroring::Direction> sources;
  std::vector<Nexo::IntfId> targets;
};

}  // namespace Orb

namespace OrbHelper {

class MirroringSmHelper : public Orb::OrbBaseHelper {
 public:
  using IntfId = Nexo::IntfId;
  using Direction = Mirroring::Direction;
  using Group = std::int32_t;

  explicit MirroringSmHelper(const std::string& name = "MirroringSmHelper") : OrbBaseHelper(name) {}

  virtual void hwInit() { Orb::mirroringUnimplemented("hwInit"); }
  // The sessions the chip holds when the machine starts (after a restart).
  virtual std::vector<Orb::HwMirrorSession> hwSessions() { return {}; }

  // A session copying to a port or a LAG (`destIntf`); its destination
  // ports follow through addTargetToHardware.
  virtual bool createMirror(const std::string&, std::uint32_t, Group, const IntfId& /*destIntf*/, bool /*isDstIntf*/) {
    Orb::mirroringUnimplemented("createMirror");
  }
  virtual bool removeMirror(const std::string&, std::uint32_t, Group, const std::vector<IntfId>& /*portList*/) {
    Orb::mirroringUnimplemented("removeMirror");
  }
  virtual bool createGreTunnelMirror(const std::string&, std::uint32_t, Group, const IntfId& /*destIntf*/,
                                     std::uint32_t /*tunnelId*/, const std::vector<Mirroring::GreNextHop>&) {
    Orb::mirroringUnimplemented("createGreTunnelMirror");
  }
  virtual bool updateGreTunnelMirror(const std::string&, std::uint32_t, Group, const IntfId& /*destIntf*/,
                                     std::uint32_t /*tunnelId*/, const std::vector<Mirroring::GreNextHop>&) {
    Orb::mirroringUnimplemented("updateGreTunnelMirror");
  }
  virtual bool removeGreTunnelMirror(const std::string&, std::uint32_t, Group, const IntfId&) {
    Orb::mirroringUnimplemented("removeGreTunnelMirror");
  }

  // One source port, in one direction.
  virtual bool addSourceToHardware(const std::string&, std::uint32_t, Group, const IntfId&, Direction) {
    Orb::mirroringUnimplemented("addSourceToHardware");
  }
  virtual bool removeSourceFromHardware(const std::string&, std::uint32_t, Group, const IntfId&, Direction,
                                        bool /*lagMemberDeleted*/) {
    Orb::mirroringUnimplemented("removeSourceFromHardware");
  }
  // One destination port: added, or taken out when `add` is false.
  virtual bool addTargetToHardware(const std::string&, std::uint32_t, Group, const IntfId&, bool /*add*/) {
    Orb::mirroringUnimplemented("addTargetToHardware");
  }
  // Limits what a source port copies to what the ACL permits; a null
  // `aclConfig` lifts the filter.
  virtual bool addHwSrcAcl(const std::string&, std::uint32_t, Group, const IntfId&, const std::string& /*aclName*/,
                           const Vex::Ptr<const Acl::AclConfig>& /*aclConfig*/, std::uint32_t /*priority*/) {
    Orb::mirroringUnimplemented("addHwSrcAcl");
  }
  virtual bool addIntfToLagGreNextHop(const std::string&, std::uint32_t, Group, const IntfId& /*intf*/,
                                      const IntfId& /*l3Intf*/, const IntfId& /*l2Intf*/) {
    Orb::mirroringUnimplemented("addIntfToLagGreNextHop");
  }
  virtual bool handleLagMemberDeletion(const IntfId& /*intf*/, const IntfId& /*lag*/, const std::string&, std::uint32_t,
                                       Group, Direction) {
    Orb::mirroringUnimplemented("handleLagMemberDeletion");
  }

  // Session attributes.
  virtual bool setMirrorTruncation(const std::string&, std::uint32_t, Group, bool, std::uint32_t) {
    Orb::mirroringUnimplemented("setMirrorTruncation");
  }
  virtual bool setMirrorHeaderRemoval(const std::string&, std::uint32_t, Group, std::uint32_t) {
    Orb::mirroringUnimplemented("setMirrorHeaderRemoval");
  }
  virtual bool setRxSampleRate(const std::string&, std::uint32_t, std::uint32_t) {
    Orb::mirroringUnimplemented("setRxSampleRate");
  }
  // The chip reads the payload type from the session's configuration.
  virtual bool setGrePayloadType(const Mirroring::Session&, Group) {
    Orb::mirroringUnimplemented("setGrePayloadType");
  }
  virtual bool setRateLimit(const std::string&, Group, const std::string& /*chip*/, std::uint64_t) {
    Orb::mirroringUnimplemented("setRateLimit");
  }
  virtual void doMirrorRateLimitConfig(bool) { Orb::mirroringUnimplemented("doMirrorRateLimitConfig"); }

  // Source capacity: the slots left for a source of `direction` (over the
  // whole chip), and the limits the overflow message quotes.
  virtual std::uint32_t freeMirrorSources(const Mirroring::Config&, const std::string& /*session*/, Direction) {
    Orb::mirroringUnimplemented("freeMirrorSources");
  }
  virtual std::uint32_t maxBiDirSources() { Orb::mirroringUnimplemented("maxBiDirSources"); }
  virtual std::uint32_t maxUniDirSources() { Orb::mirroringUnimplemented("maxUniDirSources"); }

  // Verification: each answers the differences it found, empty for none.
  virtual std::string verifySinglePort(const std::string&, Group, const IntfId&, Direction) {
    Orb::mirroringUnimplemented("verifySinglePort");
  }
  virtual std::string verifyGreTunnelMirror(const std::string&, Group, std::uint32_t) {
    Orb::mirroringUnimplemented("verifyGreTunnelMirror");
  }
  virtual std::string verifyDestPort(const std::string&, Group, const IntfId&) {
    Orb::mirroringUnimplemented("verifyDestPort");
  }
  virtual std::string verifySrcAcl(const std::string&, Group, const IntfId&, const std::string&) {
    Orb::mirroringUnimplemented("verifySrcAcl");
  }
  virtual std::string verifySessionAcl(const std::string&, Group) { Orb::mirroringUnimplemented("verifySessionAcl"); }
  virtual std::string verifyAclConfig(const std::string&) { Orb::mirroringUnimplemented("verifyAclConfig"); }
  virtual std::string verifyMirrorDeviceForSession(const std::string&, Group) {
    Orb::mirroringUnimplemented("verifyMirrorDeviceForSession");
  }
  virtual std::string showHwSrcAcls() { Orb::mirroringUnimplemented("showHwSrcAcls"); }
};

}  // namespace OrbHelper
