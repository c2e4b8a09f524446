// Trace handles of the layer-3 state machines and their levels.
#include "Orb/OrbTrace.h"
#include "Orb/OrbCommon.h"
#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

TEST(OrbTrace, UniqueNameUsesTheAgentProcessName) {
  setenv("AGENT_PROCESS_NAME", "Orb-Agent", 1);
  EXPECT_EQ(Orb::orbL3BlipUniqueName("OrbArpSm"), "OrbArpSm-Orb-Agent");
  Blip::Handle* handle = nullptr;
  Orb::initializeOrbL3BlipHandleUniqueName(handle, "OrbArpSm", 1024, true);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->module(), "OrbArpSm-Orb-Agent");
  unsetenv("AGENT_PROCESS_NAME");
}

TEST(OrbTrace, UniqueNameFallsBackToThePid) {
  unsetenv("AGENT_PROCESS_NAME");
  EXPECT_EQ(Orb::orbL3BlipUniqueName("OrbPwSm"), "OrbPwSm-" + std::to_string(::getpid()));
}

// Layer-3 machines write at the levels the shared context holds, their
// per-process handles too, and follow when the levels change; other
// modules keep the levels they were given.
TEST(OrbTrace, LayerThreeMachinesWriteAtTheSharedContextsLevels) {
  Vex::EventLoop loop;
  auto ocsd = Orb::orbCommonSmDataFactory("ocsd");
  setenv("AGENT_PROCESS_NAME", "TraceTest", 1);
  Blip::Handle* subIntf = nullptr;
  Blip::Handle* arp = nullptr;
  Orb::initializeOrbL3BlipHandle(subIntf, "OrbSubIntfSm", 16, false);
  Orb::initializeOrbL3BlipHandleUniqueName(arp, "OrbArpSm", 16, true);
  unsetenv("AGENT_PROCESS_NAME");
  Blip::Handle& stp = Orb::orbTraceHandle("OrbStpSm");
  stp.levelIs(5);
  Orb::orbL3BlipLevelsIs(*ocsd);
  EXPECT_EQ(subIntf->level(), 8u);
  EXPECT_TRUE(subIntf->enabled(8));
  EXPECT_FALSE(subIntf->enabled(9));
  EXPECT_EQ(arp->level(), 2u);
  auto levels = ocsd->blipLevels();
  levels.orbArpSm = 6;
  levels.orbSubIntfSm = 1;
  ocsd->blipLevelsIs(levels);
  Orb::orbL3BlipLevelsIs(*ocsd);
  EXPECT_EQ(arp->level(), 6u);
  EXPECT_FALSE(subIntf->enabled(2));
  EXPECT_EQ(stp.level(), 5u);
  EXPECT_FALSE(Orb::orbL3BlipLevel(levels, "OrbStpSm"));
  EXPECT_FALSE(Orb::orbL3BlipLevel(levels, "OrbArpSmX"));
}

}  // namespace
