// Rows, names and a fork helper shared by the Pond tests.
#pragma once

#include "platform/pond/Table.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

namespace PondTest {

// 40 bytes: a key, three values and a checksum over them, so that a row
// mixed from two writes shows.
struct Row {
  std::uint64_t key;
  std::uint64_t a;
  std::uint64_t b;
  std::uint64_t c;
  std::uint64_t check;
};
static_assert(sizeof(Row) == 40);

inline Row makeRow(std::uint64_t key, std::uint64_t n) {
  Row row{key, n, n * 3 + 1, ~n, 0};
  row.check = row.key ^ row.a ^ (row.b << 1) ^ (row.c >> 1) ^ 0x5a5a5a5a;
  return row;
}

inline bool intact(const Row& row) { return row.check == (row.key ^ row.a ^ (row.b << 1) ^ (row.c >> 1) ^ 0x5a5a5a5a); }

using Table = Pond::Table<Row, &Row::key>;

// A prefix no other test (or test process) uses.
inline std::string uniquePrefix() {
  static int count = 0;
  return "orbtest-" + std::to_string(::getpid()) + "-" + std::to_string(++count) + "-";
}

inline Pond::TableControl writerControl(const std::string& prefix, std::size_t capacity = 64,
                                        std::size_t logCapacity = 256) {
  Pond::TableControl control;
  control.prefix = prefix;
  control.name = "rows";
  control.role = Pond::TableControl::Role::writer;
  control.capacity = capacity;
  control.logCapacity = logCapacity;
  return control;
}

inline Pond::TableControl readerControl(const std::string& prefix) {
  Pond::TableControl control;
  control.prefix = prefix;
  control.name = "rows";
  return control;
}

// Runs `body` in a forked child and returns its exit status (the child
// leaves with _exit, skipping the test framework's teardown).
template <class Body>
pid_t forkChild(Body body) {
  pid_t pid = ::fork();
  if (pid == 0) ::_exit(body());
  return pid;
}

inline int waitChild(pid_t pid) {
  int status = 0;
  if (::waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// One-byte signals between parent and child.
struct Pipe {
  int fds[2] = {-1, -1};
  Pipe() { [[maybe_unused]] int r = ::pipe(fds); }
  ~Pipe() {
    ::close(fds[0]);
    ::close(fds[1]);
  }
  void signal() {
    char c = 1;
    [[maybe_unused]] auto n = ::write(fds[1], &c, 1);
  }
  bool wait() {
    char c = 0;
    return ::read(fds[0], &c, 1) == 1;
  }
};

}  // namespace PondTest
