#include "bench/pond/RedisClient.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace PondBench {

std::string RedisServer::find() {
  const char* path = std::getenv("PATH");
  std::string dirs = path ? path : "/usr/bin:/bin";
  for (std::size_t at = 0; at <= dirs.size();) {
    std::size_t end = dirs.find(':', at);
    if (end == std::string::npos) end = dirs.size();
    std::string candidate = dirs.substr(at, end - at) + "/redis-server";
    if (end > at && ::access(candidate.c_str(), X_OK) == 0) return candidate;
    at = end + 1;
  }
  return {};
}

RedisServer::RedisServer(const std::string& binary) {
  char pattern[] = "/tmp/pond-bench-redis-XXXXXX";
  if (!::mkdtemp(pattern)) throw std::runtime_error("mkdtemp failed");
  dir_ = pattern;
  socket_ = dir_ + "/redis.sock";
  pid_ = ::fork();
  if (pid_ == 0) {
    int null = ::open("/dev/null", O_WRONLY);
    ::dup2(null, 1);
    ::dup2(null, 2);
    ::execl(binary.c_str(), binary.c_str(), "--port", "0", "--unixsocket", socket_.c_str(), "--unixsocketperm", "700",
            "--save", "", "--appendonly", "no", "--dir", dir_.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, socket_.c_str(), sizeof(address.sun_path) - 1);
  for (int attempt = 0; attempt < 500 && fd_ < 0; ++attempt) {
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) {
      fd_ = fd;
      break;
    }
    ::close(fd);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  if (fd_ < 0) {
    this->~RedisServer();
    throw std::runtime_error("redis-server did not come up");
  }
}

RedisServer::~RedisServer() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  if (pid_ > 0) {
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }
  if (!dir_.empty()) {
    ::unlink(socket_.c_str());
    ::rmdir(dir_.c_str());
    dir_.clear();
  }
}

void RedisServer::command(std::initializer_list<std::string_view> words) {
  out_ += fmt::format("*{}\r\n", words.size());
  for (auto word : words) {
    out_ += fmt::format("${}\r\n", word.size());
    out_ += word;
    out_ += "\r\n";
  }
  ++pending_;
}

void RedisServer::sync() {
  for (std::size_t sent = 0; sent < out_.size();) {
    auto n = ::write(fd_, out_.data() + sent, out_.size() - sent);
    if (n <= 0) throw std::runtime_error("write to redis-server failed");
    sent += static_cast<std::size_t>(n);
  }
  out_.clear();
  // Every reply to HSET and friends is one line: an integer, a status or an error.
  char buffer[65536];
  while (pending_ > 0) {
    auto n = ::read(fd_, buffer, sizeof(buffer));
    if (n <= 0) throw std::runtime_error("read from redis-server failed");
    in_.append(buffer, static_cast<std::size_t>(n));
    std::size_t at = 0;
    for (std::size_t end; pending_ > 0 && (end = in_.find("\r\n", at)) != std::string::npos; at = end + 2) {
      if (in_[at] == '-') throw std::runtime_error("redis-server: " + in_.substr(at, end - at));
      --pending_;
    }
    in_.erase(0, at);
  }
}

}  // namespace PondBench
