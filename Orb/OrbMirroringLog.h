// The log events of port mirroring, with their explanations and
// recommended actions as operators have always read them.
#pragma once

#include "platform/log/LogEvent.h"

namespace Orb::MirroringLog {

const Log::Definition& sourceResourcesFull();
const Log::Definition& sourceResourcesNormal();
const Log::Definition& sessionResourcesFull();
const Log::Definition& internalSessionResourcesUnavailable();
const Log::Definition& invalidSessionInCutThrough();
const Log::Definition& aclHwResourceFull();

}  // namespace Orb::MirroringLog
