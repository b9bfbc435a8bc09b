#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "platform/dispatch/Queue.h"
#include "platform/media/LoadingRequest.h"
#include "platform/media/MediaAsset.h"

namespace zivora::media {

// Turns the player's reads of a custom-loader asset into loading requests
// for the asset's delegate. read() runs on a streaming thread: it posts the
// request to the main queue, where the delegate takes it, and waits until
// it is answered. shutdown() (or the asset's cancelLoading()) breaks a
// waiting read at once, so the main queue never waits for a streaming
// thread blocked here.
class ByteRangeSource : public std::enable_shared_from_this<ByteRangeSource> {
 public:
  // Made with std::make_shared: main-queue work holds it weakly.
  // `stalled` runs on the main queue when a read waits for bytes while the
  // player is playing.
  ByteRangeSource(std::shared_ptr<MediaAsset> asset, dispatch::Queue& mainQueue,
                  std::function<void()> stalled);
  ByteRangeSource(const ByteRangeSource&) = delete;
  ByteRangeSource& operator=(const ByteRangeSource&) = delete;

  // Blocks the calling (streaming) thread until the read is answered,
  // finished or failed. `interrupted` (when given) tells a read failed by a
  // flush from one that was refused or cancelled.
  LoadingRequest::Answer read(std::int64_t offset, std::int64_t length,
                              bool* interrupted = nullptr);

  // Fails the waiting read and every later one. Idempotent, never blocks.
  void shutdown();

  // Between the player's flush start and stop (a flushing seek): the
  // waiting read and any new one fail at once as interrupted. The seek,
  // made on the main queue, waits for the streaming thread, and a read may
  // be waiting for the main queue to answer it.
  void setFlushing(bool flushing);

  // Whether the player plays (a waiting read is then a stall). Switching it
  // on while a read waits reports the stall.
  void setPlaying(bool playing);

  // True while a read waits for bytes.
  bool isWaitingForBytes();

  // The last content length the delegate gave, or -1.
  std::int64_t contentLength() const { return contentLength_.load(); }

 private:
  void offerToDelegate(const std::shared_ptr<LoadingRequest>& request);

  const std::shared_ptr<MediaAsset> asset_;
  dispatch::Queue& mainQueue_;
  const std::function<void()> stalled_;
  std::atomic<bool> playing_{false};
  std::atomic<std::int64_t> contentLength_{-1};

  std::mutex mutex_;
  bool shutDown_ = false;
  bool flushing_ = false;
  std::shared_ptr<LoadingRequest> current_;
};

}  // namespace zivora::media
