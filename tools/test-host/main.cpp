// The sample host's session for tests that need more than a host may ask
// of the SDK: on top of the sample's flags it takes
//   --idle-timeout-ms N     connections and transfers give up after N ms idle
//   --retry-unit-ms N       one second of the protocol's retry schedules
//   --disk-capacity BYTES   the data root behaves as a disk of that size
// and starts the SDK with the matching collaborators.
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "DemoSession.h"
#include "QuotaFileSystem.h"
#include "platform/linux/CurlHttpClient.h"
#include "platform/linux/CurlStreamingClient.h"
#include "platform/linux/ThreadRuntime.h"
#include "sdk/Context.h"
#include "top/ZivoraInstance.h"

namespace {

using std::chrono::milliseconds;

// Zero keeps the SDK's defaults.
struct TestFlags {
  long idleTimeoutMs = 0, retryUnitMs = 0;
  unsigned long long diskCapacity = 0;
};

// Takes the test host's own flags out of `arguments`; nullopt when one
// lacks its value.
std::optional<TestFlags> takeTestFlags(std::vector<std::string>& arguments) {
  TestFlags flags;
  std::vector<std::string> rest;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& flag = arguments[i];
    const bool ours =
        flag == "--idle-timeout-ms" || flag == "--retry-unit-ms" || flag == "--disk-capacity";
    if (!ours) {
      rest.push_back(flag);
      continue;
    }
    if (i + 1 >= arguments.size()) return std::nullopt;
    const std::string& value = arguments[++i];
    if (flag == "--idle-timeout-ms")
      flags.idleTimeoutMs = std::stol(value);
    else if (flag == "--retry-unit-ms")
      flags.retryUnitMs = std::stol(value);
    else
      flags.diskCapacity = std::stoull(value);
  }
  arguments = std::move(rest);
  return flags;
}

zivora::RuntimeOptions runtimeOptions(const TestFlags& flags, const zivora::HostOptions& host) {
  zivora::RuntimeOptions runtime;
  if (flags.idleTimeoutMs > 0) {
    const milliseconds idle(flags.idleTimeoutMs);
    runtime.runtime =
        std::make_shared<zivora::dispatch::ThreadRuntime>(zivora::MainQueueMode::OwnThread);
    runtime.http =
        std::make_shared<zivora::platform::CurlHttpClient>(zivora::platform::HttpClientOptions{
            .caFile = host.caFile, .connectTimeout = idle, .lowSpeedTime = idle});
    runtime.downloads = std::make_shared<zivora::platform::CurlStreamingClient>(
        zivora::platform::StreamingClientOptions{
            .caFile = host.caFile, .connectTimeout = idle, .lowSpeedTime = idle},
        runtime.runtime);
  }
  if (flags.retryUnitMs > 0) runtime.retryTimeUnit = milliseconds(flags.retryUnitMs);
  if (flags.diskCapacity > 0)
    runtime.files = std::make_shared<testhost::QuotaFileSystem>(host.dataRoot, flags.diskCapacity);
  return runtime;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  std::optional<TestFlags> flags;
  std::optional<demo::Arguments> args;
  try {
    flags = takeTestFlags(arguments);
    if (flags) args = demo::parseArguments(arguments);
  } catch (const std::exception&) {
    // A number that does not parse: the usage says what is expected.
  }
  if (!args) {
    demo::printUsage();
    return 2;
  }
  return demo::runSession(*args, [&](const std::string& appId, const zivora::HostOptions& host) {
    zivora::ZivoraInstance::start(appId, host, runtimeOptions(*flags, host));
  });
}
