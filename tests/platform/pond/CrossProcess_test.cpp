// A Pond table written in one process and read in forked ones.
#include "platform/pond/Layout.h"
#include "platform/pond/Segment.h"
#include "tests/platform/pond/PondTestRows.h"

#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <random>

namespace {

using namespace PondTest;
using Pond::MountStatus;

enum Exit { ok = 0, torn = 1, missing = 2, timedOut = 3, wrongOrder = 4, unmounted = 5, wentBack = 6, notReported = 7 };

// Reads until `done` holds, sleeping on the table's FIFO between batches.
template <class Done>
bool follow(Table& table, const Table::Handlers& handlers, Done done) {
  while (!done()) {
    pollfd fd{table.wakeFd(), POLLIN, 0};
    if (::poll(&fd, 1, 10000) <= 0) return false;
    table.processChanges(handlers);
  }
  return true;
}

// Calls `writeSome` over and over until `child` exits; its exit status.
template <class WriteSome>
int writeWhileChildRuns(pid_t child, WriteSome writeSome) {
  for (;;) {
    writeSome();
    int wstatus = 0;
    if (::waitpid(child, &wstatus, WNOHANG) == child)
      return WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
  }
}

TEST(PondCrossProcess, AReaderNeverSeesATornRowOrAnOlderVersion) {
  std::string prefix = uniquePrefix();
  Table writer;
  writer.controlIs(writerControl(prefix, 64));
  for (std::uint64_t key = 0; key < 16; ++key) writer.set(makeRow(key, 0));
  Pipe ready;

  pid_t child = forkChild([&] {
    Table reader;
    reader.controlIs(readerControl(prefix));
    if (reader.mountStatus() != MountStatus::mounted) return int(unmounted);
    ready.signal();
    std::array<std::uint64_t, 16> last{};
    std::uint64_t changed = 0;
    for (int pass = 0; pass < 20000; ++pass) {
      std::size_t rows = 0;
      int result = ok;
      reader.forEach([&](const Row& row) {
        ++rows;
        if (!intact(row)) result = torn;
        if (row.key >= 16 || row.a < last[row.key]) result = wentBack;
        if (row.key < 16 && row.a > last[row.key]) ++changed, last[row.key] = row.a;
      });
      if (result != ok) return result;
      if (rows != 16) return int(missing);
    }
    return changed > 0 ? int(ok) : int(notReported);
  });
  ASSERT_TRUE(ready.wait());
  std::uint64_t n = 0;
  auto rewrite = [&] {
    for (int i = 0; i < 4096; ++i, ++n) writer.set(makeRow(n % 16, n / 16 + 1));
  };
  EXPECT_EQ(writeWhileChildRuns(child, rewrite), ok);
}

// While the writer churns keys fast enough to clear tombstones over and
// over, a reader in another process still finds every row that stays, by
// key and by scan, once each.
TEST(PondCrossProcess, AReaderFindsEveryRowWhileTheWriterClearsTombstones) {
  std::string prefix = uniquePrefix();
  Table writer;
  writer.controlIs(writerControl(prefix, 256, 1 << 16));
  for (std::uint64_t key = 0; key < 16; ++key) writer.set(makeRow(key << 32, key));
  Pipe ready;
  pid_t child = forkChild([&] {
    Table reader;
    reader.controlIs(readerControl(prefix));
    if (reader.mountStatus() != MountStatus::mounted) return int(unmounted);
    ready.signal();
    for (int pass = 0; pass < 20000; ++pass) {
      for (std::uint64_t key = 0; key < 16; ++key) {
        auto row = reader.get(key << 32);
        if (!row) return int(missing);
        if (!intact(*row)) return int(torn);
      }
      if (pass % 16 == 0) {
        std::array<int, 16> seen{};
        reader.forEach([&](const Row& row) {
          if ((row.key & 0xffffffffu) == 0 && (row.key >> 32) < 16) ++seen[row.key >> 32];
        });
        for (int count : seen) {
          if (count != 1) return int(missing);
        }
      }
    }
    return int(ok);
  });
  ASSERT_TRUE(ready.wait());
  std::mt19937_64 random(3);
  std::vector<std::uint64_t> churn;
  auto turnOver = [&] {
    for (int i = 0; i < 4096; ++i) {
      if (churn.size() > 200) {
        writer.del(churn.front());
        churn.erase(churn.begin());
      }
      churn.push_back(random() | 1);  // never one of the 16 that stay
      writer.set(makeRow(churn.back(), 0));
    }
  };
  EXPECT_EQ(writeWhileChildRuns(child, turnOver), ok);
  EXPECT_GT(writer.compactions(), 0u);
}

TEST(PondCrossProcess, EveryChangedKeyIsNotifiedInOrder) {
  std::string prefix = uniquePrefix();
  Table writer;
  writer.controlIs(writerControl(prefix, 128, 4096));
  // Sets, rewrites and deletes over 100 keys; 1,000 changes that fit the log.
  std::vector<std::uint64_t> expected;
  for (std::uint64_t i = 0; i < 1000; ++i) expected.push_back(i * 7 % 100);
  Pipe ready;

  pid_t child = forkChild([&] {
    Table reader;
    reader.controlIs(readerControl(prefix));
    if (reader.mountStatus() != MountStatus::mounted || reader.wakeFd() < 0) return int(unmounted);
    std::vector<std::uint64_t> seen;
    reader.processChanges({});  // arms the wake-up before the writer starts
    ready.signal();
    bool done = follow(reader, {.onKey = [&](const std::uint64_t& key) { seen.push_back(key); }},
                       [&] { return seen.size() >= expected.size(); });
    if (!done) return int(timedOut);
    return seen == expected ? int(ok) : int(wrongOrder);
  });
  ASSERT_TRUE(ready.wait());
  for (std::uint64_t i = 0; i < expected.size(); ++i) {
    if (i % 3 == 2 && writer.has(expected[i]))
      writer.del(expected[i]);
    else
      writer.set(makeRow(expected[i], i));
    if (i % 100 == 99) ::usleep(1000);  // let the reader fall asleep between bursts
  }
  writer.flush();
  EXPECT_EQ(waitChild(child), ok);
}

TEST(PondCrossProcess, CorruptionWrittenByAnotherProcessIsReportedNotFatal) {
  std::string prefix = uniquePrefix();
  Table writer;
  writer.controlIs(writerControl(prefix));
  writer.set(makeRow(3, 3));
  Pipe mounted, scribbled;

  pid_t child = forkChild([&] {
    std::vector<std::string> problems;
    auto handler = [&](const std::string& message) { problems.push_back(message); };
    Table reader;
    reader.corruptionHandlerIs(handler);
    reader.controlIs(readerControl(prefix));
    if (!reader.has(3)) return int(missing);
    mounted.signal();
    scribbled.wait();
    if (reader.has(3)) return int(missing);
    if (problems.size() != 1 || problems[0].find("row slot 3 has state 9") == std::string::npos)
      return int(notReported);
    Table late;
    late.corruptionHandlerIs(handler);
    late.controlIs(readerControl(prefix));
    if (late.mountStatus() != MountStatus::mountFailed) return int(unmounted);
    if (problems.size() != 2 || problems[1].find("bad magic") == std::string::npos) return int(notReported);
    return int(ok);
  });
  ASSERT_TRUE(mounted.wait());
  Pond::Segment raw = Pond::Segment::open("/" + prefix + "rows");
  auto* header = static_cast<Pond::Layout::Header*>(raw.base());
  auto* slot3 = static_cast<unsigned char*>(raw.base()) + header->slotsOffset + 3 * header->slotStride;
  Pond::Layout::store<std::uint32_t>(slot3 + 4, 9);
  Pond::Layout::store<std::uint64_t>(&header->magic, 0xdead);
  scribbled.signal();
  EXPECT_EQ(waitChild(child), ok);
}

TEST(PondCrossProcess, AForkedChildLeavingCleanlyKeepsItsParentsTables) {
  std::string prefix = uniquePrefix();
  Table writer;
  writer.controlIs(writerControl(prefix));
  writer.set(makeRow(1, 1));
  Table reader;
  reader.controlIs(readerControl(prefix));
  pid_t child = forkChild([&] {
    writer.close();  // what its destructors would do on exit()
    reader.close();
    return int(ok);
  });
  ASSERT_EQ(waitChild(child), ok);
  EXPECT_TRUE(Pond::Segment::open("/" + prefix + "rows").isMapped());
  writer.set(makeRow(2, 2));
  std::vector<std::uint64_t> keys;
  reader.processChanges({.onKey = [&](const std::uint64_t& key) { keys.push_back(key); }});
  EXPECT_EQ(keys, std::vector<std::uint64_t>{2});
  EXPECT_EQ(reader.mountStatus(), MountStatus::mounted);
  struct stat st {};
  EXPECT_EQ(::stat(("/dev/shm/" + prefix + "rows.r0").c_str(), &st), 0) << "the reader's FIFO went";
}

// Two readers read hot rows while the writer rewrites them at full rate:
// 10^7 reads in all, each checked against the row's checksum.
TEST(PondCrossProcess, TornReadStress) {
  constexpr int readers = 2;
  constexpr std::uint64_t readsEach = 5'000'000;
  constexpr std::uint64_t hotRows = 4;
  std::string prefix = uniquePrefix();
  Table writer;
  writer.controlIs(writerControl(prefix, 16));
  for (std::uint64_t key = 0; key < hotRows; ++key) writer.set(makeRow(key, 0));
  Pipe ready;

  std::vector<pid_t> children;
  for (int r = 0; r < readers; ++r)
    children.push_back(forkChild([&] {
      Table reader;
      reader.controlIs(readerControl(prefix));
      if (reader.mountStatus() != MountStatus::mounted) return int(unmounted);
      ready.signal();
      std::uint64_t tornRows = 0, absent = 0;
      for (std::uint64_t i = 0; i < readsEach; ++i) {
        auto row = reader.get(i % hotRows);
        if (!row)
          ++absent;
        else if (!intact(*row))
          ++tornRows;
      }
      return tornRows ? int(torn) : absent ? int(missing) : int(ok);
    }));
  for (int r = 0; r < readers; ++r) ASSERT_TRUE(ready.wait());
  std::map<pid_t, int> statuses;
  for (std::uint64_t n = 1; statuses.size() < children.size(); ++n) {
    writer.set(makeRow(n % hotRows, n));
    if (n % 4096) continue;
    for (pid_t child : children) {
      int wstatus = 0;
      if (!statuses.count(child) && ::waitpid(child, &wstatus, WNOHANG) == child)
        statuses[child] = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
    }
  }
  for (auto& [child, status] : statuses) EXPECT_EQ(status, ok) << "reader " << child;
}

}  // namespace
