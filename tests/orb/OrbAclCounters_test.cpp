// Rule counters read from the chip into the lists' status: the periodic
// poller's bursts and bookmark, the on-request update of one list, and
// clearing.
#include "Orb/OrbAclSm.h"
#include "Orb/OrbCommon.h"
#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

using namespace Orb;
using Acl::AclAction;
using Acl::AclDirection;

// A chip on which every rule matched `perPoll` packets since each poll,
// and which remembers how often each instance's counters were read.
class CountingAclHelper : public OrbHelper::AclHelper {
 public:
  std::uint64_t perPoll = 1;
  std::uint64_t unit1PerPoll = 0;
  std::uint32_t refuseCommits = 0;
  std::map<std::string, std::uint32_t> reads;  // by instance

  bool createIpAclSubrule(Acl::AclType, const AclRule&, const AclSubrule&, std::uint32_t, AclData&) override {
    return true;
  }
  bool createIpFragRule(AclData&, const AclRule&, const AclSubrule&, std::uint32_t) override { return true; }
  bool createMacAclRule(const AclRule&, const AclSubrule&, std::uint32_t, AclData&) override { return true; }
  bool createFinalAclRule(Acl::AclType, AclData&, const AclRule&, const AclSubrule&) override { return true; }
  AclHwResult commitAcl(AclData&) override {
    if (refuseCommits) {
      --refuseCommits;
      return {AclHwStatus::outOfTcam, "Unit0"};
    }
    return {AclHwStatus::succeeded, "Unit0"};
  }
  void removeAcl(AclData&) override {}
  bool addIntfToAcl(const IntfPairKey&, AclData&, AclDataStatus&) override { return true; }
  void removeIntfFromAcl(const IntfPairKey&, AclData&, bool) override {}
  std::vector<std::string> counterChips() override { return {"Unit0", "Unit1"}; }
  std::uint64_t aclRuleCountersSinceLastPoll(const AclData& data, const std::string& chip, std::uint32_t) override {
    if (chip == "Unit0") ++reads[data.key().stringValue()];
    return chip == "Unit0" ? perPoll : unit1PerPoll;
  }
};

class AclCountersTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  Vex::Ptr<OrbCommonSmData> ocsd = orbCommonSmDataFactory("ocsd");
  Vex::Ptr<CountingAclHelper> helper = Vex::make<CountingAclHelper>();
  Vex::Ptr<Acl::Config> config = Vex::make<Acl::Config>("aclConfig");
  Vex::Ptr<Acl::Status> status = Vex::make<Acl::Status>("aclStatus");
  Vex::Ptr<AclSm> sm = aclSmFactory({ocsd, helper, config, status, {}, {}});
  std::uint32_t nextId = 1;

  Vex::Ptr<Acl::AclConfig> list(const std::string& name, std::uint32_t rules) {
    auto acl = config->aclTypeConfigIs(Acl::ip())->aclIs(name);
    for (std::uint32_t seq = 1; seq <= rules; ++seq) {
      Acl::IpFilter filter;
      filter.protocol = 17;
      filter.destinationPort = {Acl::PortOp::eq, static_cast<std::uint16_t>(seq), 0};
      acl->ipRuleBySequenceIs(seq * 10, {AclAction::permit, filter, nextId++});
    }
    acl->versionInc();
    return acl;
  }
  void apply(const std::string& intf, const std::string& name, AclDirection direction = AclDirection::aclIn) {
    auto intfConfig = config->aclIntfTypeConfigIs(Acl::ip());
    auto bindings = intfConfig->intf(Nexo::IntfId(intf));
    (direction == AclDirection::aclIn ? bindings.in : bindings.out) = name;
    intfConfig->intfIs(Nexo::IntfId(intf), bindings);
  }
  std::uint64_t counter(const std::string& name, std::uint32_t seq) {
    auto listStatus = status->aclStatus({Acl::ip(), name});
    return listStatus ? listStatus->ruleStatus(seq) : 0;
  }
  AclCountersPoller& poller() { return sm->countersPoller(); }
};

TEST_F(AclCountersTest, TwoHundredFiftyRulesPollInBurstsOfOneHundredOneHundredFifty) {
  list("big", 250);
  apply("Ethernet1", "big");
  poller().handleTime();
  EXPECT_EQ(poller().lastRunRules(), 100u);
  EXPECT_TRUE(poller().bookmark().valid);
  EXPECT_EQ(poller().bookmark().seqId, 1000u);
  // The walk goes on at the loop's next turn, not a period later.
  EXPECT_EQ(poller().clock()->timeMin(), Vex::now());
  poller().handleTime();
  EXPECT_EQ(poller().lastRunRules(), 100u);
  EXPECT_TRUE(poller().bookmark().valid);
  poller().handleTime();
  EXPECT_EQ(poller().lastRunRules(), 50u);
  EXPECT_FALSE(poller().bookmark().valid);
  EXPECT_EQ(poller().clock()->timeMin(), Vex::now() + AclCountersPoller::defaultPeriod);
  // Every rule read exactly once, the final rule with the last burst.
  for (std::uint32_t seq = 10; seq <= 2500; seq += 10) ASSERT_EQ(counter("big", seq), 1u) << seq;
  EXPECT_EQ(counter("big", Acl::finalRuleSeq), 1u);
  EXPECT_EQ(helper->reads["ip big in"], 251u);
}

TEST_F(AclCountersTest, EveryPeriodAddsWhatTheChipCountedPerChipAndInTotal) {
  list("web", 3);
  apply("Ethernet1", "web");
  loop.advance(AclCountersPoller::defaultPeriod);
  EXPECT_EQ(counter("web", 20), 1u);
  helper->perPoll = 5;
  loop.advance(AclCountersPoller::defaultPeriod);
  EXPECT_EQ(counter("web", 20), 6u);
  auto listStatus = status->aclStatus({Acl::ip(), "web"});
  EXPECT_EQ(listStatus->ruleStatusPerChip({20, "Unit0"}), 6u);
  EXPECT_EQ(listStatus->ruleStatusPerChip({20, "Unit1"}), 0u);
  // A shorter period takes effect at once.
  poller().periodIs(1.0);
  loop.advance(1.0);
  EXPECT_EQ(counter("web", 20), 11u);
}

TEST_F(AclCountersTest, AnInstanceTheChipRefusedContributesNothing) {
  list("good", 2);
  list("refused", 2);
  apply("Ethernet1", "good");
  helper->refuseCommits = 1;
  apply("Ethernet2", "refused");
  ASSERT_FALSE(status->aclStatus({Acl::ip(), "refused"})->instanceStatus({AclDirection::aclIn, {}}).installed);
  loop.advance(AclCountersPoller::defaultPeriod);
  EXPECT_EQ(counter("good", 10), 1u);
  EXPECT_EQ(counter("refused", 10), 0u);
  EXPECT_EQ(helper->reads.count("ip refused in"), 0u);
}

TEST_F(AclCountersTest, CountersSurviveARebuildOfTheirList) {
  auto acl = list("web", 2);
  apply("Ethernet1", "web");
  loop.advance(AclCountersPoller::defaultPeriod);
  acl->versionInc();
  loop.advance(AclCountersPoller::defaultPeriod);
  EXPECT_EQ(counter("web", 10), 2u);
}

TEST_F(AclCountersTest, AWalkResumesPastAListRemovedUnderItsBookmark) {
  list("a", 150);
  list("b", 150);
  apply("Ethernet1", "a");
  apply("Ethernet2", "b");
  poller().handleTime();
  ASSERT_EQ(poller().bookmark().aclName, "a");
  config->aclTypeConfig(Acl::ip())->aclDel("a");
  poller().handleTime();
  EXPECT_EQ(poller().lastRunRules(), 100u);
  EXPECT_EQ(counter("b", 10), 1u);
  poller().handleTime();
  EXPECT_EQ(poller().lastRunRules(), 50u);
  EXPECT_FALSE(poller().bookmark().valid);
}

TEST_F(AclCountersTest, AnUpdateOnRequestReadsTheListsIngressInstancesAndStampsTheTime) {
  auto acl = list("web", 250);
  apply("Ethernet1", "web");
  apply("Ethernet2", "web", AclDirection::aclOut);
  loop.advance(3.0);
  acl->counterUpdateRequestInc();
  loop.runUntilIdle();
  EXPECT_EQ(counter("web", 2500), 1u);
  EXPECT_EQ(helper->reads["ip web in"], 251u);
  EXPECT_EQ(helper->reads.count("ip web out"), 0u);
  EXPECT_EQ(status->aclStatus({Acl::ip(), "web"})->counterUpdateTime(), 3.0);
}

TEST_F(AclCountersTest, ClearingZeroesTheCountersAndDropsWhatWasNotYetRead) {
  auto acl = list("web", 2);
  apply("Ethernet1", "web");
  loop.advance(AclCountersPoller::defaultPeriod);
  ASSERT_EQ(counter("web", 10), 1u);
  const std::uint32_t readsBefore = helper->reads["ip web in"];
  acl->clearCounterInc();
  // Two rules and the final one, read and thrown away.
  EXPECT_EQ(helper->reads["ip web in"], readsBefore + 3);
  EXPECT_EQ(counter("web", 10), 0u);
  EXPECT_TRUE(status->aclStatus({Acl::ip(), "web"})->ruleStatusPerChip().empty());
  helper->perPoll = 0;
  loop.advance(AclCountersPoller::defaultPeriod);
  EXPECT_EQ(counter("web", 10), 0u);
}

TEST_F(AclCountersTest, AChipMarkedDirtyLosesItsShareAtTheEndOfTheNextUpdate) {
  helper->unit1PerPoll = 1;
  auto acl = list("web", 1);
  apply("Ethernet1", "web");
  loop.advance(AclCountersPoller::defaultPeriod);
  ASSERT_EQ(counter("web", 10), 2u);
  auto* configSm = sm->aclTypeConfigSm(Acl::ip())->aclConfigSm("web");
  configSm->dirtyChipIs("Unit1");
  acl->counterUpdateRequestInc();
  loop.runUntilIdle();
  // Unit0 counted once more; Unit1's count is gone, its new packets too.
  auto listStatus = status->aclStatus({Acl::ip(), "web"});
  EXPECT_EQ(counter("web", 10), 2u);
  EXPECT_EQ(listStatus->ruleStatusPerChip({10, "Unit0"}), 2u);
  EXPECT_FALSE(listStatus->ruleStatusPerChipHas({10, "Unit1"}));
  EXPECT_TRUE(configSm->dirtyChips().empty());
  loop.advance(AclCountersPoller::defaultPeriod);
  EXPECT_EQ(listStatus->ruleStatusPerChip({10, "Unit1"}), 1u);
  EXPECT_EQ(counter("web", 10), 4u);
}

TEST(AclCountersPollingBookmark, PrintsAsAValue) {
  AclCountersPollingBookmark bookmark{true, Acl::ip(), "web", {Acl::ip(), "web", AclDirection::aclIn, {}}, 20};
  const std::string text = Vex::toStrep(bookmark);
  EXPECT_EQ(text.rfind("Value('Orb::AclCountersPollingBookmark', ** {'valid': True, 'aclType': ", 0), 0u) << text;
  EXPECT_NE(text.find("'aclName': 'web'"), std::string::npos) << text;
  EXPECT_NE(text.find("'seqId': 20})"), std::string::npos) << text;
}

}  // namespace
