// The trace handle every mirroring machine writes to ("OrbMirroringSm").
#pragma once

#include "Orb/OrbTrace.h"

namespace Orb {

inline Blip::Handle& mirroringTrace() {
  static Blip::Handle& handle = orbTraceHandle("OrbMirroringSm");
  return handle;
}

}  // namespace Orb
