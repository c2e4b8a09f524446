// The verification facility: compares what the software holds with what the
// hardware holds, on request.
//
// Shape:
// - VerifyData (kept in the shared context as `verifyData`, named "verify")
//   holds the request: `requestId` is bumped to ask for a run; `verifyRequired`
//   names the checks that must take part ("vr" is the root entry, present
//   from start-up); `output` maps each check's name to the lines it wrote
//   (an empty list means the check found nothing wrong); `completedRequestId`
//   tells which request the outputs answer.
// - A feature machine that can verify itself derives from Verifiable and
//   registers with the VerifySm (`ocsd->verifySm()`); on each request its
//   handleVerify() appends one line per mismatch to the report.
#pragma once

#include "Orb/OrbBaseHelper.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Orb {

class OrbCommonSmData;

class VerifyData : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<VerifyData> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(RequestId)
    VEX_HANDLER(CompletedRequestId)
    VEX_KEY_HANDLER(VerifyRequired, std::string)
    VEX_KEY_HANDLER(Output, std::string)
  };
  using Entity::Entity;

  VEX_COUNTER(std::uint32_t, requestId, RequestId)
  VEX_ATTR(std::uint32_t, completedRequestId, CompletedRequestId, 0)
  VEX_ORDERED_COLLECTION(std::string, bool, verifyRequired, VerifyRequired)
  VEX_ORDERED_COLLECTION(std::string, std::vector<std::string>, output, Output)
};

Vex::Ptr<VerifyData> verifyDataFactory(const std::string& name);

// Lines a check writes during one verification run.
class VerifyReport {
 public:
  void mismatch(std::string line) { lines_.push_back(std::move(line)); }
  const std::vector<std::string>& lines() const { return lines_; }

 private:
  std::vector<std::string> lines_;
};

class Verifiable {
 public:
  virtual ~Verifiable() = default;
  virtual std::string verifyName() const = 0;
  virtual void handleVerify(VerifyReport& report) = 0;
};

class VerifySm : public OrbBaseSm {
 public:
  VerifySm(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<VerifyData>& verifyData);
  ~VerifySm() override;
  const char* fwkType() const override { return "Orb::VerifySm"; }

  // A registered check takes part in every run until it leaves; a machine
  // leaves in its destructor.
  void verifiableIs(Verifiable* check);
  void verifiableDel(Verifiable* check);

  // Runs every check for the current request, writes the outputs and
  // completes the request.
  void handleRequestId();

 private:
  class RequestReactor : public Vex::Reactor<VerifyData, VerifySm> {
   public:
    using Reactor::Reactor;
    VEX_REACT(RequestId, handleRequestId)
  };

  Vex::Ptr<VerifyData> verifyData_;
  std::vector<Verifiable*> checks_;
  RequestReactor requestReactor_{this};
};

Vex::Ptr<VerifySm> verifySmFactory(const Vex::Ptr<OrbCommonSmData>& ocsd, const Vex::Ptr<VerifyData>& verifyData);

}  // namespace Orb
