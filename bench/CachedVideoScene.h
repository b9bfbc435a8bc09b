// What the playback benchmarks share: an SDK context on real threads with
// GStreamer (sound discarded), a 1280x720 memory presenter, and a video put
// into the cache complete, as after a finished download.
#pragma once

#include <memory>
#include <string>

#include "platform/linux/ThreadRuntime.h"
#include "support/ScopedContext.h"
#include "support/TempDir.h"
#include "ui/Presenter.h"

namespace zivora::bench {

class CachedVideoScene {
 public:
  explicit CachedVideoScene(const std::string& file);

  dispatch::ThreadRuntime& runtime() { return *runtime_; }
  ui::Presenter& presenter();
  // The address the video is cached under, and its cache file name.
  const std::string& url() const { return url_; }
  const std::string& name() const { return name_; }

 private:
  test::TempDir root_;
  std::shared_ptr<dispatch::ThreadRuntime> runtime_;
  std::unique_ptr<test::ScopedContext> scope_;
  std::string url_;
  std::string name_;
};

}  // namespace zivora::bench
