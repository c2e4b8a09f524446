// The soft chip's adjacency table behind the adjacency helper: one entry
// per layer-2 adjacency, holding the next hops it forwards to. A full table
// or a planned fault refuses an add with a status; nothing else changes.
#pragma once

#include "Orb/OrbHelper.h"
#include "chip/softchip/SoftChip.h"

#include <functional>
#include <map>
#include <vector>

namespace Orb {
// How the table names an adjacency in a dump (found by argument lookup).
inline std::string softKeyText(const L2AdjKey& key) { return key.stringValue(); }
}  // namespace Orb

namespace SoftChip {

struct HwNextHop {
  Nexo::EthAddr mac;
  Nexo::IntfId l2Intf;
  Nexo::IntfId l3Intf;
  std::uint32_t weight = 0;
  bool resolved = false;
  auto operator<=>(const HwNextHop&) const = default;
};

struct HwAdj {
  std::vector<HwNextHop> nextHops;
};

class SoftAdjTable : public SoftTableOf<Orb::L2AdjKey, HwAdj> {
 public:
  static constexpr const char* tableName = "adjacency";
  explicit SoftAdjTable(SoftChip& chip) : SoftTableOf(chip, tableName) {}

 protected:
  void dumpEntry(JsonWriter& writer, const HwAdj& adj) const override;
};

class SoftAdjHelper : public OrbHelper::OrbHelperL2Adj {
 public:
  static constexpr std::uint32_t addFailed = 3;

  explicit SoftAdjHelper(const Vex::Ptr<SoftChip>& chip);
  ~SoftAdjHelper() override;

  const SoftAdjTable& table() const { return table_; }
  std::uint64_t refused() const { return refused_; }

  std::uint32_t doAddAdjacency(const Orb::L2AdjKey& key, const Orb::NextHopCollection& nextHops) override;
  void doRemoveAdjacency(const Orb::L2AdjKey& key) override;

  // Called after an adjacency is written or removed, so that what the chip
  // derives from it (resilient slots) follows.
  void adjacencyWrittenIs(std::function<void(const Orb::L2AdjKey&)> written) { written_ = std::move(written); }

 private:
  std::function<void(const Orb::L2AdjKey&)> written_;
  Vex::Ptr<SoftChip> chip_;
  SoftAdjTable table_;
  std::uint64_t refused_ = 0;
};

}  // namespace SoftChip
