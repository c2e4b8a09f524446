// Pond tables: the cost of a row write against a plain memcpy, a request and
// response round trip between two processes, and the same requests written
// to a local redis-server.
#include "bench/BenchFigure.h"
#include "bench/pond/RedisClient.h"
#include "platform/pond/Table.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr std::uint64_t writes = 1'000'000;
constexpr std::uint64_t requests = 100'000;

// The shape of a hardware FEC id request: 40 bytes.
struct Request {
  std::uint64_t key;
  std::uint32_t requestType;
  std::uint8_t hwTunnelId[8];
  std::uint32_t mplsTtlMode;
  std::uint32_t mplsPayloadType;
  std::uint8_t requestAdjState;
  std::uint8_t padding[3];
  double requestId;
};
static_assert(sizeof(Request) == 40);

struct Response {
  std::uint64_t key;
  std::uint64_t hwId;
  std::uint32_t adjState;
  std::uint32_t padding;
  double requestId;
};

using RequestTable = Pond::Table<Request, &Request::key>;
using ResponseTable = Pond::Table<Response, &Response::key>;

Request request(std::uint64_t key, double id) {
  Request row{};
  row.key = key;
  row.requestType = 0;
  row.hwTunnelId[0] = static_cast<std::uint8_t>(key);
  row.mplsTtlMode = 1;
  row.mplsPayloadType = 2;
  row.requestAdjState = 1;
  row.requestId = id;
  return row;
}

Pond::TableControl control(const std::string& name, Pond::TableControl::Role role, std::size_t capacity) {
  // Taken once, so that a forked responder names the same segments.
  static const std::string prefix = fmt::format("orbbench-{}-", ::getpid());
  Pond::TableControl c;
  c.prefix = prefix;
  c.name = name;
  c.role = role;
  c.capacity = capacity;
  c.logCapacity = std::size_t{1} << 17;
  return c;
}

// ---- pond_write_1m

void BM_PondWrite(benchmark::State& state) {
  RequestTable table;
  table.controlIs(control("write", Pond::TableControl::Role::writer, writes));
  for (std::uint64_t key = 0; key < writes; ++key) table.set(request(key, 0));  // the pages, touched once
  double id = 0;
  for (auto _ : state) {
    ++id;
    for (std::uint64_t key = 0; key < writes; ++key) table.set(request(key, id));
    table.flush();
  }
  if (table.size() != writes) state.SkipWithError("rows missing");
}
BENCHMARK(BM_PondWrite)->Unit(benchmark::kMillisecond);

void BM_MemcpyRows(benchmark::State& state) {
  std::vector<Request> array(writes);
  double id = 0;
  for (auto _ : state) {
    ++id;
    for (std::uint64_t key = 0; key < writes; ++key) {
      Request row = request(key, id);
      std::memcpy(&array[key], &row, sizeof(row));
    }
    benchmark::ClobberMemory();
  }
  benchmark::DoNotOptimize(array.data());
}
BENCHMARK(BM_MemcpyRows)->Unit(benchmark::kMillisecond);

// ---- pond_roundtrip_100000

// The responder: answers each request it is told about, until every one is.
int respond(int readyFd, int doneFd) {
  RequestTable in;
  in.controlIs(control("request", Pond::TableControl::Role::reader, 0));
  ResponseTable out;
  out.controlIs(control("response", Pond::TableControl::Role::writer, requests));
  if (in.mountStatus() != Pond::MountStatus::mounted || in.wakeFd() < 0) return 1;
  in.processChanges({});
  char c = 1;
  if (::write(readyFd, &c, 1) != 1) return 1;
  RequestTable::Handlers handlers{.onKey = [&](const std::uint64_t& key) {
    if (auto row = in.get(key)) out.set(Response{key, key + 0x10000, 4, 0, row->requestId});
  }};
  while (out.size() < requests) {
    pollfd fd{in.wakeFd(), POLLIN, 0};
    if (::poll(&fd, 1, 10000) <= 0) return 2;
    in.processChanges(handlers);
    out.flush();
  }
  bool done = ::read(doneFd, &c, 1) == 1;
  out.close();
  in.close();
  return done ? 0 : 3;
}

void BM_PondRoundTrip(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    RequestTable out;
    out.controlIs(control("request", Pond::TableControl::Role::writer, requests));
    int ready[2], done[2];
    if (::pipe(ready) != 0 || ::pipe(done) != 0) state.SkipWithError("pipe");
    pid_t child = ::fork();
    if (child == 0) ::_exit(respond(ready[1], done[0]));
    // Only the child writes `ready`: a responder that fails shows as end of file.
    ::close(ready[1]);
    char c = 0;
    bool started = ::read(ready[0], &c, 1) == 1;
    ResponseTable in;
    in.controlIs(control("response", Pond::TableControl::Role::reader, 0));
    if (!started || in.mountStatus() != Pond::MountStatus::mounted) {
      state.SkipWithError("responder did not start");
      ::close(done[1]);
      ::waitpid(child, nullptr, 0);
      break;
    }
    in.processChanges({});
    state.ResumeTiming();

    for (std::uint64_t key = 0; key < requests; ++key) out.set(request(key, double(key)));
    out.flush();
    bool answered = true;
    while (in.size() < requests && answered) {
      pollfd fd{in.wakeFd(), POLLIN, 0};
      answered = ::poll(&fd, 1, 10000) > 0;
      in.processChanges({});
    }

    state.PauseTiming();
    auto last = in.get(requests - 1);
    if (!answered || !last || last->requestId != double(requests - 1)) state.SkipWithError("requests not answered");
    c = 1;
    [[maybe_unused]] auto n = ::write(done[1], &c, 1);
    int status = 0;
    ::waitpid(child, &status, 0);
    for (int fd : {ready[0], done[0], done[1]}) ::close(fd);
    in.close();
    out.close();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_PondRoundTrip)->Unit(benchmark::kMillisecond);

// ---- pond_vs_redis_100000

void BM_PondRequests(benchmark::State& state) {
  RequestTable table;
  table.controlIs(control("requests", Pond::TableControl::Role::writer, requests));
  double id = 0;
  for (auto _ : state) {
    ++id;
    for (std::uint64_t key = 0; key < requests; ++key) table.set(request(key, id));
    table.flush();
  }
}
BENCHMARK(BM_PondRequests)->Unit(benchmark::kMillisecond);

void BM_RedisRequests(benchmark::State& state) {
  std::unique_ptr<PondBench::RedisServer> redis;
  try {
    redis = std::make_unique<PondBench::RedisServer>(PondBench::RedisServer::find());
  } catch (const std::exception& e) {
    state.SkipWithError(e.what());
    return;
  }
  double id = 0;
  for (auto _ : state) {
    ++id;
    for (std::uint64_t key = 0; key < requests; ++key) {
      Request row = request(key, id);
      redis->command({"HSET", fmt::format("req:{}", row.key), "requestType", fmt::format("{}", row.requestType),
                      "hwTunnelId", fmt::format("{}", row.hwTunnelId[0]), "mplsTtlMode",
                      fmt::format("{}", row.mplsTtlMode), "mplsPayloadType", fmt::format("{}", row.mplsPayloadType),
                      "requestAdjState", row.requestAdjState ? "1" : "0", "requestId",
                      fmt::format("{}", row.requestId)});
      if (key % 1000 == 999) redis->sync();
    }
    redis->sync();
  }
}
BENCHMARK(BM_RedisRequests)->Unit(benchmark::kMillisecond);

bool registerFigures() {
  Bench::figure("pond_write_1m", "rows_per_s", "BM_PondWrite", "BM_MemcpyRows", writes);
  Bench::Figure roundTrip{"pond_roundtrip_100000", "requests_per_s", "BM_PondRoundTrip", "", requests, 1, {}};
  roundTrip.wallTime = true;
  Bench::figure(roundTrip);
  // Redis's time over ours: the figure's subject is the redis side.
  Bench::Figure redis{
      "pond_vs_redis_100000", "rows_per_s", "BM_RedisRequests", "BM_PondRequests", requests, requests, {}};
  redis.wallTime = true;
  redis.skipped = PondBench::RedisServer::find().empty();
  return Bench::figure(redis);
}
const bool registered = registerFigures();

}  // namespace
