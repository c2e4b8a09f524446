#include "Orb/OrbBaseHelper.h"

#include "Orb/OrbCommon.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace Orb {

void orbAssert(std::string_view message) {
  std::fwrite(message.data(), 1, message.size(), stderr);
  std::fputc('\n', stderr);
  std::fflush(stderr);
  std::abort();
}

void orbAssertAt(const char* source, int line, std::string_view text) {
  orbAssert(std::string(source) + ":" + std::to_string(line) + ": " + std::string(text));
}

void orbAssertExplained(const char* source, std::string_view expression, std::string_view message) {
  orbAssert(std::string(source) + " -- assertion failed(" + std::string(expression) + "): " + std::string(message));
}

EmptyResult unimplementedOperation(const char* helperClass, const char* operation) {
  std::string text = std::string("Call to unimplemented function ") + helperClass + "::" + operation;
  if (!std::getenv("ORB_NOOP_AGENT")) orbAssert(text);
  return {};
}

OrbBaseSm::OrbBaseSm(const Vex::Ptr<OrbCommonSmData>& ocsd) : ocsd_(ocsd) {}

OrbBaseSm::~OrbBaseSm() {
  // Nested reactors are members of the derived machine and are gone by now;
  // a machine whose reactors could hear anything while it is torn down
  // zombifies them in its own destructor first.
  reactors_.clear();
  vexDoZombieReactors(true);
  ocsd_.reset();
}

void OrbBaseSm::initializedIs(bool initialized) {
  if (initialized == initialized_) return;
  initialized_ = initialized;
  if (initialized_) handleInitialized();
}

void OrbBaseSm::hasNotificationActiveIs(bool active) {
  notificationActive_ = active;
  for (auto* reactor : reactors_) reactor->hasNotificationActiveIs(active);
  for (auto& clock : clocks_) clock->hasNotificationActiveIs(active);
}

void OrbBaseSm::vexDoZombieReactors(bool zombie) {
  if (zombie == zombie_) return;
  for (auto* reactor : reactors_) reactor->vexDoZombieReactors(zombie);
  for (auto& clock : clocks_) clock->vexDoZombieReactors(zombie);
  zombie_ = zombie;
}

void OrbBaseSm::reactorIs(Vex::NotifieeBase* reactor) {
  reactor->hasNotificationActiveIs(notificationActive_);
  reactor->vexDoZombieReactors(zombie_);
  reactors_.push_back(reactor);
}

void OrbBaseSm::reactorDel(Vex::NotifieeBase* reactor) { std::erase(reactors_, reactor); }

void OrbBaseSm::clockIs(const Vex::Ptr<Vex::Clock>& clock) {
  clock->hasNotificationActiveIs(notificationActive_);
  clock->vexDoZombieReactors(zombie_);
  clocks_.push_back(clock);
}

void OrbBaseSm::clockDel(const Vex::Ptr<Vex::Clock>& clock) { std::erase(clocks_, clock); }

}  // namespace Orb
