#pragma once

#include <gst/gst.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "platform/dispatch/Queue.h"

namespace zivora::platform {

// One item's opening of the sound device that the choice found, on a
// thread of its own. A device that opened for the choice can still block a
// moment later, when an item opens it (a sound server that hangs), and the
// item's queue must not wait on it. The item hears on its queue: the sink,
// open (at READY, the reference passed to it), or null when it refused or
// took longer than the limit. A sink that opens too late, or after
// cancel(), is closed on the opening thread; an open that never returns
// keeps only its thread and this object.
class SoundDeviceOpen : public std::enable_shared_from_this<SoundDeviceOpen> {
 public:
  using Done = std::function<void(GstElement* sink)>;

  // `queue` must outlive the object's owner, who cancels before it goes.
  static std::shared_ptr<SoundDeviceOpen> start(const std::string& factory, dispatch::Queue& queue,
                                                dispatch::Duration limit, Done done);
  ~SoundDeviceOpen();
  SoundDeviceOpen(const SoundDeviceOpen&) = delete;
  SoundDeviceOpen& operator=(const SoundDeviceOpen&) = delete;

  // On the queue: `done` will not run.
  void cancel();

 private:
  enum class State { Opening, Opened, NotOpened, Cancelled };

  SoundDeviceOpen(dispatch::Queue& queue, Done done);
  void opened(GstElement* sink);
  void handOver();
  void notOpened();  // refused, or the limit passed first

  dispatch::Queue& queue_;
  Done done_;
  dispatch::TaskHandle timer_;
  std::mutex mutex_;
  State state_ = State::Opening;
  GstElement* sink_ = nullptr;  // opened, not yet handed over
};

}  // namespace zivora::platform
