#include "platform/linux/SoundDeviceOpen.h"

#include <system_error>
#include <thread>
#include <utility>

namespace zivora::platform {

namespace {

void close(GstElement* sink) {
  if (!sink) return;
  gst_element_set_state(sink, GST_STATE_NULL);
  gst_object_unref(sink);
}

// The sink at READY (its device or server found), or null. playbin fails
// the whole pipeline when a sink it was given does not reach READY, where
// the item can still play silently: so it is opened before playbin gets it.
GstElement* openSink(const std::string& factory) {
  GstElement* sink = gst_element_factory_make(factory.c_str(), nullptr);
  if (!sink) return nullptr;
  gst_object_ref_sink(sink);
  if (gst_element_set_state(sink, GST_STATE_READY) != GST_STATE_CHANGE_FAILURE) return sink;
  close(sink);
  return nullptr;
}

}  // namespace

std::shared_ptr<SoundDeviceOpen> SoundDeviceOpen::start(const std::string& factory,
                                                        dispatch::Queue& queue,
                                                        dispatch::Duration limit, Done done) {
  std::shared_ptr<SoundDeviceOpen> opening(new SoundDeviceOpen(queue, std::move(done)));
  opening->timer_ = queue.after(limit, [weak = std::weak_ptr<SoundDeviceOpen>(opening)] {
    if (auto self = weak.lock()) self->notOpened();
  });
  try {
    std::thread([opening, factory] { opening->opened(openSink(factory)); }).detach();
  } catch (const std::system_error&) {
    // No thread to be had: the item plays silently rather than not at all.
    queue.async([opening] { opening->notOpened(); });
  }
  return opening;
}

SoundDeviceOpen::SoundDeviceOpen(dispatch::Queue& queue, Done done)
    : queue_(queue), done_(std::move(done)) {}

// Only a sink whose handing over was queued and then dropped (the queue
// went first) is still here.
SoundDeviceOpen::~SoundDeviceOpen() { close(sink_); }

// On the opening thread. The queue is posted to under the lock, so a
// cancel() (after which the queue may go) cannot come in between.
void SoundDeviceOpen::opened(GstElement* sink) {
  {
    std::lock_guard lock(mutex_);
    if (state_ == State::Opening) {
      if (sink) {
        state_ = State::Opened;
        sink_ = sink;
        queue_.async([self = shared_from_this()] { self->handOver(); });
      } else {
        // Refused: the item hears it now rather than at the limit.
        queue_.async([self = shared_from_this()] { self->notOpened(); });
      }
      return;
    }
  }
  close(sink);  // too late: the item went on without it
}

void SoundDeviceOpen::handOver() {
  timer_.cancel();
  GstElement* sink = nullptr;
  bool wanted = false;
  {
    std::lock_guard lock(mutex_);
    sink = std::exchange(sink_, nullptr);
    wanted = state_ == State::Opened;
  }
  if (wanted) {
    done_(sink);
  } else {
    close(sink);
  }
}

void SoundDeviceOpen::notOpened() {
  {
    std::lock_guard lock(mutex_);
    if (state_ != State::Opening) return;
    state_ = State::NotOpened;
  }
  done_(nullptr);
}

void SoundDeviceOpen::cancel() {
  timer_.cancel();
  std::lock_guard lock(mutex_);
  state_ = State::Cancelled;
}

}  // namespace zivora::platform
