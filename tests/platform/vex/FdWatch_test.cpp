// Descriptor watches on the event loop: readiness, hang-ups and errors, a
// throwing handler, and waiting on real time for a descriptor or a clock.
#include "platform/vex/FdWatch.h"

#include "platform/vex/Clock.h"
#include "platform/vex/EventLoop.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

// Both ends of a pipe, closed when it goes unless closed before.
struct Pipe {
  int readEnd = -1;
  int writeEnd = -1;
  Pipe() {
    int fds[2];
    if (::pipe(fds) != 0) throw std::runtime_error("pipe failed");
    readEnd = fds[0];
    writeEnd = fds[1];
  }
  ~Pipe() {
    closeRead();
    closeWrite();
  }
  void write(const std::string& data) const {
    ASSERT_EQ(::write(writeEnd, data.data(), data.size()), static_cast<ssize_t>(data.size()));
  }
  void closeRead() {
    if (readEnd >= 0) ::close(readEnd);
    readEnd = -1;
  }
  void closeWrite() {
    if (writeEnd >= 0) ::close(writeEnd);
    writeEnd = -1;
  }
};

std::string readSome(int fd, std::size_t most = 4096) {
  std::string buffer(most, '\0');
  ssize_t n = ::read(fd, buffer.data(), buffer.size());
  buffer.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
  return buffer;
}

class FdWatchTest : public ::testing::Test {
 protected:
  Vex::EventLoop loop;
  std::vector<std::string> calls;

  // A reader that records the flags it was called with and what it read.
  Vex::Ptr<Vex::FdWatch> reader(const std::string& name, int fd) {
    return Vex::fdWatchFactory(fd, Vex::FdEvent::readable, [this, name, fd](unsigned events) {
      std::string entry = name + ":" + flags(events);
      if (events & Vex::FdEvent::readable) entry += ":" + readSome(fd);
      calls.push_back(entry);
    });
  }

  static std::string flags(unsigned events) {
    std::string text;
    auto add = [&](unsigned flag, const char* name) {
      if (!(events & flag)) return;
      if (!text.empty()) text += "|";
      text += name;
    };
    add(Vex::FdEvent::readable, "in");
    add(Vex::FdEvent::writable, "out");
    add(Vex::FdEvent::hangUp, "hup");
    add(Vex::FdEvent::error, "err");
    add(Vex::FdEvent::invalid, "nval");
    return text;
  }
};

TEST_F(FdWatchTest, ReadHandlerRunsOncePerReadinessWithTheData) {
  Pipe pipe;
  auto watch = reader("p", pipe.readEnd);
  EXPECT_EQ(loop.runUntilIdle(), 0u);
  pipe.write("show version\n");
  EXPECT_EQ(loop.runUntilIdle(), 1u);
  EXPECT_EQ(calls, std::vector<std::string>{"p:in:show version\n"});
  // Drained: nothing more until the next write.
  loop.runUntilIdle();
  EXPECT_EQ(calls.size(), 1u);
  pipe.write("advance 1\n");
  loop.runUntilIdle();
  EXPECT_EQ(calls.back(), "p:in:advance 1\n");
  EXPECT_EQ(calls.size(), 2u);
}

TEST_F(FdWatchTest, DataLeftUnreadIsReportedAgainOnTheNextTurn) {
  Pipe pipe;
  std::string got;
  auto watch = Vex::fdWatchFactory(pipe.readEnd, Vex::FdEvent::readable,
                                   [&](unsigned) { got += readSome(pipe.readEnd, 2) + "/"; });
  pipe.write("abcde");
  loop.runUntilIdle();
  EXPECT_EQ(got, "ab/");
  loop.runUntilIdle();
  loop.runUntilIdle();
  loop.runUntilIdle();
  EXPECT_EQ(got, "ab/cd/e/");
}

TEST_F(FdWatchTest, ClockAndDescriptorReadyInOneTurnBothRun) {
  Pipe pipe;
  auto watch = reader("p", pipe.readEnd);
  auto clock = Vex::clockFactory([this] { calls.push_back("clock@" + std::to_string(Vex::now())); });
  clock->timeMinIs(2.0);
  pipe.write("x");
  loop.advance(1.0);  // the descriptor is served at the time it was found ready
  EXPECT_EQ(calls, std::vector<std::string>{"p:in:x"});
  pipe.write("y");
  clock->timeMinIs(Vex::now());
  EXPECT_EQ(loop.runUntilIdle(), 2u);
  EXPECT_EQ(calls, (std::vector<std::string>{"p:in:x", "p:in:y", "clock@1.000000"}));
}

TEST_F(FdWatchTest, ClockHandlerWritingAPipeIsServedOnTheNextTurnOfTheSameCall) {
  Pipe pipe;
  auto watch = reader("p", pipe.readEnd);
  auto clock = Vex::clockFactory([&] {
    calls.push_back("clock");
    pipe.write("z");
  });
  clock->timeMinIs(1.0);
  loop.advance(1.0);
  EXPECT_EQ(calls, (std::vector<std::string>{"clock", "p:in:z"}));
}

TEST_F(FdWatchTest, DestroyedOrUninterestedWatchIsNotCalled) {
  Pipe pipe;
  auto watch = reader("p", pipe.readEnd);
  EXPECT_EQ(loop.watches(), 1u);
  watch->interestIs(Vex::FdEvent::none);
  EXPECT_FALSE(watch->isWatching());
  pipe.write("a");
  loop.runUntilIdle();
  EXPECT_TRUE(calls.empty());
  watch->interestIs(Vex::FdEvent::readable);
  loop.runUntilIdle();
  EXPECT_EQ(calls, std::vector<std::string>{"p:in:a"});
  watch.reset();
  EXPECT_EQ(loop.watches(), 0u);
  pipe.write("b");
  loop.runUntilIdle();
  EXPECT_EQ(calls.size(), 1u);
}

TEST_F(FdWatchTest, HandlerMayDropAnotherWatchOfTheSameTurn) {
  Pipe first, second;
  Vex::Ptr<Vex::FdWatch> other;
  auto dropper = Vex::fdWatchFactory(first.readEnd, Vex::FdEvent::readable, [&](unsigned) {
    readSome(first.readEnd);
    calls.push_back("first");
    other.reset();
  });
  other = reader("second", second.readEnd);
  first.write("y");
  second.write("x");
  loop.runUntilIdle();
  EXPECT_EQ(calls, std::vector<std::string>{"first"});
  EXPECT_EQ(loop.watches(), 1u);
}

TEST_F(FdWatchTest, HandlerMayDropItsOwnWatch) {
  Pipe pipe;
  Vex::Ptr<Vex::FdWatch> self;
  std::string got;
  self = Vex::fdWatchFactory(pipe.readEnd, Vex::FdEvent::readable, [&, fd = pipe.readEnd](unsigned) {
    self.reset();
    got = readSome(fd);  // its captures are still there while it runs
  });
  pipe.write("bye");
  loop.runUntilIdle();
  EXPECT_EQ(got, "bye");
  EXPECT_EQ(loop.watches(), 0u);
}

TEST_F(FdWatchTest, HangUpIsReportedOnceAfterTheDataAndEndsTheWatch) {
  Pipe pipe;
  auto watch = reader("p", pipe.readEnd);
  pipe.write("last");
  pipe.closeWrite();
  loop.runUntilIdle();
  loop.runUntilIdle();
  loop.runUntilIdle();
  ASSERT_EQ(calls.size(), 2u);
  // Buffered data comes with the hang-up and is read before it ends.
  EXPECT_EQ(calls[0], "p:in|hup:last");
  EXPECT_EQ(calls[1], "p:hup");
  EXPECT_TRUE(watch->ended());
  EXPECT_FALSE(watch->isWatching());
}

TEST_F(FdWatchTest, ErrorOnAPipeWithNoReaderIsReportedOnce) {
  Pipe pipe;
  std::vector<unsigned> seen;
  auto watch = Vex::fdWatchFactory(pipe.writeEnd, Vex::FdEvent::writable, [&](unsigned e) { seen.push_back(e); });
  loop.runUntilIdle();
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0], Vex::FdEvent::writable);
  pipe.closeRead();
  loop.runUntilIdle();
  loop.runUntilIdle();
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_TRUE(seen[1] & Vex::FdEvent::error);
  EXPECT_TRUE(watch->ended());
}

TEST_F(FdWatchTest, DescriptorClosedUnderTheWatchIsReportedInvalidOnce) {
  int closedFd;
  {
    Pipe pipe;
    closedFd = pipe.readEnd;
  }
  auto watch = reader("gone", closedFd);
  loop.runUntilIdle();
  loop.runUntilIdle();
  EXPECT_EQ(calls, std::vector<std::string>{"gone:nval"});
  // Asking again restarts it, and it is reported again, once.
  watch->interestIs(Vex::FdEvent::readable);
  loop.runUntilIdle();
  loop.runUntilIdle();
  EXPECT_EQ(calls.size(), 2u);
}

TEST_F(FdWatchTest, AlwaysWritableDescriptorDoesNotKeepTheLoopTurning) {
  Pipe pipe;
  int writes = 0;
  auto watch = Vex::fdWatchFactory(pipe.writeEnd, Vex::FdEvent::writable, [&](unsigned) { ++writes; });
  EXPECT_EQ(loop.runUntilIdle(), 1u);
  EXPECT_EQ(loop.runUntilIdle(), 1u);
  EXPECT_EQ(writes, 2);
}

// A handler that throws ends the call; the descriptors reported ready with it
// are served first on the next turn, before it is asked again.
TEST_F(FdWatchTest, ThrowingHandlerLosesNoOtherReadyHandler) {
  Pipe a, b, c;
  auto wa = reader("a", a.readEnd);
  int thrown = 0;
  auto wb = Vex::fdWatchFactory(b.readEnd, Vex::FdEvent::readable, [&](unsigned) {
    if (thrown++ == 0) throw std::runtime_error("handler failed");  // leaves its data unread
    calls.push_back("b:" + readSome(b.readEnd));
  });
  auto wc = reader("c", c.readEnd);
  a.write("1");
  b.write("2");
  c.write("3");
  EXPECT_THROW(loop.runUntilIdle(), std::runtime_error);
  EXPECT_EQ(calls, std::vector<std::string>{"a:in:1"});
  loop.runUntilIdle();
  EXPECT_EQ(calls, (std::vector<std::string>{"a:in:1", "c:in:3", "b:2"}));
  EXPECT_EQ(thrown, 2);
}

TEST_F(FdWatchTest, ReadyHandlerOwedByAThrowIsNotCalledOnceItsDataIsGone) {
  Pipe a, b;
  auto wa = Vex::fdWatchFactory(a.readEnd, Vex::FdEvent::readable, [&](unsigned) {
    readSome(a.readEnd);
    throw std::runtime_error("handler failed");
  });
  auto wb = reader("b", b.readEnd);
  a.write("1");
  b.write("2");
  EXPECT_THROW(loop.runUntilIdle(), std::runtime_error);
  readSome(b.readEnd);  // someone else took it
  loop.runUntilIdle();
  EXPECT_TRUE(calls.empty());
}

TEST_F(FdWatchTest, ThrowOnAHangUpDoesNotMakeTheLoopSpin) {
  Pipe pipe;
  int thrown = 0;
  auto watch = Vex::fdWatchFactory(pipe.readEnd, Vex::FdEvent::readable, [&](unsigned) {
    ++thrown;
    throw std::runtime_error("cannot cope");
  });
  pipe.closeWrite();
  EXPECT_THROW(loop.runUntilIdle(), std::runtime_error);
  loop.runUntilIdle();
  EXPECT_EQ(thrown, 1);
}

TEST_F(FdWatchTest, BadDescriptorOrInterestIsRefused) {
  EXPECT_THROW(Vex::fdWatchFactory(-1, Vex::FdEvent::readable, [](unsigned) {}), std::invalid_argument);
  Pipe pipe;
  EXPECT_THROW(Vex::fdWatchFactory(pipe.readEnd, Vex::FdEvent::hangUp, [](unsigned) {}), std::invalid_argument);
  auto watch = Vex::fdWatchFactory(pipe.readEnd, Vex::FdEvent::readable, [](unsigned) {});
  EXPECT_THROW(watch->interestIs(1u << 7), std::invalid_argument);
  EXPECT_EQ(watch->interest(), Vex::FdEvent::readable);
  EXPECT_EQ(loop.watches(), 1u);
}

TEST_F(FdWatchTest, RunOnceOnSimulatedTimeNeverWaits) {
  Pipe pipe;
  auto watch = reader("p", pipe.readEnd);
  auto clock = Vex::clockFactory([this] { calls.push_back("clock"); });
  clock->timeMinIs(3600.0);
  EXPECT_EQ(loop.runOnce(), 0u);
  EXPECT_DOUBLE_EQ(Vex::now(), 0.0);
  pipe.write("q");
  EXPECT_EQ(loop.runOnce(), 1u);
  EXPECT_EQ(calls, std::vector<std::string>{"p:in:q"});
}

TEST(FdWatch, WatchOutlivingItsLoopIsHarmless) {
  Pipe pipe;
  Vex::Ptr<Vex::FdWatch> watch;
  {
    Vex::EventLoop loop;
    watch = Vex::fdWatchFactory(pipe.readEnd, Vex::FdEvent::readable, [](unsigned) {});
  }
  EXPECT_FALSE(watch->isWatching());
  watch->interestIs(Vex::FdEvent::writable);
  EXPECT_FALSE(watch->isWatching());
}

// Real time: only a second thread writes the pipe; the loop stays on this one.
TEST(FdWatchRealTime, WaitEndsWhenADescriptorIsReadyBeforeAFarClock) {
  Vex::EventLoop loop(std::make_unique<Vex::MonotonicTimeSource>());
  loop.makeCurrent();
  Pipe pipe;
  std::vector<std::string> order;
  auto watch = Vex::fdWatchFactory(pipe.readEnd, Vex::FdEvent::readable,
                                   [&](unsigned) { order.push_back("pipe:" + readSome(pipe.readEnd)); });
  auto far = Vex::clockFactory([&] { order.push_back("far clock"); });
  far->timeMinIs(Vex::now() + 60.0);
  std::thread writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    pipe.write("wake");
  });
  while (order.empty()) loop.runOnce();
  writer.join();
  EXPECT_EQ(order, std::vector<std::string>{"pipe:wake"});
  EXPECT_EQ(loop.armedClocks(), 1u);
}

TEST(FdWatchRealTime, WaitEndsAtTheEarliestClockWhenNoDescriptorIsReady) {
  Vex::EventLoop loop(std::make_unique<Vex::MonotonicTimeSource>());
  loop.makeCurrent();
  Pipe pipe;
  std::vector<std::string> order;
  auto watch = Vex::fdWatchFactory(pipe.readEnd, Vex::FdEvent::readable, [&](unsigned) { order.push_back("pipe"); });
  auto near = Vex::clockFactory([&] { order.push_back("near"); });
  auto far = Vex::clockFactory([&] { order.push_back("far"); });
  far->timeMinIs(Vex::now() + 60.0);
  near->timeMinIs(Vex::now() + 0.01);
  while (order.empty()) loop.runOnce();
  EXPECT_EQ(order, std::vector<std::string>{"near"});
  EXPECT_EQ(loop.armedClocks(), 1u);
}

}  // namespace
