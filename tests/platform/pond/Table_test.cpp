// A Pond table within one process: writer and reader on the same segment.
#include "platform/pond/Layout.h"
#include "platform/pond/Segment.h"
#include "platform/vex/EventLoop.h"
#include "tests/platform/pond/PondTestRows.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <random>
#include <stdexcept>

namespace {

using namespace PondTest;
using Pond::MountStatus;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

struct Pair {
  Table writer;
  Table reader;
  std::vector<std::string> problems;
  std::string prefix = uniquePrefix();

  explicit Pair(std::size_t capacity = 64, std::size_t logCapacity = 256) {
    writer.controlIs(writerControl(prefix, capacity, logCapacity));
    reader.corruptionHandlerIs([this](const std::string& message) { problems.push_back(message); });
    reader.controlIs(readerControl(prefix));
  }

  std::vector<std::uint64_t> changes() {
    std::vector<std::uint64_t> keys;
    reader.processChanges({.onKey = [&](const std::uint64_t& key) { keys.push_back(key); }});
    return keys;
  }

  Pond::Layout::Header* header(Pond::Segment& raw) {
    raw = Pond::Segment::open("/" + prefix + "rows");
    return static_cast<Pond::Layout::Header*>(raw.base());
  }
};

TEST(PondTable, RowsWrittenAreReadByKeyAndDeleted) {
  Pair pair;
  EXPECT_EQ(pair.reader.mountStatus(), MountStatus::mounted);
  EXPECT_FALSE(pair.reader.get(5).has_value());
  for (std::uint64_t key = 1; key <= 40; ++key) EXPECT_TRUE(pair.writer.set(makeRow(key, key * 10)));
  EXPECT_EQ(pair.reader.size(), 40u);
  auto row = pair.reader.get(7);
  ASSERT_TRUE(row.has_value());
  EXPECT_EQ(row->a, 70u);
  EXPECT_TRUE(intact(*row));

  EXPECT_TRUE(pair.writer.set(makeRow(7, 1)));
  EXPECT_EQ(pair.reader.get(7)->a, 1u);
  EXPECT_EQ(pair.reader.size(), 40u);

  EXPECT_TRUE(pair.writer.del(7));
  EXPECT_FALSE(pair.writer.del(7));
  EXPECT_FALSE(pair.reader.get(7).has_value());
  EXPECT_EQ(pair.reader.size(), 39u);
  // Keys past a deleted one on the same probe chain are still found.
  for (std::uint64_t key = 1; key <= 40; ++key)
    if (key != 7) {
      EXPECT_TRUE(pair.reader.has(key)) << key;
    }

  std::size_t seen = 0;
  pair.reader.forEach([&](const Row& r) { seen += intact(r); });
  EXPECT_EQ(seen, 39u);
  pair.writer.delAll();
  EXPECT_EQ(pair.reader.size(), 0u);
  EXPECT_FALSE(pair.reader.has(1));
  EXPECT_TRUE(pair.problems.empty());
}

TEST(PondTable, CollidingKeysAndChurnKeepEveryRowReachable) {
  Pair pair(32);
  // Keys far apart that fold onto few home slots, deleted and re-added in turns.
  std::vector<std::uint64_t> keys;
  for (std::uint64_t i = 0; i < 32; ++i) keys.push_back(i << 40);
  for (int round = 0; round < 20; ++round) {
    for (std::size_t i = 0; i < keys.size(); ++i)
      if ((i + round) % 3 == 0) pair.writer.del(keys[i]);
    for (std::size_t i = 0; i < keys.size(); ++i) ASSERT_TRUE(pair.writer.set(makeRow(keys[i], round)));
  }
  for (auto key : keys) EXPECT_EQ(pair.reader.get(key)->a, 19u);
  EXPECT_EQ(pair.reader.size(), 32u);
}

// Random churn would pile tombstones up until every miss crossed the
// table; the writer clears them in place and every row stays reachable.
TEST(PondTable, ChurnClearsTombstonesAndEveryRowStaysReachable) {
  Pair pair(1000, 1 << 17);
  std::mt19937_64 random(5);
  std::map<std::uint64_t, std::uint64_t> held;
  for (std::uint64_t n = 0; n < 1000; ++n) {
    std::uint64_t key = random();
    held[key] = n;
    ASSERT_TRUE(pair.writer.set(makeRow(key, n)));
  }
  for (std::uint64_t n = 0; n < 50000; ++n) {
    auto victim = held.begin();
    std::advance(victim, random() % held.size());
    ASSERT_TRUE(pair.writer.del(victim->first));
    held.erase(victim);
    std::uint64_t key = random();
    held[key] = n;
    ASSERT_TRUE(pair.writer.set(makeRow(key, n)));
    ASSERT_LE(pair.writer.tombstones(), 2048u / 4);
  }
  EXPECT_GT(pair.writer.compactions(), 10u);
  for (const auto& [key, n] : held) {
    auto row = pair.reader.get(key);
    ASSERT_TRUE(row) << key;
    EXPECT_EQ(row->a, n);
  }
  EXPECT_FALSE(pair.reader.get(random()));
  std::size_t seen = 0;
  pair.reader.forEach([&](const Row& row) { seen += held.contains(row.key); });
  EXPECT_EQ(seen, 1000u);
  EXPECT_EQ(pair.reader.size(), 1000u);
}

TEST(PondTable, AFullTableRefusesNewKeysButTakesUpdates) {
  Pair pair(4);
  for (std::uint64_t key = 1; key <= 4; ++key) EXPECT_TRUE(pair.writer.set(makeRow(key, 0)));
  EXPECT_FALSE(pair.writer.set(makeRow(5, 0)));
  EXPECT_FALSE(pair.reader.has(5));
  EXPECT_TRUE(pair.writer.set(makeRow(4, 9)));
  pair.writer.del(1);
  EXPECT_TRUE(pair.writer.set(makeRow(5, 0)));
}

TEST(PondTable, ReadersCannotWrite) {
  Pair pair;
  EXPECT_THROW(pair.reader.set(makeRow(1, 1)), std::logic_error);
  EXPECT_THROW(pair.reader.del(1), std::logic_error);
}

TEST(PondTable, ChangesAreReportedPerKeyInOrder) {
  Pair pair;
  pair.writer.set(makeRow(3, 0));
  pair.writer.set(makeRow(1, 0));
  pair.writer.set(makeRow(3, 1));
  pair.writer.del(1);
  EXPECT_THAT(pair.changes(), ElementsAre(3u, 1u, 3u, 1u));
  EXPECT_THAT(pair.changes(), ElementsAre());
  // Storing the row already held says nothing; committing it does.
  pair.writer.set(makeRow(3, 1));
  EXPECT_THAT(pair.changes(), ElementsAre());
  pair.writer.commit(makeRow(3, 1));
  EXPECT_THAT(pair.changes(), ElementsAre(3u));
  pair.writer.delAll();
  EXPECT_THAT(pair.changes(), ElementsAre(3u));
}

TEST(PondTable, AReaderLappedByTheLogRescansTheTable) {
  Pair pair(64, 8);
  for (std::uint64_t n = 0; n < 50; ++n) pair.writer.set(makeRow(n % 5, n));
  pair.writer.set(makeRow(9, 0));
  pair.writer.del(9);
  EXPECT_THAT(pair.changes(), UnorderedElementsAre(0u, 1u, 2u, 3u, 4u));
  EXPECT_TRUE(pair.problems.empty());
  pair.writer.set(makeRow(7, 0));
  EXPECT_THAT(pair.changes(), ElementsAre(7u));
}

TEST(PondTable, ARescanEndsWithItsOwnReportSoThatDeletedKeysCanBeDropped) {
  Pair pair(64, 8);
  std::vector<std::string> seen;
  Table::Handlers handlers{.onKey = [&](const std::uint64_t& key) { seen.push_back(std::to_string(key)); },
                           .onRescan = [&] { seen.push_back("rescanned"); }};
  pair.writer.set(makeRow(1, 0));
  pair.writer.set(makeRow(2, 0));
  pair.reader.processChanges(handlers);
  EXPECT_THAT(seen, ElementsAre("1", "2"));  // no rescan while the log keeps up
  seen.clear();
  pair.writer.del(1);
  for (std::uint64_t n = 0; n < 20; ++n) pair.writer.set(makeRow(2, n));
  pair.reader.processChanges(handlers);
  // Key 1's deletion fell off the log: only the scan's end tells of it.
  EXPECT_THAT(seen, ElementsAre("2", "rescanned"));
}

TEST(PondTable, QuiescenceAndTheWriterClosingAreReported) {
  Pair pair;
  std::vector<bool> quiesced;
  std::vector<MountStatus> mounts;
  Table::Handlers handlers{.onKey = {},
                           .onQuiesced = [&](bool q) { quiesced.push_back(q); },
                           .onMountStatus = [&](MountStatus s) { mounts.push_back(s); }};
  pair.writer.quiescedIs(true);
  pair.reader.processChanges(handlers);
  EXPECT_TRUE(pair.reader.quiesced());
  pair.writer.quiescedIs(false);
  pair.writer.quiescedIs(true);  // both seen as one: the reader reads states, not events
  pair.writer.quiescedIs(false);
  pair.reader.processChanges(handlers);
  EXPECT_THAT(quiesced, ElementsAre(true, false));

  pair.writer.close();
  struct stat st {};
  EXPECT_NE(::stat(("/dev/shm/" + pair.prefix + "rows").c_str(), &st), 0) << "segment left behind";
  pair.reader.processChanges(handlers);
  EXPECT_THAT(mounts, ElementsAre(MountStatus::unmounted));
  EXPECT_EQ(pair.reader.mountStatus(), MountStatus::unmounted);
  EXPECT_FALSE(pair.reader.has(1));
}

TEST(PondTable, AReaderBeforeItsWriterMountsLater) {
  std::string prefix = uniquePrefix();
  Table reader;
  reader.controlIs(readerControl(prefix));
  EXPECT_EQ(reader.mountStatus(), MountStatus::unmounted);
  EXPECT_EQ(reader.wakeFd(), -1);
  Table writer;
  writer.controlIs(writerControl(prefix));
  writer.set(makeRow(1, 1));
  EXPECT_EQ(reader.mount(), MountStatus::mounted);
  EXPECT_TRUE(reader.has(1));
}

TEST(PondTable, SegmentsAreMode0600AndNamesAreChecked) {
  Pair pair;
  struct stat st {};
  ASSERT_EQ(::stat(("/dev/shm/" + pair.prefix + "rows").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  Table bad;
  auto control = writerControl("a/b-");
  EXPECT_THROW(bad.controlIs(control), std::invalid_argument);
  control = writerControl("");
  control.name = "";
  EXPECT_THROW(bad.controlIs(control), std::invalid_argument);
  control = writerControl(uniquePrefix(), 0);
  EXPECT_THROW(bad.controlIs(control), std::invalid_argument);
}

TEST(PondTable, FollowerReportsChangesFromTheEventLoop) {
  Vex::EventLoop loop;
  std::string prefix = uniquePrefix();
  Table reader;
  std::vector<std::uint64_t> keys;
  std::vector<MountStatus> mounts;
  auto follower = reader.follow({.onKey = [&](const std::uint64_t& key) { keys.push_back(key); },
                                 .onQuiesced = {},
                                 .onMountStatus = [&](MountStatus s) { mounts.push_back(s); }});
  reader.controlIs(readerControl(prefix));
  Table writer;
  writer.controlIs(writerControl(prefix));
  loop.advance(0.2);  // the mount retry finds the segment
  EXPECT_THAT(mounts, ElementsAre(MountStatus::mounted));
  writer.set(makeRow(4, 0));
  writer.set(makeRow(2, 0));
  loop.runUntilIdle();  // the writer flushes at the end of its turn; the FIFO wakes the reader
  loop.runUntilIdle();
  EXPECT_THAT(keys, ElementsAre(4u, 2u));
  writer.close();
  loop.runUntilIdle();
  EXPECT_THAT(mounts, ElementsAre(MountStatus::mounted, MountStatus::unmounted));
}

// ---- corruption

class PondCorruption : public ::testing::Test {
 protected:
  Pair pair;
  Pond::Segment raw;
  Pond::Layout::Header* header = pair.header(raw);

  // Mounts a fresh reader on the (now scribbled) segment.
  MountStatus remount() {
    Table fresh;
    fresh.corruptionHandlerIs([this](const std::string& message) { pair.problems.push_back(message); });
    fresh.controlIs(readerControl(pair.prefix));
    return fresh.mountStatus();
  }
  unsigned char* slotOf(std::uint64_t key) {
    // A key below 2^17 sits in its own slot when nothing collides.
    return static_cast<unsigned char*>(raw.base()) + header->slotsOffset + key * header->slotStride;
  }
};

TEST_F(PondCorruption, ABrokenHeaderFailsTheMountWithAMessage) {
  struct Case {
    const char* expected;
    std::function<void()> scribble;
    std::function<void()> repair;
  } cases[] = {
      {"bad magic", [&] { header->magic ^= 1; }, [&] { header->magic ^= 1; }},
      {"version 9", [&] { header->version = 9; }, [&] { header->version = Pond::Layout::version; }},
      {"row size 48", [&] { header->rowSize = 48; }, [&] { header->rowSize = 40; }},
      {"slot count", [&] { header->slotCount = 3; }, [&] { header->slotCount = 128; }},
      {"row slots at offset", [&] { header->slotsOffset = header->segmentBytes - 8; },
       [&] { header->slotsOffset = header->readersOffset + 256; }},
      {"change log at offset", [&] { header->logOffset += 4096 * 1024; }, [&] { header->logOffset -= 4096 * 1024; }},
  };
  ASSERT_EQ(header->slotCount, 128u);
  for (auto& c : cases) {
    pair.problems.clear();
    c.scribble();
    EXPECT_EQ(remount(), MountStatus::mountFailed) << c.expected;
    ASSERT_EQ(pair.problems.size(), 1u) << c.expected;
    EXPECT_THAT(pair.problems[0], HasSubstr(c.expected));
    EXPECT_THAT(pair.problems[0], HasSubstr(pair.prefix + "rows"));
    c.repair();
    EXPECT_EQ(remount(), MountStatus::mounted) << c.expected;
  }
}

TEST_F(PondCorruption, ABadSlotOrCountIsReportedAndReadsAsNotFound) {
  pair.writer.set(makeRow(3, 3));
  Pond::Layout::store<std::uint32_t>(slotOf(3) + 4, 7);
  EXPECT_FALSE(pair.reader.get(3).has_value());
  ASSERT_EQ(pair.problems.size(), 1u);
  EXPECT_THAT(pair.problems[0], HasSubstr("row slot 3 has state 7"));

  Pond::Layout::store<std::uint64_t>(&header->rowCount, 1000);
  EXPECT_EQ(pair.reader.size(), 0u);
  EXPECT_THAT(pair.problems.back(), HasSubstr("row count 1000 exceeds capacity 64"));
}

TEST_F(PondCorruption, ABadChangeLogIsReportedAndTheReaderRescans) {
  pair.writer.set(makeRow(1, 0));
  pair.writer.set(makeRow(2, 0));
  auto* log = static_cast<unsigned char*>(raw.base()) + header->logOffset;
  Pond::Layout::store<std::uint64_t>(log + header->logStride, 12345);  // entry 1
  EXPECT_THAT(pair.changes(), ElementsAre(1u, 1u, 2u));                // entry 0, then the rescan
  ASSERT_EQ(pair.problems.size(), 1u);
  EXPECT_THAT(pair.problems[0], HasSubstr("change log entry 1 has stamp 12345"));

  Pond::Layout::store<std::uint64_t>(&header->logHead, 1);
  EXPECT_THAT(pair.changes(), UnorderedElementsAre(1u, 2u));
  EXPECT_THAT(pair.problems.back(), HasSubstr("change log head 1 is behind reader position 2"));
}

TEST_F(PondCorruption, ARowStuckMidWriteIsReported) {
  pair.writer.set(makeRow(5, 0));
  Pond::Layout::store<std::uint32_t>(slotOf(5), 3);  // odd: a writer that died inside a write
  EXPECT_FALSE(pair.reader.get(5).has_value());
  ASSERT_EQ(pair.problems.size(), 1u);
  EXPECT_THAT(pair.problems[0], HasSubstr("row slot 5 stays mid-write"));
}

}  // namespace
