// The embedded state database.
#include "platform/hive/Hive.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

class Status : public Vex::Entity {
 public:
  class Notifiee : public Vex::BaseNotifiee<Status> {
   public:
    using BaseNotifiee::BaseNotifiee;
    VEX_HANDLER(Up)
  };
  using Entity::Entity;
  VEX_ATTR(bool, up, Up, false)
};

class Other : public Vex::Entity {
 public:
  using Entity::Entity;
};

TEST(Hive, MountingTwiceGivesTheSameEntity) {
  auto hive = Hive::rootFactory();
  auto a = hive->mount<Status>("interface/status/eth1", "eth1");
  auto b = hive->mount<Status>("interface/status/eth1", "ignored");
  EXPECT_EQ(a, b);
  EXPECT_EQ(b->name(), "eth1");
}

TEST(Hive, ReaderMountedFirstSeesTheWriterLater) {
  auto hive = Hive::rootFactory();
  auto reader = hive->mount<Status>("bridging/status");
  hive->lookup<Status>("bridging/status")->upIs(true);
  EXPECT_TRUE(reader->up());
}

TEST(Hive, LookupOfAnEmptyPathIsNull) {
  auto hive = Hive::rootFactory();
  EXPECT_FALSE(hive->lookup<Status>("nothing/here"));
}

TEST(Hive, TypeMismatchIsAWiringError) {
  auto hive = Hive::rootFactory();
  auto status = hive->mount<Status>("x");
  EXPECT_THROW(hive->mount<Other>("x"), std::logic_error);
  EXPECT_THROW(hive->lookup<Other>("x"), std::logic_error);
  try {
    hive->mount<Other>("x");
  } catch (const std::logic_error& e) {
    // Readable type names, so the wiring mistake is found from the message.
    EXPECT_NE(std::string(e.what()).find("x holds a (anonymous namespace)::Status, not a (anonymous namespace)::Other"),
              std::string::npos)
        << e.what();
  }
  EXPECT_EQ(hive->lookup<Status>("x"), status);
  // A base type is a match.
  EXPECT_EQ(hive->lookup<Vex::Entity>("x"), status);
}

TEST(Hive, UnmountedPathIsMadeAnewOnTheNextMount) {
  auto hive = Hive::rootFactory();
  auto old = hive->mount<Status>("bridging/config");
  old->upIs(true);
  hive->unmount("bridging/config");
  EXPECT_FALSE(hive->lookup<Status>("bridging/config"));
  EXPECT_TRUE(old->up());  // holders keep theirs
  auto fresh = hive->mount<Status>("bridging/config");
  EXPECT_NE(fresh, old);
  EXPECT_FALSE(fresh->up());
}

TEST(Hive, NotifiesAppearanceAndRemovalAndListsPaths) {
  auto hive = Hive::rootFactory();
  struct Watcher : Hive::Root::Notifiee {
    using Hive::Root::Notifiee::Notifiee;
    std::vector<std::string> seen;
    void handleEntity(const std::string& path) override { seen.push_back(path); }
  } watcher(hive);
  hive->mount<Status>("interface/status/eth/lag");
  hive->mount<Status>("interface/status/eth/phy");
  hive->mount<Status>("interface/statusx");
  hive->unmount("interface/status/eth/phy");
  EXPECT_EQ(watcher.seen, (std::vector<std::string>{"interface/status/eth/lag", "interface/status/eth/phy",
                                                    "interface/statusx", "interface/status/eth/phy"}));
  hive->unmount("never/mounted");
  EXPECT_EQ(watcher.seen.size(), 4u);
  EXPECT_EQ(hive->paths("interface/status"), std::vector<std::string>{"interface/status/eth/lag"});
  EXPECT_EQ(hive->paths("interface/"), (std::vector<std::string>{"interface/status/eth/lag", "interface/statusx"}));
  EXPECT_EQ(hive->paths("interface/status/eth/lag"), std::vector<std::string>{"interface/status/eth/lag"});
  EXPECT_EQ(hive->paths().size(), 2u);
}

}  // namespace
