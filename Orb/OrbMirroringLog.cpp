#include "Orb/OrbMirroringLog.h"

namespace Orb::MirroringLog {

namespace {

const char* sourceExplanation =
    "The switch is unable to program the source interface due to unavailability of hardware resources. The limit "
    "of source interfaces that can be programmed in a mirror session has been exceeded. As a result traffic on "
    "this interface shall not be mirrored.";
const char* sourceAction =
    "To solve this issue, remove a source interface or use fewer mirror sources in the mirror sessions across the "
    "switch.";

}  // namespace

const Log::Definition& sourceResourcesFull() {
  static const Log::Definition def{
      {"DATAPLANE_MIRROR_SOURCE_RESOURCES_FULL",
       "Insufficient hardware resources are available to add interface %s as a source to session %s. There is a "
       "maximum of %d bidirectional sources or %d unidirectional sources available for a mirror session.",
       sourceExplanation, sourceAction}};
  return def;
}

const Log::Definition& sourceResourcesNormal() {
  static const Log::Definition def{{"DATAPLANE_MIRROR_SOURCE_RESOURCES_NORMAL",
                                    "All mirror sources are programmed in hardware.",
                                    "Mirror sources that could not be programmed for want of hardware resources "
                                    "are all programmed now.",
                                    "No action is required."}};
  return def;
}

const Log::Definition& sessionResourcesFull() {
  static const Log::Definition def{
      {"DATAPLANE_MIRROR_SESSION_RESOURCES_FULL",
       "Mirroring hardware resources are insufficient to program the mirror session %s.",
       "The switch is unable to program the mirroring session due to the unavailability of hardware resources. The "
       "maximum mirror sessions limit has been exceeded. As a result this mirroring session is not operational.",
       "To solve this issue, remove a mirroring session or unconfigure a feature that is using a mirror session."}};
  return def;
}

const Log::Definition& internalSessionResourcesUnavailable() {
  // The misspelling is in the text operators already search for.
  static const Log::Definition def{
      {"DATAPLANE_MIRROR_INTERNAL_SESSION_RESOURCES_UNAVAILABLE",
       "Insufficient hardware resources are available to program the internal session %s with destination "
       "interface %s.",
       "The switch is unable to program the internal mirror session because one or more modules does not have "
       "sufficient resources to program a mirror session.",
       "To solve this issue, unprogram a mirror sessoion from all the modules that have all the mirror resources "
       "being used."}};
  return def;
}

const Log::Definition& invalidSessionInCutThrough() {
  static const Log::Definition def{
      {"DATAPLANE_MIRROR_INVALID_SESSION_IN_CUT_THROUGH",
       "Attempt to add mirror source %s in mirror session %s has failed.",
       "This system does not support mirror sessions that have both ingress mirror sources and egress mirror "
       "sources to the same mirror destination port while in cut-through forwarding mode.",
       "To resolve the issue switch to store-and-forward forwarding mode where this mirroring configuration can be "
       "supported."}};
  return def;
}

const Log::Definition& aclHwResourceFull() {
  static const Log::Definition def{
      {"MIRRORING_ACL_HW_RESOURCE_FULL", "Hardware resources are insufficient to program all mirror ACLs",
       "The switch is unable to program an ACL that filters a mirror source: its hardware resources are in use. "
       "Traffic on that source is not mirrored.",
       "To solve this issue, remove ACL filters from mirror sources or use smaller ACLs."}};
  return def;
}

}  // namespace Orb::MirroringLog
