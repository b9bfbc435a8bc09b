// How long each public call of the facade holds the host's thread while the
// start-up handshake is under way against a stalled server, and once the SDK
// is initialised. Baselines in the same run: a bare mutex lock/unlock and
// handing a task to one of the SDK's serial queues (the least any call that
// defers work must cost).
//
// Target: every call's p99 below 100 µs; the figures show the queue
// hand-off's p99 beside it.
//
//   build/release/bench/zivora_bench_facade [iterations]
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "BenchFigure.h"
#include "SandboxServer.h"
#include "platform/linux/CurlHttpClient.h"
#include "platform/linux/ThreadRuntime.h"
#include "sdk/ZVConfiguration.h"
#include "top/ZivoraInstance.h"
#include "util/LogSink.h"
#include "zivora/Zivora.h"

namespace {

using Clock = std::chrono::steady_clock;

class SilentLog final : public zivora::LogSink {
 public:
  void write(zivora::LogLevel, std::string_view) override {}
};

struct Row {
  std::string name;
  double p50, p99, max;
};

Row measure(const std::string& name, int iterations, const std::function<void(int)>& call) {
  std::vector<double> micros(iterations);
  for (int i = 0; i < iterations; ++i) {
    auto start = Clock::now();
    call(i);
    micros[i] = std::chrono::duration<double, std::micro>(Clock::now() - start).count();
  }
  std::sort(micros.begin(), micros.end());
  return {name, micros[iterations / 2], micros[iterations * 99 / 100], micros.back()};
}

void print(const std::string& phase, const std::vector<Row>& rows) {
  fmt::print("\n{}\n{:<34} {:>10} {:>10} {:>10}\n", phase, "call", "p50 µs", "p99 µs", "max µs");
  for (const auto& row : rows)
    fmt::print("{:<34} {:>10.2f} {:>10.2f} {:>10.2f}\n", row.name, row.p50, row.p99, row.max);
}

std::vector<Row> facadeCalls(int iterations) {
  auto delegate = std::make_shared<zivora::ZivoraDelegate>();
  return {
      measure("showVideo", iterations,
              [](int i) { zivora::Zivora::showVideo(fmt::format("p{}", i % 8)); }),
      measure("cacheVideo", iterations,
              [](int i) { zivora::Zivora::cacheVideo(fmt::format("p{}", i % 8)); }),
      measure("isReadyVideo", iterations, [](int) { zivora::Zivora::isReadyVideo("p0"); }),
      measure("purchaseEvent", iterations,
              [](int) { zivora::Zivora::purchaseEvent(0.99, "USD", "t-1"); }),
      measure("requestMotivatedRewards", iterations,
              [](int) { zivora::Zivora::requestMotivatedRewards(); }),
      measure("removeMotivatedRewards", iterations,
              [](int) { zivora::Zivora::removeMotivatedRewards({"r1"}); }),
      measure("setDelegate", iterations, [&](int) { zivora::Zivora::setDelegate(delegate); }),
      measure("delegate", iterations, [](int) { zivora::Zivora::delegate(); }),
      measure("logEnable", iterations, [](int) { zivora::Zivora::logEnable(true); }),
      // The value is kept in memory at once; its commit runs on an SDK queue.
      measure("setAppUserId", iterations,
              [](int i) { zivora::Zivora::setAppUserId(fmt::format("user-{}", i)); }),
  };
}

std::vector<Row> baselines(int iterations, zivora::dispatch::Runtime& runtime) {
  std::mutex mutex;
  auto queue = runtime.makeSerialQueue("bench.baseline");
  return {
      measure("baseline: mutex lock/unlock", iterations, [&](int) { std::lock_guard lock(mutex); }),
      measure("baseline: serial queue async", iterations, [&](int) { queue->async([] {}); }),
  };
}

// The sandbox's reply names a close-button image; it lands in the settings
// just before the SDK counts as initialised.
void waitForInitialisation() {
  auto deadline = Clock::now() + std::chrono::seconds(10);
  while (Clock::now() < deadline) {
    auto configuration = zivora::ZVConfiguration::shared();
    if (configuration && configuration->closeButtonURL()) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  fmt::print("the handshake did not finish\n");
  std::exit(1);
}

// One figure per call: its p99 against the queue hand-off's p99.
void printFigures(const std::string& phase, const std::vector<Row>& rows, const Row& handOff) {
  for (const auto& row : rows) {
    zivora::bench::BenchFigure::belowLimit(phase + ": " + row.name + " p99", row.p99, handOff.p99,
                                           "us", 100, "p99 < 100 us")
        .print();
  }
}

}  // namespace

int main(int argc, char** argv) {
  int iterations = argc > 1 ? std::max(100, std::atoi(argv[1])) : 20000;
  auto root = std::filesystem::temp_directory_path() / fmt::format("zivora-bench-{}", getpid());
  zivora::sandbox::SandboxServer sandbox({.certDirectory = root / "certs"});
  sandbox.start();
  // The first handshake request stalls until released.
  sandbox.misbehave(zivora::sandbox::Misbehaviour::Kind::Stall, 1);

  auto runtime = std::make_shared<zivora::dispatch::ThreadRuntime>();
  zivora::ZivoraInstance::start(
      "bench-app",
      zivora::HostOptions{.dataRoot = (root / "data").string(), .adEndpoint = sandbox.adEndpoint()},
      zivora::RuntimeOptions{.runtime = runtime,
                             .http = std::make_shared<zivora::platform::CurlHttpClient>(
                                 zivora::platform::HttpClientOptions{.caFile = sandbox.caFile()}),
                             .log = std::make_shared<SilentLog>()});
  sandbox.waitForReceived(1, std::chrono::seconds(10));

  const auto duringHandshake = facadeCalls(iterations);
  print("handshake under way (server stalled)", duringHandshake);
  const auto floors = baselines(iterations, *runtime);
  print("baselines", floors);

  // Let the handshake finish, then stall whatever the SDK sends next.
  sandbox.misbehave(zivora::sandbox::Misbehaviour::Kind::Stall, 1000000);
  sandbox.releaseStalled();
  waitForInitialisation();
  const auto initialised = facadeCalls(iterations);
  print("initialised, server stalled", initialised);

  printFigures("handshake", duringHandshake, floors.back());
  printFigures("initialised", initialised, floors.back());

  // The reset aborts the stalled requests and waits for the SDK's queues,
  // so nothing of it runs once the server and the data root are gone.
  const auto resetStart = Clock::now();
  zivora::ZivoraInstance::reset();
  fmt::print("\nreset with requests stalled: {:.0f} ms\n",
             std::chrono::duration<double, std::milli>(Clock::now() - resetStart).count());
  sandbox.stop();
  std::error_code ignored;
  std::filesystem::remove_all(root, ignored);
  return zivora::bench::BenchFigure::exitStatus();
}
