// Non-aging addresses shared by several owners.
#include "Orb/OrbNonAgingMacSm.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

namespace {

using Bridging::MacVlanPair;

class NonAgingTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<Orb::OrbCommonSmData> ocsd = Orb::orbCommonSmDataFactory("ocsd");
  Vex::Ptr<Orb::NonAgingConfigDir> dir = Vex::make<Orb::NonAgingConfigDir>("dir");
  Vex::Ptr<Orb::NonAgingStatus> status = Vex::make<Orb::NonAgingStatus>("status");
  MacVlanPair key{Nexo::EthAddr(7), Bridging::VlanId(10)};
  OrbTypes::MacAddressTableEntry entry{
      key, Nexo::IntfId("Ethernet1"), Bridging::EntryType::entryConfiguredDynamic, {}, 0.0};
};

TEST_F(NonAgingTest, KeyStaysWhileAnyOwnerHoldsIt) {
  auto sm = Orb::nonAgingConfigDirSmFactory(ocsd, dir, status);
  dir->configIs("a")->macEntriesIs(key, entry);
  dir->configIs("b")->macEntriesIs(key, entry);
  EXPECT_EQ(sm->macEntriesRef(key), 2u);
  dir->config("a")->macEntriesDel(key);
  EXPECT_TRUE(status->macEntriesHas(key));
  EXPECT_EQ(sm->macEntriesRef(key), 1u);
  dir->config("b")->macEntriesDel(key);
  EXPECT_FALSE(status->macEntriesHas(key));
  EXPECT_EQ(sm->macEntriesRef(key), 0u);
}

TEST_F(NonAgingTest, DisablingOrRemovingAnOwnerReleasesItsKeys) {
  dir->configIs("a")->macEntriesIs(key, entry);
  auto sm = Orb::nonAgingConfigDirSmFactory(ocsd, dir, status);  // picks up what is there
  EXPECT_TRUE(status->macEntriesHas(key));
  dir->config("a")->enabledIs(false);
  EXPECT_FALSE(status->macEntriesHas(key));
  dir->config("a")->enabledIs(true);
  EXPECT_TRUE(status->macEntriesHas(key));
  dir->configDel("a");
  EXPECT_FALSE(status->macEntriesHas(key));
  EXPECT_TRUE(sm->configSm().empty());
}

TEST_F(NonAgingTest, DestroyingTheMachineCleansUp) {
  {
    auto sm = Orb::nonAgingConfigDirSmFactory(ocsd, dir, status);
    dir->configIs("a")->macEntriesIs(key, entry);
  }
  EXPECT_FALSE(status->macEntriesHas(key));
}

TEST_F(NonAgingTest, ReleasingAKeyNobodyHoldsIsABrokenInvariant) {
  auto sm = Orb::nonAgingConfigDirSmFactory(ocsd, dir, status);
  EXPECT_DEATH(sm->delNonAgingEntry(key), "macEntriesRef\\( key \\)");
}

}  // namespace
