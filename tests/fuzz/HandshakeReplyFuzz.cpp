// Any body the ad server might send in answer to the handshake, run through
// the whole start-up on virtual time: the SDK must not crash, and it must
// end initialised, refused, or retrying (never stuck half-way).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "FuzzContext.h"
#include "support/FakeHttpClient.h"
#include "support/RecordingAdSide.h"
#include "support/TempDir.h"
#include "top/ZivoraInstance.h"

using namespace zivora;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static test::TempDir root;
  auto runtime = std::make_shared<test::VirtualRuntime>();
  auto http = std::make_shared<test::FakeHttpClient>();
  auto adSide = std::make_shared<test::RecordingAdSide>();
  http->enqueue(200, std::string(reinterpret_cast<const char*>(data), size));
  ZivoraInstance::start("fuzz", HostOptions{.dataRoot = root.path().string()},
                        RuntimeOptions{.runtime = runtime,
                                       .http = http,
                                       .log = std::make_shared<test::SilentLog>(),
                                       .adSide = adSide});
  runtime->runUntilIdle();
  bool initialised = !adSide->calls("newVideoManager").empty();
  bool retrying = runtime->pendingTaskCount() > 0;
  if (!initialised && !retrying) std::abort();
  ZivoraInstance::reset();
  return 0;
}
