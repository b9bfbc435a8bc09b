#pragma once

#include <memory>

#include "sdk/Context.h"
#include "support/RecordingAnalytics.h"
#include "support/RecordingLogSink.h"

namespace zivora::test {

// Installs a fresh context for one test, with a recording log and recording
// analytics, and puts back the one it replaced afterwards (a nested one
// stands for a new launch on the same data root).
class ScopedContext {
 public:
  explicit ScopedContext(HostOptions host = {}, RuntimeOptions runtime = {});
  ~ScopedContext();
  ScopedContext(const ScopedContext&) = delete;
  ScopedContext& operator=(const ScopedContext&) = delete;

  Context& context() { return *context_; }
  RecordingLogSink& log() { return *log_; }
  RecordingAnalytics& analytics() { return *analytics_; }

 private:
  std::shared_ptr<RecordingLogSink> log_;
  std::shared_ptr<RecordingAnalytics> analytics_;
  std::shared_ptr<Context> context_;
  std::shared_ptr<Context> previous_;
};

}  // namespace zivora::test
