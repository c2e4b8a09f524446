// Every value type's printed form (Vex::fromStrep): the input is tried as
// each type in turn, and what parses must print and parse back the same.
#include "Orb/OrbAsyncCommon.h"
#include "Orb/OrbChipProgrammer.h"
#include "Orb/OrbCommonTypes.h"
#include "Orb/OrbInternalL3Types.h"
#include "Orb/OrbL3Types.h"
#include "Orb/OrbStpSm.h"
#include "platform/model/BridgingConfig.h"
#include "platform/model/MacModels.h"
#include "platform/model/MacTypes.h"
#include "platform/model/MlagStatus.h"
#include "platform/model/Topology.h"
#include "platform/model/VlanPhyIntfStatus.h"
#include "platform/types/Bridging.h"
#include "platform/types/Keel.h"
#include "platform/types/L3.h"
#include "platform/types/Nexo.h"
#include "tests/fuzz/FuzzCheck.h"

namespace {

// The type a printed value names ("Value('Nexo::IntfId', ..."), empty when
// the text does not start like a value.
std::string namedType(std::string_view input) {
  auto start = input.find_first_not_of(" \t\n\r\f\v");
  if (start == std::string_view::npos || input.substr(start, 7) != "Value('") return "";
  auto end = input.find('\'', start + 7);
  return end == std::string_view::npos ? "" : std::string(input.substr(start + 7, end - start - 7));
}

// Parsing as a type that the text does not name fails at the name, through
// an exception, and exceptions are slow: each value type is tried only on
// text that names it (the first one on every text, for the refusals), each
// enumeration only on text that names no value type.
template <class T>
void tryOne(std::string_view input, const std::string& name, bool first) {
  if constexpr (Vex::ValueType<T>) {
    if (first || name == vexTypeName(static_cast<const T*>(nullptr))) Fuzz::tryStrep<T>(input);
  } else {
    if (name.empty()) Fuzz::tryStrep<T>(input);
  }
}

template <class First, class... Rest>
void tryEach(std::string_view input) {
  std::string name = namedType(input);
  tryOne<First>(input, name, true);
  (tryOne<Rest>(input, name, false), ...);
}

// A collection's own printed form (NextHopCollection::fromString) as well.
void tryNextHopCollection(std::string_view input) {
  Orb::NextHopCollection value;
  try {
    value = Orb::NextHopCollection::fromString(input);
  } catch (const Vex::ParseError&) {
    return;
  }
  std::string printed = value.stringValue();
  Orb::NextHopCollection again;
  try {
    again = Orb::NextHopCollection::fromString(printed);
  } catch (const std::exception& e) {
    Fuzz::fail(std::string("printed collection does not parse back: ") + e.what(), input);
  }
  Fuzz::check(again == value && again.hash() == value.hash(), "printed collection parses to another", input);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string input = Fuzz::text(data, size);
  tryEach<Nexo::IntfId, Nexo::EthAddr, Nexo::EthAddrWithMask, Nexo::IpAddr, Nexo::Ip6Addr, Nexo::IpGenAddr,
          Nexo::Prefix, Nexo::Ip6Prefix, Bridging::VlanId, Bridging::VlanIdOrNone, Bridging::Fid, Bridging::MacVlanPair,
          Bridging::EntryType, Keel::Seqno32, L3::VrfName>(input);
  tryEach<Mlag::IntfStatus, Bridging::LearnedHost, Bridging::HostTableFlushRequest, Bridging::HostTableFlushReply,
          Bridging::Topology::PortState, Bridging::Topology::TopoInstStatus, Bridging::VlanExpansion,
          VlanPhyIntfStatusLib::VlanPhyIntfEntry, L2Rib::ObjTuple, Orb::SwTunnelGroupId, OrbTypes::MacAddressTableEntry,
          OrbTypes::RemoteMacAddressTableEntry>(input);
  tryEach<Orb::MappedVlan, Orb::HwOperationalMode, Orb::OrbPortList, Orb::OrbLagPort, Orb::OrbLagPortList,
          Orb::OrbPortVlanTpidData, Orb::BlipLevels, Orb::RecircFeature, Orb::RecircFeatureSet,
          Orb::FreeMirrorSessionMetadata, Orb::ParityEvent::Key, Orb::ParityEvent, OrbTypes::OrbLagType,
          Orb::AsyncOperationState, Orb::AsyncOperationResult, Orb::MacHwKeyType, Orb::MacEntryKey,
          Orb::MacProgramStatus, Orb::IndirectAccessMacCmdType, Orb::PendingMacOpMetadata>(input);
  tryEach<OrbTypes::ViaBitmap, Orb::NextHopEntryType, Orb::L2AdjKey, Orb::TunnelKey, Orb::TunnelResolutionInfo,
          Orb::NextHopGroupEntryKey, Orb::IpsecTunnelInfo, Orb::EncapInfo, Orb::L2AdjRef, Orb::NextHopGroupInfo,
          Orb::NextHop, Orb::NextHopCollection, Orb::TableTypeBoolSet, Orb::L2AdjStats, Orb::RoutingStatus,
          Orb::AdjInfo, Orb::NextHopInfo, Orb::L3MulticastRequest, Orb::RouteCacheStatus, Orb::BfdStatusInfo,
          Urpf::UrpfStatus, Orb::OrbL3IntfEntry>(input);
  tryNextHopCollection(input);
  return 0;
}
