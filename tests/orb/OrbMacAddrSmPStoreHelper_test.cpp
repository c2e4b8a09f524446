// Saving the learned MAC table before a restart and restoring it after.
#include "Orb/OrbMacAddrSmPStoreHelper.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

namespace {

using Bridging::EntryType;
using Bridging::Fid;
using Bridging::LearnedHost;
using Bridging::MacVlanPair;
using Bridging::VlanId;
using Nexo::EthAddr;
using Nexo::IntfId;

class PStoreTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<Bridging::Status> status = Vex::make<Bridging::Status>("status");
  Vex::Ptr<Orb::MacAddrSmPStoreHelper> helper = Orb::macAddrSmPStoreHelperFactory(status);

  void host(std::uint64_t addr, int vlan, const char* intf, EntryType type = EntryType::entryDynamic) {
    status->learnedHostIs(MacVlanPair{EthAddr(addr), VlanId(vlan)},
                          LearnedHost{IntfId(intf), type, Keel::Seqno32(7), 1.5});
  }
};

TEST_F(PStoreTest, SavesDynamicHostsByFilteringIdAndRestoresThem) {
  EXPECT_EQ(helper->storeName(), "OrbMacAddrSm");
  host(0x02001234abcd, 20, "Ethernet2");
  host(0x001c73000001, 10, "Port-Channel5");
  host(0x001c73000099, 10, "Ethernet4", EntryType::entryStatic);  // configuration brings it back
  std::string document = Orb::macAddrSmPStoreDocument(*status);
  EXPECT_EQ(document,
            R"({"fdbStatus":{"10":[["001c.7300.0001","Port-Channel5"]],"20":[["0200.1234.abcd","Ethernet2"]]}})");

  auto restored = Vex::make<Bridging::Status>("restored");
  loop.advance(42);
  Orb::macAddrSmPStoreHelperFactory(restored)->restore(document);
  EXPECT_EQ(restored->learnedHostCount(), 2u);
  const auto* row = restored->learnedHost(MacVlanPair{EthAddr(0x001c73000001), VlanId(10)});
  ASSERT_TRUE(row);
  EXPECT_EQ(row->intf, IntfId("Port-Channel5"));
  // What the saved document does not carry starts afresh.
  EXPECT_EQ(row->entryType, EntryType::entryDynamic);
  EXPECT_EQ(row->moves, Keel::Seqno32());
  EXPECT_DOUBLE_EQ(row->lastMoveTime, 42.0);
}

TEST_F(PStoreTest, AddressGroupsAreSixteenBitWordsWithOptionalLeadingZeros) {
  helper->restore(R"({"fdbStatus":{"10":[["0200.12ab.cdef","Ethernet1"],["2.12ab.cdef","Ethernet2"]]}})");
  EXPECT_EQ(status->learnedHost(MacVlanPair{EthAddr("02:00:12:ab:cd:ef"), VlanId(10)})->intf, IntfId("Ethernet1"));
  EXPECT_EQ(status->learnedHost(MacVlanPair{EthAddr("00:02:12:ab:cd:ef"), VlanId(10)})->intf, IntfId("Ethernet2"));
  EthAddr addr;
  EXPECT_FALSE(Orb::pStoreAddrParse("0200.12ab", addr));
  EXPECT_FALSE(Orb::pStoreAddrParse("10000.0.0", addr));
  EXPECT_FALSE(Orb::pStoreAddrParse("0200.12ab.cdefx", addr));
}

TEST_F(PStoreTest, EmptyListMakesTheFilteringIdWithNoHosts) {
  helper->restore(R"({"fdbStatus":{"30":[]}})");
  ASSERT_TRUE(status->fdbStatus(Fid(30)));
  EXPECT_EQ(status->fdbStatus(Fid(30))->learnedHostSize(), 0u);
}

TEST_F(PStoreTest, BadFilteringIdsRaiseTheDecimalConversionErrors) {
  EXPECT_THROW(helper->restore(R"({"fdbStatus":{"ten":[]}})"), std::invalid_argument);
  EXPECT_THROW(helper->restore(R"({"fdbStatus":{"99999999999":[]}})"), std::out_of_range);
  EXPECT_THROW(helper->restore(R"({"fdbStatus":{"70000":[]}})"), Vex::RangeError);
}

TEST_F(PStoreTest, TextThatIsNotJsonRestoresNothing) {
  try {
    helper->restore(R"({"fdbStatus":{"10":[["0200.12ab.cdef","Ethernet1"]]})");
    FAIL() << "no error";
  } catch (const Hotup::StoreError& e) {
    EXPECT_NE(std::string(e.what()).find("store OrbMacAddrSm"), std::string::npos) << e.what();
  }
  EXPECT_EQ(status->fdbStatusSize(), 0u);
}

TEST_F(PStoreTest, FilesAreWrittenWholeAndAMissingFileIsAFirstStart) {
  auto path = std::filesystem::temp_directory_path() / fmt::format("orb-pstore-{}.json", ::getpid());
  std::filesystem::remove(path);
  EXPECT_FALSE(helper->restoreFromFile(path.string()));
  host(0x001c73000001, 10, "Ethernet1");
  Hotup::writeStoreFile(path.string(), Orb::macAddrSmPStoreDocument(*status));
  EXPECT_FALSE(std::filesystem::exists(path.string() + ".tmp"));
  auto restored = Vex::make<Bridging::Status>("restored");
  EXPECT_TRUE(Orb::macAddrSmPStoreHelperFactory(restored)->restoreFromFile(path.string()));
  EXPECT_EQ(restored->learnedHostCount(), 1u);
  std::filesystem::remove(path);
  EXPECT_THROW(Hotup::writeStoreFile("/nonexistent-dir/store.json", "{}"), Hotup::StoreError);
}

using PStoreDeathTest = PStoreTest;

TEST_F(PStoreDeathTest, DocumentsOfTheWrongFormStop) {
  EXPECT_DEATH(helper->restore(R"({"macTable":{}})"), "key == \"fdbStatus\"");
  EXPECT_DEATH(helper->restore(R"({"fdbStatus":[]})"), "fdbEntries.GetType\\(\\) == rapidjson::kObjectType");
  EXPECT_DEATH(helper->restore(R"([])"), "rapidjson: IsObject\\(\\)");
  EXPECT_DEATH(helper->restore(R"({"fdbStatus":{"10":{}}})"), "rapidjson: IsArray\\(\\)");
  EXPECT_DEATH(helper->restore(R"({"fdbStatus":{"10":[[1,"Ethernet1"]]}})"), "rapidjson: IsString\\(\\)");
  EXPECT_DEATH(helper->restore(R"({"fdbStatus":{"10":[["0200.12ab.cdef"]]}})"), "fields.Size\\(\\) >= 2");
  EXPECT_DEATH(helper->restore(R"({"fdbStatus":{"10":[["not-an-address","Ethernet1"]]}})"),
               "pStoreAddrParse\\(addrText, addr\\)");
}

}  // namespace
