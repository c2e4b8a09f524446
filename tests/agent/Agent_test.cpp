// orb-agent: scenario replay and the shell's handling of bad input.
#include "agent/Agent.h"
#include "platform/json/Json.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

std::string writeScenario(const std::string& name, const std::string& text) {
  std::string path = ::testing::TempDir() + name;
  std::ofstream(path) << text;
  return path;
}

TEST(AgentScenario, RunsEveryLineOnSimulatedTime) {
  Agent::Agent agent(Agent::Options{});
  std::ostringstream out, err;
  auto path = writeScenario("ok.orb", "# comment\n\necho hello   world\nadvance 2.5 # trailing comment\nshow time\n");
  EXPECT_EQ(agent.runScenario(path, out, err), 0);
  EXPECT_EQ(out.str(), "hello world\n2.500\n");
  EXPECT_EQ(err.str(), "");
}

TEST(AgentScenario, StopsAtTheFirstErrorWithFileAndLine) {
  Agent::Agent agent(Agent::Options{});
  std::ostringstream out, err;
  auto path = writeScenario("bad.orb", "echo one\nadvance soon\necho never\n");
  EXPECT_EQ(agent.runScenario(path, out, err), 1);
  EXPECT_EQ(out.str(), "one\n");
  EXPECT_EQ(err.str(), path + ":2: bad number of seconds 'soon'\n");
}

TEST(AgentScenario, ExpectationsCheckOutputAndStopTheRunWhenUnmet) {
  Agent::Agent agent(Agent::Options{});
  std::ostringstream out, err;
  auto path = writeScenario("expect.orb",
                            "echo a   b\nexpect echo a   b ~ a b\nexpect-not echo a b ~ c\n"
                            "expect echo a b ~ c\necho never\n");
  EXPECT_EQ(agent.runScenario(path, out, err), 1);
  EXPECT_EQ(out.str(), "a b\n");
  EXPECT_EQ(err.str(), path + ":4: expected 'c' in the output of 'echo a b', which was:\na b\n\n");
  std::ostringstream usage;
  EXPECT_THROW(agent.execute("expect echo a", usage), Agent::CommandError);
}

TEST(AgentScenario, AdvanceTakesAtMostAnHourAtATime) {
  Agent::Agent agent(Agent::Options{});
  std::ostringstream out;
  agent.execute("mac aging-time 1", out);
  for (const char* tooFar : {"advance 3600.001", "advance 1e9", "advance 1e300"}) {
    EXPECT_THROW(agent.execute(tooFar, out), Agent::CommandError) << tooFar;
  }
  agent.execute("show time", out);
  EXPECT_EQ(out.str(), "0.000\n");
  agent.execute("advance 3600", out);
  agent.execute("show time", out);
  EXPECT_EQ(out.str(), "0.000\n3600.000\n");
}

TEST(AgentScenario, MissingFileIsAnError) {
  Agent::Agent agent(Agent::Options{});
  std::ostringstream out, err;
  EXPECT_EQ(agent.runScenario("/nonexistent/x.orb", out, err), 1);
  EXPECT_NE(err.str().find("cannot open"), std::string::npos);
}

TEST(AgentShell, ReportsErrorsAndGoesOn) {
  Agent::Agent agent(Agent::Options{});
  std::istringstream in(
      "frobnicate\nadvance\nadvance -1\nshow version extra\nadvance 1\nshow time\nquit\necho after\n");
  std::ostringstream out, err;
  EXPECT_EQ(agent.runShell(in, out, err, false), 0);
  EXPECT_EQ(err.str(),
            "% unknown command 'frobnicate' (try 'help')\n"
            "% usage: advance SECONDS\n"
            "% bad number of seconds '-1'\n"
            "% usage: show version [json]\n");
  EXPECT_EQ(out.str(), "1.000\n");
}

TEST(AgentShell, HelpListsTheCoreCommands) {
  Agent::Agent agent(Agent::Options{});
  std::ostringstream out;
  agent.execute("help", out);
  for (const char* command : {"show version", "show trace", "trace", "advance", "show chip", "quit"}) {
    EXPECT_NE(out.str().find(command), std::string::npos) << command;
  }
}

TEST(AgentShell, ShowChipIsJson) {
  Agent::Agent agent(Agent::Options{});
  std::ostringstream out;
  agent.execute("show chip", out);
  EXPECT_EQ(out.str().front(), '{');
  EXPECT_NE(out.str().find("\"tables\""), std::string::npos);
}

// Each core show prints one JSON document with a trailing `json`.
TEST(AgentShell, CoreShowsTakeJson) {
  Agent::Agent agent(Agent::Options{});
  std::ostringstream ignored;
  agent.execute("vlan 10 add Ethernet1", ignored);
  agent.execute("advance 2.5", ignored);
  agent.execute("trace OrbMacAddrSm 9", ignored);
  agent.execute("chip learn 0000.0000.0001 vlan 10 Ethernet1", ignored);
  auto parse = [&](const std::string& line) {
    std::ostringstream out;
    agent.execute(line, out);
    rapidjson::Document document;
    document.Parse(out.str().c_str());
    EXPECT_FALSE(document.HasParseError()) << line << ": " << out.str();
    return document;
  };
  auto version = parse("show version json");
  EXPECT_STREQ(version["version"].GetString(), ORB_VERSION);
  auto time = parse("show time json");
  EXPECT_EQ(time["time"].GetDouble(), 2.5);
  EXPECT_TRUE(time["simulated"].GetBool());
  auto trace = parse("show trace 3 json");
  EXPECT_EQ(trace["levels"]["OrbMacAddrSm"].GetUint(), 9u);
  ASSERT_EQ(trace["lines"].Size(), 3u);
  EXPECT_NE(std::string(trace["lines"][2].GetString()).find("OrbMacAddrSm"), std::string::npos);
  EXPECT_TRUE(parse("show chip json").HasMember("tables"));
  std::ostringstream out;
  EXPECT_THROW(agent.execute("show time jason", out), Agent::CommandError);
  EXPECT_THROW(agent.execute("show trace json 3", out), Agent::CommandError);
}

TEST(AgentShell, AdvanceRefusedOnRealTime) {
  Agent::Options options;
  options.realTime = true;
  Agent::Agent agent(options);
  std::ostringstream out;
  EXPECT_THROW(agent.execute("advance 1", out), Agent::CommandError);
}

TEST(AgentDemo, BundledDemoRuns) {
  Agent::Agent agent(Agent::Options{});
  std::ostringstream out, err;
  EXPECT_EQ(agent.runScenario(std::string(ORB_SOURCE_DIR) + "/examples/demo.orb", out, err), 0) << err.str();
  EXPECT_NE(out.str().find("hardware:   Ethernet1 Ethernet3(t) Ethernet4(t) Ethernet6 Ethernet7"), std::string::npos);
}

}  // namespace
