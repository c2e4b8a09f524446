// A redis-server of our own for the comparison figure: started on a unix
// socket in a private temporary directory, spoken to in RESP, stopped when
// the object goes. No client library: pipelined commands and counted
// replies are all the figure needs.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace PondBench {

class RedisServer {
 public:
  // The redis-server on PATH, or empty.
  static std::string find();

  // Starts it and connects; throws std::runtime_error when it does not come up.
  explicit RedisServer(const std::string& binary);
  ~RedisServer();
  RedisServer(const RedisServer&) = delete;
  RedisServer& operator=(const RedisServer&) = delete;

  // Appends one command to the pipeline.
  void command(std::initializer_list<std::string_view> words);
  // Sends the pipeline and reads one reply per command sent; throws on an
  // error reply.
  void sync();

 private:
  std::string dir_;
  std::string socket_;
  pid_t pid_ = -1;
  int fd_ = -1;
  std::string out_;
  std::size_t pending_ = 0;
  std::string in_;
};

}  // namespace PondBench
