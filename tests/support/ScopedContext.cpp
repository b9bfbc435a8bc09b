#include "support/ScopedContext.h"

namespace zivora::test {

ScopedContext::ScopedContext(HostOptions host, RuntimeOptions runtime)
    : log_(std::make_shared<RecordingLogSink>()),
      analytics_(std::make_shared<RecordingAnalytics>()) {
  if (!runtime.log) runtime.log = log_;
  if (!runtime.analytics) runtime.analytics = analytics_;
  context_ = std::make_shared<Context>(std::move(host), std::move(runtime));
  previous_ = Context::current();
  Context::install(context_);
}

ScopedContext::~ScopedContext() { Context::install(previous_); }

}  // namespace zivora::test
