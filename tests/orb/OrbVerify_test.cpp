// The verification facility: requests run every registered check.
#include "Orb/OrbCommon.h"

#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>

namespace {

class Check : public Orb::Verifiable {
 public:
  explicit Check(std::string name, std::vector<std::string> lines = {}) : name_(std::move(name)), lines_(lines) {}
  std::string verifyName() const override { return name_; }
  void handleVerify(Orb::VerifyReport& report) override {
    ++runs;
    for (const auto& line : lines_) report.mismatch(line);
  }
  int runs = 0;

 private:
  std::string name_;
  std::vector<std::string> lines_;
};

TEST(Verify, RequestRunsEveryCheckAndCompletes) {
  Vex::EventLoop loop;
  auto ocsd = Orb::orbCommonSmDataFactory("ocsd");
  Check clean("vlan"), dirty("mac", {"00:00:00:00:00:01 vlan 10 missing in hardware"});
  ocsd->verifySm()->verifiableIs(&clean);
  ocsd->verifySm()->verifiableIs(&dirty);
  ocsd->verifySm()->verifiableIs(&dirty);  // once only
  auto data = ocsd->verifyData();
  data->requestIdInc();
  EXPECT_EQ(clean.runs, 1);
  EXPECT_EQ(dirty.runs, 1);
  EXPECT_EQ(data->completedRequestId(), 1u);
  EXPECT_TRUE(data->output("vlan").empty());
  ASSERT_EQ(data->output("mac").size(), 1u);
  ocsd->verifySm()->verifiableDel(&dirty);
  data->requestIdInc();
  EXPECT_EQ(dirty.runs, 1);
  EXPECT_EQ(clean.runs, 2);
  EXPECT_EQ(data->completedRequestId(), 2u);
}

}  // namespace
