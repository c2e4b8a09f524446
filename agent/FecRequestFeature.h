// Hardware FEC id requests: the agent as a requester (what a pseudowire,
// MPLS or EVPN agent would publish in shared memory: a FEC and a request row
// per FEC, per source; and the pseudowire agent's encapsulation FEC per
// pseudowire adjacency group) and, unless it is left to `orb-agent fecd` in another
// process, the soft chip's allocator that answers them. Commands add and
// withdraw requests, show them with their answers, wait for an allocator in
// another process, and size or fault the chip's allocations.
#pragma once

#include "Orb/OrbFecRequest.h"
#include "agent/Feature.h"
#include "chip/softchip/SoftFecAllocator.h"

#include <map>
#include <memory>
#include <string>

namespace Agent {

class FecRequestFeature : public Feature {
 public:
  explicit FecRequestFeature(const AgentCore& core);
  void registerCommands() override;

  const std::string& pondPrefix() const { return prefix_; }
  const Vex::Ptr<Orb::AllFecIdToHwFecIdRequestResponse>& all() const { return all_; }
  // nullptr when requests are answered in another process.
  SoftChip::SoftFecAllocator* allocator() const { return allocator_.get(); }
  // Requests whose answer has not come (or answers an older request).
  std::size_t unanswered() const;

 private:
  Orb::FecIdToHwFecIdRequest& requester(Orb::FecRequestSource source);
  void requestIs(const Args& args);
  void requestDel(const Args& args);
  void waitForAnswers(const Args& args);
  void pwGroupIs(const Args& args);
  void pwGroupDel(const Args& args);
  void showPwGroups(Args args, std::ostream& out) const;
  Orb::PwEncapFecRequester& pwRequester();
  void show(Args args, std::ostream& out) const;

  std::string prefix_;
  Vex::Ptr<Orb::AllFecIdToHwFecIdRequestResponse> all_;
  Vex::Ptr<SoftChip::SoftFecAllocator> allocator_;
  std::unique_ptr<Orb::PwEncapFecRequester> pwRequester_;
  std::map<Orb::PwAdjGroupId, Orb::EncapFecId> pwGroups_;
  double lastRequestId_ = 0;
};

// "orb-PID-" for this process's first agent, "orb-PID-N-" for the Nth: a
// prefix no other agent uses.
std::string processPondPrefix();
// A source as commands name it ("pw-local" for fecRequestPwLocal).
std::string fecRequestSourceWord(Orb::FecRequestSource source);
Orb::FecRequestSource fecRequestSourceArg(const std::string& text);

}  // namespace Agent
