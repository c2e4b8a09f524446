// The MAC table across an agent restart: the learned hosts of `fdbStatus`
// saved as a JSON document, and read back at start so that forwarding
// status is there before the hardware has learned everything again. The MAC
// address machine then reconciles the restored hosts with the hardware.
//
// The document: {"fdbStatus": {"<filtering id>": [["<mac>", "<intf>"], ...]}}
// with the address as three dot-separated 16-bit hexadecimal groups
// ("0200.12ab.cdef") and the interface by name. A restored host is dynamic,
// on the saved interface, with no moves and the restore time as its time.
#pragma once

#include "platform/hotup/HotupPStoreHelper.h"
#include "platform/model/MacModels.h"

#include <string>

namespace Orb {

class MacAddrSmPStoreHelper : public Hotup::HotupPStoreHelper {
 public:
  static constexpr const char* pStoreName = "OrbMacAddrSm";
  explicit MacAddrSmPStoreHelper(const Vex::Ptr<Bridging::Status>& bridgingStatus)
      : HotupPStoreHelper(pStoreName), bridgingStatus_(bridgingStatus) {}
  const Vex::Ptr<Bridging::Status>& bridgingStatus() const { return bridgingStatus_; }

 protected:
  // A document of the wrong form is a broken invariant and stops the
  // process; a filtering id that is not a decimal number raises the
  // conversion error. Nothing restored before is rolled back.
  void doRestore(const rapidjson::Document& document) override;

 private:
  Vex::Ptr<Bridging::Status> bridgingStatus_;
};

Vex::Ptr<MacAddrSmPStoreHelper> macAddrSmPStoreHelperFactory(const Vex::Ptr<Bridging::Status>& bridgingStatus);

// The document the helper restores: every dynamic learned host of
// `fdbStatus`, by filtering id, in key order.
std::string macAddrSmPStoreDocument(const Bridging::Status& status);

// "0200.12ab.cdef" for 02:00:12:ab:cd:ef; false when `text` does not read as
// three groups of at most four hexadecimal digits.
std::string pStoreAddrText(const Nexo::EthAddr& addr);
bool pStoreAddrParse(const char* text, Nexo::EthAddr& addr);

}  // namespace Orb
