// Trace handles of the layer-3 state machines.
#include "Orb/OrbTrace.h"
#include "Orb/OrbCommon.h"

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

TEST(OrbTrace, LevelsComeFromTheSharedContext) {
  Orb::BlipLevels levels;
  Blip::Handle* handle = nullptr;
  Orb::initializeOrbL3BlipHandle(handle, "OrbSubIntfSmTraceTest", 16, false);
  handle->levelIs(levels.orbSubIntfSm);
  EXPECT_EQ(handle->level(), 8u);
  EXPECT_TRUE(handle->enabled(8));
  EXPECT_FALSE(handle->enabled(9));
}

}  // namespace
