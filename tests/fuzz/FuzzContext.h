#pragma once

// The context a fuzz run installs once and shares across its inputs, on
// virtual time. The HTTP client answers the first request after
// answering() with the given reply and every later one with 200 "{}";
// logs and reports go nowhere, so a long run neither slows down on set-up
// nor grows. The data root is a scratch directory removed at exit.
#include <memory>
#include <string_view>
#include <utility>

#include "analytics/ZVPAnalitics.h"
#include "analytics/ZVPCustomParams.h"
#include "platform/HttpClient.h"
#include "sdk/Context.h"
#include "support/TempDir.h"
#include "support/VirtualRuntime.h"
#include "util/LogSink.h"
#include "util/ZVException.h"

namespace zivora::test {

// Drops every line, so that a long run does not grow.
class SilentLog final : public LogSink {
 public:
  void write(LogLevel, std::string_view) override {}
};

class FuzzContext {
 public:
  // The run's context with `reply` scripted for the next request.
  static FuzzContext& answering(platform::HttpResponse reply) {
    static FuzzContext context;
    context.http_->script(std::move(reply));
    return context;
  }

  VirtualRuntime& runtime() { return *runtime_; }
  // Requests made since answering().
  int requests() const { return http_->requests; }

 private:
  class SilentAnalytics final : public ZVPAnalitics {
   public:
    void sendException(const ZVException&, std::string_view, std::string_view) noexcept override {}
    void appOpen() noexcept override {}
    void sendInvokeDelegate(std::string_view) noexcept override {}
    void sendEvent(std::string_view, ZVPCustomParams) noexcept override {}
    void sendEvent(std::string_view, std::string_view, std::string_view,
                   std::string_view) noexcept override {}
  };

  class ScriptedHttp final : public platform::HttpClient {
   public:
    void script(platform::HttpResponse first) {
      first_ = std::move(first);
      requests = 0;
    }
    platform::HttpResponse perform(const platform::HttpRequest&) override {
      if (requests++ == 0) return first_;
      return {.status = 200, .body = "{}"};
    }
    int requests = 0;

   private:
    platform::HttpResponse first_;
  };

  FuzzContext() {
    Context::install(std::make_shared<Context>(
        HostOptions{.dataRoot = root_.path().string()},
        RuntimeOptions{.runtime = runtime_,
                       .http = http_,
                       .log = std::make_shared<SilentLog>(),
                       .analytics = std::make_shared<SilentAnalytics>()}));
  }

  TempDir root_;
  std::shared_ptr<VirtualRuntime> runtime_ = std::make_shared<VirtualRuntime>();
  std::shared_ptr<ScriptedHttp> http_ = std::make_shared<ScriptedHttp>();
};

}  // namespace zivora::test
