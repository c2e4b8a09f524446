#include "Orb/OrbVerify.h"

#include <algorithm>

namespace Orb {

Vex::Ptr<VerifyData> verifyDataFactory(const std::string& name) { return Vex::make<VerifyData>(name); }

VerifySm::VerifySm(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<VerifyData>& verifyData)
    : OrbBaseSm(ocsd), verifyData_(verifyData) {
  requestReactor_.notifierIs(verifyData);
  initializedIs(true);
}

VerifySm::~VerifySm() {
  vexDoZombieReactors(true);
  requestReactor_.notifierIs(nullptr);
}

void VerifySm::verifiableIs(Verifiable* check) {
  if (std::find(checks_.begin(), checks_.end(), check) == checks_.end()) checks_.push_back(check);
}

void VerifySm::verifiableDel(Verifiable* check) { std::erase(checks_, check); }

void VerifySm::handleRequestId() {
  // A check may leave while another runs; walk a copy.
  auto checks = checks_;
  for (Verifiable* check : checks) {
    if (std::find(checks_.begin(), checks_.end(), check) == checks_.end()) continue;
    VerifyReport report;
    check->handleVerify(report);
    verifyData_->outputIs(check->verifyName(), report.lines());
  }
  verifyData_->completedRequestIdIs(verifyData_->requestId());
}

Vex::Ptr<VerifySm> verifySmFactory(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<VerifyData>& verifyData) {
  return Vex::make<VerifySm>(ocsd, verifyData);
}

}  // namespace Orb
